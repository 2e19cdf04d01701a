#include "directory/policy/Regions.h"

#include <algorithm>

namespace AccessDirectory {

namespace {

/// A region while it is being cut: what holds it apart from the others, which is less than all that matches it.
struct Piece {
  Region region;
  Question question;

  /// Whether what it begins with shows that the pattern matches no target of it.
  bool IsApartFrom(PatternNumber pattern, const Patterns& patterns) const {
    return std::any_of(region.matched.begin(), region.matched.end(),
                       [&](PatternNumber other) { return patterns.AreApart(pattern, other); });
  }
};

/// Cuts a piece in two, if the pattern matches a part of it only; the second part is added.
void Cut(Piece& piece, PatternNumber pattern, bool matches, Solver& solver, std::vector<Piece>& added) {
  const Question::Term term = {pattern, false};
  Piece other = piece;
  (matches ? other.question.without : other.question.within).push_back(term);
  Answer answer = solver.Find(other.question);
  if (answer.kind == Answer::Kind::Unknown) {
    piece.region.unknown.push_back(pattern);
    return;
  }
  if (answer.kind == Answer::Kind::Witness) {
    other.region.witness = std::move(answer.text);
    if (!matches) {
      other.region.matched.push_back(pattern);
    }
    (matches ? piece.question.within : piece.question.without).push_back(term);
    added.push_back(std::move(other));
  }
  if (matches) {
    piece.region.matched.push_back(pattern);
  }
}

} // namespace

bool Regions::IsComplete() const {
  return std::all_of(regions.begin(), regions.end(), [](const Region& region) { return region.unknown.empty(); });
}

Regions CutIntoRegions(const std::vector<PatternNumber>& wanted, const Patterns& patterns, Solver& solver,
                       Progress& progress, std::size_t maximum) {
  Regions all;
  const Answer first = solver.Find({});
  std::vector<Piece> pieces(1);
  pieces.front().region.witness = first.text;
  progress.Begin("Cutting", wanted.size());
  for (const PatternNumber pattern : wanted) {
    progress.Advance(1);
    if (patterns.IsCostly(pattern)) {
      continue;
    }
    const bool too_many = pieces.size() >= maximum;
    all.left_out += too_many ? 1 : 0;
    std::vector<Piece> added;
    for (Piece& piece : pieces) {
      if (piece.IsApartFrom(pattern, patterns)) {
        continue;
      }
      if (too_many || pieces.size() + added.size() >= maximum) {
        piece.region.unknown.push_back(pattern);
      } else {
        Cut(piece, pattern, patterns.Matches(pattern, piece.region.witness), solver, added);
      }
    }
    std::move(added.begin(), added.end(), std::back_inserter(pieces));
  }
  for (Piece& piece : pieces) {
    all.regions.push_back(std::move(piece.region));
  }
  std::sort(all.regions.begin(), all.regions.end(),
            [](const Region& left, const Region& right) { return left.witness < right.witness; });
  return all;
}

} // namespace AccessDirectory
