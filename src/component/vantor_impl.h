#pragma once

// The private side of clsVantor. Operation families keep their own state in small structs held here; their
// member functions are defined in the sources of those families.

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "archive/description.h"
#include "archive/query.h"
#include "halqvantor/Extensions.h"
#include "halqvantor/clsVantor.h"
#include "platform/database.h"
#include "platform/env.h"

namespace halqvantor {

class frmComm;
namespace platform {
class SendSource;
}

struct HALQVANTOR_HIDDEN clsVantor::Impl {
  explicit Impl(clsVantor& owner);
  // The private side of `object`.
  static Impl& Of(clsVantor& object) { return *object.impl_; }

  clsVantor& self;  // the public side: the properties
  frmComm& form;    // the slot table of the thread that created the object
  ObjectOptions options;  // settings outside the interface table
  platform::Env* env;     // the clock, files, network and database factory it uses (SetEnvironment)

  int32_t SlotIndex = 0;        // connection slot taken by Init; 0 before Init
  bool RequestPending = false;  // a request exchange is under way
  std::string LineBreak;        // CR LF

  // Rows of the last list request, shared by all ...Next operations.
  std::vector<std::string> ResultRows;
  int32_t ResultCount = 0;
  int32_t ResultCursor = 0;

  // The user database connection: created (closed) by Init, opened there when asked, closed at the end.
  std::unique_ptr<platform::Connection> DBConnection;

  // Text pieces: the joined segment text or the notes of the last successful read of either
  // (src/archive/document.cpp, notes.cpp); they survive other requests.
  struct TextPieceList {
    std::vector<std::string> Pieces;
    int32_t Cursor = 0;  // index of the next piece to hand out
  } TextPieces;
  // The next text piece, or "" when all have been handed out.
  Variant NextTextPiece();

  std::shared_ptr<ScriptingContext> context;  // kept by OnStartPage
  std::shared_ptr<PageRequest> request;       // its Request object

  // One line of the object's debug log (strDebugLogPath, strSessionID as they are now).
  void WriteLog(std::string_view text) const;
  // True when WriteLog writes anywhere: lines that would copy a whole reply are built only then.
  bool LogEnabled() const;

  // ---- Request exchange with the gateway (src/link/request_exchange.cpp).

  // The request string (UTF-8) for args: element 0 is the command, the others its arguments, each turned
  // into text; the head carries strSessionID, strEASYUser and Encode(strEASYPwd). Raises what the
  // conversions raise (13 for a Missing argument, 6 for a password too long to encode).
  std::string BuildRequest(const std::vector<Variant>& args) const;
  // One string-mode round trip. True with the reply's payload in `response`; false with the failure text
  // in `status`. Both are set to "" first, except when the call is refused because a request is under way.
  bool RequestExchange(const std::string& request, std::string& response, std::string& status);
  // Waits, yielding to the event loop, until the slot is Ready, has a WinsockError, or lngREQUESTTIMEOUT
  // seconds have passed; true only for Ready. Clears the slot's WinsockError first.
  bool WaitForReply();
  // The round trip with the busy retry and the status line: true with the reply rows in ResultRows /
  // ResultCount and ResultCursor 0; false with the failure text in `status` and no rows.
  bool RequestList(const std::string& request, std::string& status);
  // Returns after that many seconds of the clock, yielding to the event loop meanwhile.
  void Pause(int32_t seconds);

  // The pieces of a round trip, for the operations that run their own copy of it (blob transfer, upload).
  // Takes the request guard: sets RequestPending and returns true. When a request is under way instead:
  // sets `status` to the refusal text, logs it, clears RequestPending (so the call after it runs) and
  // returns false.
  bool TakeRequestGuard(std::string& status);
  // Connect, send `bytes` (already in the gateway's code page) followed by the bytes of `body` when there is
  // one, wait for the reply, disconnect, with the log lines of the exchange; `request` is the text the send
  // line shows. The caller has set the slot's Mode (and, for byte mode, its counters and File) and manages
  // RequestPending. The slot takes options.max_reply_bytes as the bound of this reply. True when the reply
  // is complete; false with the status text of the failure (socket error, time-out, failing socket call, or
  // "Reply too large (...)." as it stands when the reply passed the bound).
  bool RunRoundTrip(std::string_view request, std::string_view bytes, std::string& status,
                    std::shared_ptr<platform::SendSource> body = nullptr);
  // RequestExchange without copying the reply: on success it stays in the slot's Response.
  bool ExchangeText(const std::string& request, std::string& status, std::string* response);
  // The end of the object.
  void Terminate();

  // ---- Document files (src/documents/).

  // The path of the file `name` in the local blob folder (strBlobPathLocal), the one place that joins them.
  // Raises 76 "Path not found: no local blob folder set" when strBlobPathLocal is empty (the name must not
  // land in the root folder) and 75 when `name` is no plain file name (it would leave the folder).
  std::string LocalBlobPath(std::string_view name) const;

  // A segment file request (segment_downloads.cpp): runs `args` through RequestList and fills the file
  // outputs from rows 0 and 1; kMapName and kMultiTif apply the extension mapping, kMultiTif also sets ""
  // and 0 when fewer than two rows came. The 16-bit result 1 or -1.
  enum class SegmentFileKind { kMapName, kKeepName, kMultiTif };
  Variant RequestSegmentFile(const std::vector<Variant>& args, SegmentFileKind kind, Variant* strFileName,
                             Variant* lngFileLen, Variant* strStatus);
  // Renames the file *strFileName of strBlobPathLocal by strChangeFileExt (silently not at all when that
  // fails) and gives *strFileName the new extension. Raises 13 when a mapping is set and strFileName is null.
  void ChangeFileExtension(Variant* strFileName);
  // The file error handler of the blob transfer and upload (blob_transfer.cpp): closes a connection still
  // open, sets *strStatus to "File Error (" number " - " text ")", logs "Datei-Fehler (...)", clears
  // RequestPending and gives the result -1.
  Variant FileErrorResult(const std::exception& error, Variant* strStatus);

  // ---- Archive lists, descriptions and the hit list (src/archive/channels.cpp, description.cpp, query.cpp).
  archive::DescriptionState description;  // field records of the last archive description
  archive::HitListState hits;             // the hit list of the last successful query and its sort state

  // ResultRows[index]; raises 9 outside the rows.
  const std::string& ResultRowAt(int32_t index) const;
  // The Init of a plain list: the request of `args`, then the row count as a Long and strStatus "", or -1 as
  // an Integer and the failure text in strStatus. Sorts the rows (SortResultRows) when asked.
  Variant ListInit(const std::vector<Variant>& args, Variant* strStatus, bool sort_rows);
  // The Next of a plain list: the row at the cursor, whole, or "" after the last row.
  Variant ListNext();
  // Sorts ResultRows by their capitals, stably.
  void SortResultRows();
  // Rows 1 .. ResultCount-1 become the field records, sorted by weight.
  void LoadFieldRecords();
};

// Access to the private side for in-tree code: tests, the dispatch layer.
struct VantorAccess {
  static clsVantor::Impl& Of(clsVantor& object) { return clsVantor::Impl::Of(object); }
};

}  // namespace halqvantor
