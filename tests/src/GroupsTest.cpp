// Groups and membership.

#include <regex>

#include "support/AccessDirectory.h"

using namespace Testing;
using namespace std::string_literals;

namespace {

class Groups : public AccessDirectory {
protected:
  std::string Create(const std::string& group_id, const std::string& group_name) {
    return Manager().CreateGroup(Dict({{"group_id", group_id}, {"group_name", group_name}, {"other", "x"}})).symbol;
  }
};

} // namespace

TEST_F(Groups, AnIdIsMadeOfAsciiLettersDigitsUnderscoresAndHyphensAsAWhole) {
  const std::string allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
  EXPECT_EQ(Create(allowed, "any name"), "FALSE");
  std::vector<std::string> ids = {"a\nb", "a\n", "\na", "a b", "gr\xc3\xbcn"};
  for (int byte = 1; byte < 256; ++byte) {
    ids.emplace_back(1, static_cast<char>(byte));
  }
  for (const std::string& id : ids) {
    const bool valid = id.find_first_not_of(allowed) == std::string::npos;
    EXPECT_EQ(Create(id, "any name"), valid ? "FALSE" : "PARAM") << id;
    EXPECT_EQ(Log(), valid ? "" : "E:Invalid characters in group_id.\n") << id;
  }
}

TEST_F(Groups, ACreationRefusesEmptyTextsFirstAndTakenIdsLast) {
  const std::string empty = "E:Empty group_id or group_name.\n";
  AddGroup("taken");
  struct Case {
    std::string group_id, group_name, result, lines;
  };
  for (const Case& one : std::vector<Case>{{"", "name", "PARAM", empty},
                                           {"not an id", "", "PARAM", empty},
                                           {"taken", "", "PARAM", empty},
                                           {"taken", "other", "FILEEXISTS", ""},
                                           {"taken\0?"s, "other", "FILEEXISTS", ""},
                                           {"Taken", "a\nname: \xff'", "FALSE", ""}}) {
    EXPECT_EQ(Create(one.group_id, one.group_name), one.result) << one.group_id;
    EXPECT_EQ(Log(), one.lines) << one.group_id;
  }
  EXPECT_EQ(Rows("SELECT * FROM groups ORDER BY group_id"), "Taken|a\nname: \xff'; taken|name");
  EXPECT_TRUE(Manager().GroupExists("Taken") && !Manager().GroupExists("TAKEN"));
}

TEST_F(Groups, DeletionTakesTheMembershipsAndLeavesTheFiltersToASuccessor) {
  AddGroup("g", {"root"});
  AddGroup("h", {"root"});
  AddFilter("GET g / Allow");
  EXPECT_TRUE(May("root", "GET /"));
  EXPECT_EQ(Manager().DeleteGroup("G"), Tarn::RESULT_NOT_FOUND);
  EXPECT_EQ(Manager().DeleteGroup("g"), Tarn::RESULT_OK);
  EXPECT_EQ(Manager().DeleteGroup("g"), Tarn::RESULT_NOT_FOUND);
  EXPECT_EQ(Rows("SELECT * FROM groupusers"), "h|root");
  EXPECT_FALSE(May("root", "GET /"));
  AddGroup("g", {"root"});
  EXPECT_TRUE(May("root", "GET /"));
}

// Both directions of membership, under one set of expectations: "subject" gets the list, the others are in it.
TEST_F(Groups, AMembershipListReplacesTheOldOneOrChangesNothing) {
  for (const std::string id : {"subject", "a", "b", "c", "other"}) {
    AddUser(id);
    AddGroup(id);
  }
  struct Direction {
    std::string item, of;
    Tarn::Result_t (UserManager::*set)(const std::string&, const Perenna::PListArray&);
  };
  for (const auto& [item, of, set] : {Direction{"user", "group", &UserManager::SetGroupUsers},
                                      Direction{"group", "user", &UserManager::SetUserGroups}}) {
    SCOPED_TRACE(item);
    const auto said = [&, one = item, other = of](const std::string& text) {
      return std::regex_replace(std::regex_replace(text, std::regex("ITEM"), one), std::regex("OF"), other);
    };
    const auto give = [&, setter = set](const std::string& subject, const std::vector<std::string>& items) {
      return (Manager().*setter)(subject, Array(items)).symbol;
    };
    const std::string stored = said("SELECT ITEM_id FROM groupusers WHERE OF_id = 'subject' ORDER BY rowid");
    Run("DELETE FROM groupusers");
    EXPECT_EQ(give("other", {"a"}), "FALSE");
    EXPECT_EQ(give("subject", {"c"}), "FALSE");
    EXPECT_EQ(give("subject", {"b", "a", "b\0x"s, "b"}), "FALSE");
    EXPECT_EQ(Rows(stored), "a; b") << "ascending, each once, the old ones gone";

    for (const std::string unknown : {"who", "", "B"}) {
      EXPECT_EQ(give("subject", {"c", unknown, "?"}), "PARAM");
      EXPECT_EQ(Log(), said("E:Unknown ITEM \"" + unknown + "\" in ITEMs array.\n"));
      EXPECT_EQ(give("nobody", {unknown}), "NOT_FOUND") << "before the list is looked at";
    }
    for (const Perenna::ItemType_t type : {Perenna::IT_INT, Perenna::IT_DATE, Perenna::IT_NULL, Perenna::IT_ARRAY}) {
      Perenna::PListArray list = Array({"c"});
      list.Append(type == Perenna::IT_ARRAY ? std::unique_ptr<Perenna::PListItem>(new Perenna::PListArray)
                                            : std::make_unique<Perenna::PListData>(type, "a"));
      EXPECT_EQ((Manager().*set)("subject", list), Tarn::RESULT_PARAM) << type;
      EXPECT_EQ(Log(), said("E:Unexpected non-string type in ITEMs array.\n"));
    }
    EXPECT_EQ(Rows(stored), "a; b") << "nothing was changed";

    // A refused insert stops nothing, and the last insert decides.
    Run(said("CREATE TRIGGER refuse BEFORE INSERT ON groupusers WHEN NEW.ITEM_id = 'b' "
             "BEGIN SELECT RAISE(ABORT, 'refused'); END"));
    EXPECT_EQ(give("subject", {"a", "b", "c"}), "FALSE");
    EXPECT_EQ(Rows(stored), "a; c");
    EXPECT_EQ(Log(), "E:Error stepping statement INSERT INTO groupusers VALUES(?,?): refused\n");
    EXPECT_EQ(give("subject", {"a", "b"}), "DB_FAILURE");
    EXPECT_EQ(Rows(stored), "a");
    Run("DROP TRIGGER refuse");

    EXPECT_EQ(give("subject", {}), "OK");
    EXPECT_EQ(Rows(stored), "");
    EXPECT_EQ(Rows("SELECT count(*) FROM groupusers"), "1") << "other subjects keep theirs";
    Log();
  }
}
