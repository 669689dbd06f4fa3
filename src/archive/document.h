#pragma once

// The answers about one document: the document info row, the segment rows and the joining of segment
// text into pieces. Plain functions over the answer rows; malformed rows raise the run-time errors the
// operations raise.

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "platform/row_list.h"

namespace halqvantor::archive {

// Columns 4 to 11 of a document info row (length, created, changed, title, fields in all, text, image and
// blob fields). Column 11 must be closed by a separator too: anything after it is ignored. Raises 5 when a
// separator is missing.
std::array<std::string_view, 8> DocumentInfoColumns(std::string_view row);

// Columns 0 to 11 of a segment row; the last one ends at the next "^". Raises 5 when a column is not closed.
std::array<std::string_view, 12> SegmentColumns(std::string_view row);

// Joins the answer rows of a segment text into pieces, appended to `pieces`. A row that begins with "^"
// after a row that ends with "^" starts a new piece; any other row continues the current one after
// `line_break`. Each piece is stored without its first and last character; a piece shorter than two
// characters raises 5, with the pieces before it already appended.
void JoinTextPieces(const platform::RowList& rows, std::string_view line_break, std::vector<std::string>& pieces);

}  // namespace halqvantor::archive
