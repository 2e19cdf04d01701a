#include "host/http/RunningServer.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace Testing {

namespace {

class EchoHandler : public Host::Handler {
public:
  EchoHandler(Seen& seen, std::mutex& mutex) : m_Seen(seen), m_Mutex(mutex) {}

  Body OnHead(Host::Request& request) override { return request.target == "/ignore" ? Body::Ignore : Body::Read; }
  std::size_t BodyLimit(const Host::Request&) override { return 100; }
  void BeginGroup() override {
    const std::lock_guard<std::mutex> hold(m_Mutex);
    m_Seen.groups.push_back(0);
  }
  std::optional<Host::Response> Handle(Host::Request& request, const Deferral& defer) override {
    {
      const std::lock_guard<std::mutex> hold(m_Mutex);
      m_Seen.requests.push_back(request);
      ++m_Seen.groups.back();
    }
    Host::Response response;
    response.body = request.method + " " + request.target + " " + request.body + "\n";
    if (request.target == "/throw") {
      throw std::runtime_error("thrown by a test");
    }
    if (request.target == "/inject") {
      response.fields = {{"X-Name", "value\r\nX-Other: value"}};
    }
    if (request.target == "/big") {
      response.body.assign(8U << 20U, 'b');
    }
    if (request.target == "/late") {
      std::thread([answer = defer(), response] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500)); // beyond every deadline of the transport
        answer(response);
      }).detach();
      return std::nullopt;
    }
    if (request.target == "/slow") {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return response;
  }
  void OnRefused(unsigned status, const Host::Peer&) override {
    const std::lock_guard<std::mutex> hold(m_Mutex);
    m_Seen.refused.push_back(status);
  }

private:
  Seen& m_Seen;
  std::mutex& m_Mutex;
};

} // namespace

Host::ServerSettings RunningServer::Settings(const std::string& address) {
  Host::ServerSettings settings;
  settings.listen = {Host::ParseListenAddress(address)};
  settings.threads = 1;
  settings.header_bytes = 2048;
  settings.idle = settings.request = settings.handshake = std::chrono::milliseconds(300);
  settings.linger = std::chrono::milliseconds(1000);
  return settings;
}

RunningServer::RunningServer(Host::ServerSettings settings)
    : m_Server(std::move(settings), [this](unsigned) { return std::make_unique<EchoHandler>(m_Seen, m_Mutex); }) {
  m_Server.Start();
}

Seen RunningServer::SoFar() {
  const std::lock_guard<std::mutex> hold(m_Mutex);
  return m_Seen;
}

RawClient::RawClient(RunningServer& server) {
  const auto address = Host::ParseListenAddress(server->Listening().front());
  union {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_un local;
  } name{};
  if (address.kind == Host::ListenAddress::Kind::Unix) {
    name.local.sun_family = AF_UNIX;
    std::strncpy(name.local.sun_path, address.path.c_str(), sizeof name.local.sun_path - 1);
  } else {
    name.v4.sin_family = AF_INET;
    name.v4.sin_port = htons(static_cast<std::uint16_t>(address.port));
    name.v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  m_Socket = Host::FileDescriptor(::socket(name.any.sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval patience{5, 0};
  ::setsockopt(m_Socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (::connect(m_Socket.Get(), &name.any, name.any.sa_family == AF_UNIX ? sizeof name.local : sizeof name.v4) != 0) {
    throw std::runtime_error("cannot connect to " + address.Text());
  }
}

RawClient& RawClient::Send(std::string_view bytes) {
  // A server that has closed is seen from what is read.
  (void)::send(m_Socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  return *this;
}

std::string RawClient::ReadToEnd() {
  std::string all = std::move(m_Rest);
  char buffer[65536];
  ssize_t count = 0;
  while ((count = ::recv(m_Socket.Get(), buffer, sizeof buffer, 0)) > 0) {
    all.append(buffer, static_cast<std::size_t>(count));
  }
  return count == 0 ? all : all + (errno == EAGAIN ? "(timeout)" : "(reset)");
}

std::string RawClient::ReadAnswer(bool body) {
  char buffer[65536];
  for (;;) {
    const auto head = m_Rest.find("\r\n\r\n");
    const auto length = m_Rest.find("Content-Length: ");
    if (head != std::string::npos && length < head) {
      const auto size = head + 4 + (body ? std::stoul(m_Rest.substr(length + 16)) : 0);
      if (m_Rest.size() >= size) {
        std::string answer = m_Rest.substr(0, size);
        m_Rest.erase(0, size);
        return answer;
      }
    }
    const auto count = ::recv(m_Socket.Get(), buffer, sizeof buffer, 0);
    if (count <= 0) {
      return m_Rest + "(no whole answer)";
    }
    m_Rest.append(buffer, static_cast<std::size_t>(count));
  }
}

std::string Body(const std::string& answer) {
  const auto head = answer.find("\r\n\r\n");
  return head == std::string::npos ? answer : answer.substr(head + 4);
}

} // namespace Testing
