#pragma once

#include <string>
#include <vector>

#include "tool/ExitStatus.h"

namespace Tool {

/// Writes what a command changes to a file of JSON lines: when, who, from where, the command, its exit status, and the
/// rows before and after without what users log in with. A command that changes nothing leaves no line.
class AuditTrail {
public:
  /// Opens `file` for appending, made with mode 0640 if need be, before anything is changed, and watches what this
  /// process changes from here on. An empty name: nothing is written. Throws `Failure`.
  explicit AuditTrail(const std::string& file);
  ~AuditTrail();
  AuditTrail(const AuditTrail&) = delete;
  AuditTrail& operator=(const AuditTrail&) = delete;

  /// Writes the line of a command that has ended. Throws `Failure` when it cannot be written: what was changed stays.
  void Write(const std::vector<std::string>& command, ExitStatus status);

private:
  std::string m_Name;
  int m_Descriptor = -1;
};

} // namespace Tool
