#pragma once

#include <ctime>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sqlite3.h>

#include "TN_util.h"

namespace Bench {

/// The least that a program can do which answers the module's questions with the same statements on the same file:
/// bare sqlite3_*, regcomp/regexec, EVP_* and RAND_bytes.
///
/// It does what cannot be left out: the same mutexes over the same stretches; every statement prepared anew; arguments
/// bound as copies; every row stepped past before it counts; every pattern compiled anew with the same flags; a page's
/// rows keyed by their columns' names, since that is what a listing hands out; copies made under the lock.
///
/// It leaves out what the module adds: statement objects, retries of a locked file, result codes, the log, items with
/// kinds and owners of their own, limits on patterns, comparison in constant time, refusal of texts with a NUL. Of a
/// user's row it reads what it needs; keys are thrown out of their list where they stand.
class Floor {
public:
  struct Page {
    std::vector<std::map<std::string, std::string>> rows;
    std::vector<std::vector<std::string>> memberships; // one for each row, when asked for
    std::size_t total = 0;
  };

  explicit Floor(const std::string& file);
  ~Floor() { sqlite3_close(m_Db); }
  Floor(const Floor&) = delete;
  Floor& operator=(const Floor&) = delete;

  bool Decide(const char* method, const std::string& user_id, const std::string& url);
  std::set<std::string> Options(const std::string& user_id, const std::string& url);
  bool CheckPassword(const std::string& user_id, const std::string& password);
  /// `thumbprint` has 20 bytes.
  bool FindCertificate(const unsigned char* thumbprint, std::string& user_id);
  /// `membership` takes a row's `key` column; null asks for none.
  Page List(const char* listing, const char* membership, const char* key, std::size_t skip, std::size_t limit);

  void FlushKeys();
  void CreateKey(Tarn::UUID& key);
  bool ResolveKey(const Tarn::UUID& key);

  /// As the module stores a password, under another constant.
  static std::string PasswordExpression(const std::string& password);
  /// Runs a script; throws when a statement fails.
  void Run(const char* sql);

private:
  std::mutex m_Lock;
  sqlite3* m_Db = nullptr;
  std::mutex m_KeyLock;
  std::list<std::pair<Tarn::UUID, std::time_t>> m_Keys;
};

} // namespace Bench
