#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/administration/Call.h"

namespace Host {

/// A member of a request's body, or a parameter of its query.
struct Member {
  const char* name;
  const char* type; ///< as JSON Schema has it: "string", "boolean", "array" (of texts); of a parameter, "limit" too
  bool required;
  const char* meaning; ///< a sentence without its full stop
};

/// What a request's body has to be.
enum class BodyForm {
  None,      ///< whatever comes is ignored
  Object,    ///< with the route's members and no others
  Ids,       ///< an array of texts
  Calls,     ///< an array of {method, path, body?}
  Directory, ///< what the export gives, up to "Limits.ImportBytes"
};

/// Who may ask, beside what the directory's filters say.
enum class Asker {
  Administrator, ///< whom the directory allows it and who is in the group of administrators
  Known          ///< every user who has proven to be one
};

/// One row of the administration's table. Dispatch, the checks of bodies and parameters, `Allow` fields and the OpenAPI
/// document are all made from it.
struct Route {
  const char* method;
  const char* path; ///< "{NAME}" stands for one segment of the path
  const char* summary;
  Reply (*answer)(Call& call);
  std::vector<Member> query = {};
  BodyForm form = BodyForm::None;
  std::vector<Member> members = {};
  unsigned success = 200;
  bool if_match = false; ///< whether the field `If-Match` is honoured
  Asker asker = Asker::Administrator;

  bool Changes() const noexcept { return std::string_view(method) != "GET"; }
};

/// All of them.
const std::vector<Route>& Routes();

/// What a request for a path comes to.
struct Match {
  const Route* route = nullptr;            ///< null: none of this method
  std::map<std::string, std::string> path; ///< the decoded segments by name
  std::string allow; ///< the methods that the path has, as `Allow` lists them; empty: no such path
};

/// Finds the route. HEAD is taken for GET. `path` is in normal form and has no query.
Match FindRoute(std::string_view method, std::string_view path);

} // namespace Host
