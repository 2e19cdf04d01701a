// What a decision costs in itself, without transport: the module's two questions asked alone, and the judge that asks
// them, by turns on one thread.
//   perenna-decisions DATABASE [SECONDS]
// Asks for user1 and user2 with the passwords secret1 and secret2. Prints processor microseconds: the module, the judge
// that remembers nothing, the judge that remembers (each request a group of its own, so that each looks at the
// version).

#include <algorithm>
#include <array>
#include <ctime>
#include <functional>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>

#include "LocalAccessManager.h"
#include "host/decision/Judge.h"
#include "host/decision/watch/CallWatch.h"

namespace {

constexpr unsigned CallsInATurn = 20;
const std::string path = "/articles/7";

double ProcessorMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

void Require(bool is_allowed, const char* who) {
  if (!is_allowed) {
    throw std::runtime_error(std::string(who) + " does not allow " + path);
  }
}

/// A judge with so much memory, and its context.
struct Judging {
  static Host::Configuration Settings(const std::string& file, std::size_t decisions) {
    Host::Configuration settings;
    settings.database_filename = file;
    settings.cached_decisions = decisions;
    settings.throttle = {5, 60, 30};
    return settings;
  }
  Judging(const std::string& file, std::size_t decisions) : context(Settings(file, decisions), 1, [] {}) {}

  void Ask(unsigned number) {
    Host::Question question;
    question.method = Perenna::METH_GET;
    question.method_name = "GET";
    question.target = path;
    question.credentials.kind = Host::Credentials::Kind::Password;
    question.credentials.user_id = "user" + std::to_string(number);
    question.credentials.password = "secret" + std::to_string(number);
    question.address = "192.0.2.7";
    question.request_id = "0123456789abcdef0123456789abcdef";
    question.for_proxy = true;
    judge.BeginGroup();
    Require(judge.Decide(std::move(question)).What() == Host::Outcome::Allowed, "the judge");
  }

  Host::DecisionContext context;
  Host::Judge judge{context};
};

} // namespace

int main(int argc, char* argv[]) try {
  if (argc < 2) {
    std::cerr << "usage: perenna-decisions DATABASE [SECONDS]\n";
    return 2;
  }
  Host::WatchSqliteErrors();
  Tarn::ILogSink* const plain = Tarn::SetDefaultLogSink(nullptr);
  Host::WatchedLog watched(nullptr);
  LocalAccessManager::UserManager module;
  Perenna::PListDict section;
  section.SetValue(LocalAccessManager::Strings::DatabaseFilename, std::string(argv[1]));
  Require(!module.InitUserManager(section).Failed(), "the module");
  Judging forgetful(argv[1], 0);
  Judging remembering(argv[1], 1000);

  const auto ask_module = [&module](unsigned number) {
    const std::string user = "user" + std::to_string(number);
    const Perenna::HTTPRequest request(Perenna::METH_GET, path);
    Require(module.TestUserIdAndPassword(request, user, "secret" + std::to_string(number)) &&
                module.TestRequestForUser(request, user),
            "the module");
  };
  struct Side {
    Tarn::ILogSink* sink;
    std::function<void(unsigned)> ask;
    double best = std::numeric_limits<double>::max();
  };
  std::array<Side, 3> sides = {Side{plain, ask_module},
                               Side{&watched, [&forgetful](unsigned number) { forgetful.Ask(number); }},
                               Side{&watched, [&remembering](unsigned number) { remembering.Ask(number); }}};
  // Other work on the machine only adds: of many short turns the cheapest is the one that counts.
  const std::time_t end = std::time(nullptr) + (argc > 2 ? std::stol(argv[2]) : 2);
  while (std::time(nullptr) < end) {
    for (Side& side : sides) {
      Tarn::SetDefaultLogSink(side.sink);
      const double begin = ProcessorMicroseconds();
      for (unsigned call = 0; call < CallsInATurn; ++call) {
        side.ask(1 + call % 2);
      }
      side.best = std::min(side.best, (ProcessorMicroseconds() - begin) / CallsInATurn);
    }
  }
  Tarn::SetDefaultLogSink(nullptr);
  std::cout << sides[0].best << ' ' << sides[1].best << ' ' << sides[2].best << '\n';
} catch (const std::exception& error) {
  std::cerr << "perenna-decisions: " << error.what() << '\n';
  return 1;
}
