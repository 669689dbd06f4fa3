#include "archive/query.h"

#include "archive/archive_state.h"
#include "archive/row_columns.h"
#include "link/frm_comm.h"
#include "link/result_values.h"
#include "link/session.h"
#include "platform/sorted_list.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace archive {
namespace {

// Digits of `text` from `pos`: at least `min`, at most `max` of them; -1 when there are fewer than `min`.
int ReadDigits(std::string_view text, size_t& pos, size_t min, size_t max) {
  int value = 0;
  size_t n = 0;
  while (n < max && pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
    value = value * 10 + (text[pos] - '0');
    ++pos;
    ++n;
  }
  return n < min ? -1 : value;
}

bool ReadChar(std::string_view text, size_t& pos, char c) {
  if (pos >= text.size() || text[pos] != c) return false;
  ++pos;
  return true;
}

// "H:MM" or "H:MM:SS" filling the rest of `text` from `pos`.
bool IsTimeOfDay(std::string_view text, size_t pos) {
  const int hour = ReadDigits(text, pos, 1, 2);
  if (hour < 0 || hour > 23 || !ReadChar(text, pos, ':')) return false;
  const int minute = ReadDigits(text, pos, 2, 2);
  if (minute < 0 || minute > 59) return false;
  if (ReadChar(text, pos, ':')) {
    const int second = ReadDigits(text, pos, 2, 2);
    if (second < 0 || second > 59) return false;
  }
  return pos == text.size();
}

std::string TwoDigits(int value) {
  return std::string{static_cast<char>('0' + value / 10), static_cast<char>('0' + value % 10)};
}

}  // namespace

std::string_view HitListState::Entry(int64_t index) const { return HitList.At(index); }

HitLine ParseHitLine(std::string_view line) {
  HitLine hit;
  const auto length = static_cast<int64_t>(line.size());
  const int64_t p1 = FindSeparator(line, 2);
  hit.location = MidView(line, 2, p1 - 2);
  const int64_t p2 = FindSeparator(line, p1 + 3);
  hit.doc_id = MidView(line, p1 + 3, p2 - p1 - 3);
  int64_t p3 = FindSeparator(line, p2 + 3);
  if (p3 == 0) p3 = length;
  hit.version = MidView(line, p2 + 3, p3 - p2 - 3);
  // The display columns start with the "^" that opens column 3, two past the separator.
  if (p3 < length) hit.display = line.substr(static_cast<size_t>(p3 + 1));
  return hit;
}

Location SplitLocation(std::string_view location) {
  const int64_t r = vb::InStr(location, ")\\");
  Location result;
  result.channel = vb::Mid(location, 4, r - 4);
  result.archive = vb::Mid(location, r + 2);
  return result;
}

std::string SortColumnText(std::string_view line, int64_t k) {
  std::string s(line);
  s += ",^";
  int64_t start = 2;
  int64_t p = FindSeparator(s, start);
  // Past the last separator the search falls back to position 3 and runs through the separators again, so
  // the positions repeat from the first miss on; a column far past the end skips the whole rounds.
  int64_t first_miss = 0;  // the step of the first miss; 0 while there was none
  bool skipped = false;
  for (int64_t i = 1; i < k; ++i) {
    start = p + 3;
    p = FindSeparator(s, start);
    if (p != 0 || skipped) continue;
    if (first_miss == 0) {
      first_miss = i;
      continue;
    }
    const int64_t round = i - first_miss;
    i += (k - 1 - i) / round * round;
    skipped = true;
  }
  return std::string(MidView(s, start, p - start));
}

std::optional<platform::CivilDate> ParseSortDate(std::string_view text) {
  text = vb::TrimView(text);
  platform::CivilDate date;
  size_t pos = 0;
  bool iso = false;
  if (text.size() >= 5 && text[4] == '-') {
    iso = true;
    date.year = ReadDigits(text, pos, 4, 4);
    if (date.year < 0 || !ReadChar(text, pos, '-')) return std::nullopt;
    date.month = ReadDigits(text, pos, 2, 2);
    if (date.month < 0 || !ReadChar(text, pos, '-')) return std::nullopt;
    date.day = ReadDigits(text, pos, 2, 2);
  } else {
    date.day = ReadDigits(text, pos, 1, 2);
    if (date.day < 0 || !ReadChar(text, pos, '.')) return std::nullopt;
    date.month = ReadDigits(text, pos, 1, 2);
    if (date.month < 0 || !ReadChar(text, pos, '.')) return std::nullopt;
    date.year = ReadDigits(text, pos, 4, 4);
  }
  if (date.day < 0 || date.year < 100 || !platform::IsValidDate(date.year, date.month, date.day)) {
    return std::nullopt;
  }
  if (pos == text.size()) return date;

  // A time of day may follow, after blanks or, in the ISO form, a "T".
  const size_t before = pos;
  if (iso && text[pos] == 'T') {
    ++pos;
  } else {
    while (pos < text.size() && text[pos] == ' ') ++pos;
    if (pos == before) return std::nullopt;
  }
  if (!IsTimeOfDay(text, pos)) return std::nullopt;
  return date;
}

std::string SortKey(std::string_view text, int32_t flags) {
  if ((flags & kDateColumnFlag) != 0) {
    const std::optional<platform::CivilDate> date = ParseSortDate(text);
    if (!date) return std::string(text);
    std::string key = TwoDigits(date->year / 100) + TwoDigits(date->year % 100);
    key += TwoDigits(date->month);
    key += TwoDigits(date->day);
    return key;
  }
  if ((flags & kNumberColumnFlag) != 0 && vb::IsNumericText(text)) {
    // A number is plain ASCII, so 20 bytes are 20 characters.
    constexpr size_t kWidth = 20;
    if (text.size() >= kWidth) return std::string(text.substr(text.size() - kWidth));
    return std::string(kWidth - text.size(), '0') + std::string(text);
  }
  return std::string(text);
}

void SplitLayoutList(std::string_view layout_line, std::string& field_ids, std::string& layout_ids) {
  std::string s(layout_line);
  s += ';';
  int16_t start = 1;
  for (;;) {
    const int16_t e = vb::CheckedInt16(vb::InStr(start, s, ";"));
    if (e == 0) break;
    const int16_t q = vb::CheckedInt16(vb::InStr(start, s, "="));
    const std::string field = vb::Mid(s, start, q - start);
    if (!field_ids.empty()) field_ids += ',';
    field_ids += field;
    const std::string layout = vb::Mid(s, vb::CheckedInt16(q + 1), e - q - 1);
    if (!layout_ids.empty()) layout_ids += ';';
    layout_ids += layout;
    start = vb::CheckedInt16(e + 1);
  }
}

std::string_view ToText(SortOrder order) {
  switch (order) {
    case SortOrder::kUp:
      return "UP";
    case SortOrder::kDown:
      return "DOWN";
    case SortOrder::kNone:
      break;
  }
  return "";
}

}  // namespace archive

namespace {

// Hands out one line of the hit list: the document id and version into their out-arguments, channel and
// archive from the location (the words "Channel" and "Archive" for the title line); the result is the
// display columns.
Variant HandOutHitLine(std::string_view line, bool title, Variant* strChannel, Variant* strArchive, Variant* strDocID,
                       Variant* strVer) {
  const archive::HitLine hit = archive::ParseHitLine(line);
  SetOut(strDocID, Variant(std::string(hit.doc_id)));
  SetOut(strVer, Variant(std::string(hit.version)));
  Variant result{std::string(hit.display)};
  if (title) {
    SetOut(strChannel, Variant("Channel"));
    SetOut(strArchive, Variant("Archive"));
  } else {
    archive::Location location = archive::SplitLocation(hit.location);
    SetOut(strChannel, Variant(std::move(location.channel)));
    SetOut(strArchive, Variant(std::move(location.archive)));
  }
  return result;
}

}  // namespace

Variant clsVantor::EASYQueryArchiveInit(const Variant& strChannel, const Variant& strArchive, const Variant& strQuery,
                                        const Variant& lngMaxLines, const Variant& lngQueryMax,
                                        const Variant& strQueryFormat, const Variant& strFolderRights,
                                        Variant* strLayoutFieldID, Variant* strLayoutID, Variant* lngTotalHits,
                                        Variant* blnHitlistMultiTIFF, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  const Variant format = strQueryFormat.IsMissing() ? Variant("") : strQueryFormat;
  const Variant rights = strFolderRights.IsMissing() ? Variant("") : strFolderRights;
  // The query format goes ahead of the two limits: the order the server reads.
  if (!d.SendListRequest(
          {Variant("QueryArchive"), strChannel, strArchive, strQuery, format, lngMaxLines, lngQueryMax, rights},
          strStatus)) {
    return FailureResult();
  }

  const Variant result(d.ResultCount - 4);
  if (lngTotalHits != nullptr) *lngTotalHits = Variant(std::string(d.ResultRowAt(0)));
  if (strLayoutFieldID != nullptr && strLayoutID != nullptr) {
    *strLayoutFieldID = Variant("");
    *strLayoutID = Variant("");
    const std::string_view layout_line = d.ResultRowAt(1);
    if (!layout_line.empty()) {
      std::string field_ids, layout_ids;
      try {
        archive::SplitLayoutList(layout_line, field_ids, layout_ids);
      } catch (const RuntimeError&) {
        *strLayoutFieldID = Variant(std::move(field_ids));
        *strLayoutID = Variant(std::move(layout_ids));
        throw;
      }
      *strLayoutFieldID = Variant(std::move(field_ids));
      *strLayoutID = Variant(std::move(layout_ids));
    }
  }
  if (blnHitlistMultiTIFF != nullptr) *blnHitlistMultiTIFF = Variant(d.ResultRowAt(2) == "1");

  // Without the column-type line there is no hit list to keep.
  if (d.ResultCount < 4) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  archive::HitListState& h = archive::StateOf(*this).hits;
  h.HitList = d.ResultRows.From(3);
  h.HitListBound = d.ResultCount - 4;
  h.SortDirection = archive::SortOrder::kNone;
  h.SortColumn = 0;
  d.ResultCursor = 4;
  SetOut(strStatus, Variant(""));
  return result;
}

Variant clsVantor::EASYQueryArchiveNext(Variant* strChannel, Variant* strArchive, Variant* strDocID, Variant* strVer) {
  LinkSession& d = SessionOf(*this);
  if (d.ResultCursor >= d.ResultCount) return Variant("");
  // Row 4 is the title line; the cursor moves on only when the line has been handed out.
  Variant result =
      HandOutHitLine(d.ResultRowAt(d.ResultCursor), d.ResultCursor < 5, strChannel, strArchive, strDocID, strVer);
  ++d.ResultCursor;
  return result;
}

Variant clsVantor::EASYGetQueryFormatListInit(const Variant& strChannel, const Variant& strArchive,
                                              Variant* strStatus) {
  return SessionOf(*this).ListInit({Variant("GetQueryFormatList"), strChannel, strArchive}, strStatus);
}

Variant clsVantor::EASYGetQueryFormatListNext() { return SessionOf(*this).ListNext(); }

int32_t clsVantor::EASYSortHitlistInit(const Variant& lngCol) {
  LinkSession& d = SessionOf(*this);
  archive::HitListState& h = archive::StateOf(*this).hits;
  // lngCol 0 is the document id, the second column of the line counted from 1.
  const int16_t k = vb::ToInt16(lngCol.ToDouble() + 2.0);
  h.SortColumn = k;
  const int32_t flags = Variant(archive::SortColumnText(h.Entry(0), k)).ToLong();

  platform::SortedList& list = d.form.lstSort(d.SlotIndex);
  list.Clear();
  std::string first_key, last_key;
  for (int32_t i = 2; i <= h.HitListBound; ++i) {
    std::string key = archive::SortKey(archive::SortColumnText(h.Entry(i), k), flags);
    if (i == 2) first_key = key;
    if (i == h.HitListBound) last_key = key;
    list.AddItem(key, i);
  }

  // The first sort after a query takes the server's order as the direction it has (first hit against the
  // last, by character codes) and goes against it; every later sort, whatever its column, reverses the one
  // before.
  if (h.SortDirection == archive::SortOrder::kNone) {
    const bool descending = h.HitListBound >= 2 && !(first_key <= last_key);
    h.SortDirection = descending ? archive::SortOrder::kDown : archive::SortOrder::kUp;
  }
  h.SortDirection = h.SortDirection == archive::SortOrder::kUp ? archive::SortOrder::kDown : archive::SortOrder::kUp;
  h.SortPosition = -1;
  return h.HitListBound - 1;
}

Variant clsVantor::EASYSortHitlistNext(Variant* strChannel, Variant* strArchive, Variant* strDocID, Variant* strVer) {
  LinkSession& d = SessionOf(*this);
  archive::HitListState& h = archive::StateOf(*this).hits;
  const bool up = h.SortDirection == archive::SortOrder::kUp;
  const bool down = h.SortDirection == archive::SortOrder::kDown;
  if (!(h.SortPosition == -1 || (up && h.SortPosition < h.HitListBound - 1) || (down && h.SortPosition >= 0))) {
    return Variant("");
  }
  const bool title = h.SortPosition < 0;
  const std::string_view line = title ? h.Entry(1) : h.Entry(d.form.lstSort(d.SlotIndex).ItemData(h.SortPosition));
  Variant result = HandOutHitLine(line, title, strChannel, strArchive, strDocID, strVer);
  // kUp reads the sorted list from its first item, kDown from its last. A walk hands out the title line
  // once: below the first item a downward walk is over instead of back at the title line.
  int32_t next = title ? (up ? 0 : h.HitListBound - 2) : h.SortPosition + (up ? 1 : -1);
  if (next < 0) next = archive::kSortWalkOver;
  h.SortPosition = next;
  return result;
}

Variant clsVantor::EASYDeleteFromHitlist(const Variant& lngLine) {
  LinkSession& d = SessionOf(*this);
  archive::HitListState& h = archive::StateOf(*this).hits;
  const int32_t line = lngLine.ToLong();
  int64_t index;
  if (h.SortDirection != archive::SortOrder::kNone) {
    // The page counts hits in the order it saw them last: the sorted order, read from either end.
    const int32_t list_index = vb::CheckedInt32(
        h.SortDirection == archive::SortOrder::kUp ? int64_t{line} - 1 : int64_t{h.HitListBound} - 1 - line);
    index = d.form.lstSort(d.SlotIndex).ItemData(list_index);
  } else {
    index = vb::CheckedInt32(int64_t{line} + 1);
  }
  // Only hits can go; the column-type and title lines stay.
  if (index < 2 || index > h.HitListBound) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  // The sorted list keeps its items: after a delete the page sorts again.
  h.HitList.Erase(static_cast<size_t>(index));
  --h.HitListBound;
  return Variant();
}

}  // namespace halqvantor
