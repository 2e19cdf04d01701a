#include "DirectoryReader.h"

#include <algorithm>
#include <istream>
#include <utility>

#include "TN_util.h"
#include "Text.h"

namespace Tool {

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

/// Receives the parser's events. Where they stand is one of five places; below a value that was refused, or whose
/// member is unknown, events are passed over until it ends.
class Receiver : public Json::json_sax_t {
public:
  Receiver(const Input& input, Directory& directory, FileFindings& errors)
      : m_Input(input), m_Directory(directory), m_Errors(errors) {}

  bool null() override { return Scalar("null"); }
  bool boolean(bool value) override { return Scalar(value ? "true" : "false"); }
  bool number_integer(number_integer_t /*value*/) override { return Number(false); }
  bool number_unsigned(number_unsigned_t value) override { return Number(value == FileVersion); }
  bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return Number(false); }
  bool binary(binary_t& /*value*/) override { return Scalar("bytes"); }
  bool string(string_t& value) override;
  bool key(string_t& name) override;
  bool start_object(std::size_t /*size*/) override;
  bool end_object() override;
  bool start_array(std::size_t /*size*/) override;
  bool end_array() override;
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& error) override;

private:
  enum class Place { Outside, Document, List, Entry, Bytes };

  // The members of a document: these two and then the sections.
  enum : std::size_t { Format, Version, FirstSection, DocumentMembers = FirstSection + SectionCount };
  static std::string DocumentMember(std::size_t member);

  std::size_t SectionIndex() const { return m_Member - FirstSection; }
  const Section& TheSection() const { return Sections.at(SectionIndex()); }

  bool AtVersion() const { return m_Place == Place::Document && m_Member == Version; }
  bool PassesOver() { return m_Depth > 0 || std::exchange(m_UnknownMember, false); }
  std::string Path() const;
  std::string Expected() const;
  void Error(const std::string& message);
  void Unexpected(const std::string& found);
  bool Scalar(const std::string& found);
  bool Number(bool is_version);
  bool Container(const std::string& found);
  void DocumentKey(const std::string& name);
  void EntryKey(const std::string& name);
  void BeginEntry();
  void EndEntry();
  void EndDocument();

  const Input& m_Input;
  Directory& m_Directory;
  FileFindings& m_Errors;

  Place m_Place = Place::Outside;
  std::size_t m_Depth = 0;      // of containers that are passed over
  bool m_UnknownMember = false; // whose value comes next
  std::string m_Name;           // of the member of the document, safe to print
  std::string m_EntryName;      // of the member of the entry
  std::size_t m_Member = Format;
  std::array<bool, DocumentMembers> m_Seen{};
  std::size_t m_Column = 0;
  std::vector<std::string> m_Texts; // of the entry
  std::vector<bool> m_HasText;
  bool m_HasBytes = false;
  bool m_Sound = true; // the entry so far
};

std::string Receiver::DocumentMember(std::size_t member) {
  return member == Format ? "format" : member == Version ? "version" : Sections.at(member - FirstSection).name;
}

std::string Receiver::Path() const {
  std::string path = m_Name;
  if (m_Place > Place::Document) {
    path += '[' + std::to_string(m_Directory.at(SectionIndex()).Count()) + ']';
  }
  if (m_Place > Place::List && !m_EntryName.empty()) {
    path += '.' + m_EntryName;
  }
  return path;
}

std::string Receiver::Expected() const {
  switch (m_Place) {
  case Place::Document:
    return m_Member == Format    ? std::string("the text ") + Quoted(FileFormat)
           : m_Member == Version ? "version " + std::to_string(FileVersion) + ", which this program knows,"
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

void Receiver::Error(const std::string& message) {
  m_Errors.Add(Path(), message);
  m_Sound = false;
}

void Receiver::Unexpected(const std::string& found) {
  Error(Expected() + " is expected, not " + found);
  if (m_Place == Place::List) { // it has its number as well
    BeginEntry();
    m_Directory.at(SectionIndex()).Append(m_Texts, false);
  } else if (m_Place > Place::List) {
    m_HasText[m_Column] = true; // not missing
  }
}

bool Receiver::Scalar(const std::string& found) {
  if (!PassesOver()) {
    Unexpected(found);
  }
  return true;
}

bool Receiver::Number(bool is_version) {
  if (!AtVersion()) {
    return Scalar("a number");
  }
  return is_version || Scalar("another version");
}

/// Refuses an object or an array, with all that is in it.
bool Receiver::Container(const std::string& found) {
  Scalar(found);
  ++m_Depth;
  return true;
}

bool Receiver::string(string_t& value) {
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

bool Receiver::key(string_t& name) {
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

void Receiver::DocumentKey(const std::string& name) {
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

void Receiver::EntryKey(const std::string& name) {
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

bool Receiver::start_object(std::size_t /*size*/) {
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

bool Receiver::end_object() {
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

bool Receiver::start_array(std::size_t /*size*/) {
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

bool Receiver::end_array() {
  if (m_Depth > 0) {
    --m_Depth;
  } else {
    m_Place = Place::Document;
  }
  return true;
}

void Receiver::BeginEntry() {
  m_EntryName.clear();
  m_Texts.assign(TheSection().columns.size(), {});
  m_HasText.assign(m_Texts.size(), false);
  m_Sound = true;
}

void Receiver::EndEntry() {
  for (std::size_t column = 0; column < m_Texts.size(); ++column) {
    if (!m_HasText[column]) {
      m_EntryName = TheSection().columns[column];
      Error("is missing");
    }
  }
  m_Directory.at(SectionIndex()).Append(m_Texts, m_Sound);
}

void Receiver::EndDocument() {
  for (std::size_t member = 0; member < DocumentMembers; ++member) {
    if (!m_Seen.at(member)) {
      m_Errors.Add(DocumentMember(member), "is missing");
    }
  }
}

bool Receiver::parse_error(std::size_t /*position*/, const std::string& /*token*/,
                           const nlohmann::detail::exception& error) {
  const Input::Position where = m_Input.Where();
  m_Errors.AddFirst(Path(), "line " + std::to_string(where.line) + ", column " + std::to_string(where.column) + ": " +
                                Shown(Explanation(error.what()), Backslash::Kept));
  return false;
}

} // namespace

bool ReadDirectory(Input& input, Directory& directory, FileFindings& errors) {
  Receiver receiver(input, directory, errors);
  std::istream stream(&input);
  return Json::sax_parse(stream, &receiver);
}

} // namespace Tool
