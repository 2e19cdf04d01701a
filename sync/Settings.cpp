#include "sync/Settings.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Sync {

using AccessDirectory::Failure;
using AccessDirectory::Json;
using AccessDirectory::Quoted;

namespace {

constexpr const char* Section = "Sync";
constexpr std::string_view Secure = "https://";
constexpr std::string_view Plain = "http://";

[[noreturn]] void Refuse(const std::string& sentence) {
  throw Failure(Failure::Kind::Input, sentence);
}

/// The name between the scheme and the port.
std::string HostOf(std::string_view url, std::string_view scheme) {
  std::string_view rest = url.substr(scheme.size());
  rest = rest.substr(0, rest.find('/'));
  if (!rest.empty() && rest.front() == '[') {
    return std::string(rest.substr(0, rest.find(']') + 1));
  }
  return std::string(rest.substr(0, rest.find(':')));
}

bool Begins(std::string_view text, std::string_view with) {
  return text.substr(0, with.size()) == with;
}

/// Visible ASCII without what would make a URL mean something else; plain HTTP is for this machine alone, since
/// credentials travel there.
bool IsEndpoint(const std::string& url) {
  const bool visible = std::all_of(url.begin(), url.end(), [](char c) {
    return c > ' ' && c < '\x7f' && std::string_view("\"<>\\^`{|}@?#").find(c) == std::string_view::npos;
  });
  if (!visible || url.empty() || url.back() == '/') {
    return false;
  }
  if (Begins(url, Secure)) {
    return !HostOf(url, Secure).empty();
  }
  const std::string host = Begins(url, Plain) ? HostOf(url, Plain) : std::string();
  return host == "localhost" || host == "[::1]" || Begins(host, "127.");
}

bool IsPrefix(const std::string& prefix) {
  return prefix.size() >= 2 && prefix.front() == '/' && prefix.back() == '/' &&
         std::all_of(prefix.begin(), prefix.end(), [](char c) { return c > ' ' && c < '\x7f'; });
}

bool IsText(const Json& value) {
  return value.is_string() && value.get_ref<const std::string&>().find('\0') == std::string::npos;
}

/// The section of a parsed file, with the file's folder at hand.
class Reader {
public:
  Reader(const Json& section, std::filesystem::path folder) : m_Section(section), m_Folder(std::move(folder)) {}

  std::string Text(const char* name, const char* fallback, const char* accepted) const {
    const Json* const value = Find(name);
    if (value == nullptr) {
      return fallback;
    }
    if (!IsText(*value)) {
      RefuseValue(name, *value, accepted);
    }
    return value->get<std::string>();
  }

  std::string FileName(const char* name) const {
    const std::string text = Text(name, "", "the name of a file, or \"\"");
    return text.empty() ? text : (m_Folder / text).lexically_normal().string();
  }

  std::vector<std::string> Endpoints() const {
    constexpr const char* Accepted = "a list of \"https://HOST:PORT\"; \"http://\" for addresses of this machine only";
    const Json* const value = Find("Endpoints");
    if (value == nullptr || value->empty()) {
      Refuse("Sync.Endpoints is missing: give " + std::string(Accepted));
    }
    const bool fits = value->is_array() && std::all_of(value->begin(), value->end(), [](const Json& url) {
                        return IsText(url) && IsEndpoint(url.get_ref<const std::string&>());
                      });
    if (!fits) {
      RefuseValue("Endpoints", *value, Accepted);
    }
    return value->get<std::vector<std::string>>();
  }

  [[noreturn]] static void RefuseValue(const char* name, const Json& value, const std::string& accepted) {
    constexpr std::size_t LongestShown = 200;
    Refuse(std::string(Section) + "." + name + ": " + value.dump(-1, ' ', true).substr(0, LongestShown) +
           " is not accepted: give " + accepted);
  }

private:
  const Json* Find(const char* name) const {
    const auto found = m_Section.find(name);
    return found == m_Section.end() ? nullptr : &*found;
  }

  const Json& m_Section;
  std::filesystem::path m_Folder;
};

void CheckNames(const Json& section) {
  constexpr std::array<const char*, 9> Names = {"Endpoints",   "CertificateAuthority", "Certificate", "Key",
                                                "User",        "PasswordFile",         "Prefix",      "OnStale",
                                                "StaleSeconds"};
  for (const auto& [name, value] : section.items()) {
    if (std::find(Names.begin(), Names.end(), name) == Names.end()) {
      const auto* const nearest = std::min_element(Names.begin(), Names.end(), [key = name](auto* left, auto* right) {
        return AccessDirectory::EditDistance(left, key) < AccessDirectory::EditDistance(right, key);
      });
      Refuse("there is no key " + Quoted("Sync." + name) + "; the nearest is " +
             Quoted(std::string("Sync.") + *nearest));
    }
  }
}

Settings Read(const std::string& file) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(file, error);
  std::ifstream in(absolute);
  std::stringstream text;
  if (error || !in || !(text << in.rdbuf())) {
    Refuse("cannot be read");
  }
  const Json root = Json::parse(text.str(), nullptr, false);
  if (!root.is_object()) {
    Refuse("is no JSON object");
  }
  const auto found = root.find(Section);
  if (found == root.end() || !found->is_object()) {
    Refuse("has no section \"Sync\": it says where the store of the directory is");
  }
  CheckNames(*found);
  const Reader reader(*found, absolute.parent_path());
  Settings settings;
  settings.endpoints = reader.Endpoints();
  settings.certificate_authority = reader.FileName("CertificateAuthority");
  settings.certificate = reader.FileName("Certificate");
  settings.key = reader.FileName("Key");
  settings.user = reader.Text("User", "", "a name, or \"\"");
  settings.password_file = reader.FileName("PasswordFile");
  settings.prefix = reader.Text("Prefix", "/perenna/", "a text");
  if (!IsPrefix(settings.prefix)) {
    Reader::RefuseValue("Prefix", settings.prefix, "visible ASCII that begins and ends with \"/\"");
  }
  if (settings.certificate.empty() != settings.key.empty()) {
    Refuse("Sync.Certificate and Sync.Key belong together: give both or none");
  }
  if (settings.user.empty() != settings.password_file.empty()) {
    Refuse("Sync.User and Sync.PasswordFile belong together: give both or none");
  }
  return settings;
}

} // namespace

Settings ReadSettings(const std::string& configuration_file) {
  try {
    return Read(configuration_file);
  } catch (const Failure& failure) {
    throw Failure(failure.What(), Quoted(configuration_file) + ": " + failure.what());
  }
}

} // namespace Sync
