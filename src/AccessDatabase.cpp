// The database file: its schema, opening and closing.

#include "LocalAccessManager.h"

#include "PN_Sqlite3.h"
#include "Regexp.h"
#include "TN_log.h"
#include "TerminatedText.h"

namespace LocalAccessManager {

namespace {

// The references are declarations only: the module does not switch foreign keys on, and its operations remove
// memberships themselves. Neither memberships nor filters have a key.
const std::string sg_AccessCreateStatement = R"sql(
CREATE TABLE users (
  user_id TEXT NOT NULL PRIMARY KEY,
  auth_method TEXT NOT NULL,
  auth_value TEXT NOT NULL,
  create_date TEXT NOT NULL,
  create_user TEXT NOT NULL
);
CREATE TABLE groups (
  group_id TEXT NOT NULL PRIMARY KEY,
  group_name TEXT NOT NULL
);
CREATE TABLE groupusers (
  group_id TEXT NOT NULL REFERENCES groups(group_id),
  user_id TEXT NOT NULL REFERENCES users(user_id)
);
CREATE TABLE filters (
  method TEXT NOT NULL,
  group_id TEXT NOT NULL,
  filter TEXT NOT NULL,
  action TEXT NOT NULL
);
CREATE TABLE version_info (
  version_string TEXT NOT NULL,
  major INT NOT NULL,
  minor INT NOT NULL,
  build INT NOT NULL,
  options TEXT
);
INSERT INTO version_info VALUES('1.0.0', 1, 0, 0, '{}');
)sql";

} // namespace

UserManager::~UserManager() {
  if (m_db != nullptr) {
    Perenna::Sqlite3::pn_sqlite3_close(m_db);
  }
}

Tarn::Result_t UserManager::InitUserManager(const Perenna::PListDict& config) {
  const std::string database_filename = config.GetData(Strings::DatabaseFilename).GetValue();
  if (database_filename.empty() || EndsEarly(database_filename)) { // SQLite would open what stands before a NUL
    Tarn::DefaultLogSink().Error("Database filename is empty.\n");
    return Perenna::RESULT_PN_SETUP;
  }
  if (m_db != nullptr) {
    return Tarn::RESULT_OK;
  }

  const bool init_db = !Tarn::PathIsFile(database_filename);
  if (sqlite3_open(database_filename.c_str(), &m_db) != SQLITE_OK) {
    if (m_db == nullptr) {
      Tarn::DefaultLogSink().Error("Unable to open database \"%s\": allocation error.\n", database_filename.c_str());
      return Tarn::RESULT_ALLOC;
    }
    Tarn::DefaultLogSink().Error("Unable to open database \"%s\": %s\n", database_filename.c_str(),
                                 sqlite3_errmsg(m_db));
    Perenna::Sqlite3::pn_sqlite3_close(m_db);
    return Perenna::RESULT_PN_SETUP;
  }

  if (init_db) {
    Tarn::DefaultLogSink().Notice("Creating new access database.\n");
    if (sqlite3_exec(m_db, sg_AccessCreateStatement.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      Tarn::DefaultLogSink().Error("SQL create error: %s\n", sqlite3_errmsg(m_db));
      Perenna::Sqlite3::pn_sqlite3_close(m_db);
      return Perenna::RESULT_PN_SETUP;
    }
  }

  if (RegisterRegexp(m_db) != SQLITE_OK) {
    Tarn::DefaultLogSink().Error("SQL regexp extension: %s\n", sqlite3_errmsg(m_db));
    Perenna::Sqlite3::pn_sqlite3_close(m_db);
    return Perenna::RESULT_PN_SETUP;
  }
  Tarn::DefaultLogSink().Debug("Opened database \"%s\".\n", database_filename.c_str());
  return Tarn::RESULT_OK;
}

} // namespace LocalAccessManager
