// Segment downloads: the gateway writes one segment of a document (as it is, as PDF, as a print file or as
// one multi-page TIF) into the blob folder it knows as strBlobPathRemote and answers with the file's length
// (row 0) and name (row 1); the page reads the file under strBlobPathLocal. The component copies no file
// contents here: at most it renames the file by the extension mapping. The ERF pair reads the document
// references of a segment instead.

#include "documents/segment_downloads.h"

#include <cmath>
#include <exception>
#include <limits>

#include "documents/document_files.h"
#include "link/result_values.h"
#include "platform/files.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace {

// A page list longer than this is not made: no document has that many pages, and a range such as
// 1-2000000000 must not eat the memory.
constexpr size_t kMaxPageListBytes = 1024 * 1024;

struct PageListTooLong : std::exception {};

// A whole number in 32 bits, or 0 for any other text.
int64_t WholeNumberOrZero(std::string_view text) {
  const std::optional<double> value = vb::ParseNumber(text);
  if (!value || *value != std::floor(*value) || *value < std::numeric_limits<int32_t>::min() ||
      *value > std::numeric_limits<int32_t>::max()) {
    return 0;
  }
  return static_cast<int64_t>(*value);
}

void AddPage(std::string& list, int64_t page) {
  list += ',';
  list += std::to_string(page);
  if (list.size() > kMaxPageListBytes) throw PageListTooLong();
}

}  // namespace

std::string ExpandPageList(std::string_view pages) {
  std::string list;
  try {
    size_t start = 0;
    for (;;) {
      const size_t end = pages.find(';', start);
      const std::string_view piece = pages.substr(start, end == std::string_view::npos ? end : end - start);
      const size_t dash = piece.find('-');
      if (dash != std::string_view::npos) {
        const int64_t from = WholeNumberOrZero(piece.substr(0, dash));
        const int64_t to = WholeNumberOrZero(piece.substr(dash + 1));
        if (from == 0) {
          AddPage(list, to);
        } else if (to == 0) {
          AddPage(list, from);
        } else if (from >= to) {
          for (int64_t page = from; page >= to; --page) AddPage(list, page);
        } else {
          for (int64_t page = from; page <= to; ++page) AddPage(list, page);
        }
      } else if (const int64_t page = WholeNumberOrZero(piece); page >= 1) {
        AddPage(list, page);
      }
      if (end == std::string_view::npos) break;
      start = end + 1;
    }
  } catch (const std::exception&) {
    return "";
  }
  return list.empty() ? list : list.substr(1);
}

std::optional<std::string> MappedFileName(std::string_view file_name, std::string_view mappings) {
  const int64_t length = vb::Len(file_name);
  if (length < 3) return std::nullopt;
  const std::string extension = vb::Right(file_name, 3);
  // UCase maps one character to one, so positions in the capitals are positions in the mappings.
  const int64_t at = vb::InStr(vb::UCase(mappings), vb::UCase(extension) + "-");
  if (at == 0) return std::nullopt;
  return vb::Left(file_name, length - 3) + vb::Mid(mappings, at + 4, 3);
}

Variant documents::RequestSegmentFile(LinkSession& d, const std::vector<Variant>& args, SegmentFileKind kind,
                                      Variant* strFileName, Variant* lngFileLen, Variant* strStatus,
                                      const char* caller) {
  if (!d.SendListRequest(args, strStatus, caller)) return FailureResult();
  if (d.ResultCount >= 2) {
    SetOut(strFileName, Variant(std::string(d.ResultRows[1])));
    SetOut(lngFileLen, Variant(std::string(d.ResultRows[0])));
    if (kind != SegmentFileKind::kKeepName) ChangeFileExtension(d, strFileName);
  } else if (kind == SegmentFileKind::kMultiTif) {
    SetOut(strFileName, Variant(""));
    SetOut(lngFileLen, Variant(int16_t{0}));
  }
  SetOut(strStatus, Variant(""));
  return SuccessResult();
}

void documents::ChangeFileExtension(LinkSession& d, Variant* strFileName) {
  if (d.self.strChangeFileExt.empty()) return;
  // The name to map is the out-argument itself: a call without it has nothing to map.
  if (strFileName == nullptr) vb::Raise(ErrorNumber::kTypeMismatch);
  const std::string name = strFileName->ToString();
  const std::optional<std::string> mapped = MappedFileName(name, d.self.strChangeFileExt);
  if (!mapped) return;
  // A failed rename is no failure of the call: a name that would leave the blob folder, or no local blob
  // folder at all, leaves the file alone the same way.
  std::string from, to;
  try {
    from = LocalBlobPath(d, name);
    to = LocalBlobPath(d, *mapped);
  } catch (const RuntimeError&) {
  }
  if (!to.empty()) (void)d.env->RenameWithoutReplacing(from, to);
  *strFileName = Variant(*mapped);
}

Variant clsVantor::EASYGetSegmentData(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                      const Variant& strVer, const Variant& intFieldIndex, Variant* strFileName,
                                      Variant* lngFileLen, Variant* strStatus) {
  return documents::RequestSegmentFile(
      SessionOf(*this),
      {Variant("GetSegmentData"), strChannel, strArchive, strDocID, strVer, intFieldIndex, Variant(strBlobPathRemote)},
      documents::SegmentFileKind::kMapName, strFileName, lngFileLen, strStatus);
}

Variant clsVantor::EASYGetSegmentPDF(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                     const Variant& strVer, const Variant& intFieldIndex, const Variant& intLayoutID,
                                     Variant* strFileName, Variant* lngFileLen, Variant* strStatus) {
  return documents::RequestSegmentFile(SessionOf(*this),
                                       {Variant("GetSegmentPDF"), strChannel, strArchive, strDocID, strVer,
                                        intFieldIndex, intLayoutID, Variant(strBlobPathRemote)},
                                       documents::SegmentFileKind::kKeepName, strFileName, lngFileLen, strStatus);
}

Variant clsVantor::EASYGetSegmentPrintfile(const Variant& strChannel, const Variant& strArchive,
                                           const Variant& strDocID, const Variant& strVer, const Variant& strFieldID,
                                           const Variant& strLayoutID, const Variant& intMode, Variant* strFileName,
                                           Variant* lngFileLen, Variant* strStatus) {
  const Variant mode = intMode.IsMissing() ? Variant(int16_t{intPrintPDF}) : intMode;
  return documents::RequestSegmentFile(SessionOf(*this),
                                       {Variant("GetSegmentPrintfile"), strChannel, strArchive, strDocID, strVer,
                                        strFieldID, strLayoutID, Variant(strBlobPathRemote), mode},
                                       documents::SegmentFileKind::kMapName, strFileName, lngFileLen, strStatus);
}

Variant clsVantor::EASYGetSegmentMultiTIF(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                          const Variant& strVer, const Variant& strPages, Variant* strFileName,
                                          Variant* lngFileLen, Variant* strStatus) {
  // A page text that is no text expands to nothing, as any failure of the expansion does.
  std::string pages;
  try {
    pages = strPages.ToString();
  } catch (const RuntimeError&) {
  }
  return documents::RequestSegmentFile(SessionOf(*this),
                                       {Variant("GetSegmentMultiTIF"), strChannel, strArchive, strDocID, strVer,
                                        Variant(ExpandPageList(pages)), Variant(strBlobPathRemote)},
                                       documents::SegmentFileKind::kMultiTif, strFileName, lngFileLen, strStatus);
}

Variant clsVantor::EASYGetSegmentERFInit(const Variant& strChannel, const Variant& strArchive, const Variant& strDocID,
                                         const Variant& strVer, const Variant& intFieldIndex, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  if (!d.SendListRequest({Variant("GetSegmentERF"), strChannel, strArchive, strDocID, strVer, intFieldIndex},
                         strStatus)) {
    return FailureResult();
  }
  SetOut(strStatus, Variant(""));
  return Variant(d.ResultCount);
}

Variant clsVantor::EASYGetSegmentERFNext(Variant* strChannel, Variant* strArchive, Variant* strDocID, Variant* strVer) {
  LinkSession& d = SessionOf(*this);
  if (d.ResultCursor >= d.ResultCount) return Variant("");
  const std::string line(d.ResultRows[static_cast<size_t>(d.ResultCursor)]);
  // "$(#" channel ")\" archive "," doc id "," version: the parts lie between ")\" and the two commas after
  // it; a part whose markers are missing is left alone.
  const int64_t p1 = vb::InStr(line, ")\\");
  const int64_t p2 = vb::InStr(p1 + 2, line, ",");
  const int64_t p3 = vb::InStr(p2 + 1, line, ",");
  if (strChannel != nullptr && p1 > 0) *strChannel = Variant(vb::Mid(line, 4, p1 - 4));
  if (strArchive != nullptr && p1 > 0 && p2 > 0) *strArchive = Variant(vb::Mid(line, p1 + 2, p2 - p1 - 2));
  if (strDocID != nullptr && p2 > 0 && p3 > 0) *strDocID = Variant(vb::Mid(line, p2 + 1, p3 - p2 - 1));
  if (strVer != nullptr && p3 > 0) *strVer = Variant(vb::Mid(line, p3 + 1));
  ++d.ResultCursor;
  return Variant(line);
}

}  // namespace halqvantor
