#include "TN_log.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <unistd.h>

#include "TN_util.h"

namespace Tarn {

namespace {

// Longest line of the built-in sink, stamp and line end included: a hostile id cannot flood the log.
constexpr std::size_t MaximumLineBytes = 4096;

constexpr std::array<const char*, LOG_MAX> LevelNames = {"DEBUG", "INFO", "WARN", "ERROR", "NOTICE", "ALERT", "CRIT"};

std::atomic<bool> s_debug_enabled{false};
std::atomic<ILogSink*> s_installed_sink{nullptr};

void WriteStandardError(const char* text, std::size_t count) noexcept {
  while (count > 0) {
    const ssize_t written = write(STDERR_FILENO, text, count);
    if (written > 0) {
      text += written;
      count -= static_cast<std::size_t>(written);
    } else if (written == 0 || errno != EINTR) {
      return; // nowhere left to report it
    }
  }
}

class StandardErrorLogSink : public ILogSink {
public:
  void VLog(LogType_t level, const char* format, std::va_list arguments) override {
    if (level >= LOG_MAX || (level == LOG_DEBUG && !s_debug_enabled.load(std::memory_order_relaxed))) {
      return;
    }
    std::array<char, MaximumLineBytes> message{};
    const int needed = std::vsnprintf(message.data(), message.size(), format, arguments);
    if (needed < 0) {
      return;
    }
    const bool cut = static_cast<std::size_t>(needed) >= message.size();
    std::size_t length = cut ? message.size() - 1 : static_cast<std::size_t>(needed);
    if (length > 0 && message.at(length - 1) == '\n') {
      --length;
    }

    std::array<char, DateTimeLen + 1> stamp{};
    Timestamp().EncodeString(stamp.data(), stamp.size());
    std::string line = stamp.data();
    line.append(" ").append(LevelNames.at(level)).append(" ");
    AppendEscaped(line, message.data(), length, cut);
    line += '\n';
    WriteStandardError(line.data(), line.size());
  }

private:
  // Log lines carry ids and patterns of strangers: control characters would forge lines or drive a terminal.
  static void AppendEscaped(std::string& line, const char* text, std::size_t length, bool cut) {
    constexpr std::size_t Reserve = sizeof("...\n");
    for (std::size_t i = 0; i < length; ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      constexpr std::size_t EscapeBytes = 4;
      if (line.size() + EscapeBytes + Reserve > MaximumLineBytes) {
        cut = true;
        break;
      }
      if (byte < 0x20 || byte >= 0x7f) {
        std::array<char, EscapeBytes + 1> escape{};
        static_cast<void>(std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned>(byte)));
        line += escape.data();
      } else {
        line += text[i];
      }
    }
    if (cut) {
      line += "...";
    }
  }
};

} // namespace

ILogSink::~ILogSink() = default;

#define PERENNA_LOG_AT(level)                                                                                          \
  std::va_list arguments;                                                                                              \
  va_start(arguments, format);                                                                                         \
  VLog(level, format, arguments);                                                                                      \
  va_end(arguments)

void ILogSink::Error(const char* format, ...) {
  PERENNA_LOG_AT(LOG_ERROR);
}
void ILogSink::Notice(const char* format, ...) {
  PERENNA_LOG_AT(LOG_NOTICE);
}
void ILogSink::Debug(const char* format, ...) {
  PERENNA_LOG_AT(LOG_DEBUG);
}

#undef PERENNA_LOG_AT

ILogSink& DefaultLogSink() noexcept {
  if (ILogSink* sink = s_installed_sink.load(std::memory_order_acquire)) {
    return *sink;
  }
  // Its memory is never given back and its destructor never runs: other objects may log while the process ends.
  alignas(StandardErrorLogSink) static std::array<unsigned char, sizeof(StandardErrorLogSink)> storage;
  static auto* const built_in = new (storage.data()) StandardErrorLogSink;
  return *built_in;
}

ILogSink* SetDefaultLogSink(ILogSink* sink) noexcept {
  return s_installed_sink.exchange(sink, std::memory_order_acq_rel);
}

void SetDefaultLogDebug(bool enabled) noexcept {
  s_debug_enabled.store(enabled, std::memory_order_relaxed);
}

void FatalPrecondition(const char* text, const char* file, int line) noexcept {
  std::array<char, 512> message{};
  static_cast<void>(std::snprintf(message.data(), message.size(), "fatal: %s (%s:%d)\n", text, file, line));
  WriteStandardError(message.data(), std::strlen(message.data()));
  std::abort();
}

} // namespace Tarn
