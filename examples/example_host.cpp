// A host in miniature: example-host DATABASE asks whether alice may read a document.

#include <iostream>

#include <LocalAccessManager.h>

int main(int argc, char* argv[]) {
  auto* const section = new Perenna::PListDict; // owned by the configuration
  Perenna::PListDict configuration;
  configuration.SetItem(LocalAccessManager::Strings::LocalAccessManager, section);
  section->SetValue(LocalAccessManager::Strings::DatabaseFilename, argc > 1 ? argv[1] : "");

  LocalAccessManager::UserManager* manager = nullptr;
  if (LocalAccessManager::InitUserManager(configuration).Failed() || !LocalAccessManager::GetUserManager(manager)) {
    return 1; // the log says why
  }
  const Perenna::HTTPRequest request(Perenna::METH_GET, "/documents/7");
  const bool known = manager->TestUserIdAndPassword(request, "alice", "correct horse");
  const bool allowed = known && manager->TestRequestForUser(request, "alice");
  Perenna::PListArray methods;
  if (known) {
    manager->GetOptionsMethods(request, "alice", methods); // what an OPTIONS request is answered with
  }

  std::cout << "alice is " << (known ? "known" : "not known") << '\n'
            << "GET /documents/7 is " << (allowed ? "allowed" : "refused") << '\n'
            << "Allow:";
  for (const Perenna::PListItem* method : methods) {
    std::cout << ' ' << dynamic_cast<const Perenna::PListData&>(*method).GetValue();
  }
  std::cout << '\n';
}
