#include "archive/grouped_rows.h"

#include <string>

#include "platform/vb_runtime.h"

namespace halqvantor::archive {

int32_t CountGroups(const platform::RowList& rows, char mark) {
  int32_t count = 0;
  for (const std::string_view row : rows) count += BeginsWith(row, mark) ? 1 : 0;
  return count;
}

int32_t SkipToGroup(const platform::RowList& rows, int32_t cursor, char mark) {
  const auto end = static_cast<int32_t>(rows.size());
  if (cursor < 0) cursor = 0;
  while (cursor < end && !BeginsWith(rows[cursor], mark)) ++cursor;
  return cursor;
}

int32_t GroupLength(const platform::RowList& rows, int32_t from, char mark) {
  return SkipToGroup(rows, from, mark) - from;
}

bool InGroup(const platform::RowList& rows, int32_t cursor, char mark) {
  if (cursor < 0 || static_cast<size_t>(cursor) >= rows.size()) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  return !BeginsWith(rows[cursor], mark);
}

}  // namespace halqvantor::archive
