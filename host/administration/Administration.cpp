#include "host/administration/Administration.h"

#include <chrono>
#include <exception>
#include <new>
#include <utility>

#include "TN_log.h"
#include "directory/audit/RowChanges.h"
#include "directory/Failure.h"
#include "host/administration/Reading.h"
#include "host/administration/operation/Operations.h"
#include "host/log/JsonLine.h"

namespace Host {

using AccessDirectory::Failure;
using AccessDirectory::Json;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view Beginning = "/access/";
constexpr std::size_t CallThreads = 2; // a long one leaves room for short ones
constexpr std::size_t MostWaiting = 1000;
constexpr const char* RetrySeconds = "1";
constexpr int MostAttempts = 50; // at a change, each after one that came first

/// Whether a request that changes something comes from a page of another site: a browser says so in these fields, and
/// others have no reason to send them.
bool IsCrossSite(const Request& request) {
  if (request.Count("Sec-Fetch-Site") > 1 || request.Count("Origin") > 1) {
    return true;
  }
  if (const std::string* const site = request.Find("Sec-Fetch-Site"); site != nullptr) {
    return *site != "same-origin" && *site != "none";
  }
  const std::string* const origin = request.Find("Origin");
  if (origin == nullptr) {
    return false;
  }
  const std::string* const host = request.Find("Host");
  const std::size_t scheme = origin->find("://");
  return scheme == std::string::npos || host == nullptr || !EqualIgnoringCase(origin->substr(scheme + 3), *host);
}

Problem ProblemOf(const Failure& failure) {
  Problem problem;
  problem.detail = failure.what();
  problem.code = failure.Code();
  switch (failure.What()) {
  case Failure::Kind::Input:
    problem.status = 400;
    break;
  case Failure::Kind::Refused:
    problem.status = 404;
    break;
  case Failure::Kind::System:
    problem.status = 503;
    problem.fields = {{"Retry-After", RetrySeconds}};
    break;
  }
  return problem;
}

Response ResponseOf(Reply reply, const std::string& request_id) {
  Response response;
  response.status = reply.status;
  response.fields = std::move(reply.fields);
  response.fields.push_back({"Cache-Control", "no-store"});
  response.fields.push_back({"X-Request-Id", request_id});
  if (!reply.body.is_null() || !reply.text.empty()) {
    response.fields.push_back({"Content-Type", "application/json"});
    response.body = reply.text.empty() ? reply.body.dump(2, ' ', true) + '\n' : std::move(reply.text);
  }
  return response;
}

std::optional<std::string> IfMatchOf(const Request& request) {
  std::optional<std::string> tags;
  for (const Field& field : request.fields) {
    if (EqualIgnoringCase(field.name, "If-Match")) { // several are one list
      tags = (tags ? *tags + "," : std::string()) + field.value;
    }
  }
  return tags;
}

/// Again, when another change came first: what the answer rests on is read anew. The body of an import is not kept.
Reply AnswerCall(const Route& route, Call& call) {
  const bool may_repeat = route.Changes() && route.form != BodyForm::Directory && route.form != BodyForm::Calls;
  for (int attempt = 1;; ++attempt) {
    const Json body = may_repeat ? call.body : Json();
    try {
      return route.answer(call);
    } catch (const AccessDirectory::ChangeConflict&) {
      if (!may_repeat || attempt == MostAttempts) {
        throw;
      }
      call.body = body;
    }
  }
}

Match MatchOf(const Request& request) {
  return FindRoute(request.method, PathOf(request.target));
}

bool IsForKnown(const Match& match) {
  return match.route != nullptr && match.route->asker == Asker::Known;
}

} // namespace

struct Administration::Job {
  Match match;
  Request request;
  std::string request_id;
  std::string caller;
  std::string address;
  std::shared_ptr<Admission> admission;
  Handler::Answerer answer;
  Clock::time_point begin;
};

Administration::Administration(AdministrationContext context, AccessLog& access_log)
    : m_Context(std::move(context)), m_AccessLog(access_log) {
  for (std::size_t i = 0; i < CallThreads; ++i) {
    m_Calls.threads.emplace_back([this] { Run(m_Calls); });
  }
  m_Batches.threads.emplace_back([this] { Run(m_Batches); });
}

Administration::~Administration() {
  {
    const std::lock_guard<std::mutex> hold(m_Mutex);
    m_Stop = true;
  }
  for (Lane* const lane : {&m_Batches, &m_Calls}) {
    lane->wake.notify_all();
    for (std::thread& thread : lane->threads) {
      thread.join();
    }
  }
}

bool Administration::Serves(std::string_view path) noexcept {
  return path.substr(0, Beginning.size()) == Beginning;
}

Handler::Body Administration::OnHead(EndpointContext& endpoint, Request& request) const {
  const Match match = MatchOf(request);
  auto admission = Admit(endpoint, request, IsForKnown(match));
  const bool is_wanted = admission->is_admitted && match.route != nullptr && match.route->form != BodyForm::None;
  request.notes = std::move(admission);
  return is_wanted ? Handler::Body::Read : Handler::Body::Ignore;
}

std::size_t Administration::BodyLimit(const Request& request) const {
  const Match match = MatchOf(request);
  const bool is_import = match.route != nullptr && match.route->form == BodyForm::Directory;
  const auto& limits = m_Context.configuration.limits;
  return static_cast<std::size_t>(is_import ? limits.import_bytes : limits.body_bytes);
}

std::optional<Response> Administration::Handle(EndpointContext& endpoint, Request& request,
                                               const Handler::Deferral& defer) {
  Match match = MatchOf(request);
  auto admission = std::static_pointer_cast<Admission>(request.notes);
  if (admission == nullptr) {
    admission = Admit(endpoint, request, IsForKnown(match));
  } else if (admission->is_admitted) {
    JudgeAgain(endpoint.judge, m_Context.configuration, *admission, IsForKnown(match));
  }
  endpoint.Record(admission->verdict);
  const std::string& request_id = admission->question.request_id;
  if (!admission->is_admitted) {
    return ProblemAnswer(Host::ProblemOf(*admission, m_Context.configuration), request_id);
  }
  const bool asks_options = request.method == "OPTIONS";
  if (match.route == nullptr && !asks_options) {
    return match.allow.empty()
               ? ProblemAnswer({404, "there is nothing of this name"}, request_id)
               : ProblemAnswer({405, "the path does not have this method", {}, {{"Allow", match.allow}}}, request_id);
  }
  if (match.route != nullptr && match.route->Changes() && IsCrossSite(request)) {
    return ProblemAnswer({403, "a page of another site must not change anything here"}, request_id);
  }
  auto job = std::make_unique<Job>();
  job->match = std::move(match);
  job->request_id = request_id;
  job->caller = admission->Caller();
  job->address = admission->question.address;
  job->begin = Clock::now();
  job->admission = admission;
  const bool is_batch = job->match.route != nullptr && job->match.route->form == BodyForm::Calls;
  Lane& lane = is_batch ? m_Batches : m_Calls;
  const std::lock_guard<std::mutex> hold(m_Mutex);
  if (m_Stop || lane.jobs.size() >= MostWaiting) {
    return ProblemAnswer({503, "too many requests are waiting", {}, {{"Retry-After", RetrySeconds}}}, request_id);
  }
  lane.jobs.push_back(std::move(job)); // all that may fail is done
  Job& queued = *lane.jobs.back();
  queued.request = std::move(request);
  queued.answer = defer();
  lane.wake.notify_one();
  return std::nullopt;
}

void Administration::Run(Lane& lane) {
  std::unique_ptr<Judge> judge; // made when it is needed
  for (;;) {
    std::unique_ptr<Job> job;
    {
      std::unique_lock<std::mutex> hold(m_Mutex);
      lane.wake.wait(hold, [&] { return m_Stop || !lane.jobs.empty(); });
      if (m_Stop) {
        return;
      }
      job = std::move(lane.jobs.front());
      lane.jobs.pop_front();
    }
    Work(*job, judge);
  }
}

void Administration::Work(Job& job, std::unique_ptr<Judge>& judge) {
  Response response;
  try {
    response = Answer(job, judge);
  } catch (const std::exception& error) {
    Tarn::DefaultLogSink().Error("A request of the administration failed: %s\n", error.what());
    response = ProblemAnswer({500, "the request failed; the program's log says why"}, job.request_id);
  }
  const Freshness& freshness = m_Context.decisions.freshness;
  if (freshness.IsWatched()) { // seconds, as an item of RFC 8941 with a parameter
    const auto age = freshness.Age();
    response.fields.push_back(
        {"X-Directory-Age",
         (age ? std::to_string(std::chrono::duration_cast<std::chrono::seconds>(*age).count()) : "unknown") +
             (freshness.IsStale() ? ";stale" : "")});
  }
  m_AccessLog.Write(job.request, response,
                    std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - job.begin));
  job.answer(std::move(response));
}

Response Administration::Answer(Job& job, std::unique_ptr<Judge>& judge) {
  std::optional<Call> call;
  Response response;
  try {
    if (judge == nullptr) {
      judge = std::make_unique<Judge>(m_Context.decisions);
    }
    // It may have waited behind an import that took the caller's rights. Who he is was proven.
    Credentials& credentials = job.admission->question.credentials;
    credentials = {};
    credentials.kind = Credentials::Kind::Known;
    credentials.user_id = job.caller;
    AccessDirectory::TakeRowChanges(); // of a call that left no line
    judge->BeginGroup();
    JudgeAgain(*judge, m_Context.configuration, *job.admission, IsForKnown(job.match));
    if (!job.admission->is_admitted) {
      return ProblemAnswer(Host::ProblemOf(*job.admission, m_Context.configuration), job.request_id);
    }
    call.emplace(Call{m_Context, *judge, job.caller, job.address, job.request_id, job.request.target, job.match.path});
    const Route* const route = job.match.route;
    if (route == nullptr) {
      return ResponseOf(Options(*call), job.request_id);
    }
    call->query = ReadQuery(*route, QueryOf(job.request.target));
    call->body = ReadBody(*route, job.request);
    call->if_match = IfMatchOf(job.request);
    if (call->if_match && route->Changes() && !route->if_match) { // what it asks to be sure of cannot be looked at
      Refuse(412, "there is no entity tag of this that If-Match could name");
    }
    if (route->form == BodyForm::Directory) {
      call->text = std::move(job.request.body);
    }
    response = ResponseOf(AnswerCall(*route, *call), job.request_id);
  } catch (const Refusal& refusal) {
    response = ProblemAnswer(refusal.What(), job.request_id);
  } catch (const Failure& failure) {
    response = ProblemAnswer(ProblemOf(failure), job.request_id);
  } catch (const std::bad_alloc&) {
    response = ProblemAnswer({503, "memory ran out", {}, {{"Retry-After", RetrySeconds}}}, job.request_id);
  }
  Log(job, call ? &*call : nullptr, response.status);
  return response;
}

void Administration::Log(const Job& job, const Call* call, unsigned status) {
  if (job.match.route == nullptr || !job.match.route->Changes() || job.match.route->form == BodyForm::Calls ||
      (call != nullptr && call->done.is_null())) {
    return;
  }
  std::string text;
  JsonLine line(text);
  line.Time("time", std::chrono::system_clock::now())
      .Text("request_id", job.request_id)
      .Text("user_id", job.caller)
      .Text("address", job.address)
      .Text("method", job.request.method)
      .Text("path", PathOf(job.request.target));
  line.Raw("done", call == nullptr ? "{}" : call->done.dump(-1, ' ', true));
  line.Number("status", status);
  std::string list;
  for (const std::string& row : AccessDirectory::TakeRowChanges()) {
    list.append(list.empty() ? "" : ",").append(row);
  }
  line.Raw("rows", '[' + list + ']');
  m_Context.log.Write(line.Finish());
}

} // namespace Host
