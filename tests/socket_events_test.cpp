#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <tuple>

#include "link/socket_events.h"
#include "platform/files.h"
#include "platform/socket.h"
#include "support/fake_clock.h"
#include "support/gateway_session.h"
#include "support/scripted_gateway.h"
#include "support/temp_dir.h"

namespace halqvantor {
namespace {

using testing::FakeClock;
using testing::GatewaySession;
using testing::OnFreshThread;
using testing::ScriptedGateway;
using testing::TempDir;
using Step = ScriptedGateway::Step;

const std::string kRequest = "^S1^,^u^,^p^,^Test^";

// Each chunk is sent on its own, the next one only after the component has taken the one before, so that
// every chunk is one DataArrival.
std::vector<Step> Chunks(const std::vector<std::string>& chunks) {
  std::vector<Step> steps;
  for (size_t i = 0; i < chunks.size(); ++i) {
    if (i > 0) steps.push_back(ScriptedGateway::Await());
    steps.push_back(ScriptedGateway::Send(chunks[i]));
  }
  return steps;
}

// Lets the gateway go on whenever the slot's reception has moved on; the component looks at the clock in
// every wait pass and after each of its log lines.
void ReleaseOnProgress(FakeClock& clock, GatewaySession& s, ScriptedGateway& gateway) {
  auto snapshot = [&s] {
    const SlotState& st = s.state();
    return std::make_tuple(st.BytesReceived, st.BytesToReceive, st.Response.size());
  };
  auto last = std::make_shared<decltype(snapshot())>(snapshot());
  clock.on_read = [&gateway, snapshot, last](FakeClock&) {
    const auto now = snapshot();
    if (now != *last) {
      *last = now;
      gateway.Continue();
    }
  };
}

// The reception lines of the log: packets and the end of each DataArrival.
std::vector<std::string> ReceptionLines(const std::vector<std::string>& lines) {
  std::vector<std::string> out;
  for (const std::string& l : lines) {
    if (l.find("packet received") != std::string::npos || l.find("Packet received") != std::string::npos ||
        l.find("DataArrival-Event End") != std::string::npos || l.find("Error occured") != std::string::npos) {
      out.push_back(l);
    }
  }
  return out;
}

struct PacketCase {
  std::vector<std::string> chunks;
  std::string response;
  int32_t received;
  int32_t announced;
  std::vector<std::string> lines;
};

TEST(Reception, RepliesEndWhenTheAnnouncedBytesAreIn) {
  const std::vector<PacketCase> cases = {
      {{"TotalBytes:5\r\nHallo"},
       "Hallo", 5, 5,
       {"    First packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (5 of 5 bytes received)."}},
      {{"TotalBytes:5\r\nHa", "llo"},
       "Hallo", 5, 5,
       {"    First packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (2 of 5 bytes received).",
        "    Next packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (5 of 5 bytes received)."}},
      {{"TotalBytes:10\r\n", "Hallo", " Welt"},
       "Hallo Welt", 10, 10,
       {"    First packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (0 of 10 bytes received).",
        "    Next packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (5 of 10 bytes received).",
        "    Next packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (10 of 10 bytes received)."}},
      // Surplus bytes stay in the response.
      {{"TotalBytes:5\r\nHallo!!"},
       "Hallo!!", 7, 5,
       {"    First packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (7 of 5 bytes received)."}},
      // Counts are bytes; the text is Windows-1252 turned into UTF-8.
      {{"TotalBytes:3\r\n\xE4\x80x"},
       "\xC3\xA4\xE2\x82\xAC" "x", 3, 3,
       {"    First packet received (mode: STRING).", "    Winsock(1)-DataArrival-Event End (3 of 3 bytes received)."}},
  };
  for (const PacketCase& c : cases) {
    SCOPED_TRACE(c.response);
    FakeClock clock;
    ScriptedGateway gateway;
    gateway.Script(Chunks(c.chunks));
    OnFreshThread([&] {
      GatewaySession s(gateway);
      ReleaseOnProgress(clock, s, gateway);
      std::string response, status;
      EXPECT_TRUE(s.impl().RequestExchange(kRequest, response, status)) << status;
      EXPECT_EQ(response, c.response);
      EXPECT_EQ(status, "");
      EXPECT_EQ(s.state().BytesReceived, c.received);
      EXPECT_EQ(s.state().BytesToReceive, c.announced);
      EXPECT_TRUE(s.state().Ready);
      EXPECT_EQ(ReceptionLines(s.LogLines()), c.lines);
    });
  }
}

TEST(Reception, HeadersThatAreNotRecognised) {
  struct Case {
    std::vector<std::string> chunks;
    std::string status;
  };
  const std::vector<Case> failing = {
      {{"TotalBytes:5", "\r\nHallo"}, "Winsock Error (DataArrival Error (5 - Invalid procedure call or argument))"},
      {{"TotalBytes:abc\r\nHallo"}, "Winsock Error (DataArrival Error (13 - Type mismatch))"},
      {{"TotalBytes:99999999999\r\nHallo"}, "Winsock Error (DataArrival Error (6 - Overflow))"},
  };
  for (const Case& c : failing) {
    SCOPED_TRACE(c.chunks[0]);
    FakeClock clock;
    ScriptedGateway gateway;
    gateway.Script(Chunks(c.chunks));
    OnFreshThread([&] {
      GatewaySession s(gateway);
      std::string response, status;
      EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
      EXPECT_EQ(status, c.status);
      EXPECT_FALSE(s.state().Ready);
      const std::string inner = c.status.substr(15, c.status.size() - 16);
      const std::vector<std::string> lines = s.LogLines();
      EXPECT_NE(std::find(lines.begin(), lines.end(), "    Error occured: " + inner + "."), lines.end());
      EXPECT_EQ(lines.back(), "Winsock-Fehler (" + inner + " - 7).");
    });
  }

  // A header split inside its keyword is no header: the first piece is a following packet of whatever the
  // slot held, and a slot that holds a complete reply is complete again at once.
  FakeClock clock;
  ScriptedGateway gateway;
  gateway.Script({ScriptedGateway::Send(ScriptedGateway::Reply("Hallo"))});
  gateway.Script(Chunks({"Total", "Bytes:5\r\nWelt!"}));
  OnFreshThread([&] {
    GatewaySession s(gateway);
    std::string response, status;
    ASSERT_TRUE(s.impl().RequestExchange(kRequest, response, status));
    ASSERT_TRUE(s.impl().RequestExchange(kRequest, response, status)) << status;
    EXPECT_EQ(response, "HalloTotal");
    EXPECT_EQ(s.state().BytesReceived, 10);
    EXPECT_EQ(ReceptionLines(s.LogLines()).back(), "    Winsock(1)-DataArrival-Event End (10 of 5 bytes received).");
  });
}

TEST(Reception, CountsAreChecked) {
  SlotState slot;
  slot.BytesToReceive = 5;
  slot.BytesReceived = INT32_MAX - 1;
  slot.Response = "old";
  try {
    ReceiveNextPacket(slot, "ab");
    ADD_FAILURE() << "no overflow";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), 6);
  }
  EXPECT_EQ(slot.BytesReceived, INT32_MAX - 1);
  EXPECT_EQ(slot.Response, "old");

  // Blanks and a sign are read as the length's conversion reads them; a negative length is complete.
  ReceiveFirstPacket(slot, "TotalBytes: -3 \r\n");
  EXPECT_EQ(slot.BytesToReceive, -3);
  EXPECT_EQ(slot.BytesReceived, 0);
  EXPECT_EQ(slot.Response, "");
  EXPECT_FALSE(IsFirstPacket("TotalBytes"));
  EXPECT_FALSE(IsFirstPacket("totalBytes:5\r\n"));
}

TEST(SocketErrors, RefusedConnectionAndUnknownHost) {
  struct Case {
    std::string host;
    int port;
    std::string error;
  };
  const std::vector<Case> cases = {
      {"127.0.0.1", ScriptedGateway::UnusedPort(), "10061 - Connection is forcefully rejected"},
      {"no-such-host.invalid", 4711, "11001 - Authoritative answer: Host not found"},
  };
  FakeClock clock;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.host);
    OnFreshThread([&] {
      GatewaySession s(c.port);
      s.object().strREMOTEHOST = c.host;
      s.form().ctlWinsock(s.slot()).RemoteHost = c.host;
      const size_t before = s.LogLineCount();
      std::string response = "untouched", status;
      EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
      EXPECT_EQ(status, "Winsock Error (" + c.error + ")");
      EXPECT_EQ(response, "");
      EXPECT_FALSE(s.impl().RequestPending);
      const std::string number = c.error.substr(0, 5);
      const std::string words = c.error.substr(8);
      EXPECT_EQ(s.LogLines(before), (std::vector<std::string>{
                                        "Verbindungsaufbau.",
                                        "  Starte Warteschleife für Anfrageergebnis.",
                                        "    Winsock(1)-Error-Event (" + number + "- " + words + ").",
                                        "  Beende Warteschleife für Anfrageergebnis.",
                                        "  Winsock-Fehler (" + c.error + ")",
                                        "Winsock-Fehler (" + c.error + " - 0).",
                                    }));
      EXPECT_EQ(s.form().ctlWinsock(s.slot()).State(), platform::kSckClosed);
    });
  }
}

TEST(SocketErrors, ResetAndEarlyCloseDuringTheReply) {
  {
    FakeClock clock;
    ScriptedGateway gateway;
    gateway.Script({ScriptedGateway::Send("TotalBytes:10\r\nHal"), ScriptedGateway::Await(), ScriptedGateway::Reset()});
    OnFreshThread([&] {
      GatewaySession s(gateway);
      ReleaseOnProgress(clock, s, gateway);
      std::string response, status;
      EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
      EXPECT_EQ(status, "Winsock Error (10054 - Connection is reset by remote side)");
      EXPECT_EQ(s.state().BytesReceived, 3);
      EXPECT_EQ(s.form().ctlWinsock(s.slot()).State(), platform::kSckClosed);
    });
  }
  {
    // The gateway's close plays no part in completeness: the wait runs into its time-out.
    FakeClock clock;
    ScriptedGateway gateway;
    gateway.Script({ScriptedGateway::Send("TotalBytes:10\r\nHal"), ScriptedGateway::Close()});
    testing::QuickPump pump;
    OnFreshThread([&] {
      GatewaySession s(gateway);
      platform::Socket& socket = s.form().ctlWinsock(s.slot());
      clock.on_read = [&socket](FakeClock& c) {
        if (socket.State() == platform::kSckClosing) c.AdvanceSeconds(1);
      };
      std::string response, status;
      EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
      EXPECT_EQ(status, "Timeout of 5 seconds occured waiting for server response.");
      const std::vector<std::string> lines = s.LogLines();
      EXPECT_NE(std::find(lines.begin(), lines.end(), "    Winsock(1)-Close-Event."), lines.end());
      EXPECT_EQ(lines.back(), "Timeout-Fehler (last winsock state: 8).");
      EXPECT_EQ(socket.State(), platform::kSckClosed);
    });
  }
}

// A file system whose binary files fail every write with "Disk full".
class FullDisk : public platform::FileSystemWrapper {
 public:
  FullDisk() : FileSystemWrapper(&platform::CurrentFileSystem()), previous_(platform::InstallFileSystem(this)) {}
  ~FullDisk() override { platform::InstallFileSystem(previous_ == Default() ? nullptr : previous_); }
  int OpenForBinaryWrite(const std::string&, std::unique_ptr<platform::WritableFile>* file) override {
    struct Full : platform::WritableFile {
      int Write(std::string_view) override { return 61; }
      int Close() override { return 0; }
    };
    *file = std::make_unique<Full>();
    return 0;
  }

 private:
  platform::FileSystem* previous_;
};

// Byte mode as the blob transfer prepares it: counters set, the file open under the slot's File number.
int PrepareByteMode(GatewaySession& s, const std::string& path, int32_t expected) {
  const int number = platform::FreeFile();
  platform::OpenFileForBinaryWrite(number, path);
  s.form().SetMode(s.slot(), "BYTE");
  s.form().SetBytesReceived(s.slot(), 0);
  s.form().SetBytesToReceive(s.slot(), expected);
  s.form().SetFile(s.slot(), static_cast<uint8_t>(number));
  return number;
}

TEST(ByteMode, EveryByteGoesIntoTheFileWithoutAHeader) {
  TempDir dir;
  const std::string path = dir.File("blob.bin");
  testing::WriteFile(path, "0123456789ABCDEF");
  FakeClock clock;
  ScriptedGateway gateway;
  gateway.Script(Chunks({"TotalBytes:", std::string("\x00\xFF\r\n", 4)}));
  OnFreshThread([&] {
    GatewaySession s(gateway);
    const int number = PrepareByteMode(s, path, 15);
    ReleaseOnProgress(clock, s, gateway);
    std::string status;
    EXPECT_TRUE(s.impl().RunRoundTrip(kRequest, kRequest, status)) << status;
    platform::CloseFile(number);
    EXPECT_EQ(s.state().BytesReceived, 15);
    const std::vector<std::string> lines = ReceptionLines(s.LogLines());
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "    Packet received (mode: BYTE).",
                         "    Winsock(1)-DataArrival-Event End (11 of 15 bytes received).",
                         "    Packet received (mode: BYTE).",
                         "    Winsock(1)-DataArrival-Event End (15 of 15 bytes received).",
                     }));
  });
  // Written from the first byte on; the longer old file keeps its tail.
  EXPECT_EQ(testing::ReadFile(path), std::string("TotalBytes:\x00\xFF\r\nF", 16));
}

TEST(ByteMode, AFailedWriteIsAFileErrorAndTheBytesStillCount) {
  FakeClock clock;
  FullDisk disk;
  ScriptedGateway gateway;
  gateway.Script({ScriptedGateway::Send("abc")});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    const int number = PrepareByteMode(s, "/nowhere/blob.bin", 3);
    std::string status;
    EXPECT_FALSE(s.impl().RunRoundTrip(kRequest, kRequest, status));
    platform::CloseFile(number);
    EXPECT_EQ(status, "Winsock Error (File Error (61 - Disk full))");
    EXPECT_EQ(s.state().BytesReceived, 3);
    EXPECT_TRUE(s.state().Ready);
  });
}

TEST(FileNumbers, OpenWriteCloseByNumber) {
  TempDir dir;
  const int first = platform::FreeFile();
  EXPECT_EQ(first, 1);
  platform::OpenFileForBinaryWrite(first, dir.File("a"));
  EXPECT_EQ(platform::FreeFile(), 2);
  auto error_of = [](auto call) {
    try {
      call();
    } catch (const RuntimeError& e) {
      return e.number();
    }
    return 0;
  };
  EXPECT_EQ(error_of([&] { platform::OpenFileForBinaryWrite(first, dir.File("b")); }), 55);
  EXPECT_EQ(error_of([&] { platform::OpenFileForBinaryWrite(256, dir.File("b")); }), 52);
  EXPECT_EQ(error_of([&] { platform::WriteToFile(2, "x"); }), 52);
  EXPECT_EQ(error_of([&] { platform::OpenFileForBinaryWrite(2, dir.File("missing/b")); }), 76);
  EXPECT_FALSE(platform::IsFileOpen(2));
  platform::WriteToFile(first, "ab");
  platform::WriteToFile(first, "cd");
  platform::CloseFile(first);
  platform::CloseFile(first);  // closing a closed number is no error
  EXPECT_EQ(testing::ReadFile(dir.File("a")), "abcd");
  EXPECT_EQ(platform::FreeFile(), 1);
}

}  // namespace
}  // namespace halqvantor
