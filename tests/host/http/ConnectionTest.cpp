#include <gtest/gtest.h>

#include <chrono>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "host/http/RunningServer.h"

namespace Testing {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const std::string End = " HTTP/1.1\r\nHost: a\r\n\r\n";

struct Exchange {
  std::string request;
  std::string answer; // begins so
  std::string body;
  bool kept;
};

} // namespace

TEST(Connection, StaysOpenExactlyWhenBothSidesWantIt) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string head = " HTTP/1.1\r\nHost: [::1]:8400\r\n";
  const Exchange table[] = {
      {"GET /a" + End, ok, "GET /a \n", true},
      {"get http://b/%2e?x=1" + End, ok, "get http://b/%2e?x=1 \n", true},
      {"GET /a" + head + "Connection: x, Close\r\n\r\n", ok, "GET /a \n", false},
      {"GET /a HTTP/1.0\r\n\r\n", ok, "GET /a \n", false},
      {"GET /a HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", ok, "GET /a \n", true},
      {"GET /a" + head + "Upgrade: websocket\r\nConnection: upgrade\r\n\r\n", ok, "GET /a \n", true},
      {"POST /a" + head + "Content-Length: 3\r\n\r\nabc", ok, "POST /a abc\n", true},
      {"POST /a" + head + "Transfer-Encoding: Chunked\r\n\r\n2\r\nab\r\n01\r\nc\r\n0\r\n\r\n", ok, "POST /a abc\n",
       true},
      {"POST /ignore" + head + "Content-Length: 3\r\n\r\nabc", ok, "POST /ignore \n", true},
      {"POST /ignore" + head + "Content-Length: 3\r\n\r\nab", ok, "POST /ignore \n", false},
      {"POST /ignore" + head + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", ok, "POST /ignore \n", true},
      {"POST /ignore" + head + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", ok, "POST /ignore \n", false},
      {"POST /ignore" + head + "Expect: 100-continue\r\nContent-Length: 3\r\n\r\n", ok, "POST /ignore \n", false},
      {"GET /throw" + End, "HTTP/1.1 500 ", "500 Internal Server Error\n", false},
      {"GET /inject" + End, "HTTP/1.1 500 ", "500 Internal Server Error\n", false},
  };
  CaptureLog log;
  RunningServer server;
  for (const auto& [request, begin, body, kept] : table) {
    SCOPED_TRACE(request);
    RawClient client(server);
    const std::string answer = client.Send(request).ReadAnswer();
    EXPECT_EQ(answer.substr(0, begin.size()), begin);
    EXPECT_EQ(Body(answer), body);
    EXPECT_EQ(answer.find("\r\nConnection: close\r\n") == std::string::npos, kept) << answer;
    EXPECT_EQ(Body(client.Send("GET /next" + End).ReadAnswer()) == "GET /next \n", kept);
  }
}

TEST(Connection, AnswersPipelinedRequestsInOrderHoweverTheyArrive) {
  RunningServer server;
  const std::string both = "POST /1 HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\n\r\nxyHEAD /2" + End + "GET /3" + End;
  RawClient at_once(server);
  RawClient by_bytes(server);
  at_once.Send(both);
  for (const char byte : both) {
    by_bytes.Send({&byte, 1});
  }
  for (auto* client : {&at_once, &by_bytes}) {
    EXPECT_EQ(Body(client->ReadAnswer()), "POST /1 xy\n");
    EXPECT_NE(client->ReadAnswer(false).find("\r\nContent-Length: 9\r\n"), std::string::npos);
    EXPECT_EQ(Body(client->ReadAnswer()), "GET /3 \n");
  }
}

TEST(Connection, WaitsForALateAnswerAndServesOthersMeanwhile) {
  RunningServer server;
  RawClient late(server);
  { RawClient(server).Send("GET /late" + End); } // and goes away
  late.Send("HEAD /late" + End + "GET /after" + End);
  ::usleep(50000);
  EXPECT_EQ(Body(RawClient(server).Send("GET /now" + End).ReadAnswer()), "GET /now \n");
  server->Drain(milliseconds(5000)); // which lets it have its answer
  EXPECT_NE(late.ReadAnswer(false).find("\r\nContent-Length: 12\r\n"), std::string::npos);
  EXPECT_EQ(late.ReadToEnd(), "");
  server->Join();
}

TEST(Connection, IsToldToGoOnOnlyWhenItsBodyIsWanted) {
  RunningServer server;
  RawClient client(server);
  client.Send("POST /a HTTP/1.1\r\nHost: a\r\nExpect: 100-Continue\r\nContent-Length: 2\r\n\r\n");
  char buffer[25];
  ASSERT_EQ(::recv(client.Handle(), buffer, sizeof buffer, MSG_WAITALL), 25);
  EXPECT_EQ(std::string(buffer, 25), "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_EQ(Body(client.Send("xy").ReadAnswer()), "POST /a xy\n");
  RawClient greedy(server);
  greedy.Send("POST /a HTTP/1.1\r\nHost: a\r\nExpect: 100-continue\r\nContent-Length: 2000\r\n\r\n");
  EXPECT_EQ(greedy.ReadToEnd().substr(0, 13), "HTTP/1.1 413 ");
}

TEST(Connection, RequestsReadInOneTurnAreOneGroup) {
  RunningServer server;
  RawClient slow(server);
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 8; ++i) {
    clients.push_back(std::make_unique<RawClient>(server));
    clients.back()->Send("GET /warm" + End).ReadAnswer();
  }
  slow.Send("GET /slow" + End);
  ::usleep(50000);
  for (const auto& client : clients) {
    client->Send("GET /a" + End);
  }
  for (const auto& client : clients) {
    EXPECT_EQ(Body(client->ReadAnswer()), "GET /a \n");
  }
  EXPECT_EQ(server.SoFar().groups.back(), 8U);
}

TEST(Connection, SlowOnesAreEndedWhileOthersAreServed) {
  auto settings = RunningServer::Settings();
  settings.idle = milliseconds(1200);
  settings.linger = milliseconds(60000);
  RunningServer server(settings);
  RawClient head(server);
  RawClient body(server);
  RawClient reader(server);
  RawClient other(server);
  head.Send("GET /a HTTP/1.1\r\nHost");
  body.Send("POST /a HTTP/1.1\r\nHost: a\r\nContent-Length: 99\r\n\r\n1");
  reader.Send("GET /big" + End);
  const auto start = Clock::now();
  for (; server.SoFar().refused.size() < 2 && Clock::now() - start < milliseconds(4000); ::usleep(50000)) {
    head.Send(":");
    body.Send("2");
    EXPECT_EQ(Body(other.Send("GET /a" + End).ReadAnswer()), "GET /a \n");
  }
  ::usleep(50000);
  EXPECT_EQ(server->Connections(), 3U) << "the reader's is gone, those refused linger";
  EXPECT_EQ(head.ReadToEnd().substr(0, 13), "HTTP/1.1 408 ");
  EXPECT_EQ(body.ReadToEnd().substr(0, 13), "HTTP/1.1 408 ");
  EXPECT_NE(reader.ReadToEnd().find("(reset)"), std::string::npos);
  EXPECT_EQ(other.ReadToEnd(), "") << "idle for too long";
  EXPECT_EQ(server.SoFar().refused, (std::vector<unsigned>{408, 408}));
}

TEST(Connection, IdleOnesMakeRoomForNewOnes) {
  auto settings = RunningServer::Settings();
  settings.connections = 3;
  settings.idle = settings.request = milliseconds(60000);
  RunningServer server(settings);
  RawClient reading(server);
  reading.Send("GET /a HTTP/1.1\r\nHost: a\r\n");
  RawClient oldest(server);
  oldest.Send("GET /a" + End).ReadAnswer();
  RawClient used(server);
  used.Send("GET /a" + End).ReadAnswer();
  RawClient newest(server);
  EXPECT_EQ(Body(newest.Send("GET /a" + End).ReadAnswer()), "GET /a \n");
  EXPECT_EQ(oldest.ReadToEnd(), "");
  EXPECT_EQ(Body(used.Send("GET /a" + End).ReadAnswer()), "GET /a \n");
  EXPECT_EQ(Body(reading.Send("\r\n").ReadAnswer()), "GET /a \n");
  EXPECT_EQ(server->Connections(), 3U);
}

TEST(Connection, IsAnsweredWhileTheServerDrains) {
  RunningServer server;
  RawClient idle(server);
  RawClient busy(server);
  idle.Send("GET /a" + End).ReadAnswer();
  busy.Send("POST /slow HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\n\r\nx");
  ::usleep(50000);
  server->Drain(milliseconds(5000));
  EXPECT_EQ(idle.ReadToEnd(), "");
  EXPECT_THROW(RawClient late(server), std::runtime_error);
  const std::string answer = busy.Send("y").ReadToEnd();
  EXPECT_EQ(Body(answer), "POST /slow xy\n");
  EXPECT_NE(answer.find("\r\nConnection: close\r\n"), std::string::npos);
  ::shutdown(busy.Handle(), SHUT_WR);
  server->Join();
  EXPECT_EQ(server->Connections(), 0U);
}

TEST(Connection, SocketFilesAreReplacedOnlyWhenStale) {
  const TemporaryDirectory place;
  const std::string path = place.File("s");
  const auto settings = RunningServer::Settings("unix:" + path);
  const Host::FileDescriptor stale(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  ASSERT_EQ(::bind(stale.Get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  {
    RunningServer server(settings);
    struct stat found {};
    ASSERT_EQ(::stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777U, 0660U);
    EXPECT_THROW(RunningServer second(settings), AccessDirectory::Failure);
    RawClient client(server);
    EXPECT_EQ(Body(client.Send("GET /a" + End).ReadAnswer()), "GET /a \n");
    EXPECT_TRUE(server.SoFar().requests.front().peer.unix_domain);
    EXPECT_EQ(server.SoFar().requests.front().peer.user, ::getuid());
  }
  EXPECT_NE(::access(path.c_str(), F_OK), 0) << "removed at the end";
  EXPECT_THROW(RunningServer(RunningServer::Settings("unix:/dev/null")), AccessDirectory::Failure);
}

} // namespace Testing
