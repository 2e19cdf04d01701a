#include "support/AccessDirectory.h"

#include <cstdlib>

namespace Testing {

using LocalAccessManager::UserManager;

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  for (const char character : text) {
    character == separator ? static_cast<void>(parts.emplace_back()) : parts.back().push_back(character);
  }
  return parts;
}

Perenna::PListDict Fields(const std::string& text) {
  Perenna::PListDict dict;
  for (const std::string& field : Split(text, ' ')) {
    const std::size_t equals = field.find('=');
    dict.SetValue(field.substr(0, equals), field.substr(equals + 1));
  }
  return dict;
}

Perenna::PListDict Configuration(const std::string& file) {
  Perenna::PListDict configuration;
  configuration.SetItem("LocalAccessManager", Dict({{"DatabaseFilename", file}}).Copy());
  return configuration;
}

std::string Answers(UserManager& manager) {
  const Perenna::HTTPRequest request(Perenna::METH_GET, "/");
  Perenna::X509Thumbprint thumbprint;
  thumbprint.DecodeBase64("AAECAwQFBgcICQoLDA0ODxAREhM=");
  const Perenna::PListDict filter = Fields("method=GET group_id=g filter=/ action=Allow");
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
       {manager.CreateUser(Fields("user_id=new create_user=root password=p")),
        manager.CreateGroup(Fields("group_id=new group_name=New")), manager.CreateFilter(filter),
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
  // NOLINTBEGIN(concurrency-mt-unsafe,cert-env33-c): the test has no thread yet, and the command is its own
  if (const char* const tool = std::getenv("PERENNA_TEST_TUNE"); tool != nullptr) {
    const std::string command = "'" + std::string(tool) + "' tune --database '" + m_File + "' 1>&2";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
  }
  // NOLINTEND(concurrency-mt-unsafe,cert-env33-c)
  AddStoredUser("root", "plain_pw", "root");
  ASSERT_EQ(LocalAccessManager::InitUserManager(configuration), Tarn::RESULT_OK);
  ASSERT_TRUE(LocalAccessManager::GetUserManager(m_Manager));
  m_Log.Take();
}

std::string AccessDirectory::Rows(const std::string& sql) const {
  std::string text;
  for (const BareDatabase::Row& row : BareDatabase(m_File).Query(sql)) {
    text += text.empty() ? "" : "; ";
    for (std::size_t column = 0; column < row.size(); ++column) {
      text += (column == 0 ? "" : "|") + row[column];
    }
  }
  return text;
}

void AccessDirectory::AddStoredUser(const std::string& user_id, const std::string& auth_method,
                                    const std::string& auth_value) const {
  BareDatabase(m_File).Query("INSERT INTO users VALUES(?, ?, ?, 'a date', 'root')", {user_id, auth_method, auth_value});
}

void AccessDirectory::AddUser(const std::string& user_id, const std::string& password) {
  ASSERT_EQ(Manager().CreateUser(Dict({{"user_id", user_id}, {"create_user", "root"}, {"password", password}})),
            Tarn::RESULT_FALSE);
}

void AccessDirectory::AddGroup(const std::string& group_id, const std::vector<std::string>& user_ids) {
  ASSERT_EQ(Manager().CreateGroup(Dict({{"group_id", group_id}, {"group_name", "name"}})), Tarn::RESULT_FALSE);
  ASSERT_FALSE(Manager().SetGroupUsers(group_id, Array(user_ids)).Failed()) << group_id;
}

void AccessDirectory::AddFilter(const std::string& filter) {
  const std::vector<std::string> values = Split(filter, ' ');
  ASSERT_EQ(values.size(), 4U) << filter;
  ASSERT_EQ(Manager().CreateFilter(
                Dict({{"method", values[0]}, {"group_id", values[1]}, {"filter", values[2]}, {"action", values[3]}})),
            Tarn::RESULT_FALSE);
}

bool AccessDirectory::Login(const std::string& user_id, const std::string& password) {
  return Manager().TestUserIdAndPassword(Perenna::HTTPRequest(Perenna::METH_GET, "/"), user_id, password);
}

bool AccessDirectory::May(const std::string& user_id, const std::string& request) {
  const std::size_t space = request.find(' ');
  Perenna::Method_t method{};
  EXPECT_TRUE(Perenna::StringToMethod(request.substr(0, space), method)) << request;
  return Manager().TestRequestForUser(Perenna::HTTPRequest(method, request.substr(space + 1)), user_id);
}

std::string AccessDirectory::Options(const std::string& user_id, const std::string& url) {
  Perenna::PListArray methods;
  std::string text =
      Manager().GetOptionsMethods(Perenna::HTTPRequest(Perenna::METH_OPTIONS, url), user_id, methods) ? "yes" : "no";
  for (const std::string& method : Texts(methods)) {
    text += " " + method;
  }
  return text;
}

} // namespace Testing
