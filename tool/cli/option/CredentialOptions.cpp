#include "tool/cli/option/CredentialOptions.h"

#include "directory/Failure.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Prompt.h"

namespace Tool {

void CredentialOptions::AddPasswordTo(CLI::App& command) {
  CLI::Option* const from_stdin =
      command.add_flag("--password-stdin", password_stdin, "Read the password from standard input: its first line");
  command.add_option("--password-file", password_file, "Read the password from a file: its first line")
      ->type_name("FILE")
      ->excludes(from_stdin);
}

void CredentialOptions::AddCertificateTo(CLI::App& command) {
  CLI::Option* const text =
      command.add_option("--thumbprint", thumbprint, "The certificate's SHA-1 thumbprint, in hexadecimal or base64")
          ->type_name("TEXT");
  command.add_option("--certificate", certificate_file, "The client certificate, in PEM or DER form")
      ->type_name("FILE")
      ->excludes(text);
}

namespace {

/// The directory knows nothing of options: whoever reads the message does.
std::string OfOption(const char* option, std::string (*read)(const std::string&), const std::string& value) {
  try {
    return read(value);
  } catch (const Failure& failure) {
    throw Failure(failure.What(), std::string(option) + ": " + failure.what());
  }
}

} // namespace

Credential CredentialOptions::Read(const std::string& user_id) const {
  const bool names_password = password_stdin || !password_file.empty();
  if (names_password && IsCertificate()) {
    throw Failure(Failure::Kind::Input, "a user has one credential: give a password or a certificate, not both");
  }
  Credential credential;
  if (!thumbprint.empty()) {
    credential.thumbprint = OfOption("--thumbprint", ThumbprintFromText, thumbprint);
  } else if (!certificate_file.empty()) {
    credential.thumbprint = OfOption("--certificate", ThumbprintFromFile, certificate_file);
  } else if (names_password) {
    credential.password.emplace(ReadPasswordFile(password_stdin ? "-" : password_file));
  } else {
    credential.password.emplace(AskForNewPassword(user_id));
  }
  return credential;
}

} // namespace Tool
