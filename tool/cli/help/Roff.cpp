#include "tool/cli/help/Roff.h"

#include <algorithm>
#include <cctype>

namespace Tool {

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char byte : text) {
    switch (byte) {
    case '\\':
      escaped += "\\e";
      break;
    case '-':
      escaped += "\\-";
      break;
    case '\'':
      escaped += "\\(aq";
      break;
    case '`':
      escaped += "\\(ga";
      break;
    case '^':
      escaped += "\\(ha";
      break;
    case '~':
      escaped += "\\(ti";
      break;
    case '"':
      escaped += "\\(dq";
      break;
    default:
      escaped += byte;
    }
  }
  return escaped.empty() || escaped.front() != '.' ? escaped : "\\&" + escaped; // a dot would begin a request
}

std::string Bold(const std::string& text) {
  return "\\fB" + Escaped(text) + "\\fR";
}

std::string Sentence(const std::string& text) {
  return text + (text.back() == '?' || text.back() == '.' ? "" : ".");
}

std::string Entry(const std::string& term, const std::string& description) {
  return ".TP\n" + term + '\n' + Escaped(Sentence(description)) + '\n';
}

std::string PageBeginning(const std::string& name, int section, const std::string& summary,
                          const std::string& version) {
  std::string title = name;
  std::transform(title.begin(), title.end(), title.begin(),
                 [](unsigned char byte) { return static_cast<char>(std::toupper(byte)); });
  const char* const part = section == 1 ? "User Commands" : section == 5 ? "File Formats" : "System Administration";
  // No hyphen and no stretched blank within an option's name; the macros set them anew from these at every paragraph.
  return ".nr HY 0\n.ds AD l\n.TH \"" + Escaped(title) + "\" " + std::to_string(section) + " \"\" \"" +
         Escaped(version) + "\" \"" + part + "\"\n.SH NAME\n" + Escaped(name) + " \\- " + Escaped(summary) + '\n';
}

} // namespace Tool
