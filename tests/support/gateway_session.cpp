#include "support/gateway_session.h"

#include <algorithm>

namespace halqvantor::testing {

GatewaySession::GatewaySession(int port, platform::Env* env) : object_(std::make_unique<clsVantor>()) {
  SetEnvironment(*object_, env);
  object_->strREMOTEHOST = "127.0.0.1";
  object_->lngREMOTEPORT = port;
  object_->lngREQUESTTIMEOUT = 5;
  object_->strSessionID = "S1";
  object_->strEASYUser = "u";
  object_->strEASYPwd = "pw";
  object_->strDebugLogPath = log_dir_.path();
  object_->Init();
}

std::vector<std::string> GatewaySession::LogLines(size_t from) const {
  std::vector<std::string> lines = ReadLines(log_dir_.File("S1.LOG"));
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(std::min(from, lines.size())));
  for (std::string& line : lines) {
    // "DD.MM.YYYY hh:mm:ss   " starts each entry; a reply's own line breaks continue one.
    if (line.size() >= 22 && line[2] == '.' && line[5] == '.') line.erase(0, 22);
  }
  return lines;
}

}  // namespace halqvantor::testing
