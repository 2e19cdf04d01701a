#include "Cases.h"

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <utility>

#include "directory/file/Tune.h"

namespace Bench {

namespace {

constexpr double DecisionLimit = 1.00; // patterns that cannot match are not compiled; reading the rows is left
constexpr double TunedDecisionLimit = 0.45;
constexpr double OtherLimit = 1.20;
constexpr int PageRows = 100;
constexpr auto Password = "correct horse"; // everybody's

// For sqlite3_mprintf: users, groups, the module's password expression, the floor's, groups. Of three users the first
// is for the module to log in, the second for the floor, the third has a certificate; 26 digits and "0=" are canonical
// base64 of 20 bytes.
constexpr auto RowsSql = R"sql(
BEGIN;
CREATE TEMP TABLE n AS WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < %u - 1) SELECT i FROM n;
CREATE TEMP TABLE shape(method, pattern, action);
INSERT INTO shape VALUES
  ('GET',    '^/api/v1/groups/@/items(/[0-9]+)?$', 'Allow'),
  ('HEAD',   '^/api/v1/groups/@/items(/[0-9]+)?$', 'Allow'),
  ('POST',   '^/api/v1/groups/@/items$', 'Allow'),
  ('PUT',    '^/api/v1/groups/@/items/[0-9]+$', 'Allow'),
  ('PATCH',  '^/api/v1/groups/@/items/[0-9]+$', 'Allow'),
  ('DELETE', '^/api/v1/groups/@/items/[0-9]+$', 'Allow'),
  ('DELETE', '^/api/v1/groups/@/items/[0-9]{1,2}$', 'Deny'),
  ('GET',    '^/api/v1/groups/@/(members|settings|audit)(/.*)?$', 'Allow'),
  ('GET',    '^/api/v1/groups/@/audit/raw(/.*)?$', 'Deny'),
  ('GET',    '^/static/[^/]+\.(css|js|png|svg)$', 'Allow');
INSERT INTO groups SELECT 'group-' || i, 'Group number ' || i FROM n WHERE i < %u;
INSERT INTO filters SELECT method, group_id, replace(pattern, '@', substr(group_id, 7)), action FROM groups, shape;
INSERT INTO users SELECT 'user-' || i || '@example.org', iif(i %% 3 = 2, 'tls_client_certificate', 'sha256'),
  CASE i %% 3 WHEN 0 THEN %Q WHEN 1 THEN %Q ELSE printf('%%026d0=', i) END,
  '2026-01-31T12:00:00+00:00', 'user-0@example.org' FROM n;
INSERT INTO groupusers SELECT 'group-' || ((2 * i + place) %% %u), 'user-' || i || '@example.org'
  FROM n, (SELECT 0 AS place UNION ALL SELECT 1);
COMMIT;
)sql";

struct RequestShape {
  Perenna::Method_t method;
  const char* before;
  const char* after; // the group's number; null for a URL without one
};

constexpr std::array<RequestShape, 8> Requests = {{
    {Perenna::METH_GET, "/api/v1/groups/", "/items/4711"},
    {Perenna::METH_GET, "/api/v1/groups/", "/items"},
    {Perenna::METH_POST, "/api/v1/groups/", "/items"},
    {Perenna::METH_DELETE, "/api/v1/groups/", "/items/17"},
    {Perenna::METH_GET, "/api/v1/groups/", "/audit/raw/2026"},
    {Perenna::METH_GET, "/static/main.css", nullptr},
    {Perenna::METH_PUT, "/api/v1/groups/", "/items/4711"},
    {Perenna::METH_GET, "/api/v1/groups/", "/nothing/allows/this"},
}};

std::string UserId(unsigned user) {
  return "user-" + std::to_string(user) + "@example.org";
}

struct Listing {
  Tarn::Result_t (LocalAccessManager::UserManager::*module)(Perenna::PagedResults::ResultState&, Perenna::PListDict&);
  const char* listing;
  const char* membership;
  const char* key;
  unsigned (*rows)(const Shape&);
};

constexpr Listing Users = {&LocalAccessManager::UserManager::GetUsers, "SELECT * FROM users",
                           "SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ORDER BY group_id", "user_id",
                           [](const Shape& shape) { return shape.Users(); }};
constexpr Listing Groups = {&LocalAccessManager::UserManager::GetGroups, "SELECT * FROM groups",
                            "SELECT user_id FROM groupusers WHERE group_id = ? ORDER BY user_id", "group_id",
                            [](const Shape& shape) { return shape.Groups(); }};
constexpr Listing Filters = {&LocalAccessManager::UserManager::GetFilters, "SELECT * FROM filters", nullptr, nullptr,
                             [](const Shape& shape) { return shape.filters; }};

std::size_t Count(bool answer) {
  return answer ? 1 : 0;
}

/// A page from the start of a listing, or one that begins after its first half.
Case PageCase(const char* name, unsigned filters_per_unit, const Listing& listing, unsigned halves) {
  return {name, OtherLimit, filters_per_unit,
          [listing, halves](Module& module, const Shape& shape, const Question&) {
            Perenna::PagedResults::ResultState state(PageRows);
            state.Skip = static_cast<std::int32_t>(listing.rows(shape) / 2 * halves);
            Perenna::PListDict response;
            (module.directory.*listing.module)(state, response);
            int total = 0;
            response.GetData(Perenna::PagedResults::total).GetValue(total);
            Perenna::PListArray* rows = nullptr;
            response.GetArray(Perenna::PagedResults::results, rows);
            return static_cast<std::size_t>(total) + rows->size();
          },
          [listing, halves](Floor& floor, const Shape& shape, const Question&) {
            const unsigned skip = listing.rows(shape) / 2 * halves;
            const Floor::Page page = floor.List(listing.listing, listing.membership, listing.key, skip, PageRows);
            return page.total + page.rows.size();
          }};
}

/// A key is issued and, with `resolve`, used at once, among those that are there already.
Case KeyCase(const char* name, bool resolve) {
  return {name,
          OtherLimit,
          1,
          [resolve](Module& module, const Shape&, const Question&) {
            Tarn::UUID key;
            module.keys.CreateSelfAccessKey(key);
            return Count(!resolve || module.keys.ResolveSelfAccessKey(key));
          },
          [resolve](Floor& floor, const Shape&, const Question&) {
            Tarn::UUID key;
            floor.CreateKey(key);
            return Count(!resolve || floor.ResolveKey(key));
          },
          resolve ? 0U : 1U};
}

/// The cases, and those that ask a file once more on a tuned one.
std::vector<Case> WithTuned(std::vector<Case> cases) {
  const std::size_t plain = cases.size();
  for (std::size_t index = 0; index < plain; ++index) {
    Case tuned = cases[index];
    if (tuned.name.find("key-") == 0 || tuned.name.find("-middle") != std::string::npos) {
      continue;
    }
    tuned.on_threads = tuned.name == "decision";
    tuned.limit = tuned.on_threads ? TunedDecisionLimit : tuned.limit;
    tuned.name += "-tuned";
    tuned.tuned = true;
    cases.push_back(std::move(tuned));
  }
  return cases;
}

} // namespace

Module::Module(const std::string& file) {
  Perenna::PListDict config;
  config.SetValue(LocalAccessManager::Strings::DatabaseFilename, file);
  if (directory.InitUserManager(config).Failed()) {
    throw std::runtime_error("cannot open " + file);
  }
}

void Shape::Build(const std::string& file, bool tuned) const {
  static_cast<void>(Module(file));
  const std::unique_ptr<char, decltype(&sqlite3_free)> sql(
      sqlite3_mprintf(RowsSql, Users(), Groups(), calculate_sha_password_expression(Password).c_str(),
                      Floor::PasswordExpression(Password).c_str(), Groups()),
      &sqlite3_free);
  Floor(file).Run(sql.get());
  if (tuned) {
    AccessDirectory::Database database(file, AccessDirectory::Database::Access::Write);
    AccessDirectory::Tune(database, AccessDirectory::StepsToTune(database));
  }
}

std::vector<Question> Shape::Questions() const {
  constexpr unsigned Count = 64;
  constexpr unsigned Stride = 37; // prime to every number of users: reaches each of them
  std::vector<Question> questions;
  for (unsigned i = 0; i < Count; ++i) {
    const RequestShape& request = Requests.at(i % Requests.size());
    const unsigned user = i * Stride % Users();
    const std::string group = std::to_string(2 * user % Groups());
    const std::string url = request.before + (request.after == nullptr ? "" : group + request.after);
    const unsigned login = i * Stride % (Users() / 3) * 3;
    std::array<char, 29> thumbprint_text{};
    static_cast<void>(std::snprintf(thumbprint_text.data(), thumbprint_text.size(), "%026u0=", login + 2));
    Perenna::X509Thumbprint thumbprint;
    thumbprint.DecodeBase64(thumbprint_text.data());
    questions.push_back({Perenna::HTTPRequest(request.method, url), UserId(user), UserId(login), UserId(login + 1),
                         i % 8 == 7 ? "wrong" : Password, Perenna::X509Certificate(thumbprint)});
  }
  return questions;
}

const std::vector<Case>& Cases() {
  // What concerns users is sized in users, of whom a directory has one for every two filters.
  static const std::vector<Case> cases = WithTuned({
      {"decision", DecisionLimit, 1,
       [](Module& module, const Shape&, const Question& asked) {
         return Count(module.directory.TestRequestForUser(asked.request, asked.user_id));
       },
       [](Floor& floor, const Shape&, const Question& asked) {
         return Count(
             floor.Decide(Perenna::MethodToString(asked.request.Method()), asked.user_id, asked.request.URL()));
       }},
      {"options", OtherLimit, 1,
       [](Module& module, const Shape&, const Question& asked) {
         Perenna::PListArray methods;
         module.directory.GetOptionsMethods(asked.request, asked.user_id, methods);
         return methods.size();
       },
       [](Floor& floor, const Shape&, const Question& asked) {
         return floor.Options(asked.user_id, asked.request.URL()).size();
       }},
      {"password", OtherLimit, 2,
       [](Module& module, const Shape&, const Question& asked) {
         return Count(module.directory.TestUserIdAndPassword(asked.request, asked.module_login, asked.password));
       },
       [](Floor& floor, const Shape&, const Question& asked) {
         return Count(floor.CheckPassword(asked.floor_login, asked.password));
       }},
      {"certificate", OtherLimit, 2,
       [](Module& module, const Shape&, const Question& asked) {
         std::string user_id;
         module.directory.TestUserCertificate(asked.request, asked.certificate, user_id);
         return user_id.size();
       },
       [](Floor& floor, const Shape&, const Question& asked) {
         std::string user_id;
         floor.FindCertificate(asked.certificate.Thumbprint().Value(), user_id);
         return user_id.size();
       }},
      PageCase("users-page", 2, Users, 0),
      PageCase("users-page-middle", 2, Users, 1),
      PageCase("groups-page", 1, Groups, 0),
      PageCase("groups-page-middle", 1, Groups, 1),
      PageCase("filters-page", 1, Filters, 0),
      PageCase("filters-page-middle", 1, Filters, 1),
      KeyCase("key-create", false),
      KeyCase("key-create-resolve", true),
  });
  return cases;
}

} // namespace Bench
