// Self access keys and the callback that stamps calls with them.

#include "LocalAccessManager.h"

#include <atomic>
#include <functional>
#include <list>
#include <random>

#include <gmock/gmock.h>

#include "support/HostileMachine.h"
#include "support/Support.h"

using namespace Testing;
using LocalAccessManager::SelfAccessManager;

namespace {

constexpr std::int64_t Start = 1'800'000'000;

std::atomic<std::int64_t> s_now{Start};
std::atomic<Tarn::byte_t> s_random{0};

class SelfAccess : public ::testing::Test {
protected:
  SelfAccess() {
    s_random = 0;
    SetClock([]() noexcept { return s_now.load(); });
  }
  Tarn::UUID KeyAt(std::int64_t second) {
    s_now = second;
    Tarn::UUID key;
    store.CreateSelfAccessKey(key);
    return key;
  }
  bool ResolvesAt(std::int64_t second, const Tarn::UUID& key) {
    s_now = second;
    return store.ResolveSelfAccessKey(key);
  }

  SelfAccessManager store;
};

} // namespace

TEST_F(SelfAccess, AKeyResolvesOnceWithinTenWholeSecondsOfItsIssue) {
  const std::vector<std::pair<std::int64_t, bool>> ages = {{0, true},     {1, true},   {10, true},     {11, false},
                                                           {1000, false}, {-1, false}, {-Start, false}};
  for (const auto& [age, expected] : ages) {
    const Tarn::UUID key = KeyAt(Start);
    EXPECT_EQ(ResolvesAt(Start + age, key), expected) << age;
    EXPECT_FALSE(ResolvesAt(Start, key)) << "used, expired or of the future, it is gone; age " << age;
  }
}

// Whatever the clock does, and with keys that come up twice, nobody can tell the index from this.
TEST_F(SelfAccess, EveryAnswerIsThatOfAWalkOverTheWholeList) {
  constexpr unsigned Seed = 20261125;
  std::mt19937 random(Seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
  const auto below = [&random](unsigned limit) { return static_cast<Tarn::byte_t>(random() % limit); };
  SetRandom([](Tarn::byte_t* buffer, unsigned count) noexcept {
    std::fill_n(buffer, count, s_random.load());
    return true;
  });
  std::list<std::pair<Tarn::UUID, std::int64_t>> walked;
  s_now = Start;
  for (int step = 0; step < 200000; ++step) {
    s_now += below(20) == 0 ? below(13) - (below(8) == 0 ? 12 : 0) : 0;
    s_random = below(40);
    if (random() % (step / 1000 % 2 == 0 ? 3 : 500) == 0) {
      Tarn::UUID key;
      std::fill_n(key.m_Value, Tarn::UUID_Length, s_random.load());
      bool expected = false;
      walked.remove_if([&](const auto& entry) {
        const bool fresh = s_now >= entry.second && s_now - entry.second <= 10;
        expected = expected || (fresh && entry.first == key);
        return !fresh || entry.first == key;
      });
      ASSERT_EQ(store.ResolveSelfAccessKey(key), expected) << "seed " << Seed << ", step " << step;
    } else {
      Tarn::UUID key;
      store.CreateSelfAccessKey(key);
      walked.emplace_back(key, s_now);
    }
  }
}

TEST_F(SelfAccess, KeysAreComparedByTheirBytesAndEqualOnesConsumedTogether) {
  SetRandom([](Tarn::byte_t* buffer, unsigned count) noexcept {
    std::fill_n(buffer, count, s_random.load());
    return true;
  });
  Tarn::UUID key;
  ASSERT_TRUE(key.DecodeHex("00112233-4455-6677-8899-aabbccddeeff"));
  store.CreateSelfAccessKey(key);
  EXPECT_EQ(key, Tarn::UUID()) << "the caller's identifier is overwritten";
  store.CreateSelfAccessKey(key);
  s_random = 7;
  store.CreateSelfAccessKey(key);
  EXPECT_TRUE(store.ResolveSelfAccessKey(Tarn::UUID()))
      << "whether an identifier says that it has a value is no matter";
  EXPECT_FALSE(store.ResolveSelfAccessKey(Tarn::UUID()));
  EXPECT_TRUE(store.ResolveSelfAccessKey(key));
}

TEST_F(SelfAccess, EveryOperationWaitsForOneThatIsAtWork) {
  static std::function<void()> s_meanwhile; // once, while the clock is read under the lock
  static std::atomic<bool> s_armed{false};
  SetClock([]() noexcept {
    s_armed.exchange(false) ? s_meanwhile() : void();
    return Start;
  });
  Tarn::UUID key = KeyAt(Start);
  for (const std::function<void()>& act : std::vector<std::function<void()>>{
           [this] { KeyAt(Start); }, [&, key] { EXPECT_TRUE(store.ResolveSelfAccessKey(key)); },
           [this] { EXPECT_EQ(store.Flush(), Tarn::RESULT_OK); }}) {
    Rivals rivals;
    bool waited = false;
    s_meanwhile = [&] { waited = rivals.Wait(act); };
    s_armed = true;
    store.CreateSelfAccessKey(key);
    EXPECT_TRUE(waited);
  }
  EXPECT_FALSE(store.ResolveSelfAccessKey(key)) << "flushed";
}

TEST_F(SelfAccess, CallsAreStampedWithKeysThatResolveOnceAndNoHeaderIsReplaced) {
  CaptureLog log;
  LocalAccessManager::SelfAuthRestCallback callback;
  SelfAccessManager* process_store = &store;
  EXPECT_FALSE(LocalAccessManager::GetSelfAccessManager(process_store));
  EXPECT_EQ(process_store, &store);
  Perenna::BasicRestEntryCall unstamped(Perenna::METH_GET);
  EXPECT_EQ(callback.Call(unstamped), Tarn::RESULT_OK);
  EXPECT_TRUE(unstamped.RequestHeaders.empty());
  EXPECT_EQ(TakeText(log), "E:Unable to request self-access key.\n");

  ASSERT_EQ(LocalAccessManager::InitSelfAccessManager(Dict({{"LocalAccessManager", "no section"}})), Tarn::RESULT_OK);
  ASSERT_TRUE(LocalAccessManager::GetSelfAccessManager(process_store));
  for (int i = 0; i < 2; ++i) {
    Perenna::BasicRestEntryCall call(Perenna::METH_POST);
    EXPECT_EQ(callback.Call(call), Tarn::RESULT_OK);
    ASSERT_EQ(call.RequestHeaders.size(), 1U);
    const auto& [name, text] = *call.RequestHeaders.begin();
    EXPECT_EQ(name, "x-pn-SelfCallbackId");
    EXPECT_THAT(text, ::testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
    Tarn::UUID key;
    EXPECT_TRUE(key.DecodeHex(text.c_str()));
    EXPECT_TRUE(process_store->ResolveSelfAccessKey(key)) << text;
    EXPECT_FALSE(process_store->ResolveSelfAccessKey(key)) << text;
  }
  Perenna::BasicRestEntryCall stamped(Perenna::METH_GET, {}, {{"X-PN-SELFCALLBACKID", "mine"}});
  EXPECT_EQ(callback.Call(stamped), Tarn::RESULT_OK);
  EXPECT_EQ(stamped.RequestHeaders, (Perenna::HeaderSet{{"X-PN-SELFCALLBACKID", "mine"}}));
  EXPECT_EQ(TakeText(log), "");
}
