#include "directory/transfer/DirectoryReader.h"

#include <istream>

#include "directory/transfer/DirectoryReceiver.h"

namespace AccessDirectory {

bool ReadDirectory(Input& input, Directory& directory, FileFindings& errors) {
  DirectoryReceiver receiver(input, directory, errors);
  std::istream stream(&input);
  return Json::sax_parse(stream, &receiver);
}

bool ReadDirectory(Input& input, Directory& directory, FileFindings& errors, std::vector<std::size_t>& without) {
  DirectoryReceiver receiver(input, directory, errors, &without);
  std::istream stream(&input);
  return Json::sax_parse(stream, &receiver);
}

} // namespace AccessDirectory
