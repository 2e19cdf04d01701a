#include "JudgementCache.h"

#include <new>

namespace Perenna::Pattern {

bool JudgementCache::Find(std::string_view pattern, Judgement& judgement) {
  const std::lock_guard<std::mutex> hold(m_lock);
  const auto found = m_judged.find(pattern);
  if (found == m_judged.end()) {
    return false;
  }
  judgement = found->second;
  return true;
}

void JudgementCache::Keep(std::string_view pattern, const Judgement& judgement) noexcept {
  if (pattern.size() > MaximumBytes) {
    return;
  }
  const std::lock_guard<std::mutex> hold(m_lock);
  if (m_judged.size() == MaximumPatterns) {
    m_judged.clear();
  }
  try {
    m_judged.emplace(pattern, judgement);
  } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): it is judged again, then
  }
}

} // namespace Perenna::Pattern
