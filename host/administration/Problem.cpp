#include "host/administration/Problem.h"

namespace Host {

const char* StatusName(unsigned status) noexcept {
  switch (status) {
  case 200:
    return "OK";
  case 201:
    return "Created";
  case 204:
    return "No Content";
  case 400:
    return "Bad Request";
  case 401:
    return "Unauthorized";
  case 403:
    return "Forbidden";
  case 404:
    return "Not Found";
  case 405:
    return "Method Not Allowed";
  case 409:
    return "Conflict";
  case 412:
    return "Precondition Failed";
  case 413:
    return "Content Too Large";
  case 415:
    return "Unsupported Media Type";
  case 429:
    return "Too Many Requests";
  case 503:
    return "Service Unavailable";
  default:
    return "Internal Server Error";
  }
}

void Refuse(unsigned status, std::string detail, std::string code) {
  throw Refusal({status, std::move(detail), std::move(code)});
}

Response ProblemAnswer(const Problem& problem, const std::string& request_id) {
  AccessDirectory::Json body = {{"type", "about:blank"},
                                {"title", StatusName(problem.status)},
                                {"status", problem.status},
                                {"detail", AccessDirectory::JsonText(problem.detail)},
                                {"instance", request_id}};
  if (!problem.code.empty()) {
    body["code"] = problem.code;
  }
  body.update(problem.more);
  Response response;
  response.status = problem.status;
  response.fields = problem.fields;
  response.fields.push_back({"Content-Type", "application/problem+json"});
  response.fields.push_back({"Cache-Control", "no-store"});
  response.fields.push_back({"X-Request-Id", request_id});
  response.body = body.dump(2, ' ', true) + '\n';
  return response;
}

} // namespace Host
