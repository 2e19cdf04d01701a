#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "PN_PList.h"
#include "directory/file/Database.h"
#include "directory/credential/Secret.h"

namespace AccessDirectory {

/// A new credential: a password, or the canonical base64 text of a certificate's thumbprint.
struct Credential {
  std::optional<Secret> password;
  std::string thumbprint;

  /// The method under which it is stored: "sha256" or "tls_client_certificate".
  const std::string& Method() const;
  /// What is stored for it: a salted digest of the password, or the thumbprint.
  std::string StoredValue() const;
  /// Puts it into a request for `UserManager::CreateUser`.
  void AddTo(Perenna::PListDict& request) const;
};

/// Whether something can fit what is stored: a digest behind a colon, a thumbprint in canonical base64, a password that
/// is not empty. False for a method that the module does not know.
bool IsUsable(const std::string& auth_method, const std::string& auth_value);

// A disabled user keeps the credential under a method that the module does not know: "disabled:" before the one it had.
// The module then refuses it, whatever is presented.

bool IsDisabled(std::string_view auth_method) noexcept;
/// The method of a user before it was disabled; the same for one who is not.
std::string_view EnabledMethod(std::string_view auth_method) noexcept;
std::string DisabledMethod(std::string_view auth_method);

/// A new random password of 100 bits, in five groups of four letters and digits that cannot be mistaken for each other.
Secret GeneratePassword();

/// The digits in hexadecimal of a thumbprint in base64, as tools that show certificates print them (without colons);
/// empty when it is none.
std::string ThumbprintDigits(const std::string& thumbprint);

/// The thumbprint in canonical base64 of a text in hexadecimal (with or without colons), in base64, or as
/// "openssl x509 -fingerprint" prints it. Throws `Failure`.
std::string ThumbprintFromText(const std::string& text);

/// The thumbprint in canonical base64 of the certificate in a PEM or DER file. Throws `Failure`.
std::string ThumbprintFromFile(const std::string& file);

/// The same of a certificate's PEM text. Throws `Failure`.
std::string ThumbprintFromPem(const std::string& text);

/// Why nobody could log in by this user id, or no header field could carry it: it is empty, holds a colon (RFC 7617,
/// section 2) or a control character, or has a space at an end. Words that follow the id; empty when it is sound.
/// The colon matters only with a password.
std::string UserIdFault(std::string_view user_id, bool with_password);

/// The first user who is known by the thumbprint, the one that the module finds; empty when nobody is.
std::string UserOfThumbprint(Database& database, const std::string& thumbprint);

} // namespace AccessDirectory
