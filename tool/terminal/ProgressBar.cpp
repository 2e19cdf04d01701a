#include "tool/terminal/ProgressBar.h"

#include <algorithm>
#include <iostream>

#include <unistd.h>

namespace Tool {

namespace {

constexpr std::uint64_t BarWidth = 40;
constexpr std::chrono::seconds LongWork{2};
constexpr std::uint64_t CallsALook = 64; // the clock costs as much as a small step
constexpr std::uint64_t Mebibyte = 1024UL * 1024UL;

} // namespace

ProgressBar::ProgressBar() : m_AtTerminal(isatty(STDERR_FILENO) == 1) {}

void ProgressBar::Begin(const std::string& phase, std::uint64_t total) {
  m_Phase = phase;
  m_Total = total;
  m_Done = 0;
  m_NextDraw = 0;
  Advance(0);
}

void ProgressBar::Advance(std::uint64_t steps) {
  m_Done += steps;
  if (m_AtTerminal && !m_Shown) {
    ShowWhenLong();
  }
  if (m_Shown && m_Done >= m_NextDraw) {
    Draw();
  }
}

void ProgressBar::ShowWhenLong() {
  if (++m_Calls % CallsALook == 0) {
    m_Shown = std::chrono::steady_clock::now() - m_Start > LongWork;
  }
}

void ProgressBar::Draw() {
  std::string line = m_Phase + ' ';
  if (m_Total == 0) {
    line += std::to_string(m_Done / Mebibyte) + " MiB";
    m_NextDraw = (m_Done / Mebibyte + 1) * Mebibyte;
  } else {
    const std::uint64_t done = std::min(m_Done, m_Total); // a file may have grown
    const std::uint64_t percent = done * 100 / m_Total;
    const std::uint64_t filled = done * BarWidth / m_Total;
    line += '[' + std::string(filled, '#') + std::string(BarWidth - filled, '.') + "] " + std::to_string(percent) + '%';
    m_NextDraw = (m_Total * (percent + 1) + 99) / 100;
  }
  const std::size_t covered = std::max(m_Width, line.size());
  std::cerr << '\r' << line << std::string(covered - line.size(), ' ') << std::flush;
  m_Width = line.size();
}

void ProgressBar::Clear() {
  if (m_Width > 0) {
    std::cerr << '\r' << std::string(m_Width, ' ') << '\r' << std::flush;
    m_Width = 0;
  }
}

} // namespace Tool
