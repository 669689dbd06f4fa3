#pragma once

// The notes answer: per note a header row, then its text, which opens with "^", may run over further rows
// and closes with a "^" at the end of its last row.

#include <string>
#include <vector>

#include "platform/row_list.h"

namespace halqvantor::archive {

// Appends one entry per note to `notes`: the header row, ",", then the text without its enclosing "^",
// its rows joined with CR LF. A note that reads past the last row (a header without a text row, a text
// that never closes) raises 9, with the notes before it already appended.
void JoinNotes(const platform::RowList& rows, std::vector<std::string>& notes);

}  // namespace halqvantor::archive
