#pragma once

#include <cstdint>
#include <string>

namespace Tool {

/// A progress bar on standard error, if that is a terminal, once `Show` was called; gone with the object.
class Progress {
public:
  Progress();
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// The work is large enough for a bar.
  void Show() noexcept { m_Shown = m_AtTerminal; }
  /// Begins the next phase, of `total` steps; 0: nobody knows.
  void Begin(const std::string& phase, std::uint64_t total);
  void Advance(std::uint64_t steps = 1);
  /// Takes the bar off the terminal, before something else is written there.
  void Clear();

private:
  void Draw();

  bool m_AtTerminal;
  bool m_Shown = false;
  std::string m_Phase;
  std::uint64_t m_Total = 0;
  std::uint64_t m_Done = 0;
  std::uint64_t m_NextDraw = 0; // steps at which the picture changes
  std::size_t m_Width = 0;      // of what stands on the terminal
};

} // namespace Tool
