#include "link/request_exchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::Exchange;
using testing::FakeClock;
using testing::FakeNetwork;
using testing::GatewaySession;
using testing::InFakeSession;

const std::string kRequest = "^S1^,^u^,^ABA1^,^GetChannels^";

using RequestExchange = testing::SessionTest;
using RequestList = testing::SessionTest;

TEST_F(RequestExchange, FramingAndTheLogOfOneGoodExchange) {
  Answers({"Status: OK\r\nEins"});
  const std::string request = s().impl().BuildRequest(
      {Variant("GetSegmentText"), Variant(""), Variant(int32_t{42}), Variant::null(), Variant("Müller^,^x")});
  // No escaping; a Null is an empty field; the password goes encoded.
  EXPECT_EQ(request, "^S1^,^u^,^ABA1^,^GetSegmentText^,^^,^42^,^^,^Müller^,^x^");
  const size_t before = s().LogLines().size();
  // The slot is whichever this thread had free (a dispatch test run before in one process keeps two).
  const std::string w = "    Winsock(" + std::to_string(s().impl().SlotIndex) + ")-";
  std::string response, status = "old";
  ASSERT_TRUE(s().impl().RequestExchange(request, response, status)) << status;
  EXPECT_EQ(response, "Status: OK\r\nEins");
  EXPECT_EQ(status, "");
  // On the wire: Windows-1252, one byte per character, no terminator.
  EXPECT_EQ(net_.requests, std::vector<std::string>{"^S1^,^u^,^ABA1^,^GetSegmentText^,^^,^42^,^^,^M\xFCller^,^x^"});
  EXPECT_EQ(s().LogLines(before),
            (std::vector<std::string>{
                "Verbindungsaufbau.", "  Starte Warteschleife für Anfrageergebnis.", w + "Connect-Event.",
                "  Beende Warteschleife für Anfrageergebnis.", "Senden der Anfrage an Vantor-Server (" + request + ")",
                "  Starte Warteschleife für Anfrageergebnis.", w + "DataArrival-Event Start.",
                "    First packet received (mode: STRING).", w + "DataArrival-Event End (16 of 16 bytes received).",
                "  Beende Warteschleife für Anfrageergebnis.", "Trennen der Verbindung (letzter Status: 7).",
                "Weitergabe Abfrageergebnis an IIS (Status: OK", "Eins)"}));
  EXPECT_EQ(s().socket().State(), platform::kSckClosed);
  EXPECT_EQ(net_.open_sockets(), 0);
}

TEST_F(RequestExchange, TheTimingLineAndObserverSeeEachRequest) {
  Answer("Status: OK\r\nEins");
  net_.scripts.push_back({FakeNetwork::Reset()});
  s().impl().options.log_timings = true;
  std::vector<RequestTimings> seen;
  s().impl().options.on_request_timings = [&](const RequestTimings& t) { seen.push_back(t); };
  EXPECT_TRUE(Exchange(s(), kRequest).ok);
  EXPECT_FALSE(Exchange(s(), kRequest).ok);  // reset before any byte of a reply
  std::vector<std::string> lines = s().LogLines();
  std::erase_if(lines, [](const std::string& l) { return !l.starts_with("Zeitmessung"); });
  ASSERT_EQ(lines.size(), 2u);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(std::tie(seen[0].command, seen[0].bytes_sent, seen[0].bytes_received),
            std::make_tuple("GetChannels", int64_t{29}, int64_t{16}));
  EXPECT_TRUE(0 <= seen[0].connect_ms && seen[0].connect_ms <= seen[0].first_byte_ms &&
              seen[0].first_byte_ms <= seen[0].last_byte_ms);
  EXPECT_THAT(lines[0],
              ::testing::MatchesRegex("Zeitmessung \\(Befehl GetChannels, 29 Bytes gesendet, 16 Bytes empfangen, "
                                      "Verbindung [0-9.]+ ms, erstes Byte [0-9.]+ ms, letztes Byte [0-9.]+ ms\\)\\."));
  EXPECT_EQ(std::tie(seen[1].bytes_received, seen[1].first_byte_ms), std::make_tuple(int64_t{0}, -1.0));
  EXPECT_THAT(lines[1], ::testing::EndsWith("erstes Byte -, letztes Byte -)."));
}

TEST_F(RequestExchange, ANestedRequestIsRefusedOnceAndTheNextOneRuns) {
  Answers({"Status: OK\r\nA", "Status: OK\r\nB"});
  s();  // Init'ed before the clock hook looks at the socket
  std::string nested_response = "untouched", nested_status;
  bool nested = false;
  // Something running inside the first request's wait starts a second request on the same object.
  clock_.on_read = [&](FakeClock&) {
    if (nested || s().socket().State() != platform::kSckConnected) return;
    nested = true;
    EXPECT_FALSE(s().impl().RequestExchange(kRequest, nested_response, nested_status));
  };
  std::string response, status;
  EXPECT_TRUE(s().impl().RequestExchange(kRequest, response, status)) << status;
  EXPECT_EQ(response, "Status: OK\r\nA");
  EXPECT_EQ(nested_status, "Winsock Error (previous request not finished properly).");
  EXPECT_EQ(nested_response, "untouched");
  EXPECT_THAT(s().LogLines(), ::testing::Contains("Serveranfrage wegen noch laufender Anfrage abgebrochen.").Times(1));
  EXPECT_TRUE(s().impl().RequestExchange(kRequest, response, status)) << status;
  EXPECT_EQ(response, "Status: OK\r\nB");
  clsVantor without_slot;
  EXPECT_FALSE(VantorAccess::Of(without_slot).RequestExchange(kRequest, response, status));
  EXPECT_EQ(status, "General error connecting to server (9 - Subscript out of range).");
}

TEST(WaitForReply, TimeOutsCountClockSeconds) {
  // The gateway's close plays no part: the wait ends with the time-out, 5 clock seconds and a little on.
  InFakeSession({{FakeNetwork::Packet("TotalBytes:10\r\nHal"), FakeNetwork::Close()}},
                [](GatewaySession& s, FakeNetwork& net, FakeClock& clock) {
                  int seconds = 0;
                  clock.on_read = [&](FakeClock& c) {
                    if (s.socket().State() == platform::kSckClosing) c.AdvanceSeconds(1), ++seconds;
                  };
                  EXPECT_EQ(Exchange(s, kRequest).status, "Timeout of 5 seconds occured waiting for server response.");
                  const std::vector<std::string> lines = s.LogLines();
                  EXPECT_THAT(lines, ::testing::Contains("    Winsock(1)-Close-Event."));
                  EXPECT_EQ(lines.back(), "Timeout-Fehler (last winsock state: 8).");
                  EXPECT_EQ(s.socket().State(), platform::kSckClosed);
                  EXPECT_EQ(net.open_sockets(), 0);
                  EXPECT_TRUE(seconds >= 6 && seconds <= 9) << seconds;
                });
  // A time-out of 0 ends at the first look after the second changed.
  InFakeSession({{}}, [](GatewaySession& s, FakeNetwork&, FakeClock& clock) {
    s.object().lngREQUESTTIMEOUT = 0;
    s.object().strDebugLogPath = "";  // only the waits read the clock
    int reads = 0;
    clock.on_read = [&](FakeClock& c) {
      if (s.socket().State() == platform::kSckConnected && ++reads == 6) c.AdvanceSeconds(1);
    };
    EXPECT_EQ(Exchange(s, kRequest).status, "Timeout of 0 seconds occured waiting for server response.");
    EXPECT_EQ(reads, 6);
  });
  // A wait that starts before midnight cannot time out after it.
  InFakeSession({{FakeNetwork::Reply("Status: OK")}}, [](GatewaySession& s, FakeNetwork& net, FakeClock& clock) {
    clock.Set({{2002, 11, 15}, 23, 59, 58});
    s.object().lngREQUESTTIMEOUT = 2;
    int advanced = 0, reads = 0;
    net.hold = true;
    clock.on_read = [&](FakeClock& c) {
      // The request is out before the reply wait reads its start: that read stays before midnight.
      if (net.requests != std::vector<std::string>{kRequest} || ++reads == 1) return;
      c.AdvanceSeconds(5);
      if (++advanced == 5) net.hold = false;  // 00:00:23
    };
    EXPECT_EQ(Exchange(s, kRequest), (testing::Exchanged{true, "Status: OK", ""}));
    EXPECT_GE(advanced, 5);
  });
}

std::vector<std::string> Texts(const platform::RowList& rows) { return {rows.begin(), rows.end()}; }

TEST(ReplyRows, SplitAfterTheStatusLine) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> good = {
      {"Status: OK", {}},
      {"Status: OK\r\n", {}},
      {"Status: OK\r\na", {"a"}},
      {"Status: OK\r\nEins\r\n\r\nDrei\r\n", {"Eins", "", "Drei"}},
      {"Status: OK\r\nEins\r\n\r\n", {"Eins", ""}},
      {"Status: OK\r\nx\ry\r", {"x\ry\r"}}};
  for (const auto& [payload, rows] : good) {
    EXPECT_EQ(Texts(platform::RowList::LinesAfterFirst(payload)), rows) << payload;
  }
  const std::vector<std::pair<std::string, std::string>> bad = {
      {"Status: Error 3 Archiv unbekannt\r\nEins", "Error 3 Archiv unbekannt"},
      {"Status: ok", "ok"},
      {"", ""},  // shorter than seven characters: the whole line
      {"Stat\r\nEins", "Stat"}};
  for (const auto& [payload, text] : bad) EXPECT_EQ(FailureStatusText(StatusLineOf(payload)), text) << payload;
}

TEST(BusyAnswers, AreRetriedEveryThreeSecondsUntilTheRetryPeriodEnds) {
  for (const auto& [code, retried] :
       std::vector<std::pair<std::string, bool>>{{"1", true}, {"12", true}, {"7", true}, {"2", false}}) {
    InFakeSession({{FakeNetwork::Reply("Status: Error " + code + " x\r\n")}},
                  [&](GatewaySession& s, FakeNetwork& net, FakeClock& clock) {
                    s.object().lngREQUESTTIMEOUT = 30;
                    s.object().strDebugLogPath = "";
                    // Time passes between the exchanges only, a second per look at the clock.
                    clock.on_read = [&](FakeClock& c) {
                      if (s.socket().State() == platform::kSckClosed) c.AdvanceSeconds(1);
                    };
                    std::string status;
                    EXPECT_FALSE(s.impl().RequestList(kRequest, status));
                    EXPECT_EQ(status, "Error " + code + " x");
                    // Pause(3) reads the clock 4 times, the retry test once: 5 seconds a try, until 30 passed.
                    EXPECT_EQ(net.requests.size(), retried ? 7u : 1u) << code;
                  });
  }
  InFakeSession({{FakeNetwork::Reply("Status: Error 1 busy")}, {FakeNetwork::Reply("Status: OK\r\nrow")}},
                [](GatewaySession& s, FakeNetwork&, FakeClock& clock) {
                  clock.on_read = [](FakeClock& c) { c.AdvanceSeconds(1); };
                  s.object().lngREQUESTTIMEOUT = 1000;
                  std::string status;
                  EXPECT_TRUE(s.impl().RequestList(kRequest, status)) << status;
                  EXPECT_EQ(Texts(s.impl().ResultRows), std::vector<std::string>{"row"});
                });
}

TEST_F(RequestList, MalformedRepliesEachEndInTheirStatusWithinTheTimeOut) {
  const std::string kTimeout = "Timeout of 2 seconds occured waiting for server response.";
  const std::string kReset = "Winsock Error (10054 - Connection is reset by remote side)";
  // A reply, whether the gateway resets the connection after it (else it closes), the status.
  const std::tuple<std::string, bool, std::string> cases[] = {
      {"TotalBytes:\r\n", false, "Winsock Error (DataArrival Error (13 - Type mismatch))"},
      {"TotalBytes:-1\r\n", true, ""},  // complete at once, and no status line
      {"TotalBytes:1e3\r\nStatus: OK", false, kTimeout},
      {"TotalBytes:&HFF\r\nStatus: OK\r\n", true, kReset},
      {"TotalBytes:2147483647\r\nStatus: OK\r\nrow", false,
       "Reply too large (2147483647 bytes announced, the limit is 1073741824 bytes)."},
      {"TotalBytes:5\r\n\xFF\xFE\r\n", false, kTimeout},  // one byte short
      // Without the header a packet is payload: it follows the last reply, which is complete already.
      {"\r\n\r\nTotalBytes:3\r\nabc", true, "\xC3\xBF\xC3\xBE"},
      {std::string("\0\1TotalBytes:1\r\n", 17), false, "\xC3\xBF\xC3\xBE"}};
  for (const auto& [reply, reset, status] : cases) {
    net_.scripts.push_back({FakeNetwork::Packet(reply), reset ? FakeNetwork::Reset() : FakeNetwork::Close()});
  }
  Answers({"Status: OK\r\nEins\r\n\r\nDrei"});
  s().object().lngREQUESTTIMEOUT = 2;
  s().object().strDebugLogPath = "";
  clock_.on_read = [&](FakeClock& c) {
    if (s().socket().State() == platform::kSckClosing) c.AdvanceSeconds(1);
  };
  for (const auto& [reply, reset, expected] : cases) {
    SCOPED_TRACE(::testing::PrintToString(reply));
    std::string status;
    EXPECT_FALSE(s().impl().RequestList(kRequest, status));
    EXPECT_EQ(status, expected);
    EXPECT_TRUE(s().impl().ResultRows.empty() && s().impl().ResultCount == 0);
    EXPECT_FALSE(s().impl().RequestPending);
  }
  // The link still works: the rows after the status line, the status cleared, the walk at its start.
  s().impl().ResultCursor = 1;
  std::string status = "old";
  EXPECT_TRUE(s().impl().RequestList(kRequest, status)) << status;
  EXPECT_EQ(status, "");
  EXPECT_EQ(Texts(s().impl().ResultRows), (std::vector<std::string>{"Eins", "", "Drei"}));
  // Rows and CR LF cut by packets, characters that grow in UTF-8 past the announced length, an empty last row.
  const std::string payload = "Status: OK\r\nM\xFC\xFC\x80\x80ller\r\n\x80 5\r\n\r\n";
  net_.scripts.push_back(
      {FakeNetwork::Packet("TotalBytes:" + std::to_string(payload.size()) + "\r\n" + payload.substr(0, 14)),
       FakeNetwork::Packet(payload.substr(14, 8)), FakeNetwork::Packet(payload.substr(22, 4)),
       FakeNetwork::Packet(payload.substr(26))});
  EXPECT_TRUE(s().impl().RequestList(kRequest, status)) << status;
  EXPECT_EQ(Texts(s().impl().ResultRows), (std::vector<std::string>{"Müü€€ller", "€ 5", ""}));
  EXPECT_EQ(s().impl().ResultCount, 3);
  EXPECT_EQ(s().impl().ResultCursor, 0);
}

TEST(Pause, LastsWholeSecondsOfTheClockAlsoOverMidnight) {
  FakeClock clock({{2002, 11, 15}, 23, 59, 58});
  clock.on_read = [](FakeClock& c) { c.AdvanceSeconds(1); };
  clsVantor v;
  SetEnvironment(v, &clock);
  VantorAccess::Of(v).Pause(3);
  EXPECT_EQ(clock.reads(), 4);  // 23:59:59 at the start, then 00:00:00, 00:00:01, 00:00:02
}

}  // namespace
}  // namespace halqvantor
