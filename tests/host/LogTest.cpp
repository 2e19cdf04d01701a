// Logs and metrics: what a line says, what happens to lines that cannot be written, what is counted.

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "directory/Failure.h"
#include "host/Metrics.h"
#include "host/log/AccessLog.h"
#include "host/log/DecisionLog.h"
#include "support/Support.h"

namespace Host {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> Lines(const std::string& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// Waits until `holds` does, for what another thread is about to do.
template <typename Holds> bool Eventually(const Holds& holds) {
  for (int i = 0; i < 500 && !holds(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return holds();
}

Verdict Denied() {
  auto judgement = std::make_shared<Judgement>();
  judgement->outcome = Outcome::Refused;
  judgement->user_id = "al\x1b\x7f\"ice\xff";
  judgement->reason = R"(refused by "a\b")";
  judgement->decider = Decider{"readers", "^/caf\xc3\xa9", "Deny"};
  Verdict verdict;
  verdict.judgement = judgement;
  verdict.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'769'860'800'007));
  verdict.request_id = "r1";
  verdict.address = "192.0.2.7";
  verdict.method = "GET";
  verdict.path = "/a";
  verdict.microseconds = 26;
  verdict.cached = true;
  verdict.credential_accepted = false;
  return verdict;
}

} // namespace

TEST(DecisionLog, WritesALineOfAsciiWithEveryMember) {
  const Testing::TemporaryDirectory place;
  {
    DecisionLog log(place.File("log"));
    log.Write(Denied());
  }
  ASSERT_EQ(Lines(place.File("log")).size(), 1U);
  EXPECT_EQ(
      Lines(place.File("log"))[0],
      R"({"time":"2026-01-31T12:00:00.007+00:00","request_id":"r1","outcome":"refused","user_id":{"base64":"YWwbfyJpY2X/"},)"
      R"("address":"192.0.2.7","method":"GET","path":"/a","reason":"refused by \"a\\b\"","decider":{"group_id":"readers",)"
      R"("filter":"^/caf\u00e9","action":"Deny"},"microseconds":26,"cached":true})");
}

TEST(DecisionLog, KeepsTheLastThousandWithoutAFile) {
  DecisionLog log("");
  EXPECT_THAT(log.Last(), ElementsAre());
  Verdict verdict = Denied();
  for (unsigned i = 1; i <= 1003; ++i) {
    verdict.request_id = "r" + std::to_string(i);
    log.Write(verdict);
  }
  const std::vector<std::string> lines = log.Last();
  ASSERT_EQ(lines.size(), 1000U);
  EXPECT_EQ(nlohmann::json::parse(lines.front())["request_id"], "r1003");
  EXPECT_EQ(nlohmann::json::parse(lines.back())["request_id"], "r4");
}

TEST(AccessLog, LeavesTheQueryOut) {
  const Testing::TemporaryDirectory place;
  {
    AccessLog log(place.File("log"));
    Request request;
    request.method = "GET";
    request.target = "/auth?token=\x7f";
    request.peer.address = "::1";
    log.Write(request, {401, {{"x-request-id", "r1"}}, "no"}, std::chrono::microseconds(7));
    log.WriteRefused(431, Peer{});
  }
  const std::vector<std::string> lines = Lines(place.File("log"));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(
      lines[0],
      HasSubstr(
          R"("request_id":"r1","peer":"[::1]:0","tls":false,"method":"GET","path":"/auth","status":401,"bytes":2,)"));
  EXPECT_THAT(lines[1], HasSubstr(R"("method":null,"path":null,"status":431)"));
}

TEST(LogFile, LosesAndCountsWhatADiskDoesNotTake) {
  EXPECT_THROW(LogFile("/no/such/directory/log"), AccessDirectory::Failure);
  LogFile log("/dev/full");
  for (const char* const line : {"1\n", "2\n", "3\n"}) {
    log.Write(line);
  }
  EXPECT_TRUE(Eventually([&log] { return log.LinesLost() == 3; })) << log.LinesLost();
}

TEST(LogFile, NeverWaitsForAReader) {
  const Testing::TemporaryDirectory place;
  ASSERT_EQ(mkfifo(place.File("pipe").c_str(), 0600), 0);
  const int reader = open(place.File("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  LogFile log(place.File("pipe"));
  constexpr std::uint64_t Written = 100'000; // far more than a pipe and the queue take
  for (std::uint64_t i = 0; i < Written; ++i) {
    log.Write(std::string(99, 'x') + "\n");
  }
  ASSERT_TRUE(Eventually([&log] { return log.LinesLost() > Written / 2; }));
  EXPECT_LT(log.LinesLost(), Written);
  // A line that was cut short is ended, so that the next can be read.
  std::string seen;
  EXPECT_TRUE(Eventually([&] {
    std::array<char, 65536> part{};
    for (ssize_t count = 0; (count = read(reader, part.data(), part.size())) > 0;) {
      seen.append(part.data(), static_cast<std::size_t>(count));
    }
    log.Write("next\n");
    return seen.find("x\nnext\n") != std::string::npos;
  })) << seen.size();
  close(reader);
}

TEST(LogFile, GoesOnInAFileOfItsNameWhenAsked) {
  const Testing::TemporaryDirectory place;
  LogFile log(place.File("log"));
  log.Write("before\n");
  ASSERT_TRUE(Eventually([&] { return Lines(place.File("log")).size() == 1; }));
  std::filesystem::rename(place.File("log"), place.File("log.1"));
  log.Write("between\n");
  log.Reopen();
  ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(place.File("log")); }));
  log.Write("after\n");
  EXPECT_TRUE(Eventually([&] { return !Lines(place.File("log")).empty(); }));
  EXPECT_THAT(Lines(place.File("log.1")), ElementsAre("before", "between"));
  EXPECT_THAT(Lines(place.File("log")), ElementsAre("after"));
}

TEST(Metrics, SumsWhatThreadsCount) {
  Metrics metrics;
  for (int i = 0; i < 2; ++i) {
    std::thread([&counters = metrics.ForThread()] { counters.Count(Denied()); }).join();
  }
  const std::string text = metrics.Text({7, 8, {{"users", 9}}, std::nullopt});
  for (const char* const line :
       {"perenna_decisions_total{outcome=\"refused\"} 2\n", "perenna_decisions_total{outcome=\"allowed\"} 0\n",
        "perenna_decision_seconds_bucket{le=\"2.5e-05\"} 0\n", "perenna_decision_seconds_bucket{le=\"5e-05\"} 2\n",
        "perenna_decision_seconds_bucket{le=\"+Inf\"} 2\n", "perenna_decision_seconds_sum 5.2e-05\n",
        "perenna_decision_seconds_count 2\n", "perenna_cache_hits_total 2\n",
        "perenna_credential_checks_total{result=\"rejected\"} 2\n", "perenna_log_lines_lost_total 7\n",
        "perenna_connections 8\n", "perenna_directory_rows{table=\"users\"} 9\n"}) {
    EXPECT_THAT(text, HasSubstr(line));
  }
}

} // namespace Host
