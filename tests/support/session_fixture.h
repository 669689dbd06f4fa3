#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/errors.h"
#include "support/fake_clock.h"
#include "support/fake_network.h"
#include "support/gateway_session.h"
#include "support/temp_dir.h"
#include "support/variant_print.h"

namespace halqvantor::testing {

// An object Init'ed on first use against a network inside the process (FakeNetwork), with a fake clock.
// Connection i plays script i (the last one repeats); Answer scripts a plain reply, Send raw bytes. Every
// request starts with kHead (session, user, encoded password).
class SessionTest : public ::testing::Test {
 protected:
  static constexpr std::string_view kHead = "^S1^,^u^,^ABA1^";

  // A clock hook may hold the test body's locals, which are gone when the object ends (and logs).
  void TearDown() override {
    clock_.on_read = nullptr;
    // An environment a test body gave the object is gone by now.
    if (session_) SetEnvironment(session_->object(), &net_);
    session_.reset();
  }

  void Answer(std::string_view payload) { net_.scripts.push_back({FakeNetwork::Reply(payload)}); }
  void Answers(const std::vector<std::string>& payloads) {
    for (const std::string& p : payloads) Answer(p);
  }
  void Send(std::string bytes) { net_.scripts.push_back({FakeNetwork::Packet(std::move(bytes))}); }
  GatewaySession& s() {
    if (!session_) session_ = std::make_unique<GatewaySession>(4711, &net_);
    return *session_;
  }
  clsVantor& v() { return s().object(); }
  clsVantor::Impl& impl() { return s().impl(); }
  const std::vector<std::string>& Requests() const { return net_.requests; }
  // The request bytes of a command with its arguments.
  static std::string Request(std::string_view fields) { return std::string(kHead) + "," + std::string(fields); }

  FakeClock clock_;
  FakeNetwork net_{&clock_};
  std::unique_ptr<GatewaySession> session_;
};

// The outcome of one RequestExchange.
struct Exchanged {
  bool ok = false;
  std::string response, status;
  bool operator==(const Exchanged&) const = default;
};
inline void PrintTo(const Exchanged& e, std::ostream* os) {
  *os << (e.ok ? "ok" : "failed") << ", response " << ::testing::PrintToString(e.response) << ", status " << e.status;
}
inline Exchanged Exchange(GatewaySession& s, const std::string& request) {
  Exchanged out;
  out.ok = s.impl().RequestExchange(request, out.response, out.status);
  return out;
}

// The number of file descriptors the process has open now.
inline int OpenDescriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

// `size` bytes whose pattern repeats only after megabytes, so that a piece out of place shows.
inline std::string PatternOf(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131 + i / 4099) & 0xFF);
  return bytes;
}

// For table rows that each need a new link: the session's link plays `scripts` (FakeNetwork), its time is
// a fake clock, and the session has a thread of its own.
template <typename F>
void InFakeSession(const std::vector<std::vector<FakeNetwork::Step>>& scripts, F body) {
  FakeClock clock;
  FakeNetwork net(&clock);
  net.scripts = scripts;
  OnFreshThread([&] {
    GatewaySession s(4711, &net);
    body(s, net, clock);
    clock.on_read = nullptr;
  });
}

}  // namespace halqvantor::testing
