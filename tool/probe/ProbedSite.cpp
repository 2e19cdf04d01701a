#include "tool/probe/ProbedSite.h"

#include <algorithm>
#include <optional>
#include <regex>
#include <sstream>

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

namespace net = boost::asio;
namespace http = boost::beast::http;
using Socket = net::ip::tcp::socket;
using Error = boost::system::error_code;

constexpr std::uint64_t BodyBytes = std::uint64_t{256} * 1024;
constexpr std::chrono::milliseconds Lull(300); // after an answer: others that follow it come at once

/// Runs one asynchronous operation to its end, or closes the connection when its time is over.
template <class Start>
Error Await(net::io_context& io, Socket& socket, std::chrono::milliseconds patience, Start start) {
  std::optional<Error> result;
  start([&result](const Error& error, auto&&...) { result = error; });
  io.restart();
  io.run_for(patience);
  if (!result) {
    Error ignored; // closing is what ends the operation
    socket.close(ignored);
    io.restart();
    io.run();
    return net::error::timed_out;
  }
  return *result;
}

template <class Stream>
std::optional<ProbeAnswer> ReadAnswer(net::io_context& io, Socket& socket, Stream& stream,
                                      boost::beast::flat_buffer& buffer, std::chrono::milliseconds patience,
                                      bool& is_last) {
  http::response_parser<http::string_body> parser;
  parser.body_limit(BodyBytes);
  const Error error =
      Await(io, socket, patience, [&](auto handler) { http::async_read(stream, buffer, parser, std::move(handler)); });
  if (!parser.is_header_done()) {
    const bool is_silence = error == http::error::end_of_stream || error == net::error::timed_out || !socket.is_open();
    return is_silence || buffer.size() == 0 ? std::nullopt : std::optional<ProbeAnswer>(ProbeAnswer());
  }
  ProbeAnswer answer;
  answer.status = parser.get().result_int();
  std::ostringstream head;
  head << parser.get().base();
  answer.head = head.str();
  answer.body = parser.get().body();
  is_last = !parser.get().keep_alive();
  return answer;
}

template <class Stream>
std::vector<ProbeAnswer> Exchange(net::io_context& io, Socket& socket, Stream& stream, const std::string& bytes,
                                  std::size_t wanted, std::chrono::milliseconds patience) {
  std::vector<ProbeAnswer> answers;
  // A site may answer and close before it has read everything: what counts is what it says.
  Await(io, socket, patience, [&](auto handler) { net::async_write(stream, net::buffer(bytes), std::move(handler)); });
  boost::beast::flat_buffer buffer;
  bool is_last = false; // some sites say so and close much later
  while (answers.size() < wanted && socket.is_open() && !is_last) {
    std::optional<ProbeAnswer> answer =
        ReadAnswer(io, socket, stream, buffer, answers.empty() ? patience : std::min(patience, Lull), is_last);
    if (!answer) {
      break;
    }
    if (answer->status < 100 || answer->status >= 200 || answer->status == 101) {
      answers.push_back(std::move(*answer));
    }
    if (!answers.empty() && answers.back().status == 0) {
      break; // no further answer can be told apart
    }
  }
  return answers;
}

struct Url {
  bool tls = false;
  std::string name; // without the brackets of an IPv6 address
  std::string port;
  std::string host; // as the field Host has it
};

Url Parse(const std::string& text) {
  static const std::regex form(R"((https?)://(\[[0-9A-Fa-f:.]+\]|[A-Za-z0-9._-]+)(:([0-9]{1,5}))?/?)");
  std::smatch parts;
  if (!std::regex_match(text, parts, form)) {
    throw Failure(Failure::Kind::Input, Quoted(text) + " is not the address of a site: http://HOST[:PORT] or "
                                                       "https://HOST[:PORT], with no path behind it");
  }
  Url url;
  url.tls = parts[1] == "https";
  url.name = parts[2];
  if (url.name.front() == '[') {
    url.name = url.name.substr(1, url.name.size() - 2);
  }
  url.port = parts[4].matched ? parts[4].str() : url.tls ? "443" : "80";
  url.host = parts[2].str() + parts[3].str();
  return url;
}

} // namespace

struct ProbedSite::Way {
  bool tls = false;
  std::string name;
  net::ip::tcp::resolver::results_type addresses;
  net::ssl::context context{net::ssl::context::tls_client};
};

ProbedSite::ProbedSite(const std::string& url, const std::string& authorities, std::chrono::milliseconds patience)
    : m_Url(url), m_Patience(patience), m_Way(std::make_unique<Way>()) {
  const Url parts = Parse(url);
  m_Host = parts.host;
  m_Way->tls = parts.tls;
  m_Way->name = parts.name;
  net::io_context io;
  net::ip::tcp::resolver resolver(io);
  Error error;
  m_Way->addresses = resolver.resolve(parts.name, parts.port, error);
  if (error) {
    throw Failure(Failure::Kind::System, "no address of " + Quoted(url) + ": " + error.message());
  }
  if (parts.tls) {
    m_Way->context.set_verify_mode(net::ssl::verify_peer);
    m_Way->context.set_verify_callback(net::ssl::host_name_verification(parts.name));
    if (authorities.empty()) {
      m_Way->context.set_default_verify_paths(error);
    } else {
      m_Way->context.load_verify_file(authorities, error);
    }
    if (error) {
      throw Failure(Failure::Kind::Input, Quoted(authorities) + " holds no certificates: " + error.message());
    }
  }
}

ProbedSite::~ProbedSite() = default;

std::vector<ProbeAnswer> ProbedSite::Send(const std::string& bytes, std::size_t wanted) const {
  net::io_context io;
  net::ssl::stream<Socket> stream(io, m_Way->context); // its socket serves without TLS too
  Socket& socket = stream.next_layer();
  Error error = Await(io, socket, m_Patience,
                      [&](auto handler) { net::async_connect(socket, m_Way->addresses, std::move(handler)); });
  if (!error && m_Way->tls) {
    SSL_set_tlsext_host_name(stream.native_handle(), m_Way->name.c_str());
    error = Await(io, socket, m_Patience,
                  [&](auto handler) { stream.async_handshake(net::ssl::stream_base::client, std::move(handler)); });
  }
  if (error) {
    throw Failure(Failure::Kind::System, "no connection to " + Quoted(m_Url) + ": " + error.message());
  }
  return m_Way->tls ? Exchange(io, socket, stream, bytes, wanted, m_Patience)
                    : Exchange(io, socket, socket, bytes, wanted, m_Patience);
}

} // namespace Tool
