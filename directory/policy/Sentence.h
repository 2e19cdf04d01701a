#pragma once

#include <string>
#include <vector>

#include "PN_HTTP.h"
#include "directory/pattern/Targets.h"

namespace AccessDirectory {

/// A statement about what users may do, whatever the target:
///
///     SUBJECT may [not] METHODS PLACE
///
/// SUBJECT is "nobody", "everybody", "no member of GROUP", "every member of GROUP", "everybody in GROUP", "nobody
/// outside GROUP" or "user USER"; "may not" goes with the last alone. METHODS are methods with commas, "and" or "or"
/// between them, or "do anything". PLACE is "anywhere"; a path, which means just that; "below PATH"; "PATH and all
/// below"; or "matching PATTERN". A word that holds blanks stands between double quotes, a backslash before a quote in
/// it.
struct Sentence {
  enum class Subject {
    All,     ///< every user
    Members, ///< of the group `name`
    Others,  ///< who are not members of the group `name`
    User     ///< the one user `name`
  };

  std::string text; ///< as written
  Subject subject = Subject::All;
  std::string name;
  bool may = false; ///< what is claimed: that they may, always; else that they may not, ever
  std::vector<Perenna::Method_t> methods;
  std::string place; ///< a pattern of the targets that are meant
};

/// Whether a line that begins with this word is meant to be one.
bool BeginsSentence(const std::string& word);

/// Reads a sentence. Throws `Failure` (Input) that quotes what is wrong with it. A path must be one that the rules
/// admit, so that no sentence is true only because it speaks of nothing.
Sentence ReadSentence(const std::string& text, const TargetRules& rules);

/// Reads one a line from a file's text; empty lines, and those that begin with "#", are passed over. Failures name the
/// line.
std::vector<Sentence> ReadSentences(const std::string& text, const TargetRules& rules);

} // namespace AccessDirectory
