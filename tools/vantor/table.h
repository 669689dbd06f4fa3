#pragma once

// Terminal output: tables with aligned columns (widths counted in characters, not bytes).

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace vantor {

class Table {
 public:
  explicit Table(std::vector<std::string> headings);

  void AddRow(std::vector<std::string> cells);
  size_t RowCount() const { return rows_.size(); }

  // Headings (bold with `bold_headings`, for a terminal that takes colour), a rule, then the rows; cells
  // padded to the widest of their column, two blanks between columns, no trailing blanks. Line breaks inside
  // a cell are shown as CurrentGlyphs().line_break, a tab as a blank, and every other control character as
  // EscapeControls shows it.
  void Print(std::ostream& out, bool bold_headings = false) const;

 private:
  std::vector<std::string> headings_;
  std::vector<std::vector<std::string>> rows_;
};

// `text` (UTF-8 from the gateway) made safe for a terminal: a control character cannot move the cursor,
// change colours or retitle the window. C0 controls and DEL become "\x" and two capital hex digits (ESC is
// "\x1B"), the C1 controls U+0080 .. U+009F "\u0080" .. "\u009F"; everything else stays as it is. With
// kKeepLineBreaks, LF and tab stay too (running text printed line by line).
inline constexpr bool kKeepLineBreaks = true;
std::string EscapeControls(std::string_view text, bool keep_line_breaks = false);

// The number of characters of a UTF-8 text (what a terminal shows, for the scripts the archive holds).
size_t DisplayWidth(const std::string& text);

}  // namespace vantor
