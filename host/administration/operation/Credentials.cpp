// /access/me, and what the operations on users share about credentials.

#include "host/administration/operation/Credentials.h"

#include "LocalAccessManager.h"
#include "PN_x509.h"
#include "host/administration/Change.h"
#include "host/administration/operation/ModuleListing.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Credential;
using AccessDirectory::Database;
using AccessDirectory::Quoted;
using AccessDirectory::Secret;

namespace {

Secret SecretOf(const std::string& text) {
  Secret secret;
  for (const char byte : text) {
    if (!secret.Append(byte)) {
      Refuse(400, "the password is longer than " + std::to_string(Secret::MaximumBytes) + " bytes");
    }
  }
  return secret;
}

std::string StoredValue(Database& database, const std::string& user_id) {
  const auto values = database.Texts("SELECT CAST(auth_value AS TEXT) FROM users WHERE user_id = ?", {user_id});
  return values.empty() ? std::string() : values.front();
}

/// Whether the caller's password is `password`; a wrong one counts as a failed login.
void RequirePassword(Call& call, const std::string& password) {
  Question question;
  question.method = Perenna::METH_GET;
  question.method_name = "GET";
  question.target = "/access/me";
  question.address = call.address;
  question.request_id = call.request_id;
  question.credentials.kind = Host::Credentials::Kind::Password;
  question.credentials.user_id = call.caller;
  question.credentials.password = password;
  call.judge.BeginGroup();
  const Verdict verdict = call.judge.Decide(std::move(question));
  switch (verdict.What()) {
  case Outcome::Allowed:
  case Outcome::Refused:
    return;
  case Outcome::Throttled:
    throw Refusal({429, "too many failed logins", {}, {{"Retry-After", std::to_string(verdict.retry_after_seconds)}}});
  case Outcome::Unavailable:
    throw Refusal({503, "the directory cannot be read", {}, {{"Retry-After", "1"}}});
  default:
    Refuse(403, "the current password is wrong");
  }
}

} // namespace

Credential CredentialOf(const Call& call) {
  const auto password = call.Text("password");
  const auto certificate = call.Text("certificate");
  const auto thumbprint = call.Text("thumbprint");
  if ((password ? 1 : 0) + (certificate ? 1 : 0) + (thumbprint ? 1 : 0) != 1) {
    Refuse(400, "exactly one of password, certificate and thumbprint is to be given");
  }
  Credential credential;
  if (password) {
    if (password->empty()) {
      Refuse(400, "the password is empty");
    }
    credential.password.emplace(SecretOf(*password));
  } else if (thumbprint) {
    credential.thumbprint = AccessDirectory::ThumbprintFromText(*thumbprint);
  } else {
    credential.thumbprint = AccessDirectory::ThumbprintFromPem(*certificate);
  }
  return credential;
}

void RequireOwnThumbprint(Database& database, const Credential& credential, const std::string& user_id) {
  const std::string other =
      credential.password ? std::string() : AccessDirectory::UserOfThumbprint(database, credential.thumbprint);
  if (!other.empty() && other != user_id) {
    Refuse(409, "the certificate is that of the user " + Quoted(other));
  }
}

void StoreCredential(Call& call, const std::string& user_id, const Credential& credential,
                     const std::optional<std::string>& proven) {
  const std::string value = credential.StoredValue(); // takes its time; not while the file is locked
  Change change(call);
  Database& database = change.TheDatabase();
  change.RequireMatch(RequireUser(call, database, user_id).etag);
  if (proven && StoredValue(database, user_id) != *proven) {
    Refuse(409, "the password was changed meanwhile");
  }
  RequireOwnThumbprint(database, credential, user_id);
  database.Run("UPDATE users SET auth_method = ?, auth_value = ? WHERE user_id = ?",
               {credential.Method(), value, user_id});
  change.Commit();
}

Reply GetMe(Call& call) {
  Database database(call.File(), Database::Access::Read);
  const AccessDirectory::Snapshot snapshot(database);
  const Entity entity = RequireUser(call, database, call.caller);
  return {200,
          {{"user_id", entity.json["user_id"]},
           {"auth_method", entity.json["auth_method"]},
           {"groups", entity.json["groups"]}}};
}

Reply PutMyCredential(Call& call) {
  call.done = {{"operation", "change own password"}, {"user_id", AccessDirectory::JsonText(call.caller)}};
  const std::string stored = [&call] { // before it is proven
    Database database(call.File(), Database::Access::Read);
    return StoredValue(database, call.caller);
  }();
  RequirePassword(call, *call.Text("current_password"));
  call.body.erase("current_password");
  StoreCredential(call, call.caller, CredentialOf(call), stored);
  return {204};
}

} // namespace Host
