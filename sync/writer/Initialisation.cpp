#include "sync/writer/Initialisation.h"

#include <set>

#include "directory/Failure.h"
#include "directory/file/Tune.h"
#include "directory/replica/ReplicaRow.h"
#include "sync/replica/Guards.h"
#include "sync/store/StoreError.h"
#include "sync/writer/GenerationWriter.h"

namespace Sync {

using AccessDirectory::Database;
using AccessDirectory::Failure;
using AccessDirectory::Quoted;
using AccessDirectory::SectionCount;
using AccessDirectory::Sections;

namespace {

constexpr Revision FirstGeneration = 1;

[[noreturn]] void RefuseFilled(const Client& client) {
  throw Failure(Failure::Kind::Refused, "the store holds a directory under " + Quoted(client.Prefix()) +
                                            " already; \"sync join\" makes this machine's file of it");
}

void RequireText(const AccessDirectory::Section& section, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    if (text.find('\0') != std::string::npos) {
      throw Failure(Failure::Kind::Refused, std::string("a ") + section.noun + " holds a NUL: " + Quoted(text));
    }
  }
}

void WriteRows(Database& database, GenerationWriter& writer, PutDirectory& done, AccessDirectory::Progress& progress) {
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const AccessDirectory::Section& section = Sections.at(number);
    std::set<std::vector<std::string>> seen; // users and groups are unique in their tables
    AccessDirectory::ForEachRow(database, section, AccessDirectory::NotText::Refuse,
                                [&](const std::vector<std::string>& texts) {
                                  progress.Advance(1);
                                  RequireText(section, texts);
                                  if (!section.HasDetails() && !seen.insert(texts).second) {
                                    ++done.merged;
                                    return;
                                  }
                                  writer.Add({static_cast<AccessDirectory::SectionNumber>(number), texts});
                                  ++done.counts.at(number);
                                });
  }
}

void MergeDuplicates(Database& database) {
  for (const AccessDirectory::Section& section : Sections) {
    if (!section.HasDetails()) {
      std::string columns;
      for (const std::string& column : section.columns) {
        columns += (columns.empty() ? "" : ", ") + column;
      }
      database.Run(std::string("DELETE FROM ") + section.table + " WHERE rowid NOT IN (SELECT min(rowid) FROM " +
                   section.table + " GROUP BY " + columns + ")");
    }
  }
}

} // namespace

PutDirectory PutIntoStore(Client& client, const std::string& file, AccessDirectory::Progress& progress) {
  if (ReadCurrent(client)) {
    RefuseFilled(client);
  }
  if (AccessDirectory::ReadReplicaRow(file)) {
    throw Failure(Failure::Kind::Refused, "the database " + Quoted(file) + " is a replica of another store already");
  }
  {
    Database database(file, Database::Access::Write);
    AccessDirectory::Tune(database, AccessDirectory::StepsToTune(database));
  }
  Database database(file, Database::Access::Write);
  AccessDirectory::Transaction transaction(database);
  PutDirectory done;
  done.directory = NewUuid();
  progress.Begin("Writing to the store", 0);
  GenerationWriter writer(client, FirstGeneration);
  WriteRows(database, writer, done, progress);
  writer.Finish();
  const std::string key = CurrentKey(client);
  Current current;
  current.generation = writer.Generation();
  current.directory = done.directory;
  const Outcome outcome = client.Commit({{"compare", {UnchangedSince(key, 0), writer.StillOurs()}},
                                         {"success", {PutOperation(key, TextOf(current))}},
                                         {"failure", {GetOperation(key)}}});
  Revision revision = outcome.revision;
  if (!outcome.succeeded) {
    const bool is_ours = !outcome.pairs.empty() && CurrentFrom(outcome.pairs.front()).directory == done.directory;
    if (!is_ours) {
      RemoveGeneration(client, writer.Generation());
      RefuseFilled(client);
    }
    revision = outcome.pairs.front().modified;
  }
  MergeDuplicates(database);
  MakeReplicaTable(database);
  RestoreGuards(database);
  database.Run("UPDATE perenna_replica SET directory = ?, cluster_id = ?, generation = CAST(? AS INTEGER), "
               "revision = CAST(? AS INTEGER), head_txn = ?",
               {done.directory, ReadHead(client, current.generation)->cluster, std::to_string(current.generation),
                std::to_string(revision), writer.TheHead().txn});
  transaction.Commit();
  return done;
}

} // namespace Sync
