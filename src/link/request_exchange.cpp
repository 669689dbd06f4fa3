#include "link/request_exchange.h"

#include <exception>
#include <limits>

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
// A wait yields this many times between two looks at the slot and the clock.
constexpr int kYieldsPerPass = 10;

// The time measure of every wait: seconds since midnight, whole seconds. It is not guarded against the
// turn of the day: a wait that starts just before midnight cannot time out until its slot is done.
double SecondsSinceMidnight(platform::Env& env) { return static_cast<double>(env.SecondsSinceMidnight()); }

std::string StateText(const platform::Socket& socket) { return std::to_string(socket.State()); }

// Yields as a wait pass does, but stops early once an event was delivered, so that the waiter looks at the
// slot at once instead of sleeping through the remaining yields.
void YieldPass(platform::Env& env) {
  for (int i = 0; i < kYieldsPerPass; ++i) {
    if (platform::DoEvents(env) > 0) return;
  }
}

}  // namespace

std::string_view StatusLineOf(std::string_view response) { return response.substr(0, response.find(kCrLf)); }

bool IsBusyAnswer(std::string_view status_line) {
  const std::string_view head = status_line.substr(0, 15);
  return head == "Status: Error 1" || head == "Status: Error 7";
}

std::string FailureStatusText(std::string_view status_line) {
  if (vb::Len(status_line) < 7) return std::string(status_line);
  return vb::Trim(vb::Mid(status_line, 8));
}

void SplitReplyRows(std::string_view response, std::vector<std::string>& rows) {
  rows.clear();
  const size_t first = response.find(kCrLf);
  if (first == std::string_view::npos) return;
  const std::string_view body = response.substr(first + kCrLf.size());

  // Count first, so that the rows are made in one allocation of the array.
  size_t count = 0;
  for (size_t pos = body.find(kCrLf); pos != std::string_view::npos; pos = body.find(kCrLf, pos + 2)) ++count;
  const bool open_last_line = !body.empty() && !body.ends_with(kCrLf);
  rows.reserve(count + (open_last_line ? 1 : 0));

  size_t start = 0;
  for (size_t pos = body.find(kCrLf); pos != std::string_view::npos; pos = body.find(kCrLf, start)) {
    rows.emplace_back(body.data() + start, pos - start);
    start = pos + kCrLf.size();
  }
  if (open_last_line) rows.emplace_back(body.substr(start));
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
    socket.Connect();
    bool ok = WaitForReply();
    if (ok) {
      std::string line = "Senden der Anfrage an Vantor-Server (";
      line += request;
      line += ')';
      WriteLog(line);
      form.SetReady(SlotIndex, false);
      slot.AwaitingFirstPacket = true;
      RequestSent = true;
      socket.SendData(bytes);
      if (body != nullptr) socket.SendStream(std::move(body));
      ok = WaitForReply();
    }
    if (ok) {
      WriteLog("Trennen der Verbindung (letzter Status: " + StateText(socket) + ").");
      if (socket.State() != platform::kSckClosed) socket.Close();
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
  std::vector<std::string>().swap(ResultRows);  // the old rows' memory goes too
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
  // The reply stays in the slot (the socket is closed, so nothing changes it): split it where it lies.
  SplitReplyRows(form.GetResponse(SlotIndex), ResultRows);
  if (ResultRows.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
    vb::Raise(ErrorNumber::kOverflow);
  }
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
    platform::DoEvents(*env);
  }
}

}  // namespace halqvantor
