// A directory file is read to rows, or to findings that are safe to print.

#include <sstream>

#include "Require.h"
#include "directory/transfer/DirectoryReader.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  AccessDirectory::Input input(Fuzz::Text(data, size));
  AccessDirectory::Directory directory = AccessDirectory::EmptyDirectory();
  AccessDirectory::FileFindings errors;
  std::vector<std::size_t> without;
  const bool read = AccessDirectory::ReadDirectory(input, directory, errors, without);
  Fuzz::Require(read || errors.Count() > 0, "what was not read has a reason");
  (void)errors.ToJson().dump(); // throws for what is not UTF-8
  std::ostringstream printed;
  errors.Print(printed, "");
  for (const char character : printed.str()) {
    const auto byte = static_cast<unsigned char>(character);
    Fuzz::Require((byte >= 0x20 && byte != 0x7f) || byte == '\n', "findings are safe to print", printed.str());
  }
  return 0;
}
