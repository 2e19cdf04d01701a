#pragma once

#include <string>
#include <string_view>

#include "host/decision/Question.h"
#include "host/decision/memory/KeyedDigest.h"

namespace Host {

/// By which digests questions are known to what remembers: nothing that was asked with stays in memory. A thread has
/// its own object.
class QuestionDigests {
public:
  explicit QuestionDigests(const Tarn::SymmetricKey& key) : m_Digest(key) {}

  /// Of everything that goes into a decision; `url` is the part of the target that is judged.
  Digest OfQuestion(const Question& question, std::string_view url);
  /// Of the presented id and the client's network: what failed logins are counted by.
  Digest OfPair(const Question& question);
  /// Of the whole credential and the client's network: what was proven once.
  Digest OfProof(const Question& question);
  /// Of a query, for a log: 16 hexadecimal digits.
  std::string TextOfQuery(std::string_view query);

private:
  KeyedDigest m_Digest;
};

} // namespace Host
