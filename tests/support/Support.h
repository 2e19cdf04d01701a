#pragma once

#include <filesystem>
#include <functional>
#include <future>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sqlite3.h>

#include "PN_PList.h"
#include "TN_log.h"

namespace Tarn {

/// How a failed assertion prints a result.
inline void PrintTo(const Result_t& result, std::ostream* out) {
  *out << result.label;
}

} // namespace Tarn

namespace Testing {

/// Captures the log while it lives and gives back the sink installed before.
class CaptureLog : public Tarn::ILogSink {
public:
  using Line = std::pair<Tarn::LogType_t, std::string>;

  CaptureLog() : m_Previous(Tarn::SetDefaultLogSink(this)) {}
  ~CaptureLog() override { Tarn::SetDefaultLogSink(m_Previous); }
  CaptureLog(const CaptureLog&) = delete;
  CaptureLog& operator=(const CaptureLog&) = delete;

  /// The lines so far, in order; forgets them.
  std::vector<Line> Take();

  void VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) override;

private:
  Tarn::ILogSink* m_Previous;
  std::mutex m_Mutex;
  std::vector<Line> m_Lines;
};

/// A new directory, removed with its contents.
class TemporaryDirectory {
public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::string Path() const { return m_Path.string(); }
  std::string File(const std::string& name) const { return (m_Path / name).string(); }

private:
  std::filesystem::path m_Path;
};

/// A connection of the test's own to a database file, beside the code under test.
class BareDatabase {
public:
  using Row = std::vector<std::string>;

  explicit BareDatabase(const std::string& file);
  ~BareDatabase();
  BareDatabase(const BareDatabase&) = delete;
  BareDatabase& operator=(const BareDatabase&) = delete;

  sqlite3* Handle() { return m_Handle; }
  /// Runs one or more statements; throws with SQLite's message when one fails.
  void Run(const std::string& sql);
  /// Runs one statement with text arguments (embedded NULs kept) and returns its rows as texts; NULL reads "NULL".
  std::vector<Row> Query(const std::string& sql, const std::vector<std::string>& arguments = {});

private:
  sqlite3* m_Handle = nullptr;
};

/// Threads that try something while the calling thread is in the middle of an operation; destruction joins them.
struct Rivals {
  /// Whether `act` has to wait, a moment at least.
  bool Wait(const std::function<void()>& act) {
    threads.push_back(std::async(std::launch::async, act));
    return threads.back().wait_for(std::chrono::milliseconds(20)) == std::future_status::timeout;
  }
  std::vector<std::future<void>> threads;
};

/// A dictionary of texts.
Perenna::PListDict Dict(const std::vector<std::pair<std::string, std::string>>& entries);

/// The texts of an array, in order.
std::vector<std::string> Texts(const Perenna::PListArray& array);

/// An array of texts.
Perenna::PListArray Array(const std::vector<std::string>& texts);

/// The lines of the log since they were last taken as one text, each led by the initial of its level:
/// "E:Empty user_id.\n".
std::string TakeText(CaptureLog& log);

} // namespace Testing
