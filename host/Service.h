#pragma once

#include "directory/change/ChangeWriter.h"
#include "host/Configuration.h"

namespace Host {

/// How a service ended.
enum class ServiceEnd {
  Asked,       ///< by SIGTERM or SIGINT, its connections served
  DatabaseGone ///< the database file was replaced or removed: a new process has to open the new one
};

/// The host: serves until it is asked to end. SIGHUP opens log files and TLS files anew. Says on standard error where
/// it listens, and to the log what happens to it.
///
/// Takes over the whole process: its log sink, its signals, and SQLite's error log, which has to be untouched. Throws
/// `AccessDirectory::Failure` when it cannot start.
///
/// `writer`: where the administration's changes go; outlives the call.
ServiceEnd Serve(const Configuration& configuration, AccessDirectory::ChangeWriter& writer);

} // namespace Host
