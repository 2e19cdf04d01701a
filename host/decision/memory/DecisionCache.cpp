#include "host/decision/memory/DecisionCache.h"

namespace Host {

DecisionCache::Entry* DecisionCache::Find(const Digest& question) {
  const auto young = m_Young.find(question);
  if (young != m_Young.end()) {
    return &young->second;
  }
  const auto old = m_Old.find(question);
  if (old == m_Old.end()) {
    return nullptr;
  }
  Entry entry = std::move(old->second);
  m_Old.erase(old);
  Keep(question, std::move(entry));
  return &m_Young.find(question)->second;
}

void DecisionCache::Keep(const Digest& question, Entry entry) {
  if (m_Half == 0) {
    return;
  }
  if (m_Young.size() >= m_Half) {
    m_Old.clear();
    m_Old.swap(m_Young);
  }
  m_Young[question] = std::move(entry);
}

void DecisionCache::Clear() {
  m_Young.clear();
  m_Old.clear();
}

} // namespace Host
