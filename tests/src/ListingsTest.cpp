// The three listings: pages, what an entry holds, failures.

#include <memory>

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

TEST_F(Listings, ReturnThePageThatWasAskedForAndFailEachInItsWay) {
  struct Listing {
    std::string table, row, when_empty, when_failed;
    List list;
  };
  for (const auto& [table, row, when_empty, when_failed, list] :
       {Listing{"users", "value, 'plain_pw', 'p', 'd', 'root'", "OK", "OK", &UserManager::GetUsers},
        Listing{"groups", "value, 'name'", "OK", "OK", &UserManager::GetGroups},
        Listing{"filters", "'GET', 'g', value, 'Allow'", "FALSE", "DB_FAILURE", &UserManager::GetFilters}}) {
    SCOPED_TRACE(table);
    ResultState page;
    page.Skip = 2;
    page.Limit = 3;
    page.HasRows = true;
    Run("DELETE FROM " + table);
    Perenna::PListDict document = Fields("host=own");
    EXPECT_EQ((Manager().*list)(page, document).symbol, when_empty);
    EXPECT_FALSE(page.HasRows);
    EXPECT_TRUE(Entries(document).empty() && document.size() == 5);

    const std::string rows = "WITH RECURSIVE n(value) AS (VALUES(1) UNION ALL SELECT value + 1 FROM n WHERE value < 7)";
    Run(rows + " INSERT INTO " + table + " SELECT " + row + " FROM n");
    const std::vector<std::string> whole = Everything(list);
    ASSERT_EQ(whole.size(), 7U);
    EXPECT_EQ((Manager().*list)(page, document), Tarn::RESULT_OK);
    EXPECT_TRUE(page.HasRows);
    EXPECT_EQ(Entries(document), std::vector<std::string>(whole.begin() + 2, whole.begin() + 5));
    EXPECT_EQ(document.GetData("total").GetValue(), "7");
    EXPECT_EQ(Log(), "");

    // A listing that fails leaves the document alone, whatever it holds.
    Run("DROP TABLE " + table);
    Perenna::PListDict kept;
    auto* const results = new Perenna::PListArray;
    kept.SetItem("results", results);
    results->Append(std::make_unique<Perenna::PListDict>(Fields("user_id=root group_id=g")));
    EXPECT_EQ((Manager().*list)(page, kept).symbol, when_failed);
    EXPECT_TRUE(page.HasRows && kept.size() == 1);
    EXPECT_THAT(Entries(kept), ElementsAre(R"({"group_id":"g","user_id":"root"})"));
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
