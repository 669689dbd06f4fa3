#pragma once

// The extended archive list's channel rows ("#" + name + "," + description) and the archive properties
// row (create, edit, delete, index, a number: five values separated by commas).

#include <array>
#include <string_view>

namespace halqvantor::archive {

struct ChannelRow {
  std::string_view name;         // without the "#"
  std::string_view description;  // everything after the first comma, commas included
};

// Splits a channel row at its first comma; raises 5 when it has none.
ChannelRow SplitChannelRow(std::string_view row);

// The five values of a properties row: four between the first four commas, the fifth the rest of the row
// (commas included). Raises 5 when the row has fewer than four commas.
std::array<std::string_view, 5> SplitArchiveProperties(std::string_view row);

}  // namespace halqvantor::archive
