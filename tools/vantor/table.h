#pragma once

// Terminal output: tables with aligned columns (widths counted in characters, not bytes).

#include <ostream>
#include <string>
#include <vector>

namespace vantor {

class Table {
 public:
  explicit Table(std::vector<std::string> headings);

  void AddRow(std::vector<std::string> cells);
  size_t RowCount() const { return rows_.size(); }

  // Headings, a rule, then the rows; cells padded to the widest of their column, two blanks between
  // columns, no trailing blanks. Line breaks inside a cell are shown as "⏎".
  void Print(std::ostream& out) const;

 private:
  std::vector<std::string> headings_;
  std::vector<std::vector<std::string>> rows_;
};

// The number of characters of a UTF-8 text (what a terminal shows, for the scripts the archive holds).
size_t DisplayWidth(const std::string& text);

}  // namespace vantor
