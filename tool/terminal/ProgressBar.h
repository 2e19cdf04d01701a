#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "directory/Progress.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// A progress bar on standard error, if that is a terminal, once `Show` was called or the work has taken two seconds;
/// gone with the object.
class ProgressBar : public AccessDirectory::Progress {
public:
  ProgressBar();
  ~ProgressBar() override { Clear(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void Show() override { m_Shown = m_AtTerminal; }
  void Begin(const std::string& phase, std::uint64_t total) override;
  void Advance(std::uint64_t steps) override;
  /// Takes the bar off the terminal, before something else is written there.
  void Clear();

private:
  void Draw();
  void ShowWhenLong();

  const std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
  bool m_AtTerminal;
  bool m_Shown = false;
  std::string m_Phase;
  std::uint64_t m_Total = 0;
  std::uint64_t m_Done = 0;
  std::uint64_t m_NextDraw = 0; // steps at which the picture changes
  std::uint64_t m_Calls = 0;    // of `Advance`
  std::size_t m_Width = 0;      // of what stands on the terminal
};

} // namespace Tool
