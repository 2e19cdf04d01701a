#include "DirectoryReader.h"

#include <istream>

#include "DirectoryReceiver.h"

namespace Tool {

bool ReadDirectory(Input& input, Directory& directory, FileFindings& errors) {
  DirectoryReceiver receiver(input, directory, errors);
  std::istream stream(&input);
  return Json::sax_parse(stream, &receiver);
}

} // namespace Tool
