#include "DirectoryFiles.h"

#include <fstream>
#include <iterator>

namespace Testing {

std::string Slurp(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Spill(const std::string& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::string User(const std::string& id, const std::string& rest) {
  return R"({"user_id":")" + id + R"(","auth_method":"sha256","auth_value":")" + Digest +
         R"(","create_date":"2026-01-02T03:04:05+00:00","create_user":"root")" + rest + "}";
}

std::string Document(const std::string& users, const std::string& groups, const std::string& memberships,
                     const std::string& filters) {
  return R"({"format":"perenna-access","version":1,"users":[)" + users + R"(],"groups":[)" + groups +
         R"(],"memberships":[)" + memberships + R"(],"filters":[)" + filters + "]}";
}

Contents ReadContents(const std::string& file) {
  BareDatabase bare(file);
  EXPECT_EQ(bare.Query("PRAGMA integrity_check"), std::vector<BareDatabase::Row>{{"ok"}});
  Contents contents;
  for (const char* const table : {"users", "groups", "groupusers", "filters"}) {
    contents.push_back(bare.Query(std::string("SELECT * FROM ") + table + " ORDER BY rowid"));
  }
  return contents;
}

void CreateDatabase(const std::string& file) {
  const ToolResult made = RunTool(file, {"init", "--user", "root", "--password-stdin", "--no-administrators"}, "pw\n");
  ASSERT_EQ(made.status, 0) << made.err;
}

std::string Paths(const Json& findings) {
  std::string paths;
  for (const Json& finding : findings) {
    paths += ' ' + finding.at("path").get<std::string>();
  }
  return paths;
}

} // namespace Testing
