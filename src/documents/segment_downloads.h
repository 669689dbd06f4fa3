#pragma once

// The pure pieces of the segment downloads, usable without a gateway.

#include <optional>
#include <string>
#include <string_view>

namespace halqvantor {

// The comma list of page numbers sent for a page text: pieces separated by ";"; a piece with "-" is a range
// "from-to" (from 0: to alone; to 0: from alone; from >= to: descending), any other piece a page of 1 or
// more. A text that is not a whole number counts as 0. "1-3;7;5-4" gives "1,2,3,7,5,4"; a text whose list
// cannot be made (one of more than 1 MiB) gives "".
std::string ExpandPageList(std::string_view pages);

// The file name after the extension mapping: when `mappings` holds the name's last three characters and
// "-" (letter case aside), those characters are replaced by the three after the "-", as written there.
// nullopt when no mapping applies (also for a name shorter than three characters).
std::optional<std::string> MappedFileName(std::string_view file_name, std::string_view mappings);

}  // namespace halqvantor
