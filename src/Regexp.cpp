// The SQL function `regexp`, and the doubt that it raises. This is the one place of the module that asks of
// RegularExpression more than `match`: a framework whose own wrapper has no `Test` would lose the doubt about patterns
// here, and one that compiles without a look at the text would lose time.

#include "Regexp.h"

#include <sqlite3.h>

#include "PN_Regex.h"
#include "TN_log.h"

namespace LocalAccessManager {

namespace {

using Outcome = Perenna::RegularExpression::Outcome;

constexpr int RegexpArguments = 2;

// Between a decision and the calls of `regexp` inside its steps, which share a thread and nothing else that belongs to
// the decision. In the initial-exec model it exists from the start of a thread: the first use must not allocate.
__attribute__((tls_model("initial-exec"))) thread_local bool s_in_doubt = false;

const char* ArgumentText(sqlite3_value* value) noexcept {
  return reinterpret_cast<const char*>(sqlite3_value_text(value));
}

/// No text where there is a value: it could not be converted.
bool OutOfMemory(sqlite3_value* value, const char* text) noexcept {
  return text == nullptr && sqlite3_value_type(value) != SQLITE_NULL;
}

Outcome Evaluate(sqlite3_value* pattern, sqlite3_value* subject) {
  const char* const regex = ArgumentText(pattern);
  const char* const value = ArgumentText(subject);
  if (OutOfMemory(pattern, regex) || OutOfMemory(subject, value)) {
    return Outcome::Undecided;
  }
  if (regex == nullptr || value == nullptr) {
    return Outcome::NoMatch;
  }
  const Perenna::RegularExpression compiled(regex, value); // most filters are for other paths than the request's
  const Outcome outcome = compiled.Test();
  if (outcome == Outcome::Undecided && compiled.valid()) { // what did not compile has been logged
    Tarn::DefaultLogSink().Error("regex match failed for expression \"%s\": Memory exhausted\n", regex);
  }
  return outcome;
}

void regexp_handler(sqlite3_context* handle, int argc, sqlite3_value** argv) {
  TN_REQUIRE(argc == RegexpArguments, "argc==2");
  Outcome outcome = Outcome::Undecided;
  try {
    outcome = Evaluate(argv[0], argv[1]);
  } catch (...) { // none may pass through SQLite's frames
    outcome = Outcome::Undecided;
  }
  s_in_doubt = s_in_doubt || outcome == Outcome::Undecided;
  sqlite3_result_int(handle, outcome == Outcome::Match ? 1 : 0);
}

} // namespace

int RegisterRegexp(sqlite3* db) noexcept {
  return sqlite3_create_function(db, "regexp", RegexpArguments, SQLITE_UTF8, nullptr, regexp_handler, nullptr, nullptr);
}

DecisionUnderWay::DecisionUnderWay(sqlite3* db) noexcept : m_db(db) {
  s_in_doubt = false;
}

bool DecisionUnderWay::InDoubt() const noexcept {
  // SQLite's own allocations fail like the others: the statement ends early, after rows that must not decide alone.
  return s_in_doubt || sqlite3_errcode(m_db) == SQLITE_NOMEM;
}

} // namespace LocalAccessManager
