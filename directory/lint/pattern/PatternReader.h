#pragma once

#include "directory/lint/pattern/PatternFindings.h"
#include "platform/pattern/Tree.h"

namespace AccessDirectory {

/// Reads one pattern for findings and gathers the changes that mend them. The tree of a pattern bounds how deep walks
/// over it recurse.
class PatternReader {
public:
  PatternReader(const std::string& pattern, bool allows, Perenna::Method_t method)
      : m_Pattern(pattern), m_Allows(allows), m_Method(method), m_Tree(Perenna::Pattern::Tree::Read(pattern)) {}

  PatternReading Read();

private:
  using Node = Perenna::Pattern::Node;
  using NodeIndex = Perenna::Pattern::NodeIndex;
  using Kind = Perenna::Pattern::Kind;

  struct Edit {
    std::size_t begin;
    std::size_t end;
    std::string text;
  };

  const Node& At(NodeIndex index) const { return m_Tree[index]; }
  std::string Text(std::size_t begin, std::size_t end) const { return m_Pattern.substr(begin, end - begin); }
  std::vector<NodeIndex> Children(NodeIndex index) const;
  NodeIndex First(NodeIndex index) const; // of a concatenation; else the node itself
  NodeIndex Last(NodeIndex index) const;
  bool IsLineBegin(NodeIndex index) const;
  bool IsAlphanumeric(NodeIndex index) const; // a letter or digit that stands for itself
  bool IsText(NodeIndex index, const char* text) const;
  std::size_t CountNodes(bool (PatternReader::*counts)(NodeIndex) const) const;
  bool IsReference(NodeIndex index) const { return At(index).kind == Kind::Reference; }
  bool IsStrayParenthesis(NodeIndex index) const;

  /// Adds a finding, or more words to one of this kind. Advice says that no change mends it.
  void Find(const LintKind& kind, const std::string& why, const std::string& advice = {});
  /// Replaces [begin, end) of the pattern. Of two changes that overlap the first counts.
  void Change(std::size_t begin, std::size_t end, std::string text);
  std::string Changed() const { return Changed(m_Edits); }
  std::string Changed(std::vector<Edit> edits) const;

  // What other dialects say otherwise.
  void ReadConstruct();
  void ReadEscapes();
  void ReadEscape(const Perenna::Pattern::Escape& escape);
  void ReadEscapeInList(const Perenna::Pattern::Escape& escape);
  void ReadRepetitions();
  void ReadRepetition(const Node& outer, const Node& inner);

  void ReadRepeatedAssertions();

  // What the pattern matches.
  bool MatchesEveryTarget() const;
  bool ReadTarget();
  bool CannotMatchTarget(NodeIndex alternative) const;
  void ReadDots();
  void ReadAnchoring();
  void AnchorAlternatives(const std::vector<NodeIndex>& alternatives, std::size_t anchored);
  bool AnchorMixed(const std::vector<NodeIndex>& alternatives);
  void ReadEnd();
  bool IsAnchored(NodeIndex index) const;
  bool IsMixed(NodeIndex index) const;
  bool BeginsWithSlash(NodeIndex index) const;
  bool BeginsWithAnything(NodeIndex index) const;
  bool IsOfNameBytes(NodeIndex index) const;
  bool EndsInName(NodeIndex index) const;

  const std::string& m_Pattern;
  bool m_Allows;
  Perenna::Method_t m_Method;
  Perenna::Pattern::Tree m_Tree;
  std::vector<Edit> m_Edits;
  PatternReading m_Reading;
  bool m_AtStart = false; // anchored, or becomes so by the changes
};

} // namespace AccessDirectory
