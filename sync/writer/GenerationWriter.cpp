#include "sync/writer/GenerationWriter.h"

#include <algorithm>

#include "sync/store/StoreError.h"

namespace Sync {

namespace {

constexpr std::size_t MostOperations = 1000;               // of a piece; halved while the store finds it too many
constexpr std::size_t MostBytes = std::size_t{512} * 1024; // of a piece: a third of what a member takes by default
constexpr std::size_t KeysRemovedAtOnce = 1000;

} // namespace

GenerationWriter::GenerationWriter(Client& client, Revision generation)
    : m_Client(client), m_Generation(generation), m_Head(NewHead()), m_MostOperations(MostOperations) {
  for (;; ++m_Generation) {
    const std::string key = HeadKey(client, m_Generation);
    const Outcome outcome = client.Commit({{"compare", {UnchangedSince(key, 0)}},
                                           {"success", {PutOperation(key, m_Head.Text())}},
                                           {"failure", {GetOperation(key)}}});
    if (outcome.succeeded) {
      m_Head.modified = outcome.revision;
      return;
    }
    if (!outcome.pairs.empty()) { // what was sent twice may have come twice
      const Head there = HeadFrom(outcome.pairs.front());
      if (there.txn == m_Head.txn) {
        m_Head.modified = there.modified;
        return;
      }
    }
  }
}

Json GenerationWriter::StillOurs() const {
  return UnchangedSince(HeadKey(m_Client, m_Generation), m_Head.modified);
}

void GenerationWriter::Add(const Entry& entry) {
  std::string key = GenerationPrefix(m_Client, m_Generation) + KeyOf(entry);
  std::string value = ValueOf(entry);
  const std::size_t bytes = key.size() + value.size();
  if (m_Pending.size() >= m_MostOperations || m_PendingBytes + bytes > MostBytes) {
    Write();
  }
  m_PendingBytes += bytes;
  m_Pending.emplace_back(std::move(key), std::move(value));
  ++m_Count;
}

void GenerationWriter::Finish() {
  Write();
}

void GenerationWriter::Write() {
  for (std::size_t begin = 0; begin < m_Pending.size();) {
    const std::size_t end = std::min(begin + m_MostOperations, m_Pending.size());
    Json operations = Json::array();
    for (std::size_t i = begin; i < end; ++i) {
      operations.push_back(PutOperation(m_Pending[i].first, m_Pending[i].second));
    }
    try {
      if (!m_Client.Commit({{"compare", {StillOurs()}}, {"success", std::move(operations)}}).succeeded) {
        throw StoreError(StoreError::Reason::Overtaken, "somebody removed generation " + std::to_string(m_Generation) +
                                                            " of the store while it was being written");
      }
      begin = end;
    } catch (const StoreError& error) {
      if (error.Why() != StoreError::Reason::TooLarge || end - begin == 1) {
        throw;
      }
      m_MostOperations = std::max<std::size_t>(1, (end - begin) / 2);
    }
  }
  m_Pending.clear();
  m_PendingBytes = 0;
}

void RemoveGeneration(Client& client, Revision generation) {
  const std::string prefix = GenerationPrefix(client, generation);
  const std::string head = HeadKey(client, generation);
  for (const auto& [begin, end] : {std::pair<std::string, std::string>{prefix, head}, // what is before the head
                                   std::pair<std::string, std::string>{head + '\0', EndOfPrefix(prefix)}}) {
    RangeQuery query{begin, end};
    query.limit = KeysRemovedAtOnce;
    query.keys_only = true;
    for (;;) {
      const Page page = client.Range(query);
      if (page.pairs.empty()) {
        break;
      }
      client.Commit({{"success", {DeleteOperation(page.pairs.front().key, page.pairs.back().key + '\0')}}});
    }
  }
  client.Commit({{"success", {DeleteOperation(head)}}});
}

void RemoveOldGenerations(Client& client, Revision current) {
  for (;;) {
    // The first key of a generation: numbers are followed by "/", so that "current" sorts behind them.
    RangeQuery query{client.Prefix() + "0", client.Prefix() + ":"};
    query.limit = 1;
    query.keys_only = true;
    bool removed = false;
    for (Page page = client.Range(query); !page.pairs.empty(); page = client.Range(query)) {
      const std::string number = page.pairs.front().key.substr(
          client.Prefix().size(), page.pairs.front().key.find('/', client.Prefix().size()) - client.Prefix().size());
      const bool is_number = !number.empty() && number.size() < 18 &&
                             std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
      if (is_number && std::stoll(number) < current) {
        RemoveGeneration(client, std::stoll(number));
        removed = true;
      }
      query.key = client.Prefix() + number + "0"; // behind all keys of this number: "0" follows "/"
    }
    if (!removed) {
      return;
    }
  }
}

} // namespace Sync
