#pragma once

// The link side of one clsVantor object: its connection slot, the request under way and the rows of the
// last list request, with the round trip that every operation family runs through it. The object's private
// side derives from it and adds the state of each family (archive, documents, users); the families reach
// it through SessionOf. Member functions live in request_exchange.cpp (the exchange with the gateway) and
// round_trip.cpp (log, list requests and walks).

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/Extensions.h"
#include "halqvantor/Variant.h"
#include "halqvantor/clsVantor.h"
#include "link/progress.h"
#include "platform/env.h"
#include "platform/row_list.h"

namespace halqvantor {

class frmComm;
namespace platform {
class SendSource;
class Socket;
}  // namespace platform

struct LinkSession {
  explicit LinkSession(clsVantor& owner);
  LinkSession(const LinkSession&) = delete;
  LinkSession& operator=(const LinkSession&) = delete;

  clsVantor& self;        // the public side: the properties
  frmComm& form;          // the slot table of the thread that created the object
  ObjectOptions options;  // settings outside the interface table
  platform::Env* env;     // the clock, files, network and database factory it uses (SetEnvironment)

  int32_t SlotIndex = 0;        // connection slot taken by Init; 0 before Init
  bool RequestPending = false;  // a request exchange is under way
  std::string LineBreak;        // CR LF

  // The points of the round trip under way, noted while its timings are wanted (RunRoundTrip): milliseconds
  // from the start of its connection, -1 until reached.
  struct RoundTripTimes {
    bool active = false;
    std::chrono::steady_clock::time_point start;
    double connect_ms = -1;
    double first_byte_ms = -1;
    double last_byte_ms = -1;
    int32_t bytes_seen = 0;  // the slot's BytesReceived when last noted
  };
  RoundTripTimes Times;

  // Rows of the last list request, shared by all ...Next operations: views into the reply, which they own.
  platform::RowList ResultRows;
  // The progress reports of the long operation under way (options.progress), and whether its request has
  // gone out on the current connection (until then a text reply's counters are the last reply's).
  ProgressMeter progress;
  bool RequestSent = false;
  int32_t ResultCount = 0;
  int32_t ResultCursor = 0;

  // The status line of the last complete text reply of a round trip ("" before one, or after a round trip
  // that failed or received in byte mode): what LastStatusLine hands a host.
  std::string LastStatusLine;

  // One line of the object's debug log (strDebugLogPath, strSessionID as they are now).
  void WriteLog(std::string_view text) const;
  // True when WriteLog writes anywhere: lines that would copy a whole reply are built only then.
  bool LogEnabled() const;

  // ---- Request exchange with the gateway (request_exchange.cpp).

  // Where the request under way stands by its slot: the reply's payload so far and its announced length (the
  // expected length in byte mode), and whether the gateway closed the connection before it was all in.
  ProgressReading SlotProgress() const;

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
  // While Times is active: notes the time of a packet the last pass of the wait brought.
  void NoteArrival();
  // Ends Times: the timing line in the log when options.log_timings, and options.on_request_timings.
  void ReportTimings(std::string_view request, const platform::Socket& socket);
  // The round trip with the busy retry and the status line: true with the reply rows in ResultRows /
  // ResultCount and ResultCursor 0; false with the failure text in `status` and no rows.
  // Reports progress to options.progress under the name `operation` (a member's name).
  bool RequestList(const std::string& request, std::string& status, std::string_view operation = "RequestList");
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

  // ---- List requests and walks (round_trip.cpp).

  // BuildRequest + RequestList. On failure strStatus (when passed) receives the failure text and the result
  // is false; on success strStatus is left for the caller to clear once the answer has been read. Progress
  // is reported under the name of the member that called (or `caller`'s).
  bool SendListRequest(const std::vector<Variant>& args, Variant* strStatus, const char* caller = __builtin_FUNCTION());
  // ResultRows[index]; raises 9 outside the rows.
  std::string_view ResultRowAt(int32_t index) const;
  // The Init of a plain list: the request of `args`, then the row count as a Long and strStatus "", or -1 as
  // an Integer and the failure text in strStatus. `sort`, when given, orders the rows of a success.
  using RowOrder = void (*)(platform::RowList& rows);
  Variant ListInit(const std::vector<Variant>& args, Variant* strStatus, RowOrder sort = nullptr,
                   const char* caller = __builtin_FUNCTION());
  // The Next of a plain list: the row at the cursor, whole, or "" after the last row.
  Variant ListNext();
};

// The timing line of the debug log for one request.
std::string TimingLine(const RequestTimings& timings);
// True when the environment variable HALQVANTOR_TIMINGS asks for timing lines ("1").
bool TimingsFromEnvironment();
// The member of clsVantor that `where` lies in ("EASYGetChannelsInit"), or the bare name of the function
// it lies in when that is no member.
std::string_view MemberNameOf(std::string_view function);

// The link side of `object` (defined with the object's private side).
LinkSession& SessionOf(clsVantor& object);

}  // namespace halqvantor
