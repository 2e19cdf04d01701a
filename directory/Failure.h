#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace AccessDirectory {

/// What ends an operation of this layer: a sentence for people that names the offending thing, and what kind of thing
/// is wrong, from which a front end makes its exit status or its HTTP status. Never holds a secret.
class Failure : public std::runtime_error {
public:
  enum class Kind {
    Refused, ///< not found, or taken
    Input,   ///< what was given is wrong
    System   ///< the database or the system failed
  };

  /// `code`: the module's result symbol, where it was the module that refused.
  Failure(Kind kind, const std::string& message, std::string code = {})
      : std::runtime_error(message), m_Kind(kind), m_Code(std::move(code)) {}
  Kind What() const noexcept { return m_Kind; }
  const std::string& Code() const noexcept { return m_Code; }

private:
  Kind m_Kind;
  std::string m_Code;
};

/// There is no file where a database was looked for.
class NoDatabase : public Failure {
public:
  explicit NoDatabase(const std::string& message) : Failure(Kind::System, message) {}
};

} // namespace AccessDirectory
