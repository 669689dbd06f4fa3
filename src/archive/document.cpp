#include "archive/document.h"

#include "archive/archive_state.h"
#include "archive/grouped_rows.h"
#include "archive/row_columns.h"
#include "halqvantor/clsVantor.h"

namespace halqvantor {
namespace archive {

std::array<std::string_view, 8> DocumentInfoColumns(std::string_view row) {
  ColumnCursor cursor(row);
  for (int k = 0; k < 4; ++k) cursor.Next();
  std::array<std::string_view, 8> columns;
  for (std::string_view& column : columns) column = cursor.Next();
  return columns;
}

std::array<std::string_view, 12> SegmentColumns(std::string_view row) {
  ColumnCursor cursor(row);
  std::array<std::string_view, 12> columns;
  for (size_t k = 0; k + 1 < columns.size(); ++k) columns[k] = cursor.Next();
  columns.back() = cursor.NextToCaret();
  return columns;
}

void JoinTextPieces(const platform::RowList& rows, std::string_view line_break, std::vector<std::string>& pieces) {
  if (rows.empty()) return;
  std::string current(rows[0]);
  for (size_t i = 1; i < rows.size(); ++i) {
    const std::string_view previous = rows[i - 1];
    if (!previous.empty() && previous.back() == '^' && BeginsWith(rows[i], '^')) {
      pieces.emplace_back(WithoutEnds(current));
      current = rows[i];
    } else {
      current.append(line_break);
      current.append(rows[i]);
    }
  }
  pieces.emplace_back(WithoutEnds(current));
}

}  // namespace archive

Variant clsVantor::EASYGetDocumentInfo(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                       const Variant& strVer, Variant* lngLaenge, Variant* strErstelldat,
                                       Variant* strAenderDat, Variant* strTitel, Variant* intFelderGes,
                                       Variant* intTextFelder, Variant* intBildFelder, Variant* intBlobFelder,
                                       Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("GetDocumentInfo"), strChannel, strArchive, strDocID, strVer}, strStatus)) {
    return FailureResult();
  }
  if (d.ResultCount > 0) {
    const auto columns = archive::DocumentInfoColumns(d.ResultRows[0]);
    Variant* outs[] = {lngLaenge,    strErstelldat, strAenderDat,  strTitel,
                       intFelderGes, intTextFelder, intBildFelder, intBlobFelder};
    for (size_t k = 0; k < columns.size(); ++k) SetOut(outs[k], Variant(std::string(columns[k])));
  }
  SetOut(strStatus, Variant(""));
  return Variant(d.ResultCount);
}

Variant clsVantor::EASYGetSegmentDescriptionInit(const Variant& strChannel, const Variant& strArchive,
                                                 const Variant& strDocID, const Variant& strVer,
                                                 const Variant& strThumbnailPath, Variant* lngNotes,
                                                 Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest(
          {Variant("GetSegmentDescription"), strChannel, strArchive, strDocID, strVer, OrDefault(strThumbnailPath, "")},
          strStatus)) {
    return FailureResult();
  }
  // Row 0 is the notes count; an answer without it reads as "" and announces -1 segments.
  SetOut(lngNotes, Variant(d.ResultCount > 0 ? std::string(d.ResultRows[0]) : std::string()));
  d.ResultCursor += 1;
  SetOut(strStatus, Variant(""));
  return Variant(d.ResultCount - 1);
}

Variant clsVantor::EASYGetSegmentDescriptionNext(Variant* intFeldID, Variant* lngTextLaenge, Variant* intTrefferZahl,
                                                 Variant* lngNCILaenge, Variant* strExt, Variant* intFeldTyp,
                                                 Variant* strFeldtitel, Variant* strDateiname, Variant* intStatus,
                                                 Variant* strLayoutID, Variant* lngThumbnailSize) {
  LinkSession& d = SessionOf(*this);
  if (d.ResultCursor < 0 || d.ResultCursor >= d.ResultCount) return Variant("");
  const auto columns = archive::SegmentColumns(d.ResultRows[d.ResultCursor]);
  // Column 1 is the result; the others go to the outs in column order.
  Variant* outs[] = {intFeldID,  nullptr,      lngTextLaenge, intTrefferZahl, lngNCILaenge, strExt,
                     intFeldTyp, strFeldtitel, strDateiname,  intStatus,      strLayoutID,  lngThumbnailSize};
  for (size_t k = 0; k < columns.size(); ++k) SetOut(outs[k], Variant(std::string(columns[k])));
  d.ResultCursor += 1;
  return Variant(std::string(columns[1]));
}

Variant clsVantor::EASYGetSegmentTextInit(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                          const Variant& strVer, const Variant& strQuery, const Variant& strMarkOn,
                                          const Variant& strMarkOff, const Variant& strCRLF, const Variant& strBlank,
                                          Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  const std::string line_break = strCRLF.IsMissing() ? d.LineBreak : strCRLF.ToString();
  // The line break is applied here when the answer is joined; the server never sees it.
  if (!d.SendListRequest({Variant("GetSegmentText"), strChannel, strArchive, strDocID, strVer, OrDefault(strQuery, ""),
                          OrDefault(strMarkOn, ""), OrDefault(strMarkOff, ""), OrDefault(strBlank, "")},
                         strStatus)) {
    return FailureResult();
  }
  archive::StateOf(*this).TextPieces.Pieces.clear();
  archive::StateOf(*this).TextPieces.Cursor = 0;
  archive::JoinTextPieces(d.ResultRows, line_break, archive::StateOf(*this).TextPieces.Pieces);
  SetOut(strStatus, Variant(""));
  return Variant(static_cast<int32_t>(archive::StateOf(*this).TextPieces.Pieces.size()));
}

Variant clsVantor::EASYGetSegmentTextNext() { return archive::StateOf(*this).TextPieces.Next(); }

namespace archive {

Variant TextPieceList::Next() {
  if (Cursor < 0 || static_cast<size_t>(Cursor) >= Pieces.size()) return Variant("");
  return Variant(Pieces[Cursor++]);
}

}  // namespace archive

}  // namespace halqvantor
