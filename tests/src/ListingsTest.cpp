// The three listings: pages, what an entry holds, failures.

#include <algorithm>
#include <set>

#include <gmock/gmock.h>

#include "support/AccessDirectory.h"

using namespace Testing;
using Perenna::PagedResults::ResultState;
using Perenna::PagedResults::RS_MAXROWS;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class Listings : public AccessDirectory {
protected:
  using List = Tarn::Result_t (UserManager::*)(ResultState&, Perenna::PListDict&);

  /// The JSON of each entry of a listing, in its order.
  static std::vector<std::string> Entries(const Perenna::PListDict& document) {
    Perenna::PListArray* results = nullptr;
    std::vector<std::string> entries;
    EXPECT_TRUE(document.GetArray("results", results));
    for (const Perenna::PListItem* item : *results) {
      EXPECT_EQ(item->EncodeJSON(entries.emplace_back()), Tarn::RESULT_OK);
    }
    return entries;
  }
  std::vector<std::string> Everything(List list) {
    ResultState page(RS_MAXROWS);
    Perenna::PListDict document;
    EXPECT_EQ((Manager().*list)(page, document), Tarn::RESULT_OK);
    EXPECT_TRUE(page.HasRows);
    return Entries(document);
  }
};

} // namespace

TEST_F(Listings, ReturnThePageThatWasAskedForCountEveryRowAndFailEachInItsWay) {
  struct Listing {
    std::string table, row, when_empty, when_failed;
    List list;
  };
  const std::vector<Listing> listings = {
      {"users", "value, 'plain_pw', 'p', 'd', 'root'", "OK", "OK", &UserManager::GetUsers},
      {"groups", "value, 'name'", "OK", "OK", &UserManager::GetGroups},
      {"filters", "'GET', 'g', value, 'Allow'", "FALSE", "DB_FAILURE", &UserManager::GetFilters}};
  struct Case {
    int skip, limit, default_limit, begin, end; // the rows of the whole listing that are on the page
    std::string paging;                         // skip, limit, total
  };
  const std::vector<Case> cases = {{2, 3, 100, 2, 5, "2 3 7"}, {5, 5, 100, 5, 7, "5 5 7"}, {0, 8, 100, 0, 7, "0 7 7"},
                                   {7, 3, 100, 7, 7, "7 3 7"}, {-4, 2, 9, 0, 2, "-4 2 7"}, {0, 0, 100, 0, 0, "0 0 7"},
                                   {1, -1, 2, 1, 3, "1 2 7"},  {0, -1, -5, 0, 0, "0 -5 7"}};
  for (const auto& [table, row, when_empty, when_failed, list] : listings) {
    SCOPED_TRACE(table);
    const auto run = [&, operation = list](const Case& one, Perenna::PListDict& document, bool has_rows) {
      ResultState page(one.default_limit);
      page.Skip = one.skip;
      page.Limit = one.limit;
      page.HasRows = !has_rows;
      const Tarn::Result_t result = (Manager().*operation)(page, document);
      EXPECT_EQ(page.HasRows, has_rows);
      return result.symbol;
    };
    const auto paging = [](const Perenna::PListDict& document) {
      return document.GetData("skip").GetValue() + " " + document.GetData("limit").GetValue() + " " +
             document.GetData("total").GetValue();
    };
    Run("DELETE FROM " + table);
    Perenna::PListDict empty;
    EXPECT_EQ(run({3, 5, 100, 0, 0, ""}, empty, false), when_empty);
    EXPECT_EQ(paging(empty), "3 0 0");
    EXPECT_TRUE(Entries(empty).empty());

    std::string insert =
        "WITH RECURSIVE n(value) AS (VALUES(1) UNION ALL SELECT value + 1 FROM n WHERE value < 7) INSERT ";
    Run(insert.append("INTO ").append(table).append(" SELECT ").append(row).append(" FROM n"));
    const std::vector<std::string> whole = Everything(list);
    EXPECT_EQ(std::set<std::string>(whole.begin(), whole.end()).size(), 7U);
    for (const Case& one : cases) {
      Perenna::PListDict document;
      EXPECT_EQ(run(one, document, true), "OK");
      EXPECT_EQ(paging(document), one.paging);
      EXPECT_EQ(Entries(document), std::vector<std::string>(whole.begin() + one.begin, whole.begin() + one.end))
          << one.paging;
    }
    EXPECT_EQ(Log(), "");

    Run("DROP TABLE " + table);
    Perenna::PListDict untouched = Fields("host=own");
    ResultState page;
    page.HasRows = true;
    EXPECT_EQ((Manager().*list)(page, untouched).symbol, when_failed);
    EXPECT_TRUE(page.HasRows && untouched.size() == 1);
    EXPECT_THAT(Log(), HasSubstr("no such table: " + table));
  }
}

TEST_F(Listings, EntriesHoldTheirColumnsAsStoredAndTheirMembershipsInOrder) {
  AddStoredUser("anna", "plain_pw", "secret");
  for (const std::string group_id : {"b", "B", "a"}) {
    AddGroup(group_id, {"anna"});
  }
  AddGroup("nobody");
  Run("INSERT INTO groupusers VALUES('a', 'anna'), ('a', 'Anton'), ('gone', 'anna')");
  AddFilter("GET a ^/ Allow");
  EXPECT_THAT(
      Everything(&UserManager::GetUsers),
      ::testing::UnorderedElementsAre(R"({"auth_method":"plain_pw","auth_value":"root","create_date":"a date",)"
                                      R"("create_user":"root","groups":[],"user_id":"root"})",
                                      R"({"auth_method":"plain_pw","auth_value":"secret","create_date":"a date",)"
                                      R"("create_user":"root","groups":["B","a","b","gone"],"user_id":"anna"})"));
  EXPECT_THAT(Everything(&UserManager::GetGroups),
              ::testing::UnorderedElementsAre(R"({"group_id":"a","group_name":"name","users":["Anton","anna","anna"]})",
                                              R"({"group_id":"b","group_name":"name","users":["anna"]})",
                                              R"({"group_id":"B","group_name":"name","users":["anna"]})",
                                              R"({"group_id":"nobody","group_name":"name","users":[]})"));
  EXPECT_THAT(Everything(&UserManager::GetFilters),
              ElementsAre(R"({"action":"Allow","filter":"^/","group_id":"a","method":"GET"})"));
  Run("DROP TABLE groupusers"); // the listing goes on without memberships
  EXPECT_THAT(Everything(&UserManager::GetUsers), ::testing::Each(HasSubstr("\"groups\":[]")));
  EXPECT_THAT(Log(), HasSubstr("no such table: groupusers"));
}
