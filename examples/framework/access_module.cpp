// The access manager as a module of the framework: the only file that knows both.

#include <array>
#include <cstdio>
#include <string>

#include <LocalAccessManager.h>
#include <TN_log.h>

#include "framework.h"

namespace {

constexpr const char* Name = "access";
constexpr std::size_t LineBytes = 4096;

/// The access manager's log lines become the framework's. They may hold ids and patterns that somebody chose: what
/// could forge another line is replaced.
class FrameworkLog : public Tarn::ILogSink {
public:
  void Use(const framework& framework) { m_Log = framework.log; }
  void VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) override {
    std::array<char, LineBytes> text{};
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
    if (level == Tarn::LOG_DEBUG || m_Log == nullptr) {
      return;
    }
    std::string line = text.data();
    line.erase(line.find_last_not_of('\n') + 1);
    for (char& byte : line) {
      byte = byte < ' ' || byte > '~' ? '?' : byte;
    }
    m_Log(Name, line.c_str());
  }

private:
  void (*m_Log)(const char* module, const char* line) = nullptr;
};

/// Until the end of the process, as the access manager itself.
FrameworkLog& TheLog() {
  static auto* const log = new FrameworkLog;
  return *log;
}

int Start(const framework* framework) {
  TheLog().Use(*framework);
  Tarn::SetDefaultLogSink(&TheLog());
  auto* const section = new Perenna::PListDict; // owned by the configuration
  Perenna::PListDict configuration;
  configuration.SetItem(LocalAccessManager::Strings::LocalAccessManager, section);
  section->SetValue(LocalAccessManager::Strings::DatabaseFilename, framework->configuration);
  return LocalAccessManager::InitUserManager(configuration).Failed() ? 1 : 0;
}

int Allows(const char* user, const char* password, const char* method, const char* target) {
  LocalAccessManager::UserManager* manager = nullptr;
  Perenna::Method_t token = Perenna::METH_MAX;
  if (!LocalAccessManager::GetUserManager(manager) || !Perenna::StringToMethod(method, token)) {
    return 0;
  }
  const Perenna::HTTPRequest request(token, target);
  return manager->TestUserIdAndPassword(request, user, password) && manager->TestRequestForUser(request, user) ? 1 : 0;
}

} // namespace

extern "C" __attribute__((visibility("default"))) const framework_module framework_module = {Name, Start, Allows};
