#include "host/http/net/Listener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <grp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <vector>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Host {

using AccessDirectory::Failure;
using AccessDirectory::Quoted;

namespace {

const std::string UnixPrefix = "unix:";
const std::string TlsPrefix = "https:";
constexpr int Backlog = 1024;

union SocketAddress {
  sockaddr any;
  sockaddr_in v4;
  sockaddr_in6 v6;
  sockaddr_un local;
};

[[noreturn]] void Fail(const std::string& what, int error) {
  throw Failure(Failure::Kind::System, what + ": " + std::system_category().message(error));
}

[[noreturn]] void Misread(const std::string& text, const std::string& why) {
  throw Failure(Failure::Kind::Input,
                "cannot listen on " + Quoted(text) + ": " + why +
                    "; accepted: unix:PATH, ADDRESS:PORT, https:ADDRESS:PORT, the address numeric, IPv6 in brackets");
}

bool Fill(const ListenAddress& address, SocketAddress& out, socklen_t& size) {
  std::memset(&out, 0, sizeof out);
  const auto port = htons(static_cast<std::uint16_t>(address.port));
  if (::inet_pton(AF_INET, address.address.c_str(), &out.v4.sin_addr) == 1) {
    out.v4.sin_family = AF_INET;
    out.v4.sin_port = port;
    size = sizeof out.v4;
    return true;
  }
  std::memset(&out, 0, sizeof out);
  if (::inet_pton(AF_INET6, address.address.c_str(), &out.v6.sin6_addr) != 1) {
    return false;
  }
  out.v6.sin6_family = AF_INET6;
  out.v6.sin6_port = port;
  size = sizeof out.v6;
  return true;
}

void FillLocal(const ListenAddress& address, SocketAddress& out, socklen_t& size) {
  std::memset(&out, 0, sizeof out);
  out.local.sun_family = AF_UNIX;
  std::memcpy(out.local.sun_path, address.path.data(), address.path.size());
  size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.path.size() + 1);
}

FileDescriptor NewSocket(const ListenAddress& address, int family) {
  FileDescriptor socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.Valid()) {
    Fail("cannot listen on " + address.Text(), errno);
  }
  return socket;
}

// Left behind by a process that was killed: a socket to which nobody can connect.
void RemoveStale(const ListenAddress& address, const SocketAddress& name, socklen_t size) {
  struct stat found {};
  if (::lstat(address.path.c_str(), &found) != 0) {
    return;
  }
  if (!S_ISSOCK(found.st_mode)) {
    throw Failure(Failure::Kind::Input, "cannot listen on " + address.Text() + ": there is a file that is no socket");
  }
  const FileDescriptor probe = NewSocket(address, AF_UNIX);
  if (::connect(probe.Get(), &name.any, size) == 0 || errno != ECONNREFUSED) {
    throw Failure(Failure::Kind::System, "cannot listen on " + address.Text() + ": another process listens there");
  }
  ::unlink(address.path.c_str());
}

gid_t GroupNumber(const std::string& name) {
  std::vector<char> memory(1024);
  group entry{};
  group* found = nullptr;
  while (::getgrnam_r(name.c_str(), &entry, memory.data(), memory.size(), &found) == ERANGE) {
    memory.resize(memory.size() * 2);
  }
  if (found == nullptr) {
    throw Failure(Failure::Kind::Input, "no group of the system is named " + Quoted(name));
  }
  return found->gr_gid;
}

// "127.0.0.1" of an IPv4 client that came to an IPv6 listener, too: who compares networks must not see two forms.
void Describe(const SocketAddress& from, Peer& peer) {
  char text[INET6_ADDRSTRLEN] = "";
  if (from.any.sa_family == AF_INET) {
    ::inet_ntop(AF_INET, &from.v4.sin_addr, text, sizeof text);
    peer.port = ntohs(from.v4.sin_port);
  } else if (IN6_IS_ADDR_V4MAPPED(&from.v6.sin6_addr)) {
    ::inet_ntop(AF_INET, &from.v6.sin6_addr.s6_addr[12], text, sizeof text);
    peer.port = ntohs(from.v6.sin6_port);
  } else {
    ::inet_ntop(AF_INET6, &from.v6.sin6_addr, text, sizeof text);
    peer.port = ntohs(from.v6.sin6_port);
  }
  peer.address = text;
}

} // namespace

bool ListenAddress::Local() const {
  SocketAddress name{};
  socklen_t size = 0;
  if (kind == Kind::Unix) {
    return true;
  }
  if (!Fill(*this, name, size)) {
    return false;
  }
  if (name.any.sa_family == AF_INET) {
    return (ntohl(name.v4.sin_addr.s_addr) >> 24) == 127;
  }
  return IN6_IS_ADDR_LOOPBACK(&name.v6.sin6_addr) ||
         (IN6_IS_ADDR_V4MAPPED(&name.v6.sin6_addr) && name.v6.sin6_addr.s6_addr[12] == 127);
}

std::string ListenAddress::Text() const {
  if (kind == Kind::Unix) {
    return UnixPrefix + path;
  }
  const std::string host = address.find(':') == std::string::npos ? address : "[" + address + "]";
  return (kind == Kind::Tls ? TlsPrefix : "") + host + ":" + std::to_string(port);
}

ListenAddress ParseListenAddress(const std::string& text) {
  ListenAddress address;
  if (text.find('\0') != std::string::npos) {
    Misread(text, "it holds a NUL");
  }
  if (text.compare(0, UnixPrefix.size(), UnixPrefix) == 0) {
    address.kind = ListenAddress::Kind::Unix;
    address.path = text.substr(UnixPrefix.size());
    if (address.path.empty()) {
      Misread(text, "the path is empty");
    }
    if (address.path.size() >= sizeof(sockaddr_un::sun_path)) {
      Misread(text, "the path is longer than " + std::to_string(sizeof(sockaddr_un::sun_path) - 1) + " bytes");
    }
    return address;
  }
  std::string rest = text;
  if (text.compare(0, TlsPrefix.size(), TlsPrefix) == 0) {
    address.kind = ListenAddress::Kind::Tls;
    rest = text.substr(TlsPrefix.size());
  }
  const auto colon = rest.rfind(':');
  if (colon == std::string::npos) {
    Misread(text, "there is no port");
  }
  address.address = rest.substr(0, colon);
  const bool bracketed = address.address.size() > 2 && address.address.front() == '[' && address.address.back() == ']';
  if (bracketed) {
    address.address = address.address.substr(1, address.address.size() - 2);
  }
  SocketAddress name{};
  socklen_t size = 0;
  if (!Fill(address, name, size) || bracketed != (name.any.sa_family == AF_INET6)) {
    Misread(text, "the address is not numeric");
  }
  const char* end = rest.data() + rest.size();
  const auto number = std::from_chars(rest.data() + colon + 1, end, address.port);
  if (number.ec != std::errc() || number.ptr != end || address.port > 65535) {
    Misread(text, "the port is not a number from 0 to 65535");
  }
  return address;
}

Listener::SocketFile::~SocketFile() {
  struct stat found {};
  if (!path.empty() && ::lstat(path.c_str(), &found) == 0 && found.st_dev == device && found.st_ino == inode) {
    ::unlink(path.c_str());
  }
}

Listener::Listener(ListenAddress address, const std::string& socket_group) : m_Address(std::move(address)) {
  SocketAddress name{};
  socklen_t size = 0;
  if (m_Address.kind == ListenAddress::Kind::Unix) {
    BindLocal(socket_group);
  } else {
    if (!Fill(m_Address, name, size)) {
      throw Failure(Failure::Kind::Input, "cannot listen on " + m_Address.Text() + ": the address is not numeric");
    }
    m_Socket = NewSocket(m_Address, name.any.sa_family);
    const int on = 1;
    ::setsockopt(m_Socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(m_Socket.Get(), &name.any, size) != 0) {
      Fail("cannot listen on " + m_Address.Text(), errno);
    }
  }
  if (::listen(m_Socket.Get(), Backlog) != 0) {
    Fail("cannot listen on " + m_Address.Text(), errno);
  }
  size = sizeof name;
  if (m_Address.kind != ListenAddress::Kind::Unix && ::getsockname(m_Socket.Get(), &name.any, &size) == 0) {
    m_Address.port = ntohs(name.any.sa_family == AF_INET ? name.v4.sin_port : name.v6.sin6_port);
  }
}

void Listener::BindLocal(const std::string& socket_group) {
  const gid_t group = socket_group.empty() ? static_cast<gid_t>(-1) : GroupNumber(socket_group);
  SocketAddress name{};
  socklen_t size = 0;
  FillLocal(m_Address, name, size);
  RemoveStale(m_Address, name, size);
  m_Socket = NewSocket(m_Address, AF_UNIX);
  if (::bind(m_Socket.Get(), &name.any, size) != 0) {
    Fail("cannot listen on " + m_Address.Text(), errno);
  }
  // Nobody can connect before `listen`, so the wider mode that the umask may have left is of no use to anybody.
  const char* path = m_Address.path.c_str();
  struct stat made {};
  if (::lstat(path, &made) != 0) {
    Fail("cannot listen on " + m_Address.Text(), errno);
  }
  m_File.path = m_Address.path;
  m_File.device = made.st_dev;
  m_File.inode = made.st_ino;
  if (!socket_group.empty() && ::lchown(path, static_cast<uid_t>(-1), group) != 0) {
    Fail("cannot give " + m_Address.Text() + " to the group " + Quoted(socket_group), errno);
  }
  if (::chmod(path, 0660) != 0) {
    Fail("cannot set the mode of " + m_Address.Text(), errno);
  }
}

FileDescriptor Listener::Accept(Peer& peer) const {
  SocketAddress from{};
  socklen_t size = sizeof from;
  FileDescriptor connection(::accept4(m_Socket.Get(), &from.any, &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!connection.Valid()) {
    return connection;
  }
  peer = Peer();
  peer.tls = m_Address.kind == ListenAddress::Kind::Tls;
  if (m_Address.kind == ListenAddress::Kind::Unix) {
    peer.unix_domain = true;
    ucred credentials{};
    size = sizeof credentials;
    if (::getsockopt(connection.Get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
      connection.Close();
      errno = ECONNABORTED;
      return connection;
    }
    peer.user = credentials.uid;
    return connection;
  }
  const int on = 1;
  ::setsockopt(connection.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  Describe(from, peer);
  return connection;
}

} // namespace Host
