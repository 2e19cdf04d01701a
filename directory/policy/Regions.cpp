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

/// Cuts a piece in two, if the pattern matches a part of it only; the second part is added where there is room.
void Cut(Piece& piece, PatternNumber pattern, bool matches, bool has_room, Solver& solver, std::vector<Piece>& added) {
  const Question::Term term = {pattern, false};
  Piece other = piece;
  (matches ? other.question.without : other.question.within).push_back(term);
  Answer answer = solver.Find(other.question);
  if (answer.kind == Answer::Kind::Unknown || (answer.kind == Answer::Kind::Witness && !has_room)) {
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
    bool is_left_out = false;
    std::vector<Piece> added;
    for (Piece& piece : pieces) {
      if (piece.IsApartFrom(pattern, patterns)) {
        continue;
      }
      const bool has_room = pieces.size() + added.size() < maximum;
      const std::size_t unknown = piece.region.unknown.size();
      if (!has_room && piece.region.matched.empty()) { // what no pattern claims: most match something of it
        piece.region.unknown.push_back(pattern);
      } else {
        Cut(piece, pattern, patterns.Matches(pattern, piece.region.witness), has_room, solver, added);
      }
      is_left_out = is_left_out || (!has_room && piece.region.unknown.size() > unknown);
    }
    all.left_out += is_left_out ? 1 : 0;
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
