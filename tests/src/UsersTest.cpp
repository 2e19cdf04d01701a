// Users: creation with its credential, existence, deletion.

#include <limits>

#include "support/AccessDirectory.h"

using namespace Testing;
using ::testing::ElementsAre;

namespace {

class Users : public AccessDirectory {
protected:
  std::vector<BareDatabase::Row> Rows() {
    return Query("SELECT * FROM users WHERE user_id <> 'root' ORDER BY user_id");
  }
};

using Entries = std::vector<std::pair<std::string, std::string>>;

const std::string Thumbprint = "AAECAwQFBgcICQoLDA0ODxAREhM=";

} // namespace

TEST_F(Users, ACreationThatIsRefusedSaysWhyAndStoresNothing) {
  const Lines thumbprint_refused = {ErrorLine("Certificate thumbprint decoding error.\n")};
  const auto with_certificate = [](const std::string& text) {
    return Entries{{"user_id", "new"}, {"create_user", "root"}, {"certificate", text}};
  };
  struct Case {
    Entries request;
    Tarn::Result_t result;
    Lines lines;
  };
  const std::vector<Case> cases = {
      {{}, Tarn::RESULT_PARAM, {ErrorLine("Empty user_id.\n")}},
      {{{"user_id", ""}, {"create_user", "nobody"}}, Tarn::RESULT_PARAM, {ErrorLine("Empty user_id.\n")}},
      {{{"user_id", std::string("\0x", 2)}, {"create_user", "root"}, {"password", "p"}},
       Tarn::RESULT_PARAM,
       {ErrorLine("Empty user_id.\n")}},
      // An id that is taken is refused before its creator and its credential are examined.
      {{{"user_id", "root"}, {"create_user", "nobody"}}, Tarn::RESULT_FILEEXISTS, {}},
      {{{"user_id", "new"}, {"password", "p"}}, Tarn::RESULT_STATE, {ErrorLine("Non-existant create_user.\n")}},
      {{{"user_id", "new"}, {"create_user", "Root"}, {"certificate", "?"}},
       Tarn::RESULT_STATE,
       {ErrorLine("Non-existant create_user.\n")}},
      {{{"user_id", "new"}, {"create_user", "new"}, {"password", "p"}},
       Tarn::RESULT_STATE,
       {ErrorLine("Non-existant create_user.\n")}},
      {{{"user_id", "new"}, {"create_user", "root"}, {"auth_method", "plain_pw"}, {"auth_value", "x"}},
       Tarn::RESULT_PARAM,
       {ErrorLine("Unexpected authentication type.\n")}},
      {with_certificate("AAECAwQFBgcICQoLDA0ODxAREg=="), Tarn::RESULT_PARAM, thumbprint_refused}, // 19 bytes
      {with_certificate("AAECAwQFBgcICQoLDA0ODxAREhMU"), Tarn::RESULT_PARAM, thumbprint_refused}, // 21 bytes
      {with_certificate("AAECAwQFBgcICQoLDA0ODxAREhM"), Tarn::RESULT_PARAM, thumbprint_refused},  // unpadded
      {with_certificate("AAECAwQFBgcICQoLDA0ODxAREh-="), Tarn::RESULT_PARAM, thumbprint_refused}, // other alphabet
      {with_certificate(" AAECAwQFBgcICQoLDA0ODxAREhM="), Tarn::RESULT_PARAM, thumbprint_refused},
      {with_certificate(Thumbprint + "\n"), Tarn::RESULT_PARAM, thumbprint_refused},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(::testing::PrintToString(one.request));
    EXPECT_EQ(Manager().CreateUser(Dict(one.request)), one.result);
    EXPECT_EQ(Log(), one.lines);
    EXPECT_TRUE(Rows().empty());
  }
  Run("DELETE FROM users"); // in an empty directory nobody can create anybody
  EXPECT_EQ(Manager().CreateUser(Dict({{"user_id", "root"}, {"create_user", "root"}, {"password", "p"}})),
            Tarn::RESULT_STATE);
  EXPECT_EQ(Log(), Lines{ErrorLine("Non-existant create_user.\n")});
}

TEST_F(Users, ACreationStoresItsCredentialDateAndCreatorAndNothingElseOfTheRequest) {
  Tarn::SetSources({[]() noexcept { return std::int64_t{1'769'860'800}; }, nullptr});
  const Entries forged = {{"create_user", "root"},
                          {"auth_method", "plain_pw"},
                          {"auth_value", "known"},
                          {"create_date", "long ago"},
                          {"is_admin", "true"}};
  const auto create = [&](const std::string& user_id, Entries entries) {
    entries.insert(entries.end(), forged.begin(), forged.end());
    entries.emplace_back("user_id", user_id);
    const Perenna::PListDict request = Dict(entries);
    EXPECT_EQ(Manager().CreateUser(request), Tarn::RESULT_FALSE);
    EXPECT_EQ(request.GetData("create_date").GetValue(), "long ago") << "the caller's request stays as it was";
  };
  create("both", {{"password", "p"}, {"certificate", "not even base64"}});
  create("by certificate", {{"certificate", Thumbprint}});
  create("odd base64", {{"certificate", "AAECAwQFBgcICQoLDA0ODxAREhN="}}); // the same bytes, another text
  create("by password", {{"password", "p"}});
  const auto expression = ::testing::MatchesRegex("[0-9a-f]{32}:[0-9a-f]{64}");
  const std::string date = "2026-01-31T12:00:00+00:00";
  EXPECT_THAT(Rows(), ElementsAre(ElementsAre("both", "sha256", expression, date, "root"),
                                  ElementsAre("by certificate", "tls_client_certificate", Thumbprint, date, "root"),
                                  ElementsAre("by password", "sha256", expression, date, "root"),
                                  ElementsAre("odd base64", "tls_client_certificate",
                                              "AAECAwQFBgcICQoLDA0ODxAREhN=", date, "root")));
  EXPECT_EQ(Log(), Lines{});
}

TEST_F(Users, AnInsertThatTheDatabaseRefusesIsADatabaseFailure) {
  Run("CREATE TRIGGER no_more BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'enough'); END");
  EXPECT_EQ(Manager().CreateUser(Dict({{"user_id", "new"}, {"create_user", "root"}, {"password", "p"}})),
            Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(Log(), Lines{ErrorLine("Error stepping statement INSERT INTO users VALUES(?,?,?,?,?): enough\n")});
}

TEST_F(Users, IdsAreComparedByteForByteUpToTheirFirstNul) {
  AddUser("Anna");
  for (const auto& [user_id, expected] : std::vector<std::pair<std::string, bool>>{{"Anna", true},
                                                                                   {std::string("Anna\0Lena", 9), true},
                                                                                   {"anna", false},
                                                                                   {"Anna ", false},
                                                                                   {"Ann", false},
                                                                                   {"", false},
                                                                                   {"Ann_", false},
                                                                                   {"%", false},
                                                                                   {"Anna' OR '1'='1", false}}) {
    EXPECT_EQ(Manager().UserExists(user_id), expected) << user_id;
  }
}

TEST_F(Users, DeletionTakesTheMembershipsAlongAndLeavesWhatTheUserCreated) {
  AddUser("gone");
  AddUser("kept");
  EXPECT_EQ(Manager().CreateUser(Dict({{"user_id", "child"}, {"create_user", "gone"}, {"password", "p"}})),
            Tarn::RESULT_FALSE);
  AddGroup("g", {"gone", "kept"});
  AddGroup("h", {"gone"});
  EXPECT_EQ(Manager().DeleteUser("Gone"), Tarn::RESULT_NOT_FOUND);
  EXPECT_EQ(Manager().DeleteUser(""), Tarn::RESULT_NOT_FOUND);
  EXPECT_EQ(Query("SELECT * FROM groupusers").size(), 3U);
  EXPECT_EQ(Manager().DeleteUser("gone"), Tarn::RESULT_OK);
  EXPECT_EQ(Manager().DeleteUser("gone"), Tarn::RESULT_NOT_FOUND);
  EXPECT_THAT(Query("SELECT * FROM groupusers"), ElementsAre(ElementsAre("g", "kept")));
  EXPECT_THAT(Query("SELECT user_id, create_user FROM users ORDER BY user_id"),
              ElementsAre(ElementsAre("child", "gone"), ElementsAre("kept", "root"), ElementsAre("root", "root")));
  EXPECT_EQ(Log(), Lines{});
}

TEST_F(Users, ADeletionThatFailsHalfwayKeepsWhatItCouldNotRemove) {
  AddUser("stuck");
  AddGroup("g", {"stuck"});
  Run("CREATE TRIGGER keep BEFORE DELETE ON users BEGIN SELECT RAISE(ABORT, 'kept'); END");
  EXPECT_EQ(Manager().DeleteUser("stuck"), Tarn::RESULT_OK);
  EXPECT_EQ(Log(), Lines{ErrorLine("Error stepping statement DELETE FROM users WHERE user_id = ?: kept\n")});
  EXPECT_TRUE(Manager().UserExists("stuck"));
  EXPECT_TRUE(Query("SELECT * FROM groupusers").empty());
}

TEST_F(Users, StoredCredentialsAreNotChanged) {
  EXPECT_EQ(Manager().SetUserCredentials(Dict({{"user_id", "root"}, {"password", "new"}})), Tarn::RESULT_NOTIMPL);
  EXPECT_TRUE(Login("root", "root"));
}
