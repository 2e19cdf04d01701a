#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Tool {

enum class Colour { None, Green, Red, Dim, Bold };

enum class ColourUse { Auto, Always, Never };

/// How tables and verdicts are printed.
struct TableStyle {
  ColourUse colours = ColourUse::Auto;
  bool wide = false; ///< whole, whatever the width of the terminal
};

/// Sets the style of the whole program. Called once, before anything is printed.
void SetTableStyle(const TableStyle& style);

/// A cell: text that is safe to print (see `Shown`), and how it is coloured on a terminal.
struct Cell {
  Cell(std::string cell_text, Colour cell_colour = Colour::None) // NOLINT(google-explicit-constructor): rows read well
      : text(std::move(cell_text)), colour(cell_colour) {}
  Cell(const char* cell_text) : text(cell_text) {} // NOLINT(google-explicit-constructor)

  std::string text;
  Colour colour = Colour::None;
};

/// A text table with left-aligned columns, two blanks apart. On a terminal that is too narrow, the widest columns are
/// cut, and a last line says so.
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

/// `text` in colour where colours are wanted, else as it is. By default they are wanted on a terminal, unless NO_COLOR
/// is set (https://no-color.org) or TERM is "dumb".
std::string InColour(const std::string& text, Colour colour);

} // namespace Tool
