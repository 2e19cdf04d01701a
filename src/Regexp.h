#pragma once

struct sqlite3;

namespace LocalAccessManager {

/// Gives the connection the SQL function `regexp` of two arguments, which "subject REGEXP pattern" calls as
/// regexp(pattern, subject): 1 on a match, else 0, also for SQL NULL. It compiles the pattern on every call and never
/// makes a step fail, since a step that fails would leave the decision to the rows already read: a call that comes to
/// no answer (memory ran out, the pattern is refused for its size) yields 0 and puts the decision under way in doubt.
/// Returns the SQLite status.
int RegisterRegexp(sqlite3* db) noexcept;

/// The decision that this thread makes while the object lives: a request, or a list of methods. The caller holds the
/// manager's lock from before the statement is prepared until `InDoubt` was asked.
class DecisionUnderWay {
public:
  explicit DecisionUnderWay(sqlite3* db) noexcept;

  /// Whether an answer of `regexp` since the construction, or a row of a statement of which nothing but `regexp` and
  /// the end of its rows came since, may be missing: the "Deny" could have been among them.
  bool InDoubt() const noexcept;

private:
  sqlite3* m_db;
};

} // namespace LocalAccessManager
