#include "tool/terminal/Table.h"

#include <algorithm>
#include <cstdlib>

#include <unistd.h>

namespace Tool {

namespace {

bool UseColour() {
  static const bool use = [] {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
    const char* const no_color = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (no_color == nullptr || *no_color == '\0');
  }();
  return use;
}

const char* Sequence(Colour colour) {
  switch (colour) {
  case Colour::Green:
    return "\033[32m";
  case Colour::Red:
    return "\033[31m";
  case Colour::Dim:
    return "\033[2m";
  case Colour::Bold:
    return "\033[1m";
  case Colour::None:
    break;
  }
  return "";
}

} // namespace

std::string InColour(const std::string& text, Colour colour) {
  return colour == Colour::None || !UseColour() ? text : Sequence(colour) + text + "\033[0m";
}

void Table::Print(std::ostream& out) const {
  std::vector<std::size_t> widths;
  for (std::size_t column = 0; column < m_Headings.size(); ++column) {
    std::size_t width = m_Headings[column].size();
    for (const auto& row : m_Rows) {
      width = std::max(width, row.at(column).text.size());
    }
    widths.push_back(width);
  }
  const auto print = [&out, &widths](const Cell& cell, std::size_t column) {
    out << InColour(cell.text, cell.colour);
    const bool last = column + 1 == widths.size();
    out << (last ? std::string("\n") : std::string(widths[column] - cell.text.size() + 2, ' '));
  };
  for (std::size_t column = 0; column < m_Headings.size(); ++column) {
    print(Cell(m_Headings[column], Colour::Bold), column);
  }
  for (const auto& row : m_Rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      print(row[column], column);
    }
  }
}

} // namespace Tool
