#include "archive/archives_ext.h"

#include <string>

#include "archive/grouped_rows.h"
#include "halqvantor/clsVantor.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace archive {
namespace {

constexpr char kChannelMark = '#';

}  // namespace

ChannelRow SplitChannelGroupRow(std::string_view row) {
  const size_t comma = row.find(',');
  // The name runs from the second character to the comma: without a comma its length is negative.
  if (comma == std::string_view::npos || comma < 1) vb::Raise(ErrorNumber::kInvalidProcedureCall);
  return {row.substr(1, comma - 1), row.substr(comma + 1)};
}

std::array<std::string_view, 5> SplitArchiveProperties(std::string_view row) {
  std::array<std::string_view, 5> values;
  size_t start = 0;
  for (size_t k = 0; k < 4; ++k) {
    const size_t comma = row.find(',', start);
    if (comma == std::string_view::npos) vb::Raise(ErrorNumber::kInvalidProcedureCall);
    values[k] = row.substr(start, comma - start);
    start = comma + 1;
  }
  values[4] = row.substr(start);
  return values;
}

}  // namespace archive

Variant clsVantor::EASYGetAllArchivesExtInit(Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("GetAllArchivesExt")}, strStatus)) return FailureResult();
  SetOut(strStatus, Variant(""));
  return Variant(archive::CountGroups(d.ResultRows, archive::kChannelMark));
}

Variant clsVantor::EASYGetAllArchivesExtNext(Variant* strChannel, Variant* strDescription) {
  LinkSession& d = SessionOf(*this);
  d.ResultCursor = archive::SkipToGroup(d.ResultRows, d.ResultCursor, archive::kChannelMark);
  if (d.ResultCursor >= d.ResultCount) {
    SetOut(strChannel, Variant(""));
    SetOut(strDescription, Variant(""));
    return FailureResult();
  }
  const archive::ChannelRow channel = archive::SplitChannelGroupRow(d.ResultRows[d.ResultCursor]);
  SetOut(strChannel, Variant(std::string(channel.name)));
  SetOut(strDescription, Variant(std::string(channel.description)));
  d.ResultCursor += 1;
  return Variant(archive::GroupLength(d.ResultRows, d.ResultCursor, archive::kChannelMark));
}

Variant clsVantor::EASYGetAllArchivesExtNextArchive() {
  LinkSession& d = SessionOf(*this);
  // The row at the cursor is read even when the cursor stands at the answer's end, which raises 9.
  if (!archive::InGroup(d.ResultRows, d.ResultCursor, archive::kChannelMark)) return Variant("");
  return Variant(std::string(d.ResultRows[d.ResultCursor++]));
}

void clsVantor::EASYGetAllArchivesExtFirst() { SessionOf(*this).ResultCursor = 0; }

Variant clsVantor::EASYGetArchiveProperties(const Variant& strChannel, const Variant& strArchive, Variant* blnCreate,
                                            Variant* blnEdit, Variant* blnDelete, Variant* blnIndex,
                                            Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("GetArchiveProperties"), strChannel, strArchive}, strStatus)) {
    return FailureResult();
  }
  Variant result;  // Empty when the answer has no row
  if (d.ResultCount > 0) {
    const auto values = archive::SplitArchiveProperties(d.ResultRows[0]);
    Variant* permissions[] = {blnCreate, blnEdit, blnDelete, blnIndex};
    for (size_t k = 0; k < 4; ++k) SetOut(permissions[k], Variant(values[k] == "1"));
    result = Variant(Variant(std::string(values[4])).ToLong());
  }
  SetOut(strStatus, Variant(""));
  return result;
}

}  // namespace halqvantor
