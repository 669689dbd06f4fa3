#include <gtest/gtest.h>

#include <algorithm>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::FakeClock;
using testing::GatewaySession;
using testing::OnFreshThread;
using testing::QuickPump;
using testing::ScriptedGateway;
using RequestExchange = testing::SessionTest;
using RequestList = testing::SessionTest;

const std::string kRequest = "^S1^,^u^,^ABA1^,^GetChannels^";

TEST_F(RequestExchange, FramingAndTheLogOfOneGoodExchange) {
  Answer("Status: OK\r\nEins");
  const std::string request = s().impl().BuildRequest(
      {Variant("GetSegmentText"), Variant(""), Variant(int32_t{42}), Variant::null(), Variant("Müller^,^x")});
  // No escaping; a Null is an empty field; the password goes encoded.
  EXPECT_EQ(request, "^S1^,^u^,^ABA1^,^GetSegmentText^,^^,^42^,^^,^Müller^,^x^");
  const size_t before = s().LogLines().size();
  std::string response, status = "old";
  ASSERT_TRUE(s().impl().RequestExchange(request, response, status)) << status;
  EXPECT_EQ(response, "Status: OK\r\nEins");
  EXPECT_EQ(status, "");
  // On the wire: Windows-1252, one byte per character, no terminator.
  EXPECT_EQ(Requests(), std::vector<std::string>{"^S1^,^u^,^ABA1^,^GetSegmentText^,^^,^42^,^^,^M\xFCller^,^x^"});
  EXPECT_EQ(s().LogLines(before),
            (std::vector<std::string>{
                "Verbindungsaufbau.", "  Starte Warteschleife für Anfrageergebnis.", "    Winsock(1)-Connect-Event.",
                "  Beende Warteschleife für Anfrageergebnis.", "Senden der Anfrage an Vantor-Server (" + request + ")",
                "  Starte Warteschleife für Anfrageergebnis.", "    Winsock(1)-DataArrival-Event Start.",
                "    First packet received (mode: STRING).",
                "    Winsock(1)-DataArrival-Event End (16 of 16 bytes received).",
                "  Beende Warteschleife für Anfrageergebnis.", "Trennen der Verbindung (letzter Status: 7).",
                "Weitergabe Abfrageergebnis an IIS (Status: OK", "Eins)"}));
  EXPECT_EQ(s().socket().State(), platform::kSckClosed);
}

TEST_F(RequestExchange, ANestedRequestIsRefusedOnceAndTheNextOneRuns) {
  gateway_.Script({ScriptedGateway::Await(), testing::Answer("Status: OK\r\nA")});
  Answer("Status: OK\r\nB");
  s();  // Init'ed before the clock hook looks at the socket
  std::string nested_response = "untouched", nested_status;
  bool nested = false;
  // Something running inside the first request's wait starts a second request on the same object.
  clock_.on_read = [&](FakeClock&) {
    if (nested || s().socket().State() != platform::kSckConnected) return;
    nested = true;
    EXPECT_FALSE(s().impl().RequestExchange(kRequest, nested_response, nested_status));
    gateway_.Continue();
  };
  std::string response, status;
  EXPECT_TRUE(s().impl().RequestExchange(kRequest, response, status)) << status;
  EXPECT_EQ(response, "Status: OK\r\nA");
  EXPECT_EQ(nested_status, "Winsock Error (previous request not finished properly).");
  EXPECT_EQ(nested_response, "untouched");
  const std::vector<std::string> lines = s().LogLines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "Serveranfrage wegen noch laufender Anfrage abgebrochen."), 1);
  EXPECT_TRUE(s().impl().RequestExchange(kRequest, response, status)) << status;
  EXPECT_EQ(response, "Status: OK\r\nB");
  clsVantor without_slot;
  EXPECT_FALSE(VantorAccess::Of(without_slot).RequestExchange(kRequest, response, status));
  EXPECT_EQ(status, "General error connecting to server (9 - Subscript out of range).");
}

TEST(WaitForReply, TimeOutsCountClockSeconds) {
  QuickPump pump;
  {
    // The gateway's close plays no part: the wait ends with the time-out, 5 clock seconds and a little on.
    FakeClock clock;
    ScriptedGateway gateway;
    gateway.Script({ScriptedGateway::Send("TotalBytes:10\r\nHal"), ScriptedGateway::Close()});
    OnFreshThread([&] {
      GatewaySession s(gateway.port());
      int seconds = 0;
      clock.on_read = [&](FakeClock& c) {
        if (s.socket().State() == platform::kSckClosing) c.AdvanceSeconds(1), ++seconds;
      };
      std::string response, status;
      EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
      EXPECT_EQ(status, "Timeout of 5 seconds occured waiting for server response.");
      const std::vector<std::string> lines = s.LogLines();
      EXPECT_NE(std::find(lines.begin(), lines.end(), "    Winsock(1)-Close-Event."), lines.end());
      EXPECT_EQ(lines.back(), "Timeout-Fehler (last winsock state: 8).");
      EXPECT_EQ(s.socket().State(), platform::kSckClosed);
      EXPECT_GE(seconds, 6);
      EXPECT_LE(seconds, 9);
    });
  }
  {
    // A time-out of 0 ends at the first look after the second changed.
    FakeClock clock;
    ScriptedGateway gateway;
    gateway.Script({ScriptedGateway::Silence()});
    OnFreshThread([&] {
      GatewaySession s(gateway.port());
      s.object().lngREQUESTTIMEOUT = 0;
      s.object().strDebugLogPath = "";  // only the waits read the clock
      int reads = 0;
      clock.on_read = [&](FakeClock& c) {
        if (s.socket().State() == platform::kSckConnected && ++reads == 6) c.AdvanceSeconds(1);
      };
      std::string response, status;
      EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
      EXPECT_EQ(status, "Timeout of 0 seconds occured waiting for server response.");
      EXPECT_EQ(reads, 6);
    });
  }
  {
    // A wait that starts before midnight cannot time out after it.
    FakeClock clock({{2002, 11, 15}, 23, 59, 58});
    ScriptedGateway gateway;
    gateway.Script({ScriptedGateway::Await(), testing::Answer("Status: OK")});
    OnFreshThread([&] {
      GatewaySession s(gateway.port());
      s.object().lngREQUESTTIMEOUT = 2;
      int advanced = 0;
      clock.on_read = [&](FakeClock& c) {
        if (gateway.Requests() != std::vector<std::string>{kRequest}) return;  // until the reply wait
        c.AdvanceSeconds(5);
        if (++advanced == 5) gateway.Continue();  // 00:00:23
      };
      std::string response, status;
      EXPECT_TRUE(s.impl().RequestExchange(kRequest, response, status)) << status;
      EXPECT_GE(advanced, 5);
    });
  }
}

TEST_F(RequestList, RowsAfterTheStatusLine) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> good = {
      {"Status: OK", {}},
      {"Status: OK\r\n", {}},
      {"Status: OK\r\na", {"a"}},
      {"Status: OK\r\nEins\r\n\r\nDrei\r\n", {"Eins", "", "Drei"}},
      {"Status: OK\r\nx\ry\r", {"x\ry\r"}},
  };
  const std::vector<std::pair<std::string, std::string>> bad = {
      {"Status: Error 3 Archiv unbekannt\r\nEins", "Error 3 Archiv unbekannt"},
      {"Status: ok", "ok"},
      {"", ""},  // shorter than seven characters: the whole line
      {"Stat\r\nEins", "Stat"},
  };
  for (const auto& c : good) Answer(c.first);
  for (const auto& c : bad) Answer(c.first);
  clsVantor::Impl& d = s().impl();
  for (const auto& [payload, rows] : good) {
    d.ResultCursor = 1;
    std::string status = "old";
    EXPECT_TRUE(d.RequestList(kRequest, status)) << payload;
    EXPECT_EQ(status, "");  // the exchange cleared it
    EXPECT_EQ(d.ResultRows, rows);
    EXPECT_EQ(d.ResultCount, static_cast<int32_t>(rows.size()));
    EXPECT_EQ(d.ResultCursor, 0);
  }
  for (const auto& [payload, text] : bad) {
    std::string status;
    EXPECT_FALSE(d.RequestList(kRequest, status)) << payload;
    EXPECT_EQ(status, text);
    EXPECT_TRUE(d.ResultRows.empty());
    EXPECT_EQ(d.ResultCount, 0);
  }
}

TEST(BusyAnswers, AreRetriedEveryThreeSecondsUntilTheRetryPeriodEnds) {
  QuickPump pump;
  for (const auto& [code, retried] :
       std::vector<std::pair<std::string, bool>>{{"1", true}, {"12", true}, {"7", true}, {"2", false}}) {
    FakeClock clock;
    ScriptedGateway gateway;
    gateway.Script({testing::Answer("Status: Error " + code + " x\r\n")});
    OnFreshThread([&] {
      GatewaySession s(gateway.port());
      s.object().lngREQUESTTIMEOUT = 30;
      s.object().strDebugLogPath = "";
      // Time passes between the exchanges only, a second per look at the clock.
      clock.on_read = [&](FakeClock& c) {
        if (s.socket().State() == platform::kSckClosed) c.AdvanceSeconds(1);
      };
      std::string status;
      EXPECT_FALSE(s.impl().RequestList(kRequest, status));
      EXPECT_EQ(status, "Error " + code + " x");
      // Pause(3) reads the clock 4 times, the retry test once: 5 seconds a try, until 30 have passed.
      EXPECT_EQ(gateway.connections(), retried ? 7 : 1) << code;
    });
  }
  FakeClock clock;
  ScriptedGateway gateway;
  gateway.Script({testing::Answer("Status: Error 1 busy")});
  gateway.Script({testing::Answer("Status: OK\r\nrow")});
  OnFreshThread([&] {
    GatewaySession s(gateway.port());
    clock.on_read = [](FakeClock& c) { c.AdvanceSeconds(1); };
    s.object().lngREQUESTTIMEOUT = 1000;
    std::string status;
    EXPECT_TRUE(s.impl().RequestList(kRequest, status)) << status;
    EXPECT_EQ(s.impl().ResultRows, std::vector<std::string>{"row"});
  });
}

TEST_F(RequestList, MalformedRepliesEndWithinTheTimeOut) {
  const std::vector<std::string> replies = {"",
                                            "TotalBytes:",
                                            "TotalBytes:\r\n",
                                            "TotalBytes:-1\r\n",
                                            "TotalBytes:1e3\r\nStatus: OK",
                                            "TotalBytes:&HFF\r\nStatus: OK\r\n",
                                            "TotalBytes:2147483647\r\nStatus: OK\r\nrow",
                                            "TotalBytes:4\r\n\r\n\r\n",
                                            "TotalBytes:5\r\n\xFF\xFE\r\n\x00",
                                            "\r\n\r\nTotalBytes:3\r\nabc",
                                            std::string("\0\1TotalBytes:1\r\n", 17)};
  QuickPump pump;
  for (size_t i = 0; i < replies.size(); ++i) {
    gateway_.Script({ScriptedGateway::Send(replies[i]), i % 2 ? ScriptedGateway::Reset() : ScriptedGateway::Close()});
  }
  Answer("Status: OK\r\nok");
  s().object().lngREQUESTTIMEOUT = 2;
  s().object().strDebugLogPath = "";
  clock_.on_read = [&](FakeClock& c) {
    if (s().socket().State() == platform::kSckClosing) c.AdvanceSeconds(1);
  };
  for (size_t i = 0; i <= replies.size(); ++i) {
    std::string status;
    const bool ok = s().impl().RequestList(kRequest, status);
    EXPECT_EQ(s().impl().ResultCount, static_cast<int32_t>(s().impl().ResultRows.size()));
    EXPECT_FALSE(s().impl().RequestPending);
    if (i == replies.size()) {
      EXPECT_TRUE(ok) << status;  // and the link still works
    }
  }
}

TEST(Pause, LastsWholeSecondsOfTheClockAlsoOverMidnight) {
  FakeClock clock({{2002, 11, 15}, 23, 59, 58});
  clock.on_read = [](FakeClock& c) { c.AdvanceSeconds(1); };
  clsVantor v;
  VantorAccess::Of(v).Pause(3);
  EXPECT_EQ(clock.reads(), 4);  // 23:59:59 at the start, then 00:00:00, 00:00:01, 00:00:02
}

}  // namespace
}  // namespace halqvantor
