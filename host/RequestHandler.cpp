#include "host/RequestHandler.h"

#include <chrono>

#include <sys/stat.h>

#include "host/page/StaticFiles.h"

namespace Host {

RequestHandler::RequestHandler(const HandlerContext& context)
    : m_Decisions(context.decisions), m_AccessLog(context.access_log), m_Administration(context.administration),
      m_Judge(context.decisions), m_Endpoints{context.configuration,
                                              context.origins,
                                              context.target_form,
                                              context.decisions,
                                              m_Judge,
                                              context.metrics,
                                              context.metrics.ForThread(),
                                              context.decision_log,
                                              context.measure} {}

Handler::Body RequestHandler::OnHead(Request& request) {
  return Administration::Serves(PathOf(request.target)) ? m_Administration.OnHead(m_Endpoints, request) : Body::Ignore;
}

std::optional<Response> RequestHandler::Answer(Request& request, const Deferral& defer) {
  const std::string_view path = PathOf(request.target);
  const bool is_administration = Administration::Serves(path);
  if (path == "/" || is_administration) {
    if (std::optional<Response> page = AnswerPage(request)) {
      return page;
    }
  }
  return is_administration ? m_Administration.Handle(m_Endpoints, request, defer) : AnswerRequest(m_Endpoints, request);
}

std::optional<Response> RequestHandler::Handle(Request& request, const Deferral& defer) {
  using std::chrono::steady_clock;
  const auto begin = m_AccessLog.File().TakesLines() ? steady_clock::now() : steady_clock::time_point();
  std::optional<Response> response = Answer(request, defer);
  if (response && m_AccessLog.File().TakesLines()) {
    m_AccessLog.Write(request, *response,
                      std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begin));
  }
  return response;
}

void RequestHandler::OnTick() {
  // Nobody may ask for hours, and the supervisor is to start the process anew all the same.
  struct stat status {};
  static_cast<void>(m_Decisions.file.Look(status));
}

} // namespace Host
