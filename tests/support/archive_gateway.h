#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "halqvantor/RuntimeError.h"
#include "halqvantor/clsVantor.h"
#include "support/errors.h"
#include "support/fake_clock.h"
#include "support/gateway_session.h"
#include "support/scripted_gateway.h"
#include "support/variant_print.h"

namespace halqvantor::testing {

// The head of every request a GatewaySession sends (session, user, encoded password).
inline const std::string kRequestHead = "^S1^,^u^,^ABA1^";

// Runs body(object, gateway) on a fresh thread, with an Init'ed object talking to a gateway whose
// connection i answers with the reply of payloads[i] (the last one repeats).
template <typename F>
void WithAnswers(const std::vector<std::string>& payloads, F body) {
  FakeClock clock;
  ScriptedGateway gateway;
  for (const std::string& payload : payloads) {
    gateway.Script({Answer(payload)});
  }
  OnFreshThread([&] {
    GatewaySession session(gateway.port());
    body(session.object(), gateway);
  });
}

}  // namespace halqvantor::testing
