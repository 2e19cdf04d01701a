// Export, and import of what was exported: what the file looks like, and that nothing gets lost on the way.

#include <algorithm>
#include <filesystem>
#include <random>

#include "DirectoryFiles.h"

namespace Testing {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int HostileDirectories = 3; // every run of the tool takes several times as long
#else
constexpr int HostileDirectories = 12;
#endif

TEST_F(Transfer, ExportWritesAnEntryALineInTheOrderOfTheListings) {
  Fill("INSERT INTO users(rowid, user_id, auth_method, auth_value, create_date, create_user) VALUES"
       "(7, 'zoe', 'sha256', 'a:b', 'then', 'root'), (3, CAST(x'c3a9ff00' AS TEXT), 'plain_pw', '\"\\', '', 'zoe');"
       "INSERT INTO groupusers VALUES('editors', 'zoe'), ('editors', 'zoe');"
       "INSERT INTO filters VALUES('GET', 'editors', '^/\xc3\xa9', 'Deny')");
  const std::string expected = R"({"format":"perenna-access","version":1,
"users":[
{"user_id":{"base64":"w6n/AA=="},"auth_method":"plain_pw","auth_value":"\"\\","create_date":"","create_user":"zoe"},
{"user_id":"zoe","auth_method":"sha256","auth_value":"a:b","create_date":"then","create_user":"root"}
],
"groups":[],
"memberships":[
{"group_id":"editors","user_id":"zoe"},
{"group_id":"editors","user_id":"zoe"}
],
"filters":[
{"method":"GET","group_id":"editors","filter":"^/\u00e9","action":"Deny"}
]}
)";
  EXPECT_EQ(Tool({"export"}).out, expected);
  ASSERT_EQ(Tool({"export", m_Place.File("out.json")}).status, 0);
  EXPECT_EQ(Slurp(m_Place.File("out.json")), expected);
}

TEST_F(Transfer, ExportGuardsFilesThatExistAndTheOnesItMakes) {
  const std::string file = m_Place.File("out.json");
  const std::string link = m_Place.File("link");
  Spill(file, "mine");
  std::filesystem::create_symlink(file, link);
  EXPECT_EQ(Tool({"export", file}).status, 1);
  EXPECT_EQ(Tool({"export", "--force", link}).status, 2);
  EXPECT_EQ(Tool({"export", m_Place.File("no/such/directory")}).status, 3);
  EXPECT_EQ(Slurp(file), "mine");
  const std::string hard_link = m_Place.File("hard");
  std::filesystem::create_hard_link(m_Database, hard_link);
  for (const std::string& part : {m_Database, hard_link, m_Database + "-wal", m_Place.File("./access.db-shm")}) {
    EXPECT_EQ(Tool({"export", "--force", part}).status, 2) << part;
  }
  EXPECT_EQ(ReadContents(m_Database)[0].size(), 1U);

  EXPECT_EQ(Tool({"export", "--force", file}).status, 0);
  EXPECT_EQ(Slurp(file), Tool({"export", "-"}).out);
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));

  Fill("INSERT INTO groups VALUES('good', 'g'), ('bad', x'6162')");
  const ToolResult refused = Tool({"export", m_Place.File("other.json")});
  EXPECT_EQ(refused.status, 3);
  EXPECT_NE(refused.err.find("table groups, rowid 2: group_name"), std::string::npos) << refused.err;
  const std::filesystem::directory_iterator names(m_Place.Path());
  EXPECT_EQ(std::distance(begin(names), end(names)), 4) << "something is left behind";
}

/// Text that is hard on quoting, escaping, encoding and terminals.
std::string HostileText(std::mt19937& random) {
  // clang-format off
  static const std::vector<std::string> Pieces = {
      "a", "Z", "0", "\"", "\\", "'", "\n", "\r", "\x01", "\x7f", "\x1b[31m", std::string(1, '\0'), "\\u0000",
      "\xc3\xa9", "\xf0\x9f\x98\x80", "\xff", "\xc0\x80", "\xed\xa0\x80", "\xe2\x80\xa8", "\xef\xbb\xbf",
      "{\"base64\":\"\"}", ",\n]}", std::string(3000, 'x')};
  // clang-format on
  std::string text;
  for (std::size_t count = random() % 5; count > 0; --count) {
    text += Pieces[random() % Pieces.size()];
  }
  return text;
}

TEST_F(Transfer, HostileDirectoriesComeBackByteForByte) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::string other = m_Place.File("other.db");
  CreateDatabase(other);
  for (int round = 0; round < HostileDirectories; ++round) {
    Fill("");
    {
      BareDatabase bare(m_Database);
      bare.Run("BEGIN");
      for (const std::string sql : {"users VALUES(?, ?, ?, ?, ?)", "groups VALUES(?, ?)", "groupusers VALUES(?, ?)",
                                    "filters VALUES(?, ?, ?, ?)"}) {
        std::vector<std::string> texts(static_cast<std::size_t>(std::count(sql.begin(), sql.end(), '?')));
        for (std::size_t rows = random() % 20; rows > 0; --rows) {
          for (std::string& text : texts) { // some stay, so that rows partly repeat
            text = random() % 3 == 0 ? text : HostileText(random);
          }
          bare.Query("INSERT OR IGNORE INTO " + sql, texts);
        }
      }
      bare.Run("COMMIT");
    }
    const ToolResult exported = Tool({"export"});
    ASSERT_EQ(exported.status, 0) << exported.err;
    const ToolResult imported = RunTool(other, {"import", "--force", "-"}, exported.out);
    ASSERT_EQ(imported.status, 0) << "round " << round << '\n' << imported.err << exported.out;
    ASSERT_EQ(ReadContents(other), ReadContents(m_Database)) << "round " << round << '\n' << exported.out;
    ASSERT_EQ(RunTool(other, {"export"}).out, exported.out) << "round " << round;
    const ToolResult dry_run = RunTool(other, {"import", "--force", "--dry-run", "--json", "-"}, exported.out);
    const Json difference = Json::parse(dry_run.out).at("difference");
    ASSERT_EQ(difference.size(), 4U) << dry_run.out;
    for (const Json& section : difference) {
      EXPECT_TRUE(section.at("added").empty() && section.at("removed").empty()) << dry_run.out;
    }
  }
}

TEST_F(Transfer, ALargeFileShowsItsProgressAtATerminalAlone) {
  std::string users = User("root");
  while (users.size() < 1100000) {
    users += ",\n" + User(std::to_string(users.size()));
  }
  const std::string file = m_Place.File("large.json");
  Spill(file, Document(users));
  const ToolResult shown = RunToolAtTerminal(m_Database, {"import", file}, {});
  for (const char* const phase : {"Reading [", "Checking [", "Writing [", "\rImported "}) {
    EXPECT_NE(shown.out.find(phase), std::string::npos) << phase << shown.out;
  }
  EXPECT_EQ(Tool({"import", file}).err, "");
}

} // namespace
} // namespace Testing
