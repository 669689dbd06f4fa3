#pragma once

// Rows of the channel and archive lists.

#include <string>
#include <string_view>

#include "platform/row_list.h"

namespace halqvantor::archive {

// A channel row: the name before the first comma and the description after it (which may hold commas).
// A row without a comma is a name with an empty description.
struct ChannelRow {
  std::string_view name;
  std::string_view description;
};
ChannelRow SplitChannelRow(std::string_view row);

// Sorts rows by their capitals (UCase, Windows-1252 letters) compared by character codes, whole rows at a
// time; rows that are equal in capitals keep their order. O(n log n).
void SortRowsByCapitals(platform::RowList& rows);

}  // namespace halqvantor::archive
