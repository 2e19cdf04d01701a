// Users: ids, credentials, rights.

#include <algorithm>

#include "LocalAccessManager.h"
#include "directory/credential/Credential.h"
#include "directory/Failure.h"
#include "directory/lint/Lint.h"
#include "directory/lint/LintKinds.h"

namespace AccessDirectory {

namespace {

namespace Methods = LocalAccessManager::Strings; // of authentication

constexpr const char* HexDigits = "0123456789abcdefABCDEF";
constexpr const char* LowerHexDigits = "0123456789abcdef"; // the module writes digests so
constexpr std::size_t SaltDigits = 32;
constexpr std::size_t DigestDigits = 64;

std::string Or(const Mender::Command& command, const std::string& otherwise) {
  return command ? *command : otherwise;
}

/// What to do, and the command for it where there is one.
std::string With(const std::string& advice, const Mender::Command& command) {
  return command ? advice + ": " + *command : advice;
}

} // namespace

void Lint::CheckUser(std::size_t row) {
  if (!AddUnreachable(Users, row, 1)) {
    CheckUserId(row);
    CheckCredential(row);
    CheckRights(row);
  }
}

void Lint::CheckUserId(std::size_t row) {
  const std::string id = Text(Users, row, UserColumn::Id);
  const bool with_password = EnabledMethod(Text(Users, row, UserColumn::Method)) != Methods::tls_client_certificate;
  const std::string fault = UserIdFault(id, with_password);
  if (!fault.empty()) {
    Add(LintKinds::UserId, Users, row, "the id " + fault + ": the user cannot log in",
        "add the user under another id and delete this one: " +
            Or(m_Mender.Run({"user", "delete"}, {id}), DeleteRow(Users, row)));
  }
}

std::string Lint::NewPassword(std::size_t row) const {
  return Or(m_Mender.Run({"user", "set-password"}, {Text(Users, row, UserColumn::Id)}), "set a new password");
}

std::string Lint::NewCertificate(std::size_t row) const {
  return With("name the user's own certificate",
              m_Mender.Run({"user", "set-certificate", "--certificate", "FILE"}, {Text(Users, row, UserColumn::Id)}));
}

void Lint::CheckCredential(std::size_t row) {
  const std::string method = Text(Users, row, UserColumn::Method);
  const std::string value = Text(Users, row, UserColumn::Value);
  if (method == Methods::sha256) {
    CheckPasswordExpression(row, value);
  } else if (method == Methods::tls_client_certificate) {
    CheckThumbprint(row, value);
  } else if (method == Methods::plain_pw) {
    Add(LintKinds::CredentialPlain, Users, row,
        value.empty() ? "the password is empty: whoever knows the id is let in"
                      : "the password is stored as it is: whoever can read the file, or a copy of it, knows it",
        NewPassword(row));
  } else if (IsDisabled(method)) {
    Add(LintKinds::UserDisabled, Users, row, "the user is disabled and cannot log in",
        "when this was for a time only: " +
            Or(m_Mender.Run({"user", "enable"}, {Text(Users, row, UserColumn::Id)}), "put the method back"));
  } else {
    Add(LintKinds::CredentialMethod, Users, row,
        "the authentication method " + Quoted(method) +
            " is none of sha256, tls_client_certificate, plain_pw: the user cannot log in",
        NewPassword(row));
  }
}

void Lint::CheckPasswordExpression(std::size_t row, const std::string& expression) {
  const std::size_t colon = expression.find(':');
  const std::size_t digest = colon == std::string::npos ? 0 : expression.size() - colon - 1;
  const bool sound =
      digest == DigestDigits && expression.find_first_not_of(LowerHexDigits, colon + 1) == std::string::npos;
  if (!sound) {
    Add(LintKinds::CredentialMalformed, Users, row,
        "the stored password has no digest of 64 lower-case hexadecimal digits after a colon: no password fits it",
        NewPassword(row));
  } else if (colon != SaltDigits || expression.find_first_not_of(HexDigits) != colon) {
    Add(LintKinds::CredentialMalformed, Users, row,
        "the salt of the stored password is not 32 hexadecimal digits: a short or chosen salt lets it be guessed "
        "together with others",
        NewPassword(row));
  }
}

void Lint::CheckThumbprint(std::size_t row, const std::string& thumbprint) {
  const std::string id = Text(Users, row, UserColumn::Id);
  std::string canonical;
  try {
    canonical = ThumbprintFromText(thumbprint);
  } catch (const Failure&) {
    Add(LintKinds::ThumbprintForm, Users, row, "the stored text is no thumbprint: no certificate fits it",
        NewCertificate(row));
    return;
  }
  if (canonical != thumbprint) {
    Add(LintKinds::ThumbprintForm, Users, row,
        "the stored thumbprint is not in its only valid form, 28 characters of base64: no certificate fits it",
        Or(m_Mender.Run({"user", "set-certificate", "--thumbprint=" + canonical}, {id}), NewCertificate(row)));
    return;
  }
  const auto [first, is_new] = m_Thumbprints.emplace(In(Users).texts.At(row, UserColumn::Value), row);
  if (!is_new) {
    Add(LintKinds::ThumbprintShared, Users, row,
        "the user " + Quoted(Text(Users, first->second, UserColumn::Id)) +
            " has the same certificate and is found first: nobody logs in as this user",
        NewCertificate(row));
  }
}

void Lint::CheckRights(std::size_t row) {
  const std::string id = Text(Users, row, UserColumn::Id);
  const auto memberships = m_MembershipsOfUser.find(id);
  if (memberships == m_MembershipsOfUser.end()) {
    Add(LintKinds::UserWithoutGroup, Users, row, "the user is in no group: every request is refused",
        With("put the user into a group", m_Mender.Run({"user", "set-groups"}, {id, "GROUP"})) +
            "; or, if nobody needs it: " + Or(m_Mender.Run({"user", "delete"}, {id}), DeleteRow(Users, row)));
    return;
  }
  const auto grants = [this](std::size_t membership) {
    return m_GrantingGroups.count(In(Memberships).texts.At(membership, MembershipColumn::Group)) > 0;
  };
  if (std::none_of(memberships->second.begin(), memberships->second.end(), grants)) {
    Add(LintKinds::UserWithoutAllow, Users, row,
        "none of the user's groups has an Allow that can grant anything: every request is refused",
        With("give one of the user's groups an Allow",
             m_Mender.Run({"filter", "add"}, {"GROUP", "Allow", "METHOD", "PATTERN"})) +
            "; or put the user into another group");
  }
}

} // namespace AccessDirectory
