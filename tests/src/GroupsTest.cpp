// Groups and membership.

#include <functional>

#include "support/AccessDirectory.h"

using namespace Testing;
using ::testing::ElementsAre;

namespace {

class Groups : public AccessDirectory {
protected:
  Tarn::Result_t Create(const std::string& group_id, const std::string& group_name) {
    return Manager().CreateGroup(Dict({{"group_id", group_id}, {"group_name", group_name}, {"create_user", "x"}}));
  }
  std::vector<BareDatabase::Row> Rows() { return Query("SELECT * FROM groups ORDER BY group_id"); }
  std::vector<BareDatabase::Row> Memberships() {
    return Query("SELECT group_id, user_id FROM groupusers ORDER BY group_id, user_id");
  }
};

const std::string InvalidId = "Invalid characters in group_id.\n";
const std::string EmptyText = "Empty group_id or group_name.\n";

} // namespace

TEST_F(Groups, AnIdIsMadeOfAsciiLettersDigitsUnderscoresAndHyphensAsAWhole) {
  const std::string allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
  std::vector<std::pair<std::string, bool>> ids = {{"a\nb", false},
                                                   {"a\n", false},
                                                   {"\na", false},
                                                   {"a b", false},
                                                   {"a/b", false},
                                                   {".", false},
                                                   {"gr\xc3\xbcn", false},
                                                   {"a\r", false},
                                                   {"$", false},
                                                   {allowed, true},
                                                   {"--", true},
                                                   {"a'--", false},
                                                   {std::string(1 << 16, 'g'), true}};
  for (int byte = 1; byte < 256; ++byte) {
    const std::string id(1, static_cast<char>(byte));
    ids.emplace_back(id, allowed.find(id) != std::string::npos);
  }
  std::size_t created = 0;
  for (const auto& [id, valid] : ids) {
    ASSERT_EQ(Create(id, "any name"), valid ? Tarn::RESULT_FALSE : Tarn::RESULT_PARAM) << id;
    ASSERT_EQ(Log(), valid ? Lines{} : Lines{ErrorLine(InvalidId)}) << id;
    created += valid ? 1 : 0;
  }
  EXPECT_EQ(Rows().size(), created);
}

TEST_F(Groups, ACreationRefusesEmptyTextsFirstAndTakenIdsLast) {
  AddGroup("taken");
  struct Case {
    std::string group_id, group_name;
    Tarn::Result_t result;
    Lines lines;
  };
  for (const Case& one : std::vector<Case>{{"", "name", Tarn::RESULT_PARAM, {ErrorLine(EmptyText)}},
                                           {"id", "", Tarn::RESULT_PARAM, {ErrorLine(EmptyText)}},
                                           {"no id", "", Tarn::RESULT_PARAM, {ErrorLine(EmptyText)}},
                                           {"taken", "", Tarn::RESULT_PARAM, {ErrorLine(EmptyText)}},
                                           {"taken", "other", Tarn::RESULT_FILEEXISTS, {}},
                                           {std::string("taken\0?", 7), "other", Tarn::RESULT_FILEEXISTS, {}},
                                           {"Taken", "a\nname: \xff'", Tarn::RESULT_FALSE, {}}}) {
    EXPECT_EQ(Create(one.group_id, one.group_name), one.result) << one.group_id;
    EXPECT_EQ(Log(), one.lines) << one.group_id;
  }
  EXPECT_THAT(Rows(), ElementsAre(ElementsAre("Taken", "a\nname: \xff'"), ElementsAre("taken", "Group taken")));
  EXPECT_TRUE(Manager().GroupExists("Taken"));
  EXPECT_FALSE(Manager().GroupExists("TAKEN"));
  Run("CREATE TRIGGER no_more BEFORE INSERT ON groups BEGIN SELECT RAISE(ABORT, 'enough'); END");
  EXPECT_EQ(Create("new", "name"), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(Log(), Lines{ErrorLine("Error stepping statement INSERT INTO groups VALUES(?,?): enough\n")});
}

TEST_F(Groups, DeletionTakesTheMembershipsAndLeavesTheFiltersToASuccessor) {
  AddUser("anna");
  AddGroup("g", {"anna"});
  AddGroup("h", {"anna"});
  AddFilter("GET", "g", "/", "Allow");
  EXPECT_TRUE(May("anna", Perenna::METH_GET, "/"));
  EXPECT_EQ(Manager().DeleteGroup("G"), Tarn::RESULT_NOT_FOUND);
  EXPECT_EQ(Manager().DeleteGroup("g"), Tarn::RESULT_OK);
  EXPECT_EQ(Manager().DeleteGroup("g"), Tarn::RESULT_NOT_FOUND);
  EXPECT_THAT(Memberships(), ElementsAre(ElementsAre("h", "anna")));
  EXPECT_FALSE(May("anna", Perenna::METH_GET, "/"));
  AddGroup("g", {"anna"});
  EXPECT_TRUE(May("anna", Perenna::METH_GET, "/"));
  EXPECT_EQ(Log(), Lines{});
  Run("CREATE TRIGGER keep BEFORE DELETE ON groups BEGIN SELECT RAISE(ABORT, 'kept'); END");
  EXPECT_EQ(Manager().DeleteGroup("g"), Tarn::RESULT_OK);
  EXPECT_EQ(Log(), Lines{ErrorLine("Error stepping statement DELETE FROM groups WHERE group_id = ?: kept\n")});
  EXPECT_TRUE(Manager().GroupExists("g"));
  EXPECT_THAT(Memberships(), ElementsAre(ElementsAre("h", "anna")));
}

// Both directions of membership, under one set of expectations: `subject` gets the list, `a`, `b` and `c` are in it.
TEST_F(Groups, AMembershipListReplacesTheOldOneOrChangesNothing) {
  for (const std::string id : {"subject", "a", "b", "c", "other"}) {
    AddUser(id);
    AddGroup(id);
  }
  struct Direction {
    std::string item, array, item_column, subject_column;
    Tarn::Result_t (UserManager::*set)(const std::string&, const Perenna::PListArray&);
  };
  for (const Direction& way : {Direction{"user", "users", "user_id", "group_id", &UserManager::SetGroupUsers},
                               Direction{"group", "groups", "group_id", "user_id", &UserManager::SetUserGroups}}) {
    SCOPED_TRACE(way.array);
    const auto stored = [&](const std::string& order) {
      std::vector<std::string> items;
      for (const auto& row : Query("SELECT " + way.item_column + " FROM groupusers WHERE " + way.subject_column +
                                   " = 'subject' ORDER BY " + order)) {
        items.push_back(row.at(0));
      }
      return items;
    };
    const auto set = [&](const std::string& subject, const Perenna::PListArray& list) {
      return (Manager().*way.set)(subject, list);
    };
    const auto unknown = [&](const std::string& id) {
      return Lines{ErrorLine("Unknown " + way.item + " \"" + id + "\" in " + way.array + " array.\n")};
    };
    Run("DELETE FROM groupusers");
    ASSERT_EQ(set("other", Array({"a"})), Tarn::RESULT_FALSE);
    EXPECT_EQ(set("subject", Array({"c"})), Tarn::RESULT_FALSE);
    EXPECT_EQ(set("subject", Array({"b", "a", std::string("b\0x", 3), "b"})), Tarn::RESULT_FALSE);
    EXPECT_THAT(stored("rowid"), ElementsAre("a", "b")) << "ascending, each once, the old ones gone";

    EXPECT_EQ(set("subject", Array({"c", "who", "B"})), Tarn::RESULT_PARAM);
    EXPECT_EQ(Log(), unknown("who"));
    EXPECT_EQ(set("subject", Array({""})), Tarn::RESULT_PARAM);
    EXPECT_EQ(Log(), unknown(""));
    const std::vector<Perenna::PListItem*> not_texts = {
        new Perenna::PListData(Perenna::IT_INT, "1"), new Perenna::PListData(Perenna::IT_DATE, "a"),
        new Perenna::PListData(Perenna::IT_NULL, ""), new Perenna::PListArray, new Perenna::PListDict};
    for (Perenna::PListItem* not_text : not_texts) {
      Perenna::PListArray list = Array({"c"});
      list.push_back(not_text);
      list.AppendText("who");
      EXPECT_EQ(set("subject", list), Tarn::RESULT_PARAM) << not_text->GetType();
      EXPECT_EQ(Log(), Lines{ErrorLine("Unexpected non-string type in " + way.array + " array.\n")});
      EXPECT_EQ(set("nobody", list), Tarn::RESULT_NOT_FOUND) << "before the list is looked at";
      EXPECT_EQ(Log(), Lines{});
    }
    EXPECT_THAT(stored("rowid"), ElementsAre("a", "b"));

    // A refused insert stops nothing, and the last insert decides.
    Run("CREATE TRIGGER refuse BEFORE INSERT ON groupusers WHEN NEW." + way.item_column +
        " = 'b' BEGIN SELECT RAISE(ABORT, 'refused'); END");
    const Lines refused = {ErrorLine("Error stepping statement INSERT INTO groupusers VALUES(?,?): refused\n")};
    EXPECT_EQ(set("subject", Array({"a", "b", "c"})), Tarn::RESULT_FALSE);
    EXPECT_THAT(stored("1"), ElementsAre("a", "c"));
    EXPECT_EQ(Log(), refused);
    EXPECT_EQ(set("subject", Array({"a", "b"})), Perenna::RESULT_DB_FAILURE);
    EXPECT_THAT(stored("1"), ElementsAre("a"));
    EXPECT_EQ(Log(), refused);
    Run("DROP TRIGGER refuse");

    EXPECT_EQ(set("subject", Array({})), Tarn::RESULT_OK);
    EXPECT_TRUE(stored("1").empty());
    EXPECT_EQ(Memberships().size(), 1U) << "other subjects keep theirs";
    EXPECT_EQ(Log(), Lines{});
  }
}
