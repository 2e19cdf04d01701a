#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "host/Configuration.h"
#include "host/configuration/Keys.h"

namespace Host {

// How the values of keys are taken over: each makes what `ConfigurationKey::store` is.

using AccessDirectory::Json;
using Store = std::function<bool(Configuration&, const Json&)>;
template <typename Value> using Place = Value& (*)(Configuration&);
using TextCheck = bool (*)(const std::string&);

inline bool IsText(const Json& value) {
  return value.is_string() && value.get_ref<const std::string&>().find('\0') == std::string::npos;
}

inline bool IsEmptyText(const Json& value) {
  return value.is_string() && value.get_ref<const std::string&>().empty();
}

inline Store Text(Place<std::string> place, TextCheck check) {
  return [place, check](Configuration& configuration, const Json& value) {
    if (!IsText(value) || !check(value.get_ref<const std::string&>())) {
      return false;
    }
    place(configuration) = value.get<std::string>();
    return true;
  };
}

/// A text that may be left empty.
inline Store OptionalText(Place<std::string> place, TextCheck check) {
  return [store = Text(place, check), place](Configuration& configuration, const Json& value) {
    if (IsEmptyText(value)) {
      place(configuration).clear();
      return true;
    }
    return store(configuration, value);
  };
}

/// Relative names are relative to the configuration file.
inline std::string Absolute(const Configuration& configuration, const std::string& name) {
  return (std::filesystem::path(configuration.file).parent_path() / name).string();
}

inline bool IsNotEmpty(const std::string& text) {
  return !text.empty();
}

inline Store FileName(Place<std::string> place) {
  return [store = Text(place, IsNotEmpty), place](Configuration& configuration, const Json& value) {
    if (!store(configuration, value)) {
      return false;
    }
    place(configuration) = Absolute(configuration, place(configuration));
    return true;
  };
}

inline Store OptionalFileName(Place<std::string> place) {
  return [store = FileName(place), place](Configuration& configuration, const Json& value) {
    if (IsEmptyText(value)) {
      place(configuration).clear();
      return true;
    }
    return store(configuration, value);
  };
}

inline Store Flag(Place<bool> place) {
  return [place](Configuration& configuration, const Json& value) {
    if (!value.is_boolean()) {
      return false;
    }
    place(configuration) = value.get<bool>();
    return true;
  };
}

template <typename Number> Store WholeNumber(Place<Number> place, std::uint64_t least, std::uint64_t most) {
  return [place, least, most](Configuration& configuration, const Json& value) {
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() < least || value.get<std::uint64_t>() > most) {
      return false;
    }
    place(configuration) = static_cast<Number>(value.get<std::uint64_t>());
    return true;
  };
}

template <typename Value>
Store Choice(Place<Value> place, std::initializer_list<std::pair<const char*, Value>> choices) {
  return [place, choices = std::vector<std::pair<std::string, Value>>(choices.begin(), choices.end())](
             Configuration& configuration, const Json& value) {
    const auto chosen =
        std::find_if(choices.begin(), choices.end(), [&value](const auto& choice) { return value == choice.first; });
    if (chosen == choices.end()) {
      return false;
    }
    place(configuration) = chosen->second;
    return true;
  };
}

using Parse = bool (*)(Configuration&, const std::string&);

inline Store Texts(Parse parse) {
  return [parse](Configuration& configuration, const Json& value) {
    return value.is_array() && std::all_of(value.begin(), value.end(), [&](const Json& item) {
             return IsText(item) && parse(configuration, item.get_ref<const std::string&>());
           });
  };
}

/// For what another layer reads: the form alone is checked.
inline Store Unread(bool (*check)(const Json&)) {
  return [check](Configuration&, const Json& value) { return check(value); };
}

} // namespace Host
