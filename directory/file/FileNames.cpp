#include "directory/file/FileNames.h"

#include <array>
#include <filesystem>

#include <sys/stat.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

constexpr std::array<const char*, 3> Endings = {"-journal", "-wal", "-shm"};

/// The name without links, dots and the working directory; of a file that may not exist yet.
std::string RealName(const std::string& file) {
  std::error_code unknown;
  return std::filesystem::weakly_canonical(std::filesystem::absolute(file, unknown), unknown).string();
}

/// Whether two names lead to the same file, or would when it is made.
bool SameFile(const std::string& left, const std::string& right) {
  std::error_code unknown;
  return std::filesystem::equivalent(left, right, unknown) || RealName(left) == RealName(right);
}

} // namespace

void RequireFileName(const std::string& file) {
  const std::string refusal = Quoted(file) + " is no file name for a database: ";
  if (file.empty() || file.find('\0') != std::string::npos) {
    throw Failure(Failure::Kind::Input, refusal + (file.empty() ? "it is empty" : "it holds a NUL"));
  }
  if (file == ":memory:" || file.rfind("file:", 0) == 0) {
    throw Failure(Failure::Kind::Input, refusal + "SQLite takes it for " +
                                            (file == ":memory:" ? "memory" : "a URI with options") +
                                            "; a file of that " + "name is " + Quoted("./" + file));
  }
}

void RequireNoRemains(const std::string& database) {
  for (const char* const ending : Endings) {
    std::error_code unknown;
    if (std::filesystem::exists(std::filesystem::symlink_status(database + ending, unknown))) {
      throw Failure(
          Failure::Kind::Refused,
          Quoted(database + ending) + " is left over from an earlier database " + Quoted(database) +
              " and would become part of the new one; remove it, or put the database back to which it belongs");
    }
  }
}

void RequireApart(const std::string& file, const std::string& database) {
  const auto require = [&file](const std::string& taken, const std::string& what) {
    if (SameFile(file, taken)) {
      throw Failure(Failure::Kind::Input, Quoted(file) + " is " + what);
    }
  };
  require(database, "the database itself");
  for (const char* const ending : Endings) {
    require(database + ending, "a part of the database: " + Quoted(database + ending));
    // The database may be reached through a link, and SQLite keeps its files beside the real one.
    require(RealName(database) + ending, "a part of the database");
  }
}

bool OthersMayOpen(const std::string& file) noexcept {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 && (status.st_mode & S_IRWXO) != 0;
}

} // namespace AccessDirectory
