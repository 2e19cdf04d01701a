#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "sync/Settings.h"
#include "sync/store/Transport.h"
#include "sync/store/Wire.h"

namespace Sync {

/// What to read: one key, or with `end` all keys from `key` to before it, in ascending order.
struct RangeQuery {
  std::string key;
  std::string end = {};
  Revision revision = 0; ///< 0: the newest, which a majority has confirmed when the answer comes
  std::size_t limit = 0; ///< 0: all
  bool keys_only = false;
};

/// Requests to the store over the JSON gateway of its version 3 interface. Asks one member; one that fails makes the
/// next the one to ask, within two rounds. Authenticates by itself, and again when its token has expired. Throws
/// `StoreError`. One thread uses an object.
class Client {
public:
  explicit Client(Settings settings);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Page Range(const RangeQuery& query);

  /// A conditional change, in the gateway's form: {"compare": [...], "success": [...], "failure": [...]}. After a
  /// silent failure it is sent again, to another member: its condition must hold only once.
  Outcome Commit(const Json& transaction);

  /// Begins to follow the keys that begin with `prefix`, all revisions from `first` on, at the member that answered
  /// last. Lines are for `ReadWatchMessage`.
  std::unique_ptr<Stream> Watch(const std::string& prefix, Revision first);

  /// The member that is asked.
  const std::string& Member() const { return m_Settings.endpoints[m_Member]; }
  /// Leaves a member that does not keep up.
  void NextMember();

  const std::string& Prefix() const noexcept { return m_Settings.prefix; }

private:
  std::string Call(const std::string& path, const std::string& body, std::chrono::milliseconds patience);
  std::optional<std::string> Try(const std::string& path, const std::string& body, std::chrono::milliseconds patience,
                                 std::string& reason);
  void Authenticate();

  Settings m_Settings;
  Transport m_Transport;
  std::size_t m_Member;
  std::string m_Token;
};

// Parts of a transaction in the gateway's form.
Json PutOperation(const std::string& key, const std::string& value);
Json DeleteOperation(const std::string& key, const std::string& end = {});
Json GetOperation(const std::string& key);
/// That the key was last written by this revision; 0: that there is no such key.
Json UnchangedSince(const std::string& key, Revision revision);

} // namespace Sync
