#include "host/http/parse/RequestReader.h"

#include <algorithm>
#include <utility>

namespace Host {

namespace {

// As many as are worth keeping, and as much memory of each.
constexpr std::size_t MostFree = 64;
constexpr std::size_t KeptBody = 16384;

} // namespace

std::unique_ptr<Request> RequestPool::Take() {
  if (m_Free.empty()) {
    return std::make_unique<Request>();
  }
  auto request = std::move(m_Free.back());
  m_Free.pop_back();
  return request;
}

void RequestPool::Return(std::unique_ptr<Request> request) {
  if (m_Free.size() >= MostFree || request->body.capacity() > KeptBody) {
    return;
  }
  request->body.clear();
  request->body_pending = false;
  request->notes.reset();
  m_Free.push_back(std::move(request));
}

RequestReader::Result RequestReader::Read(const Surroundings& around, const Peer& peer, std::string_view bytes) {
  std::string left = std::move(m_Left);
  m_Left.clear();
  if (!left.empty()) {
    left.append(bytes);
    bytes = left;
  }
  const Result result = m_Phase == Phase::Head ? ReadHead(around, peer, bytes) : ReadBody(bytes);
  if (result == Result::Refused || bytes.empty()) {
    return result;
  }
  if (!left.empty()) {
    left.erase(0, left.size() - bytes.size());
    m_Left = std::move(left);
  } else {
    m_Left.assign(bytes);
  }
  return result;
}

RequestReader::Result RequestReader::ReadHead(const Surroundings& around, const Peer& peer, std::string_view& bytes) {
  const auto scanned = m_Scanner.Scan(bytes.substr(0, around.header_bytes));
  if (scanned == HeadScanner::Result::Malformed) {
    return Refuse(400);
  }
  if (scanned == HeadScanner::Result::More) {
    if (bytes.size() < around.header_bytes) {
      return Result::More;
    }
    return Refuse(m_Scanner.HasLine() ? 431 : 414);
  }
  const std::string_view head = bytes.substr(0, m_Scanner.Size());
  bytes.remove_prefix(m_Scanner.Size());
  m_Scanner.Reset();
  m_Request = around.pool.Take();
  if (const unsigned status = ParseHead(head, *m_Request, m_Framing); status != 0) {
    return Refuse(status);
  }
  m_Request->peer = peer;
  return m_Framing.HasBody() ? BeginBody(around, bytes) : Result::Complete;
}

RequestReader::Result RequestReader::BeginBody(const Surroundings& around, std::string_view& bytes) {
  if (around.handler.OnHead(*m_Request) == Handler::Body::Ignore) {
    return SkipBody(bytes);
  }
  m_BodyLimit = around.handler.BodyLimit(*m_Request);
  if (m_Framing.content_length > m_BodyLimit) {
    return Refuse(413);
  }
  m_Phase = m_Framing.chunked ? Phase::Chunked : Phase::Length;
  m_Chunks = ChunkedBody();
  const bool waiting = m_Framing.expects_continue && bytes.empty();
  const Result result = ReadBody(bytes);
  return result == Result::More && waiting ? Result::Continue : result;
}

RequestReader::Result RequestReader::SkipBody(std::string_view& bytes) {
  if (m_Framing.chunked) {
    m_Chunks = ChunkedBody();
    std::string ignored;
    switch (m_Chunks.Decode(bytes, ignored, bytes.size())) {
    case ChunkedBody::Result::Complete:
      return Result::Complete;
    case ChunkedBody::Result::Malformed:
      return Refuse(400);
    // A chunk larger than all that has come is one that has not come whole.
    case ChunkedBody::Result::TooLong:
    case ChunkedBody::Result::More:
      break;
    }
  } else if (bytes.size() >= m_Framing.content_length) {
    bytes.remove_prefix(static_cast<std::size_t>(m_Framing.content_length));
    return Result::Complete;
  }
  bytes = std::string_view();
  m_Request->body_pending = true;
  m_Framing.keep_alive = false;
  return Result::Complete;
}

RequestReader::Result RequestReader::ReadBody(std::string_view& bytes) {
  if (m_Phase == Phase::Chunked) {
    switch (m_Chunks.Decode(bytes, m_Request->body, m_BodyLimit)) {
    case ChunkedBody::Result::More:
      return Result::More;
    case ChunkedBody::Result::Malformed:
      return Refuse(400);
    case ChunkedBody::Result::TooLong:
      return Refuse(413);
    case ChunkedBody::Result::Complete:
      break;
    }
  } else {
    const auto missing = static_cast<std::size_t>(m_Framing.content_length) - m_Request->body.size();
    const auto taken = std::min(missing, bytes.size());
    m_Request->body.append(bytes.substr(0, taken));
    bytes.remove_prefix(taken);
    if (taken < missing) {
      return Result::More;
    }
  }
  m_Phase = Phase::Head;
  return Result::Complete;
}

RequestReader::Result RequestReader::Refuse(unsigned status) {
  m_Status = status;
  m_Request.reset();
  return Result::Refused;
}

std::unique_ptr<Request> RequestReader::Take() {
  return std::move(m_Request);
}

} // namespace Host
