#pragma once

// The column layout of the gateway's multi-column rows: each column enclosed in "^", columns separated by
// commas, so "^,^" stands between two columns and the row begins and ends with "^". There is no escaping:
// a "^,^" inside a column's text splits it. The row's first character is skipped without being checked.
//
// Columns are read from left to right: column 0 runs from the row's second character to the first "^,^",
// each further column from just after one separator to the next. A column whose closing separator is
// missing raises run-time error 5 (the negative length a Mid would be given).

#include <string_view>

namespace halqvantor::archive {

inline constexpr std::string_view kColumnSeparator = "^,^";

class ColumnCursor {
 public:
  // Positioned at column 0 (just after the row's first character).
  explicit ColumnCursor(std::string_view row);

  // The next column, ended by the next "^,^"; raises 5 when there is none.
  std::string_view Next();
  // The next column, ended by the next "^"; raises 5 when there is none. For a row's last column.
  std::string_view NextToCaret();
  // The next column, ended by the next "^,^" of the row followed by ",^": a column that is the row's last
  // ends at the row's closing "^". Raises 5 when neither closes it. LastClosedAtRowEnd() tells which.
  std::string_view NextOrRowEnd();
  bool LastClosedAtRowEnd() const { return closed_at_end_; }
  // The text from the "^" that opens the next column to the row's end ("" once the row is used up).
  std::string_view RestFromOpeningCaret() const;

 private:
  std::string_view row_;
  size_t start_;  // byte offset of the next column's first character
  bool closed_at_end_ = false;
};

// Column k (from 0) of a row, ended by the separator after it; raises 5 when a separator is missing.
std::string_view ColumnAt(std::string_view row, int k);

// A text without its first character ("" for ""), as Mid(text, 2) gives it.
std::string_view WithoutFirst(std::string_view text);

// A text without its first and last character (characters, not bytes); raises 5 for a text shorter than
// two characters.
std::string_view WithoutEnds(std::string_view text);

}  // namespace halqvantor::archive
