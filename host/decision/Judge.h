#pragma once

#include <memory>
#include <optional>
#include <string>

#include "LocalAccessManager.h"
#include "host/decision/CredentialCheck.h"
#include "host/decision/DecisionContext.h"
#include "host/decision/Explainer.h"
#include "host/decision/Question.h"
#include "host/decision/Verdict.h"
#include "host/decision/memory/DecisionCache.h"
#include "host/decision/memory/QuestionDigests.h"
#include "host/decision/watch/CallWatch.h"
#include "host/decision/watch/Watcher.h"

namespace Host {

/// Decides, with a manager of the module's own for this thread. Answers are those of the directory at some moment
/// between the call (or `BeginGroup`, for a request read before it) and the return; in doubt there is no answer:
/// `Unavailable`. One thread's own.
class Judge {
public:
  /// Opens the directory. Throws `AccessDirectory::Failure` (System), also when the file was replaced meanwhile.
  explicit Judge(DecisionContext& context);

  /// The requests to follow have been read completely: one look at the directory's version serves them all.
  void BeginGroup() { m_Observed.reset(); }

  /// Never throws but for memory that is needed for the verdict itself.
  Verdict Decide(Question question);

  /// The verdict on a request that cannot be asked about; `fault` as a sentence's clause.
  Verdict Malformed(Question question, const std::string& fault);

  /// Whether a decision could be made now.
  bool IsReady();
  /// Whether this machine's copy of the directory is older than is wanted; decisions may go on from it.
  bool IsStale() const noexcept { return m_Context.freshness.IsStale(); }

private:
  struct Answer {
    std::shared_ptr<const Judgement> judgement;
    bool is_cached = false;
    bool may_be_kept = false;
    std::optional<bool> credential_accepted;
    unsigned retry_after_seconds = 0;
  };

  Answer AnswerTo(const Question& question);
  Answer FromThrottle(const Question& question, std::int64_t now);
  Answer FromDirectory(const Question& question, std::int64_t now);
  /// One round with the module; nothing when the database failed, with `m_Failure` set.
  std::optional<Answer> AskModule(const Question& question, const std::string& url);
  /// Looks at the directory's version; false, with `m_Failure` set, when it cannot, or when the copy is too old to be
  /// decided from.
  bool Observe();
  /// Takes the version observed for the one that cache and explainer belong to.
  void CatchUp();
  Verdict Pronounce(Question&& question, Answer&& answer);

  std::string PathForLog(std::string target);
  void RememberProven(const Question& question, DecisionCache::Entry* entry, std::int64_t now);

  DecisionContext& m_Context;
  LocalAccessManager::UserManager m_Manager; // asks questions only
  std::optional<Watcher> m_Watcher;
  std::optional<Explainer> m_Explainer;
  std::optional<CredentialCheck> m_Credentials;
  DecisionCache m_Cache;
  QuestionDigests m_Digests;
  sqlite3_int64 m_Seen = -1;               // the version that cache and explainer belong to
  std::optional<sqlite3_int64> m_Observed; // the version observed last, for the group under way
  std::string m_Failure;                   // why there is no answer, as a sentence
};

} // namespace Host
