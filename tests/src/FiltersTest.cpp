// Filters: stored and removed exactly as given.

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

class Filters : public AccessDirectory {};

const std::string Stored = "SELECT * FROM filters ORDER BY rowid";

} // namespace

TEST_F(Filters, AreStoredUncheckedAndRemovedOnlyByTheirFourExactValues) {
  for (const std::string filter : {"GET g ^/$ Allow", "GET g ^/$ Allow", "get nowhere ( ALLOW", "   "}) {
    AddFilter(filter);
  }
  const std::string rows = "GET|g|^/$|Allow; GET|g|^/$|Allow; get|nowhere|(|ALLOW; |||";
  for (const std::string other :
       {"method=Get group_id=g filter=^/$ action=Allow", "method=GET group_id=G filter=^/$ action=Allow",
        "method=GET group_id=g filter=^/ action=Allow", "method=GET group_id=g filter=^/$ action=allow"}) {
    EXPECT_EQ(Manager().DeleteFilter(Fields(other)), Tarn::RESULT_FALSE) << other;
    EXPECT_EQ(Rows(Stored), rows) << other;
  }
  EXPECT_EQ(Manager().DeleteFilter(Fields("action=Allow filter=^/$ group_id=g method=GET x=y")), Tarn::RESULT_FALSE);
  EXPECT_EQ(Rows(Stored), "get|nowhere|(|ALLOW; |||") << "duplicates go together";
  EXPECT_EQ(Log(), "");
}

TEST_F(Filters, ARequestWithoutFourScalarsIsRefusedAndChangesNothing) {
  AddFilter("x x x x");
  for (const auto operation : {&UserManager::CreateFilter, &UserManager::DeleteFilter}) {
    for (const std::string key : {"method", "group_id", "filter", "action"}) {
      Perenna::PListDict request;
      for (const std::string other : {"method", "group_id", "filter", "action"}) {
        other == key ? void() : request.SetValue(other, "x");
      }
      EXPECT_EQ((Manager().*operation)(request), Tarn::RESULT_PARAM);
      EXPECT_EQ(Log(), "E:Dictionary arguments do not contain \"" + key + "\".\n");
      request.SetItem(key, new Perenna::PListArray);
      EXPECT_EQ((Manager().*operation)(request), Tarn::RESULT_PARAM);
      EXPECT_EQ(Log(), "E:Item type is not scalar.\n");
    }
  }
  EXPECT_EQ(Rows(Stored), "x|x|x|x");
}
