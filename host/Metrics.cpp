#include "host/Metrics.h"

#include <algorithm>
#include <sstream>

namespace Host {

namespace {

void Describe(std::ostream& out, const char* name, const char* type, const char* help) {
  out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
}

} // namespace

void Metrics::Counters::Count(const Verdict& verdict) noexcept {
  Add(m_Decisions[static_cast<std::size_t>(verdict.What())]);
  const auto* const bound = std::lower_bound(TimeBounds.begin(), TimeBounds.end(), verdict.microseconds);
  Add(m_Times[static_cast<std::size_t>(bound - TimeBounds.begin())]);
  Add(m_Microseconds, verdict.microseconds);
  if (verdict.cached) {
    Add(m_CacheHits);
  }
  if (verdict.credential_accepted) {
    Add(*verdict.credential_accepted ? m_CredentialsAccepted : m_CredentialsRejected);
  }
  if (verdict.What() == Outcome::Unavailable) {
    CountDatabaseFailure();
  }
}

Metrics::Counters& Metrics::ForThread() {
  const std::lock_guard<std::mutex> lock(m_Mutex);
  return *m_Threads.emplace_back(std::make_unique<Counters>());
}

std::string Metrics::Text(const Gauges& gauges) const {
  const std::lock_guard<std::mutex> lock(m_Mutex);
  const auto sum = [this](const auto& counter) {
    std::uint64_t total = 0;
    for (const auto& thread : m_Threads) {
      total += counter(*thread).load(std::memory_order_relaxed);
    }
    return total;
  };
  std::ostringstream out;
  Describe(out, "perenna_decisions_total", "counter", "Decisions by what they came to.");
  for (std::size_t i = 0; i < OutcomeCount; ++i) {
    out << "perenna_decisions_total{outcome=\"" << OutcomeName(static_cast<Outcome>(i)) << "\"} "
        << sum([i](const Counters& counters) -> const auto& { return counters.m_Decisions[i]; }) << '\n';
  }
  Describe(out, "perenna_decision_seconds", "histogram", "Time from a request's last byte to its decision.");
  std::uint64_t decisions = 0;
  for (std::size_t i = 0; i <= TimeBounds.size(); ++i) {
    decisions += sum([i](const Counters& counters) -> const auto& { return counters.m_Times[i]; });
    out << "perenna_decision_seconds_bucket{le=\"";
    i < TimeBounds.size() ? out << TimeBounds[i] / 1e6 : out << "+Inf";
    out << "\"} " << decisions << '\n';
  }
  out << "perenna_decision_seconds_sum "
      << static_cast<double>(sum([](const Counters& c) -> const auto& { return c.m_Microseconds; })) / 1e6
      << "\nperenna_decision_seconds_count " << decisions << '\n';
  Describe(out, "perenna_cache_hits_total", "counter", "Decisions that were remembered.");
  out << "perenna_cache_hits_total " << sum([](const Counters& c) -> const auto& { return c.m_CacheHits; }) << '\n';
  Describe(out, "perenna_credential_checks_total", "counter", "Credentials that were checked.");
  out << "perenna_credential_checks_total{result=\"accepted\"} "
      << sum([](const Counters& c) -> const auto& { return c.m_CredentialsAccepted; })
      << "\nperenna_credential_checks_total{result=\"rejected\"} "
      << sum([](const Counters& c) -> const auto& { return c.m_CredentialsRejected; }) << '\n';
  Describe(out, "perenna_database_failures_total", "counter", "Questions that the database could not answer.");
  out << "perenna_database_failures_total "
      << sum([](const Counters& c) -> const auto& { return c.m_DatabaseFailures; }) << '\n';
  Describe(out, "perenna_log_lines_lost_total", "counter", "Lines that no log file took.");
  out << "perenna_log_lines_lost_total " << gauges.log_lines_lost << '\n';
  Describe(out, "perenna_connections", "gauge", "Open connections.");
  out << "perenna_connections " << gauges.connections << '\n';
  if (!gauges.directory_rows.empty()) {
    Describe(out, "perenna_directory_rows", "gauge", "Rows of the directory by table.");
    for (const auto& [table, rows] : gauges.directory_rows) {
      out << "perenna_directory_rows{table=\"" << table << "\"} " << rows << '\n';
    }
  }
  if (gauges.sync_age_seconds) {
    Describe(out, "perenna_sync_age_seconds", "gauge", "Age of what this machine knows of the directory.");
    out << "perenna_sync_age_seconds " << *gauges.sync_age_seconds << '\n';
  }
  return out.str();
}

} // namespace Host
