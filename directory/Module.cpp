#include "directory/Module.h"

#include "directory/Failure.h"
#include "directory/file/Database.h"
#include "directory/Log.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

// Each attempt waits about 0.9 s inside the module.
constexpr int BusyAttempts = 5;

bool IsPatternError(const std::string& line) {
  return line.rfind("regex init failed", 0) == 0;
}

/// The first logged error that is the database's; patterns that do not compile are an ordinary part of a decision.
std::string DatabaseError() {
  for (const std::string& line : TheLog().Errors()) {
    if (!IsPatternError(line)) {
      return line;
    }
  }
  return {};
}

} // namespace

Module Module::OfProcess(const std::string& file) {
  LocalAccessManager::UserManager* manager = nullptr;
  if (!LocalAccessManager::GetUserManager(manager)) {
    throw Failure(Failure::Kind::System, "the database " + Quoted(file) + " is not open");
  }
  return {file, *manager};
}

Module::Module(const std::string& file)
    : m_File(file), m_Own(std::make_unique<LocalAccessManager::UserManager>()), m_Manager(m_Own.get()) {
  { const Database check(file, Database::Access::Write); } // the module shares the file even to read it
  Perenna::PListDict section;
  section.SetValue(LocalAccessManager::Strings::DatabaseFilename, file);
  TheLog().Clear();
  if (m_Manager->InitUserManager(section).Failed()) {
    const auto errors = TheLog().Errors();
    Fail(errors.empty() ? "it cannot be opened" : errors.back());
  }
}

void Module::Fail(const std::string& reason) const {
  throw Failure(Failure::Kind::System, "the database " + Quoted(m_File) + ": " + Shown(reason, Backslash::Kept));
}

Tarn::Result_t Module::Apply(const Change& change) {
  for (int attempt = 1;; ++attempt) {
    TheLog().Clear();
    Tarn::Result_t result = change(*m_Manager);
    if (TheLog().TimedOut()) {
      if (attempt < BusyAttempts) {
        continue;
      }
      Fail("it is busy: another program holds it locked");
    }
    const auto errors = TheLog().Errors();
    if (result == Tarn::RESULT_PARAM || result == Tarn::RESULT_STATE) {
      throw Failure(Failure::Kind::Input, errors.empty() ? result.message : Shown(errors.front()), result.symbol);
    }
    if (!errors.empty() || result == Perenna::RESULT_DB_FAILURE) {
      Fail(errors.empty() ? result.message : errors.front());
    }
    return result;
  }
}

bool Module::Ask(const Question& question) {
  for (int attempt = 1;; ++attempt) {
    TheLog().Clear();
    const bool answer = question(*m_Manager);
    if (TheLog().TimedOut() && attempt < BusyAttempts) {
      continue;
    }
    if (TheLog().TimedOut()) {
      Fail("it is busy: another program holds it locked");
    }
    const std::string error = DatabaseError();
    if (!error.empty()) {
      Fail(error);
    }
    return answer;
  }
}

bool Module::UserExists(const std::string& user_id) {
  return Ask([&user_id](LocalAccessManager::UserManager& manager) { return manager.UserExists(user_id); });
}

bool Module::GroupExists(const std::string& group_id) {
  return Ask([&group_id](LocalAccessManager::UserManager& manager) { return manager.GroupExists(group_id); });
}

} // namespace AccessDirectory
