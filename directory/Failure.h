#pragma once

#include <stdexcept>
#include <string>

namespace AccessDirectory {

/// What the process tells its caller.
enum class ExitStatus : int {
  Done = 0,    ///< done, or allowed
  Refused = 1, ///< refused, not found, taken, or findings to look at
  Usage = 2,   ///< wrong usage or input
  Failed = 3   ///< the database or the system failed
};

/// Ends a command: a sentence for people that names the offending thing, and the exit status.
class Failure : public std::runtime_error {
public:
  Failure(ExitStatus status, const std::string& message) : std::runtime_error(message), m_Status(status) {}
  ExitStatus Status() const noexcept { return m_Status; }

private:
  ExitStatus m_Status;
};

} // namespace AccessDirectory
