#pragma once

// The field rows of the entry masks answer: eight columns (id, tab index, width, alignment, name,
// mandatory, initial text, list only), optionally followed by the columns of the allowed values.

#include <array>
#include <string_view>

namespace halqvantor::archive {

struct MaskFieldColumns {
  std::array<std::string_view, 8> columns;
  // The rest of a row of more than eight columns, from the "^" that opens column 8 to the row's end,
  // separators included; absent for a row of eight columns.
  bool has_list = false;
  std::string_view list;
};

// Splits a field row. Column 7 may end at the row's closing "^". Raises 5 when a column is not closed.
MaskFieldColumns SplitMaskField(std::string_view row);

// A mask flag column: true exactly when the text, read as an unsigned 8-bit number, is 1. Raises 13 for a
// text that is not a number and 6 for one outside 0..255.
bool MaskFlag(std::string_view text);

}  // namespace halqvantor::archive
