#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>
#include <vector>

#include "LocalAccessManager.h"
#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "host/Configuration.h"
#include "host/configuration/Keys.h"
#include "host/configuration/Rules.h"

namespace Host {

namespace {

using AccessDirectory::EditDistance;
using AccessDirectory::Failure;
using AccessDirectory::Json;
using AccessDirectory::Quoted;

constexpr std::size_t MostBytes = 1024UL * 1024UL;
constexpr std::size_t LongestShownValue = 100; // bytes of a value in an error message

[[noreturn]] void Refuse(const std::string& message) {
  throw Failure(Failure::Kind::Input, message);
}

std::string ReadText(const std::string& file) {
  errno = 0;
  std::ifstream in(file, std::ios::binary);
  std::string text(MostBytes + 1, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!in.eof() && !in.good()) {
    Refuse("cannot be read: " + std::generic_category().message(errno));
  }
  text.resize(static_cast<std::size_t>(in.gcount()));
  if (text.size() > MostBytes) {
    Refuse("is longer than a configuration can be");
  }
  return text;
}

/// A key that is given twice would be read by one program as the first and by another as the last.
Json ParseObject(const std::string& text) {
  std::vector<std::set<std::string>> keys;
  const auto watch = [&keys](int /*depth*/, Json::parse_event_t event, Json& parsed) {
    if (event == Json::parse_event_t::object_start) {
      keys.emplace_back();
    } else if (event == Json::parse_event_t::object_end) {
      keys.pop_back();
    } else if (event == Json::parse_event_t::key && !keys.back().insert(parsed.get<std::string>()).second) {
      Refuse("the key " + Quoted(parsed.get<std::string>()) + " is given twice in one object");
    }
    return true;
  };
  Json root;
  try {
    root = Json::parse(text, watch);
  } catch (const Json::parse_error& error) {
    const std::size_t at = std::min(error.byte, text.size());
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(at);
    Refuse("is not JSON: line " + std::to_string(1 + std::count(text.begin(), end, '\n')) + ": " +
           std::string(error.what()).substr(std::string(error.what()).find("] ") + 2));
  }
  if (!root.is_object()) {
    Refuse("is not a JSON object");
  }
  return root;
}

/// "Host", "Host.Proxy", ...: what may hold keys.
std::set<std::string> Sections() {
  std::set<std::string> sections;
  for (const ConfigurationKey& key : ConfigurationKeys()) {
    for (std::size_t dot = 0; dot != std::string::npos;) {
      dot = key.section.find('.', dot + 1);
      sections.insert(key.section.substr(0, dot));
    }
  }
  return sections;
}

[[noreturn]] void RefuseUnknown(const std::string& path) {
  std::vector<std::string> known;
  for (const ConfigurationKey& key : ConfigurationKeys()) {
    known.push_back(key.Path());
  }
  const std::set<std::string> sections = Sections();
  known.insert(known.end(), sections.begin(), sections.end());
  const auto nearest = std::min_element(known.begin(), known.end(), [&path](const auto& left, const auto& right) {
    return EditDistance(left, path) < EditDistance(right, path);
  });
  Refuse("there is no key " + Quoted(path) + "; the nearest is " + Quoted(*nearest));
}

void CheckNames(const Json& object, const std::string& path, const std::set<std::string>& sections) {
  for (const auto& [name, value] : object.items()) {
    std::string inner = path;
    inner.append(".").append(name);
    if (sections.count(inner) != 0) {
      if (!value.is_object()) {
        Refuse(Quoted(inner) + " must be an object");
      }
      CheckNames(value, inner, sections);
    } else if (std::none_of(ConfigurationKeys().begin(), ConfigurationKeys().end(),
                            [&inner](const ConfigurationKey& key) { return key.Path() == inner; })) {
      RefuseUnknown(inner);
    }
  }
}

/// Only the sections that are this program's; others belong to other hosts.
void CheckNames(const Json& root) {
  const std::set<std::string> sections = Sections();
  for (const auto& [name, value] : root.items()) {
    if (sections.count(name) == 0) {
      continue;
    }
    if (!value.is_object()) {
      Refuse(Quoted(name) + " must be an object");
    }
    CheckNames(value, name, sections);
  }
}

/// The value of a key; null when it is not given.
const Json* Find(const Json& root, const ConfigurationKey& key) {
  const Json* object = &root;
  for (std::size_t begin = 0; begin <= key.section.size();) {
    const std::size_t end = std::min(key.section.find('.', begin), key.section.size());
    const auto found = object->find(key.section.substr(begin, end - begin));
    if (found == object->end()) {
      return nullptr;
    }
    object = &*found;
    begin = end + 1;
  }
  const auto found = object->find(key.name);
  return found == object->end() ? nullptr : &*found;
}

void Store(Configuration& configuration, const Json& root, const ConfigurationKey& key) {
  const Json* const given = Find(root, key);
  if (given == nullptr && key.fallback.empty()) {
    Refuse(key.Path() + " is missing: give " + key.accepted);
  }
  if (!key.store(configuration, given != nullptr ? *given : Json::parse(key.fallback))) {
    std::string shown = given != nullptr ? given->dump(-1, ' ', true) : key.fallback;
    if (shown.size() > LongestShownValue) {
      shown.replace(LongestShownValue, std::string::npos, "...");
    }
    Refuse(key.Path() + ": " + shown + " is not accepted: give " + key.accepted);
  }
}

/// As the access module takes it, with the database's name absolute.
std::shared_ptr<const Perenna::PListDict> Dictionary(Json root, const Configuration& configuration) {
  namespace Keys = LocalAccessManager::Strings;
  root[Keys::LocalAccessManager][Keys::DatabaseFilename] = configuration.database_filename;
  const std::shared_ptr<const Perenna::PListItem> item(Perenna::PListItem::CreateFromJSON(root.dump()));
  auto dictionary = std::dynamic_pointer_cast<const Perenna::PListDict>(item);
  if (dictionary == nullptr) {
    Refuse("nests too deep");
  }
  return dictionary;
}

/// Runs `read` on the parsed file; what it refuses is said with the file's name before it.
template <typename Read> Configuration ReadWith(const std::string& file, const Read& read) {
  Configuration configuration;
  try {
    std::error_code error;
    configuration.file = std::filesystem::absolute(file, error).string();
    if (error) {
      Refuse("cannot be read: " + error.message());
    }
    const Json root = ParseObject(ReadText(configuration.file));
    CheckNames(root);
    read(configuration, root);
  } catch (const Failure& failure) {
    throw Failure(failure.What(), Quoted(file) + ": " + failure.what());
  }
  return configuration;
}

} // namespace

Configuration ReadConfiguration(const std::string& file) {
  return ReadWith(file, [](Configuration& configuration, const Json& root) {
    for (const ConfigurationKey& key : ConfigurationKeys()) {
      Store(configuration, root, key);
    }
    CheckRules(configuration);
    configuration.dictionary = Dictionary(root, configuration);
  });
}

DirectoryPart ReadDirectoryPart(const std::string& file) {
  static const std::set<std::string> keys = {"LocalAccessManager.DatabaseFilename",
                                             "LocalAccessManager.AnonymousUserId",
                                             "Host.Administrators",
                                             "Host.Target",
                                             "Host.TargetAllows",
                                             "Host.Log.Administration"};
  const Configuration configuration = ReadWith(file, [](Configuration& part, const Json& root) {
    for (const ConfigurationKey& key : ConfigurationKeys()) {
      if (keys.count(key.Path()) != 0) {
        Store(part, root, key);
      }
    }
  });
  return {configuration.database_filename, configuration.administrators,
          configuration.anonymous_user_id, configuration.target,
          configuration.target_allows,     configuration.log.administration};
}

} // namespace Host
