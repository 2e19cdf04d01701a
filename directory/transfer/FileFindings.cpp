#include "directory/transfer/FileFindings.h"

namespace AccessDirectory {

namespace {

constexpr std::size_t ExcerptBytes = 60;

} // namespace

void FileFindings::Add(std::string path, std::string message) {
  ++m_Count;
  if (m_Kept.size() < MaximumKept) {
    m_Kept.push_back({std::move(path), std::move(message)});
  }
}

void FileFindings::AddFirst(std::string path, std::string message) {
  ++m_Count;
  m_Kept.insert(m_Kept.begin(), {std::move(path), std::move(message)});
}

void FileFindings::Append(const FileFindings& others) {
  for (const Finding& finding : others.m_Kept) {
    Add(finding.path, finding.message);
  }
  m_Count += others.m_Count - others.m_Kept.size();
}

Json FileFindings::ToJson() const {
  Json json = Json::array();
  for (const Finding& finding : m_Kept) {
    json.push_back({{"path", finding.path}, {"message", finding.message}});
  }
  return json;
}

void FileFindings::Print(std::ostream& out, const std::string& prefix) const {
  for (const Finding& finding : m_Kept) {
    out << prefix << finding.path << (finding.path.empty() ? "" : ": ") << finding.message << '\n';
  }
  if (m_Count > m_Kept.size()) {
    out << prefix << "and " << m_Count - m_Kept.size() << " more\n";
  }
}

std::string Excerpt(std::string_view text) {
  return text.size() <= ExcerptBytes ? Quoted(std::string(text))
                                     : Quoted(std::string(text.substr(0, ExcerptBytes))) + "...";
}

} // namespace AccessDirectory
