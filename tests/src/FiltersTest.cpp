// Filters: stored and removed exactly as given.

#include "support/AccessDirectory.h"

using namespace Testing;
using ::testing::ElementsAre;

namespace {

class Filters : public AccessDirectory {
protected:
  std::vector<BareDatabase::Row> Rows() {
    return Query("SELECT method, group_id, filter, action FROM filters ORDER BY rowid");
  }
};

using Operation = Tarn::Result_t (LocalAccessManager::UserManager::*)(const Perenna::PListDict&);
const std::vector<Operation> Operations = {&LocalAccessManager::UserManager::CreateFilter,
                                           &LocalAccessManager::UserManager::DeleteFilter};
const std::vector<std::string> Keys = {"method", "group_id", "filter", "action"};

Perenna::PListDict Request() {
  return Dict({{"action", "Allow"}, {"filter", "^/$"}, {"group_id", "g"}, {"method", "GET"}, {"other", "ignored"}});
}

} // namespace

TEST_F(Filters, AreStoredUncheckedAndRemovedOnlyByTheirFourExactValues) {
  const std::vector<BareDatabase::Row> rows = {{"GET", "g", "^/$", "Allow"},
                                               {"GET", "g", "^/$", "Allow"},
                                               {"get", "no such group", "(", "ALLOW"},
                                               {"", "", "", ""}};
  for (const BareDatabase::Row& row : rows) {
    AddFilter(row.at(0), row.at(1), row.at(2), row.at(3));
  }
  EXPECT_EQ(Rows(), rows);
  for (const std::string& key : Keys) {
    Perenna::PListDict request = Request();
    request.SetValue(key, key == "filter" ? "^/" : key == "group_id" ? "G" : key == "method" ? "Get" : "allow");
    EXPECT_EQ(Manager().DeleteFilter(request), Tarn::RESULT_FALSE) << key;
  }
  EXPECT_EQ(Rows(), rows);
  EXPECT_EQ(Manager().DeleteFilter(Request()), Tarn::RESULT_FALSE);
  EXPECT_THAT(Rows(), ElementsAre(rows.at(2), rows.at(3))) << "duplicates go together";
  EXPECT_EQ(Log(), Lines{});
}

TEST_F(Filters, ARequestWithoutFourScalarsIsRefusedAndChangesNothing) {
  ASSERT_EQ(Manager().CreateFilter(Request()), Tarn::RESULT_FALSE);
  for (const Operation operation : Operations) {
    for (const std::string& key : Keys) {
      Perenna::PListDict missing;
      for (const std::string& other : Keys) {
        if (other != key) {
          missing.SetValue(other, "x");
        }
      }
      EXPECT_EQ((Manager().*operation)(missing), Tarn::RESULT_PARAM) << key;
      EXPECT_EQ(Log(), Lines{ErrorLine("Dictionary arguments do not contain \"" + key + "\".\n")});
      Perenna::PListDict request = Request();
      for (Perenna::PListItem* container : {static_cast<Perenna::PListItem*>(new Perenna::PListArray),
                                            static_cast<Perenna::PListItem*>(new Perenna::PListDict)}) {
        request.SetItem(key, container);
        EXPECT_EQ((Manager().*operation)(request), Tarn::RESULT_PARAM) << key;
        EXPECT_EQ(Log(), Lines{ErrorLine("Item type is not scalar.\n")});
      }
      request.SetNull(key);
      EXPECT_EQ((Manager().*operation)(request), Tarn::RESULT_PARAM) << key;
      EXPECT_EQ(Log(), Lines{ErrorLine("Unknown PList data type.\n")});
    }
  }
  EXPECT_EQ(Rows().size(), 1U);
}

TEST_F(Filters, OtherScalarsAreStoredAsTheirTexts) {
  Perenna::PListDict request;
  request.SetItem("method", new Perenna::PListData(Perenna::IT_TRUE, ""));
  request.SetItem("group_id", new Perenna::PListData(Perenna::IT_INT, "-7"));
  request.SetItem("filter", new Perenna::PListData(Perenna::IT_INT64, "9223372036854775807"));
  request.SetItem("action", new Perenna::PListData(Perenna::IT_DATE, "2026-01-31"));
  ASSERT_EQ(Manager().CreateFilter(request), Tarn::RESULT_FALSE);
  EXPECT_THAT(Rows(), ElementsAre(ElementsAre("true", "-7", "9223372036854775807", "2026-01-31")));
  EXPECT_EQ(Manager().DeleteFilter(request), Tarn::RESULT_FALSE);
  EXPECT_TRUE(Rows().empty());
}
