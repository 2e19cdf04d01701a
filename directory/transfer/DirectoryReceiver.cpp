#include "directory/transfer/DirectoryReceiver.h"

#include <algorithm>

#include "TN_util.h"

namespace AccessDirectory {

namespace {

constexpr const char* Base64 = "base64";

/// Decodes a base64 text; false when it is none.
bool DecodeBase64(const std::string& text, std::string& bytes) {
  bytes.assign(text.size(), '\0'); // enough: the encoded form is longer
  unsigned count = 0;
  const bool decoded = text.find('\0') == std::string::npos &&
                       Tarn::base64decode(text.c_str(), reinterpret_cast<Tarn::byte_t*>(bytes.data()),
                                          static_cast<unsigned>(bytes.size()), &count) == 0;
  bytes.resize(count);
  return decoded;
}

/// The parser's explanation without what it quotes from the file, which may be a credential.
std::string Explanation(const std::string& what) {
  const std::size_t begin = what.find("syntax error");
  return begin == std::string::npos ? "a number is out of range" : what.substr(begin, what.find("; last read") - begin);
}

} // namespace

std::string DirectoryReceiver::DocumentMember(std::size_t member) {
  return member == Format ? "format" : member == Version ? "version" : Sections.at(member - FirstSection).name;
}

std::string DirectoryReceiver::Path() const {
  std::string path = m_Name;
  if (m_Place > Place::Document) {
    path += '[' + std::to_string(m_Directory.at(SectionIndex()).Count()) + ']';
  }
  if (m_Place > Place::List && !m_EntryName.empty()) {
    path += '.' + m_EntryName;
  }
  return path;
}

std::string DirectoryReceiver::Expected() const {
  switch (m_Place) {
  case Place::Document:
    return m_Member == Format    ? std::string("the text ") + Quoted(FileFormat)
           : m_Member == Version ? "the number " + std::to_string(FileVersion)
                                 : "an array";
  case Place::Entry:
    return "a text";
  case Place::Bytes:
    return "a base64 text";
  case Place::Outside:
  case Place::List:
    break;
  }
  return "an object";
}

void DirectoryReceiver::Error(const std::string& message) {
  m_Errors.Add(Path(), message);
  m_Sound = false;
}

void DirectoryReceiver::Unexpected(const std::string& found) {
  Error(Expected() + " is expected, not " + found);
  if (m_Place == Place::List) { // it has its number as well
    BeginEntry();
    m_Directory.at(SectionIndex()).Append(m_Texts, false);
  } else if (m_Place > Place::List) {
    m_HasText[m_Column] = true; // not missing
  }
}

bool DirectoryReceiver::Scalar(const std::string& found) {
  if (!PassesOver()) {
    Unexpected(found);
  }
  return true;
}

bool DirectoryReceiver::Number(bool is_version) {
  if (!AtVersion()) {
    return Scalar("a number");
  }
  if (!PassesOver() && !is_version) {
    Error("is not " + std::to_string(FileVersion) + ", the one that this program knows");
  }
  return true;
}

/// Refuses an object or an array, with all that is in it.
bool DirectoryReceiver::Container(const std::string& found) {
  Scalar(found);
  ++m_Depth;
  return true;
}

bool DirectoryReceiver::string(string_t& value) {
  if (PassesOver()) {
    return true;
  }
  if (m_Place == Place::Entry || m_Place == Place::Bytes) {
    m_HasText[m_Column] = true;
    if (m_Place == Place::Entry) {
      m_Texts[m_Column] = std::move(value);
    } else if (!DecodeBase64(value, m_Texts[m_Column])) {
      Error("the text under \"base64\" is not base64");
    }
  } else if (m_Place != Place::Document || m_Member != Format || value != FileFormat) {
    Unexpected(m_Place == Place::Document ? Excerpt(value) : "a text");
  }
  return true;
}

bool DirectoryReceiver::key(string_t& name) {
  if (m_Depth > 0) {
    return true;
  }
  if (m_Place == Place::Document) {
    DocumentKey(name);
  } else if (m_Place == Place::Entry) {
    EntryKey(name);
  } else if (name != Base64 || std::exchange(m_HasBytes, true)) {
    Error("a text that is not UTF-8 is {\"base64\": \"...\"} and nothing else, not " + Excerpt(name));
    m_UnknownMember = true;
  }
  return true;
}

void DirectoryReceiver::DocumentKey(const std::string& name) {
  std::size_t member = Format;
  while (member < DocumentMembers && name != DocumentMember(member)) {
    ++member;
  }
  const bool known = member < DocumentMembers;
  m_Name = known ? name : Excerpt(name);
  if (!known) {
    Error("is an unknown member; format, version, users, groups, memberships and filters belong here");
    m_UnknownMember = true;
    return;
  }
  m_Member = member;
  if (std::exchange(m_Seen.at(member), true)) {
    Error("occurs twice");
    m_UnknownMember = true;
  }
}

void DirectoryReceiver::EntryKey(const std::string& name) {
  const std::vector<std::string>& columns = TheSection().columns;
  const auto column = std::find(columns.begin(), columns.end(), name);
  m_EntryName.clear();
  if (column == columns.end()) {
    Error(Excerpt(name) + " is an unknown member of a " + TheSection().noun);
    m_UnknownMember = true;
    return;
  }
  m_Column = static_cast<std::size_t>(column - columns.begin());
  m_EntryName = name;
  if (m_HasText[m_Column]) {
    Error("occurs twice");
    m_UnknownMember = true;
  }
}

bool DirectoryReceiver::start_object(std::size_t /*size*/) {
  if (PassesOver()) {
    ++m_Depth;
    return true;
  }
  switch (m_Place) {
  case Place::Outside:
    m_Place = Place::Document;
    return true;
  case Place::List:
    BeginEntry();
    m_Place = Place::Entry;
    return true;
  case Place::Entry:
    m_HasBytes = false;
    m_Place = Place::Bytes;
    return true;
  default:
    return Container("an object");
  }
}

bool DirectoryReceiver::end_object() {
  if (m_Depth > 0) {
    --m_Depth;
  } else if (m_Place == Place::Bytes) {
    if (!m_HasBytes) {
      Error("\"base64\" is missing");
      m_HasText[m_Column] = true;
    }
    m_Place = Place::Entry;
  } else if (m_Place == Place::Entry) {
    EndEntry();
    m_Place = Place::List;
  } else {
    EndDocument();
    m_Place = Place::Outside;
  }
  return true;
}

bool DirectoryReceiver::start_array(std::size_t /*size*/) {
  if (PassesOver()) {
    ++m_Depth;
    return true;
  }
  if (m_Place != Place::Document || m_Member < FirstSection) {
    return Container("an array");
  }
  m_Place = Place::List;
  return true;
}

bool DirectoryReceiver::end_array() {
  if (m_Depth > 0) {
    --m_Depth;
  } else {
    m_Place = Place::Document;
  }
  return true;
}

void DirectoryReceiver::BeginEntry() {
  m_EntryName.clear();
  m_Texts.assign(TheSection().columns.size(), {});
  m_HasText.assign(m_Texts.size(), false);
  m_Sound = true;
}

void DirectoryReceiver::EndEntry() {
  for (std::size_t column = 0; column < m_Texts.size(); ++column) {
    if (!m_HasText[column] && m_Without != nullptr && TheSection().IsSecret(column)) {
      m_Without->push_back(m_Directory.at(SectionIndex()).Count());
    } else if (!m_HasText[column]) {
      m_EntryName = TheSection().columns[column];
      Error("is missing");
    }
  }
  m_Directory.at(SectionIndex()).Append(m_Texts, m_Sound);
}

void DirectoryReceiver::EndDocument() {
  for (std::size_t member = 0; member < DocumentMembers; ++member) {
    if (!m_Seen.at(member)) {
      m_Errors.Add(DocumentMember(member), "is missing");
    }
  }
}

bool DirectoryReceiver::parse_error(std::size_t /*position*/, const std::string& /*token*/,
                                    const nlohmann::detail::exception& error) {
  const Input::Position where = m_Input.Where();
  m_Errors.AddFirst(Path(), "line " + std::to_string(where.line) + ", column " + std::to_string(where.column) + ": " +
                                Shown(Explanation(error.what()), Backslash::Kept));
  return false;
}

} // namespace AccessDirectory
