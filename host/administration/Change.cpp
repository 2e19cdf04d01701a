#include "host/administration/Change.h"

#include <array>

#include "TN_util.h"
#include "host/decision/memory/KeyedDigest.h"

namespace Host {

using AccessDirectory::Database;
using AccessDirectory::Field;
using AccessDirectory::Json;
using AccessDirectory::JsonText;
using AccessDirectory::Quoted;
using AccessDirectory::Statement;

namespace {

Json Texts(const std::vector<std::string>& texts) {
  Json list = Json::array();
  for (const std::string& text : texts) {
    list.push_back(JsonText(text));
  }
  return list;
}

/// Whether a list of entity tags, or "*", holds the tag. Weak ones match nothing (RFC 9110, 13.1.1).
bool Holds(std::string_view list, std::string_view etag) {
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(','), list.size());
    std::string_view item = list.substr(0, end);
    list.remove_prefix(std::min(end + 1, list.size()));
    while (!item.empty() && (item.front() == ' ' || item.front() == '\t')) {
      item.remove_prefix(1);
    }
    while (!item.empty() && (item.back() == ' ' || item.back() == '\t')) {
      item.remove_suffix(1);
    }
    if (item == "*" || item == etag) {
      return true;
    }
  }
  return false;
}

} // namespace

std::string TagOf(const Call& call, const std::vector<std::string>& texts) {
  KeyedDigest digest(call.context.decisions.key);
  digest.Begin('e');
  for (const std::string& text : texts) {
    digest.Add(text);
  }
  const Digest tag = digest.Finish();
  std::array<char, 2 * sizeof tag + 1> hexadecimal{};
  const auto* const bytes = reinterpret_cast<const Tarn::byte_t*>(&tag);
  return std::string("\"") + Tarn::bin2hex(bytes, sizeof tag, hexadecimal.data(), hexadecimal.size()) + '"';
}

std::optional<Entity> FindUser(Call& call, Database& database, const std::string& user_id) {
  std::optional<Entity> entity;
  std::string credential;
  Statement(database, "SELECT user_id, auth_method, CAST(auth_value AS TEXT) AS auth_value, create_date, create_user "
                      "FROM users WHERE user_id = ? ORDER BY rowid LIMIT 1")
      .ForEach({user_id}, [&](const Perenna::PListDict& row) {
        entity.emplace();
        for (const char* const column : {"user_id", "auth_method", "create_date", "create_user"}) {
          entity->json[column] = JsonText(Field(row, column));
        }
        credential = Field(row, "auth_value");
      });
  if (entity) {
    entity->json["groups"] = Texts(database.Texts(
        "SELECT DISTINCT CAST(group_id AS TEXT) FROM groupusers WHERE user_id = ? ORDER BY group_id", {user_id}));
    entity->etag = TagOf(call, {entity->json.dump(), credential});
  }
  return entity;
}

std::optional<Entity> FindGroup(Call& call, Database& database, const std::string& group_id) {
  std::optional<Entity> entity;
  Statement(database, "SELECT group_id, CAST(group_name AS TEXT) AS group_name FROM groups WHERE group_id = ? "
                      "ORDER BY rowid LIMIT 1")
      .ForEach({group_id}, [&](const Perenna::PListDict& row) {
        entity.emplace();
        entity->json = {{"group_id", JsonText(Field(row, "group_id"))},
                        {"group_name", JsonText(Field(row, "group_name"))}};
      });
  if (entity) {
    entity->json["users"] = Texts(database.Texts(
        "SELECT DISTINCT CAST(user_id AS TEXT) FROM groupusers WHERE group_id = ? ORDER BY user_id", {group_id}));
    entity->etag = TagOf(call, {entity->json.dump()});
  }
  return entity;
}

Entity RequireUser(Call& call, Database& database, const std::string& user_id) {
  std::optional<Entity> entity = FindUser(call, database, user_id);
  if (!entity) {
    Refuse(404, "there is no user " + Quoted(user_id));
  }
  return *std::move(entity);
}

Entity RequireGroup(Call& call, Database& database, const std::string& group_id) {
  std::optional<Entity> entity = FindGroup(call, database, group_id);
  if (!entity) {
    Refuse(404, "there is no group " + Quoted(group_id));
  }
  return *std::move(entity);
}

Change::Change(Call& call)
    : m_Call(call), m_Pending(call.context.writer.Begin()),
      m_Guard(m_Pending->TheDatabase(), call.context.configuration.administrators) {}

void Change::RequireMatch(const std::string& etag) const {
  if (m_Call.if_match && !Holds(*m_Call.if_match, etag)) {
    Refuse(412, "the entry is no longer as it was: read it again");
  }
}

void Change::Commit() {
  if (!m_Call.Flag("force") && m_Guard.LostAll()) {
    Refuse(409, "nobody could administer any more: no user who can log in would be in the group " +
                    Quoted(m_Call.context.configuration.administrators) + "; \"force=true\" does it all the same");
  }
  m_Pending->Commit();
}

} // namespace Host
