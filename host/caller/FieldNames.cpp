#include "host/caller/FieldNames.h"

#include <algorithm>
#include <string_view>

namespace Host {

namespace {

constexpr std::string_view Connection = "Connection";

char Lower(char byte) noexcept {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

bool IsAlphanumeric(char byte) noexcept {
  return (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
}

/// Equal when letter case does not count, nor which character stands where there is neither letter nor digit.
bool LooksLike(std::string_view left, std::string_view right) noexcept {
  return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) {
           const char x = Lower(a);
           const char y = Lower(b);
           return x == y || (!IsAlphanumeric(x) && !IsAlphanumeric(y));
         });
}

bool NamesInList(std::string_view list, std::string_view name) noexcept {
  for (;;) {
    const std::size_t comma = list.find(',');
    std::string_view item = list.substr(0, comma);
    item.remove_prefix(std::min(item.find_first_not_of(" \t"), item.size()));
    item = item.substr(0, item.find_last_not_of(" \t") + 1);
    if (LooksLike(item, name)) {
      return true;
    }
    if (comma == std::string_view::npos) {
      return false;
    }
    list.remove_prefix(comma + 1);
  }
}

} // namespace

SingleField FindSingle(const std::vector<Field>& fields, const std::string& name) {
  SingleField found;
  for (const Field& field : fields) {
    if (EqualIgnoringCase(field.name, Connection) && NamesInList(field.value, name)) {
      return {nullptr, "Connection names the field " + name};
    }
    if (!LooksLike(field.name, name)) {
      continue;
    }
    if (!EqualIgnoringCase(field.name, name)) {
      return {nullptr, "a field looks like " + name};
    }
    if (found.value != nullptr) {
      return {nullptr, "the field " + name + " is doubled"};
    }
    found.value = &field.value;
  }
  return found;
}

} // namespace Host
