#pragma once

#include <functional>
#include <memory>
#include <string>

#include "directory/replica/SyncState.h"
#include "sync/agent/Follower.h"
#include "sync/agent/Freshness.h"
#include "sync/replica/Replica.h"
#include "sync/store/Client.h"

namespace Sync {

/// Keeps one replica file in step with the store until it is asked to end. Whatever fails, the file stays at one whole
/// revision and the agent goes on trying, with pauses that grow; what it finds stands in the file's `SyncState`. One
/// thread runs it.
class Agent {
public:
  /// Told of what happens, a sentence each.
  using Log = std::function<void(const std::string& sentence)>;

  /// `stop`: a descriptor that can be read once the agent is to end.
  Agent(Settings settings, std::string file, int stop, Log log);

  /// Returns when it was asked to end. Throws `AccessDirectory::Failure` only when the very first look at the file
  /// finds one that is no replica.
  void Run();

private:
  enum class Next { Again, End };

  void Turn();
  void OpenFile();
  void Follow();
  void LookAround(Follower& follower);
  void Repair(const std::string& why);
  void Synchronise(const Current& current, const std::string& why);
  void Stopped(const std::string& reason);
  bool Wait(std::chrono::milliseconds time) const;
  bool ShallEnd() const { return Wait(std::chrono::milliseconds(0)); }
  void Enter(const std::string& phase, const std::string& reason);
  void Note();

  std::string m_File;
  int m_Stop;
  Log m_Log;
  Client m_Client;
  std::unique_ptr<Replica> m_Replica;
  AccessDirectory::SyncState m_State;
  Freshness m_Freshness;
  std::chrono::milliseconds m_Pause;
  std::chrono::steady_clock::time_point m_Look; // when to look around again
  std::chrono::steady_clock::time_point m_Repaired;
};

} // namespace Sync
