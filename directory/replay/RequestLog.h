#pragma once

#include <cstddef>
#include <istream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "PN_HTTP.h"
#include "directory/explain/WhoMay.h"
#include "directory/Progress.h"
#include "directory/transfer/Input.h"

namespace AccessDirectory {

/// A request as a log tells of it.
struct LoggedRequest {
  /// Why it cannot be judged anew.
  enum class Unjudged {
    None,
    Unauthenticated, ///< who it was is not proven
    NotDecided, ///< throttled, malformed, unavailable, bypassed, or ended with an error (nginx: 400, 429, 5xx, ...)
    NoMethod,   ///< a method that the module does not know
    NotReadable ///< the line is of no known form
  };

  std::string user_id; ///< empty: none was presented
  std::string method_text;
  Perenna::Method_t method = Perenna::METH_MAX;
  std::string target; ///< as the log has it
  bool allowed = false;
  std::optional<GroupFilter> decider; ///< where the log names it
  Unjudged unjudged = Unjudged::None;
  bool whole_target = false; ///< whether `target` holds the query that there was
};

/// "unauthenticated", "not decided", ...
const char* UnjudgedText(LoggedRequest::Unjudged unjudged);
constexpr std::size_t UnjudgedCount = 5;

/// Where requests come from, one after the other.
class RequestSource {
public:
  RequestSource() = default;
  virtual ~RequestSource() = default;
  RequestSource(const RequestSource&) = delete;
  RequestSource& operator=(const RequestSource&) = delete;

  /// The next request; false at the end. Throws `Failure` when reading fails.
  virtual bool Next(LoggedRequest& request) = 0;
};

/// Reads the lines of a decision log of the host (JSON, docs/host.md), or of an access log in nginx's "combined" form,
/// each line by what it begins with. There, status 403 was refused, 401 is unauthenticated, 400, 408, 413, 414, 429,
/// 444, 494 to 499 and those from 500 say nothing of the decision, all others were allowed.
class RequestLog : public RequestSource {
public:
  /// `name`: a file, or "-" for standard input. `progress` shows how far it is. Throws `Failure`.
  RequestLog(const std::string& name, Progress& progress);

  /// Leaves out empty lines.
  bool Next(LoggedRequest& request) override;

private:
  Input m_Input;
  std::istream m_Stream;
  std::string m_Line;
};

/// Lines that are in memory, none of them empty.
class RequestLines : public RequestSource {
public:
  explicit RequestLines(std::vector<std::string> lines) : m_Lines(std::move(lines)) {}
  bool Next(LoggedRequest& request) override;

private:
  std::vector<std::string> m_Lines;
  std::size_t m_Next = 0;
};

/// What one line says.
LoggedRequest ReadLogLine(const std::string& line);

} // namespace AccessDirectory
