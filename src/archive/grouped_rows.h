#pragma once

// The walks of the archive operations over grouped rows: group rows marked by their first character and the
// member rows under each.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/Variant.h"
#include "link/result_values.h"
#include "link/session.h"
#include "platform/row_list.h"

namespace halqvantor::archive {

// True when the row's first character is `mark` (the group lines of the two-level walks).
inline bool BeginsWith(std::string_view row, char mark) { return !row.empty() && row.front() == mark; }

// The two-level walks over group rows (their first character is `mark`) and the member rows under each.
// Number of group rows.
int32_t CountGroups(const platform::RowList& rows, char mark);
// The index of the first group row at or after `cursor`; rows.size() when there is none.
int32_t SkipToGroup(const platform::RowList& rows, int32_t cursor, char mark);
// Number of member rows from `from` up to the next group row or the end.
int32_t GroupLength(const platform::RowList& rows, int32_t from, char mark);
// True when the row at `cursor` is a member row, false at a group row. Reads the row even at the end of
// the rows, so a cursor outside them raises 9.
bool InGroup(const platform::RowList& rows, int32_t cursor, char mark);

}  // namespace halqvantor::archive
