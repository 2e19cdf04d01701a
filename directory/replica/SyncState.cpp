#include "directory/replica/SyncState.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

std::string ReadText(const std::string& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

/// A number of the machine's present run: what CLOCK_BOOTTIME said before means nothing in the next.
std::string BootId() {
  static const std::string s_id = ReadText("/proc/sys/kernel/random/boot_id");
  return s_id.substr(0, s_id.find('\n'));
}

/// Which file a name stands for now; it never comes back once the file is replaced.
Json IdentityOf(const std::string& database) {
  struct stat status = {};
  if (stat(database.c_str(), &status) != 0) {
    return nullptr;
  }
  return Json::array({static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)});
}

} // namespace

std::int64_t BootTime() noexcept {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now); // cannot fail: the kernel is new enough for the build
  return static_cast<std::int64_t>(now.tv_sec) * NanosecondsPerSecond + now.tv_nsec;
}

std::string SyncStateFile(const std::string& database) {
  return database + "-sync";
}

void WriteSyncState(const std::string& database, const SyncState& state) {
  const Json json = {{"phase", state.phase},
                     {"reason", JsonText(state.reason)},
                     {"member", JsonText(state.member)},
                     {"pid", state.pid},
                     {"fresh_at", state.fresh_at},
                     {"boot", BootId()},
                     {"file", IdentityOf(database)}};
  const std::string name = SyncStateFile(database);
  const std::string work = name + ".new";
  const std::string text = json.dump() + "\n";
  unlink(work.c_str()); // of an agent that was killed; a link that somebody put there is not followed
  const int descriptor = open(work.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640);
  const bool written =
      descriptor >= 0 && write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const int reason = errno;
  if (descriptor >= 0) {
    close(descriptor);
  }
  if (!written || std::rename(work.c_str(), name.c_str()) != 0) {
    throw Failure(Failure::Kind::System,
                  "cannot write " + Quoted(name) + ": " + std::generic_category().message(written ? errno : reason));
  }
}

std::optional<SyncState> ReadSyncState(const std::string& database) {
  const Json json = Json::parse(ReadText(SyncStateFile(database)), nullptr, false);
  if (!json.is_object()) {
    return std::nullopt;
  }
  try {
    if (BootId().empty() || json.at("boot") != BootId() || json.at("file").is_null() ||
        json.at("file") != IdentityOf(database)) {
      return std::nullopt;
    }
    const auto text = [&json](const char* name) {
      const Json& value = json.at(name);
      return value.is_string() ? value.get<std::string>() : std::string();
    };
    return SyncState{text("phase"), text("reason"), text("member"), json.at("pid").get<std::int64_t>(),
                     json.at("fresh_at").get<std::int64_t>()};
  } catch (const Json::exception&) {
    return std::nullopt; // of another program, or made by hand
  }
}

std::optional<std::chrono::nanoseconds> SyncAge(const std::string& database) {
  const std::optional<SyncState> state = ReadSyncState(database);
  const std::int64_t now = BootTime();
  if (!state || state->fresh_at <= 0 || state->fresh_at > now) {
    return std::nullopt;
  }
  return std::chrono::nanoseconds(now - state->fresh_at);
}

} // namespace AccessDirectory
