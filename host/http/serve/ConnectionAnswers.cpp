// How a connection answers its requests and refuses what is none.

#include <exception>
#include <utility>

#include "TN_log.h"
#include "host/http/Answer.h"
#include "host/http/serve/Connection.h"
#include "host/http/serve/Worker.h"

namespace Host {

namespace {

// How much of what a refused client still sends is thrown away before the loop turns to others.
constexpr int MostReadsInARow = 16;

} // namespace

std::optional<Response> Connection::Ask(Request& request, bool group_began) {
  try {
    if (group_began) {
      return m_Worker.TheHandler().Handle(request, [this] { return Defer(); });
    }
  } catch (const std::exception& error) {
    LogFailure(error);
  }
  m_State = State::Queued; // if it had been put off
  m_Worker.TheHandler().OnRefused(500, m_Peer);
  return PlainAnswer(500);
}

void Connection::AnswerRequest(bool group_began) {
  if (m_State != State::Queued) {
    return;
  }
  m_Request = m_Reader.Take();
  m_ToHead = m_Request->method == "HEAD"; // the handler may take all of it along
  if (const std::optional<Response> response = Ask(*m_Request, group_began)) {
    Finish(*response);
  }
}

Handler::Answerer Connection::Defer() {
  m_State = State::Deferred;
  return [&worker = m_Worker, weak = weak_from_this()](Response response) {
    worker.Post([weak, response = std::make_shared<const Response>(std::move(response))] {
      if (const auto connection = weak.lock()) {
        connection->AnswerLate(*response);
      }
    });
  };
}

void Connection::Finish(const Response& response) {
  const bool keep = m_Reader.KeepAlive() && !response.close && !m_Worker.Draining();
  // A client that asked for the end, and has sent nothing beyond its request, needs no lingering.
  const bool at_its_end = !m_Reader.KeepAlive() && !m_Request->body_pending && m_Reader.Empty();
  auto persistence = Persistence::Close;
  m_AfterWrite = at_its_end ? AfterWrite::Close : AfterWrite::Linger;
  if (keep) {
    persistence = m_Request->http_1_0 ? Persistence::KeepAnnounced : Persistence::Keep;
    m_AfterWrite = AfterWrite::NextRequest;
  }
  m_Worker.Pool().Return(std::move(m_Request));

  std::string& out = m_Worker.Output();
  out.clear();
  if (!AppendAnswer(out, response, m_ToHead, persistence, m_Worker.Date())) {
    Tarn::DefaultLogSink().Error("A request failed: its answer, status %u, cannot be sent as HTTP\n", response.status);
    return Refuse(500);
  }
  Send(out);
}

// Refusals share one deadline: a client that is not well-behaved gets no more time by making us write.
void Connection::Refuse(unsigned status) {
  m_Worker.TheHandler().OnRefused(status, m_Peer);
  m_Refused = true;
  m_AfterWrite = AfterWrite::Linger;
  m_Deadline = Clock::now() + m_Worker.Settings().linger;
  std::string& out = m_Worker.Output();
  out.clear();
  AppendAnswer(out, PlainAnswer(status), false, Persistence::Close, m_Worker.Date());
  Send(out);
}

void Connection::Send(std::string_view bytes) {
  m_State = State::Writing;
  while (!bytes.empty()) {
    const auto written = m_Channel.Write(bytes);
    if (written.status != Channel::Status::Done) {
      m_Unsent.assign(bytes);
      m_UnsentAt = 0;
      if (!m_Refused) {
        m_Deadline = Clock::now() + m_Worker.Settings().request;
      }
      return Wait(written.status);
    }
    bytes.remove_prefix(written.bytes);
  }
  Sent();
}

void Connection::SendRest() {
  while (m_UnsentAt < m_Unsent.size()) {
    const auto written = m_Channel.Write(std::string_view(m_Unsent).substr(m_UnsentAt));
    if (written.status != Channel::Status::Done) {
      return Wait(written.status);
    }
    m_UnsentAt += written.bytes;
  }
  std::string().swap(m_Unsent);
  Sent();
}

void Connection::Sent() {
  switch (m_AfterWrite) {
  case AfterWrite::NextRequest:
    BeginIdle();
    return ReadOn();
  case AfterWrite::Close:
    return CloseGently();
  case AfterWrite::Linger:
    break;
  }
  m_Channel.Finish();
  m_State = State::Lingering;
  if (!m_Refused) {
    m_Deadline = Clock::now() + m_Worker.Settings().linger;
  }
  m_Worker.MarkIdle(m_Place);
  Discard();
}

// Closing with bytes unread would reset the connection, and the client might lose the answer.
void Connection::Discard() {
  std::string& memory = m_Worker.Input();
  for (int i = 0; i < MostReadsInARow; ++i) {
    const auto read = m_Channel.Read(memory.data(), memory.size());
    if (read.status != Channel::Status::Done) {
      return Wait(read.status);
    }
  }
  Wait(Channel::Status::WantsRead);
}

} // namespace Host
