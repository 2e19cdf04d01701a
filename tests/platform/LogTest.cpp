// Result codes, and the way of a line through the log sinks.

#include "Helpers.h"
#include "PN_error.h"
#include "TN_util.h"
#include "support/HostileMachine.h"

using Testing::Lines;

TEST(Results, EveryCodeHasItsValueAndTexts) {
  const std::tuple<const Tarn::Result_t&, int, const char*, const char*> codes[] = {
      {Tarn::RESULT_OK, 0, "OK", "Success."},
      {Tarn::RESULT_FALSE, 1, "FALSE", "Successful but not true."},
      {Tarn::RESULT_ALLOC, -4, "ALLOC", "Error allocating memory."},
      {Tarn::RESULT_PARAM, -5, "PARAM", "Invalid parameter."},
      {Tarn::RESULT_NOTIMPL, -6, "NOTIMPL", "Unimplemented Feature."},
      {Tarn::RESULT_INIT, -8, "INIT", "The object is not yet initialized."},
      {Tarn::RESULT_NOT_FOUND, -9, "NOT_FOUND", "The requested file does not exist on the system."},
      {Tarn::RESULT_STATE, -11, "STATE", "Object state error."},
      {Tarn::RESULT_FILEEXISTS, -18, "FILEEXISTS", "Filename already exists."},
      {Perenna::RESULT_PN_SETUP, -301, "PN_SETUP", "System configuration error."},
      {Perenna::RESULT_DB_FAILURE, -420, "DB_FAILURE", "General database failure."}};
  for (const auto& [result, value, symbol, message] : codes) {
    EXPECT_EQ(std::tie(result.symbol, result.message), std::tie(symbol, message));
    EXPECT_EQ(result.label, std::string(symbol) + " (" + std::to_string(value) + ")");
    EXPECT_EQ(result.Failed(), value < 0) << symbol;
    EXPECT_TRUE(result == Tarn::Result_t(value, "", "")) << symbol << ": only the value counts";
    EXPECT_TRUE(result != Tarn::Result_t(value + 1, symbol, message)) << symbol;
  }
}

TEST(Log, LinesReachTheSinkInstalledLastWithTheirLevel) {
  Testing::CaptureLog outer;
  Tarn::DefaultLogSink().Error("%s-%d\n", "a", 1);
  {
    Testing::CaptureLog inner;
    Tarn::DefaultLogSink().Notice("%c\n", 'b');
    EXPECT_EQ(inner.Take(), (Lines{{Tarn::LOG_NOTICE, "b\n"}}));
  }
  Tarn::DefaultLogSink().Debug("c\n");
  EXPECT_EQ(outer.Take(), (Lines{{Tarn::LOG_ERROR, "a-1\n"}, {Tarn::LOG_DEBUG, "c\n"}}));
}

TEST(Log, BuiltInSinkStampsAndEscapesLinesAndLeavesDebugOutUnlessAskedFor) {
  Testing::SetClock([]() noexcept -> std::int64_t { return 1709251199; });
  testing::internal::CaptureStderr();
  Tarn::DefaultLogSink().Error("user \"%s\"\n", "x\n2024 \x1b[2J\t\r\x7f\xc3\xa9");
  Tarn::DefaultLogSink().Debug("left out\n");
  Tarn::SetDefaultLogDebug(true);
  Tarn::DefaultLogSink().Debug("no line end");
  Tarn::SetDefaultLogDebug(false);
  Tarn::DefaultLogSink().Debug("left out\n");
  Testing::SetClock(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "2024-02-29T23:59:59+00:00 ERROR user \"x\\x0a2024 \\x1b[2J\\x09\\x0d\\x7f\\xc3\\xa9\"\n"
            "2024-02-29T23:59:59+00:00 DEBUG no line end\n");
}

TEST(Log, BuiltInSinkCutsLongLinesOnly) {
  for (const auto& [length, filler, written] :
       {std::tuple(900U, 'x', 933U), {900U, '\x01', 3633U}, {4097U, 'x', 4096U}, {1000000U, '\x01', 4096U}}) {
    testing::internal::CaptureStderr();
    Tarn::DefaultLogSink().Error("%s\n", std::string(length, filler).c_str());
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(line.size() <= written && line.size() > written - 50) << length << " became " << line.size();
    EXPECT_EQ(line.find('\n'), line.size() - 1) << length;
    EXPECT_EQ(line.substr(line.size() - 4) == "...\n", length > 900) << line;
  }
}
