// No answer that was not true at some moment between its request and itself, whatever is changed meanwhile.

#include <atomic>
#include <chrono>
#include <thread>

#include "host/decision/JudgedDirectory.h"
#include "platform/Helpers.h"

using namespace Testing;

namespace {

using Clock = std::chrono::steady_clock;

/// What the changes switch: memberships in a group that allows and in one that denies, a filter that allows to all, and
/// which of two passwords is the user's.
struct State {
  bool is_allowed_member = false;
  bool is_denied_member = false;
  bool has_wide_filter = false;
  bool has_first_password = false;

  Host::Outcome Judge(bool with_first_password, bool is_wide) const {
    if (with_first_password != has_first_password) {
      return Host::Outcome::Unauthenticated;
    }
    const bool grants = is_allowed_member && (has_wide_filter || !is_wide);
    return grants && !is_denied_member ? Host::Outcome::Allowed : Host::Outcome::Refused;
  }
};

/// A state, true from some moment after `begin` until some moment before the next one's `committed`.
struct Era {
  State state;
  Clock::time_point begin;
  Clock::time_point committed;
};

struct Exchange {
  bool with_first_password;
  bool is_wide;
  Clock::time_point asked;
  Clock::time_point answered;
  Host::Outcome outcome;
};

class History : public JudgedDirectory {
protected:
  /// Flips something in one transaction, on a connection of its own.
  static void Change(BareDatabase& writer, Random& random, State& state) {
    const auto flip = [&](bool& value, const std::string& set, const std::string& unset) {
      value = !value;
      writer.Run("BEGIN IMMEDIATE;" + (value ? set : unset) + ";COMMIT");
    };
    switch (random.Below(8)) {
    case 0:
      return flip(state.is_allowed_member, "INSERT INTO groupusers VALUES ('allowed', 'u')",
                  "DELETE FROM groupusers WHERE group_id = 'allowed'");
    case 1:
      return flip(state.is_denied_member, "INSERT INTO groupusers VALUES ('denied', 'u')",
                  "DELETE FROM groupusers WHERE group_id = 'denied'");
    case 2:
      return flip(state.has_wide_filter, "INSERT INTO filters VALUES ('GET', 'allowed', '^/wide', 'Allow')",
                  "DELETE FROM filters WHERE filter = '^/wide'");
    default: { // credential and membership at once: a decision out of two states would mix them
      state.is_allowed_member = !state.is_allowed_member;
      const std::string member = state.is_allowed_member ? "INSERT INTO groupusers VALUES ('allowed', 'u')"
                                                         : "DELETE FROM groupusers WHERE group_id = 'allowed'";
      return flip(state.has_first_password, "UPDATE users SET auth_value = '1' WHERE user_id = 'u';" + member,
                  "UPDATE users SET auth_value = '2' WHERE user_id = 'u';" + member);
    }
    }
  }

  void RunFor(std::chrono::milliseconds duration);
};

void History::RunFor(std::chrono::milliseconds duration) {
  Random random;
  SCOPED_TRACE(random.Trace());
  AddStoredUser("u", "plain_pw", "2");
  AddFilter("GET allowed ^/narrow Allow");
  AddFilter("GET denied ^/ Deny");
  TheJudge();

  std::atomic<bool> is_over{false};
  std::vector<Era> eras(1);
  std::thread changes([&] {
    BareDatabase writer(File());
    writer.Run("PRAGMA busy_timeout = 5000; PRAGMA synchronous = OFF");
    Random choices{nullptr, random.seed};
    while (!is_over) {
      Era era = eras.back();
      era.begin = Clock::now();
      Change(writer, choices, era.state);
      era.committed = Clock::now();
      eras.push_back(era);
      std::this_thread::sleep_for(std::chrono::microseconds(choices.Below(300)));
    }
  });
  std::vector<Exchange> exchanges;
  for (const auto end = Clock::now() + duration; Clock::now() < end;) {
    Exchange exchange{};
    exchange.with_first_password = random.Below(2) == 0;
    exchange.is_wide = random.Below(2) == 0;
    exchange.asked = Clock::now();
    exchange.outcome =
        Ask(exchange.is_wide ? "GET /wide" : "GET /narrow", exchange.with_first_password ? "u:1" : "u:2").What();
    exchange.answered = Clock::now();
    exchanges.push_back(exchange);
  }
  is_over = true;
  changes.join();

  std::size_t answers = 0;
  std::size_t first = 0; // the oldest era that may still have been true
  for (const Exchange& exchange : exchanges) {
    if (exchange.outcome == Host::Outcome::Unavailable) {
      continue;
    }
    ++answers;
    while (first + 1 < eras.size() && eras[first + 1].committed < exchange.asked) {
      ++first;
    }
    bool was_true = false;
    for (std::size_t i = first; i < eras.size() && eras[i].begin <= exchange.answered; ++i) {
      was_true = was_true || eras[i].state.Judge(exchange.with_first_password, exchange.is_wide) == exchange.outcome;
    }
    ASSERT_TRUE(was_true) << Host::OutcomeName(exchange.outcome) << " was never true; era " << first << " of "
                          << eras.size();
  }
  EXPECT_GT(answers, exchanges.size() / 2);
  EXPECT_GT(eras.size(), 100U);
}

} // namespace

TEST_F(History, EveryAnswerWasTrueWhileItWasAskedFor) {
  RunFor(std::chrono::seconds(2));
}

TEST_F(History, EveryAnswerWasTrueWhileItWasAskedForWithAWriteAheadLog) {
  Run("PRAGMA journal_mode = WAL");
  RunFor(std::chrono::seconds(2));
}
