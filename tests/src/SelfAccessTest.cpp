// Self access keys and the callback that stamps calls with them.

#include "LocalAccessManager.h"

#include <atomic>

#include "support/Support.h"

using namespace Testing;
using LocalAccessManager::SelfAccessManager;

namespace {

constexpr std::int64_t Start = 1'800'000'000;

std::atomic<std::int64_t> s_now{Start};
std::atomic<Tarn::byte_t> s_random{0};

bool SameByte(Tarn::byte_t* buffer, unsigned count) noexcept {
  std::fill_n(buffer, count, s_random.load());
  return true;
}

class SelfAccess : public ::testing::Test {
protected:
  SelfAccess() {
    Tarn::SetSources({[]() noexcept { return s_now.load(); }, nullptr});
  }
  ~SelfAccess() override { Tarn::SetSources({nullptr, nullptr}); }

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
  const std::vector<std::pair<std::int64_t, bool>> ages = {
      {0, true}, {1, true}, {10, true}, {11, false}, {1000, false}, {-1, false}, {-1000000, false}, {-Start, false}};
  for (const auto& [age, expected] : ages) {
    const Tarn::UUID key = KeyAt(Start);
    EXPECT_EQ(ResolvesAt(Start + age, key), expected) << age;
    EXPECT_FALSE(ResolvesAt(Start, key)) << "used, expired or of the future, it is gone; age " << age;
  }
}

TEST_F(SelfAccess, EveryResolveDropsExpiredKeysAndKeepsTheOthers) {
  const Tarn::UUID old = KeyAt(Start);
  const Tarn::UUID young = KeyAt(Start + 5);
  const Tarn::UUID last = KeyAt(Start + 11);
  EXPECT_FALSE(ResolvesAt(Start + 11, Tarn::UUID()));
  EXPECT_FALSE(ResolvesAt(Start + 5, old)); // this clock reading finds `last` in the future
  EXPECT_TRUE(ResolvesAt(Start + 5, young));
  EXPECT_FALSE(ResolvesAt(Start + 11, last));
}

TEST_F(SelfAccess, KeysAreComparedByTheirBytesAndEqualOnesConsumedTogether) {
  Tarn::SetSources({[]() noexcept { return s_now.load(); }, &SameByte});
  s_now = Start;
  Tarn::UUID key;
  const Tarn::byte_t before[Tarn::UUID_Length] = {1, 2, 3};
  key.Set(before);
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

TEST_F(SelfAccess, KeysNobodyResolvesStayUntilTheFlush) {
  std::vector<Tarn::UUID> keys(1000);
  for (Tarn::UUID& key : keys) {
    store.CreateSelfAccessKey(key);
  }
  EXPECT_TRUE(store.ResolveSelfAccessKey(keys.front()));
  EXPECT_TRUE(store.ResolveSelfAccessKey(keys.back()));
  EXPECT_EQ(store.Flush(), Tarn::RESULT_OK);
  for (const Tarn::UUID& key : keys) {
    EXPECT_FALSE(store.ResolveSelfAccessKey(key));
  }
}

TEST_F(SelfAccess, WithoutAStoreACallGoesOutUnstamped) {
  SelfAccessManager* untouched = &store;
  EXPECT_FALSE(LocalAccessManager::GetSelfAccessManager(untouched));
  EXPECT_EQ(untouched, &store);
  CaptureLog log;
  Perenna::BasicRestEntryCall call(Perenna::METH_GET);
  EXPECT_EQ(LocalAccessManager::SelfAuthRestCallback().Call(call), Tarn::RESULT_OK);
  EXPECT_TRUE(call.RequestHeaders.empty());
  EXPECT_EQ(log.Take(), Lines{ErrorLine("Unable to request self-access key.\n")});
}

TEST_F(SelfAccess, EachCallIsStampedWithAKeyThatResolvesOnceAndNoHeaderIsReplaced) {
  s_now = Start;
  ASSERT_EQ(LocalAccessManager::InitSelfAccessManager(Dict({{"LocalAccessManager", "no section"}})), Tarn::RESULT_OK);
  SelfAccessManager* first = nullptr;
  SelfAccessManager* process_store = nullptr;
  ASSERT_TRUE(LocalAccessManager::GetSelfAccessManager(first));
  ASSERT_EQ(LocalAccessManager::InitSelfAccessManager({}), Tarn::RESULT_OK);
  ASSERT_TRUE(LocalAccessManager::GetSelfAccessManager(process_store));
  EXPECT_EQ(first, process_store);

  CaptureLog log;
  LocalAccessManager::SelfAuthRestCallback callback;
  for (int i = 0; i < 2; ++i) {
    Perenna::BasicRestEntryCall call(Perenna::METH_POST);
    EXPECT_EQ(callback.Call(call), Tarn::RESULT_OK);
    ASSERT_EQ(call.RequestHeaders.count("X-PN-SELFCALLBACKID"), 1U);
    ASSERT_EQ(call.RequestHeaders.begin()->first, "x-pn-SelfCallbackId");
    const std::string text = call.RequestHeaders.begin()->second;
    EXPECT_THAT(text, ::testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
    Tarn::UUID key;
    ASSERT_TRUE(key.DecodeHex(text.c_str()));
    EXPECT_TRUE(process_store->ResolveSelfAccessKey(key));
    EXPECT_FALSE(process_store->ResolveSelfAccessKey(key)) << text;
  }
  Perenna::BasicRestEntryCall stamped(Perenna::METH_GET, {}, {{"X-PN-SELFCALLBACKID", "mine"}});
  EXPECT_EQ(callback.Call(stamped), Tarn::RESULT_OK);
  EXPECT_EQ(stamped.RequestHeaders, (Perenna::HeaderSet{{"X-PN-SELFCALLBACKID", "mine"}}));
  EXPECT_EQ(log.Take(), Lines{});
}
