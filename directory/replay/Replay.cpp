#include "directory/replay/Replay.h"

#include <algorithm>
#include <map>

namespace AccessDirectory {

namespace {

Ruling RulingOf(const Policy::Verdict& verdict) {
  return {verdict.allowed, verdict.undecided,
          verdict.decider == nullptr ? std::nullopt : std::optional(*verdict.decider)};
}

void AddTo(std::string& key, const std::string& text) {
  key += std::to_string(text.size()) + ':' + text;
}

void AddTo(std::string& key, const Ruling& ruling) {
  key += ruling.allowed ? 'a' : ruling.undecided ? 'u' : 'r';
  if (ruling.decider) {
    AddTo(key, ruling.decider->group);
    AddTo(key, ruling.decider->pattern);
    AddTo(key, ruling.decider->action);
  }
}

class Tally {
public:
  void Add(Ruling before, Ruling after, const LoggedRequest& request) {
    ++m_Report.differing;
    std::string key = request.method_text + ' ';
    AddTo(key, before);
    AddTo(key, after);
    const auto [place, added] = m_PlaceOf.emplace(std::move(key), m_Report.flips.size());
    if (added) {
      m_Report.flips.push_back({std::move(before), std::move(after), 0, request});
    }
    ++m_Report.flips[place->second].count;
  }

  /// Hands each request that can be judged to `judge`, with its target.
  template <typename Judge> ReplayReport Run(RequestSource& log, const TargetOf& target_of, const Judge& judge) {
    LoggedRequest request;
    while (log.Next(request)) {
      ++m_Report.lines;
      const std::optional<std::string> target =
          request.unjudged == LoggedRequest::Unjudged::None ? target_of(request) : std::nullopt;
      if (!target) {
        const auto why =
            request.unjudged == LoggedRequest::Unjudged::None ? LoggedRequest::Unjudged::NotDecided : request.unjudged;
        ++m_Report.unjudged.at(static_cast<std::size_t>(why));
        continue;
      }
      ++m_Report.judged;
      judge(request, *target);
    }
    std::stable_sort(m_Report.flips.begin(), m_Report.flips.end(),
                     [](const Flip& left, const Flip& right) { return left.count > right.count; });
    return std::move(m_Report);
  }

private:
  ReplayReport m_Report;
  std::map<std::string, std::size_t> m_PlaceOf;
};

} // namespace

Json Ruling::ToJson() const {
  return {{"allowed", allowed}, {"undecided", undecided}, {"decider", decider ? decider->ToJson() : Json()}};
}

Json ReplayReport::ToJson() const {
  Json reasons = Json::object();
  for (std::size_t why = 1; why < UnjudgedCount; ++why) {
    reasons[UnjudgedText(static_cast<LoggedRequest::Unjudged>(why))] = unjudged[why];
  }
  Json list = Json::array();
  for (const Flip& flip : flips) {
    list.push_back({{"count", flip.count},
                    {"before", flip.before.ToJson()},
                    {"after", flip.after.ToJson()},
                    {"example",
                     {{"user_id", JsonText(flip.example.user_id)},
                      {"method", JsonText(flip.example.method_text)},
                      {"url", JsonText(flip.example.target)}}}});
  }
  return {{"lines", lines},
          {"judged", judged},
          {"differing", differing},
          {"not_judged", std::move(reasons)},
          {"flips", std::move(list)}};
}

ReplayReport Replay(RequestSource& log, const TargetOf& target_of, Policy& policy) {
  Tally tally;
  return tally.Run(log, target_of, [&](const LoggedRequest& request, const std::string& target) {
    const Policy::Verdict now = policy.Judge(request.user_id, request.method, target);
    if (now.allowed != request.allowed) {
      tally.Add({request.allowed, false, request.decider}, RulingOf(now), request);
    }
  });
}

ReplayReport Compare(RequestSource& log, const TargetOf& target_of, Policy& before, Policy& after) {
  Tally tally;
  return tally.Run(log, target_of, [&](const LoggedRequest& request, const std::string& target) {
    const Policy::Verdict one = before.Judge(request.user_id, request.method, target);
    const Policy::Verdict other = after.Judge(request.user_id, request.method, target);
    if (one.allowed != other.allowed) {
      tally.Add(RulingOf(one), RulingOf(other), request);
    }
  });
}

} // namespace AccessDirectory
