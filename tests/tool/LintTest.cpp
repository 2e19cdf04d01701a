// lint: what it finds, and that what it says mends a finding does.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>

#include "ToolDirectory.h"

namespace Testing {

namespace {

using Document = nlohmann::ordered_json;

constexpr const char* SqlAdvice = "no command does this; with the sqlite3 shell: sqlite3 ";
constexpr const char* Thumbprint = "AAECAwQFBgcICQoLDA0ODxAREhM=";

/// Rows to add to a directory without findings, and all that is found then: the kind, and how it is mended, by a
/// "command", by "sql", or by what a person has to decide ("advice").
struct Case {
  std::string rows;
  std::vector<std::string> findings;
};

std::string WayToMend(const std::string& mend) {
  return mend.rfind("perenna-access ", 0) == 0 ? "command" : mend.rfind(SqlAdvice, 0) == 0 ? "sql" : "advice";
}

std::string Row(const Document& finding) {
  return finding["kind"].get<std::string>() + " " + finding["table"].get<std::string>() + " " + finding["rowid"].dump();
}

} // namespace

class Lint : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("UPDATE users SET user_id = 'alice'; INSERT INTO groups VALUES('editors', 'Editors');"
        "INSERT INTO groupusers VALUES('editors', 'alice'); INSERT INTO filters VALUES('GET', 'editors', '^/', "
        "'Allow')");
  }

  /// The findings, each with `Row` as its key.
  std::vector<Document> Findings() const {
    const ToolResult result = Tool({"lint", "--json", "--target", m_Target});
    EXPECT_EQ(result.err, "");
    const Document report = Document::parse(result.out);
    EXPECT_EQ(result.status, report["findings"].empty() ? 0 : 1);
    EXPECT_EQ(report["problems"].get<std::size_t>() + report["notes"].get<std::size_t>(), report["findings"].size());
    return report["findings"];
  }

  /// Does what a finding says. A command goes through a shell, word for word, with a new password at the terminal.
  void Mend(const std::string& mend) const {
    if (WayToMend(mend) == "sql") {
      const std::size_t begin = mend.find('\'', mend.find(File()) + File().size()) + 1;
      Sql(mend.substr(begin, mend.rfind('\'') - begin));
      return;
    }
    const std::string tool = PERENNA_ACCESS_TOOL;
    const std::string script = "cd '" + Place() + "' && PATH='" + tool.substr(0, tool.rfind('/')) +
                               "':\"$PATH\" && export PATH PERENNA_ACCESS_DATABASE='" + File() + "'\n" + mend + "\n";
    std::vector<std::pair<std::string, std::string>> dialogue;
    if (mend.find("set-password") != std::string::npos) {
      dialogue = {{"New password for", "n3w\n"}, {"The same once more", "n3w\n"}};
    }
    RunAtTerminal({"/bin/sh", "-c", script}, dialogue);
  }

  /// Mends every finding by itself, each time from the same file, and looks for it again.
  void MendEach(const std::vector<Document>& findings) const {
    const std::string before = Contents(File());
    for (const Document& finding : findings) {
      const std::string mend = finding["mend"];
      if (WayToMend(mend) != "advice") {
        Mend(mend);
        const std::vector<Document> left = Findings();
        EXPECT_TRUE(std::none_of(left.begin(), left.end(), [&](const Document& l) { return Row(l) == Row(finding); }))
            << Row(finding) << " is still there after:\n"
            << mend;
        std::ofstream(File(), std::ios::binary) << before;
      }
    }
  }

  /// Adds the rows of each case to the sound directory, and mends all that is found.
  void ExpectFindings(const std::vector<Case>& cases) const {
    const std::string sound = Contents(File());
    for (const Case& rows : cases) {
      SCOPED_TRACE(rows.rows);
      std::ofstream(File(), std::ios::binary) << sound;
      Sql(rows.rows);
      std::vector<std::string> found;
      const std::vector<Document> findings = Findings();
      for (const Document& finding : findings) {
        found.push_back(finding["kind"].get<std::string>() + " " + WayToMend(finding["mend"]));
        const std::string text = finding.dump();
        EXPECT_EQ(text.find("hunter2"), std::string::npos) << "a credential is shown: " << text;
      }
      EXPECT_EQ(found, rows.findings);
      MendEach(findings);
    }
  }

  std::string m_Target = "path";
};

TEST_F(Lint, FindsNothingInASoundDirectory) {
  EXPECT_EQ(Findings(), std::vector<Document>());
  EXPECT_EQ(Tool({"lint"}).out, "No findings in 1 user, 1 group, 1 membership and 1 filter.\n");
  ASSERT_EQ(chmod(File().c_str(), 0644), 0);
  EXPECT_EQ(Tool({"lint"}).out.rfind("problem  file-mode  " + File() + "\n  Why", 0), 0U);
  EXPECT_EQ(Json({"lint"}, 1)["findings"][0]["mend"], "chmod o= -- " + File());
}

TEST_F(Lint, FindsWhatIsWrongWithFiltersAndSaysWhatMendsIt) {
  const std::string filter = "INSERT INTO filters(group_id, action, method, filter) VALUES('editors', ";
  const std::string more = "INSERT INTO groups VALUES('more', ''); INSERT INTO groupusers VALUES('more', 'alice');";
  const std::vector<Case> cases = {
      // Filters that never apply.
      {filter + "'Allow', 'GET', '')", {"filter-pattern command"}},
      {filter + "'Deny', 'GET', '^/(')", {"filter-pattern command"}},
      {filter + "'Deny', 'GET', '^/((((a{50}){50}){50}){50})')", {"filter-costly advice"}},
      {filter + "'Allow', 'get', '^/x$')", {"filter-method command"}},
      {filter + "'Allow', 'FETCH', '^/x$')", {"filter-method command"}},
      {filter + "'Allow', 'GET,PUT', '^/x$')", {"filter-method sql"}},
      {filter + "'deny', 'GET', '^/x$')", {"filter-action command"}},
      {filter + "'allow', 'put', '^/x$')", {"filter-method command", "filter-action command"}},
      {"INSERT INTO filters VALUES('GET', 'nobody', '^/', 'Allow')", {"filter-group command"}},
      {filter + "'Allow', 'GET', '^/x$'), ('editors', 'Deny', 'GET', '^/x$')", {"filter-overruled command"}},
      // Filters that are not as they seem.
      {filter + "'Allow', 'PUT', '^/x$'), ('editors', 'Allow', 'PUT', '^/x$')", {"filter-repeated command"}},
      {filter + "'Deny', 'GET', '^/x$'), ('editors', 'Deny', 'GET', '^/x$')", {"filter-repeated sql"}},
      {filter + "'Deny', 'PUT', '^/x$')", {"filter-idle advice"}},
      {filter + "'Allow', 'PUT', '/x')", {"filter-unanchored command", "filter-end advice"}},
      {filter + "'Deny', 'GET', '(^|/)a$')", {"filter-unanchored advice"}},
      {filter + "'Deny', 'GET', '^/[\\d]+?$')", {"filter-escape command", "filter-quantifier command"}},
      {filter + "'Deny', 'GET', '^/(?:a|b)$')", {"filter-construct command"}},
      // What holds on all targets: other patterns of the same group, and groups that members have together.
      {filter + "'Allow', 'PUT', '^/x/'), ('editors', 'Deny', 'PUT', '^/[w-z]/'), ('editors', 'Allow', 'PUT', '^/')",
       {"filter-overruled command"}},
      {filter + "'Allow', 'PUT', '^/(a|b)$'), ('more', 'Deny', 'PUT', '^/b$'), ('more', 'Deny', 'PUT', '^/a$');" + more,
       {"filter-overruled command"}},
      {filter + "'Allow', 'PUT', '^/a$'), ('more', 'Deny', 'PUT', '^/a$');" + more +
           "INSERT INTO users SELECT 'bob', auth_method, auth_value, create_date, create_user FROM users; INSERT INTO "
           "groupusers VALUES('editors', 'bob')",
       {}},
      {filter + "'Allow', 'PUT', '^/a$'), ('editors', 'Deny', 'PUT', '^/ab*$'), ('editors', 'Deny', 'PUT', '^/b+$')",
       {"filter-overruled command", "filter-idle advice"}},
      {filter + "'Allow', 'PUT', '^/a/(b|c)$'), ('editors', 'Allow', 'PUT', '^/a/.$'), ('editors', 'Allow', 'PUT', "
                "'^/a/[^/]$')",
       {"filter-contained command", "filter-contained command"}},
      {filter + "'Deny', 'GET', '^/a//b$'), ('editors', 'Deny', 'OPTIONS', '^[*]$')",
       {"filter-target advice", "filter-idle advice"}},
  };
  ExpectFindings(cases);
}

TEST_F(Lint, FindsFiltersThatQueriesMeetOrEvade) {
  m_Target = "path-and-query";
  const std::string filter = "INSERT INTO filters(group_id, action, method, filter) VALUES('editors', ";
  ExpectFindings(
      {{filter + "'Deny', 'GET', '^/(a$|b(/|$))')", {"filter-query command"}},
       {filter + "'Deny', 'GET', '^/a(/|$)')", {"filter-query command"}},
       {filter + "'Deny', 'GET', '^/a$$')", {"filter-query advice"}},
       {filter + "'Allow', 'PUT', '^/.*x$')", {"filter-query advice"}},
       {filter + "'Allow', 'PUT', '^/a$'), ('editors', 'Allow', 'PUT', '^/b[?]c='), ('editors', 'Deny', 'GET', "
                 "'^/a([?/]|$)')",
        {}}});
}

TEST_F(Lint, FindsWhatIsWrongWithUsersAndGroupsAndSaysWhatMendsIt) {
  const std::string user = "INSERT INTO groupusers VALUES('editors', 'u'); INSERT INTO users VALUES('u', ";
  const std::string group = "INSERT INTO groupusers VALUES('g', 'alice'); INSERT INTO groups VALUES('g', 'G');";
  const std::string filter = "INSERT INTO filters(group_id, action, method, filter) VALUES('editors', ";
  const std::string digest(64, 'a');
  const std::string salt(32, '0');
  const std::vector<Case> cases = {
      // Memberships.
      {"INSERT INTO groupusers VALUES('editors', 'ghost')", {"membership-user command"}},
      {"INSERT INTO groupusers VALUES('gone', 'alice')", {"membership-group command"}},
      {"INSERT INTO groupusers VALUES('not an id', 'alice')", {"membership-group sql"}},
      {"INSERT INTO groupusers VALUES('editors', 'alice')", {"membership-repeated command"}},
      {"INSERT INTO groupusers VALUES('editors', 'alice'), ('gone', 'alice')",
       {"membership-repeated sql", "membership-group command"}},
      // Groups.
      {"INSERT INTO groups VALUES('g', 'G')", {"group-without-members command", "group-without-filters advice"}},
      {group, {"group-without-filters advice"}},
      {"INSERT INTO groups VALUES('g', 'G'); INSERT INTO filters VALUES('GET', 'g', '^/', 'Allow')",
       {"group-without-members advice"}},
      {"INSERT INTO groups VALUES('a b', 'G'); INSERT INTO groupusers VALUES('a b', 'alice');"
       "INSERT INTO filters VALUES('GET', 'a b', '^/', 'Allow')",
       {"group-id advice"}},
      // Rights.
      {"INSERT INTO users VALUES('u', 'sha256', '" + salt + ":" + digest + "', 'd', 'alice')",
       {"user-without-group advice"}},
      {"DELETE FROM filters", {"user-without-allow advice", "group-without-filters advice"}},
      {filter + "'Deny', 'GET', '^/')", {"user-without-allow advice", "filter-overruled command"}},
      {"UPDATE filters SET filter = '('", {"user-without-allow advice", "filter-pattern command"}},
      // Credentials.
      {user + "'plain_pw', 'hunter2', 'd', 'alice')", {"credential-plain command"}},
      {user + "'md5', 'hunter2', 'd', 'alice')", {"credential-method command"}},
      {user + "'sha256', '" + digest + "', 'd', 'alice')", {"credential-malformed command"}},
      {user + "'sha256', '" + salt + ":" + digest + "0', 'd', 'alice')", {"credential-malformed command"}},
      {user + "'sha256', '" + salt + ":" + std::string(64, 'A') + "', 'd', 'alice')", {"credential-malformed command"}},
      {user + "'sha256', 'salt:" + digest + "', 'd', 'alice')", {"credential-malformed command"}},
      {user + "'sha256', '" + salt + ":" + digest + "', 'd', 'alice')", {}},
      {"UPDATE users SET user_id = 'a:b'; UPDATE groupusers SET user_id = 'a:b'", {"user-id advice"}},
      {user + "'tls_client_certificate', '000102030405060708090a0b0c0d0e0f10111213', 'd', 'alice')",
       {"thumbprint-form command"}},
      {user + "'tls_client_certificate', 'hunter2', 'd', 'alice')", {"thumbprint-form advice"}},
      {user + "'tls_client_certificate', '" + Thumbprint + "', 'd', 'alice'), ('v', 'tls_client_certificate', '" +
           Thumbprint + "', 'd', 'alice'); INSERT INTO groupusers VALUES('editors', 'v')",
       {"thumbprint-shared advice"}},
      // Values that nothing finds, and ids that mislead.
      {"UPDATE filters SET filter = CAST(filter AS BLOB)", {"value-blob sql"}},
      {"INSERT INTO groupusers VALUES('editors', x'616c696365')", {"value-blob sql"}},
      {filter + "'Allow', 'GET', '^/' || char(0))", {"value-nul sql"}},
      {"INSERT INTO users VALUES('alice' || char(0) || 'x', 'plain_pw', '', 'd', 'alice')", {"value-nul sql"}},
      {"UPDATE users SET user_id = 'al' || char(27) || '[2J'; UPDATE groupusers SET user_id = 'al' || char(27) || "
       "'[2J'",
       {"user-id advice"}},
  };
  ExpectFindings(cases);
}

TEST_F(Lint, HostileTextsNeitherEscapeTheShellNorDriveTheTerminal) {
  const std::vector<std::string> texts = {"$(touch pwned)`touch pwned`'; touch pwned; '\"$HOME\" \\ !x * %s #",
                                          "--help", "[a,b]", "\033]0;x\007\nb caf\u00e9\xff", "x\n"};
  for (const std::string& text : texts) {
    Query("INSERT INTO filters VALUES('FETCH', ?, '^/', 'Allow')", {text});
    Query("INSERT INTO filters VALUES('GET', 'editors', ?, 'Maybe')", {text});
    Query("INSERT INTO users VALUES(?, 'plain_pw', 'x', 'd', 'alice')", {text});
    Query("INSERT INTO groupusers VALUES('editors', ?)", {text});
    Query("INSERT INTO groupusers VALUES('editors', ?)", {text});
  }
  const std::vector<Document> findings = Findings();
  EXPECT_GE(findings.size(), 5 * texts.size());
  MendEach(findings);
  EXPECT_EQ(Names(Place()), std::vector<std::string>{"access.db"});
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"lint"}, {"lint", "--json"}}) {
    const std::string out = Tool(arguments).out;
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); })) << out;
  }
}

TEST_F(Lint, CommandsNameTheDatabaseAsThisRunDid) {
  Sql("INSERT INTO groups VALUES('g', 'G')");
  const std::string odd = PathBeside("it's a file.db");
  std::filesystem::copy_file(File(), odd);
  const ToolResult result = RunTool("", {"lint", "--json", "-d", odd});
  const std::string mend = Document::parse(result.out)["findings"][0]["mend"];
  EXPECT_NE(mend.find(" '--database="), std::string::npos) << mend;
  Mend(mend);
  EXPECT_EQ(RunTool("", {"lint", "-d", odd}).status, 0) << mend;
  EXPECT_EQ(Findings()[0]["mend"], "perenna-access group delete g"); // the environment names it
}

TEST_F(Lint, NotesCanBeHiddenAndThenDoNotCount) {
  Sql("INSERT INTO groups VALUES('g', 'G')");
  EXPECT_EQ(Tool({"lint"}).status, 1);
  const ToolResult hidden = Tool({"lint", "--no-notes"});
  EXPECT_EQ(hidden.status, 0);
  EXPECT_EQ(hidden.out, "No findings in 1 user, 2 groups, 1 membership and 1 filter.\n");
  Sql("INSERT INTO filters VALUES('GET', 'g', '', 'Allow')");
  const Document report = Document::parse(Tool({"lint", "--no-notes", "--json"}).out);
  EXPECT_EQ(report["kinds"].dump(), R"([{"kind":"filter-pattern","severity":"problem","count":1}])");
  EXPECT_EQ(report["findings"][0]["row"].dump(), R"({"group_id":"g","action":"Allow","method":"GET","filter":""})");
}

// Work that grows with the square of a group, a user or a table would not end in time.
TEST_F(Lint, LargeAndLopsidedDirectoriesAreReadInOneGo) {
  constexpr int Rows = 30000;
  const std::string numbers =
      "WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(Rows) + ") ";
  Sql(numbers + "INSERT INTO groupusers SELECT 'editors', 'ghost' || i FROM n");
  Sql(numbers + "INSERT INTO groupusers SELECT 'editors', 'alice' FROM n");
  Sql(numbers + "INSERT INTO filters SELECT 'GET', 'editors', '^/' || i, 'allow' FROM n");
  Sql(numbers + "INSERT INTO filters SELECT 'PUT', 'editors', '^/', 'Allow' FROM n");
  const ToolResult result = Tool({"lint"});
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_NE(result.out.find("\n119999 problems and 0 notes in 1 user, 1 group, 60001 memberships and 60001 filters.\n"),
            std::string::npos)
      << result.out.substr(result.out.size() - 200);
  EXPECT_LE(std::count(result.out.begin(), result.out.end(), '\n'), 4 * 10 + 1) << "ten lines a kind:\n" << result.out;
  EXPECT_NE(result.out.find("\n  and 29997 more, which --all shows\n"), std::string::npos) << result.out;
  const std::string all = Tool({"lint", "--all"}).out;
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 119999 * 5 + 1);
}

} // namespace Testing
