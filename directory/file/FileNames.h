#pragma once

#include <string>

namespace AccessDirectory {

// What the names of database files mean. SQLite keeps further files beside a database, under its name and an ending:
// "-journal", or "-wal" and "-shm". They belong to it: what they hold is not in the file itself yet.

/// Throws `Failure` for a name that SQLite would not take for that of a file: empty, ":memory:", one that begins with
/// "file:", or one with a NUL.
void RequireFileName(const std::string& file);

/// Throws `Failure` that names a file which belonged to an earlier database of this name, if there is one: it would
/// change the new one.
void RequireNoRemains(const std::string& database);

/// Throws `Failure` when `file`, also through links, is the database or one of the files beside it, or would get the
/// name of one.
void RequireApart(const std::string& file, const std::string& database);

/// Whether the file's mode lets every user of the machine read or write it. False when there is no such file.
bool OthersMayOpen(const std::string& file) noexcept;

} // namespace AccessDirectory
