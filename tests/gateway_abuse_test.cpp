// The reference gateway against clients that try to exhaust it: every bound holds and normal clients are
// still served.

#include <gtest/gtest.h>

#include <asio.hpp>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

#include "client.h"
#include "request_reader.h"
#include "server.h"
#include "session_cache.h"
#include "status.h"
#include "support/sample_gateway.h"
#include "support/temp_dir.h"
#include "text.h"
#include "link/text_encoding.h"

namespace halqvantor::gateway {
namespace {

namespace fs = std::filesystem;
using halqvantor::testing::ReadFile;
using Clock = std::chrono::steady_clock;

std::string Frame(const std::vector<std::string>& args, const std::string& user = "easy",
                  const std::string& password = "easy", const std::string& session = "S1") {
  std::vector<std::string> wire;
  for (const std::string& a : args) wire.push_back(ToWire(a));
  return FrameRequest(session, ToWire(user), EncodeText(password), wire);
}

// The status line of a text answer, in UTF-8.
std::string StatusOf(const std::string& reply) {
  const auto payload = PayloadOf(reply);
  if (!payload) return "<no text answer>";
  return FromWire(payload->substr(0, payload->find("\r\n")));
}

TEST(SessionCacheTest, BoundedInBytesLeastRecentlyUsedFirstAndForgottenWhenIdle) {
  Clock::time_point now{};
  SessionCache cache(2000, std::chrono::seconds(60), [&now] { return now; });
  const std::vector<std::string> words(5, std::string(50, 'w'));  // some 600 bytes an entry
  cache.Put("a", words);
  cache.Put("b", words);
  cache.Put("c", words);
  EXPECT_TRUE(cache.Get("a"));  // a is now the most recently used
  cache.Put("d", words);        // evicts b, the least recently used
  EXPECT_LE(cache.bytes(), 2000u);
  struct Case {
    std::string session;
    bool kept;
  };
  for (const Case& c : std::vector<Case>{{"a", true}, {"b", false}, {"c", true}, {"d", true}}) {
    EXPECT_EQ(cache.Get(c.session).has_value(), c.kept) << c.session;
  }
  cache.Put("huge", std::vector<std::string>(1, std::string(5000, 'x')));  // larger than all: not kept
  EXPECT_FALSE(cache.Get("huge"));
  now += std::chrono::seconds(30);
  EXPECT_TRUE(cache.Get("c"));
  now += std::chrono::seconds(45);  // a and d unused for 75 s, c for 45 s
  EXPECT_TRUE(cache.Get("c"));
  EXPECT_FALSE(cache.Get("a"));
  EXPECT_EQ(cache.sessions(), 1u);
}

TEST(GatewayLogTest, FieldsAreEscapedAndCut) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"easy", "easy"},
      {"x\r\nadmin DeleteDocument -> Status: OK", "x\\r\\nadmin DeleteDocument -> Status: OK"},
      {std::string("a\tb\0c\x1B\x7F", 7), "a\\tb\\x00c\\x1B\\x7F"},
      {"M\xFC"
       "ller",
       "Müller"},
      {std::string(1000, 'n'), std::string(200, 'n') + "...(1000 bytes)"},
  };
  for (const auto& [field, logged] : cases) EXPECT_EQ(LogField(field), logged);
}

// Collects what it is given and how often.
class CountingBody : public UploadBody {
 public:
  void Append(std::string_view bytes) override {
    bytes_ += bytes;
    ++pieces_;
  }
  std::string bytes_;
  int pieces_ = 0;
};

TEST(RequestReaderTest, StreamedUploadKeepsOnlyItsHead) {
  const std::string head = "^S^,^u^,^p^,^UploadFile^,^dir^,^a.bin^,^200000^\r\n";
  RequestReader reader(1024, 1 << 20);
  CountingBody* body = nullptr;
  reader.StreamUploads([&](const Request& r) {
    EXPECT_EQ(r.args, (std::vector<std::string>{"dir", "a.bin", "200000"}));
    auto made = std::make_unique<CountingBody>();
    body = made.get();
    return made;
  });
  ASSERT_EQ(reader.Feed(head + std::string(1000, 'x')), RequestReader::State::kNeedMore);
  for (int i = 0; i < 198; ++i) ASSERT_EQ(reader.Feed(std::string(1000, 'y')), RequestReader::State::kNeedMore);
  EXPECT_EQ(reader.Feed(std::string(1500, 'z')), RequestReader::State::kComplete);
  ASSERT_NE(body, nullptr);
  EXPECT_EQ(body->bytes_.size(), 200000u);  // the surplus is not part of the file
  EXPECT_EQ(reader.buffered(), head.size());
  EXPECT_TRUE(reader.request().body.empty());
  EXPECT_EQ(reader.upload_body(), body);
}

class GatewayAbuseTest : public ::testing::Test {
 protected:
  void Start(GatewayOptions options) {
    options.now = [this] { return Clock::now() + std::chrono::milliseconds(shift_ms_.load()); };
    gateway_.Start(options);
  }
  std::string Raw(std::string_view request, std::chrono::milliseconds timeout = std::chrono::milliseconds(5000)) {
    ExchangeOptions options;
    options.timeout = timeout;
    return Exchange("127.0.0.1", gateway_.port(), request, options);
  }

  std::atomic<int64_t> shift_ms_{0};
  halqvantor::testing::SampleGateway gateway_;
};

TEST_F(GatewayAbuseTest, AmplifyingAndWritingRequestsMeetTheirLimits) {
  GatewayOptions options;
  options.max_pages = 10;
  options.max_answer_bytes = 100000;
  options.max_note_bytes = 1000;
  Start(options);
  const std::string blank(30000, '_');
  const std::string out = "out";
  struct Case {
    std::vector<std::string> args;
    std::string user;  // the password is the user's name
    std::string status;
  };
  const std::vector<Case> cases = {
      {{"GetSegmentMultiTIF", "VERTRAG", "Verträge", "1000030", "", "1,2,1,2,1,2,1,2,1,2,1", out},
       "easy",
       "Status: Error 41 Ungültiger Parameter: mehr als 10 Seiten"},
      {{"GetSegmentMultiTIF", "VERTRAG", "Verträge", "1000030", "", "1,2,1", out}, "easy", "Status: OK"},
      {{"GetSegmentText", "FIBU", "Eingangsrechnungen", "1000001", "", "", "", "", blank},
       "easy",
       "Status: Error 85 Antwort zu groß"},
      {{"GetSegmentText", "FIBU", "Eingangsrechnungen", "1000001", "", "", "", "", "_"}, "easy", "Status: OK"},
      {{"WriteNote", "FIBU", "Eingangsrechnungen", "1000001", "", "gelesen", ""},
       "gast",
       "Status: Error 22 Keine Berechtigung"},
      {{"WriteNote", "FIBU", "Eingangsrechnungen", "1000001", "", std::string(1001, 'n'), ""},
       "easy",
       "Status: Error 84 Anfrage zu groß"},
      {{"WriteNote", "FIBU", "Eingangsrechnungen", "1000001", "", "Zeile 1<br>Zeile 2", "<br>"}, "easy", "Status: OK"},
  };
  const std::string archive = ReadFile(gateway_.data() + "/archive.json");
  for (const Case& c : cases) {
    const std::string status = StatusOf(Raw(Frame(c.args, c.user, c.user)));
    EXPECT_TRUE(status.starts_with(c.status)) << c.args[0] << ": " << status;
  }
  // The note went to the document's own notes file, not into archive.json, and is there after a restart.
  EXPECT_EQ(ReadFile(gateway_.data() + "/archive.json"), archive);
  Start(options);
  const std::string notes = Raw(Frame({"GetNotes", "FIBU", "Eingangsrechnungen", "1000001", ""}));
  EXPECT_NE(notes.find("^Zeile 1\r\nZeile 2^\r\n"), std::string::npos);
  EXPECT_EQ(StatusOf(Raw(Frame({"DeleteNotes", "FIBU", "Eingangsrechnungen", "1000001", ""}))), "Status: OK");
  Start(options);
  EXPECT_EQ(PayloadOf(Raw(Frame({"GetNotes", "FIBU", "Eingangsrechnungen", "1000001", ""}))), "Status: OK\r\n");
}

TEST_F(GatewayAbuseTest, SessionsStayWithinTheirBytesAndExpire) {
  GatewayOptions options;
  options.max_session_bytes = 20000;
  options.session_idle = std::chrono::seconds(60);
  Start(options);
  const std::string words = std::string(2000, 'q') + " rechnung";
  for (int i = 0; i < 30; ++i) {
    const std::string reply = Raw(Frame({"QueryArchive", "FIBU", "Eingangsrechnungen", words, "", "0", "0", ""}, "easy",
                                        "easy", "S" + std::to_string(i)));
    ASSERT_EQ(StatusOf(reply), "Status: OK");
  }
  EXPECT_LE(gateway_.server().session_bytes(), 20000u);
  EXPECT_GT(gateway_.server().sessions(), 0u);
  shift_ms_ += 61000;
  Raw(Frame({"QueryArchive", "FIBU", "Eingangsrechnungen", "", "", "0", "0", ""}, "easy", "easy", "new"));
  EXPECT_EQ(gateway_.server().sessions(), 1u);  // the others were idle too long
}

TEST_F(GatewayAbuseTest, ANormalClientIsServedWhileSlowClientsHoldTheConnections) {
  GatewayOptions options;
  options.max_connections = 50;
  Start(options);
  asio::io_context io;
  const asio::ip::tcp::endpoint gateway(asio::ip::make_address("127.0.0.1"), gateway_.port());
  std::vector<asio::ip::tcp::socket> slow;
  for (int i = 0; i < 500; ++i) {
    slow.emplace_back(io).connect(gateway);
    if (i % 2 == 0) asio::write(slow.back(), asio::buffer("^", 1));  // one byte, then nothing
  }
  const auto started = Clock::now();
  EXPECT_EQ(StatusOf(Raw(Frame({"GetChannels"}), std::chrono::milliseconds(1000))), "Status: OK");
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(1));
  EXPECT_LE(gateway_.server().open_connections(), 50u);
}

TEST_F(GatewayAbuseTest, AnUploadThatFailsLeavesNoFile) {
  Start({});
  const std::string body(300000, 'u');
  auto head = [&](const std::string& user, const std::string& name) {
    return Frame({"UploadFile", gateway_.blob(), name, std::to_string(body.size())}, user, user) + "\r\n";
  };
  struct Case {
    std::string request;
    bool half_close;
    std::string status;
  };
  const std::vector<Case> cases = {
      {head("easy", "cut.bin") + body.substr(0, 100000), true, "Status: Error 83"},
      {head("nobody", "who.bin") + body, false, "Status: Error 21"},
      {head("easy", "..\\up.bin") + body, false, "Status: Error 50"},
  };
  for (const Case& c : cases) {
    ExchangeOptions options;
    options.half_close = c.half_close;
    const std::string status = StatusOf(Exchange("127.0.0.1", gateway_.port(), c.request, options));
    EXPECT_TRUE(status.starts_with(c.status)) << status;
  }
  EXPECT_EQ(StatusOf(Raw(head("easy", "ok.bin") + body)), "Status: OK");
  // A temporary file goes with its connection.
  for (int i = 0; i < 2000 && gateway_.server().open_connections() > 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(gateway_.dir().path())) {
    if (entry.is_regular_file() && entry.path().string().find("/blob/") != std::string::npos) {
      files.push_back(entry.path().filename().string());
    }
  }
  EXPECT_EQ(files, std::vector<std::string>{"ok.bin"});
  EXPECT_EQ(ReadFile(gateway_.blob() + "/ok.bin"), body);
}

TEST_F(GatewayAbuseTest, TheLogShowsEachAnswerOnOneLine) {
  std::ostringstream log;
  GatewayOptions options;
  options.log = &log;
  Start(options);
  Raw(Frame({"GetChannels"}, "x\r\nadmin DeleteDocument -> Status: OK\r\n", "x"));
  Raw("^S^,^u^,^p^,^" + std::string(100000, 'C') + "^");
  Raw(Frame({"GetChannels"}));
  gateway_.Stop();
  const std::vector<std::string> lines = SplitLines(log.str());
  ASSERT_EQ(lines.size(), 3u) << log.str();
  EXPECT_EQ(lines[0],
            "x\\r\\nadmin DeleteDocument -> Status: OK\\r\\n GetChannels -> Status: Error 21 "
            "Anmeldung fehlgeschlagen");
  EXPECT_LT(lines[1].size(), 500u);
  EXPECT_EQ(lines[2], "easy GetChannels -> Status: OK");
}

}  // namespace
}  // namespace halqvantor::gateway
