#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "Cost.h"

namespace Perenna::Pattern {

/// What has been judged: a filter's pattern comes up with every request. It keeps `MaximumPatterns` patterns of at most
/// `MaximumBytes` bytes, and begins anew when it is full. Thread-safe.
class JudgementCache {
public:
  static constexpr std::size_t MaximumPatterns = 4096;
  static constexpr std::size_t MaximumBytes = 500;

  /// False, with `judgement` untouched, when the pattern is not known.
  bool Find(std::string_view pattern, Judgement& judgement);

  /// Keeps it if it can: a pattern that is too long, or for which there is no memory, is judged again.
  void Keep(std::string_view pattern, const Judgement& judgement) noexcept;

private:
  std::mutex m_lock;
  std::map<std::string, Judgement, std::less<>> m_judged;
};

} // namespace Perenna::Pattern
