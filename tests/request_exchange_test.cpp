#include <gtest/gtest.h>

#include <algorithm>

#include "link/request_exchange.h"
#include "platform/socket.h"
#include "support/fake_clock.h"
#include "support/gateway_session.h"
#include "support/scripted_gateway.h"

namespace halqvantor {
namespace {

using testing::FakeClock;
using testing::GatewaySession;
using testing::OnFreshThread;
using testing::QuickPump;
using testing::ScriptedGateway;

const std::string kRequest = "^S1^,^u^,^ABA1^,^GetChannels^";

ScriptedGateway::Step Answer(std::string_view payload) { return ScriptedGateway::Send(ScriptedGateway::Reply(payload)); }

// Seconds since midnight of a log line's time stamp ("DD.MM.YYYY hh:mm:ss").
int StampSeconds(const std::string& raw_line) {
  return std::stoi(raw_line.substr(11, 2)) * 3600 + std::stoi(raw_line.substr(14, 2)) * 60 +
         std::stoi(raw_line.substr(17, 2));
}

TEST(RequestFraming, FieldsInOrderWithTheEncodedPasswordAndEmptyFields) {
  FakeClock clock;
  ScriptedGateway gateway;
  gateway.Script({Answer("Status: OK")});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    const std::string request = s.impl().BuildRequest(
        {Variant("GetSegmentText"), Variant(""), Variant(int32_t{42}), Variant::null(), Variant("Müller^,^x")});
    // Fields are neither escaped nor checked; a Null is an empty field.
    EXPECT_EQ(request, "^S1^,^u^,^ABA1^,^GetSegmentText^,^^,^42^,^^,^Müller^,^x^");
    std::string response, status;
    ASSERT_TRUE(s.impl().RequestExchange(request, response, status)) << status;
    // On the wire: Windows-1252, one byte per character, no terminator.
    EXPECT_EQ(gateway.Requests(), std::vector<std::string>{"^S1^,^u^,^ABA1^,^GetSegmentText^,^^,^42^,^^,^M\xFCller^,^x^"});

    s.object().strEASYPwd = "";
    s.object().strSessionID = "";
    EXPECT_EQ(s.impl().BuildRequest({Variant("GetChannels")}), "^^,^u^,^^,^GetChannels^");
    EXPECT_THROW(s.impl().BuildRequest({Variant("GetChannels"), Variant::missing()}), RuntimeError);
  });
}

TEST(RequestExchange, OneGoodExchangeLogsItsStepsInOrder) {
  FakeClock clock;
  ScriptedGateway gateway;
  gateway.Script({Answer("Status: OK\r\nEins")});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    const size_t before = s.LogLineCount();
    std::string response, status = "old";
    ASSERT_TRUE(s.impl().RequestExchange(kRequest, response, status));
    EXPECT_EQ(response, "Status: OK\r\nEins");
    EXPECT_EQ(status, "");
    EXPECT_FALSE(s.impl().RequestPending);
    EXPECT_EQ(s.form().ctlWinsock(s.slot()).State(), platform::kSckClosed);
    EXPECT_EQ(s.LogLines(before), (std::vector<std::string>{
                                      "Verbindungsaufbau.",
                                      "  Starte Warteschleife für Anfrageergebnis.",
                                      "    Winsock(1)-Connect-Event.",
                                      "  Beende Warteschleife für Anfrageergebnis.",
                                      "Senden der Anfrage an Vantor-Server (" + kRequest + ")",
                                      "  Starte Warteschleife für Anfrageergebnis.",
                                      "    Winsock(1)-DataArrival-Event Start.",
                                      "    First packet received (mode: STRING).",
                                      "    Winsock(1)-DataArrival-Event End (16 of 16 bytes received).",
                                      "  Beende Warteschleife für Anfrageergebnis.",
                                      "Trennen der Verbindung (letzter Status: 7).",
                                      "Weitergabe Abfrageergebnis an IIS (Status: OK",  // the reply's own CR LF
                                      "Eins)",
                                  }));
  });
}

TEST(RequestExchange, ANestedRequestIsRefusedOnceAndTheNextOneRuns) {
  FakeClock clock;
  ScriptedGateway gateway;
  gateway.Script({ScriptedGateway::Await(), Answer("Status: OK\r\nA")});
  gateway.Script({Answer("Status: OK\r\nB")});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    platform::Socket& socket = s.form().ctlWinsock(s.slot());
    bool nested_done = false;
    std::string nested_response = "untouched", nested_status;
    bool nested_ok = true;
    // A page callback that runs while the first request waits starts a second one on the same object.
    clock.on_read = [&](FakeClock&) {
      if (nested_done || socket.State() != platform::kSckConnected || !s.impl().RequestPending) return;
      nested_done = true;
      nested_ok = s.impl().RequestExchange(kRequest, nested_response, nested_status);
      gateway.Continue();
    };
    std::string response, status;
    EXPECT_TRUE(s.impl().RequestExchange(kRequest, response, status)) << status;
    EXPECT_EQ(response, "Status: OK\r\nA");
    ASSERT_TRUE(nested_done);
    EXPECT_FALSE(nested_ok);
    EXPECT_EQ(nested_status, "Winsock Error (previous request not finished properly).");
    EXPECT_EQ(nested_response, "untouched");
    const std::vector<std::string> lines = s.LogLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Serveranfrage wegen noch laufender Anfrage abgebrochen."), 1);

    EXPECT_TRUE(s.impl().RequestExchange(kRequest, response, status)) << status;
    EXPECT_EQ(response, "Status: OK\r\nB");
    EXPECT_EQ(gateway.connections(), 2);
  });
}

TEST(RequestExchange, AnObjectWithoutSlotFailsWithAGeneralError) {
  clsVantor v;
  std::string response, status;
  EXPECT_FALSE(VantorAccess::Of(v).RequestExchange(kRequest, response, status));
  EXPECT_EQ(status, "General error connecting to server (9 - Subscript out of range).");
  EXPECT_FALSE(VantorAccess::Of(v).RequestPending);
}

TEST(WaitForReply, TimesOutAfterTheRequestTimeOut) {
  FakeClock clock;
  QuickPump pump;
  ScriptedGateway gateway;
  gateway.Script({ScriptedGateway::Silence()});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    platform::Socket& socket = s.form().ctlWinsock(s.slot());
    clock.on_read = [&socket](FakeClock& c) {
      if (socket.State() == platform::kSckConnected) c.AdvanceSeconds(1);
    };
    const size_t before = s.LogLineCount();
    std::string response, status;
    EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
    EXPECT_EQ(status, "Timeout of 5 seconds occured waiting for server response.");
    const std::vector<std::string> lines = s.LogLines(before);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "  Beende Warteschleife für Anfrageergebnis.");
    EXPECT_EQ(lines.back(), "Timeout-Fehler (last winsock state: 7).");
    EXPECT_EQ(socket.State(), platform::kSckClosed);
    // The send wait's lines: it gave up a little over 5 clock seconds after it began (one per clock read).
    const std::vector<std::string> raw = testing::ReadLines(s.object().strDebugLogPath + "/S1.LOG");
    const int waited = StampSeconds(raw[raw.size() - 2]) - StampSeconds(raw[raw.size() - 3]);
    EXPECT_GE(waited, 5);
    EXPECT_LE(waited, 7);
  });
}

TEST(WaitForReply, ATimeOutOfZeroEndsWhenTheSecondChanges) {
  FakeClock clock;
  QuickPump pump;
  ScriptedGateway gateway;
  gateway.Script({ScriptedGateway::Silence()});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    s.object().lngREQUESTTIMEOUT = 0;
    s.object().strDebugLogPath = "";  // only the waits read the clock
    platform::Socket& socket = s.form().ctlWinsock(s.slot());
    int reads_while_connected = 0;
    int reads_after_change = 0;
    clock.on_read = [&](FakeClock& c) {
      if (socket.State() != platform::kSckConnected) return;
      if (++reads_while_connected == 6) c.AdvanceSeconds(1);
      if (reads_while_connected > 6) ++reads_after_change;
    };
    std::string response, status;
    EXPECT_FALSE(s.impl().RequestExchange(kRequest, response, status));
    EXPECT_EQ(status, "Timeout of 0 seconds occured waiting for server response.");
    EXPECT_EQ(reads_while_connected, 6);  // the wait ended at the first look after the change
    EXPECT_EQ(reads_after_change, 0);
  });
}

TEST(WaitForReply, AWaitOverMidnightDoesNotTimeOut) {
  FakeClock clock({{2002, 11, 15}, 23, 59, 58});
  QuickPump pump;
  ScriptedGateway gateway;
  gateway.Script({ScriptedGateway::Await(), Answer("Status: OK")});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    s.object().lngREQUESTTIMEOUT = 2;
    s.object().strDebugLogPath = "";
    bool released = false;
    int advanced = 0;
    // Time runs once the gateway holds the request, that is, during the wait for the reply.
    clock.on_read = [&](FakeClock& c) {
      if (gateway.Requests() != std::vector<std::string>{kRequest}) return;
      c.AdvanceSeconds(5);
      if (++advanced == 5) {  // 00:00:23, long past the time-out had the day not turned
        released = true;
        gateway.Continue();
      }
    };
    std::string response, status;
    EXPECT_TRUE(s.impl().RequestExchange(kRequest, response, status)) << status;
    EXPECT_TRUE(released);
    EXPECT_EQ(response, "Status: OK");
  });
}

struct ListCase {
  std::string payload;
  bool ok;
  std::vector<std::string> rows;  // or, when it fails, the status text as the one element
};

TEST(RequestList, RowsAfterTheStatusLine) {
  const std::vector<ListCase> cases = {
      {"Status: OK", true, {}},
      {"Status: OK\r\n", true, {}},
      {"Status: OK\r\na", true, {"a"}},
      {"Status: OK\r\nEins\r\n\r\nDrei\r\n", true, {"Eins", "", "Drei"}},
      {"Status: OK\r\nx\ry\r", true, {"x\ry\r"}},
      {"Status: Error 3 Archiv unbekannt\r\nEins", false, {"Error 3 Archiv unbekannt"}},
      {"Status: ok\r\n", false, {"ok"}},
      {"", false, {""}},  // an empty payload: a status line too short to cut
      {"Stat\r\nEins", false, {"Stat"}},
  };
  FakeClock clock;
  ScriptedGateway gateway;
  for (const ListCase& c : cases) gateway.Script({Answer(c.payload)});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    s.object().strDebugLogPath = "";
    clsVantor::Impl& d = s.impl();
    for (const ListCase& c : cases) {
      SCOPED_TRACE(c.payload);
      d.ResultRows = {"stale"};
      d.ResultCount = 1;
      d.ResultCursor = 1;
      std::string status = "old";
      EXPECT_EQ(d.RequestList(kRequest, status), c.ok);
      EXPECT_EQ(d.ResultCursor, 0);
      if (c.ok) {
        EXPECT_EQ(status, "");  // the exchange cleared it
        EXPECT_EQ(d.ResultRows, c.rows);
        EXPECT_EQ(d.ResultCount, static_cast<int32_t>(c.rows.size()));
      } else {
        EXPECT_EQ(status, c.rows[0]);
        EXPECT_TRUE(d.ResultRows.empty());
        EXPECT_EQ(d.ResultCount, 0);
      }
    }
  });
}

TEST(RequestList, BusyAnswersAreRetriedUntilTheRetryPeriodEnds) {
  struct Case {
    std::string code;
    bool retried;
  };
  for (const Case& c : {Case{"1", true}, Case{"12", true}, Case{"7", true}, Case{"2", false}}) {
    SCOPED_TRACE(c.code);
    FakeClock clock;
    QuickPump pump;
    ScriptedGateway gateway;
    gateway.Script({Answer("Status: Error " + c.code + " x\r\n")});
    OnFreshThread([&] {
      GatewaySession s(gateway);
      s.object().lngREQUESTTIMEOUT = 30;
      s.object().strDebugLogPath = "";
      platform::Socket& socket = s.form().ctlWinsock(s.slot());
      // Time passes only between the exchanges (in the pauses), one second per look at the clock.
      clock.on_read = [&socket](FakeClock& fc) {
        if (socket.State() == platform::kSckClosed) fc.AdvanceSeconds(1);
      };
      const int start = clock.SecondsSinceMidnight();
      std::string status;
      EXPECT_FALSE(s.impl().RequestList(kRequest, status));
      EXPECT_EQ(status, "Error " + c.code + " x");
      const int elapsed = clock.SecondsSinceMidnight() - start;
      if (c.retried) {
        // A try every 3 seconds and a little, until 30 seconds have passed since the first.
        EXPECT_GE(elapsed, 30);
        EXPECT_GE(gateway.connections(), 6);
        EXPECT_LE(gateway.connections(), 11);
      } else {
        EXPECT_EQ(gateway.connections(), 1);
        EXPECT_LE(elapsed, 3);  // no pause: the clock was read three times
      }
    });
  }

  // A busy answer followed by a good one succeeds with the good one's rows.
  FakeClock clock;
  ScriptedGateway gateway;
  gateway.Script({Answer("Status: Error 1 busy")});
  gateway.Script({Answer("Status: OK\r\nrow")});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    clock.on_read = [](FakeClock& fc) { fc.AdvanceSeconds(1); };
    s.object().lngREQUESTTIMEOUT = 1000;
    std::string status;
    EXPECT_TRUE(s.impl().RequestList(kRequest, status)) << status;
    EXPECT_EQ(s.impl().ResultRows, std::vector<std::string>{"row"});
    EXPECT_EQ(gateway.connections(), 2);
  });
}

TEST(RequestList, MalformedRepliesEndWithinTheTimeOut) {
  const std::vector<std::string> replies = {
      "",
      "TotalBytes:",
      "TotalBytes:\r\n",
      "TotalBytes:-1\r\n",
      "TotalBytes:1e3\r\nStatus: OK",
      "TotalBytes:&HFF\r\nStatus: OK\r\n",
      "TotalBytes:2147483647\r\nStatus: OK\r\nrow",
      "TotalBytes:4\r\n\r\n\r\n",
      "TotalBytes:5\r\n\xFF\xFE\r\n\x00",
      "\r\n\r\nTotalBytes:3\r\nabc",
      std::string("\x00\x01\x02TotalBytes:1\r\n", 18),
  };
  FakeClock clock;
  QuickPump pump;
  ScriptedGateway gateway;
  for (const std::string& r : replies) gateway.Script({ScriptedGateway::Send(r), ScriptedGateway::Close()});
  gateway.Script({Answer("Status: OK\r\nok")});
  OnFreshThread([&] {
    GatewaySession s(gateway);
    s.object().lngREQUESTTIMEOUT = 2;
    s.object().strDebugLogPath = "";
    platform::Socket& socket = s.form().ctlWinsock(s.slot());
    clock.on_read = [&socket](FakeClock& fc) {
      if (socket.State() == platform::kSckClosing) fc.AdvanceSeconds(1);
    };
    for (const std::string& r : replies) {
      SCOPED_TRACE(r);
      std::string status;
      (void)s.impl().RequestList(kRequest, status);
      EXPECT_EQ(s.impl().ResultCount, static_cast<int32_t>(s.impl().ResultRows.size()));
      EXPECT_FALSE(s.impl().RequestPending);
    }
    // A connection left open by a reception error is closed by the next request, which works.
    std::string status;
    EXPECT_TRUE(s.impl().RequestList(kRequest, status)) << status;
    EXPECT_EQ(s.impl().ResultRows, std::vector<std::string>{"ok"});
    EXPECT_EQ(gateway.connections(), static_cast<int>(replies.size() + 1));
  });
}

TEST(Pause, LastsWholeSecondsOfTheClockAlsoOverMidnight) {
  FakeClock clock({{2002, 11, 15}, 23, 59, 58});
  clock.on_read = [](FakeClock& c) { c.AdvanceSeconds(1); };
  clsVantor v;
  VantorAccess::Of(v).Pause(3);
  EXPECT_EQ(clock.reads(), 4);  // 23:59:59 at the start, then 00:00:00, 00:00:01, 00:00:02
  VantorAccess::Of(v).Pause(0);
  EXPECT_EQ(clock.reads(), 6);
}

TEST(ReplyRows, SplittingKeepsEveryLine) {
  std::vector<std::string> rows = {"old"};
  SplitReplyRows("Status: OK", rows);
  EXPECT_TRUE(rows.empty());
  SplitReplyRows("Status: OK\r\n\r\n", rows);
  EXPECT_EQ(rows, std::vector<std::string>{""});
  SplitReplyRows("Status: OK\r\na\r\nb", rows);
  EXPECT_EQ(rows, (std::vector<std::string>{"a", "b"}));
  EXPECT_TRUE(IsBusyAnswer("Status: Error 10"));
  EXPECT_TRUE(IsBusyAnswer("Status: Error 7"));
  EXPECT_FALSE(IsBusyAnswer("Status: Error  1"));
  EXPECT_FALSE(IsBusyAnswer("Status: Error 2 1"));
  EXPECT_EQ(FailureStatusText("Status:"), "");
  EXPECT_EQ(FailureStatusText("Status: Error 3  x "), "Error 3  x");
}

}  // namespace
}  // namespace halqvantor
