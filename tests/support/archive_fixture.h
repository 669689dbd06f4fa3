#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/errors.h"
#include "support/fake_clock.h"
#include "support/gateway_session.h"
#include "support/scripted_gateway.h"
#include "support/variant_print.h"

namespace halqvantor::testing {

// An Init'ed object against a scripted gateway whose connections answer, in order, with the payloads given
// to Answer (the last one repeats). The request head of every request is kHead.
class ArchiveTest : public ::testing::Test {
 protected:
  static constexpr std::string_view kHead = "^S1^,^u^,^ABA1^";

  void Answer(std::string_view payload) { gateway_.Script({testing::Answer(payload)}); }
  clsVantor& v() {
    if (!session_) session_ = std::make_unique<GatewaySession>(gateway_.port());
    return session_->object();
  }
  clsVantor::Impl& impl() { return VantorAccess::Of(v()); }
  std::vector<std::string> Requests() const { return gateway_.Requests(); }
  // The request bytes of a command with its arguments.
  static std::string Request(std::string_view fields) { return std::string(kHead) + "," + std::string(fields); }

  FakeClock clock_;
  ScriptedGateway gateway_;
  std::unique_ptr<GatewaySession> session_;
};

}  // namespace halqvantor::testing
