#pragma once

// The archive query's answer and the hit list kept from it.
//
// Sort keys. A column is a date column when bit 0x400 of its column type is set, a number column when bit
// 0x200 is set (the date bit wins). A date key becomes YYYYMMDD when it reads as one of these dates, with
// blanks around it allowed:
//   DD.MM.YYYY or D.M.YYYY (day and month of one or two digits),   e.g. 01.02.2002, 1.2.2002
//   YYYY-MM-DD (two-digit month and day),                          e.g. 2002-02-01
// optionally followed by a time of day H:MM or H:MM:SS (hour 0-23), set off by blanks or, after an ISO
// date, by "T"; the year has four digits and is 0100 or later, and the date must exist in the calendar.
// A number key is left-padded with zeros to 20 characters (a longer one keeps its last 20) when it reads
// as a number in the C locale: optional blanks and sign, digits with an optional fraction and exponent
// ("-5", " 12 ", "1.5E3"), or &H / &O followed by hexadecimal / octal digits. Every other key stays as it
// is. The sorted list orders the keys without regard to case, keeping equal keys in hit order.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock.h"
#include "platform/row_list.h"

namespace halqvantor::archive {

inline constexpr int32_t kDateColumnFlag = 0x400;
inline constexpr int32_t kNumberColumnFlag = 0x200;
inline constexpr int32_t kSortWalkOver = -2;

// The order of the last sort of the hit list: none since the query, or the sorted list read from its first
// item (kUp) or from its last (kDown).
enum class SortOrder { kNone, kUp, kDown };
// The order's name: "", "UP" or "DOWN".
std::string_view ToText(SortOrder order);

// The hit list: entry 0 the column-type line, entry 1 the title line, entries 2 .. bound the hits; and
// the state of its sorting. Only a successful query resets it.
struct HitListState {
  platform::RowList HitList;  // views into the query's reply, shared with its rows
  int32_t HitListBound = 0;   // last index of HitList
  SortOrder SortDirection = SortOrder::kNone;
  int16_t SortColumn = 0;    // column of the last sort, counted from 1 within the line
  int32_t SortPosition = 0;  // next item of the sorted list to hand out; -1: the title line
                             // (kSortWalkOver: a downward walk has handed out its last item)

  // Entry `index`; raises 9 outside the list.
  std::string_view Entry(int64_t index) const;
};

// The pieces of a hit line (or the title line): column 0 (the document's location), the document id, the
// version and the display columns, that is the raw rest of the line from the "^" that opens column 3 to
// the line's end ("" for a line of three columns). A line of three columns ends the version one character
// before the line's end. Raises 5 when the separator after column 0 or 1 is missing.
struct HitLine {
  std::string_view location;
  std::string_view doc_id;
  std::string_view version;
  std::string_view display;
};
HitLine ParseHitLine(std::string_view line);

// Channel and archive of a location "xxxCHANNEL)\ARCHIVE": the characters 4 up to ")\" and the text after
// it, counted in characters. Raises 5 when the first ")\" is missing or starts within the three leading
// characters.
struct Location {
  std::string channel;
  std::string archive;
};
Location SplitLocation(std::string_view location);

// Column k of a line, counted from 1, as the sort reads it: the line gets ",^" appended, so its last column
// is closed too. A column past the line's end is read by searching on from position 3, as the positions
// fall; a negative extent raises 5.
std::string SortColumnText(std::string_view line, int64_t k);

// The sort key of a column's text under the column type `flags` (see above).
std::string SortKey(std::string_view text, int32_t flags);
// The date of a date key, when it reads as one.
std::optional<platform::CivilDate> ParseSortDate(std::string_view text);

// Splits the layout list "F1=L1;F2=L2": field ids are appended to `field_ids` joined by ",", layout ids to
// `layout_ids` joined by ";". Positions are 16-bit (a list past 32767 characters overflows, 6). A pair
// whose "=" is missing raises 5, keeping what was appended before it.
void SplitLayoutList(std::string_view layout_line, std::string& field_ids, std::string& layout_ids);

}  // namespace halqvantor::archive
