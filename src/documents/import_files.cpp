// Import files and document create, edit and delete. A page writes an import file that names the target
// archive, the document's title and its fields (CreateImportFile), then has the gateway import it as a new
// document or a new state of one; the gateway reads the file itself, so the path given to the create and
// edit requests is one the gateway can reach. The reference the gateway gives back is the first reply row.

#include <string>

#include "link/result_values.h"
#include "link/session.h"
#include "platform/cp1252.h"
#include "platform/files.h"

namespace halqvantor {
namespace {

// A value as string concatenation takes it: Null joins as nothing.
std::string TextOf(const Variant& value) { return value.IsNull() ? std::string() : value.ToString(); }

// "@FOLDER,FT:" + title, then "," + type + ":" + id for each pair of the two comma lists, as long as both
// have items; the surplus of the longer list is dropped, and an empty list gives no pairs at all.
std::string FolderLine(const std::string& title, const std::string& types, const std::string& ids) {
  std::string line = "@FOLDER,FT:" + title;
  if (types.empty() || ids.empty()) return line;
  const std::string type_list = types + ",";
  const std::string id_list = ids + ",";
  size_t type_start = 0, id_start = 0;
  for (;;) {
    const size_t type_end = type_list.find(',', type_start);
    const size_t id_end = id_list.find(',', id_start);
    if (type_end == std::string::npos || id_end == std::string::npos) break;
    line += ',';
    line.append(type_list, type_start, type_end - type_start);
    line += ':';
    line.append(id_list, id_start, id_end - id_start);
    type_start = type_end + 1;
    id_start = id_end + 1;
  }
  return line;
}

// Row 0 of the reply, which must be there.
Variant FirstRow(const LinkSession& d) {
  if (d.ResultCount < 1) throw RuntimeError(ErrorNumber::kSubscriptOutOfRange);
  return Variant(std::string(d.ResultRows[0]));
}

}  // namespace

Variant clsVantor::CreateImportFile(const Variant& strImportFile, const Variant& strChannel, const Variant& strArchive,
                                    const Variant& strTitle, const Variant& strFieldTypes, const Variant& strFieldIDs,
                                    const Variant& strFieldContents, const Variant& strCharSet, Variant* strStatus) {
  const std::string& crlf = SessionOf(*this).LineBreak;
  std::string text = "@DB,$(#" + TextOf(strChannel) + ")\\" + TextOf(strArchive) + crlf;
  if (!strCharSet.IsMissing()) text += "@CHARSET," + TextOf(strCharSet) + crlf;
  text += FolderLine(TextOf(strTitle), TextOf(strFieldTypes), TextOf(strFieldIDs)) + crlf;
  text += TextOf(strFieldContents) + crlf;
  platform::Check(SessionOf(*this).env->AppendToFile(TextOf(strImportFile), platform::Utf8ToCp1252(text)));
  SetOut(strStatus, Variant(""));
  return SuccessResult();
}

Variant clsVantor::EASYCreateDocument(const Variant& strImportFile, Variant* strDocIDVer, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("CreateDocument"), strImportFile}, strStatus)) return FailureResult();
  if (strDocIDVer != nullptr) *strDocIDVer = FirstRow(d);
  SetOut(strStatus, Variant(""));
  return Variant(d.ResultCount);
}

Variant clsVantor::EASYEditDocument(const Variant& strImportFile, Variant* strDocIDVer, Variant* strStatus) {
  if (strDocIDVer == nullptr) throw RuntimeError(ErrorNumber::kArgumentNotOptional);
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("EditDocument"), strImportFile, *strDocIDVer}, strStatus)) return FailureResult();
  *strDocIDVer = FirstRow(d);
  SetOut(strStatus, Variant(""));
  return Variant(d.ResultCount);
}

Variant clsVantor::EASYDeleteDocument(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                      const Variant& strVer, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("DeleteDocument"), strChannel, strArchive, strDocID, strVer}, strStatus)) {
    return FailureResult();
  }
  SetOut(strStatus, Variant(""));
  return SuccessResult();
}

}  // namespace halqvantor
