#include "archive/masks.h"

#include <string>

#include "archive/grouped_rows.h"
#include "archive/row_columns.h"
#include "halqvantor/clsVantor.h"

namespace halqvantor {
namespace archive {
namespace {

constexpr char kMaskMark = '@';

// A column read as a 32-bit number (13 when not a number, 6 when out of range).
int32_t LongColumn(std::string_view text) { return Variant(std::string(text)).ToLong(); }

}  // namespace

MaskFieldColumns SplitMaskField(std::string_view row) {
  MaskFieldColumns field;
  ColumnCursor cursor(row);
  for (size_t k = 0; k + 1 < field.columns.size(); ++k) field.columns[k] = cursor.Next();
  field.columns.back() = cursor.NextOrRowEnd();
  if (!cursor.LastClosedAtRowEnd()) {
    field.has_list = true;
    field.list = cursor.RestFromOpeningCaret();
  }
  return field;
}

bool MaskFlag(std::string_view text) { return Variant(std::string(text)).ToByte() == 1; }

}  // namespace archive

Variant clsVantor::EASYGetMasksInit(const Variant& strChannel, const Variant& strArchive, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("GetMasks"), strChannel, strArchive}, strStatus)) {
    return FailureResult();
  }
  SetOut(strStatus, Variant(""));
  return Variant(archive::CountGroups(d.ResultRows, archive::kMaskMark));
}

Variant clsVantor::EASYGetMasksNext(Variant* strMaskName) {
  LinkSession& d = SessionOf(*this);
  d.ResultCursor = archive::SkipToGroup(d.ResultRows, d.ResultCursor, archive::kMaskMark);
  if (d.ResultCursor >= d.ResultCount) {
    SetOut(strMaskName, Variant(""));
    return FailureResult();
  }
  SetOut(strMaskName, Variant(std::string(archive::WithoutFirst(d.ResultRows[d.ResultCursor]))));
  d.ResultCursor += 1;
  return Variant(archive::GroupLength(d.ResultRows, d.ResultCursor, archive::kMaskMark));
}

Variant clsVantor::EASYGetMasksNextField(Variant* lngTabIndex, Variant* lngWidth, Variant* strAlign, Variant* strName,
                                         Variant* blnMandatory, Variant* strInitText, Variant* blnListOnly,
                                         Variant* strList) {
  LinkSession& d = SessionOf(*this);
  // The row at the cursor is read even when the cursor stands at the answer's end, which raises 9.
  if (!archive::InGroup(d.ResultRows, d.ResultCursor, archive::kMaskMark)) return FailureResult();
  const archive::MaskFieldColumns field = archive::SplitMaskField(d.ResultRows[d.ResultCursor]);
  const auto& c = field.columns;
  SetOut(lngTabIndex, Variant(archive::LongColumn(c[1])));
  SetOut(lngWidth, Variant(archive::LongColumn(c[2])));
  SetOut(strAlign, Variant(std::string(c[3])));
  SetOut(strName, Variant(std::string(c[4])));
  SetOut(blnMandatory, Variant(archive::MaskFlag(c[5])));
  SetOut(strInitText, Variant(std::string(c[6])));
  SetOut(blnListOnly, Variant(archive::MaskFlag(c[7])));
  if (field.has_list) SetOut(strList, Variant(std::string(field.list)));
  const int32_t id = archive::LongColumn(c[0]);
  d.ResultCursor += 1;
  return Variant(id);
}

void clsVantor::EASYGetMasksFirst() { SessionOf(*this).ResultCursor = 0; }

}  // namespace halqvantor
