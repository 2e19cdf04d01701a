#pragma once

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "directory/text/Text.h"
#include "host/http/Message.h"

namespace Host {

/// What ends a request of the administration: "problem details" (RFC 9457). Safe to show to whoever asked; never holds
/// a secret.
struct Problem {
  unsigned status = 500;
  std::string detail;                                           ///< a sentence for people
  std::string code = {};                                        ///< the access module's result symbol; empty: none
  std::vector<Field> fields = {};                               ///< of the answer, beside its type
  AccessDirectory::Json more = AccessDirectory::Json::object(); ///< further members
};

/// Carries a problem to whoever answers the request.
class Refusal : public std::exception {
public:
  explicit Refusal(Problem problem) : m_Problem(std::move(problem)) {}
  const Problem& What() const noexcept { return m_Problem; }
  const char* what() const noexcept override { return m_Problem.detail.c_str(); }

private:
  Problem m_Problem;
};

[[noreturn]] void Refuse(unsigned status, std::string detail, std::string code = {});

/// Its answer; `request_id` is its "instance".
Response ProblemAnswer(const Problem& problem, const std::string& request_id);

/// The words of RFC 9110 for a status that the administration gives.
const char* StatusName(unsigned status) noexcept;

} // namespace Host
