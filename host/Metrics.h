#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/decision/Verdict.h"

namespace Host {

/// What the process counts. Each thread has counters of its own, so that counting costs no more than an addition; they
/// are summed when they are read.
class Metrics {
public:
  /// Upper bounds of the classes of decision times, in microseconds; a last class takes the rest.
  static constexpr std::array<unsigned, 12> TimeBounds = {5,   10,   25,   50,    100,    250,
                                                          500, 1000, 5000, 25000, 100000, 1000000};

  /// The counters of one thread. Written by it alone, read by any.
  class alignas(64) Counters { // a cache line's bytes: threads must not share one
  public:
    void Count(const Verdict& verdict) noexcept;
    void CountDatabaseFailure() noexcept { Add(m_DatabaseFailures); }

  private:
    friend class Metrics;
    using Counter = std::atomic<std::uint64_t>;

    /// No other thread writes, so nothing need be locked.
    static void Add(Counter& counter, std::uint64_t amount = 1) noexcept {
      counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
    }

    std::array<Counter, OutcomeCount> m_Decisions{};
    std::array<Counter, TimeBounds.size() + 1> m_Times{};
    Counter m_Microseconds{0};
    Counter m_CacheHits{0};
    Counter m_CredentialsAccepted{0};
    Counter m_CredentialsRejected{0};
    Counter m_DatabaseFailures{0};
  };

  /// New counters, valid as long as this object. Thread-safe.
  Counters& ForThread();

  /// What is measured at the moment of reading; what is not known is left out.
  struct Gauges {
    std::uint64_t log_lines_lost = 0;
    unsigned connections = 0;
    std::map<std::string, std::uint64_t> directory_rows; ///< by table
    std::optional<double> sync_age_seconds;
  };

  /// Everything in Prometheus' text format 0.0.4. Thread-safe.
  std::string Text(const Gauges& gauges) const;

private:
  mutable std::mutex m_Mutex; // guards the list; the counters guard themselves
  std::vector<std::unique_ptr<Counters>> m_Threads;
};

} // namespace Host
