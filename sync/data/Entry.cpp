#include "sync/data/Entry.h"

#include <algorithm>
#include <array>

#include "directory/text/Text.h"
#include "sync/store/StoreError.h"
#include "sync/store/Wire.h"

namespace Sync {

using AccessDirectory::Section;
using AccessDirectory::SectionNumber;

namespace {

/// How a section's rows become keys.
struct KeyForm {
  char letter;
  SectionNumber section;
  std::vector<std::size_t> parts; ///< columns, in the order of the key
};

const std::array<KeyForm, AccessDirectory::SectionCount>& Forms() {
  using namespace AccessDirectory; // NOLINT(google-build-using-namespace): the columns' names
  static const std::array<KeyForm, SectionCount> forms = {{
      {'u', Users, {UserColumn::Id}},
      {'g', Groups, {GroupColumn::Id}},
      {'m', Memberships, {MembershipColumn::Group, MembershipColumn::User}},
      {'f', Filters, {FilterColumn::Group, FilterColumn::Method, FilterColumn::Action, FilterColumn::Pattern}},
  }};
  return forms;
}

bool IsPlain(char c) noexcept {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
}

void AppendEscaped(std::string& key, const std::string& text) {
  constexpr const char* Digits = "0123456789ABCDEF";
  for (const char c : text) {
    if (IsPlain(c)) {
      key += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    key += '%';
    key += Digits[byte >> 4U];
    key += Digits[byte & 0xfU];
  }
}

int DigitOf(char c) noexcept {
  return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// False for anything but what `AppendEscaped` makes: two keys never stand for one entry.
bool Unescape(std::string_view part, std::string& text) {
  text.clear();
  for (std::size_t i = 0; i < part.size(); ++i) {
    if (part[i] != '%') {
      if (!IsPlain(part[i])) {
        return false;
      }
      text += part[i];
      continue;
    }
    const int high = i + 2 < part.size() ? DigitOf(part[i + 1]) : -1;
    const int low = i + 2 < part.size() ? DigitOf(part[i + 2]) : -1;
    if (high < 0 || low < 0) {
      return false;
    }
    text += static_cast<char>(high * 16 + low);
    if (IsPlain(text.back())) {
      return false;
    }
    i += 2;
  }
  return true;
}

std::optional<std::string> TextOf(const Json& value) {
  if (value.is_string()) {
    return value.get<std::string>();
  }
  if (value.is_object() && value.size() == 1 && value.contains("base64") && value["base64"].is_string()) {
    return FromBase64(value["base64"].get<std::string>());
  }
  return std::nullopt;
}

bool ReadKey(std::string_view key, Entry& entry) {
  const auto* const form = std::find_if(Forms().begin(), Forms().end(), [key](const KeyForm& each) {
    return key.size() >= 2 && key[0] == each.letter && key[1] == '/';
  });
  if (form == Forms().end()) {
    return false;
  }
  entry.section = form->section;
  entry.texts.assign(AccessDirectory::Sections.at(form->section).columns.size(), {});
  std::string_view rest = key.substr(2);
  for (std::size_t i = 0; i < form->parts.size(); ++i) {
    const bool is_last = i + 1 == form->parts.size();
    const std::size_t end = is_last ? rest.size() : rest.find('/');
    if (end == std::string_view::npos || !Unescape(rest.substr(0, end), entry.texts[form->parts[i]])) {
      return false;
    }
    rest.remove_prefix(is_last ? end : end + 1);
  }
  return true;
}

bool ReadValue(const std::string& value, Entry& entry) {
  const Section& section = AccessDirectory::Sections.at(entry.section);
  if (!section.HasDetails()) {
    return true; // what a later version may keep here is none of ours
  }
  const Json json = Json::parse(value, nullptr, false);
  if (!json.is_object()) {
    return false;
  }
  for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
    const auto found = json.find(section.columns[column]);
    auto text = found == json.end() ? std::nullopt : TextOf(*found);
    if (!text) {
      return false;
    }
    entry.texts[column] = *std::move(text);
  }
  return true;
}

bool HoldsNul(const Entry& entry) {
  return std::any_of(entry.texts.begin(), entry.texts.end(),
                     [](const std::string& text) { return text.find('\0') != std::string::npos; });
}

} // namespace

std::string KeyOf(const Entry& entry) {
  const KeyForm& form = Forms().at(entry.section);
  std::string key(1, form.letter);
  for (const std::size_t column : form.parts) {
    key += '/';
    AppendEscaped(key, entry.texts[column]);
  }
  return key;
}

std::string ValueOf(const Entry& entry) {
  const Section& section = AccessDirectory::Sections.at(entry.section);
  if (!section.HasDetails()) {
    return {};
  }
  Json json = Json::object();
  for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
    json[section.columns[column]] = AccessDirectory::JsonText(entry.texts[column]);
  }
  return json.dump();
}

std::optional<Entry> ReadEntry(std::string_view key, const std::string& value, std::string& fault) {
  std::optional<Entry> entry = ReadEntryKey(key, fault);
  try {
    if (entry && !ReadValue(value, *entry)) {
      fault = "has a value that no entry has";
    } else if (entry && HoldsNul(*entry)) {
      fault = "has a value with a NUL";
    }
  } catch (const StoreError&) {
    fault = "has a value with malformed base64";
  }
  return fault.empty() ? entry : std::nullopt;
}

std::optional<Entry> ReadEntryKey(std::string_view key, std::string& fault) {
  Entry entry;
  fault.clear();
  if (!ReadKey(key, entry)) {
    fault = "is no key of an entry";
  } else if (HoldsNul(entry)) {
    fault = "holds a NUL";
  }
  return fault.empty() ? std::optional<Entry>(std::move(entry)) : std::nullopt;
}

} // namespace Sync
