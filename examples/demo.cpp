// perenna-demo DATABASE CERTIFICATE: asks the access module what a server would ask it, and prints question, answer
// and reason. scripts/demo makes the directory that it asks about.

#include <fstream>
#include <iostream>
#include <iterator>

#include <LocalAccessManager.h>

#include "directory/explain/Explanation.h"
#include "directory/file/Database.h"
#include "directory/Log.h"
#include "directory/Module.h"
#include "tool/terminal/Table.h"

namespace {

class Demo {
public:
  explicit Demo(const std::string& file) : m_Module(file), m_Database(file, AccessDirectory::Database::Access::Read) {}

  void AskPassword(const std::string& user, const std::string& password) {
    const bool known = m_Module.Manager().TestUserIdAndPassword(AnyRequest(), user, password);
    Add(user + " with password \"" + password + "\"?", known, "accepted", StoredAs(user, known));
  }

  void AskCertificate(const std::string& name, const Perenna::X509Certificate& certificate) {
    std::string user;
    const bool known = m_Module.Manager().TestUserCertificate(AnyRequest(), certificate, user);
    Add(name + "?", known, "accepted", known ? "its thumbprint is stored for " + user : "nobody has its thumbprint");
  }

  void AskRequest(const std::string& user, Perenna::Method_t method, const std::string& url) {
    const Perenna::HTTPRequest request(method, url);
    const AccessDirectory::Explanation explanation = AccessDirectory::Explain(m_Module, m_Database, request, user);
    Add(user + " " + Perenna::MethodToString(method) + " " + url + "?", explanation.allowed, "allowed",
        explanation.Reason());
  }

  void AskMethods(const std::string& user, const std::string& url) {
    Perenna::PListArray methods;
    const Perenna::HTTPRequest request(Perenna::METH_OPTIONS, url);
    const bool any = m_Module.Manager().GetOptionsMethods(request, user, methods);
    std::string names;
    for (const Perenna::PListItem* method : methods) {
      names += (names.empty() ? "" : ", ") + dynamic_cast<const Perenna::PListData&>(*method).GetValue();
    }
    m_Table.Add({user + " OPTIONS " + url + "?", names.empty() ? "none" : names,
                 any ? "an Allow filter matches, and no Deny filter" : "no filter of the user's groups matches"});
  }

  /// The server calls itself: the call is stamped with a key, which is resolved when the call comes in, twice.
  void AskSelfAccessKey() {
    LocalAccessManager::SelfAccessManager* keys = nullptr;
    LocalAccessManager::InitSelfAccessManager(Perenna::PListDict());
    if (!LocalAccessManager::GetSelfAccessManager(keys)) {
      return;
    }
    Perenna::BasicRestEntryCall call(Perenna::METH_GET);
    LocalAccessManager::SelfAuthRestCallback().Call(call);
    Tarn::UUID key;
    key.DecodeHex(call.RequestHeaders[LocalAccessManager::Strings::SelfCallbackId].c_str());
    for (const char* const time : {"first", "second"}) {
      const bool fresh = keys->ResolveSelfAccessKey(key);
      Add(std::string("self access key, ") + time + " use?", fresh, "accepted",
          fresh ? "issued here less than 10 s ago and not used yet" : "unknown, used or expired");
    }
  }

  void Print() const { m_Table.Print(std::cout); }

private:
  static Perenna::HTTPRequest AnyRequest() { return {Perenna::METH_GET, "/"}; }

  void Add(const std::string& question, bool yes, const std::string& accepted, const std::string& reason) {
    m_Table.Add(
        {question, yes ? Tool::Cell(accepted, Tool::Colour::Green) : Tool::Cell("refused", Tool::Colour::Red), reason});
  }

  std::string StoredAs(const std::string& user, bool known) {
    const auto methods = m_Database.Texts("SELECT auth_method FROM users WHERE user_id = ?", {user});
    if (methods.empty()) {
      return "there is no such user";
    }
    if (methods.front() != LocalAccessManager::Strings::sha256) {
      return "the user's stored credential is of method " + methods.front();
    }
    return known ? "the stored salted digest is the password's" : "the stored salted digest is another password's";
  }

  AccessDirectory::Module m_Module;
  AccessDirectory::Database m_Database;
  Tool::Table m_Table{{"QUESTION", "ANSWER", "REASON"}};
};

} // namespace

int main(int argc, char* argv[]) {
  if (argc != 3) {
    std::cerr << "usage: perenna-demo DATABASE CERTIFICATE\n";
    return 2;
  }
  try {
    AccessDirectory::TheLog();
    std::ifstream file(argv[2]);
    Perenna::X509Certificate certificate;
    if (certificate.DecodePEM({std::istreambuf_iterator<char>(file), {}}).Failed()) {
      std::cerr << "perenna-demo: no certificate in " << argv[2] << '\n';
      return 2;
    }
    Perenna::X509Thumbprint another;
    another.DecodeHex("5ba93c9db0cff93f52b521d7420e43f6eda2784f");
    Demo demo(argv[1]);
    demo.AskPassword("alice", "correct horse");
    demo.AskPassword("alice", "wrong horse");
    demo.AskPassword("bob", "anything");
    demo.AskPassword("mallory", "anything");
    demo.AskCertificate("bob's certificate", certificate);
    demo.AskCertificate("another certificate", Perenna::X509Certificate(another));
    demo.AskRequest("alice", Perenna::METH_GET, "/articles/7");
    demo.AskRequest("alice", Perenna::METH_PUT, "/articles/7");
    demo.AskRequest("alice", Perenna::METH_GET, "/articles/drafts/9");
    demo.AskRequest("bob", Perenna::METH_GET, "/articles/7");
    demo.AskRequest("bob", Perenna::METH_PUT, "/articles/7");
    demo.AskRequest("bob", Perenna::METH_GET, "/payroll");
    demo.AskRequest("mallory", Perenna::METH_GET, "/articles/7");
    demo.AskMethods("alice", "/articles/7");
    demo.AskMethods("bob", "/articles/7");
    demo.AskMethods("bob", "/payroll");
    demo.AskSelfAccessKey();
    demo.Print();
  } catch (const std::exception& error) {
    std::cerr << "perenna-demo: " << error.what() << '\n';
    return 3;
  }
}
