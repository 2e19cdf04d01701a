#include "sync/writer/StoreWriter.h"

#include <chrono>
#include <optional>
#include <thread>

#include "directory/audit/RowChanges.h"
#include "directory/replica/SyncState.h"
#include "directory/text/Text.h"
#include "sync/store/StoreError.h"
#include "sync/writer/Submission.h"
#include "sync/writer/Touched.h"

namespace Sync {

using AccessDirectory::Database;
using AccessDirectory::Failure;
using AccessDirectory::Quoted;
using AccessDirectory::ReplicaRow;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

constexpr std::chrono::seconds CatchUpTime(10);
constexpr milliseconds LookAgain(1);
constexpr std::size_t SurelyTaken = 100; // operations of one transaction: a member takes 128 by default
constexpr std::size_t MostOperations = 2000;

ReplicaRow RowOf(Database& database) {
  auto row = AccessDirectory::ReadReplicaRow(database);
  if (!row) {
    throw Failure(Failure::Kind::System, "the database " + Quoted(database.File()) + " is no replica any more");
  }
  return *std::move(row);
}

/// Waits until the file has come as far as `is_there` wants; false when it does not in time.
template <typename Condition> bool WaitForFile(Database& database, const Condition& is_there) {
  const auto end = Clock::now() + CatchUpTime;
  while (!is_there(RowOf(database))) {
    if (Clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(LookAgain);
  }
  return true;
}

std::string AgentText(const std::string& file) {
  const auto state = AccessDirectory::ReadSyncState(file);
  return state ? "its agent is " + state->phase + (state->reason.empty() ? "" : ": " + state->reason)
               : "its agent does not run";
}

[[noreturn]] void ThrowOther(const std::string& file) {
  throw Failure(Failure::Kind::System, "the store is not the one that the replica " + Quoted(file) +
                                           " was made from, or lost some of its history; nothing was changed");
}

/// The head that the file is at: the newest of the store. Waits until it is.
Head CatchUp(Client& client, Database& database) {
  for (;;) {
    const ReplicaRow row = RowOf(database);
    const auto head = ReadHead(client, row.generation);
    if (head && head->revision >= row.revision && head->modified <= row.revision && head->successor == 0) {
      if (head->txn != row.head_txn) {
        if (RowOf(database).head_txn != row.head_txn) {
          continue; // it moved on while we asked
        }
        ThrowOther(database.File());
      }
      return *head;
    }
    if (head && head->revision < row.revision) {
      ThrowOther(database.File());
    }
    if (!head) {
      const auto current = ReadCurrent(client);
      if (!current || current->directory != row.directory) {
        ThrowOther(database.File());
      }
    }
    const Revision wanted = head ? head->modified : row.revision + 1;
    const bool replaced = !head || head->successor != 0;
    if (!WaitForFile(database, [&](const ReplicaRow& now) {
          return now.generation != row.generation || (!replaced && now.revision >= wanted);
        })) {
      throw Failure(Failure::Kind::System, "the replica " + Quoted(database.File()) + " is behind the store, and " +
                                               AgentText(database.File()) + "; nothing was changed");
    }
  }
}

} // namespace

class StoreWriter::Change : public AccessDirectory::PendingChange {
public:
  explicit Change(StoreWriter& writer)
      : m_Writer(writer), m_Client(writer.TakeClient()), m_Database(writer.m_File, Database::Access::Write),
        m_Touched(m_Database) {
    for (;;) {
      m_Base = CatchUp(*m_Client, m_Database);
      m_Transaction.emplace(m_Database);
      m_Row = RowOf(m_Database);
      if (m_Row.head_txn == m_Base.txn) {
        break;
      }
      m_Transaction.reset();
    }
    m_Database.Run("UPDATE perenna_replica SET writing = 1"); // is rolled back with everything else
  }
  ~Change() override { m_Writer.ReturnClient(std::move(m_Client)); }
  Change(const Change&) = delete;
  Change& operator=(const Change&) = delete;

  Database& TheDatabase() override { return m_Database; }

  void Commit() override {
    const std::vector<Sync::Change> changes = m_Touched.Differences();
    std::optional<AccessDirectory::Directory> whole;
    if (changes.size() > SurelyTaken) {
      whole = ReadWhole();
    }
    std::vector<std::string> rows = AccessDirectory::TakePendingRowChanges(m_Database);
    m_Transaction.reset(); // the file gets it from the store
    if (changes.empty()) {
      return;
    }
    const Submitted done = Send(changes, whole);
    AccessDirectory::AddRowChanges(std::move(rows));
    if (m_Writer.m_Waiting == Waiting::ForFile && !WaitForFile(m_Database, [&](const ReplicaRow& row) {
          return row.generation > done.generation ||
                 (row.generation == done.generation && row.revision >= done.revision);
        })) {
      throw Failure(Failure::Kind::System, "the change was made, at the store's revision " +
                                               std::to_string(done.revision) + ", but the replica " +
                                               Quoted(m_Database.File()) +
                                               " does not have it yet: " + AgentText(m_Database.File()));
    }
  }

private:
  Submitted Send(const std::vector<Sync::Change>& changes, const std::optional<AccessDirectory::Directory>& whole) {
    if (!whole || changes.size() <= MostOperations) {
      try {
        return Submit(*m_Client, m_Row.generation, m_Base, changes);
      } catch (const StoreError& error) {
        if (error.Why() != StoreError::Reason::TooLarge || !whole) {
          throw;
        }
      }
    }
    return SubmitWhole(*m_Client, m_Row.generation, m_Base, *whole);
  }

  AccessDirectory::Directory ReadWhole() {
    AccessDirectory::Directory whole = AccessDirectory::EmptyDirectory();
    for (std::size_t number = 0; number < AccessDirectory::SectionCount; ++number) {
      AccessDirectory::ForEachRow(m_Database, AccessDirectory::Sections.at(number), AccessDirectory::NotText::Refuse,
                                  [&](const std::vector<std::string>& texts) { whole.at(number).Append(texts); });
    }
    return whole;
  }

  StoreWriter& m_Writer;
  std::unique_ptr<Client> m_Client;
  Database m_Database;
  Touched m_Touched;
  std::optional<AccessDirectory::Transaction> m_Transaction;
  Head m_Base;
  ReplicaRow m_Row;
};

StoreWriter::StoreWriter(Settings settings, std::string file, Waiting waiting)
    : m_Settings(std::move(settings)), m_File(std::move(file)), m_Waiting(waiting) {}

StoreWriter::~StoreWriter() = default;

std::unique_ptr<AccessDirectory::PendingChange> StoreWriter::Begin() {
  return std::make_unique<Change>(*this);
}

/// Connections are kept: a change costs no new ones, of which TLS makes the dearest part.
std::unique_ptr<Client> StoreWriter::TakeClient() {
  const std::lock_guard<std::mutex> hold(m_Mutex);
  if (m_Idle.empty()) {
    return std::make_unique<Client>(m_Settings);
  }
  auto client = std::move(m_Idle.back());
  m_Idle.pop_back();
  return client;
}

void StoreWriter::ReturnClient(std::unique_ptr<Client> client) {
  const std::lock_guard<std::mutex> hold(m_Mutex);
  m_Idle.push_back(std::move(client));
}

} // namespace Sync
