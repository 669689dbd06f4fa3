#include <string>

#include "link/debug_log.h"
#include "link/frm_comm.h"
#include "link/result_values.h"
#include "link/session.h"
#include "platform/vb_runtime.h"

namespace halqvantor {

LinkSession::LinkSession(clsVantor& owner)
    : self(owner), form(frmComm::ForThisThread()), env(platform::Env::Default()), LineBreak("\r\n") {
  options.log_timings = TimingsFromEnvironment();
}

void LinkSession::WriteLog(std::string_view text) const {
  WriteLogLine(*env, self.strDebugLogPath, self.strSessionID, text);
}

bool LinkSession::LogEnabled() const { return !LogFilePath(self.strDebugLogPath, self.strSessionID).empty(); }

std::string_view MemberNameOf(std::string_view function) {
  std::string_view name = function.substr(0, function.find('('));
  const size_t start = name.find_last_of(": ");
  return start == std::string_view::npos ? name : name.substr(start + 1);
}

bool LinkSession::SendListRequest(const std::vector<Variant>& args, Variant* strStatus, const char* caller) {
  std::string status;
  if (RequestList(BuildRequest(args), status, MemberNameOf(caller))) return true;
  SetOut(strStatus, Variant(std::move(status)));
  return false;
}

std::string_view LinkSession::ResultRowAt(int32_t index) const { return ResultRows.At(index); }

Variant LinkSession::ListInit(const std::vector<Variant>& args, Variant* strStatus, RowOrder sort, const char* caller) {
  if (!SendListRequest(args, strStatus, caller)) return FailureResult();
  SetOut(strStatus, Variant(""));
  if (sort != nullptr) sort(ResultRows);
  return Variant(ResultCount);
}

Variant LinkSession::ListNext() {
  if (ResultCursor >= ResultCount) return Variant("");
  Variant row(std::string(ResultRowAt(ResultCursor)));
  ++ResultCursor;
  return row;
}

}  // namespace halqvantor
