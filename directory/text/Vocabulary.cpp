#include "directory/text/Vocabulary.h"

#include <strings.h>

#include "directory/Failure.h"
#include "directory/Log.h"
#include "directory/text/Text.h"
#include "platform/pattern/Cost.h"

namespace AccessDirectory {

namespace {

constexpr const char* GroupIdCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";

bool SameButForCase(const std::string& left, const std::string& right) {
  return left.size() == right.size() && strcasecmp(left.c_str(), right.c_str()) == 0;
}

} // namespace

bool IsGroupId(std::string_view group_id) noexcept {
  return !group_id.empty() && group_id.find_first_not_of(GroupIdCharacters) == std::string_view::npos;
}

Perenna::Method_t KnownMethod(const std::string& name) {
  Perenna::Method_t method = Perenna::METH_MAX;
  if (Perenna::StringToMethod(name, method)) {
    return method;
  }
  std::string names;
  for (std::uint32_t known = 0; known < Perenna::METH_MAX; ++known) {
    names.append(names.empty() ? "" : ", ").append(MethodToString(static_cast<Perenna::Method_t>(known)));
  }
  const std::string spelled = SpelledMethod(name);
  throw Failure(Failure::Kind::Input,
                "METHOD: " + Quoted(name) + " is none of " + names +
                    (spelled == name ? "" : "; the case of letters counts: " + spelled + " is meant?"));
}

std::string SpelledMethod(const std::string& name) {
  for (std::uint32_t method = 0; method < Perenna::METH_MAX; ++method) {
    std::string known = Perenna::MethodToString(static_cast<Perenna::Method_t>(method));
    if (SameButForCase(name, known)) {
      return known;
    }
  }
  return name;
}

std::string SpelledAction(const std::string& name) {
  return SameButForCase(name, Allow) ? Allow : SameButForCase(name, Deny) ? Deny : name;
}

std::unique_ptr<Perenna::RegularExpression> CompilePattern(const std::string& pattern, std::string& fault) {
  fault.clear();
  TheLog().Clear();
  auto compiled = std::make_unique<Perenna::RegularExpression>(pattern);
  if (pattern.empty() || pattern.front() == '\0') {
    fault = "empty, and an empty pattern matches nothing";
  } else if (!compiled->valid()) {
    if (const char* const refusal = Perenna::Pattern::Judge(pattern).refusal) {
      fault = std::string("too costly: ") + refusal;
      return compiled;
    }
    fault = "not a POSIX extended regular expression";
    // The log has the pattern between quotes, a colon, and the compiler's explanation.
    const auto errors = TheLog().Errors();
    const std::size_t quoted_end = errors.empty() ? std::string::npos : errors.front().rfind("\": ");
    if (quoted_end != std::string::npos) {
      fault += ": " + Shown(errors.front().substr(quoted_end + 3), Backslash::Kept);
    }
  }
  return compiled;
}

} // namespace AccessDirectory
