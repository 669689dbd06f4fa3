#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "component/vantor_impl.h"
#include "link/frm_comm.h"
#include "platform/socket.h"
#include "support/temp_dir.h"

namespace halqvantor::testing {

// A clsVantor object Init'ed against a gateway on 127.0.0.1:port (time-out 5 s, session "S1", user "u",
// password "pw"), logging into a temporary folder.
class GatewaySession {
 public:
  explicit GatewaySession(int port);

  clsVantor& object() { return *object_; }
  clsVantor::Impl& impl() { return VantorAccess::Of(*object_); }
  frmComm& form() { return impl().form; }
  int32_t slot() { return impl().SlotIndex; }
  SlotState& state() { return form().State(slot()); }
  platform::Socket& socket() { return form().ctlWinsock(slot()); }
  // The debug log's lines from line `from` on, without their time stamps.
  std::vector<std::string> LogLines(size_t from = 0) const;

 private:
  TempDir log_dir_;
  std::unique_ptr<clsVantor> object_;
};

// Installs, while it lives, a pump that waits at most 1 ms a pass (or `max_wait_ms`): for tests that wait on
// purpose.
class QuickPump {
 public:
  explicit QuickPump(int max_wait_ms = 1) : pump_(max_wait_ms), previous_(platform::InstallEventPump(&pump_)) {}
  ~QuickPump() { platform::InstallEventPump(previous_ == platform::EventPump::Default() ? nullptr : previous_); }

 private:
  platform::PollPump pump_;
  platform::EventPump* previous_;
};

// Runs `body` on a new thread, which has a slot table of its own, as a fresh process would.
template <typename F>
void OnFreshThread(F body) {
  std::thread(body).join();
}

}  // namespace halqvantor::testing
