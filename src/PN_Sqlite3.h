#pragma once

#include <string>
#include <vector>

#include <sqlite3.h>

#include "PN_PList.h"
#include "PN_error.h"
#include "PN_x509Thumbprint.h"
#include "TN_util.h"

namespace Perenna::Sqlite3 {

/// How often a prepare or a step is tried while SQLite answers busy or locked, and the pause after each such answer.
constexpr unsigned LockAttempts = 9;
constexpr unsigned LockPauseMilliseconds = 100;

/// Closes the connection and leaves the reference null. Statements still open keep the connection alive until the last
/// of them is finalised. A null connection is accepted.
TN_API void pn_sqlite3_close(sqlite3*& db) noexcept;

/// One SQL statement on a connection that it does not own: prepares on first use, binds, steps, hands back rows, and
/// finalises on destruction.
///
/// Calling order: construct; `PushArgName` for each placeholder that a dictionary is to feed; one `Exec`; while it gave
/// Tarn::RESULT_OK, `GetNextResult` or `DiscardNextResult` until one returns false; destroy.
///
/// Results of every `Exec`: Tarn::RESULT_OK, a first row is waiting; Tarn::RESULT_FALSE, the statement ran to its end
/// without a row (every successful INSERT or DELETE); Perenna::RESULT_DB_FAILURE, it could not be prepared, bound or
/// stepped, or the database stayed busy. A busy or locked database is tried LockAttempts times, LockPauseMilliseconds
/// apart, which sleeps on the calling thread with whatever locks it holds.
///
/// Locking: none. The connection is shared, so the caller holds its lock from before construction until after
/// destruction. Text arguments end at their first NUL.
class TN_API SimpleQuery {
public:
  /// Fatal when `sqlite3_handle` is null or `q`, one statement with "?" placeholders, is empty. Does not prepare.
  SimpleQuery(sqlite3* sqlite3_handle, const std::string& q);
  virtual ~SimpleQuery();
  SimpleQuery(const SimpleQuery&) = delete;
  SimpleQuery& operator=(const SimpleQuery&) = delete;

  /// Names the dictionary key that feeds the next placeholder.
  void PushArgName(const std::string& name);

  Tarn::Result_t Exec();
  /// Binds `value` to placeholder 1.
  Tarn::Result_t Exec(const std::string& value);
  /// Binds both in order, the second only if the first could be bound.
  Tarn::Result_t Exec(const std::string& value1, const std::string& value2);
  /// Binds the base64 text of the thumbprint to placeholder 1.
  Tarn::Result_t Exec(const Perenna::X509Thumbprint& id);
  /// Binds one value of `dict` for each argument name, in the order of the names; other keys are ignored.
  /// Also Tarn::RESULT_INIT without argument names; Tarn::RESULT_PARAM for a key that is missing or not a scalar other
  /// than null; Tarn::RESULT_ALLOC. Booleans are bound as the texts "true" and "false", IT_DATA as a blob.
  Tarn::Result_t Exec(const Perenna::PListDict& dict);

  /// Sets one entry of `dict` for each column of the current row, under the column's name (IT_INT64, IT_REAL,
  /// IT_STRING, IT_DATA or IT_NULL; other entries stay), and advances. False when there is no current row, with `dict`
  /// untouched, and when advancing failed: the row does not count as delivered then.
  bool GetNextResult(Perenna::PListDict& dict);
  /// The same for the text of the first column; SQL NULL leaves `value` unchanged.
  bool GetNextResult(std::string& value);
  /// Skips the current row and advances.
  bool DiscardNextResult();

protected:
  /// Makes sure that there is a prepared statement; logs and returns false when there cannot be one.
  bool TestPrepared();
  /// Prepares. Tarn::RESULT_OK, Tarn::RESULT_PARAM (SQLite refuses the text), Perenna::RESULT_DB_FAILURE (busy).
  Tarn::Result_t Prepare();
  /// Takes the status of the preceding bind calls and, when it is SQLITE_OK, performs the first step.
  Tarn::Result_t StepExec(int rc);
  /// Performs the step past a row that has been read.
  bool StepResult();
  /// Binds `text`, up to its first NUL and copied, to placeholder `index`; the SQLite status.
  int BindText(int index, const char* text) noexcept;

private:
  int BindItem(int index, const Perenna::PListData& item, Tarn::ByteString& blob, Tarn::Result_t& refusal);
  void StoreColumn(int column, Perenna::PListDict& dict);

  bool m_HasCurrentRow = false;
  sqlite3_stmt* m_StmtHandle = nullptr;
  sqlite3* m_db;
  std::string m_QueryString;
  Tarn::StringList m_ArgNames;
  std::vector<std::string> m_ColumnNames; // of the execution under way, once a row was read into a dictionary
};

} // namespace Perenna::Sqlite3
