#include "host/decision/DecisionContext.h"

#include <algorithm>
#include <chrono>

#include "host/http/Target.h"

namespace Host {

namespace {

/// What of the host's own is not open to everybody anyway; with all below a path that ends in "/".
constexpr const char* ProtectedPaths[] = {"/access", "/access/", "/auth", "/envoy", "/envoy/", "/metrics"};

bool IsProtected(std::string_view path) noexcept {
  return std::any_of(std::begin(ProtectedPaths), std::end(ProtectedPaths), [path](std::string_view own) {
    return own.back() == '/' ? path.substr(0, own.size()) == own : path == own;
  });
}

std::int64_t SteadyMilliseconds() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

DecisionContext::DecisionContext(const Configuration& configuration, unsigned judges, std::function<void()> on_gone)
    : anonymous_user_id(configuration.anonymous_user_id), target_part(configuration.target),
      cached_decisions_each((configuration.cached_decisions + judges - 1) / std::max(judges, 1U)),
      file(configuration.database_filename, std::move(on_gone)), freshness(configuration),
      throttle(configuration.throttle.failures, configuration.throttle.window_seconds,
               configuration.throttle.maximum_delay_seconds),
      clock(SteadyMilliseconds), certificate_form(configuration.proxy.certificate_format) {
  Tarn::GenRandomValue(key);
  if (!configuration.path_filter_bypass.empty()) {
    m_Bypass = std::make_unique<Perenna::RegularExpression>(configuration.path_filter_bypass);
  }
}

bool DecisionContext::Bypasses(const std::string& target) const {
  const std::string path(PathOf(target));
  return m_Bypass != nullptr && !IsProtected(path) && m_Bypass->match(path);
}

} // namespace Host
