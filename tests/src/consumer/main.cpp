// A host in small: opens the database file named by its argument and asks one question of each layer.

#include <memory>

#include <LocalAccessManager.h>
#include <PN_Sqlite3.h>
#include <TN_log.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    return 2;
  }
  auto section = std::make_unique<Perenna::PListDict>();
  section->SetValue(LocalAccessManager::Strings::DatabaseFilename, argv[1]);
  Perenna::PListDict configuration;
  configuration.SetItem(LocalAccessManager::Strings::LocalAccessManager, section.release());
  LocalAccessManager::UserManager* manager = nullptr;
  if (LocalAccessManager::InitUserManager(configuration) != Tarn::RESULT_OK ||
      !LocalAccessManager::GetUserManager(manager)) {
    return 1;
  }
  const Perenna::HTTPRequest request(Perenna::METH_GET, "/");
  const bool refused = !manager->TestRequestForUser(request, "nobody") && !manager->UserExists("nobody");
  std::string salt;
  std::string digest;
  return refused && LocalAccessManager::SplitColonPair(calculate_sha_password_expression("p"), salt, digest) &&
                 salt.size() == 32 && digest.size() == 64
             ? 0
             : 1;
}
