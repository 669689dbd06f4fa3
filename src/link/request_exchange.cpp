#include "link/request_exchange.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "link/debug_log.h"
#include "link/frm_comm.h"
#include "link/general_failure.h"
#include "link/session.h"
#include "link/text_encoding.h"
#include "platform/cp1252.h"
#include "platform/env.h"
#include "platform/socket.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace {

constexpr std::string_view kCrLf = "\r\n";
// Seconds between two tries of a busy answer.
constexpr int32_t kBusyRetrySeconds = 3;

// The time measure of every wait: seconds since midnight, whole seconds. It is not guarded against the
// turn of the day: a wait that starts just before midnight cannot time out until its slot is done.
double SecondsSinceMidnight(platform::Env& env) { return static_cast<double>(env.SecondsSinceMidnight()); }

std::string StateText(const platform::Socket& socket) { return std::to_string(socket.State()); }

// One pass of a wait: delivers what the sockets bring and otherwise sleeps until just after the clock's
// seconds change, the next moment a wait has anything to look at. A waiting request costs no CPU.
void YieldPass(platform::Env& env) { platform::DoEvents(env, env.MillisecondsToNextSecond() + 1); }

double MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// The command of a request: its fourth field ("^session^,^user^,^password^,^COMMAND^,..."), at most 64
// characters of it.
std::string CommandOf(std::string_view request) {
  constexpr std::string_view kSeparator = "^,^";
  size_t start = 0;
  for (int field = 0; field < 3; ++field) {
    const size_t at = request.find(kSeparator, start);
    if (at == std::string_view::npos) return "";
    start = at + kSeparator.size();
  }
  const std::string_view rest = request.substr(start);
  return std::string(rest.substr(0, std::min<size_t>(rest.find('^'), 64)));
}

std::string FormatMilliseconds(double ms) {
  if (ms < 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", ms);
  return text;
}

}  // namespace

bool TimingsFromEnvironment() {
  const char* value = std::getenv("HALQVANTOR_TIMINGS");
  return value != nullptr && std::string_view(value) == "1";
}

std::string TimingLine(const RequestTimings& t) {
  return "Zeitmessung (Befehl " + t.command + ", " + std::to_string(t.bytes_sent) + " Bytes gesendet, " +
         std::to_string(t.bytes_received) + " Bytes empfangen, Verbindung " + FormatMilliseconds(t.connect_ms) +
         ", erstes Byte " + FormatMilliseconds(t.first_byte_ms) + ", letztes Byte " +
         FormatMilliseconds(t.last_byte_ms) + ").";
}

std::string_view StatusLineOf(std::string_view response) { return response.substr(0, response.find(kCrLf)); }

bool IsBusyAnswer(std::string_view status_line) {
  const std::string_view head = status_line.substr(0, 15);
  return head == "Status: Error 1" || head == "Status: Error 7";
}

std::string FailureStatusText(std::string_view status_line) {
  if (vb::Len(status_line) < 7) return std::string(status_line);
  return vb::Trim(vb::Mid(status_line, 8));
}

std::string LinkSession::BuildRequest(const std::vector<Variant>& args) const {
  std::string request = "^" + self.strSessionID + "^,^" + self.strEASYUser + "^,^" + EncodeText(self.strEASYPwd) + "^";
  for (const Variant& arg : args) {
    request += ",^";
    // A Null joins as nothing, as it does in string concatenation.
    if (!arg.IsNull()) request += arg.ToString();
    request += '^';
  }
  return request;
}

ProgressReading LinkSession::SlotProgress() const {
  const SlotState& slot = form.State(SlotIndex);
  ProgressReading reading;
  reading.closed_early = slot.PeerClosed && !slot.Ready;
  // Until this request's reply starts, a text reply's counters still hold the last reply's.
  if (slot.Mode == ReceptionMode::kString && (!RequestSent || slot.AwaitingFirstPacket)) return reading;
  reading.bytes = slot.BytesReceived;
  reading.expected = slot.BytesToReceive;
  return reading;
}

bool LinkSession::WaitForReply() {
  form.SetWinsockError(SlotIndex, "");
  const double start = SecondsSinceMidnight(*env);
  WriteLog("  Starte Warteschleife für Anfrageergebnis.");
  bool timed_out = false;
  bool cancelled = false;
  while (form.GetWinsockError(SlotIndex).empty() && !form.GetReady(SlotIndex) && !timed_out && !cancelled) {
    if (start + self.lngREQUESTTIMEOUT < SecondsSinceMidnight(*env)) timed_out = true;
    YieldPass(*env);
    if (Times.active) NoteArrival();
    // A reply complete by now is reported once, as done, by the operation.
    if (!form.GetReady(SlotIndex)) cancelled = !progress.Look();
  }
  WriteLog("  Beende Warteschleife für Anfrageergebnis.");
  if (cancelled) return false;
  const std::string& error = form.GetWinsockError(SlotIndex);
  if (error.empty()) return !timed_out;
  WriteLog("  Winsock-Fehler (" + error + ")");
  return false;
}

void LinkSession::NoteArrival() {
  const SlotState& slot = form.State(SlotIndex);
  if (!RequestSent) return;
  // A text reply's first packet may hold only its header: the packet counts although no payload came.
  const bool header_in = slot.Mode == ReceptionMode::kString && !slot.AwaitingFirstPacket;
  if (slot.BytesReceived == Times.bytes_seen && !(header_in && Times.first_byte_ms < 0)) return;
  const double now = MillisecondsSince(Times.start);
  if (Times.first_byte_ms < 0) Times.first_byte_ms = now;
  Times.last_byte_ms = now;
  Times.bytes_seen = slot.BytesReceived;
}

void LinkSession::ReportTimings(std::string_view request, const platform::Socket& socket) {
  Times.active = false;
  RequestTimings timings;
  timings.command = CommandOf(request);
  timings.bytes_sent = socket.BytesSent();
  timings.bytes_received = Times.first_byte_ms < 0 ? 0 : Times.bytes_seen;
  timings.connect_ms = Times.connect_ms;
  timings.first_byte_ms = Times.first_byte_ms;
  timings.last_byte_ms = Times.last_byte_ms;
  if (options.log_timings) WriteLog(TimingLine(timings));
  if (options.on_request_timings) options.on_request_timings(timings);
}

bool LinkSession::TakeRequestGuard(std::string& status) {
  if (!RequestPending) {
    RequestPending = true;
    return true;
  }
  status = "Winsock Error (previous request not finished properly).";
  WriteLog("Serveranfrage wegen noch laufender Anfrage abgebrochen.");
  // The refused call releases the guard, so the call after it goes ahead.
  RequestPending = false;
  return false;
}

bool LinkSession::RunRoundTrip(std::string_view request, std::string_view bytes, std::string& status,
                               std::shared_ptr<platform::SendSource> body) {
  LastStatusLine.clear();
  try {
    platform::Socket& socket = form.ctlWinsock(SlotIndex);
    if (socket.State() != platform::kSckClosed) {
      try {
        socket.Close();
      } catch (const std::exception&) {
        // Whatever the old connection's trouble, the new one starts from here.
      }
      WriteLog("Schließe noch offene Verbindung (letzter Winsock-Status: " + StateText(socket) + ").");
    }

    // The reply of this request is bounded by this object's limit, and none of it has come yet.
    SlotState& slot = form.State(SlotIndex);
    slot.MaxReplyBytes = options.max_reply_bytes;
    slot.ReplyTooLarge = false;
    slot.AwaitingFirstPacket = false;
    slot.PeerClosed = false;
    RequestSent = false;
    progress.NewConnection();

    WriteLog("Verbindungsaufbau.");
    form.SetReady(SlotIndex, false);
    Times = {};
    Times.active = options.log_timings || options.on_request_timings != nullptr;
    Times.start = std::chrono::steady_clock::now();
    // The timings of this request are reported however it ends.
    struct ReportAtEnd {
      LinkSession& session;
      std::string_view request;
      const platform::Socket& socket;
      ~ReportAtEnd() {
        if (!session.Times.active) return;
        try {
          session.ReportTimings(request, socket);
        } catch (const std::exception&) {
          // A failing log or observer must not change the request's outcome.
        }
      }
    } report{*this, request, socket};
    socket.Connect();
    socket.SendAhead(bytes);
    bool ok = WaitForReply();
    if (ok && Times.active) Times.connect_ms = MillisecondsSince(Times.start);
    if (ok) {
      if (LogEnabled()) {
        std::string line = "Senden der Anfrage an Vantor-Server (";
        line += request;
        line += ')';
        WriteLog(line);
      }
      form.SetReady(SlotIndex, false);
      slot.AwaitingFirstPacket = true;
      Times.bytes_seen = slot.BytesReceived;
      RequestSent = true;
      socket.SendData(bytes);
      if (body != nullptr) socket.SendStream(std::move(body));
      ok = WaitForReply();
    }
    if (ok) {
      if (LogEnabled()) WriteLog("Trennen der Verbindung (letzter Status: " + StateText(socket) + ").");
      if (socket.State() != platform::kSckClosed) socket.Close();
      if (slot.Mode == ReceptionMode::kString) LastStatusLine = StatusLineOf(slot.Response);
      return true;
    }

    const std::string& error = form.GetWinsockError(SlotIndex);
    if (progress.cancelled()) {
      // The caller's hook asked to stop: the connection goes now, and the slot is free for the next request.
      status = kCancelledStatus;
      WriteLog(kCancelledLogLine);
      if (socket.State() != platform::kSckClosed) socket.Close();
    } else if (slot.ReplyTooLarge) {
      // Reception has logged it and closed the connection; its text is the status as it stands.
      status = error;
    } else if (!error.empty()) {
      status = "Winsock Error (" + error + ")";
      WriteLog("Winsock-Fehler (" + error + " - " + StateText(socket) + ").");
    } else {
      status = "Timeout of " + std::to_string(self.lngREQUESTTIMEOUT) + " seconds occured waiting for server response.";
      WriteLog("Timeout-Fehler (last winsock state: " + StateText(socket) + ").");
      if (socket.State() != platform::kSckClosed) socket.Close();
    }
    return false;
  } catch (const std::exception& e) {
    const ErrorInfo info = DescribeError(e);
    const std::string detail = std::to_string(info.number) + " - " + info.text;
    status = "General error connecting to server (" + detail + ").";
    WriteLog("Kommunikations-Fehler (" + detail + ").");
    return false;
  }
}

bool LinkSession::ExchangeText(const std::string& request, std::string& status, std::string* response) {
  if (!TakeRequestGuard(status)) return false;
  if (response != nullptr) response->clear();
  status.clear();

  bool ok = false;
  try {
    form.SetMode(SlotIndex, ReceptionMode::kString);
    ok = RunRoundTrip(request, platform::Utf8ToCp1252(request), status);
    if (ok) {
      const std::string& reply = form.GetResponse(SlotIndex);
      if (response != nullptr) *response = reply;
      if (LogEnabled()) WriteLog("Weitergabe Abfrageergebnis an IIS (" + reply + ")");
    }
  } catch (const std::exception& e) {
    const ErrorInfo info = DescribeError(e);
    const std::string detail = std::to_string(info.number) + " - " + info.text;
    status = "General error connecting to server (" + detail + ").";
    WriteLog("Kommunikations-Fehler (" + detail + ").");
    ok = false;
  }
  RequestPending = false;
  return ok;
}

bool LinkSession::RequestExchange(const std::string& request, std::string& response, std::string& status) {
  return ExchangeText(request, status, &response);
}

bool LinkSession::RequestList(const std::string& request, std::string& status, std::string_view operation) {
  ResultRows.Clear();  // the old rows' memory goes too
  ResultCount = 0;
  ResultCursor = 0;
  const double start = SecondsSinceMidnight(*env);
  ProgressScope reports(progress, options.progress, operation, *env, [this] { return SlotProgress(); });

  std::string status_line;
  bool try_again = false;
  do {
    if (!ExchangeText(request, status, nullptr)) return false;
    status_line = StatusLineOf(form.GetResponse(SlotIndex));
    try_again = false;
    if (IsBusyAnswer(status_line)) {
      Pause(kBusyRetrySeconds);
      try_again = true;
    }
    if (start + self.lngREQUESTTIMEOUT < SecondsSinceMidnight(*env)) try_again = false;
    platform::DoPendingEvents(*env);
  } while (try_again);
  reports.Done();

  if (status_line != "Status: OK") {
    status = FailureStatusText(status_line);
    return false;
  }
  // The rows take the reply over from the slot (its socket is closed, so nothing adds to it): the text is
  // not copied, and the slot keeps none of it.
  ResultRows = platform::RowList::LinesAfterFirst(std::exchange(form.State(SlotIndex).Response, std::string()));
  ResultCount = static_cast<int32_t>(ResultRows.size());
  return true;
}

void LinkSession::Pause(int32_t seconds) {
  const int64_t start = env->SecondsSinceMidnight();
  const int64_t until = start + seconds;
  for (;;) {
    int64_t now = env->SecondsSinceMidnight();
    // A pause that runs over midnight counts on into the new day instead of waiting a whole day more.
    if (now < start) now += 24 * 3600;
    if (now >= until) return;
    YieldPass(*env);
  }
}

}  // namespace halqvantor
