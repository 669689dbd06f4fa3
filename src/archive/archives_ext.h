#pragma once

// The extended archive list's channel rows ("#" + name + "," + description) and the archive properties
// row (create, edit, delete, index, a number: five values separated by commas).

#include <array>
#include <string_view>

#include "archive/channels.h"

namespace halqvantor::archive {

// Splits a "#" channel row at its first comma: the name without the "#", and everything after the comma
// (commas included). Raises 5 when it has no comma.
ChannelRow SplitChannelGroupRow(std::string_view row);

// The five values of a properties row: four between the first four commas, the fifth the rest of the row
// (commas included). Raises 5 when the row has fewer than four commas.
std::array<std::string_view, 5> SplitArchiveProperties(std::string_view row);

}  // namespace halqvantor::archive
