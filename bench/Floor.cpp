#include "Floor.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <regex.h>

namespace Bench {

namespace {

constexpr std::uint64_t KeyLifetimeSeconds = 10;
constexpr int ThumbprintBytes = 20;

class Statement {
public:
  Statement(sqlite3* db, const char* sql, std::initializer_list<const char*> arguments = {}) {
    if (sqlite3_prepare_v2(db, sql, -1, &m_Handle, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(db));
    }
    int index = 0;
    for (const char* argument : arguments) {
      sqlite3_bind_text(m_Handle, ++index, argument, -1, SQLITE_TRANSIENT);
    }
  }
  ~Statement() { sqlite3_finalize(m_Handle); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool Step() { return sqlite3_step(m_Handle) == SQLITE_ROW; }
  int Columns() { return sqlite3_column_count(m_Handle); }
  const char* Name(int column) { return sqlite3_column_name(m_Handle, column); }
  const char* Bare(int column) { return reinterpret_cast<const char*>(sqlite3_column_text(m_Handle, column)); }
  std::string Text(int column) {
    const char* const text = Bare(column);
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(m_Handle, column))};
  }

private:
  sqlite3_stmt* m_Handle = nullptr;
};

void Regexp(sqlite3_context* context, int /*argc*/, sqlite3_value** argv) {
  const auto* const pattern = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
  const auto* const subject = reinterpret_cast<const char*>(sqlite3_value_text(argv[1]));
  int matches = 0;
  regex_t compiled;
  if (pattern != nullptr && *pattern != '\0' && regcomp(&compiled, pattern, REG_EXTENDED | REG_NEWLINE) == 0) {
    matches = regexec(&compiled, subject, 0, nullptr, 0) == 0 ? 1 : 0;
    regfree(&compiled);
  }
  sqlite3_result_int(context, matches);
}

template <std::size_t Size> std::string Hex(const std::array<unsigned char, Size>& bytes) {
  constexpr char Digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(Size * 2);
  for (const unsigned char byte : bytes) {
    text += Digits[byte >> 4U];
    text += Digits[byte & 0x0fU];
  }
  return text;
}

std::string Digest(const char* salt, std::size_t salt_length, const std::string& password) {
  static const EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  constexpr std::array<unsigned char, 16> Constant = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  std::array<unsigned char, 32> value{};
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  EVP_DigestInit_ex(context, algorithm, nullptr);
  EVP_DigestUpdate(context, Constant.data(), Constant.size());
  EVP_DigestUpdate(context, salt, salt_length);
  EVP_DigestUpdate(context, password.data(), password.size());
  EVP_DigestFinal_ex(context, value.data(), nullptr);
  EVP_MD_CTX_free(context);
  return Hex(value);
}

} // namespace

Floor::Floor(const std::string& file) {
  if (sqlite3_open(file.c_str(), &m_Db) != SQLITE_OK ||
      sqlite3_create_function(m_Db, "regexp", 2, SQLITE_UTF8, nullptr, &Regexp, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error("cannot open " + file);
  }
}

bool Floor::Decide(const char* method, const std::string& user_id, const std::string& url) {
  const std::lock_guard<std::mutex> hold(m_Lock);
  Statement statement(m_Db,
                      "SELECT DISTINCT action FROM filters WHERE method = ? AND group_id IN "
                      "( SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ) AND ? REGEXP filter",
                      {method, user_id.c_str(), url.c_str()});
  bool allow = false;
  bool deny = false;
  while (statement.Step()) {
    const char* const action = statement.Bare(0);
    allow = allow || std::strcmp(action, "Allow") == 0;
    deny = deny || std::strcmp(action, "Deny") == 0;
  }
  return allow && !deny;
}

std::set<std::string> Floor::Options(const std::string& user_id, const std::string& url) {
  const std::lock_guard<std::mutex> hold(m_Lock);
  Statement statement(m_Db,
                      "SELECT DISTINCT method, action FROM filters WHERE group_id IN "
                      "( SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ) AND ? REGEXP filter",
                      {user_id.c_str(), url.c_str()});
  std::set<std::string> allowed;
  std::set<std::string> denied;
  while (statement.Step()) {
    if (std::strcmp(statement.Bare(1), "Deny") == 0) {
      denied.insert(statement.Text(0));
    } else {
      allowed.insert(statement.Text(0));
    }
  }
  for (const std::string& method : denied) {
    allowed.erase(method);
  }
  return allowed;
}

bool Floor::CheckPassword(const std::string& user_id, const std::string& password) {
  std::string method;
  std::string value;
  {
    const std::lock_guard<std::mutex> hold(m_Lock);
    Statement statement(m_Db, "SELECT * FROM users WHERE user_id = ?", {user_id.c_str()});
    if (!statement.Step()) {
      return false;
    }
    method = statement.Text(1);
    value = statement.Text(2);
    statement.Step();
  }
  const std::size_t colon = value.find(':');
  return method == "sha256" && colon != std::string::npos &&
         value.compare(colon + 1, std::string::npos, Digest(value.data(), colon, password)) == 0;
}

bool Floor::FindCertificate(const unsigned char* thumbprint, std::string& user_id) {
  std::array<unsigned char, 64> text{};
  EVP_EncodeBlock(text.data(), thumbprint, ThumbprintBytes);
  const std::lock_guard<std::mutex> hold(m_Lock);
  Statement statement(m_Db, "SELECT * FROM users WHERE auth_method = 'tls_client_certificate' AND auth_value = ?",
                      {reinterpret_cast<const char*>(text.data())});
  if (!statement.Step()) {
    return false;
  }
  user_id = statement.Text(0);
  statement.Step();
  return true;
}

Floor::Page Floor::List(const char* listing, const char* membership, const char* key, std::size_t skip,
                        std::size_t limit) {
  Page page;
  const std::lock_guard<std::mutex> hold(m_Lock);
  Statement statement(m_Db, listing);
  for (; statement.Step(); ++page.total) {
    if (page.total >= skip && page.total - skip < limit) {
      auto& row = page.rows.emplace_back();
      for (int column = 0; column < statement.Columns(); ++column) {
        row.emplace(statement.Name(column), statement.Text(column));
      }
    }
  }
  for (std::size_t row = 0; membership != nullptr && row < page.rows.size(); ++row) {
    auto& ids = page.memberships.emplace_back();
    Statement members(m_Db, membership, {page.rows[row].at(key).c_str()});
    while (members.Step()) {
      ids.push_back(members.Text(0));
    }
  }
  return page;
}

void Floor::FlushKeys() {
  const std::lock_guard<std::mutex> hold(m_KeyLock);
  m_Keys.clear();
}

void Floor::CreateKey(Tarn::UUID& key) {
  std::array<unsigned char, Tarn::UUID_Length> bytes{};
  RAND_bytes(bytes.data(), static_cast<int>(bytes.size()));
  key.Set(bytes.data());
  const std::lock_guard<std::mutex> hold(m_KeyLock);
  m_Keys.emplace_back(key, std::time(nullptr));
}

bool Floor::ResolveKey(const Tarn::UUID& key) {
  const std::time_t now = std::time(nullptr);
  const std::lock_guard<std::mutex> hold(m_KeyLock);
  bool found = false;
  m_Keys.remove_if([&](const std::pair<Tarn::UUID, std::time_t>& entry) {
    const bool expired = static_cast<std::uint64_t>(now - entry.second) > KeyLifetimeSeconds; // or from the future
    const bool same = !expired && std::memcmp(entry.first.Value(), key.Value(), Tarn::UUID_Length) == 0;
    found = found || same;
    return expired || same;
  });
  return found;
}

std::string Floor::PasswordExpression(const std::string& password) {
  std::array<unsigned char, 16> salt{};
  RAND_bytes(salt.data(), static_cast<int>(salt.size()));
  const std::string text = Hex(salt);
  return text + ":" + Digest(text.data(), text.size(), password);
}

void Floor::Run(const char* sql) {
  if (sqlite3_exec(m_Db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sqlite3_errmsg(m_Db));
  }
}

} // namespace Bench
