#include "host/http/serve/Connection.h"

#include <exception>
#include <utility>

#include "TN_log.h"
#include "host/http/Answer.h"
#include "host/http/serve/Worker.h"

namespace Host {

namespace {

constexpr std::string_view GoOnAnswer = "HTTP/1.1 100 Continue\r\n\r\n";

} // namespace

Connection::Connection(Worker& worker, FileDescriptor socket, TlsSession session, Peer peer)
    : m_Worker(worker), m_Channel(std::move(socket), std::move(session)),
      m_Watch(std::make_unique<Watch>(worker.Loop(), m_Channel.Handle())), m_Peer(std::move(peer)) {}

void Connection::LogFailure(const std::exception& error) {
  Tarn::DefaultLogSink().Error("A request failed: %s\n", error.what());
}

// What goes wrong here, want of memory above all, costs this connection and no other.
template <typename Step> void Connection::Guarded(Step step) {
  try {
    step();
  } catch (const std::exception& error) {
    LogFailure(error);
    Close();
  }
}

void Connection::Start(Place place) {
  m_Place = place;
  Guarded([this] {
    if (m_Channel.Tls()) {
      m_State = State::Handshake;
      m_Deadline = Clock::now() + m_Worker.Settings().handshake;
      Wait(Channel::Status::WantsRead);
    } else {
      BeginIdle();
      ReadOn();
    }
  });
}

void Connection::OnReady() {
  Guarded([this] { Proceed(); });
}

void Connection::OnTime(Clock::time_point now) {
  if (now >= m_Deadline) {
    Guarded([this] { Expire(); });
  }
}

void Connection::Answer(bool group_began) {
  Guarded([this, group_began] { AnswerRequest(group_began); });
}

void Connection::AnswerLate(const Response& response) {
  if (m_State == State::Deferred) {
    Guarded([this, &response] { Finish(response); });
  }
}

void Connection::Proceed() {
  switch (m_State) {
  case State::Handshake:
    return Shake();
  case State::Idle:
  case State::Reading:
    return Receive();
  case State::Writing:
    return SendRest();
  case State::Lingering:
    return Discard();
  case State::Queued:
  case State::Deferred:
  case State::Closed:
    return;
  }
}

void Connection::Expire() {
  m_Watch->Cancel();
  switch (m_State) {
  case State::Idle:
    return CloseGently();
  case State::Reading:
    return Refuse(408);
  case State::Writing:
    m_Channel.Abandon();
    return Close();
  case State::Handshake:
  case State::Lingering:
    return Close();
  case State::Queued:
  case State::Deferred:
  case State::Closed:
    return;
  }
}

void Connection::Shake() {
  const auto status = m_Channel.Handshake();
  if (status != Channel::Status::Done) {
    return Wait(status);
  }
  m_Peer.certificate_der = m_Channel.ClientCertificate();
  BeginIdle();
  ReadOn();
}

void Connection::BeginIdle() {
  if (m_Worker.Draining()) {
    return CloseGently();
  }
  m_State = State::Idle;
  m_Deadline = Clock::now() + m_Worker.Settings().idle;
  m_Worker.MarkIdle(m_Place);
}

// What has been received already may hold the next request, or a part of it; no readiness will tell.
void Connection::ReadOn() {
  if (m_State == State::Idle && !m_Reader.Empty()) {
    Take({});
  }
  if (m_State == State::Idle || m_State == State::Reading) {
    if (m_Channel.Pending()) {
      Receive();
    } else {
      Wait(Channel::Status::WantsRead);
    }
  }
}

void Connection::Receive() {
  std::string& memory = m_Worker.Input();
  do {
    const auto read = m_Channel.Read(memory.data(), memory.size());
    if (read.status != Channel::Status::Done) {
      return Wait(read.status);
    }
    Take({memory.data(), read.bytes});
  } while ((m_State == State::Idle || m_State == State::Reading) && m_Channel.Pending());
  if (m_State == State::Idle || m_State == State::Reading) {
    Wait(Channel::Status::WantsRead);
  }
}

void Connection::Take(std::string_view bytes) {
  if (m_State == State::Idle) {
    m_State = State::Reading;
    m_Deadline = Clock::now() + m_Worker.Settings().request;
    m_Worker.MarkBusy(m_Place);
  }
  auto result = RequestReader::Result::More;
  try {
    result = m_Reader.Read({m_Worker.TheHandler(), m_Worker.Pool(), m_Worker.Settings().header_bytes}, m_Peer, bytes);
  } catch (const std::exception& error) {
    LogFailure(error);
    return Refuse(500);
  }
  switch (result) {
  case RequestReader::Result::More:
    return;
  case RequestReader::Result::Continue:
    // So short that a socket that does not take it whole has a peer that does not read.
    if (m_Channel.Write(GoOnAnswer).bytes != GoOnAnswer.size()) {
      Close();
    }
    return;
  case RequestReader::Result::Complete:
    m_State = State::Queued;
    return m_Worker.Enqueue(shared_from_this());
  case RequestReader::Result::Refused:
    return Refuse(m_Reader.Status());
  }
}

void Connection::Wait(Channel::Status status) {
  switch (status) {
  case Channel::Status::WantsRead:
    return m_Watch->Wait(Watch::For::Reading, shared_from_this());
  case Channel::Status::WantsWrite:
    return m_Watch->Wait(Watch::For::Writing, shared_from_this());
  case Channel::Status::End:
    return CloseGently();
  case Channel::Status::Done:
  case Channel::Status::Failed:
    return Close();
  }
}

void Connection::CloseGently() {
  if (m_State != State::Closed) {
    m_Channel.Finish();
    Close();
  }
}

void Connection::Close() {
  if (m_State == State::Closed) {
    return;
  }
  m_State = State::Closed;
  m_Watch.reset();
  m_Channel = Channel(FileDescriptor(), nullptr);
  m_Worker.Remove(m_Place);
}

} // namespace Host
