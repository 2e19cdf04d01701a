#include "tool/cli/AuditTrail.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <system_error>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include "directory/audit/RowChanges.h"
#include "directory/text/Text.h"

namespace Tool {

namespace {

std::string Now() {
  std::array<char, 32> text{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S+00:00", gmtime_r(&now, &parts)));
  return text.data();
}

/// The user of the system, by name where there is one; behind sudo, also who called it.
std::string Who() {
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
  std::string who = found == nullptr ? std::to_string(getuid()) : found->pw_name;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes it
  if (const char* const caller = getuid() == 0 ? std::getenv("SUDO_USER") : nullptr; caller != nullptr) {
    who += std::string(" (") + caller + ')';
  }
  return who;
}

std::string Terminal() {
  std::array<char, 256> name{};
  return ttyname_r(STDIN_FILENO, name.data(), name.size()) == 0 ? name.data() : std::string();
}

} // namespace

AuditTrail::AuditTrail(const std::string& file) : m_Name(file) {
  if (file.empty()) {
    return;
  }
  m_Descriptor = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640);
  if (m_Descriptor < 0) {
    throw Failure(Failure::Kind::System, "the audit trail " + Quoted(file) + " cannot be written: " +
                                             std::generic_category().message(errno) + "; nothing was done");
  }
  WatchRowChanges();
}

AuditTrail::~AuditTrail() {
  if (m_Descriptor >= 0) {
    close(m_Descriptor);
  }
}

void AuditTrail::Write(const std::vector<std::string>& command, ExitStatus status) {
  if (m_Descriptor < 0) {
    return;
  }
  const std::vector<std::string> rows = TakeRowChanges();
  bool restores = false;
  Json words = Json::array();
  for (std::size_t at = 0; at < command.size(); ++at) {
    const std::string& word = command[at];
    if (word.rfind("--audit", 0) == 0) { // where the line stands is no news in it
      at += word.find('=') == std::string::npos ? 1 : 0;
      continue;
    }
    words.push_back(JsonText(word));
    restores = restores || word == "restore";
  }
  if (rows.empty() && !(restores && status == ExitStatus::Done)) { // a restored file is not seen row by row
    return;
  }
  Json entry = {{"time", Now()}, {"user", JsonText(Who())}, {"terminal", JsonText(Terminal())}};
  entry["command"] = std::move(words);
  entry["status"] = static_cast<int>(status);
  std::string line = entry.dump(-1, ' ', true);
  line.pop_back();
  line += ",\"rows\":[";
  for (const std::string& row : rows) {
    line += (&row == &rows.front() ? "" : ",") + row;
  }
  line += "]}\n";
  if (write(m_Descriptor, line.data(), line.size()) != static_cast<ssize_t>(line.size())) { // whole, or said
    throw Failure(Failure::Kind::System, "the change was made, but the audit trail " + Quoted(m_Name) +
                                             " could not be written: " + std::generic_category().message(errno));
  }
}

} // namespace Tool
