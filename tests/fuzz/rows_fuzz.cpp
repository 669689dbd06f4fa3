// The row parsers of the archive answers (and the page list and extension mapping of the downloads), fed
// arbitrary rows. The first input byte picks the parser (modulo their number), the second is a parameter where one
// takes one (a column count, a sort column, column type flags); the rest is the row, or rows split at CR LF for the
// parsers that take a whole answer. A run-time error (RuntimeError) is the expected answer to a malformed row; anything
// else that escapes, and every view that points outside the row it came from, is a fault.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "archive/archives_ext.h"
#include "archive/channels.h"
#include "archive/description.h"
#include "archive/document.h"
#include "archive/masks.h"
#include "archive/notes.h"
#include "archive/query.h"
#include "archive/row_columns.h"
#include "documents/segment_downloads.h"
#include "fuzz/fuzz_check.h"
#include "halqvantor/RuntimeError.h"
#include "halqvantor/Variant.h"

namespace {

using namespace halqvantor::archive;
using halqvantor::fuzz::Require;
using halqvantor::fuzz::SplitRows;

// A parser's view must lie within the row it was given.
void RequireInside(std::string_view part, std::string_view row) {
  if (part.empty()) return;
  Require(part.data() >= row.data() && part.data() + part.size() <= row.data() + row.size());
}

int32_t Weight(const FieldRecord& record) {
  return halqvantor::Variant(record[kWeightColumn]).ToLong();  // as the sort reads it ("True" is -1)
}

bool ValidDate(const halqvantor::platform::CivilDate& d) {
  static constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (d.year < 100 || d.year > 9999 || d.month < 1 || d.month > 12 || d.day < 1) return false;
  const bool leap = (d.year % 4 == 0 && d.year % 100 != 0) || d.year % 400 == 0;
  return d.day <= (d.month == 2 && !leap ? 28 : kDays[d.month - 1]);
}

// The parsers by the first input byte (modulo their number).
void (*const kParsers[])(uint8_t parameter, std::string_view row) = {
    [](uint8_t, std::string_view row) {
      const ChannelRow r = SplitChannelRow(row);
      RequireInside(r.name, row);
      RequireInside(r.description, row);
    },
    [](uint8_t, std::string_view row) {
      const ChannelRow r = SplitChannelGroupRow(row);
      RequireInside(r.name, row);
      RequireInside(r.description, row);
    },
    [](uint8_t, std::string_view row) {
      for (std::string_view v : SplitArchiveProperties(row)) RequireInside(v, row);
    },
    [](uint8_t, std::string_view row) {
      std::vector<FieldRecord> records;
      for (const std::string& line : SplitRows(row)) records.push_back(ParseFieldLine(line));
      SortFieldRecords(records);
      // Once sorted, the weights (all numbers then) ascend.
      for (size_t i = 1; i < records.size(); ++i) Require(Weight(records[i - 1]) <= Weight(records[i]));
    },
    [](uint8_t, std::string_view row) {
      for (std::string_view v : DocumentInfoColumns(row)) RequireInside(v, row);
    },
    [](uint8_t, std::string_view row) {
      for (std::string_view v : SegmentColumns(row)) RequireInside(v, row);
    },
    [](uint8_t, std::string_view row) {
      std::vector<std::string> pieces;
      JoinTextPieces(SplitRows(row), "\r\n", pieces);
    },
    [](uint8_t, std::string_view row) {
      const MaskFieldColumns m = SplitMaskField(row);
      for (std::string_view v : m.columns) RequireInside(v, row);
      RequireInside(m.list, row);
      for (std::string_view v : m.columns) (void)MaskFlag(v);
    },
    [](uint8_t, std::string_view row) {
      std::vector<std::string> notes;
      JoinNotes(SplitRows(row), notes);
    },
    [](uint8_t, std::string_view row) {
      const HitLine h = ParseHitLine(row);
      for (std::string_view v : {h.location, h.doc_id, h.version, h.display}) RequireInside(v, row);
      const Location l = SplitLocation(h.location);
      Require(l.channel.size() + l.archive.size() <= h.location.size());
    },
    [](uint8_t parameter, std::string_view row) { (void)SortColumnText(row, static_cast<int8_t>(parameter)); },
    [](uint8_t parameter, std::string_view row) {
      // Bit 0 of the parameter picks the date flag, bit 1 the number flag.
      const int32_t flags = ((parameter & 1) ? kDateColumnFlag : 0) | ((parameter & 2) ? kNumberColumnFlag : 0);
      const std::string key = SortKey(row, flags);
      if (const auto date = ParseSortDate(row)) Require(ValidDate(*date));
      if (flags == kNumberColumnFlag && key != row) Require(key.size() == 20);
    },
    [](uint8_t, std::string_view row) {
      std::string field_ids, layout_ids;
      SplitLayoutList(row, field_ids, layout_ids);
    },
    [](uint8_t parameter, std::string_view row) {
      const int count = parameter % 16;
      if (count >= 1) Require(SplitColumns(row, count).size() == static_cast<size_t>(count));
      RequireInside(ColumnAt(row, parameter % 8), row);
    },
    [](uint8_t parameter, std::string_view row) {
      // Two bits of the parameter per step pick the cursor's move.
      std::string_view (*const kMoves[])(ColumnCursor&) = {
          [](ColumnCursor& c) { return c.Next(); }, [](ColumnCursor& c) { return c.NextToCaret(); },
          [](ColumnCursor& c) { return c.NextOrRowEnd(); }, [](ColumnCursor& c) { return c.RestFromOpeningCaret(); }};
      ColumnCursor cursor(row);
      for (uint8_t step = parameter; step != 0; step >>= 2) RequireInside(kMoves[step & 3](cursor), row);
      RequireInside(WithoutEnds(row), row);
      RequireInside(MidView(row, 1 + parameter % 7, parameter / 7), row);
      (void)FindSeparator(row, 1 + parameter);
    },
    [](uint8_t, std::string_view row) {
      halqvantor::platform::RowList rows(SplitRows(row));
      const size_t count = rows.size();
      SortRowsByCapitals(rows);
      Require(rows.size() == count);
    },
    // The page list of a page text: a list of more than 1 MiB is given up.
    [](uint8_t, std::string_view row) { Require(halqvantor::ExpandPageList(row).size() <= (1u << 20)); },
    // The extension mapping: the mappings up to the first "|", the file name after it.
    [](uint8_t, std::string_view row) {
      const size_t bar = row.find('|');
      const std::string_view name = bar == std::string_view::npos ? row : row.substr(bar + 1);
      (void)halqvantor::MappedFileName(name, row.substr(0, bar));
    },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::string row(reinterpret_cast<const char*>(data) + 2, size - 2);
  try {
    kParsers[data[0] % std::size(kParsers)](data[1], row);
  } catch (const halqvantor::RuntimeError&) {
    // The answer to a malformed row.
  }
  return 0;
}
