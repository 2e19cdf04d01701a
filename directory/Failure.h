#pragma once

#include <stdexcept>
#include <string>

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

  Failure(Kind kind, const std::string& message) : std::runtime_error(message), m_Kind(kind) {}
  Kind What() const noexcept { return m_Kind; }

private:
  Kind m_Kind;
};

/// There is no file where a database was looked for.
class NoDatabase : public Failure {
public:
  explicit NoDatabase(const std::string& message) : Failure(Kind::System, message) {}
};

} // namespace AccessDirectory
