#include "host/http/parse/RequestHead.h"

#include <algorithm>
#include <charconv>

#include <boost/beast/http/basic_parser.hpp>

namespace Host {

namespace {

namespace http = boost::beast::http;
using boost::beast::string_view;
using ErrorCode = boost::beast::error_code;

bool Letter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool Digit(char c) noexcept {
  return c >= '0' && c <= '9';
}

bool Hexadecimal(char c) noexcept {
  return Digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

std::string_view View(string_view text) noexcept {
  return {text.data(), text.size()};
}

// Collects what the library's parser finds. It checks the grammar of request line and fields; what may stand beside
// what is judged afterwards, from the fields that frame the message.
class HeadParser : public http::basic_parser<true> {
public:
  explicit HeadParser(Request& request) : m_Request(request) {
    // The reader has bounded the head already; bodies are not read here.
    header_limit(UINT32_MAX);
    body_limit(boost::none);
  }

  /// Leaves exactly the fields found in the request.
  void Finish() { m_Request.fields.resize(m_Fields); }

  std::size_t hosts = 0;
  std::size_t lengths = 0;
  std::size_t codings = 0;
  std::size_t expectations = 0;
  std::string_view host;
  std::string_view length;
  std::string_view coding;
  std::string_view expectation;

private:
  void on_request_impl(http::verb, string_view method, string_view target, int version, ErrorCode&) override {
    m_Request.method.assign(method.data(), method.size());
    m_Request.target.assign(target.data(), target.size());
    m_Request.http_1_0 = version == 10;
  }

  void on_field_impl(http::field name, string_view name_text, string_view value, ErrorCode&) override {
    if (m_Fields == m_Request.fields.size()) {
      m_Request.fields.emplace_back();
    }
    Field& field = m_Request.fields[m_Fields++];
    field.name.assign(name_text.data(), name_text.size());
    field.value.assign(value.data(), value.size());
    switch (name) {
    case http::field::host:
      Note(value, hosts, host);
      break;
    case http::field::content_length:
      Note(value, lengths, length);
      break;
    case http::field::transfer_encoding:
      Note(value, codings, coding);
      break;
    case http::field::expect:
      Note(value, expectations, expectation);
      break;
    default:
      break;
    }
  }

  static void Note(string_view value, std::size_t& count, std::string_view& kept) {
    ++count;
    kept = View(value);
  }

  void on_response_impl(int, string_view, int, ErrorCode&) override {}
  void on_header_impl(ErrorCode&) override {}
  void on_body_init_impl(const boost::optional<std::uint64_t>&, ErrorCode&) override {}
  std::size_t on_body_impl(string_view, ErrorCode&) override { return 0; }
  void on_chunk_header_impl(std::uint64_t, string_view, ErrorCode&) override {}
  std::size_t on_chunk_body_impl(std::uint64_t, string_view, ErrorCode&) override { return 0; }
  void on_finish_impl(ErrorCode&) override {}

  Request& m_Request;
  std::size_t m_Fields = 0;
};

// The parser says "bad version" both to a version that is not ours and to a line that is none.
bool NamesOtherVersion(std::string_view head) {
  const std::string_view line = head.substr(0, head.find('\r'));
  const auto space = line.rfind(' ');
  const std::string_view version = space == std::string_view::npos ? std::string_view() : line.substr(space + 1);
  return std::count(line.begin(), line.end(), ' ') == 2 && version.size() == 8 && version.substr(0, 5) == "HTTP/" &&
         Digit(version[5]) && version[6] == '.' && Digit(version[7]);
}

// Decimal digits and nothing else; short enough not to overflow.
bool ReadLength(std::string_view text, std::uint64_t& length) {
  constexpr std::size_t MostDigits = 18;
  if (text.empty() || text.size() > MostDigits || !std::all_of(text.begin(), text.end(), Digit)) {
    return false;
  }
  std::from_chars(text.data(), text.data() + text.size(), length);
  return true;
}

unsigned Frame(const HeadParser& parser, const Request& request, Framing& framing) {
  if (parser.hosts > 1 || (parser.hosts == 0 && !request.http_1_0) || (parser.hosts == 1 && !ValidHost(parser.host))) {
    return 400;
  }
  if (parser.lengths > 1 || parser.codings > 1 || parser.lengths + parser.codings > 1) {
    return 400;
  }
  if (parser.lengths == 1 && !ReadLength(parser.length, framing.content_length)) {
    return 400;
  }
  if (parser.codings == 1) {
    if (request.http_1_0) {
      return 400;
    }
    if (!EqualIgnoringCase(parser.coding, "chunked")) {
      return 501;
    }
    framing.chunked = true;
  }
  if (parser.expectations > 0 && !request.http_1_0) {
    if (parser.expectations > 1 || !EqualIgnoringCase(parser.expectation, "100-continue")) {
      return 417;
    }
    framing.expects_continue = true;
  }
  return 0;
}

} // namespace

bool ValidHost(std::string_view text) noexcept {
  std::string_view port;
  if (!text.empty() && text.front() == '[') {
    const auto end = text.find(']');
    if (end == std::string_view::npos || end < 3) {
      return false;
    }
    for (const char c : text.substr(1, end - 1)) {
      if (!Hexadecimal(c) && c != ':' && c != '.') {
        return false;
      }
    }
    port = text.substr(end + 1);
  } else {
    const auto end = std::min(text.find(':'), text.size());
    if (end == 0) {
      return false;
    }
    for (const char c : text.substr(0, end)) {
      if (!Letter(c) && !Digit(c) && c != '.' && c != '-' && c != '_') {
        return false;
      }
    }
    port = text.substr(end);
  }
  if (port.empty()) {
    return true;
  }
  unsigned number = 0;
  const char* last = port.data() + port.size();
  const auto read = std::from_chars(port.data() + 1, last, number);
  return port.front() == ':' && port.size() <= 6 && read.ec == std::errc() && read.ptr == last && number <= 65535;
}

unsigned ParseHead(std::string_view head, Request& request, Framing& framing) {
  framing = Framing();
  HeadParser parser(request);
  ErrorCode error;
  parser.put(boost::asio::const_buffer(head.data(), head.size()), error);
  parser.Finish();
  if (error == http::error::bad_version && NamesOtherVersion(head)) {
    return 505;
  }
  if (error || !parser.is_header_done()) {
    return 400;
  }
  for (const char c : request.target) {
    if (c <= ' ' || c > '~') {
      return 400;
    }
  }
  framing.keep_alive = parser.keep_alive();
  return Frame(parser, request, framing);
}

} // namespace Host
