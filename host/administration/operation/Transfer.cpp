// /access/directory: the whole of it, out and in.

#include <memory>

#include "directory/Progress.h"
#include "directory/transfer/DirectoryCheck.h"
#include "directory/transfer/DirectoryDifference.h"
#include "directory/transfer/DirectoryReader.h"
#include "directory/transfer/DirectoryText.h"
#include "directory/transfer/Input.h"
#include "host/administration/Change.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Database;
using AccessDirectory::Directory;
using AccessDirectory::FileFindings;
using AccessDirectory::Json;

namespace {

/// A directory that came over, and what there is to say about it.
struct Received {
  Directory directory = AccessDirectory::EmptyDirectory();
  std::vector<std::size_t> without_credential;
  FileFindings errors;
  FileFindings warnings;
};

void RefuseErrors(const FileFindings& errors) {
  if (errors.Count() > 0) {
    throw Refusal({400,
                   "the directory has " + AccessDirectory::Count(errors.Count(), "error") + "; nothing was changed",
                   {},
                   {},
                   {{"errors", errors.ToJson()}, {"error_count", errors.Count()}}});
  }
}

Received Read(const std::string& text) {
  Received received;
  AccessDirectory::Input input(text);
  ReadDirectory(input, received.directory, received.errors, received.without_credential);
  RefuseErrors(received.errors);
  return received;
}

/// The rest of the checks, with the credentials that are kept.
void Complete(Received& received, const Directory& stored, bool force) {
  AccessDirectory::Progress progress;
  FileFindings notes;
  KeepCredentials(received.directory, received.without_credential, stored, received.errors);
  CheckDirectory(received.directory, received.errors, received.warnings, notes, progress);
  received.warnings.Append(notes);
  if (received.directory[AccessDirectory::Users].Count() == 0 && !force) {
    received.errors.Add("users", "is empty: nobody could log in; \"force=true\" does it all the same");
  }
  RefuseErrors(received.errors);
}

/// Of everything that is stored.
std::string TagOfDirectory(const Call& call, const Directory& stored) {
  std::vector<std::string> texts;
  for (const AccessDirectory::Rows& rows : stored) {
    texts.push_back(std::to_string(rows.Count()));
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      texts.emplace_back(rows.Whole(row));
    }
  }
  return TagOf(call, texts);
}

} // namespace

Reply ExportDirectory(Call& call) {
  Database database(call.File(), Database::Access::Read);
  Reply reply;
  std::string etag;
  {
    const AccessDirectory::Snapshot snapshot(database);
    etag = TagOfDirectory(call, AccessDirectory::ReadStoredTexts(database));
    WriteRows(database, AccessDirectory::StoredCredentials::LeftOut,
              [&reply](const std::string& text) { reply.text += text; });
  }
  reply.fields.push_back({"ETag", etag});
  return reply;
}

Reply ImportDirectory(Call& call) {
  Received received = Read(call.text);
  std::string().swap(call.text);
  if (call.Flag("dry-run")) {
    call.done = nullptr;
    Database database(call.File(), Database::Access::Read);
    const Directory stored = [&database] {
      const AccessDirectory::Snapshot snapshot(database);
      return AccessDirectory::ReadStoredTexts(database);
    }();
    Complete(received, stored, call.Flag("force"));
    return {200,
            {{"dry_run", true},
             {"difference", AccessDirectory::DirectoryDifference(stored, received.directory).ToJson()},
             {"warnings", received.warnings.ToJson()},
             {"warning_count", received.warnings.Count()}}};
  }
  call.done = {{"operation", "import directory"}};
  Change change(call);
  const Directory stored = AccessDirectory::ReadStoredTexts(change.TheDatabase());
  change.RequireMatch(call.if_match ? TagOfDirectory(call, stored) : std::string());
  Complete(received, stored, call.Flag("force"));
  AccessDirectory::Progress progress;
  ReplaceDirectory(change.TheDatabase(), received.directory, progress);
  change.Commit();
  const Json counts = AccessDirectory::CountsJson(AccessDirectory::CountsOf(received.directory));
  call.done["imported"] = counts;
  return {
      200,
      {{"imported", counts}, {"warnings", received.warnings.ToJson()}, {"warning_count", received.warnings.Count()}}};
}

} // namespace Host
