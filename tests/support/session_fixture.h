#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/errors.h"
#include "support/fake_clock.h"
#include "support/gateway_session.h"
#include "support/scripted_gateway.h"
#include "support/temp_dir.h"
#include "support/variant_print.h"

namespace halqvantor::testing {

// An object Init'ed on first use against a scripted gateway on the loopback interface, with a fake clock.
// Connection i plays script i (the last one repeats); Answer scripts a plain reply. Every request starts
// with kHead (session, user, encoded password).
class SessionTest : public ::testing::Test {
 protected:
  static constexpr std::string_view kHead = "^S1^,^u^,^ABA1^";

  // A clock hook may hold the test body's locals, which are gone when the object ends (and logs).
  void TearDown() override {
    clock_.on_read = nullptr;
    session_.reset();
  }

  void Answer(std::string_view payload) { gateway_.Script({testing::Answer(payload)}); }
  void Answers(const std::vector<std::string>& payloads) {
    for (const std::string& p : payloads) Answer(p);
  }
  GatewaySession& s() {
    if (!session_) session_ = std::make_unique<GatewaySession>(gateway_.port());
    return *session_;
  }
  clsVantor& v() { return s().object(); }
  clsVantor::Impl& impl() { return s().impl(); }
  std::vector<std::string> Requests() const { return gateway_.Requests(); }
  // The request bytes of a command with its arguments.
  static std::string Request(std::string_view fields) { return std::string(kHead) + "," + std::string(fields); }

  FakeClock clock_;
  ScriptedGateway gateway_;
  std::unique_ptr<GatewaySession> session_;
};

}  // namespace halqvantor::testing
