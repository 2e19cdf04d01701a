#pragma once

#include <memory>
#include <optional>
#include <string>

#include "LocalAccessManager.h"
#include "host/caller/Credentials.h"
#include "host/decision/watch/CallWatch.h"
#include "host/decision/DecisionCache.h"
#include "host/decision/DecisionContext.h"
#include "host/decision/Explainer.h"
#include "host/decision/Verdict.h"
#include "host/decision/watch/Watcher.h"

namespace Host {

/// What a judge is asked: may the caller do `method` on `target`.
struct Question {
  Perenna::Method_t method = Perenna::METH_MAX;
  std::string method_name; ///< as received
  std::string target;      ///< in normal form
  Credentials credentials;
  std::string address; ///< the client's, numeric; empty when unknown: then nothing is throttled
  std::string request_id;
  /// Whether the answer goes to a proxy: the bypass applies, and an allowed user's id and groups have to fit into
  /// header fields.
  bool for_proxy = false;
};

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
  /// Whether the module accepts the credentials; fills user, or outcome and reason where it does not.
  bool Proves(const Question& question, const Perenna::HTTPRequest& request, CallWatch& watch, Judgement& judgement);
  void EvenOut(const Perenna::HTTPRequest& request, const std::string& password, CallWatch& watch);
  /// Looks at the directory's version; false, with `m_Failure` set, when it cannot.
  bool Observe();
  /// Takes the version observed for the one that cache and explainer belong to.
  void CatchUp();
  Verdict Pronounce(Question&& question, Answer&& answer);

  Digest DigestOf(const Question& question, std::string_view url);
  // What the throttle knows a login by: the presented id, or the whole credential, with the client's network.
  Digest PairOf(const Question& question);
  Digest ProofOf(const Question& question);
  std::string PathForLog(std::string target);
  void RememberProven(const Question& question, DecisionCache::Entry* entry, std::int64_t now);

  DecisionContext& m_Context;
  LocalAccessManager::UserManager m_Manager; // asks questions only
  std::optional<Watcher> m_Watcher;
  std::optional<Explainer> m_Explainer;
  DecisionCache m_Cache;
  KeyedDigest m_Digest;
  sqlite3_int64 m_Seen = -1;               // the version that cache and explainer belong to
  std::optional<sqlite3_int64> m_Observed; // the version observed last, for the group under way
  std::string m_Failure;                   // why there is no answer, as a sentence
};

} // namespace Host
