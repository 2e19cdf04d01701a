#include "Cost.h"

#include <algorithm>

#include "platform/pattern/network/ExpandedSizes.h"
#include "platform/pattern/network/Network.h"
#include "Glance.h"
#include "JudgementCache.h"
#include "References.h"
#include "platform/pattern/states/States.h"
#include "Tree.h"

namespace Perenna::Pattern {

namespace {

// A second and 512 MiB, less what is not counted.
constexpr double MaximumSeconds = 0.75;
constexpr double MaximumBytes = 480.0 * 1024 * 1024;
/// Of the C library's nodes, with their part of its syntax tree.
constexpr double ElementBytes = 400;
/// Of its lists of nodes that are reachable without matching a byte, and of those in the other direction, grown by
/// doubling, that it makes for a pattern with groups.
constexpr double ReservedBytes = 4;
constexpr double ListedSeconds = 5e-9;
constexpr double ListedBackBytes = 7;
constexpr double ListedBothWaysSeconds = 13e-9;

/// Bytes of the longest match; `SubjectBytes` stands for more too.
std::size_t LongestMatch(const Tree& tree) {
  std::vector<std::size_t> longest(tree.Size(), 0);
  for (NodeIndex index = 0; index < tree.Size(); ++index) {
    const Node& node = tree[index];
    std::size_t bytes = 0;
    for (NodeIndex child = node.first_child; child != NoNode; child = tree[child].next_sibling) {
      bytes = node.kind == Kind::Alternatives ? std::max(bytes, longest[child]) : bytes + longest[child];
    }
    if (node.kind == Kind::Repetition) {
      bytes *= std::min<std::size_t>(node.maximum, SubjectBytes);
    } else if (node.kind == Kind::Reference) {
      bytes = SubjectBytes;
    } else if (node.kind == Kind::Literal || node.kind == Kind::Set) {
      bytes = 1;
    }
    longest[index] = std::min(bytes, SubjectBytes);
  }
  return longest[tree.Root()];
}

const char* JudgeTree(const Tree& tree) {
  const Network network(tree);
  if (!network.Complete()) {
    return "too much of it can be passed without matching a character, by repetitions inside repetitions or by "
           "assertions";
  }
  const auto listed = static_cast<double>(network.ListedNodes());
  const bool groups = tree.Groups() > 0;
  const Needs limit{MaximumSeconds - listed * (groups ? ListedBothWaysSeconds : ListedSeconds),
                    MaximumBytes - static_cast<double>(network.Size()) * ElementBytes -
                        static_cast<double>(network.ReservedNodes()) * ReservedBytes -
                        (groups ? listed * ListedBackBytes : 0)};
  States states(tree, network);
  const std::size_t longest = LongestMatch(tree);
  const Needs bound = states.Bound(SubjectBytes, longest);
  Needs needs;
  if ((bound.seconds <= limit.seconds && bound.bytes <= limit.bytes) ||
      states.Explore(SubjectBytes, longest, limit, needs)) {
    return nullptr;
  }
  return "a text can match parts of it in too many ways at once";
}

/// What has been judged, for all threads. Never destroyed, since patterns may be judged while the process ends.
JudgementCache& Judged() {
  static auto& judged = *new JudgementCache; // NOLINT(cppcoreguidelines-owning-memory)
  return judged;
}

Judgement JudgeAnew(std::string_view pattern) {
  Judgement judgement;
  const Tree tree = Tree::Read(pattern);
  if (tree.GetFault() == Fault::TooDeep) {
    judgement.refusal = "its groups or repetitions stand too deep inside each other";
    return judgement;
  }
  // What stands before a fault is made all the same.
  if (tree.GetFault() == Fault::TooLong || ExpandedSizes(tree)[tree.Root()] > MaximumElements) {
    judgement.refusal = "written out, its repetitions are too long";
    return judgement;
  }
  judgement.malformed = tree.GetFault() == Fault::Malformed;
  if (judgement.malformed) {
    return judgement;
  }
  judgement.refusal = JudgeReferences(tree);
  judgement.for_reference = judgement.refusal != nullptr;
  if (judgement.refusal == nullptr) {
    judgement.refusal = JudgeTree(tree);
  }
  return judgement;
}

} // namespace

Judgement Judge(std::string_view pattern) {
  Judgement judgement;
  pattern = pattern.substr(0, pattern.find('\0'));
  if (!IsPlain(pattern) && !Judged().Find(pattern, judgement)) {
    judgement = JudgeAnew(pattern);
    Judged().Keep(pattern, judgement);
  }
  return judgement;
}

} // namespace Perenna::Pattern
