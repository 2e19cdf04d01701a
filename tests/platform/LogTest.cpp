// Result codes, and the way of a line through the log sinks.

#include "Helpers.h"
#include "PN_error.h"
#include "TN_util.h"
#include "support/HostileMachine.h"

using Testing::Lines;

TEST(Results, EveryCodeHasItsValueAndTexts) {
  std::string table;
  for (const Tarn::Result_t& result :
       {Tarn::RESULT_OK, Tarn::RESULT_FALSE, Tarn::RESULT_ALLOC, Tarn::RESULT_PARAM, Tarn::RESULT_NOTIMPL,
        Tarn::RESULT_INIT, Tarn::RESULT_NOT_FOUND, Tarn::RESULT_STATE, Tarn::RESULT_FILEEXISTS,
        Perenna::RESULT_PN_SETUP, Perenna::RESULT_DB_FAILURE}) {
    table += result.label + ": " + result.message + "\n";
    EXPECT_EQ(result.label, result.symbol + " (" + std::to_string(result.value) + ")");
    EXPECT_EQ(result.Failed(), result.value < 0) << result.label;
    EXPECT_TRUE(result == Tarn::Result_t(result.value, "", "")) << result.label << ": only the value counts";
    EXPECT_TRUE(result != Tarn::Result_t(result.value + 1, result.symbol, result.message)) << result.label;
  }
  EXPECT_EQ(table, "OK (0): Success.\nFALSE (1): Successful but not true.\nALLOC (-4): Error allocating memory.\n"
                   "PARAM (-5): Invalid parameter.\nNOTIMPL (-6): Unimplemented Feature.\n"
                   "INIT (-8): The object is not yet initialized.\n"
                   "NOT_FOUND (-9): The requested file does not exist on the system.\n"
                   "STATE (-11): Object state error.\nFILEEXISTS (-18): Filename already exists.\n"
                   "PN_SETUP (-301): System configuration error.\nDB_FAILURE (-420): General database failure.\n");
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
  Tarn::DefaultLogSink().Error("%s", "");
  Tarn::SetDefaultLogDebug(false);
  Tarn::DefaultLogSink().Debug("left out\n");
  Testing::SetClock(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "2024-02-29T23:59:59+00:00 ERROR user \"x\\x0a2024 \\x1b[2J\\x09\\x0d\\x7f\\xc3\\xa9\"\n"
            "2024-02-29T23:59:59+00:00 DEBUG no line end\n2024-02-29T23:59:59+00:00 ERROR \n");
}

TEST(Log, BuiltInSinkCutsLongLinesOnly) {
  for (const auto& [length, filler, written] :
       {std::tuple(900U, '\x01', 3633U), {1100U, '\x01', 4096U}, {1000000U, '\x01', 4096U}}) {
    testing::internal::CaptureStderr();
    Tarn::DefaultLogSink().Error("%s\n", std::string(length, filler).c_str());
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(line.size() <= written && line.size() > written - 50) << length << " became " << line.size();
    EXPECT_EQ(line.find('\n'), line.size() - 1) << length;
    EXPECT_EQ(line.substr(line.size() - 4) == "...\n", length > 900) << line;
  }
}
