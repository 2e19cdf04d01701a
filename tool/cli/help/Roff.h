#pragma once

#include <string>

namespace Tool {

// Pieces of manual pages, in the language of man(7).

/// Text for roff: its special characters, and those that it would set as typographic ones, as they are.
std::string Escaped(const std::string& text);

/// Text, set bold.
std::string Bold(const std::string& text);

/// A summary or description has no full stop of its own.
std::string Sentence(const std::string& text);

/// A term, in roff, and what it means, in plain text.
std::string Entry(const std::string& term, const std::string& description);

/// The head of a page: its title, and the section NAME. `section` is 1, 5 or 8.
std::string PageBeginning(const std::string& name, int section, const std::string& summary, const std::string& version);

} // namespace Tool
