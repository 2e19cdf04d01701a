// The three listings: pages, what an entry holds, failures.

#include "support/AccessDirectory.h"

using namespace Testing;
using Perenna::PagedResults::ResultState;
using Perenna::PagedResults::RS_MAXROWS;
using ::testing::ElementsAre;
using ::testing::Pair;

namespace {

class Listings : public AccessDirectory {
protected:
  using List = Tarn::Result_t (UserManager::*)(ResultState&, Perenna::PListDict&);
  struct Listing {
    std::string table, row; // and how to insert the row of a number
    List list;
    Tarn::Result_t when_empty, when_failed;
  };
  const std::vector<Listing> All = {
      {"users", "'u' || value, 'plain_pw', 'p', 'd', 'root'", &UserManager::GetUsers, Tarn::RESULT_OK, Tarn::RESULT_OK},
      {"groups", "'g' || value, 'name'", &UserManager::GetGroups, Tarn::RESULT_OK, Tarn::RESULT_OK},
      {"filters", "'GET', 'g', value, 'Allow'", &UserManager::GetFilters, Tarn::RESULT_FALSE,
       Perenna::RESULT_DB_FAILURE}};

  using Entry = std::map<std::string, std::string>; // arrays as their texts in brackets

  static std::vector<Entry> Results(const Perenna::PListDict& document) {
    Perenna::PListArray* results = nullptr;
    EXPECT_TRUE(document.GetArray("results", results));
    std::vector<Entry> entries;
    for (const Perenna::PListItem* item : *results) {
      Entry& entry = entries.emplace_back();
      for (const auto& [key, value] : dynamic_cast<const Perenna::PListDict&>(*item)) {
        const auto* const array = dynamic_cast<const Perenna::PListArray*>(value);
        const auto* const scalar = dynamic_cast<const Perenna::PListData*>(value);
        EXPECT_TRUE(array != nullptr || value->HasType(Perenna::IT_STRING)) << key;
        entry[key] = array != nullptr ? ::testing::PrintToString(Texts(*array)) : scalar->GetValue();
      }
    }
    return entries;
  }

  static std::string Paging(const Perenna::PListDict& document) {
    std::string text;
    for (const std::string key : {"skip", "limit", "total"}) {
      Perenna::PListData* item = nullptr;
      EXPECT_TRUE(document.GetData(key, item) && item->HasType(Perenna::IT_INT)) << key;
      text += item->GetValue() + " ";
    }
    return text;
  }
};

ResultState Page(std::int32_t skip, std::int32_t limit, std::int32_t default_limit) {
  ResultState page(default_limit);
  page.Skip = skip;
  page.Limit = limit;
  return page;
}

} // namespace

TEST_F(Listings, ReturnThePageThatWasAskedForAndCountEveryRow) {
  struct Case {
    ResultState page;
    std::size_t begin, end; // rows of the whole listing
    std::string paging;     // skip, limit, total
  };
  const std::vector<Case> cases = {{Page(0, 3, 100), 0, 3, "0 3 7 "},
                                   {Page(2, 3, 100), 2, 5, "2 3 7 "},
                                   {Page(5, 5, 100), 5, 7, "5 5 7 "},
                                   {Page(0, 7, 100), 0, 7, "0 7 7 "},
                                   {Page(1, 8, 100), 1, 7, "1 7 7 "},
                                   {Page(7, 3, 100), 7, 7, "7 3 7 "},
                                   {Page(RS_MAXROWS, RS_MAXROWS, 1), 7, 7, "2147483647 7 7 "},
                                   {Page(-4, 2, 100), 0, 2, "-4 2 7 "},
                                   {Page(0, 0, 100), 0, 0, "0 0 7 "},
                                   {Page(1, -1, 2), 1, 3, "1 2 7 "},
                                   {Page(2, -9, RS_MAXROWS), 2, 7, "2 7 7 "},
                                   {Page(0, -1, -5), 0, 0, "0 -5 7 "}};
  for (const Listing& listing : All) {
    SCOPED_TRACE(listing.table);
    Run("DELETE FROM " + listing.table +
        "; WITH RECURSIVE numbers(value) AS (VALUES(1) UNION ALL SELECT value + 1 FROM "
        "numbers WHERE value < 7) INSERT INTO " +
        listing.table + " SELECT " + listing.row + " FROM numbers");
    ResultState everything(RS_MAXROWS);
    Perenna::PListDict whole;
    ASSERT_EQ((Manager().*listing.list)(everything, whole), Tarn::RESULT_OK);
    EXPECT_TRUE(everything.HasRows);
    const std::vector<Entry> rows = Results(whole);
    ASSERT_EQ(std::set<Entry>(rows.begin(), rows.end()).size(), 7U);
    for (const Case& one : cases) {
      SCOPED_TRACE(one.paging);
      ResultState page = one.page;
      Perenna::PListDict document;
      EXPECT_EQ((Manager().*listing.list)(page, document), Tarn::RESULT_OK);
      EXPECT_EQ(Paging(document), one.paging);
      EXPECT_EQ(Results(document), std::vector<Entry>(rows.begin() + static_cast<std::ptrdiff_t>(one.begin),
                                                      rows.begin() + static_cast<std::ptrdiff_t>(one.end)));
    }
  }
}

TEST_F(Listings, AnEmptyTableGivesAnEmptyPageAndAMissingOneNone) {
  for (const Listing& listing : All) {
    SCOPED_TRACE(listing.table);
    Run("DELETE FROM " + listing.table);
    Perenna::PListDict document;
    ResultState page = Page(3, 5, 100);
    page.HasRows = true;
    EXPECT_EQ((Manager().*listing.list)(page, document), listing.when_empty);
    EXPECT_FALSE(page.HasRows);
    EXPECT_EQ(Paging(document), "3 0 0 ");
    EXPECT_TRUE(Results(document).empty());
    EXPECT_EQ(Log(), Lines{});

    Run("DROP TABLE " + listing.table);
    Perenna::PListDict untouched = Dict({{"host's", "own"}});
    page.HasRows = true;
    EXPECT_EQ((Manager().*listing.list)(page, untouched), listing.when_failed);
    EXPECT_TRUE(page.HasRows);
    EXPECT_EQ(untouched.size(), 1U);
    const Lines lines = Log();
    EXPECT_THAT(lines, ::testing::Contains(
                           Pair(Tarn::LOG_ERROR, ::testing::EndsWith(": no such table: " + listing.table + "\n"))));
  }
}

TEST_F(Listings, EntriesHoldTheirColumnsAsStoredAndTheirMembershipsInOrder) {
  AddStoredUser("anna", "plain_pw", "secret");
  AddGroup("b", {"anna", "root"});
  AddGroup("B", {"anna"});
  AddGroup("a", {"anna"});
  AddGroup("nobody");
  Run("INSERT INTO groupusers VALUES('a', 'anna'), ('a', 'Anton'), ('gone', 'anna')");
  AddFilter("GET", "a", "^/\xff", "Allow");
  const auto list = [&](List operation) {
    ResultState page;
    Perenna::PListDict document;
    EXPECT_EQ((Manager().*operation)(page, document), Tarn::RESULT_OK);
    return Results(document);
  };
  EXPECT_THAT(list(&UserManager::GetUsers),
              ::testing::UnorderedElementsAre(
                  ElementsAre(Pair("auth_method", "plain_pw"), Pair("auth_value", "root"),
                              Pair("create_date", "2026-01-31T12:00:00+00:00"), Pair("create_user", "root"),
                              Pair("groups", R"({ "b" })"), Pair("user_id", "root")),
                  ElementsAre(Pair("auth_method", "plain_pw"), Pair("auth_value", "secret"),
                              Pair("create_date", "2026-01-31T12:00:00+00:00"), Pair("create_user", "root"),
                              Pair("groups", R"({ "B", "a", "b", "gone" })"), Pair("user_id", "anna"))));
  EXPECT_THAT(
      list(&UserManager::GetGroups),
      ::testing::UnorderedElementsAre(
          ElementsAre(Pair("group_id", "a"), Pair("group_name", "Group a"),
                      Pair("users", R"({ "Anton", "anna", "anna" })")),
          ElementsAre(Pair("group_id", "b"), Pair("group_name", "Group b"), Pair("users", R"({ "anna", "root" })")),
          ElementsAre(Pair("group_id", "B"), Pair("group_name", "Group B"), Pair("users", R"({ "anna" })")),
          ElementsAre(Pair("group_id", "nobody"), Pair("group_name", "Group nobody"), Pair("users", "{}"))));
  EXPECT_THAT(list(&UserManager::GetFilters), ElementsAre(ElementsAre(Pair("action", "Allow"), Pair("filter", "^/\xff"),
                                                                      Pair("group_id", "a"), Pair("method", "GET"))));
  Run("DROP TABLE groupusers"); // the listing goes on without memberships
  Log();
  for (const Entry& entry : list(&UserManager::GetUsers)) {
    EXPECT_EQ(entry.at("groups"), "{}");
  }
  EXPECT_EQ(Log().size(), 4U);
}
