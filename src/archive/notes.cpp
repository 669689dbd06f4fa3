#include "archive/notes.h"

#include "archive/archive_state.h"
#include "archive/grouped_rows.h"
#include "archive/row_columns.h"
#include "halqvantor/clsVantor.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace archive {
namespace {

// A note is cut to this many characters before it is sent.
constexpr int64_t kMaxNoteCharacters = 8000;
constexpr std::string_view kNoteLineBreak = "\r\n";

}  // namespace

void JoinNotes(const platform::RowList& rows, std::vector<std::string>& notes) {
  size_t i = 0;
  while (i < rows.size()) {
    std::string current(rows[i]);
    current.push_back(',');
    current.append(WithoutFirst(rows.At(static_cast<int64_t>(i + 1))));
    size_t j = i + 1;
    while (current.back() != '^') {
      ++j;
      const std::string_view next = rows.At(static_cast<int64_t>(j));
      current.append(kNoteLineBreak);
      current.append(next);
    }
    current.pop_back();
    notes.push_back(std::move(current));
    i = j + 1;
  }
}

}  // namespace archive

Variant clsVantor::EASYGetNotesInit(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                    const Variant& strVer, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("GetNotes"), strChannel, strArchive, strDocID, strVer}, strStatus)) {
    return FailureResult();
  }
  archive::StateOf(*this).TextPieces.Pieces.clear();
  archive::StateOf(*this).TextPieces.Cursor = 0;
  archive::JoinNotes(d.ResultRows, archive::StateOf(*this).TextPieces.Pieces);
  SetOut(strStatus, Variant(""));
  return Variant(static_cast<int32_t>(archive::StateOf(*this).TextPieces.Pieces.size()));
}

Variant clsVantor::EASYGetNotesNext() { return archive::StateOf(*this).TextPieces.Next(); }

Variant clsVantor::EASYWriteNote(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                 const Variant& strVer, const Variant& strNote, const Variant& strCRLF,
                                 Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  const Variant note(vb::Left(strNote.ToString(), archive::kMaxNoteCharacters));
  // The line break travels with the note: it tells the server how the note's lines are separated.
  if (!d.SendListRequest({Variant("WriteNote"), strChannel, strArchive, strDocID, strVer, note,
                          strCRLF.IsMissing() ? Variant(d.LineBreak) : strCRLF},
                         strStatus)) {
    return FailureResult();
  }
  SetOut(strStatus, Variant(""));
  return Variant(int16_t{1});
}

Variant clsVantor::EASYDeleteNotes(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                   const Variant& strVer, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("DeleteNotes"), strChannel, strArchive, strDocID, strVer}, strStatus)) {
    return FailureResult();
  }
  SetOut(strStatus, Variant(""));
  return Variant(int16_t{1});
}

}  // namespace halqvantor
