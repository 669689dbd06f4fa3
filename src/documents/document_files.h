#pragma once

// What the document operations share: the page context that OnStartPage hands the object (read by the
// browser upload), the one place that joins a name to the local blob folder, the segment file request and
// the file error handler of the blob transfer and upload.

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/PageEngine.h"
#include "halqvantor/Variant.h"
#include "halqvantor/clsVantor.h"
#include "link/session.h"

namespace halqvantor::documents {

struct DocumentState {
  std::shared_ptr<ScriptingContext> context;  // kept by OnStartPage
  std::shared_ptr<PageRequest> request;       // its Request object
};

// The document state of `object` (defined with the object's private side).
DocumentState& StateOf(clsVantor& object);

// The path of the file `name` in the local blob folder (strBlobPathLocal), the one place that joins them.
// Raises 76 "Path not found: no local blob folder set" when strBlobPathLocal is empty (the name must not
// land in the root folder) and 75 when `name` is no plain file name (it would leave the folder).
std::string LocalBlobPath(const LinkSession& d, std::string_view name);

// A segment file request (segment_downloads.cpp): runs `args` through RequestList and fills the file
// outputs from rows 0 and 1; kMapName and kMultiTif apply the extension mapping, kMultiTif also sets ""
// and 0 when fewer than two rows came. The 16-bit result 1 or -1.
enum class SegmentFileKind { kMapName, kKeepName, kMultiTif };
Variant RequestSegmentFile(LinkSession& d, const std::vector<Variant>& args, SegmentFileKind kind, Variant* strFileName,
                           Variant* lngFileLen, Variant* strStatus, const char* caller = __builtin_FUNCTION());
// Renames the file *strFileName of strBlobPathLocal by strChangeFileExt (silently not at all when that
// fails) and gives *strFileName the new extension. Raises 13 when a mapping is set and strFileName is null.
void ChangeFileExtension(LinkSession& d, Variant* strFileName);

// The file error handler of the blob transfer and upload (blob_transfer.cpp): closes a connection still
// open, sets *strStatus to "File Error (" number " - " text ")", logs "Datei-Fehler (...)", clears
// RequestPending and gives the result -1.
Variant FileErrorResult(LinkSession& d, const std::exception& error, Variant* strStatus);

}  // namespace halqvantor::documents
