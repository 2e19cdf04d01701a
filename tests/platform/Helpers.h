#pragma once

#include <cstdio>
#include <random>

#include <gtest/gtest.h>

#include "support/Support.h"

namespace Testing {

using Lines = std::vector<CaptureLog::Line>;

/// Random inputs with a new seed on every run; PERENNA_TEST_SEED repeats one. SCOPED_TRACE(random.Trace()) prints it.
struct Random {
  const char* given = std::getenv("PERENNA_TEST_SEED"); // NOLINT(concurrency-mt-unsafe): nobody sets variables
  unsigned seed = given == nullptr ? std::random_device()() : static_cast<unsigned>(std::strtoul(given, nullptr, 10));
  std::mt19937 engine{seed};

  std::string Trace() const { return "PERENNA_TEST_SEED=" + std::to_string(seed); }
  std::size_t Below(std::size_t bound) { return engine() % bound; }
  std::string Bytes(std::size_t count) {
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(Below(256)); });
    return bytes;
  }
};

inline const Tarn::byte_t* Octets(const std::string& text) {
  return reinterpret_cast<const Tarn::byte_t*>(text.data());
}

inline std::string Repeat(const std::string& text, std::size_t times) {
  return times == 0 ? "" : times % 2 == 0 ? Repeat(text + text, times / 2) : text + Repeat(text, times - 1);
}

/// What a shell command, which has to succeed, writes to standard output.
inline std::string Output(const std::string& command) {
  FILE* const pipe = popen(command.c_str(), "r"); // NOLINT(cert-env33-c): the commands are the tests' own
  std::string output;
  for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe)) {
    output += static_cast<char>(byte);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return output;
}

/// The SQL function answer(x): its calls fail with the given SQLite statuses, one after the other; SQLITE_OK, and the
/// end of the script, give x back. Has to outlive the statements that call it.
struct ScriptedAnswer {
  std::vector<int> statuses;
  std::size_t calls = 0;

  ScriptedAnswer(sqlite3* db, std::vector<int> script) : statuses(std::move(script)) {
    const auto answer = [](sqlite3_context* context, int, sqlite3_value** values) {
      auto& self = *static_cast<ScriptedAnswer*>(sqlite3_user_data(context));
      const int status = self.calls < self.statuses.size() ? self.statuses[self.calls++] : SQLITE_OK;
      status == SQLITE_OK ? sqlite3_result_value(context, values[0]) : sqlite3_result_error_code(context, status);
    };
    sqlite3_create_function(db, "answer", 1, SQLITE_UTF8, this, answer, nullptr, nullptr);
  }
};

} // namespace Testing
