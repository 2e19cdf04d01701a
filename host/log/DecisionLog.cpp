#include "host/log/DecisionLog.h"

#include "host/log/JsonLine.h"

namespace Host {

namespace {

/// Fills `text` with the line of a verdict, its line end included.
void Compose(const Verdict& verdict, std::string& text) {
  const Judgement& judgement = *verdict.judgement;
  JsonLine line(text);
  line.Time("time", verdict.time)
      .Text("request_id", verdict.request_id)
      .Text("outcome", OutcomeName(judgement.outcome))
      .Text("user_id", judgement.user_id)
      .Text("address", verdict.address)
      .Text("method", verdict.method)
      .Text("path", verdict.path)
      .Text("reason", judgement.reason);
  if (judgement.decider) {
    line.Open("decider")
        .Text("group_id", judgement.decider->group_id)
        .Text("filter", judgement.decider->filter)
        .Text("action", judgement.decider->action)
        .Close();
  } else {
    line.Null("decider");
  }
  line.Number("microseconds", verdict.microseconds).Flag("cached", verdict.cached);
  line.Finish();
}

} // namespace

void DecisionLog::Write(const Verdict& verdict) {
  if (m_File.TakesLines()) {
    thread_local std::string text;
    Compose(verdict, text);
    m_File.Write(text);
  }
  const std::lock_guard<std::mutex> hold(m_Mutex);
  if (m_Kept.size() < KeptVerdicts) {
    m_Kept.push_back(verdict);
  } else {
    m_Kept[m_Next] = verdict;
  }
  m_Next = (m_Next + 1) % KeptVerdicts;
}

std::vector<std::string> DecisionLog::Last() {
  std::vector<Verdict> kept;
  std::size_t next = 0;
  {
    const std::lock_guard<std::mutex> hold(m_Mutex);
    kept = m_Kept;
    next = m_Next;
  }
  std::vector<std::string> lines;
  for (std::size_t age = 1; age <= kept.size(); ++age) {
    Compose(kept[(next + KeptVerdicts - age) % KeptVerdicts], lines.emplace_back());
    lines.back().pop_back();
  }
  return lines;
}

} // namespace Host
