#pragma once

#include <cstdint>
#include <string>

namespace AccessDirectory {

/// Told how far a long piece of work has come. This one shows nothing; a front end derives from it.
class Progress {
public:
  Progress() = default;
  virtual ~Progress() = default;
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// The work is large enough to be shown.
  virtual void Show() {}
  /// Begins the next phase, of `total` steps; 0: nobody knows.
  virtual void Begin(const std::string& /*phase*/, std::uint64_t /*total*/) {}
  virtual void Advance(std::uint64_t /*steps*/) {}
};

} // namespace AccessDirectory
