#include "host/log/DecisionLog.h"

#include "host/log/JsonLine.h"

namespace Host {

void DecisionLog::Write(const Verdict& verdict) {
  thread_local std::string text;
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
  m_File.Write(line.Finish());
}

} // namespace Host
