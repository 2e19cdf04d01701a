#include "PN_Sqlite3.h"

#include <algorithm>
#include <array>
#include <climits>

#include "TN_log.h"
#include "TN_memio.h"

namespace Perenna::Sqlite3 {

namespace {

constexpr unsigned BlobBufferBytes = 256; // initial buffer for a byte-string argument
constexpr std::size_t ThumbprintTextBytes = 64;

bool IsLocked(int rc) noexcept {
  return rc == SQLITE_BUSY || rc == SQLITE_LOCKED;
}

/// Runs `attempt` until it answers anything but busy or locked, at most LockAttempts times with a pause after each
/// such answer. Returns the last status; a busy or locked one means that the time is up, which has been logged.
template <class Attempt> int RetryWhileLocked(const char* what, Attempt attempt) {
  int rc = SQLITE_OK;
  for (unsigned retries_remaining = LockAttempts; retries_remaining > 0; --retries_remaining) {
    rc = attempt();
    if (!IsLocked(rc)) {
      return rc;
    }
    Tarn::DefaultLogSink().Debug("Locked database, retrying \"%s\".\n", what);
    Tarn::sleep_ms(LockPauseMilliseconds);
  }
  Tarn::DefaultLogSink().Debug("Locked database, timed out.\n");
  return rc;
}

/// A typed read is not examined: malformed text is bound as zero.
template <class T> T ValueOf(const PListData& item) {
  T value{};
  item.GetValue(value);
  return value;
}

} // namespace

void pn_sqlite3_close(sqlite3*& db) noexcept {
  sqlite3_close_v2(db);
  db = nullptr;
}

SimpleQuery::SimpleQuery(sqlite3* sqlite3_handle, const std::string& q) : m_db(sqlite3_handle), m_QueryString(q) {
  TN_REQUIRE(m_db != nullptr, "m_db!=0");
  TN_REQUIRE(!m_QueryString.empty(), "!m_QueryString.empty()");
}

SimpleQuery::~SimpleQuery() {
  sqlite3_finalize(m_StmtHandle);
}

void SimpleQuery::PushArgName(const std::string& name) {
  m_ArgNames.push_back(name);
}

bool SimpleQuery::TestPrepared() {
  if (m_QueryString.empty()) {
    Tarn::DefaultLogSink().Error("No query string.\n");
    return false;
  }
  if (m_db == nullptr) {
    Tarn::DefaultLogSink().Error("No database handle for query \"%s\".\n", m_QueryString.c_str());
    return false;
  }
  if (m_StmtHandle != nullptr) {
    return true;
  }
  const Tarn::Result_t prepared = Prepare();
  if (prepared.Failed()) {
    Tarn::DefaultLogSink().Error("No prepared statement for query \"%s\": %s.\n", m_QueryString.c_str(),
                                 prepared.label.c_str());
    return false;
  }
  return true;
}

Tarn::Result_t SimpleQuery::Prepare() {
  m_HasCurrentRow = false;
  const int rc = RetryWhileLocked(
      "prepare", [this] { return sqlite3_prepare_v2(m_db, m_QueryString.c_str(), -1, &m_StmtHandle, nullptr); });
  if (rc == SQLITE_OK) {
    return Tarn::RESULT_OK;
  }
  if (IsLocked(rc)) {
    return RESULT_DB_FAILURE;
  }
  Tarn::DefaultLogSink().Error("Unable to prepare statement %s: %s\n", m_QueryString.c_str(), sqlite3_errmsg(m_db));
  m_StmtHandle = nullptr;
  return Tarn::RESULT_PARAM;
}

Tarn::Result_t SimpleQuery::StepExec(int rc) {
  if (rc != SQLITE_OK) {
    if (IsLocked(rc)) {
      Tarn::DefaultLogSink().Debug("Locked database, timed out.\n");
    }
    return RESULT_DB_FAILURE;
  }
  rc = RetryWhileLocked("step", [this] { return sqlite3_step(m_StmtHandle); });
  if (rc == SQLITE_ROW) {
    m_HasCurrentRow = true;
    m_ColumnNames.clear(); // the tables may have changed since the last execution
    return Tarn::RESULT_OK;
  }
  if (IsLocked(rc)) {
    return RESULT_DB_FAILURE;
  }
  const bool done = rc == SQLITE_DONE;
  if (!done) {
    Tarn::DefaultLogSink().Error("Error stepping statement %s: %s\n", m_QueryString.c_str(), sqlite3_errmsg(m_db));
  }
  if (m_StmtHandle != nullptr) { // null for a text that holds no statement, such as a comment
    sqlite3_reset(m_StmtHandle);
    sqlite3_clear_bindings(m_StmtHandle);
  }
  return done ? Tarn::RESULT_FALSE : RESULT_DB_FAILURE;
}

bool SimpleQuery::StepResult() {
  if (m_StmtHandle == nullptr) {
    return false;
  }
  const int rc = RetryWhileLocked("step result", [this] { return sqlite3_step(m_StmtHandle); });
  if (rc == SQLITE_ROW) {
    return true;
  }
  if (rc == SQLITE_DONE) {
    sqlite3_reset(m_StmtHandle);
    sqlite3_clear_bindings(m_StmtHandle);
    m_HasCurrentRow = false;
    return true;
  }
  if (!IsLocked(rc)) {
    sqlite3_finalize(m_StmtHandle);
    m_StmtHandle = nullptr;
  }
  return false;
}

int SimpleQuery::BindText(int index, const char* text) noexcept {
  return sqlite3_bind_text(m_StmtHandle, index, text, -1, SQLITE_TRANSIENT);
}

Tarn::Result_t SimpleQuery::Exec() {
  return TestPrepared() ? StepExec(SQLITE_OK) : RESULT_DB_FAILURE;
}

Tarn::Result_t SimpleQuery::Exec(const std::string& value) {
  return TestPrepared() ? StepExec(BindText(1, value.c_str())) : RESULT_DB_FAILURE;
}

Tarn::Result_t SimpleQuery::Exec(const std::string& value1, const std::string& value2) {
  if (!TestPrepared()) {
    return RESULT_DB_FAILURE;
  }
  int rc = BindText(1, value1.c_str());
  if (rc == SQLITE_OK) {
    rc = BindText(2, value2.c_str());
  }
  return StepExec(rc);
}

Tarn::Result_t SimpleQuery::Exec(const X509Thumbprint& id) {
  if (!TestPrepared()) {
    return RESULT_DB_FAILURE;
  }
  std::array<char, ThumbprintTextBytes> text{};
  return StepExec(BindText(1, id.EncodeBase64(text.data(), text.size())));
}

Tarn::Result_t SimpleQuery::Exec(const PListDict& dict) {
  if (m_ArgNames.empty()) {
    Tarn::DefaultLogSink().Error("ArgNames must be present to use PListDict input.\n");
    return Tarn::RESULT_INIT;
  }
  if (!TestPrepared()) {
    return RESULT_DB_FAILURE;
  }
  Tarn::ByteString blob(BlobBufferBytes);
  int index = 0;
  int rc = SQLITE_OK;
  for (const std::string& name : m_ArgNames) {
    PListData* item = nullptr;
    if (!dict.GetData(name, item)) {
      Tarn::DefaultLogSink().Error("Dictionary arguments do not contain \"%s\".\n", name.c_str());
      return Tarn::RESULT_PARAM;
    }
    Tarn::Result_t refusal = Tarn::RESULT_OK;
    rc = BindItem(++index, *item, blob, refusal);
    if (refusal.Failed()) {
      return refusal;
    }
    if (rc != SQLITE_OK) {
      break;
    }
  }
  return StepExec(rc);
}

/// Binds one scalar by its kind and returns the SQLite status; `refusal` becomes a failure when it cannot be bound.
int SimpleQuery::BindItem(int index, const PListData& item, Tarn::ByteString& blob, Tarn::Result_t& refusal) {
  switch (item.GetType()) {
  case IT_STRING:
  case IT_DATE:
    return BindText(index, item.GetValue().c_str());
  case IT_TRUE:
    return sqlite3_bind_text(m_StmtHandle, index, "true", -1, SQLITE_STATIC);
  case IT_FALSE:
    return sqlite3_bind_text(m_StmtHandle, index, "false", -1, SQLITE_STATIC);
  case IT_INT:
    return sqlite3_bind_int(m_StmtHandle, index, ValueOf<int>(item));
  case IT_INT64:
    return sqlite3_bind_int64(m_StmtHandle, index, ValueOf<long long>(item));
  case IT_REAL:
    return sqlite3_bind_double(m_StmtHandle, index, ValueOf<double>(item));
  case IT_DATA: {
    const auto capacity = static_cast<unsigned>(std::min<std::size_t>(item.GetValue().size(), UINT_MAX));
    if (const Tarn::Result_t grown = blob.Capacity(capacity); grown.Failed()) {
      refusal = grown;
      return SQLITE_NOMEM;
    }
    item.GetValue(blob);
    return sqlite3_bind_blob64(m_StmtHandle, index, blob.RoData(), blob.Length(), SQLITE_TRANSIENT);
  }
  case IT_DICT:
  case IT_ARRAY:
    Tarn::DefaultLogSink().Error("Item type is not scalar.\n");
    break;
  default:
    Tarn::DefaultLogSink().Error("Unknown PList data type.\n");
    break;
  }
  refusal = Tarn::RESULT_PARAM;
  return SQLITE_MISMATCH;
}

} // namespace Perenna::Sqlite3
