#include "host/decision/Judge.h"

#include <algorithm>
#include <exception>

#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "host/http/Target.h"

namespace Host {

namespace {

using Kind = Credentials::Kind;

constexpr int Rounds = 3;
constexpr unsigned UnavailableRetrySeconds = 1;
constexpr std::int64_t ProvenAgainMilliseconds = 3'600'000; // well within the day for which the throttle remembers
constexpr std::size_t MaximumGroupBytes = 8192;             // of a header field

std::shared_ptr<Judgement> Judged(Outcome outcome, std::string user_id, std::string reason) {
  auto judgement = std::make_shared<Judgement>();
  judgement->outcome = outcome;
  judgement->user_id = std::move(user_id);
  judgement->reason = std::move(reason);
  return judgement;
}

bool IsContinuation(unsigned char byte) noexcept {
  return byte >= 0x80 && byte < 0xa0;
}

/// Whether a user id can stand in a header field as it is: no control character (C1 in UTF-8 included), and no space
/// that a reader would strip.
bool FitsIntoField(const std::string& user_id) noexcept {
  if (user_id.empty() || user_id.front() == ' ' || user_id.back() == ' ') {
    return false;
  }
  unsigned char previous = 0;
  return std::none_of(user_id.begin(), user_id.end(), [&previous](char character) {
    const auto byte = static_cast<unsigned char>(character);
    const bool is_control = byte < 0x20 || byte == 0x7f || (previous == 0xc2 && IsContinuation(byte));
    previous = byte;
    return is_control;
  });
}

} // namespace

Judge::Judge(DecisionContext& context)
    : m_Context(context), m_Cache(context.cached_decisions_each), m_Digests(context.key) {
  // The module would create a vanished file: it is looked at before and after.
  const auto require_file = [this] {
    struct stat status {};
    if (m_Context.file.Look(status) != DirectoryFile::State::There) {
      throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System,
                                     "the database " + AccessDirectory::Quoted(m_Context.file.Path()) +
                                         " was replaced or removed while it was being opened");
    }
  };
  require_file();
  Perenna::PListDict section;
  section.SetValue(LocalAccessManager::Strings::DatabaseFilename, m_Context.file.Path());
  if (m_Manager.InitUserManager(section).Failed()) {
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System,
                                   "cannot open the database " + AccessDirectory::Quoted(m_Context.file.Path()));
  }
  m_Watcher.emplace(m_Context.file);
  m_Explainer.emplace(m_Context.file);
  m_Credentials.emplace(m_Manager, *m_Explainer, m_Context.certificate_form);
  require_file();
}

bool Judge::Observe() {
  m_Observed.reset();
  if (m_Context.freshness.Forbids()) {
    m_Failure = "this machine's copy of the directory is older than Sync.StaleSeconds";
    return false;
  }
  switch (m_Watcher->Observe()) {
  case Watcher::State::Seen:
    m_Observed = m_Watcher->Version();
    return true;
  case Watcher::State::Busy:
    m_Failure = "the database is busy: another program holds it locked";
    return false;
  case Watcher::State::Failed:
    m_Failure = "the database cannot be read";
    return false;
  case Watcher::State::Gone:
    m_Failure = "the database file was replaced or removed";
    return false;
  }
  return false;
}

void Judge::CatchUp() {
  if (*m_Observed != m_Seen) {
    m_Cache.Clear();
    m_Explainer->Forget();
    m_Seen = *m_Observed;
  }
}

Verdict Judge::Decide(Question question) {
  const auto begin = std::chrono::steady_clock::now();
  Answer answer;
  try {
    answer = AnswerTo(question);
  } catch (const std::exception&) {
    m_Failure = "the decision could not be made for lack of memory";
  }
  if (answer.judgement == nullptr) {
    answer.judgement = Judged(Outcome::Unavailable, {}, m_Failure);
    answer.retry_after_seconds = UnavailableRetrySeconds;
  }
  Verdict verdict = Pronounce(std::move(question), std::move(answer));
  const auto taken = std::chrono::steady_clock::now() - begin;
  verdict.microseconds = static_cast<unsigned>(std::chrono::duration_cast<std::chrono::microseconds>(taken).count());
  return verdict;
}

Verdict Judge::Malformed(Question question, const std::string& fault) {
  Answer answer;
  answer.judgement = Judged(Outcome::Malformed, {}, "refused: " + fault);
  return Pronounce(std::move(question), std::move(answer));
}

Verdict Judge::Pronounce(Question&& question, Answer&& answer) {
  Verdict verdict;
  verdict.judgement = std::move(answer.judgement);
  verdict.time = std::chrono::system_clock::now();
  verdict.request_id = std::move(question.request_id);
  verdict.address = std::move(question.address);
  verdict.method = std::move(question.method_name);
  verdict.path = PathForLog(std::move(question.target));
  verdict.cached = answer.is_cached;
  verdict.retry_after_seconds = answer.retry_after_seconds;
  verdict.credential_accepted = answer.credential_accepted;
  return verdict;
}

Judge::Answer Judge::AnswerTo(const Question& question) {
  Answer answer;
  if (m_Context.file.IsGone()) {
    m_Failure = "the database file was replaced or removed";
    return answer;
  }
  const bool is_bypassed = question.for_proxy && m_Context.Bypasses(question.target);
  const Credentials& credentials = question.credentials;
  if (is_bypassed || credentials.kind == Kind::None || credentials.kind == Kind::Malformed) {
    struct stat status {};
    if (m_Context.file.Look(status) == DirectoryFile::State::Gone) {
      m_Failure = "the database file was replaced or removed";
    } else if (is_bypassed) {
      answer.judgement = Judged(Outcome::Allowed, {}, "allowed to everybody by PathFilterBypass");
    } else {
      answer.judgement =
          Judged(Outcome::Unauthenticated, {},
                 credentials.kind == Kind::None ? "refused: there are no credentials" : credentials.reason);
    }
    return answer;
  }
  const std::int64_t now = m_Context.clock();
  answer = FromThrottle(question, now);
  return answer.judgement == nullptr ? FromDirectory(question, now) : answer;
}

Judge::Answer Judge::FromThrottle(const Question& question, std::int64_t now) {
  Answer answer;
  if (question.credentials.kind != Kind::Password || question.address.empty() || !m_Context.throttle.BlocksAny(now)) {
    return answer;
  }
  const std::int64_t blocked = m_Context.throttle.BlockedFor(m_Digests.OfPair(question), now);
  if (blocked > 0 && !m_Context.throttle.IsProven(m_Digests.OfProof(question), now)) {
    answer.judgement = Judged(Outcome::Throttled, question.credentials.user_id,
                              "refused without a check: too many failed logins of this id from this address");
    answer.retry_after_seconds = static_cast<unsigned>((blocked + 999) / 1000);
  }
  return answer;
}

Judge::Answer Judge::FromDirectory(const Question& question, std::int64_t now) {
  const std::string_view target = question.target;
  const std::string_view url = m_Context.target_part == TargetPart::Path ? PathOf(target) : target;
  const Digest digest = m_Digests.OfQuestion(question, url);
  for (int round = 0; round < Rounds; ++round) {
    if (!m_Observed && !Observe()) {
      return {};
    }
    CatchUp();
    if (DecisionCache::Entry* const entry = m_Cache.Find(digest)) {
      RememberProven(question, entry, now);
      Answer answer;
      answer.judgement = entry->judgement;
      answer.is_cached = true;
      return answer;
    }
    std::optional<Answer> answer = AskModule(question, std::string(url));
    const sqlite3_int64 before = *m_Observed;
    if (!answer || !Observe()) {
      return {};
    }
    if (*m_Observed != before) {
      continue; // credential and decision are statements of their own: they may have seen two states
    }
    if (answer->may_be_kept) {
      m_Cache.Keep(digest, {answer->judgement, {}, 0});
      RememberProven(question, m_Cache.Find(digest), now);
    } else if (answer->credential_accepted == false && question.credentials.kind == Kind::Password &&
               !question.address.empty()) {
      m_Context.throttle.Failed(m_Digests.OfPair(question), now);
    }
    return *std::move(answer);
  }
  m_Failure = "the directory kept changing while the decision was being made";
  return {};
}

std::optional<Judge::Answer> Judge::AskModule(const Question& question, const std::string& url) {
  CallWatch watch;
  const Perenna::HTTPRequest request(question.method, url);
  auto judgement = std::make_shared<Judgement>();
  Answer answer;
  const bool is_proven = m_Credentials->Prove(question.credentials, request, watch, *judgement);
  if (question.credentials.kind == Kind::Password || question.credentials.kind == Kind::Certificate) {
    answer.credential_accepted = is_proven;
  }
  if (is_proven && !watch.Failed()) {
    const bool is_allowed = m_Manager.TestRequestForUser(request, judgement->user_id);
    judgement->outcome = is_allowed ? Outcome::Allowed : Outcome::Refused;
    watch.Silence();
    if (!watch.Failed() && !m_Explainer->Explain(question.method, url, *judgement) && !watch.Failed()) {
      m_Failure = "the database cannot be read";
      return std::nullopt;
    }
    if (is_allowed && question.for_proxy &&
        (!FitsIntoField(judgement->user_id) || judgement->groups.size() > MaximumGroupBytes)) {
      judgement->outcome = Outcome::Refused;
      judgement->reason = "refused: the user's id or groups do not fit into a header field";
      judgement->groups.clear();
      judgement->decider.reset();
    }
    if (!is_allowed && question.credentials.kind == Kind::Anonymous) {
      judgement->outcome = Outcome::Unauthenticated;
    }
    answer.may_be_kept = true;
  }
  if (watch.Failed()) {
    m_Failure = "the database failed: " + watch.Failure();
    return std::nullopt;
  }
  answer.judgement = std::move(judgement);
  return answer;
}

std::string Judge::PathForLog(std::string target) {
  const std::size_t path_bytes = PathOf(target).size();
  if (path_bytes == target.size()) {
    return target;
  }
  std::string query;
  if (m_Context.target_part == TargetPart::PathAndQuery) {
    query = "?" + m_Digests.TextOfQuery(QueryOf(target));
  }
  target.resize(path_bytes);
  target += query;
  return target;
}

void Judge::RememberProven(const Question& question, DecisionCache::Entry* entry, std::int64_t now) {
  if (question.credentials.kind != Kind::Password || question.address.empty()) {
    return;
  }
  // An entry belongs to one credential: with the same address the proof is the same.
  if (entry != nullptr && now < entry->proven_until && entry->proven_from == question.address) {
    return;
  }
  m_Context.throttle.Proven(m_Digests.OfProof(question), now);
  if (entry != nullptr) {
    entry->proven_from = question.address;
    entry->proven_until = now + ProvenAgainMilliseconds;
  }
}

bool Judge::IsReady() {
  if (m_Context.file.IsGone() || !Observe()) {
    return false;
  }
  CallWatch watch;
  watch.Silence();
  m_Credentials->AskForNobody();
  return !watch.Failed();
}

} // namespace Host
