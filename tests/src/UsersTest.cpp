// Users: creation with its credential, existence, deletion.

#include "support/AccessDirectory.h"
#include "support/HostileMachine.h"

using namespace Testing;
using namespace std::string_literals;

namespace {

class Users : public AccessDirectory {};

} // namespace

TEST_F(Users, ACreationThatIsRefusedSaysWhyAndStoresNothing) {
  const std::string nameless = "E:Empty user_id.\n";
  const std::string creator = "E:Non-existant create_user.\n";
  const std::string unproven = "E:Unexpected authentication type.\n";
  const std::string thumbprint = "E:Certificate thumbprint decoding error.\n";
  struct Case {
    std::string request, result, lines;
  };
  // clang-format off
  const std::vector<Case> cases = {
      {"create_user=nobody password=p", "PARAM", nameless},
      {"user_id=\0x create_user=root password=p"s, "PARAM", nameless},
      // An id that is taken is refused before its creator, and the creator before the credential.
      {"user_id=root create_user=nobody", "FILEEXISTS", ""},
      {"user_id=new password=p", "STATE", creator},
      {"user_id=new create_user=Root certificate=?", "STATE", creator},
      {"user_id=new create_user=new password=p", "STATE", creator},
      {"user_id=new create_user=root auth_method=plain_pw auth_value=x", "PARAM", unproven},
      {"user_id=new create_user=root certificate=AAECAwQFBgcICQoLDA0ODxAREg==", "PARAM", thumbprint},   // 19 bytes
      {"user_id=new create_user=root certificate=AAECAwQFBgcICQoLDA0ODxAREhMU", "PARAM", thumbprint},   // 21
      {"user_id=new create_user=root certificate=AAECAwQFBgcICQoLDA0ODxAREhM", "PARAM", thumbprint},    // no padding
      {"user_id=new create_user=root certificate=\0AAECAwQFBgcICQoLDA0ODxAREhM="s, "PARAM", thumbprint}};
  // clang-format on
  for (const Case& one : cases) {
    EXPECT_EQ(Manager().CreateUser(Fields(one.request)).symbol, one.result) << one.request;
    EXPECT_EQ(Log(), one.lines) << one.request;
    EXPECT_EQ(Rows("SELECT user_id FROM users"), "root") << one.request;
  }
  Run("DELETE FROM users"); // in an empty directory nobody can create anybody
  EXPECT_EQ(Manager().CreateUser(Fields("user_id=root create_user=root password=p")), Tarn::RESULT_STATE);
  EXPECT_EQ(Log(), creator);
}

TEST_F(Users, ACreationStoresItsCredentialDateAndCreatorAndNothingElseOfTheRequest) {
  SetClock([]() noexcept { return std::int64_t{1'769'860'800}; });
  const std::string forged = " create_user=root auth_method=plain_pw auth_value=known create_date=never is_admin=true";
  for (const std::string fields : {"user_id=both password=p certificate=junk", "user_id=password password=p",
                                   "user_id=thumbprint certificate=AAECAwQFBgcICQoLDA0ODxAREhM=",
                                   "user_id=other_text_of_it certificate=AAECAwQFBgcICQoLDA0ODxAREhN="}) {
    const Perenna::PListDict request = Fields(fields + forged);
    for (const char* const key : {"user_id", "create_user"}) {
      Perenna::PListData* item = nullptr;
      ASSERT_TRUE(request.GetData(key, item));
      item->ForceType(Perenna::IT_DATA); // the text is tested, so the text is stored
    }
    EXPECT_EQ(Manager().CreateUser(request), Tarn::RESULT_FALSE) << fields;
    EXPECT_EQ(request.GetData("create_date").GetValue(), "never") << "the caller's request stays as it was";
  }
  const std::string expression = std::string(32, '?') + ":" + std::string(64, '?');
  EXPECT_EQ(Rows("SELECT user_id, auth_method, CASE auth_method WHEN 'sha256' THEN auth_value GLOB '" + expression +
                 "' ELSE auth_value END, create_date, create_user FROM users WHERE user_id <> 'root' ORDER BY user_id"),
            "both|sha256|1|2026-01-31T12:00:00+00:00|root; "
            "other_text_of_it|tls_client_certificate|AAECAwQFBgcICQoLDA0ODxAREhN=|2026-01-31T12:00:00+00:00|root; "
            "password|sha256|1|2026-01-31T12:00:00+00:00|root; "
            "thumbprint|tls_client_certificate|AAECAwQFBgcICQoLDA0ODxAREhM=|2026-01-31T12:00:00+00:00|root");
  EXPECT_EQ(Log(), "");
}

TEST_F(Users, IdsAreComparedByteForByteUpToTheirFirstNul) {
  AddUser("Anna");
  EXPECT_TRUE(Manager().UserExists("Anna") && Manager().UserExists("Anna\0Lena"s));
  for (const std::string other : {"anna", "Anna ", "Ann", "", "Ann_", "%", "Anna' OR '1'='1"}) {
    EXPECT_FALSE(Manager().UserExists(other)) << other;
    EXPECT_EQ(Manager().DeleteUser(other), Tarn::RESULT_NOT_FOUND) << other;
  }
  EXPECT_EQ(Manager().SetUserCredentials(Fields("user_id=root password=new")), Tarn::RESULT_NOTIMPL);
  EXPECT_TRUE(Login("root", "root"));
}

TEST_F(Users, DeletionTakesTheMembershipsAlongAndLeavesWhatTheUserCreated) {
  AddUser("gone");
  AddUser("kept");
  EXPECT_EQ(Manager().CreateUser(Fields("user_id=child create_user=gone password=p")), Tarn::RESULT_FALSE);
  AddGroup("g", {"gone", "kept"});
  AddGroup("h", {"gone"});
  EXPECT_EQ(Manager().DeleteUser("gone"), Tarn::RESULT_OK);
  EXPECT_EQ(Manager().DeleteUser("gone"), Tarn::RESULT_NOT_FOUND);
  EXPECT_EQ(Rows("SELECT * FROM groupusers"), "g|kept");
  EXPECT_EQ(Rows("SELECT user_id, create_user FROM users ORDER BY user_id"), "child|gone; kept|root; root|root");
  EXPECT_EQ(Log(), "");
  // What cannot be removed stays, and so does what was done before.
  Run("CREATE TRIGGER keep BEFORE DELETE ON users BEGIN SELECT RAISE(ABORT, 'kept'); END");
  EXPECT_EQ(Manager().DeleteUser("kept"), Tarn::RESULT_OK);
  EXPECT_EQ(Log(), "E:Error stepping statement DELETE FROM users WHERE user_id = ?: kept\n");
  EXPECT_TRUE(Manager().UserExists("kept"));
  EXPECT_EQ(Rows("SELECT * FROM groupusers"), "");
}
