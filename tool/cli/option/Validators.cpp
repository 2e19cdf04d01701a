#include "tool/cli/option/Validators.h"

#include "PN_PagedResults.h"
#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "directory/text/Vocabulary.h"
#include "tool/DirectoryNames.h"

namespace Tool {

CLI::Validator NotEmpty() {
  return {[](const std::string& text) { return text.empty() ? "the value is empty" : std::string(); }, ""};
}

CLI::Validator GroupId() {
  return {[](const std::string& text) {
            return IsGroupId(text) ? std::string()
                                   : Quoted(text) + " is not a group's id: letters, digits, \"_\" and \"-\"";
          },
          ""};
}

CLI::Validator WholeNumber() {
  return {[](const std::string& text) {
            const bool digits =
                !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
            return digits && std::stoll(text) <= Perenna::PagedResults::RS_MAXROWS
                       ? std::string()
                       : Quoted(text) + " is not a whole number from 0 to 2147483647";
          },
          "NUMBER"};
}

void RequireSet(const std::vector<std::string>& ids, bool none, const std::string& argument) {
  if (ids.empty() != none) {
    throw Failure(Failure::Kind::Input, none ? "--none and " + argument + " cannot be given together"
                                             : "which " + argument + "? Name one or more, or give --none");
  }
}

} // namespace Tool
