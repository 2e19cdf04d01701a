// Pages of a statement's rows, and failures in the middle of one.

#include "Helpers.h"
#include "PN_PagedResults.h"
#include "PN_Sqlite3.h"

using namespace Perenna;
using PagedResults::RS_MAXROWS;

namespace {

struct Case {
  int rows, skip, limit, default_limit;
  int limit_written, total;
  const char* results; // the numbers on the page
};

/// Pages through the numbers 1 to `page.rows`; each row's step ends with the status given for it.
void ExpectPage(const Case& page, const std::vector<int>& statuses) {
  Testing::BareDatabase database(":memory:");
  Testing::ScriptedAnswer script(database.Handle(), statuses);
  Sqlite3::SimpleQuery query(database.Handle(), "WITH RECURSIVE t(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM t WHERE "
                                                "x < 7) SELECT answer(x) AS x FROM t WHERE x <= CAST(? AS INT)");
  PagedResults::ResultState state(page.default_limit);
  EXPECT_TRUE(!state.HasRows && state.Skip == 0 && state.Limit < 0);
  state.Skip = page.skip;
  state.Limit = page.limit;
  state.HasRows = query.Exec(std::to_string(page.rows)) == Tarn::RESULT_OK;
  PListDict response = Testing::Dict({{"total", "replaced"}, {"results", "replaced"}});
  Sqlite3::GetPagedResults(query, state, response);
  PListArray* results = nullptr;
  ASSERT_TRUE(response.GetArray("results", results));
  std::string numbers;
  for (const PListItem* row : *results) {
    numbers += dynamic_cast<const PListDict&>(*row).GetData("x").GetValue();
  }
  EXPECT_EQ(numbers, page.results);
  for (const auto& [key, value] :
       {std::pair("skip", page.skip), {"limit", page.limit_written}, {"total", page.total}}) {
    EXPECT_EQ(response.GetData(key).GetValue(), std::to_string(value)) << key;
    EXPECT_EQ(response.GetData(key).GetType(), IT_INT) << key;
  }
  EXPECT_EQ(response.size(), 4U);
}

} // namespace

TEST(Paging, SelectsRowsAndCountsAll) {
  for (const Case& page : {Case{7, 2, 3, 100, 3, 7, "345"},
                           {7, 5, 4, 100, 4, 7, "67"}, // the limit is not the number of rows
                           {7, 0, 8, 100, 7, 7, "1234567"},
                           {7, 3, 0, 100, 0, 7, ""},
                           {7, 0, -1, 4, 4, 7, "1234"},
                           {7, 3, -5, RS_MAXROWS, 7, 7, "4567"},
                           {7, 2, -3, -9, -9, 7, ""},
                           {7, 7, 3, 100, 3, 7, ""},
                           {7, RS_MAXROWS, RS_MAXROWS, 100, 7, 7, ""},
                           {7, INT32_MIN, 3, 100, 3, 7, "123"},
                           {0, 0, -1, -2, -2, 0, ""}}) {
    SCOPED_TRACE(testing::Message() << page.skip << ", " << page.limit << ", " << page.default_limit);
    ExpectPage(page, {});
  }
}

TEST(Paging, AFailedStepEndsThePageWithWhatItHas) {
  Testing::CaptureLog log;
  ExpectPage({7, 5, 10, 0, 1, 1, ""}, {0, 0, SQLITE_IOERR});           // while skipping
  ExpectPage({7, 1, 10, 0, 3, 3, "23"}, {0, 0, 0, 0, SQLITE_IOERR});   // the row before the failure is not delivered
  ExpectPage({7, 0, 2, 0, 2, 4, "12"}, {0, 0, 0, 0, 0, SQLITE_IOERR}); // while counting
  EXPECT_EQ(log.Take(), Testing::Lines{});
}
