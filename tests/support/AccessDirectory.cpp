#include "support/AccessDirectory.h"

#include <cstdlib>

namespace Testing {

using LocalAccessManager::UserManager;

Perenna::PListDict Configuration(const std::string& file) {
  auto section = std::make_unique<Perenna::PListDict>();
  section->SetValue("DatabaseFilename", file);
  Perenna::PListDict configuration;
  configuration.SetItem("LocalAccessManager", section.release());
  return configuration;
}

std::string Answers(UserManager& manager) {
  const Perenna::HTTPRequest request(Perenna::METH_GET, "/");
  Perenna::X509Thumbprint thumbprint;
  thumbprint.DecodeBase64("AAECAwQFBgcICQoLDA0ODxAREhM=");
  const Perenna::PListDict user = Dict({{"user_id", "new"}, {"create_user", "root"}, {"password", "p"}});
  const Perenna::PListDict group = Dict({{"group_id", "new"}, {"group_name", "New"}});
  const Perenna::PListDict filter = Dict({{"method", "GET"}, {"group_id", "g"}, {"filter", "/"}, {"action", "Allow"}});
  std::string found;
  Perenna::PListArray methods;
  std::string line;
  for (const bool answer :
       {manager.UserExists("root"), manager.GroupExists("g"), manager.TestUserIdAndPassword(request, "root", "root"),
        manager.TestUserCertificate(request, Perenna::X509Certificate(thumbprint), found),
        manager.TestRequestForUser(request, "root"), manager.GetOptionsMethods(request, "root", methods)}) {
    line += answer ? "yes " : "no ";
  }
  for (const auto list : {&UserManager::GetUsers, &UserManager::GetGroups, &UserManager::GetFilters}) {
    Perenna::PagedResults::ResultState page;
    Perenna::PListDict listing;
    const Tarn::Result_t result = (manager.*list)(page, listing);
    line += "| " + result.symbol + " " + listing.GetData("total").GetValue();
  }
  for (const Tarn::Result_t& result :
       {manager.CreateUser(user), manager.CreateGroup(group), manager.CreateFilter(filter),
        manager.SetGroupUsers("g", Array({"root"})), manager.SetUserGroups("root", Array({"g"})),
        manager.DeleteFilter(filter), manager.DeleteGroup("g"), manager.DeleteUser("root")}) {
    line += "| " + result.symbol + " ";
  }
  return line;
}

void AccessDirectory::SetUp() {
  const Perenna::PListDict configuration = Configuration(m_File);
  {
    UserManager creator; // closes the file again, so that it can be tuned
    ASSERT_EQ(creator.InitUserManager(configuration.GetDict("LocalAccessManager")), Tarn::RESULT_OK);
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has not started a thread yet
  if (const char* const tool = std::getenv("PERENNA_TEST_TUNE"); tool != nullptr) {
    const Finished tuned = RunProgram({tool, "tune", "--database", m_File});
    ASSERT_EQ(tuned.status, 0) << tool << ": " << tuned.output;
  }
  AddStoredUser("root", "plain_pw", "root");
  ASSERT_EQ(LocalAccessManager::InitUserManager(configuration), Tarn::RESULT_OK);
  ASSERT_TRUE(LocalAccessManager::GetUserManager(m_Manager));
  m_Log.Take();
}

void AccessDirectory::AddStoredUser(const std::string& user_id, const std::string& auth_method,
                                    const std::string& auth_value) const {
  Query("INSERT INTO users VALUES(?, ?, ?, '2026-01-31T12:00:00+00:00', 'root')", {user_id, auth_method, auth_value});
}

void AccessDirectory::AddUser(const std::string& user_id, const std::string& password) {
  ASSERT_EQ(Manager().CreateUser(Dict({{"user_id", user_id}, {"create_user", "root"}, {"password", password}})),
            Tarn::RESULT_FALSE)
      << user_id;
}

void AccessDirectory::AddGroup(const std::string& group_id, const std::vector<std::string>& user_ids) {
  ASSERT_EQ(Manager().CreateGroup(Dict({{"group_id", group_id}, {"group_name", "Group " + group_id}})),
            Tarn::RESULT_FALSE)
      << group_id;
  ASSERT_FALSE(Manager().SetGroupUsers(group_id, Array(user_ids)).Failed()) << group_id;
}

void AccessDirectory::AddFilter(const std::string& method, const std::string& group_id, const std::string& filter,
                                const std::string& action) {
  ASSERT_EQ(Manager().CreateFilter(
                Dict({{"method", method}, {"group_id", group_id}, {"filter", filter}, {"action", action}})),
            Tarn::RESULT_FALSE)
      << method << " " << group_id << " " << filter << " " << action;
}

bool AccessDirectory::Login(const std::string& user_id, const std::string& password) {
  return Manager().TestUserIdAndPassword(Perenna::HTTPRequest(Perenna::METH_GET, "/"), user_id, password);
}

bool AccessDirectory::May(const std::string& user_id, Perenna::Method_t method, const std::string& url) {
  return Manager().TestRequestForUser(Perenna::HTTPRequest(method, url), user_id);
}

std::vector<std::string> AccessDirectory::Options(const std::string& user_id, const std::string& url, bool* answer) {
  Perenna::PListArray methods;
  const bool any = Manager().GetOptionsMethods(Perenna::HTTPRequest(Perenna::METH_OPTIONS, url), user_id, methods);
  if (answer != nullptr) {
    *answer = any;
  }
  return Texts(methods);
}

} // namespace Testing
