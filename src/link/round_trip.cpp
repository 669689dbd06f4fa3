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

bool LinkSession::SendListRequest(const std::vector<Variant>& args, Variant* strStatus) {
  std::string status;
  if (RequestList(BuildRequest(args), status)) return true;
  SetOut(strStatus, Variant(std::move(status)));
  return false;
}

const std::string& LinkSession::ResultRowAt(int32_t index) const {
  if (index < 0 || static_cast<size_t>(index) >= ResultRows.size()) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  return ResultRows[static_cast<size_t>(index)];
}

Variant LinkSession::ListInit(const std::vector<Variant>& args, Variant* strStatus, RowOrder sort) {
  if (!SendListRequest(args, strStatus)) return FailureResult();
  SetOut(strStatus, Variant(""));
  if (sort != nullptr) sort(ResultRows);
  return Variant(ResultCount);
}

Variant LinkSession::ListNext() {
  if (ResultCursor >= ResultCount) return Variant("");
  Variant row(ResultRowAt(ResultCursor));
  ++ResultCursor;
  return row;
}

}  // namespace halqvantor
