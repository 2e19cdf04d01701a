#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "directory/credential/Credential.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// How the command line names a credential. Never by its value: arguments show in the process list.
struct CredentialOptions {
  bool password_stdin = false;
  std::string password_file;
  std::string certificate_file;
  std::string thumbprint;

  void AddPasswordTo(CLI::App& command);
  void AddCertificateTo(CLI::App& command);
  /// Whether any credential was named.
  bool IsGiven() const { return password_stdin || !password_file.empty() || IsCertificate(); }
  /// Whether a certificate was named, and no password.
  bool IsCertificate() const { return !certificate_file.empty() || !thumbprint.empty(); }
  /// Reads what was named; asks for a password at the terminal when nothing was. Throws `Failure`.
  Credential Read(const std::string& user_id) const;
};

} // namespace Tool
