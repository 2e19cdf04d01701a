#include "support/HostileMachine.h"

#include <atomic>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <unistd.h>

namespace Testing {

namespace {

std::string LastError(const std::string& what) {
  return what + ": " + std::system_category().message(errno);
}

void Write(const char* file, const std::string& text) {
  std::ofstream(file) << text;
}

/// Enters a mount namespace of this process; without the privilege, as the root of a user namespace of its own.
bool EnterOwnMounts() {
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
      return false;
    }
    Write("/proc/self/setgroups", "deny");
    Write("/proc/self/uid_map", "0 " + user + " 1");
    Write("/proc/self/gid_map", "0 " + group + " 1");
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

sqlite3_mem_methods s_memory{};
std::atomic<int> s_fail_at{0}; // counts down; 0: no failure is wanted any more
std::atomic<bool> s_failed{false};

bool FailsNow() {
  if (s_fail_at.load() > 0 && s_fail_at.fetch_sub(1) == 1) {
    s_failed = true;
    return true;
  }
  return false;
}

} // namespace

SmallDisk::SmallDisk(std::string directory, unsigned kibibytes) : m_Directory(std::move(directory)) {
  const std::string options = "size=" + std::to_string(kibibytes) + "k";
  if (!EnterOwnMounts()) {
    m_Refusal = LastError("cannot enter a mount namespace");
  } else if (mount("perenna-test", m_Directory.c_str(), "tmpfs", 0, options.c_str()) != 0) {
    m_Refusal = LastError("cannot mount a small disk");
  }
}

SmallDisk::~SmallDisk() {
  if (m_Refusal.empty()) {
    umount2(m_Directory.c_str(), MNT_DETACH);
  }
}

bool SmallDisk::MakeReadOnly() {
  return mount("none", m_Directory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

FailingMemory::FailingMemory() {
  sqlite3_shutdown();
  sqlite3_mem_methods failing{};
  if (sqlite3_config(SQLITE_CONFIG_GETMALLOC, &s_memory) != SQLITE_OK) {
    throw std::runtime_error("SQLite is in use already");
  }
  failing = s_memory;
  failing.xMalloc = [](int size) { return FailsNow() ? nullptr : s_memory.xMalloc(size); };
  failing.xRealloc = [](void* block, int size) { return FailsNow() ? nullptr : s_memory.xRealloc(block, size); };
  // Without the lookaside pool, which would keep most small allocations from failing.
  if (sqlite3_config(SQLITE_CONFIG_MALLOC, &failing) != SQLITE_OK ||
      sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) != SQLITE_OK || sqlite3_initialize() != SQLITE_OK) {
    throw std::runtime_error("SQLite does not take the memory functions");
  }
}

void FailingMemory::FailAt(int count) {
  s_failed = false;
  s_fail_at = count;
}

bool FailingMemory::Failed() {
  return s_failed;
}

} // namespace Testing
