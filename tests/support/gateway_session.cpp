#include "support/gateway_session.h"

namespace halqvantor::testing {

GatewaySession::GatewaySession(const ScriptedGateway& gateway) : GatewaySession(gateway.port()) {}

GatewaySession::GatewaySession(int port) : object_(std::make_unique<clsVantor>()) {
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
  // "DD.MM.YYYY hh:mm:ss" and three blanks stand before each text.
  constexpr size_t kStampWidth = 22;
  std::vector<std::string> lines;
  const std::vector<std::string> raw = ReadLines(log_dir_.File("S1.LOG"));
  for (size_t i = from; i < raw.size(); ++i) lines.push_back(raw[i].size() >= kStampWidth ? raw[i].substr(kStampWidth) : raw[i]);
  return lines;
}

}  // namespace halqvantor::testing
