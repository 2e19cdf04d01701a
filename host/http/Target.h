#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// The path of a request target: all before its first "?".
std::string_view PathOf(std::string_view target) noexcept;

/// What follows the first "?"; empty also without one.
std::string_view QueryOf(std::string_view target) noexcept;

/// Tells whether a request target (RFC 9112, section 3.2.1: origin form) is spelled in the one way in which filter,
/// proxy and application see the same path. Targets are refused, never rewritten.
///
/// A path begins with "/"; has no empty segment, but for one trailing "/", and no "." or ".." segment; holds "/" and
/// the characters of a segment (RFC 3986, section 3.3: pchar) without ";"; its "%" are followed by two upper-case
/// hexadecimal digits and encode no unreserved character, sub-delimiter, ":", "@", "/", "\", "%", "?", "#" or control
/// byte. A query is visible ASCII without "#".
///
/// Immutable, so any thread may use it.
class TargetForm {
public:
  /// `allows`: spellings that are accepted in a path all the same, each ";" or "%" with two upper-case hexadecimal
  /// digits. A segment that is empty, "." or ".." before its first ";" is refused even then; one of dots also where the
  /// application, decoding what is allowed, would find it. (An empty one not: "%2F" is allowed for "https:%2F%2Fhost".)
  /// Throws `AccessDirectory::Failure` (Input) for an entry that is neither, or encodes a control byte or a dot.
  explicit TargetForm(const std::vector<std::string>& allows = {});

  /// What is wrong with the target, as a clause ("its path has an empty segment"); empty when it is in normal form.
  std::string Fault(std::string_view target) const;

private:
  bool Allows(unsigned char byte) const { return m_AllowedEncoded[byte]; }
  const char* FaultOfBytes(std::string_view path) const;
  const char* FaultOfSegments(std::string_view path) const;

  bool m_AllowsSemicolon = false;
  bool m_AllowsAny = false;
  std::vector<bool> m_AllowedEncoded = std::vector<bool>(256); // by the byte that is encoded
};

} // namespace Host
