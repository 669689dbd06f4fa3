#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <tuple>

#include "platform/files.h"
#include "support/installed_file_system.h"
#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::Answer;
using testing::FakeClock;
using testing::GatewaySession;
using testing::Exchange;
using testing::InFreshSession;
using testing::ScriptedGateway;

const std::string kRequest = "^S1^,^u^,^p^,^Test^";

// One Send per chunk, each after the component has taken the one before: one DataArrival per chunk.
std::vector<ScriptedGateway::Step> Chunks(const std::vector<std::string>& chunks) {
  std::vector<ScriptedGateway::Step> steps;
  for (const std::string& c : chunks) {
    if (!steps.empty()) steps.push_back(ScriptedGateway::Await());
    steps.push_back(ScriptedGateway::Send(c));
  }
  return steps;
}

// Lets the gateway go on whenever the slot's reception has moved on (the component reads the clock in
// every wait pass and for every log line).
void ReleaseOnProgress(FakeClock& clock, GatewaySession& s, ScriptedGateway& gateway) {
  auto now = [&s] {
    return std::make_tuple(s.state().BytesReceived, s.state().BytesToReceive, s.state().Response.size());
  };
  clock.on_read = [&gateway, now, last = now()](FakeClock&) mutable {
    if (now() != last) gateway.Continue();
    last = now();
  };
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
      {{"TotalBytes:5\r\nHallo"}, "Hallo", {kFirst, End(5, 5)}},
      {{"TotalBytes:5\r\nHa", "llo"}, "Hallo", {kFirst, End(2, 5), kNext, End(5, 5)}},
      {{"TotalBytes:6\r\n", "Hal", "lo!"}, "Hallo!", {kFirst, End(0, 6), kNext, End(3, 6), kNext, End(6, 6)}},
      {{"TotalBytes:5\r\nHallo!!"}, "Hallo!!", {kFirst, End(7, 5)}},  // the surplus stays
      {{"TotalBytes:2\r\n\xE4\x80"}, "ä€", {kFirst, End(2, 2)}},      // bytes counted, text in UTF-8
      // Only the first packet after the request carries the header: a later one that looks like it is payload.
      {{"TotalBytes:19\r\nab", "TotalBytes:3\r\nxyz"},
       "abTotalBytes:3\r\nxyz",
       {kFirst, End(2, 19), kNext, End(19, 19)}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.response);
    InFreshSession({Chunks(c.chunks)}, [&](GatewaySession& s, ScriptedGateway& gateway, FakeClock& clock) {
      ReleaseOnProgress(clock, s, gateway);
      const auto got = Exchange(s, kRequest);
      EXPECT_TRUE(got.ok) << got.status;
      EXPECT_EQ(got.response, c.response);
      EXPECT_TRUE(s.state().Ready);
      EXPECT_EQ(ReceptionLines(s), c.lines);
    });
  }
}

TEST(Reception, HeadersThatAreNotRecognised) {
  for (const auto& [reply, error] : std::vector<std::pair<std::string, std::string>>{
           {"TotalBytes:5", "5 - Invalid procedure call or argument"},  // no CR LF (yet)
           {"TotalBytes:abc\r\nHallo", "13 - Type mismatch"},
           {"TotalBytes:99999999999\r\nHallo", "6 - Overflow"}}) {
    InFreshSession({{ScriptedGateway::Send(reply), ScriptedGateway::Silence()}},
                   [&](GatewaySession& s, ScriptedGateway&, FakeClock&) {
                     const auto got = Exchange(s, kRequest);
                     EXPECT_FALSE(got.ok);
                     EXPECT_EQ(got.status, "Winsock Error (DataArrival Error (" + error + "))");
                     EXPECT_FALSE(s.state().Ready);
                     std::vector<std::string> lines = s.LogLines();
                     EXPECT_EQ(lines[lines.size() - 4], "    Error occured: DataArrival Error (" + error + ").");
                     EXPECT_EQ(lines.back(), "Winsock-Fehler (DataArrival Error (" + error + ") - 7).");
                     // The connection stays open; the next request closes it first.
                     EXPECT_FALSE(Exchange(s, kRequest).ok);
                     EXPECT_EQ(s.LogLines(lines.size())[0],
                               "Schließe noch offene Verbindung (letzter Winsock-Status: 0).");
                   });
  }
  // A header split inside its keyword is no header: the piece follows whatever the slot held, and a slot
  // with a complete reply is complete again at once.
  InFreshSession({{Answer("Hallo")}, Chunks({"Total", "Bytes:5\r\nWelt!"})},
                 [&](GatewaySession& s, ScriptedGateway&, FakeClock&) {
                   ASSERT_TRUE(Exchange(s, kRequest).ok);
                   const auto got = Exchange(s, kRequest);
                   ASSERT_TRUE(got.ok) << got.status;
                   EXPECT_EQ(got.response, "HalloTotal");
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
      {{"TotalBytes:10\r\n012345", "67890"}, kArrived, kArrivedLog},
      {{"TotalBytes:10\r\n0123456789"}, "", ""},  // the limit itself is fine
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.chunks[0]);
    InFreshSession({Chunks(c.chunks), {Answer("next")}}, [&](GatewaySession& s, ScriptedGateway& gateway,
                                                             FakeClock& clock) {
      Options(s.object()).max_reply_bytes = 10;
      ReleaseOnProgress(clock, s, gateway);
      const auto got = Exchange(s, kRequest);
      EXPECT_EQ(got.ok, c.status.empty());
      EXPECT_EQ(got.status, c.status);
      EXPECT_EQ(s.socket().State(), platform::kSckClosed);
      const std::vector<std::string> lines = s.LogLines();
      EXPECT_EQ(std::count(lines.begin(), lines.end(), c.line), c.line.empty() ? 0 : 1);
      // The slot serves the next request as usual.
      const auto next = Exchange(s, kRequest);
      EXPECT_TRUE(next.ok) << next.status;
      EXPECT_EQ(next.response, "next");
    });
  }
}

TEST(SocketErrors, RefusedConnectionAndUnknownHost) {
  for (const auto& [host, number, words] : std::vector<std::tuple<std::string, std::string, std::string>>{
           {"127.0.0.1", "10061", "Connection is forcefully rejected"},
           {"no-such-host.invalid", "11001", "Authoritative answer: Host not found"}}) {
    InFreshSession({}, [&](GatewaySession& s, ScriptedGateway&, FakeClock&) {
      s.socket().RemotePort = ScriptedGateway::UnusedPort();
      s.socket().RemoteHost = host;
      const size_t before = s.LogLines().size();
      const std::string error = number + " - " + words;
      EXPECT_EQ(Exchange(s, kRequest).status, "Winsock Error (" + error + ")");
      EXPECT_EQ(s.LogLines(before),
                (std::vector<std::string>{"Verbindungsaufbau.", "  Starte Warteschleife für Anfrageergebnis.",
                                          "    Winsock(1)-Error-Event (" + number + "- " + words + ").",
                                          "  Beende Warteschleife für Anfrageergebnis.",
                                          "  Winsock-Fehler (" + error + ")", "Winsock-Fehler (" + error + " - 0)."}));
    });
  }
}

// A file system whose binary files fail every write with "Disk full".
struct FullDisk : testing::InstalledFileSystem {
  int OpenForBinaryWrite(const std::string&, std::unique_ptr<platform::WritableFile>* file) override {
    struct Full : platform::WritableFile {
      int Write(std::string_view) override { return 61; }
      int Close() override { return 0; }
    };
    *file = std::make_unique<Full>();
    return 0;
  }
};

TEST(ByteMode, EveryByteGoesIntoTheFileOpenUnderTheSlotsNumber) {
  testing::TempDir dir;
  const std::string path = dir.File("blob.bin");
  testing::WriteFile(path, "0123456789ABCDEF");
  auto run = [&](GatewaySession& s, ScriptedGateway& gateway, FakeClock& clock, const std::string& file,
                 int32_t expected, std::string& status) {
    const int number = platform::FreeFile();
    platform::OpenFileForBinaryWrite(number, file);
    s.form().SetMode(s.slot(), ReceptionMode::kByte);
    s.form().SetBytesReceived(s.slot(), 0);
    s.form().SetBytesToReceive(s.slot(), expected);
    s.form().SetFile(s.slot(), static_cast<uint8_t>(number));
    ReleaseOnProgress(clock, s, gateway);
    const bool ok = s.impl().RunRoundTrip(kRequest, kRequest, status);
    platform::CloseFile(number);
    return ok;
  };
  InFreshSession({Chunks({"TotalBytes:", std::string("\0\xFF\r\n", 4)}), {ScriptedGateway::Send("abc")}},
                 [&](GatewaySession& s, ScriptedGateway& gateway, FakeClock& clock) {
                   std::string status;
                   EXPECT_TRUE(run(s, gateway, clock, path, 15, status)) << status;
                   EXPECT_EQ(ReceptionLines(s),
                             (std::vector<std::string>{"    Packet received (mode: BYTE).", End(11, 15),
                                                       "    Packet received (mode: BYTE).", End(15, 15)}));
                   // A failing write is a file error; the bytes count all the same.
                   FullDisk disk;
                   EXPECT_FALSE(run(s, gateway, clock, "/nowhere/blob.bin", 3, status));
                   EXPECT_EQ(status, "Winsock Error (File Error (61 - Disk full))");
                   EXPECT_EQ(s.state().BytesReceived, 3);
                 });
  // Written from the first byte on: the longer old file keeps its tail.
  EXPECT_EQ(testing::ReadFile(path), std::string("TotalBytes:\0\xFF\r\nF", 16));
}

}  // namespace
}  // namespace halqvantor
