#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "directory/text/Text.h"

namespace Sync {

using AccessDirectory::Json;

/// A revision of the store: every change of anything in it counts it up. 0: none.
using Revision = std::int64_t;

/// A key as the store holds it.
struct KeyValue {
  std::string key;
  std::string value;
  Revision modified = 0; ///< the revision that wrote it
};

/// What a read gives.
struct Page {
  std::string cluster;   ///< the cluster's id
  Revision revision = 0; ///< of the store when it was read
  std::vector<KeyValue> pairs;
  bool more = false; ///< there are keys beyond the limit
};

/// What a conditional change gives.
struct Outcome {
  bool succeeded = false;
  Revision revision = 0;       ///< of the store after it
  std::vector<KeyValue> pairs; ///< of the reads that a failed condition ran
};

/// One change of a key.
struct Event {
  bool deleted = false;
  KeyValue pair;
};

/// One message of a watch.
struct WatchMessage {
  Revision revision = 0; ///< of the store when it was sent
  std::vector<Event> events;
  bool fragment = false; ///< the rest of these revisions comes in the next message
  bool cancelled = false;
  Revision compacted = 0; ///< of a cancelled watch that wanted what is no longer kept: the first revision that is
  std::string reason;     ///< of a cancelled watch
};

// The gateway's JSON: bytes as base64, 64-bit numbers as texts, zeros and empty values left out. What cannot be read
// throws `StoreError` (Refused).

std::string Base64(const std::string& bytes);
std::string FromBase64(const std::string& text);

/// The end of the range of all keys that begin with `prefix`.
std::string EndOfPrefix(std::string prefix);

Page ReadPage(const std::string& body);
Outcome ReadOutcome(const std::string& body);
WatchMessage ReadWatchMessage(const std::string& line);

} // namespace Sync
