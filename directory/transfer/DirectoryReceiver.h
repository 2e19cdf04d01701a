#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "directory/Directory.h"
#include "directory/transfer/FileFindings.h"
#include "directory/transfer/Input.h"

namespace AccessDirectory {

/// Receives the parser's events. Where they stand is one of five places; below a value that was refused, or whose
/// member is unknown, events are passed over until it ends.
class DirectoryReceiver : public Json::json_sax_t {
public:
  /// `without` gets the rows of users without a credential; null: every user has one.
  DirectoryReceiver(const Input& input, Directory& directory, FileFindings& errors,
                    std::vector<std::size_t>* without = nullptr)
      : m_Input(input), m_Directory(directory), m_Errors(errors), m_Without(without) {}

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
  std::vector<std::size_t>* m_Without;

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

} // namespace AccessDirectory
