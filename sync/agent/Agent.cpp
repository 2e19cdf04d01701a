#include "sync/agent/Agent.h"

#include <algorithm>
#include <random>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "sync/agent/Standing.h"
#include "sync/agent/Synchronisation.h"
#include "sync/store/StoreError.h"

namespace Sync {

using AccessDirectory::Failure;
using AccessDirectory::Quoted;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr milliseconds LookEach(1000);
constexpr milliseconds LookSoon(200);
constexpr std::int64_t OldNanoseconds = 2'000'000'000;
constexpr milliseconds RepairEach(5000); // at most: a program that keeps writing must not keep us reading the store
constexpr milliseconds FirstPause(50);
constexpr milliseconds LongestPause(5000);
constexpr milliseconds StoppedPause(1000);
constexpr std::int64_t StalledNanoseconds = 2'500'000'000; // behind without a word from the stream

/// Machines that lost the store together do not come back together.
milliseconds Jittered(milliseconds pause) {
  static std::minstd_rand s_random{std::random_device{}()}; // NOLINT(cert-msc51-cpp): no secret
  const auto half = pause.count() / 2;
  return milliseconds(half + std::uniform_int_distribution<milliseconds::rep>(0, half)(s_random));
}

bool Exists(const std::string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0;
}

} // namespace

Agent::Agent(Settings settings, std::string file, int stop, Log log)
    : m_File(std::move(file)), m_Stop(stop), m_Log(std::move(log)), m_Client(std::move(settings)), m_Pause(FirstPause),
      m_Repaired(Clock::now() - RepairEach) {
  m_State.pid = getpid();
}

void Agent::Run() {
  if (Exists(m_File)) {
    m_Replica = std::make_unique<Replica>(m_File);
  }
  while (!ShallEnd()) {
    try {
      Turn();
      continue;
    } catch (const StoreError& error) {
      Enter(error.Why() == StoreError::Reason::Refused ? "failing" : "away", error.what());
    } catch (const Failure& failure) {
      Enter("failing", failure.what());
    }
    if (Wait(Jittered(m_Pause))) {
      return;
    }
    m_Pause = std::min(m_Pause * 2, LongestPause);
  }
}

/// From a first question to the store to the loss of its answers.
void Agent::Turn() {
  OpenFile();
  const Standing standing = StandingOf(m_Client, m_Replica->Row());
  if (standing.course == Standing::Course::Stop) {
    Stopped(standing.reason);
    return;
  }
  if (standing.course == Standing::Course::Synchronise) {
    Synchronise(standing.current, standing.reason);
  }
  Follow();
}

/// Makes the file where there is none; looks whether it is still the one that is open.
void Agent::OpenFile() {
  if (m_Replica != nullptr && m_Replica->IsInPlace()) {
    m_Replica->Reread();
    return;
  }
  if (m_Replica != nullptr) {
    m_Log("the file " + Quoted(m_File) + " was removed or replaced");
    m_Replica.reset();
    m_Freshness.Forget();
  }
  if (!Exists(m_File)) {
    Enter("synchronising", "the file is being made");
    const Synchronised made = MakeReplica(m_Client, m_File);
    m_Log("made the file " + Quoted(m_File) + " with " + std::to_string(made.entries) + " entries");
  }
  m_Replica = std::make_unique<Replica>(m_File);
}

void Agent::Synchronise(const Current& current, const std::string& why) {
  Enter("synchronising", why);
  const Synchronised done = Sync::Synchronise(m_Client, *m_Replica, current);
  m_Log("synchronised as a whole, since " + why + ": " + std::to_string(done.entries) + " entries, " +
        std::to_string(done.changed) + " rows changed");
}

/// What somebody changed past the triggers goes; what he dropped of them comes back.
void Agent::Repair(const std::string& why) {
  m_Repaired = Clock::now();
  const auto current = ReadCurrent(m_Client);
  if (!current || current->directory != m_Replica->Row().directory) {
    return; // the next look says what is wrong
  }
  const Synchronised done = Sync::Synchronise(m_Client, *m_Replica, *current);
  m_Replica->WasTouched(); // ours included
  m_Log(why + ": " + std::to_string(done.changed) + " rows were put right");
}

void Agent::Follow() {
  if (m_Replica->LostGuards()) {
    Repair("the file's schema was changed");
  }
  Follower follower(m_Client, *m_Replica);
  const std::string member = m_Client.Member();
  m_Look = Clock::now();
  while (!ShallEnd()) {
    const auto left = std::chrono::duration_cast<milliseconds>(m_Look - Clock::now());
    const Follower::End end = follower.Step(std::max(left, milliseconds(0)), m_Stop);
    m_Freshness.Reached(m_Replica->Row());
    if (end == Follower::End::Lost) {
      m_Client.NextMember();
      throw StoreError(StoreError::Reason::Away, member + ": " + follower.Reason());
    }
    if (end != Follower::End::None) {
      return; // asks anew how it stands
    }
    if (Clock::now() >= m_Look) {
      LookAround(follower);
      if (m_Client.Member() != member || m_State.phase != "following") {
        return; // the stream's member did not answer
      }
    }
  }
}

/// Once a second: whether the newest state is ours, and whether the file still is.
void Agent::LookAround(Follower& follower) {
  m_Look = Clock::now() + LookEach;
  if (!m_Replica->IsInPlace()) {
    throw Failure(Failure::Kind::System, "the file " + Quoted(m_File) + " was removed or replaced");
  }
  const std::int64_t sent = AccessDirectory::BootTime();
  const auto head = ReadHead(m_Client, m_Replica->Row().generation);
  const Freshness::Finding finding = m_Freshness.Saw(sent, head, m_Replica->Row());
  if (finding == Freshness::Finding::Another) {
    Enter("away", "the store's head is not this file's");
    return;
  }
  const bool has_heard = follower.HasHeard();
  if (finding == Freshness::Finding::Behind && !has_heard &&
      AccessDirectory::BootTime() - m_Freshness.BehindSince() > StalledNanoseconds) {
    m_Client.NextMember();
    throw StoreError(StoreError::Reason::Away, "the stream stalled");
  }
  if (finding == Freshness::Finding::Behind && sent - m_Freshness.FreshAt() > OldNanoseconds) {
    m_Look = Clock::now() + LookSoon; // for whoever waits for a fresh file
  }
  m_Pause = FirstPause;
  if (m_State.phase != "following") {
    Enter("following", "");
  } else {
    Note();
  }
  if (Clock::now() - m_Repaired >= RepairEach && (m_Replica->WasTouched() || m_Replica->LostGuards())) {
    if (m_Replica->Reread()) {
      Enter("away", "another program has written the file's row");
      return;
    }
    Repair("another program has changed the file");
  }
}

void Agent::Stopped(const std::string& reason) {
  Enter("stopped", reason + "; the file is kept as it is; \"sync --adopt\" takes the store's directory all the same");
  Wait(StoppedPause);
}

/// Whether the agent is to end; waits at most `time` for it.
bool Agent::Wait(milliseconds time) const {
  pollfd event = {m_Stop, POLLIN, 0};
  return poll(&event, 1, static_cast<int>(time.count())) > 0;
}

void Agent::Enter(const std::string& phase, const std::string& reason) {
  if (m_State.phase != phase || m_State.reason != reason) {
    m_Log(phase + (reason.empty() ? ": " + m_Client.Member() : ": " + reason));
  }
  m_State.phase = phase;
  m_State.reason = reason;
  Note();
}

/// What cannot be noted only makes the file look older than it is.
void Agent::Note() {
  m_State.member = m_Client.Member();
  m_State.fresh_at = m_Freshness.FreshAt();
  if (!Exists(m_File)) {
    return;
  }
  try {
    AccessDirectory::WriteSyncState(m_File, m_State);
  } catch (const Failure& failure) {
    m_Log(failure.what());
  }
}

} // namespace Sync
