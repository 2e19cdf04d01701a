#include "host/administration/Route.h"

#include <algorithm>

#include "host/administration/operation/Operations.h"

namespace Host {

namespace {

const Member Skip = {"skip", "skip", false, "How many entries to pass over"};
const Member Limit = {"limit", "limit", false, "How many entries at most, or \"all\"; 100 when it is not given"};
const Member Force = {"force", "boolean", false, "Whether the last administrator may go"};
const Member UserId = {"user_id", "string", true, "The user's id"};
const Member Method = {"method", "string", true, "The method's name"};
const Member Url = {"url", "string", true, "The request target, as filters see it"};
const Member GroupId = {"group_id", "string", true, "The group's id"};
const Member Filter = {"filter", "string", true, "The pattern, a POSIX extended regular expression"};
const Member Action = {"action", "string", true, "\"Allow\" or \"Deny\""};
const Member Unchecked = {"unchecked", "boolean", false, "Whether to store a filter that could never apply"};

const std::vector<Member> NewCredential = {
    {"password", "string", false, "A password"},
    {"certificate", "string", false, "A certificate, PEM"},
    {"thumbprint", "string", false, "A certificate's SHA-1 thumbprint, in hexadecimal or base64"}};

std::vector<Member> With(std::vector<Member> members, const std::vector<Member>& others) {
  members.insert(members.end(), others.begin(), others.end());
  return members;
}

Member Optional(Member member) {
  member.required = false;
  return member;
}

std::vector<Route> MakeRoutes() {
  const Member search = {"search", "string", false, "Only entries whose id or name holds the text, in any letter case"};
  const Member dry_run = {"dry-run", "boolean", false, "Whether only to tell what would change"};
  const auto form = BodyForm::Object;
  const auto ids = BodyForm::Ids;
  const auto known = Asker::Known;
  return {
      {"GET", "/access/me", "Who the caller is", GetMe, {}, BodyForm::None, {}, 200, false, known},
      {"PUT",
       "/access/me/credential",
       "Change the caller's own password",
       PutMyCredential,
       {},
       form,
       {{"current_password", "string", true, "The password as it is"}, {"password", "string", true, "The new one"}},
       204,
       false,
       known},

      {"GET",
       "/access/users",
       "List users",
       ListUsers,
       {Skip, Limit, {"group", "string", false, "Only members of this group"}, search}},
      {"POST",
       "/access/users",
       "Create a user",
       CreateUser,
       {},
       form,
       With(With({UserId}, NewCredential), {{"groups", "array", false, "The ids of groups"}}),
       201},
      {"GET", "/access/users/{user_id}", "One user", GetUser},
      {"DELETE", "/access/users/{user_id}", "Delete a user", DeleteUser, {Force}, BodyForm::None, {}, 204, true},
      {"PUT", "/access/users/{user_id}/groups", "Replace a user's groups", PutUserGroups, {Force}, ids, {}, 200, true},
      {"PUT",
       "/access/users/{user_id}/credential",
       "Replace a user's credential",
       PutUserCredential,
       {Force},
       form,
       NewCredential,
       204,
       true},

      {"GET", "/access/groups", "List groups", ListGroups, {Skip, Limit, search}},
      {"POST",
       "/access/groups",
       "Create a group",
       CreateGroup,
       {},
       form,
       {GroupId,
        {"group_name", "string", false, "Its name; the id when it is not given"},
        {"users", "array", false, "The ids of its users"}},
       201},
      {"GET", "/access/groups/{group_id}", "One group", GetGroup},
      {"DELETE", "/access/groups/{group_id}", "Delete a group", DeleteGroup, {Force}, BodyForm::None, {}, 204, true},
      {"PUT", "/access/groups/{group_id}/users", "Replace a group's users", PutGroupUsers, {Force}, ids, {}, 200, true},
      {"PUT",
       "/access/groups/{group_id}/users/{user_id}",
       "Add a user to a group",
       PutMembership,
       {},
       BodyForm::None,
       {},
       204,
       true},
      {"DELETE",
       "/access/groups/{group_id}/users/{user_id}",
       "Take a user out of a group",
       DeleteMembership,
       {Force},
       BodyForm::None,
       {},
       204,
       true},

      {"GET",
       "/access/filters",
       "List filters",
       ListFilters,
       {Skip, Limit, {"group", "string", false, "Only those of this group"}}},
      {"POST",
       "/access/filters",
       "Create a filter",
       CreateFilter,
       {Unchecked},
       form,
       {Method, GroupId, Filter, Action},
       201},
      {"DELETE",
       "/access/filters",
       "Delete a filter",
       DeleteFilter,
       {Method, GroupId, Filter, Action},
       BodyForm::None,
       {},
       204},

      {"GET",
       "/access/what-if",
       "What a filter would change: of the last decisions, and for all targets",
       WhatIf,
       {{"change", "string", true, "\"add\" or \"delete\""}, Method, GroupId, Filter, Action}},

      {"GET", "/access/check", "May a user do this, and why", Check, {UserId, Method, Url}},
      {"GET",
       "/access/who",
       "Who may do this",
       Who,
       {Method,
        Url,
        {"refused", "boolean", false, "Whether to list those whom a Deny keeps out"},
        {"limit", "limit", false, "How many users at most; all when it is not given. \"total\" counts all"}}},
      {"GET", "/access/methods", "Which methods a user may use", Methods, {UserId, Url}},
      {"GET",
       "/access/findings",
       "What is odd in the directory",
       Findings,
       {{"limit", "limit", false,
         "How many findings of a kind at most; all when it is not given. \"kinds\" counts all"}}},
      {"GET",
       "/access/matrix",
       "Who may do what, on all targets",
       ShowMatrix,
       {{"by", "string", false, "\"groups\", each by itself, or \"users\", those with the same groups together"}}},
      {"GET", "/access/directory", "The whole directory, without credentials", ExportDirectory},
      {"PUT",
       "/access/directory",
       "Replace the whole directory",
       ImportDirectory,
       {dry_run, Force},
       BodyForm::Directory,
       {},
       200,
       true},
      {"POST", "/access/batch", "Several requests, one after the other", Batch, {}, BodyForm::Calls},
      {"GET",
       "/access/decisions",
       "The last decisions, newest first",
       ListDecisions,
       {Skip, Limit, {"outcome", "string", false, "Only those of this outcome"}, Optional(UserId)}},
      {"GET", "/access/openapi.json", "This description", OpenApi},
  };
}

std::vector<std::string_view> Segments(std::string_view path) {
  std::vector<std::string_view> segments;
  for (std::size_t begin = 1; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    segments.push_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return segments;
}

/// In normal form every "%" has two upper-case digits.
std::string Decoded(std::string_view segment) {
  const auto digit = [](char character) { return character <= '9' ? character - '0' : character - 'A' + 10; };
  std::string text;
  for (std::size_t i = 0; i < segment.size(); ++i) {
    if (segment[i] == '%' && i + 2 < segment.size()) {
      text += static_cast<char>(digit(segment[i + 1]) * 16 + digit(segment[i + 2]));
      i += 2;
    } else {
      text += segment[i];
    }
  }
  return text;
}

bool Fits(const Route& route, const std::vector<std::string_view>& segments, std::map<std::string, std::string>& path) {
  const std::vector<std::string_view> wanted = Segments(route.path);
  if (wanted.size() != segments.size()) {
    return false;
  }
  path.clear();
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (wanted[i].front() == '{') {
      path[std::string(wanted[i].substr(1, wanted[i].size() - 2))] = Decoded(segments[i]);
      if (segments[i].empty()) {
        return false;
      }
    } else if (wanted[i] != segments[i]) {
      return false;
    }
  }
  return true;
}

} // namespace

const std::vector<Route>& Routes() {
  static const std::vector<Route> routes = MakeRoutes();
  return routes;
}

Match FindRoute(std::string_view method, std::string_view path) {
  const std::string_view wanted = method == "HEAD" ? "GET" : method;
  const std::vector<std::string_view> segments = Segments(path);
  Match match;
  std::map<std::string, std::string> names;
  for (const Route& route : Routes()) {
    if (!Fits(route, segments, names)) {
      continue;
    }
    match.allow += (match.allow.empty() ? "" : ", ") + std::string(route.method);
    match.allow += route.Changes() ? "" : ", HEAD";
    if (route.method == wanted) {
      match.route = &route;
      match.path = names;
    }
  }
  match.allow += match.allow.empty() ? "" : ", OPTIONS";
  return match;
}

} // namespace Host
