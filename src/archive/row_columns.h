#pragma once

// Reading the columns of a multi-column answer row. Such a row holds columns each enclosed in "^" and
// separated by commas: "^,^" stands between two columns, the row begins and ends with "^", and nothing is
// escaped, so a "^,^" inside a column's text splits it.
//
// Positions are 1-based and count bytes of the UTF-8 row. The delimiters are ASCII, so a column that byte
// positions select is the text that character positions select. A separator that is missing has the
// position 0, and a column whose extent comes out negative is an invalid argument (run-time error 5), as
// Mid with a negative length is.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::archive {

inline constexpr std::string_view kColumnSeparator = "^,^";

// Position of the first "^,^" at or after `start`; 0 when there is none (also when `start` lies past the
// row). A start below 1 raises 5.
int64_t FindSeparator(std::string_view row, int64_t start);

// The `length` bytes from position `start` (fewer at the row's end, none past it). A start below 1 or a
// negative length raises 5.
std::string_view MidView(std::string_view row, int64_t start, int64_t length);

// Column k (from 0) of a row in which a separator follows column k: column 0 runs from position 2 up to
// the first "^,^" searched from position 2, column k from 3 past the separator before it up to the next
// one. Raises 5 when one of the separators up to the one that closes column k is missing.
std::string_view ColumnAt(std::string_view row, int k);

// The first `count` columns of a row whose last column is the row's end: columns 0 .. count-2 end at their
// separators, column count-1 runs from 3 past the last of them to the row's end less one character (the
// closing "^"). The first and last characters are skipped unchecked; a further "^,^" stays inside the last
// column. Raises 5 when one of the count-1 separators is missing.
std::vector<std::string> SplitColumns(std::string_view row, int count);

// Walks a row's columns from left to right, for rows whose last column ends at the row's end or at a
// "^" rather than at a separator.
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

// A text without its first character ("" for ""), as Mid(text, 2) gives it.
std::string_view WithoutFirst(std::string_view text);

// A text without its first and last character (characters, not bytes); raises 5 for a text shorter than
// two characters.
std::string_view WithoutEnds(std::string_view text);

}  // namespace halqvantor::archive
