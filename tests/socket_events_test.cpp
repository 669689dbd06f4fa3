#include "link/socket_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::Exchange;
using testing::Exchanged;
using testing::FakeClock;
using testing::FakeNetwork;
using testing::GatewaySession;
using testing::InFakeSession;
using Step = FakeNetwork::Step;

const std::string kRequest = "^S1^,^u^,^p^,^Test^";

std::vector<Step> Packets(const std::vector<std::string>& chunks) {
  std::vector<Step> steps;
  for (const std::string& c : chunks) steps.push_back(FakeNetwork::Packet(c));
  return steps;
}

// The log lines that tell how the packets were taken.
std::vector<std::string> ReceptionLines(GatewaySession& s) {
  std::vector<std::string> out;
  for (const std::string& l : s.LogLines()) {
    if (l.find("acket received") != std::string::npos || l.find("Event End") != std::string::npos) out.push_back(l);
  }
  return out;
}

std::string End(int received, int announced) {
  return "    Winsock(1)-DataArrival-Event End (" + std::to_string(received) + " of " + std::to_string(announced) +
         " bytes received).";
}
const std::string kFirst = "    First packet received (mode: STRING).";
const std::string kNext = "    Next packet received (mode: STRING).";

TEST(Reception, RepliesEndWhenTheAnnouncedBytesAreIn) {
  struct Case {
    std::vector<std::string> chunks;
    std::string response;
    std::vector<std::string> lines;
  };
  const std::vector<Case> cases = {
      {{"TotalBytes:5\r\nHa", "llo"}, "Hallo", {kFirst, End(2, 5), kNext, End(5, 5)}},
      {{"TotalBytes:6\r\n", "Hal", "lo!"}, "Hallo!", {kFirst, End(0, 6), kNext, End(3, 6), kNext, End(6, 6)}},
      {{"TotalBytes:5\r\nHallo!!"}, "Hallo!!", {kFirst, End(7, 5)}},  // the surplus stays
      // Only the first packet after the request carries the header: a later one that looks like it is payload.
      {{"TotalBytes:19\r\nab", "TotalBytes:3\r\nxyz"},
       "abTotalBytes:3\r\nxyz",
       {kFirst, End(2, 19), kNext, End(19, 19)}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.response);
    InFakeSession({Packets(c.chunks)}, [&](GatewaySession& s, FakeNetwork& net, FakeClock&) {
      EXPECT_EQ(Exchange(s, kRequest), (Exchanged{true, c.response, ""}));
      EXPECT_TRUE(s.state().Ready);
      EXPECT_EQ(ReceptionLines(s), c.lines);
      EXPECT_EQ(net.requests, std::vector<std::string>{kRequest});
      EXPECT_EQ(net.open_sockets(), 0);
    });
  }
}

TEST(Reception, PacketsFedDirectly) {
  // Bytes are counted, the text kept in UTF-8; a header without CR LF, without a number or past a Long raises.
  // A row: the first packet, the next one (fed only when the first is taken), the response or the error raised,
  // the bytes received and announced.
  const std::tuple<std::string, std::string, std::string, int32_t, int32_t> cases[] = {
      {"TotalBytes:4\r\nab", "c\xE4", "abcä", 4, 4},
      {"TotalBytes:0\r\n", "", "", 0, 0},
      {"TotalBytes:5", "", "5 - Invalid procedure call or argument", 0, 0},
      {"TotalBytes:\r\nx", "", "13 - Type mismatch", 0, 0},
      {"TotalBytes:99999999999\r\nHallo", "", "6 - Overflow", 0, 0}};
  for (const auto& [first, next, outcome, received, announced] : cases) {
    SlotState slot;
    slot.Response = "old";
    std::string got;
    try {
      ReceiveFirstPacket(slot, first);
      if (!next.empty()) ReceiveNextPacket(slot, next);
      got = slot.Response;
    } catch (const RuntimeError& e) {
      got = std::to_string(e.number()) + " - " + e.description();
      EXPECT_EQ(slot.Response, "old") << first;  // unchanged when it raises
    }
    EXPECT_EQ(std::tie(got, slot.BytesReceived, slot.BytesToReceive), std::tie(outcome, received, announced)) << first;
  }
}

TEST(Reception, AHeaderThatFailsEndsTheWaitAndTheNextRequestClosesTheConnection) {
  const std::string error = "13 - Type mismatch";
  InFakeSession({Packets({"TotalBytes:abc\r\nHallo"})}, [&](GatewaySession& s, FakeNetwork&, FakeClock&) {
    const auto got = Exchange(s, kRequest);
    EXPECT_EQ(got.status, "Winsock Error (DataArrival Error (" + error + "))");
    EXPECT_FALSE(s.state().Ready);
    std::vector<std::string> lines = s.LogLines();
    EXPECT_EQ(lines[lines.size() - 4], "    Error occured: DataArrival Error (" + error + ").");
    EXPECT_EQ(lines.back(), "Winsock-Fehler (DataArrival Error (" + error + ") - 7).");
    EXPECT_FALSE(Exchange(s, kRequest).ok);
    EXPECT_EQ(s.LogLines(lines.size())[0], "Schließe noch offene Verbindung (letzter Winsock-Status: 0).");
  });
  // A header split inside its keyword is no header: the piece follows whatever the slot held, and a slot
  // with a complete reply is complete again at once.
  InFakeSession({{FakeNetwork::Reply("Hallo")}, Packets({"Total", "Bytes:5\r\nWelt!"})},
                [&](GatewaySession& s, FakeNetwork&, FakeClock&) {
                  ASSERT_TRUE(Exchange(s, kRequest).ok);
                  EXPECT_EQ(Exchange(s, kRequest), (Exchanged{true, "HalloTotal", ""}));
                  EXPECT_EQ(ReceptionLines(s).back(), End(10, 5));
                });
}

TEST(Reception, RepliesPastTheObjectsLimitFailAtOnceAndTheSlotGoesOn) {
  const std::string kAnnounced = "Reply too large (11 bytes announced, the limit is 10 bytes).";
  const std::string kArrived = "Reply too large (more than the limit of 10 bytes arrived).";
  const std::string kAnnouncedLog = "    Antwort zu gross: 11 Bytes angekündigt, erlaubt sind 10 Bytes.";
  const std::string kArrivedLog = "    Antwort zu gross: mehr als 10 Bytes empfangen.";
  struct Case {
    std::vector<std::string> chunks;
    std::string status, line;  // "" when the reply is taken
  };
  const std::vector<Case> cases = {
      {{"TotalBytes:11\r\nabc"}, kAnnounced, kAnnouncedLog},
      {{"TotalBytes:5\r\n01234567890"}, kArrived, kArrivedLog},  // surplus past the limit
      {{"TotalBytes:10\r\n0123456789"}, "", ""},                 // the limit itself is fine
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.chunks[0]);
    InFakeSession({Packets(c.chunks), {FakeNetwork::Reply("next")}},
                  [&](GatewaySession& s, FakeNetwork& net, FakeClock&) {
                    Options(s.object()).max_reply_bytes = 10;
                    const auto got = Exchange(s, kRequest);
                    EXPECT_EQ(got.ok, c.status.empty());
                    EXPECT_EQ(got.status, c.status);
                    EXPECT_EQ(s.socket().State(), platform::kSckClosed);
                    EXPECT_EQ(net.open_sockets(), 0);
                    const std::vector<std::string> lines = s.LogLines();
                    EXPECT_EQ(std::count(lines.begin(), lines.end(), c.line), c.line.empty() ? 0 : 1);
                    // The slot serves the next request as usual.
                    EXPECT_EQ(Exchange(s, kRequest), (Exchanged{true, "next", ""}));
                  });
  }
}

TEST(SocketErrors, ResolverConnectAndTransferFailuresInTheControlsWords) {
  using platform::AddressFamily;
  const platform::SocketAddress v6{AddressFamily::kIPv6, "::1", {}}, v4{AddressFamily::kIPv4, "127.0.0.1", {}};
  const std::string kRefused = "10061 - Connection is forcefully rejected";
  const std::string kReset = "10054 - Connection is reset by remote side";
  enum Fault { kNone, kSlowResolver, kAtOnce, kResetOnRead, kSendFails, kPortInUse };
  struct Case {
    const char* what;
    std::string host;                    // "dual" gives ::1, then 127.0.0.1
    std::map<std::string, int> refused;  // address: errno
    Fault fault;
    std::string error;  // "" when the exchange succeeds
    std::vector<std::string> tried;
  };
  const std::vector<Case> cases = {
      {"unknown host", "no-such-host", {}, kNone, "11001 - Authoritative answer: Host not found", {}},
      {"resolver timed out", "slow-name", {}, kSlowResolver, "11002 - Non-Authoritative answer: Host not found", {}},
      {"refused", "127.0.0.1", {{"127.0.0.1", ECONNREFUSED}}, kNone, kRefused, {"127.0.0.1"}},
      {"refused at once", "127.0.0.1", {{"127.0.0.1", ECONNREFUSED}}, kAtOnce, kRefused, {"127.0.0.1"}},
      {"IPv6 refused, IPv4 taken", "dual", {{"::1", ECONNREFUSED}}, kNone, "", {"::1", "127.0.0.1"}},
      {"both unreachable, the last failure counts",
       "dual",
       {{"::1", ECONNREFUSED}, {"127.0.0.1", ETIMEDOUT}},
       kNone,
       "10060 - Connection timed out",
       {"::1", "127.0.0.1"}},
      {"reset while reading", "127.0.0.1", {}, kResetOnRead, kReset, {"127.0.0.1"}},
      {"reset while sending", "127.0.0.1", {}, kSendFails, kReset, {"127.0.0.1"}},
      {"local port in use", "127.0.0.1", {}, kPortInUse, "10048 - Address in use", {}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    InFakeSession({{FakeNetwork::Reply("ok")}}, [&](GatewaySession& s, FakeNetwork& net, FakeClock&) {
      net.hosts["dual"] = {v6, v4};
      net.refused = c.refused;
      s.socket().RemoteHost = c.host;
      net.at_once = c.fault == kAtOnce;
      if (c.fault == kSlowResolver) net.resolver_error = {11002, "Non-Authoritative answer: Host not found"};
      if (c.fault == kResetOnRead) net.scripts = {{FakeNetwork::Reset()}};
      if (c.fault == kSendFails) net.send_error = EPIPE;
      if (c.fault == kPortInUse) net.ports_in_use = {5000}, s.socket().LocalPort = 5000;
      const size_t before = s.LogLines().size();
      const auto got = Exchange(s, kRequest);
      EXPECT_EQ(net.tried, c.tried);
      EXPECT_EQ(net.open_sockets(), 0);
      if (c.error.empty()) {
        EXPECT_EQ(got, (Exchanged{true, "ok", ""}));
        return;
      }
      EXPECT_EQ(got.status, "Winsock Error (" + c.error + ")");
      const std::string number = c.error.substr(0, 5), words = c.error.substr(8);
      const std::vector<std::string> lines = s.LogLines(before);
      EXPECT_THAT(lines, ::testing::Contains("    Winsock(1)-Error-Event (" + number + "- " + words + ")."));
      EXPECT_EQ(lines.back(), "Winsock-Fehler (" + c.error + " - 0).");
    });
  }
  InFakeSession({{FakeNetwork::Reply("ok")}}, [&](GatewaySession& s, FakeNetwork& net, FakeClock&) {
    s.socket().LocalPort = 5001;
    EXPECT_TRUE(Exchange(s, kRequest).ok);
    EXPECT_EQ(net.bound, std::vector<int32_t>{5001});
  });
}

TEST(SocketReads, StopWhileTheUnreadBytesAreAtTheLimit) {
  FakeNetwork net;
  net.scripts = {{FakeNetwork::Packet(std::string(600 * 1024, 'x'))}};
  platform::Socket socket;
  socket.SetNetwork(&net);
  socket.RemoteHost = "127.0.0.1";
  socket.Connect();
  platform::DoPendingEvents(net);
  ASSERT_EQ(socket.State(), platform::kSckConnected);
  socket.SendData("ask");
  for (int i = 0; i < 10; ++i) platform::DoPendingEvents(net);
  // Nobody takes the bytes: reading stops at 256 KiB, and goes on once some are taken.
  EXPECT_EQ(socket.PeekData().size(), 256u * 1024);
  EXPECT_EQ(socket.WantedEvents() & platform::kPollIn, 0);
  EXPECT_EQ(socket.GetData(100 * 1024).size(), 100u * 1024);
  EXPECT_NE(socket.WantedEvents() & platform::kPollIn, 0);
  platform::DoPendingEvents(net);
  EXPECT_EQ(socket.PeekData().size(), 256u * 1024);
  EXPECT_EQ(net.largest_read, 256u * 1024);
}

}  // namespace
}  // namespace halqvantor
