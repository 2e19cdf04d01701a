#include <gtest/gtest.h>

#include "host/http/RunningServer.h"

namespace Testing {

namespace {

using namespace std::string_literals;

struct Malformed {
  unsigned status;
  std::string bytes;
};

const std::string Get = "GET / HTTP/1.1\r\nHost: a\r\n";
const std::string Post = "POST / HTTP/1.1\r\nHost: a\r\n";
const std::string Chunked = Post + "Transfer-Encoding: chunked\r\n\r\n";
// What a body that is longer than one reader thinks would become.
const std::string Hidden = "GET /hidden HTTP/1.1\r\nHost: a\r\n\r\n";

const Malformed Table[] = {
    // Lines.
    {400, "GET / HTTP/1.1\nHost: a\n\n"},
    {400, "GET / HTTP/1.1\r\nHost: a\n\r\n"},
    {400, "\r\n" + Get + "\r\n"},
    {400, Get + "X: a\r\n folded\r\n\r\n"},
    {400, Get + "Transfer-Encoding:\r\n chunked\r\n\r\n" + Hidden},
    {400, Get + "X: a\rContent-Length: 4\r\n\r\n"},
    {400, Get + "X: a\0b\r\n\r\n"s},
    {400, Get + "X: a\x7f\r\n\r\n"},
    // Request line.
    {400, "GET /\r\nHost: a\r\n\r\n"},
    {400, "GET  / HTTP/1.1\r\nHost: a\r\n\r\n"},
    {400, "GET / HTTP/1.1 \r\nHost: a\r\n\r\n"},
    {400, "G(T / HTTP/1.1\r\nHost: a\r\n\r\n"},
    {400, "GET /a b HTTP/1.1\r\nHost: a\r\n\r\n"},
    {400, "GET /\x01 HTTP/1.1\r\nHost: a\r\n\r\n"},
    {400, "GET /\xc3\xa4 HTTP/1.1\r\nHost: a\r\n\r\n"},
    {400, "GET / http/1.1\r\nHost: a\r\n\r\n"},
    {400, "GET / HTTP/1.10\r\nHost: a\r\n\r\n"},
    {505, "GET / HTTP/1.2\r\nHost: a\r\n\r\n"},
    {505, "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"},
    {414, "GET /" + std::string(4000, 'a')},
    {431, Get + "X: " + std::string(4000, 'a')},
    {400, "\x16\x03\x01\x02\x00\x01\n"s},
    // Fields.
    {400, Get + "X : a\r\n\r\n"},
    {400, Get + ": a\r\n\r\n"},
    {400, Get + "Connection: a b\r\n\r\n"},
    // Host.
    {400, "GET / HTTP/1.1\r\n\r\n"},
    {400, Get + "hOST: b\r\n\r\n"},
    {400, "GET / HTTP/1.1\r\nHost:\r\n\r\n"},
    {400, "GET / HTTP/1.1\r\nHost: a, b\r\n\r\n"},
    {400, "GET / HTTP/1.1\r\nHost: u@a\r\n\r\n"},
    {400, "GET / HTTP/1.1\r\nHost: a/b\r\n\r\n"},
    {400, "GET / HTTP/1.1\r\nHost: a:65536\r\n\r\n"},
    {400, "GET / HTTP/1.0\r\nHost: a\r\nHost: a\r\n\r\n"},
    // Content-Length.
    {400, Post + "Content-Length: 4\r\nContent-Length: 5\r\n\r\nabcde" + Hidden},
    {400, Post + "Content-Length: 4, 4\r\n\r\nabcd"},
    {400, Post + "Content-Length: +4\r\n\r\nabcd"},
    {400, Post + "Content-Length: -4\r\n\r\n" + Hidden},
    {400, Post + "Content-Length: 0x4\r\n\r\nabcd"},
    {400, Post + "Content-Length:\r\n\r\n" + Hidden},
    {400, Post + "Content-Length: 18446744073709551620\r\n\r\nabcd" + Hidden},
    {413, Post + "Content-Length: 101\r\n\r\n"},
    // Transfer-Encoding.
    {400, Post + "Content-Length: 4\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + Hidden},
    {400, Post + "Transfer-Encoding: chunked\r\nContent-Length: 4\r\n\r\n0\r\n\r\n" + Hidden},
    {400, Post + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"},
    {400, Post + "Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n\r\n0\r\n\r\n" + Hidden},
    {501, Post + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n"},
    {501, Post + "Transfer-Encoding: chunked, identity\r\n\r\n0\r\n\r\n" + Hidden},
    {501, Post + "Transfer-Encoding: \"chunked\"\r\n\r\n0\r\n\r\n" + Hidden},
    {400, Post + "Transfer-Encoding : chunked\r\n\r\n0\r\n\r\n" + Hidden},
    {400, Post +
              "Transfer-Encoding: \x0b"
              "chunked\r\n\r\n0\r\n\r\n" +
              Hidden},
    {400, "POST / HTTP/1.0\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + Hidden},
    // Chunks.
    {400, Chunked + "4\nabcd\r\n0\r\n\r\n"},
    {400, Chunked + "4\r\nabcd0\r\n\r\n" + Hidden},
    {400, Chunked + "5\r\nabcd\r\n0\r\n\r\n" + Hidden},
    {400, Chunked + "-1\r\n" + Hidden},
    {400, Chunked + "\r\n" + Hidden},
    {400, Chunked + "100000004\r\nabcd\r\n0\r\n\r\n"},
    {400, Chunked + "4;a=\n\r\nabcd\r\n0\r\n\r\n" + Hidden},
    {400, Chunked + "0\r\nContent-Length: 5\r\n\r\n"},
    {413, Chunked + "65\r\n"},
    {417, Post + "Expect: 100-continue, x\r\nContent-Length: 4\r\n\r\n"},
};

} // namespace

TEST(Malformed, IsRefusedAndNothingAfterItIsRead) {
  RunningServer server;
  for (const auto& [status, bytes] : Table) {
    SCOPED_TRACE(bytes.substr(0, 200));
    RawClient client(server);
    const std::string answer = client.Send(bytes).ReadToEnd();
    EXPECT_EQ(answer.substr(0, 13), "HTTP/1.1 " + std::to_string(status) + " ") << answer;
    EXPECT_NE(answer.find("\r\nConnection: close\r\n"), std::string::npos) << answer;
    EXPECT_EQ(answer.find("HTTP/1.1", 1), std::string::npos) << answer;
  }
  EXPECT_EQ(server.SoFar().requests.size(), 0U);
  EXPECT_EQ(server.SoFar().refused.size(), std::size(Table));
}

} // namespace Testing
