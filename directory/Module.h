#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "LocalAccessManager.h"

namespace AccessDirectory {

/// The access module on one database file. With a manager of its own, its end closes the file, and the last connection
/// to close puts what the write-ahead log holds into the file itself; the process's one manager, which a server has, is
/// never closed. One thread uses an object.
class Module {
public:
  /// Opens `file`, which must be an access database (see `Database`). Throws `Failure`.
  explicit Module(const std::string& file);

  /// Borrows the process's manager, which `LocalAccessManager::InitUserManager` has opened on `file`. Throws `Failure`
  /// when there is none.
  static Module OfProcess(const std::string& file);

  LocalAccessManager::UserManager& Manager() noexcept { return *m_Manager; }

  using Change = std::function<Tarn::Result_t(LocalAccessManager::UserManager&)>;
  /// Runs an operation that changes the directory, again while another program holds the file locked, up to about five
  /// seconds. Its operations may be repeated: each does what is left to do. Returns a success, or what the caller has
  /// to put into words (Tarn::RESULT_NOT_FOUND, Tarn::RESULT_FILEEXISTS); throws `Failure` for everything else, also
  /// where the module reports success for a deletion that failed.
  Tarn::Result_t Apply(const Change& change);

  using Question = std::function<bool(LocalAccessManager::UserManager&)>;
  /// Asks a yes-or-no question. Throws `Failure` when the database failed: that is no answer, although the module
  /// reads it as "no".
  bool Ask(const Question& question);

  bool UserExists(const std::string& user_id);
  bool GroupExists(const std::string& group_id);

private:
  [[noreturn]] void Fail(const std::string& reason) const;

  Module(std::string file, LocalAccessManager::UserManager& manager) : m_File(std::move(file)), m_Manager(&manager) {}

  std::string m_File;
  std::unique_ptr<LocalAccessManager::UserManager> m_Own;
  LocalAccessManager::UserManager* m_Manager;
};

} // namespace AccessDirectory
