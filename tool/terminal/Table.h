#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Tool {

enum class Colour { None, Green, Red, Dim, Bold };

/// A cell: text that is safe to print (see `Shown`), and how it is coloured on a terminal.
struct Cell {
  Cell(std::string cell_text, Colour cell_colour = Colour::None) // NOLINT(google-explicit-constructor): rows read well
      : text(std::move(cell_text)), colour(cell_colour) {}
  Cell(const char* cell_text) : text(cell_text) {} // NOLINT(google-explicit-constructor)

  std::string text;
  Colour colour = Colour::None;
};

/// A text table with left-aligned columns, two blanks apart.
class Table {
public:
  explicit Table(std::vector<std::string> headings) : m_Headings(std::move(headings)) {}
  void Add(std::vector<Cell> row) { m_Rows.push_back(std::move(row)); }
  bool Empty() const noexcept { return m_Rows.empty(); }
  void Print(std::ostream& out) const;

private:
  std::vector<std::string> m_Headings;
  std::vector<std::vector<Cell>> m_Rows;
};

/// `text` in colour when standard output is a terminal and NO_COLOR is not set (https://no-color.org), else as it is.
std::string InColour(const std::string& text, Colour colour);

} // namespace Tool
