// Time stamps, files, byte buffers, random values.

#include <ctime>
#include <set>
#include <thread>

#include "Helpers.h"
#include "TN_memio.h"
#include "TN_mutex.h"
#include "TN_util.h"
#include "support/HostileMachine.h"

static std::int64_t s_now = 0;

TEST(Timestamps, HoldTheTimeOfTheirConstructionAndEncodeItInUtc) {
  Testing::SetClock([]() noexcept { return s_now++; });
  const Tarn::Timestamp first;
  EXPECT_EQ(Tarn::Timestamp().GetCTime() - first.GetCTime(), 1);
  Testing::SetClock(nullptr);
  const std::int64_t before = std::time(nullptr);
  EXPECT_GE(Tarn::Timestamp().GetCTime(), before) << "null restores the system's clock";
  EXPECT_LE(Tarn::Timestamp().GetCTime(), std::time(nullptr));
  using Known = std::pair<std::int64_t, const char*>;
  const Known known[] = {{0, "1970-01-01T00:00:00+00:00"},
                         {-1, "1969-12-31T23:59:59+00:00"},
                         {951827696, "2000-02-29T12:34:56+00:00"},
                         {-30610224000, "1000-01-01T00:00:00+00:00"},
                         {253402300800, nullptr},
                         {253402300799, "9999-12-31T23:59:59+00:00"},
                         {-62135596800, "0001-01-01T00:00:00+00:00"},
                         {-62167219201, nullptr},
                         {INT64_MIN, nullptr},
                         {INT64_MAX, nullptr}};
  for (const auto& [seconds, text] : known) {
    char buffer[Tarn::DateTimeLen + 1] = "x";
    EXPECT_STREQ(Tarn::Timestamp(seconds).EncodeString(buffer, sizeof(buffer)), text);
    EXPECT_STREQ(buffer, text == nullptr ? "" : text) << seconds;
    EXPECT_EQ(Tarn::Timestamp(seconds).EncodeString(buffer, sizeof(buffer) - 1), nullptr);
    EXPECT_STREQ(buffer, "") << seconds;
  }
}

TEST(Files, OnlyRegularFilesCount) {
  const Testing::TemporaryDirectory directory;
  Testing::Output("cd '" + directory.Path() + "' && echo x >file && ln -s file link && ln -s absent dangling");
  for (const std::string name : {"file", "link", "dangling", "absent", "file/x", "."}) {
    EXPECT_EQ(Tarn::PathIsFile(directory.File(name)), name == "file" || name == "link") << name;
  }
  EXPECT_FALSE(Tarn::PathIsFile(directory.File("file") + std::string("\0x", 2)));
  EXPECT_FALSE(Tarn::PathIsFile("") || Tarn::PathIsFile("/dev/null"));
}

TEST(ByteStrings, GrowKeepTheirContentsAndNeverShrink) {
  Tarn::ByteString bytes;
  EXPECT_EQ(bytes.Set(nullptr, 0), Tarn::RESULT_OK);
  EXPECT_EQ(bytes.Set(Testing::Octets("abcdef"), 6), Tarn::RESULT_OK);
  EXPECT_EQ(bytes.Capacity(100000), Tarn::RESULT_OK);
  EXPECT_EQ(bytes.Capacity(10), Tarn::RESULT_OK);
  EXPECT_EQ(bytes.Set(bytes.RoData() + 2, 3), Tarn::RESULT_OK) << "from itself";
  EXPECT_EQ(bytes.Length(100001), Tarn::RESULT_PARAM);
  EXPECT_EQ(std::string(bytes.RoData(), bytes.RoData() + bytes.Length()), "cde");
  EXPECT_EQ(bytes.Length(100000), Tarn::RESULT_OK);
  bytes.Data()[99999] = 'x';
}

TEST(RandomValues, OfSeveralThreadsDifferAndAFailingSourceEndsTheProcess) {
  Tarn::Mutex mutex; // guards the values
  std::set<std::string> values;
  const auto draw = [&mutex, &values](auto id) {
    for (int i = 0; i < 500; ++i) {
      Tarn::GenRandomValue(id);
      const Tarn::AutoMutex hold(mutex);
      EXPECT_TRUE(id.HasValue() && values.emplace(id.Value(), id.Value() + 16).second);
    }
  };
  std::thread threads[] = {std::thread(draw, Tarn::UUID()), std::thread(draw, Tarn::UUID()),
                           std::thread(draw, Tarn::SymmetricKey()), std::thread(draw, Tarn::SymmetricKey())};
  for (std::thread& thread : threads) {
    thread.join();
  }
  Tarn::UUID id;
  Tarn::SymmetricKey key;
  Testing::SetRandom([](Tarn::byte_t*, unsigned) noexcept { return false; });
  EXPECT_DEATH(Tarn::GenRandomValue(id), "fatal: the random source works \\(.*:[0-9]+\\)");
  EXPECT_DEATH(Tarn::GenRandomValue(key), "fatal: the random source works");
}
