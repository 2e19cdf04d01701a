// Time stamps, files, byte buffers, random values.

#include <csignal>
#include <ctime>
#include <set>

#include <sys/time.h>

#include "Helpers.h"
#include "TN_memio.h"
#include "TN_util.h"
#include "support/HostileMachine.h"

TEST(Timestamps, HoldTheTimeOfTheirConstructionAndEncodeItInUtc) {
  const std::int64_t before = std::time(nullptr);
  EXPECT_GE(Tarn::Timestamp().GetCTime(), before);
  EXPECT_LE(Tarn::Timestamp().GetCTime(), std::time(nullptr));
  for (const auto& [seconds, text] : {std::pair(std::int64_t{0}, "1970-01-01T00:00:00+00:00"),
                                      {-1, "1969-12-31T23:59:59+00:00"},
                                      {951827696, "2000-02-29T12:34:56+00:00"},
                                      {253402300799, "9999-12-31T23:59:59+00:00"},
                                      {253402300800, ""},
                                      {-62167219200, "0000-01-01T00:00:00+00:00"},
                                      {-62167219201, ""},
                                      {INT64_MAX, ""}}) {
    char buffer[Tarn::DateTimeLen + 1] = "x";
    EXPECT_EQ(Tarn::Timestamp(seconds).EncodeString(buffer, sizeof(buffer)), *text == 0 ? nullptr : buffer) << text;
    EXPECT_STREQ(buffer, text) << seconds;
    EXPECT_EQ(Tarn::Timestamp(seconds).EncodeString(buffer, sizeof(buffer) - 1), nullptr);
    EXPECT_STREQ(buffer, "") << seconds;
  }
}

TEST(Pauses, LastTheirTimeWhateverSignalsArrive) {
  struct sigaction ignored {};
  ignored.sa_handler = [](int) {};
  sigaction(SIGALRM, &ignored, nullptr);
  const itimerval every_10_ms{{0, 10000}, {0, 10000}};
  setitimer(ITIMER_REAL, &every_10_ms, nullptr);
  const auto begin = std::chrono::steady_clock::now();
  Tarn::sleep_ms(60);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
  setitimer(ITIMER_REAL, nullptr, nullptr);
  ignored.sa_handler = SIG_DFL;
  sigaction(SIGALRM, &ignored, nullptr);
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

TEST(RandomValues, DifferAndAFailingSourceEndsTheProcess) {
  std::set<std::string> values;
  const auto draw = [&values](auto id) {
    Tarn::GenRandomValue(id);
    EXPECT_TRUE(id.HasValue() && values.emplace(id.Value(), id.Value() + 16).second);
    Testing::SetRandom([](Tarn::byte_t*, unsigned) noexcept { return false; });
    EXPECT_DEATH(Tarn::GenRandomValue(id), "fatal: the random source works \\(.*:[0-9]+\\)");
    Testing::SetRandom(nullptr);
  };
  for (int i = 0; i < 2; ++i) {
    draw(Tarn::UUID());
    draw(Tarn::SymmetricKey());
  }
}
