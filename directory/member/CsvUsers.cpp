#include "directory/member/CsvUsers.h"

#include <istream>
#include <map>

#include "directory/credential/Credential.h"
#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "directory/transfer/Input.h"

namespace AccessDirectory {

namespace {

/// Reads one record after the other.
class CsvReader {
public:
  explicit CsvReader(std::streambuf& input) : m_Stream(&input) { m_Stream.exceptions(std::ios::badbit); }

  std::size_t Line() const noexcept { return m_Line; }

  [[noreturn]] void Refuse(const std::string& why) const {
    throw Failure(Failure::Kind::Input, "line " + std::to_string(m_Line) + ": " + why);
  }

  /// False at the end.
  bool Next(std::vector<std::string>& fields) {
    fields.assign(1, "");
    m_Line = m_NextLine;
    bool any = false;
    for (int byte = m_Stream.get(); byte != std::istream::traits_type::eof(); byte = m_Stream.get()) {
      any = true;
      if (byte == '"' && fields.back().empty()) {
        ReadQuoted(fields.back());
      } else if (byte == ',') {
        fields.emplace_back();
      } else if (byte == '\n') {
        ++m_NextLine;
        return true;
      } else if (byte != '\r' || m_Stream.peek() != '\n') {
        fields.back() += static_cast<char>(byte);
      }
    }
    return any;
  }

private:
  void ReadQuoted(std::string& field) {
    for (;;) {
      const int byte = m_Stream.get();
      if (byte == std::istream::traits_type::eof()) {
        Refuse("a quotation is not closed");
      }
      if (byte == '"') {
        if (m_Stream.peek() != '"') {
          break;
        }
        m_Stream.get();
      }
      m_NextLine += byte == '\n' ? 1 : 0;
      field += static_cast<char>(byte);
    }
    const int next = m_Stream.peek();
    if (next != ',' && next != '\r' && next != '\n' && next != std::istream::traits_type::eof()) {
      Refuse("something stands behind a quotation");
    }
  }

  std::istream m_Stream;
  std::size_t m_Line = 1;
  std::size_t m_NextLine = 1;
};

std::vector<std::string> Parts(const std::string& joined) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin < joined.size();) {
    const std::size_t end = std::min(joined.find(';', begin), joined.size());
    if (end > begin) {
      parts.push_back(joined.substr(begin, end - begin));
    }
    begin = end + 1;
  }
  return parts;
}

} // namespace

std::vector<CsvUser> ReadCsvUsers(const std::string& name, Progress& progress) {
  try {
    Input input(name, progress);
    CsvReader reader(input);
    std::vector<std::string> fields;
    const bool any = reader.Next(fields);
    const bool with_groups = fields == std::vector<std::string>{"user_id", "groups"};
    if (!any || (!with_groups && fields != std::vector<std::string>{"user_id"})) {
      reader.Refuse("the first line must be \"user_id,groups\" or \"user_id\"");
    }
    std::vector<CsvUser> users;
    std::map<std::string, std::size_t> lines;
    while (reader.Next(fields)) {
      if (fields.size() == 1 && fields.front().empty()) {
        continue;
      }
      if (fields.size() != (with_groups ? 2 : 1)) {
        reader.Refuse(Count(fields.size(), "value") + " where the first line has " + (with_groups ? "2" : "1"));
      }
      if (const std::string fault = UserIdFault(fields.front(), true); !fault.empty()) {
        reader.Refuse("the id " + Quoted(fields.front()) + ' ' + fault);
      }
      const auto [first, is_new] = lines.emplace(fields.front(), reader.Line());
      if (!is_new) {
        reader.Refuse("the user " + Quoted(fields.front()) + " stands in line " + std::to_string(first->second) +
                      " already");
      }
      users.push_back({fields.front(), with_groups ? Parts(fields.back()) : std::vector<std::string>(), reader.Line()});
    }
    if (users.empty()) {
      reader.Refuse("there is no user behind it");
    }
    return users;
  } catch (const Failure& failure) {
    throw Failure(failure.What(), (name == "-" ? "standard input" : Quoted(name)) + ": " + failure.what());
  }
}

} // namespace AccessDirectory
