#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "component/vantor_impl.h"
#include "link/frm_comm.h"
#include "platform/env.h"
#include "platform/socket.h"
#include "support/temp_dir.h"

namespace halqvantor::testing {

// A clsVantor object on `env` Init'ed against a gateway on 127.0.0.1:port (time-out 5 s, session "S1", user
// "u", password "pw"), logging into a temporary folder.
class GatewaySession {
 public:
  explicit GatewaySession(int port, platform::Env* env = platform::Env::Default());

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

// Gives `object` the environment `env` while it lives, then gives it back the one it had.
class EnvScope {
 public:
  EnvScope(clsVantor& object, platform::Env* env) : object_(object), previous_(VantorAccess::Of(object).env) {
    SetEnvironment(object, env);
  }
  ~EnvScope() { SetEnvironment(object_, previous_); }
  EnvScope(const EnvScope&) = delete;
  EnvScope& operator=(const EnvScope&) = delete;

 private:
  clsVantor& object_;
  platform::Env* previous_;
};

// Runs `body` on a new thread, which has a slot table of its own, as a fresh process would.
template <typename F>
void OnFreshThread(F body) {
  std::thread(body).join();
}

}  // namespace halqvantor::testing
