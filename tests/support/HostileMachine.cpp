#include "support/HostileMachine.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/random.h>
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

thread_local int s_fail_at = 0; // counts down; 0: no failure is wanted any more
thread_local bool s_failed = false;

std::atomic<std::int64_t (*)() noexcept> s_clock{nullptr};
std::atomic<bool (*)(unsigned char*, unsigned) noexcept> s_random{nullptr};

} // namespace

} // namespace Testing

using namespace Testing;

// The libraries find these functions of the executable before those of the C library and of OpenSSL.
extern "C" {

std::time_t time(std::time_t* timer) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const auto clock = s_clock.load();
  const std::time_t seconds = clock == nullptr ? now.tv_sec : clock();
  timer == nullptr ? void() : void(*timer = seconds);
  return seconds;
}

int RAND_bytes(unsigned char* buffer, int count) {
  if (const auto random = s_random.load()) {
    return random(buffer, static_cast<unsigned>(count)) ? 1 : 0;
  }
  return getrandom(buffer, static_cast<std::size_t>(count), 0) == count ? 1 : 0;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define PERENNA_TEST_FAILING_MEMORY
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the C library's names for its own
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

static bool FailsNow() noexcept {
  if (s_fail_at == 0 || --s_fail_at > 0) {
    return false;
  }
  s_failed = true;
  errno = ENOMEM;
  return true;
}
void* malloc(std::size_t size) noexcept {
  return FailsNow() ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t nmemb, std::size_t size) noexcept {
  return FailsNow() ? nullptr : __libc_calloc(nmemb, size);
}
void* realloc(void* ptr, std::size_t size) noexcept {
  return FailsNow() ? nullptr : __libc_realloc(ptr, size);
}
#endif

} // extern "C"

namespace Testing {

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
  // Without the lookaside pool, which would keep most small allocations from failing.
  if (sqlite3_shutdown() != SQLITE_OK || sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) != SQLITE_OK) {
    throw std::runtime_error("SQLite is in use already");
  }
}

bool FailingMemory::Available() {
#ifdef PERENNA_TEST_FAILING_MEMORY
  return true;
#else
  return false;
#endif
}

void FailingMemory::FailAt(int count) {
  s_failed = count == 0 && s_failed;
  s_fail_at = count;
}

bool FailingMemory::Failed() {
  return s_failed;
}

void SetClock(std::int64_t (*clock)() noexcept) {
  s_clock = clock;
}

void SetRandom(bool (*random)(unsigned char* buffer, unsigned count) noexcept) {
  s_random = random;
}

} // namespace Testing
