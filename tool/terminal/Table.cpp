#include "tool/terminal/Table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>

#include <sys/ioctl.h>
#include <unistd.h>

namespace Tool {

namespace {

constexpr std::size_t Gap = 2;         // blanks between columns
constexpr std::size_t LeastWidth = 8;  // that a column is cut to
constexpr const char* CutMark = "..."; // at the end of a cut cell

TableStyle s_style;

std::string Environment(const char* variable) {
  const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
  return value == nullptr ? "" : value;
}

bool UseColour() {
  static const bool automatic =
      isatty(STDOUT_FILENO) == 1 && Environment("NO_COLOR").empty() && Environment("TERM") != "dumb";
  return s_style.colours == ColourUse::Always || (s_style.colours == ColourUse::Auto && automatic);
}

/// The columns of the terminal that standard output is; unlimited where it is none, or where that is not known.
std::size_t Columns() {
  winsize size = {};
  return !s_style.wide && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0
             ? size.ws_col
             : std::numeric_limits<std::size_t>::max();
}

/// Takes from the widest columns until the line fits, or none has more than the least width.
bool Narrow(std::vector<std::size_t>& widths, std::size_t columns) {
  std::size_t line = std::accumulate(widths.begin(), widths.end(), Gap * (widths.size() - 1));
  bool cut = false;
  for (; line > columns; --line) {
    const auto widest = std::max_element(widths.begin(), widths.end());
    if (*widest <= LeastWidth) {
      break;
    }
    --*widest;
    cut = true;
  }
  return cut;
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

void SetTableStyle(const TableStyle& style) {
  s_style = style;
}

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
  const bool cut = Narrow(widths, Columns());
  const auto print = [&out, &widths](const Cell& cell, std::size_t column) {
    const bool fits = cell.text.size() <= widths[column];
    const std::string text = fits ? cell.text : cell.text.substr(0, widths[column] - std::strlen(CutMark)) + CutMark;
    out << InColour(text, cell.colour);
    const bool last = column + 1 == widths.size();
    out << (last ? std::string("\n") : std::string(widths[column] - text.size() + Gap, ' '));
  };
  for (std::size_t column = 0; column < m_Headings.size(); ++column) {
    print(Cell(m_Headings[column], Colour::Bold), column);
  }
  for (const auto& row : m_Rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      print(row[column], column);
    }
  }
  if (cut) {
    out << "(cut to the width of the terminal; --wide shows all)\n";
  }
}

} // namespace Tool
