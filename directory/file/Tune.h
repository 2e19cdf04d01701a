#pragma once

#include <string>
#include <vector>

#include "directory/file/Database.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// One step of tuning a file, or of undoing it.
struct TuneStep {
  std::string what; ///< "index", "statistics" or "journal_mode"
  std::string name; ///< the index, the table of statistics, or the new journal mode
  std::string change;
  std::vector<std::string> statements;
  std::string why;

  Json ToJson() const;
};

/// What is left to do to tune the file, or to take back exactly what tuning made; empty when nothing is.
std::vector<TuneStep> StepsToTune(Database& database);
std::vector<TuneStep> StepsToUndo(Database& database);

/// Whether decisions find what they need through indexes that tuning made.
bool IsTuned(Database& database);

/// Do the steps. A program that uses the file waits meanwhile or tries again. When the file is busy, or SQLite would
/// not read the new indexes as intended, nothing is changed. Throw `Failure`. The connection serves no other purpose
/// afterwards: it may hold the file for itself until it is closed.
void Tune(Database& database, const std::vector<TuneStep>& steps);
void Undo(Database& database, const std::vector<TuneStep>& steps);

/// To be called after `Tune`, its connection closed: when the file can then not be written, because there is no memory
/// to share for instance, takes the journal mode back and throws `Failure`.
void CheckWriteAheadLog(const std::string& file);

} // namespace AccessDirectory
