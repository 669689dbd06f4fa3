#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "component/vantor_impl.h"
#include "halqvantor/clsVantor.h"
#include "link/frm_comm.h"
#include "platform/socket.h"
#include "support/scripted_gateway.h"
#include "support/temp_dir.h"

namespace halqvantor::testing {

// A clsVantor object set up against a scripted gateway (host 127.0.0.1, its port, time-out 5 s, session
// "S1", user "u", password "pw") and Init'ed, logging into a temporary folder.
class GatewaySession {
 public:
  explicit GatewaySession(const ScriptedGateway& gateway);
  explicit GatewaySession(int port);

  clsVantor& object() { return *object_; }
  clsVantor::Impl& impl() { return VantorAccess::Of(*object_); }
  frmComm& form() { return impl().form; }
  int32_t slot() { return impl().SlotIndex; }
  SlotState& state() { return form().State(slot()); }

  // The debug log's lines without their time stamps, from line `from` on.
  std::vector<std::string> LogLines(size_t from = 0) const;
  size_t LogLineCount() const { return LogLines().size(); }

 private:
  TempDir log_dir_;
  std::unique_ptr<clsVantor> object_;
};

// Installs, while it lives, a poll pump that waits at most 1 ms per pass: for tests that wait on purpose
// (silence, time-outs), so that their many wait passes take little real time.
class QuickPump {
 public:
  QuickPump() : previous_(platform::InstallEventPump(&pump_)) {}
  ~QuickPump() { platform::InstallEventPump(previous_ == platform::EventPump::Default() ? nullptr : previous_); }
  QuickPump(const QuickPump&) = delete;
  QuickPump& operator=(const QuickPump&) = delete;

 private:
  platform::PollPump pump_{1};
  platform::EventPump* previous_;
};

// Runs `body` on a new thread, which has a slot table of its own, as a fresh process would.
template <typename F>
void OnFreshThread(F body) {
  std::thread t(body);
  t.join();
}

}  // namespace halqvantor::testing
