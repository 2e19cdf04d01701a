#include "directory/lint/pattern/PatternFindings.h"

#include <algorithm>

#include "directory/lint/pattern/PatternReader.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

PatternReading ReadPattern(const std::string& pattern, bool allows, Perenna::Method_t method) {
  return PatternReader(pattern, allows, method).Read();
}

PatternReading PatternReader::Read() {
  std::string fault;
  CompilePattern(m_Pattern, fault);
  if (!fault.empty() || m_Tree.GetFault() != Perenna::Pattern::Fault::None) {
    ReadConstruct();
    return std::move(m_Reading);
  }
  ReadEscapes();
  ReadRepetitions();
  ReadRepeatedAssertions();
  if (m_Allows && MatchesEveryTarget()) {
    m_Edits.clear();
    Change(0, m_Pattern.size(), "^/");
    Find(LintKinds::FilterEverything, "the pattern matches every target: the group is granted all of the server; "
                                      "\"^/\" says so");
  } else if (!ReadTarget()) {
    ReadDots();
    ReadAnchoring();
    ReadEnd();
  }
  const bool mends = std::any_of(m_Reading.findings.begin(), m_Reading.findings.end(),
                                 [](const PatternFinding& finding) { return finding.advice.empty(); });
  if (mends) {
    m_Reading.better = Changed();
    CompilePattern(m_Reading.better, fault);
    if (!fault.empty() || m_Reading.better == m_Pattern) {
      m_Reading.better.clear();
    }
  }
  for (PatternFinding& finding : m_Reading.findings) {
    if (finding.advice.empty() && m_Reading.better.empty()) {
      finding.advice = "write the pattern anew";
    }
  }
  return std::move(m_Reading);
}

std::vector<PatternReader::NodeIndex> PatternReader::Children(NodeIndex index) const {
  std::vector<NodeIndex> children;
  for (NodeIndex child = At(index).first_child; child != Perenna::Pattern::NoNode; child = At(child).next_sibling) {
    children.push_back(child);
  }
  return children;
}

PatternReader::NodeIndex PatternReader::First(NodeIndex index) const {
  return At(index).kind == Kind::Concatenation ? At(index).first_child : index;
}

PatternReader::NodeIndex PatternReader::Last(NodeIndex index) const {
  return At(index).kind == Kind::Concatenation ? Children(index).back() : index;
}

bool PatternReader::IsLineBegin(NodeIndex index) const {
  return At(index).kind == Kind::Assertion && At(index).assertion == Perenna::Pattern::Assertion::LineBegin;
}

bool PatternReader::IsAlphanumeric(NodeIndex index) const {
  const Node& node = At(index);
  const unsigned char byte = node.byte;
  return node.kind == Kind::Literal && node.span.end - node.span.begin == 1 &&
         ((byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'));
}

bool PatternReader::IsText(NodeIndex index, const char* text) const {
  return Text(At(index).span.begin, At(index).span.end) == text;
}

bool PatternReader::IsStrayParenthesis(NodeIndex index) const {
  return At(index).kind == Kind::Literal && IsText(index, ")");
}

std::size_t PatternReader::CountNodes(bool (PatternReader::*counts)(NodeIndex) const) const {
  std::size_t number = 0;
  for (NodeIndex index = 0; index < m_Tree.Size(); ++index) {
    number += (this->*counts)(index) ? 1U : 0U;
  }
  return number;
}

void PatternReader::Find(const LintKind& kind, const std::string& why, const std::string& advice) {
  const auto known =
      std::find_if(m_Reading.findings.begin(), m_Reading.findings.end(), [&](const PatternFinding& finding) {
        return finding.kind == &kind && finding.advice.empty() == advice.empty();
      });
  if (known == m_Reading.findings.end()) {
    m_Reading.findings.push_back({&kind, why, advice});
    return;
  }
  const auto append = [](std::string& text, const std::string& more) {
    if (text.find(more) == std::string::npos) {
      text.append(text.empty() ? "" : "; ").append(more);
    }
  };
  append(known->why, why);
  append(known->advice, advice);
}

void PatternReader::Change(std::size_t begin, std::size_t end, std::string text) {
  m_Edits.push_back({begin, end, std::move(text)});
}

std::string PatternReader::Changed(std::vector<Edit> edits) const {
  std::stable_sort(edits.begin(), edits.end(), [](const Edit& left, const Edit& right) {
    return left.begin != right.begin ? left.begin < right.begin : left.end < right.end; // insertions come first
  });
  std::string changed;
  std::size_t done = 0;
  for (const Edit& edit : edits) {
    if (edit.begin >= done) {
      changed += Text(done, edit.begin) + edit.text;
      done = edit.end;
    }
  }
  return changed + m_Pattern.substr(done);
}

} // namespace AccessDirectory
