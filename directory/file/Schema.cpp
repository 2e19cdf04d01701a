#include "directory/file/Schema.h"

#include "LocalAccessManager.h"
#include "directory/Failure.h"
#include "directory/Log.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

void CreateSchema(const std::string& file) {
  Perenna::PListDict section;
  section.SetValue(LocalAccessManager::Strings::DatabaseFilename, file);
  TheLog().Clear();
  LocalAccessManager::UserManager manager; // closes the file again when it ends
  if (manager.InitUserManager(section).Failed()) {
    const auto errors = TheLog().Errors();
    throw Failure(Failure::Kind::System, errors.empty() ? "the database could not be created" : Shown(errors.back()));
  }
}

} // namespace AccessDirectory
