// Sends requests over connections that stay open, each with one request at a time, for some seconds.
//   perenna-load ADDRESS:PORT|unix:PATH CONNECTIONS SECONDS < REQUESTS
// REQUESTS are whole requests without a body, each ended by its empty line; they are sent in turn, all over again.
// Prints: requests, requests a second, p50 and p99 of the latency in microseconds, answers that are not 2xx.

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::string_view HeadEnd = "\r\n\r\n";

[[noreturn]] void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int Connect(const std::string& address) {
  const bool is_unix = address.compare(0, 5, "unix:") == 0;
  const int handle = socket(is_unix ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int rc = -1;
  if (is_unix) {
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    address.copy(to.sun_path, sizeof to.sun_path - 1, 5);
    rc = connect(handle, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  } else {
    const std::size_t colon = address.find(':');
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(std::stoi(address.substr(colon + 1))));
    inet_pton(AF_INET, address.substr(0, colon).c_str(), &to.sin_addr);
    rc = connect(handle, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    const int on = 1;
    setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  if (rc != 0) {
    Fail("cannot connect to " + address);
  }
  return handle;
}

std::vector<std::string> ReadRequests() {
  const std::string text((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
  std::vector<std::string> requests;
  for (std::size_t begin = 0, end = 0; (end = text.find(HeadEnd, begin)) != std::string::npos;) {
    end += HeadEnd.size();
    requests.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  return requests;
}

/// How many bytes the answer has with its body; 0: its head has not come whole.
std::size_t SizeOfAnswer(std::string_view bytes) {
  const std::size_t end = bytes.find(HeadEnd);
  if (end == std::string_view::npos) {
    return 0;
  }
  constexpr std::string_view Name = "\r\nContent-Length: ";
  const std::size_t at = bytes.find(Name);
  std::size_t length = 0;
  if (at < end) {
    std::from_chars(bytes.data() + at + Name.size(), bytes.data() + end, length);
  }
  return end + HeadEnd.size() + length;
}

struct Connection {
  int handle = -1;
  std::string received;
  Clock::time_point sent_at;
};

class Load {
public:
  Load(const std::string& address, std::size_t connections, std::vector<std::string> requests)
      : m_Requests(std::move(requests)), m_Connections(connections) {
    for (std::size_t i = 0; i < connections; ++i) {
      m_Connections[i].handle = Connect(address);
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.u64 = i;
      epoll_ctl(m_Poll, EPOLL_CTL_ADD, m_Connections[i].handle, &event);
    }
  }

  void Run(std::chrono::seconds duration) {
    const auto begin = Clock::now();
    for (Connection& connection : m_Connections) {
      Send(connection);
    }
    std::array<epoll_event, 64> events{};
    while (Clock::now() - begin < duration) {
      const int count = epoll_wait(m_Poll, events.data(), events.size(), 1000);
      for (int i = 0; i < count; ++i) {
        Receive(m_Connections[events[static_cast<std::size_t>(i)].data.u64]);
      }
    }
    const std::chrono::duration<double> taken = Clock::now() - begin;
    std::sort(m_Latencies.begin(), m_Latencies.end());
    const auto quantile = [this](std::size_t percent) {
      return m_Latencies.empty() ? 0.F : m_Latencies[(m_Latencies.size() - 1) * percent / 100];
    };
    std::cout << m_Latencies.size() << ' ' << static_cast<double>(m_Latencies.size()) / taken.count() << ' '
              << quantile(50) << ' ' << quantile(99) << ' ' << m_Refused << '\n';
  }

private:
  void Send(Connection& connection) {
    const std::string& request = m_Requests[m_Next++ % m_Requests.size()];
    connection.sent_at = Clock::now();
    if (send(connection.handle, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
      Fail("cannot send");
    }
  }

  void Receive(Connection& connection) {
    std::array<char, 16384> memory{};
    const ssize_t count = recv(connection.handle, memory.data(), memory.size(), 0);
    if (count <= 0) {
      Fail("a connection ended");
    }
    connection.received.append(memory.data(), static_cast<std::size_t>(count));
    const std::size_t size = SizeOfAnswer(connection.received);
    if (size == 0 || connection.received.size() < size) {
      return;
    }
    m_Latencies.push_back(std::chrono::duration<float, std::micro>(Clock::now() - connection.sent_at).count());
    m_Refused += connection.received.compare(0, 10, "HTTP/1.1 2") == 0 ? 0U : 1U;
    connection.received.erase(0, size);
    Send(connection);
  }

  const int m_Poll = epoll_create1(EPOLL_CLOEXEC);
  std::vector<std::string> m_Requests;
  std::vector<Connection> m_Connections;
  std::vector<float> m_Latencies;
  std::size_t m_Next = 0;
  std::size_t m_Refused = 0;
};

} // namespace

int main(int argc, char* argv[]) try {
  if (argc != 4) {
    std::cerr << "usage: perenna-load ADDRESS:PORT|unix:PATH CONNECTIONS SECONDS < REQUESTS\n";
    return 2;
  }
  Load(argv[1], std::stoul(argv[2]), ReadRequests()).Run(std::chrono::seconds(std::stoul(argv[3])));
} catch (const std::exception& error) {
  std::cerr << "perenna-load: " << error.what() << '\n';
  return 1;
}
