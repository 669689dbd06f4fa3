// The reference gateway: its files, session cache and log without a network, then its commands, its bounds
// against clients that try to exhaust it, and the program, over loopback on a copy of the sample archive.
// clsVantor meets it in `vantor demo` (vantor_demo_test) and the vantor program (vantor_cli_test, whose
// `call` rows reach the gateway's renderings).

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <asio.hpp>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <tuple>

#include "blob_files.h"
#include "client.h"
#include "import_file.h"
#include "link/text_encoding.h"
#include "server.h"
#include "session_cache.h"
#include "status.h"
#include "support/sample_gateway.h"
#include "support/temp_dir.h"
#include "text.h"
#include "tiff.h"

namespace halqvantor::gateway {
namespace {

namespace fs = std::filesystem;
using halqvantor::testing::ReadFile;
using halqvantor::testing::TempDir;
using halqvantor::testing::WriteFile;
using Clock = std::chrono::steady_clock;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// The text answer's status line and rows, in UTF-8.
struct Reply {
  std::string status;
  std::vector<std::string> rows;
};

Reply ParseReply(const std::string& wire) {
  const auto payload = PayloadOf(wire);
  if (!payload) return {"<no text answer: " + wire.substr(0, 40) + ">", {}};
  std::vector<std::string> lines = SplitLines(FromWire(*payload));
  Reply reply{lines.empty() ? std::string() : lines.front(), {}};
  if (!lines.empty()) reply.rows.assign(lines.begin() + 1, lines.end());
  return reply;
}

std::string Frame(const std::vector<std::string>& args, const std::string& user = "easy",
                  const std::string& password = "easy") {
  std::vector<std::string> wire;
  for (const std::string& a : args) wire.push_back(ToWire(a));
  return FrameRequest("S1", ToWire(user), EncodeText(password), wire);
}

// Limits small enough for a test to reach.
GatewayOptions SmallLimits() {
  GatewayOptions options;
  options.max_request_bytes = 64 * 1024;
  options.max_upload_bytes = 1 << 20;
  return options;
}

class GatewayTest : public ::testing::Test {
 protected:
  void SetUp() override { Start(); }

  void Start(GatewayOptions options = SmallLimits()) { gateway_.Start(options); }
  std::string Raw(std::string_view request, const ExchangeOptions& options = {}) {
    return Exchange("127.0.0.1", server().port(), request, options);
  }
  Reply Ask(const std::vector<std::string>& args, const std::string& user = "easy",
            const std::string& password = "easy") {
    return ParseReply(Raw(Frame(args, user, password)));
  }
  // Each row's command asked as its user, whose password is the user's name; the status starts as given.
  struct Asked {
    std::vector<std::string> args;
    std::string status;  // after "Status: "
    std::string user = "easy";
  };
  void ExpectStatuses(const std::vector<Asked>& rows) {
    for (const Asked& r : rows) {
      EXPECT_THAT(Ask(r.args, r.user, r.user).status, StartsWith("Status: " + r.status))
          << r.args[0] << " " << r.args.back();
    }
  }
  GatewayServer& server() { return gateway_.server(); }
  std::string blob() const { return gateway_.blob(); }

  halqvantor::testing::SampleGateway gateway_;
};

const std::string kOk = "Status: OK";
const std::string kFibu = "FIBU";
const std::string kIn = "Eingangsrechnungen";

// ---- files, sessions and the log, without a network ---------------------------------------------------------

// A big-endian page survives repacking into the little-endian files we write and reads back from them; a
// loop of directories, a cut-off directory and an offset tag the repacker does not rewrite are refused.
TEST(GatewayFilesTest, TiffPagesSurviveRepackingAndOddFilesAreRefused) {
  auto be16 = [](uint16_t v) { return std::string{static_cast<char>(v >> 8), static_cast<char>(v & 0xFF)}; };
  auto be32 = [&](uint32_t v) { return be16(static_cast<uint16_t>(v >> 16)) + be16(static_cast<uint16_t>(v)); };
  const std::string strip = "\xAA\x55";  // one page of 8x2 pixels in one strip
  const std::string file = "MM" + be16(42) + be32(8) + be16(4) + be16(256) + be16(3) + be32(1) + be16(8) + be16(0) +
                           be16(257) + be16(3) + be32(1) + be16(2) + be16(0) + be16(273) + be16(4) + be32(1) +
                           be32(8 + 2 + 4 * 12 + 4) + be16(279) + be16(4) + be32(1) + be32(2) + be32(0) + strip;
  const auto pages = ReadTiff(file);
  ASSERT_TRUE(pages.has_value());
  EXPECT_EQ(pages->at(0).entries.front().value, std::string("\x08\x00", 2));  // the width, now little-endian
  const std::string repacked = WriteTiff({pages->at(0), pages->at(0)});
  EXPECT_EQ(repacked.substr(0, 4), std::string("II*\0", 4));
  const auto again = ReadTiff(repacked);
  ASSERT_TRUE(again.has_value() && again->size() == 2u);
  EXPECT_EQ(again->at(1).chunks, std::vector<std::string>{strip});

  std::string loop = file, exif = file;
  loop.replace(8 + 2 + 4 * 12, 4, be32(8));    // the directory points to itself
  exif.replace(10, 4, be16(34665) + be16(4));  // the width becomes an offset to an Exif directory
  for (const std::string& bad : {std::string("not a tiff"), file.substr(0, 20), loop}) EXPECT_FALSE(ReadTiff(bad));
  std::string refused;
  EXPECT_FALSE(ReadTiff(exif, &refused).has_value());
  EXPECT_EQ(refused, "TIFF-Tag 34665 verweist in die Datei");
}

// The component writes "@CHARSET,UTF-8" when a page asks for it; every other import file is Windows-1252.
TEST(GatewayImportFileTest, Utf8TextIsReadAsUtf8) {
  const auto utf8 = ParseImportFile("@DB,$(#A)\\B\r\n@CHARSET,UTF-8\r\n@FOLDER,FT:T,1:X\r\n^Grüße^\r\n");
  EXPECT_EQ(utf8[0].groups[0].value, ToWire("Grüße"));
}

TEST(GatewayFilesTest, BlobPathsStayInsideTheBlobFolder) {
  TempDir dir;
  const BlobFolder blob(dir.path());
  const fs::path root = fs::weakly_canonical(dir.path());
  EXPECT_EQ(blob.Resolve(root.string() + "\\out\\x.tif"), root / "out" / "x.tif");
  EXPECT_EQ(blob.Resolve("out\\\\.\\x.tif"), root / "out" / "x.tif");
  EXPECT_EQ(blob.ResolveFile("sub", "a.pdf"), root / "sub" / "a.pdf");
  for (const std::string& bad :
       std::vector<std::string>{"..\\etc", "out\\..\\..\\x", "/etc/passwd", "C:\\blob", "\\\\server\\share",
                                root.string() + "\\..\\x", root.string() + "x\\y"}) {
    EXPECT_THROW(blob.Resolve(bad), GatewayError) << bad;
  }
  for (const std::string bad : {"", "..", "a/b", "a\\b"}) EXPECT_THROW(blob.ResolveFile("", bad), GatewayError);
}

TEST(SessionCacheTest, BoundedInBytesLeastRecentlyUsedFirstAndForgottenWhenIdle) {
  Clock::time_point now{};
  SessionCache cache(2000, std::chrono::seconds(60), [&now] { return now; });
  const std::vector<std::string> words(5, std::string(50, 'w'));  // some 600 bytes an entry
  for (const char* session : {"a", "b", "c"}) cache.Put(session, words);
  EXPECT_TRUE(cache.Get("a"));  // a is now the most recently used
  cache.Put("d", words);        // evicts b, the least recently used
  EXPECT_LE(cache.bytes(), 2000u);
  for (const char* kept : {"a", "c", "d"}) EXPECT_TRUE(cache.Get(kept)) << kept;
  EXPECT_FALSE(cache.Get("b"));
  cache.Put("huge", std::vector<std::string>(1, std::string(5000, 'x')));  // larger than all: not kept
  EXPECT_FALSE(cache.Get("huge"));
  now += std::chrono::seconds(61);
  EXPECT_FALSE(cache.Get("c"));
}

// ---- commands over the network ----------------------------------------------------------------------------

TEST_F(GatewayTest, ErrorAnswersNameTheirCause) {
  ExpectStatuses(
      {{{"GetChannels"}, "Error 21 Anmeldung fehlgeschlagen", "nobody"},
       {{"GetChannels"}, "Error 21 Anmeldung fehlgeschlagen", "EASY"},  // the password exactly
       {{"GetArchiveDescription", "PERSONAL", "Personalakten"},
        "Error 22 Keine Berechtigung: $(#PERSONAL)\\Personalakten",
        "gast"},
       {{"GetSegmentSelectList", kFibu, kIn, "77"}, "Error 33 Feld unbekannt: 77"},
       {{"QueryArchive", kFibu, kIn, ".2=Meier", "", "0", "0", ""}, "Error 40 Ungültige Abfrage: .2=Meier"},
       {{"QueryArchive", kFibu, kIn, "", "Lang", "0", "0", ""}, "Error 35 Abfrageformat unbekannt: Lang"},
       {{"QueryArchive", kFibu, kIn, "", "", "viele", "0", ""}, "Error 41 Ungültiger Parameter: lngMaxLines"},
       {{"GetDocumentInfo", kFibu, kIn, "1000001", "7"}, "Error 32"},
       {{"GetDocumentInfo", kFibu, kIn, "4711", ""}, "Error 32"},
       {{"GetSegmentPDF", kFibu, kIn, "1000001", "1", "1", "99", "out"}, "Error 34 Layout unbekannt: 99"},
       {{"GetSegmentPrintfile", kFibu, kIn, "1000001", "1", "2", "", "out", "7"}, "Error 41"},
       {{"GetSegmentMultiTIF", "VERTRAG", "Verträge", "1000030", "", "4", "out"}, "Error 36 Seite nicht vorhanden: 4"},
       {{"GetSegmentERF", kFibu, kIn, "1000001", "1", "1"}, "Error 41"},
       {{"GetSegmentData", kFibu, kIn, "1000001", "1", "2", "..\\outside"}, "Error 50"},
       {{"DeleteNotes", kFibu, kIn, "1000001", ""}, "Error 22", "gast"},
       {{"CreateDocument", "fehlt.imp"}, "Error 51"},
       {{"DeleteDocument", "VERTRAG", "Verträge", "1000030", ""}, "Error 22"}});
  EXPECT_FALSE(fs::exists(gateway_.dir().File("outside")));
  EXPECT_EQ(Ask({"GetChannels"}, "EASY", "easy").status, kOk);  // the user name in any case
  // The password travels encoded: its plain text is refused.
  EXPECT_EQ(ParseReply(Raw(FrameRequest("S", "easy", "easy", {"GetChannels"}))).status,
            "Status: Error 21 Anmeldung fehlgeschlagen");
  EXPECT_EQ(Ask({"GetNotes", kFibu, kIn, "1000001", ""}).rows.size(), 6u);  // nothing deleted
}

TEST_F(GatewayTest, AnImportWithOneWrongPartChangesNothing) {
  const std::string folder = "@DB,$(#FIBU)\\Eingangsrechnungen\r\n@FOLDER,FT:x,";
  const std::vector<std::pair<std::string, std::string>> bad = {
      {folder + "3:DATUM\r\n^31.02.2002^\r\n", "Status: Error 53"},
      {folder + "2:NR\r\n^1^\r\n", "Status: Error 53"},
      {folder + "1:NR\r\n^1^\r\n@DB,$(#FIBU)\\Nichts\r\n@FOLDER,FT:y\r\n", "Status: Error 31"},
      {folder + "5:BELEG\r\n^fehlt.tif^\r\n", "Status: Error 51"}};
  for (const auto& [file, status] : bad) {
    WriteFile(blob() + "/bad.imp", file);
    EXPECT_THAT(Ask({"CreateDocument", "bad.imp"}).status, StartsWith(status)) << file;
  }
  Start();
  EXPECT_EQ(Ask({"GetArchiveProperties", kFibu, kIn}).rows[0], "1,1,1,1,14");
}

// ---- busy answers, malformed and stalled clients ------------------------------------------------------------

// A transfer sends the file's bytes as they are, even while the gateway answers busy first.
TEST_F(GatewayTest, TransfersMoveRawBytesBeforeBusyAnswersAndFailByClosing) {
  GatewayOptions options;
  options.busy = 2;
  Start(options);
  const std::string bytes("\0\x01^,^\r\nTotalBytes:3\r\n\xFF", 22);
  WriteFile(blob() + "/raw.bin", bytes);
  EXPECT_EQ(Raw(Frame({"TransferBLOB", "raw.bin"})), bytes);
  const std::string busy = "Error 101 Server ausgelastet, bitte später erneut versuchen";
  ExpectStatuses({{{"GetChannels"}, busy}, {{"GetChannels"}, busy, "nobody"}, {{"GetChannels"}, "OK"}});
  // Failures have no header to tell them: the connection just ends.
  for (const char* name : {"missing.bin", "..\\blob\\raw.bin"}) EXPECT_EQ(Raw(Frame({"TransferBLOB", name})), "");
}

TEST_F(GatewayTest, MalformedRequestsGetAnErrorAndTheServerGoesOn) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"HELO\r\n", "Error 80 Ungültiges Anfrageformat"},
      {"^S^,^u^,^p^,^DropTables^", "Error 81 Unbekanntes Kommando: DropTables"},
      {Frame({"GetChannels", "x", "y"}), "Error 82 Falsche Anzahl von Argumenten"},
      {Frame({"WriteNote", std::string(70000, 'n')}), "Error 84 Anfrage zu groß"},
      {"^" + std::string(70000, 'x'), "Error 84"},
      {"^S^,^u^,^p^,^UploadFile^,^dir^,^name^\r\nxyz", "Error 82"},
      {"^S^,^u^,^p^,^UploadFile^,^dir^,^name^,^-3^\r\n", "Error 41"},
      {"^S^,^u^,^p^,^UploadFile^,^dir^,^name^,^99999999^\r\n", "Error 84"}};
  for (const auto& [request, status] : cases) {
    EXPECT_THAT(ParseReply(Raw(request)).status, StartsWith("Status: " + status));
  }
  // A client that closes its side before its request is complete still hears why.
  EXPECT_EQ(ParseReply(Raw(Frame({"GetArchives"}), {.half_close = true})).status,
            "Status: Error 83 Anfrage unvollständig");
  EXPECT_EQ(Ask({"GetChannels"}).status, kOk);
}

TEST_F(GatewayTest, StalledClientsAreAnsweredOrDroppedWhenTheirTimeIsUp) {
  asio::io_context io;
  const asio::ip::tcp::endpoint gateway(asio::ip::make_address("127.0.0.1"), server().port());
  asio::ip::tcp::socket stalled(io), silent(io), answered(io);
  for (asio::ip::tcp::socket* socket : {&stalled, &silent, &answered}) socket->connect(gateway);
  // A whole text answer, or what came before the connection ended, and how the reading ended.
  const auto read_answer = [](asio::ip::tcp::socket& socket) {
    std::string reply;
    asio::error_code ec;
    char buffer[512];
    while (!ec && !PayloadOf(reply)) reply.append(buffer, socket.read_some(asio::buffer(buffer), ec));
    return std::pair(reply, ec);
  };
  const std::string partial = Frame({"GetArchives"}), full = Frame({"GetChannels"});
  asio::write(stalled, asio::buffer(partial));
  asio::write(answered, asio::buffer(full));
  // The answer is read before time moves, so the gateway stamped it on the clock as it was.
  EXPECT_EQ(ParseReply(read_answer(answered).first).status, kOk);
  ASSERT_TRUE(gateway_.WaitUntil([&] { return server().received_bytes() >= partial.size() + full.size(); }));

  // Once the idle time is over, the incomplete request is answered; the silent client and the one that kept
  // its connection after its answer are dropped.
  gateway_.PassTime(std::chrono::milliseconds(31000));
  server().CheckDeadlines();
  EXPECT_EQ(ParseReply(read_answer(stalled).first).status, "Status: Error 83 Anfrage unvollständig");
  for (asio::ip::tcp::socket* dropped : {&silent, &answered}) {
    EXPECT_EQ(read_answer(*dropped), std::pair(std::string(), asio::error_code(asio::error::eof)));
  }
  EXPECT_EQ(Ask({"GetChannels"}).status, kOk);
}

TEST_F(GatewayTest, AmplifyingAndWritingRequestsMeetTheirLimits) {
  GatewayOptions options;
  options.max_pages = 10;
  options.max_answer_bytes = 100000;
  options.max_note_bytes = 1000;
  Start(options);
  const std::string archive = ReadFile(gateway_.data() + "/archive.json");
  ExpectStatuses(
      {{{"GetSegmentMultiTIF", "VERTRAG", "Verträge", "1000030", "", "1,2,1,2,1,2,1,2,1,2,1", "out"},
        "Error 41 Ungültiger Parameter: mehr als 10 Seiten"},
       {{"GetSegmentMultiTIF", "VERTRAG", "Verträge", "1000030", "", "1,2,1", "out"}, "OK"},
       {{"GetSegmentText", kFibu, kIn, "1000001", "", "", "", "", std::string(30000, '_')}, "Error 85 Antwort zu groß"},
       {{"GetSegmentText", kFibu, kIn, "1000001", "", "", "", "", "_"}, "OK"},
       {{"WriteNote", kFibu, kIn, "1000001", "", "gelesen", ""}, "Error 22 Keine Berechtigung", "gast"},
       {{"WriteNote", kFibu, kIn, "1000001", "", std::string(1001, 'n'), ""}, "Error 84 Anfrage zu groß"},
       {{"WriteNote", kFibu, kIn, "1000001", "", "Zeile 1<br>Zeile 2", "<br>"}, "OK"}});
  // The note went to the document's own notes file, not into archive.json, and is there after a restart.
  EXPECT_EQ(ReadFile(gateway_.data() + "/archive.json"), archive);
  Start(options);
  EXPECT_THAT(Raw(Frame({"GetNotes", kFibu, kIn, "1000001", ""})), HasSubstr("^Zeile 1\r\nZeile 2^\r\n"));
  EXPECT_EQ(Ask({"DeleteNotes", kFibu, kIn, "1000001", ""}).status, kOk);
  Start(options);
  EXPECT_EQ(PayloadOf(Raw(Frame({"GetNotes", kFibu, kIn, "1000001", ""}))), "Status: OK\r\n");
}

TEST_F(GatewayTest, ANormalClientIsServedWhileSlowClientsHoldTheConnections) {
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
  EXPECT_EQ(ParseReply(Raw(Frame({"GetChannels"}), {.timeout = std::chrono::milliseconds(1000)})).status, kOk);
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(1));
  EXPECT_LE(gateway_.server().open_connections(), 50u);
}

TEST_F(GatewayTest, AnUploadThatFailsLeavesNoFile) {
  Start({});
  const std::string body(300000, 'u');
  auto head = [&](const std::string& user, const std::string& name) {
    return Frame({"UploadFile", blob(), name, std::to_string(body.size())}, user, user) + "\r\n";
  };
  // The request, whether the client closes its side after it, and the status.
  const std::vector<std::tuple<std::string, bool, std::string>> cases = {
      {head("easy", "cut.bin") + body.substr(0, 100000), true, "Status: Error 83"},
      {head("nobody", "who.bin") + body, false, "Status: Error 21"},
      {head("easy", "..\\up.bin") + body, false, "Status: Error 50"},
      {head("easy", "ok.bin") + body, false, kOk}};
  for (const auto& [request, half_close, expected] : cases) {
    EXPECT_THAT(ParseReply(Raw(request, {.half_close = half_close})).status, StartsWith(expected));
  }
  // A temporary file goes with its connection.
  ASSERT_TRUE(gateway_.WaitUntil([&] { return server().open_connections() == 0; }));
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(blob())) {
    if (entry.is_regular_file()) files.push_back(entry.path().filename().string());
  }
  EXPECT_EQ(files, std::vector<std::string>{"ok.bin"});
  EXPECT_EQ(ReadFile(blob() + "/ok.bin"), body);
}

// One line an answer, "user command -> status", with the user's controls escaped, its bytes read as the
// wire's code page and a long name cut: no client can forge a line.
TEST_F(GatewayTest, TheLogShowsEachAnswerOnOneLine) {
  std::ostringstream log;
  GatewayOptions options;
  options.log = &log;
  Start(options);
  for (const std::string& user : {std::string("x\r\nadmin DeleteDocument -> Status: OK"),
                                  std::string("a\tb\0c\x1B\x7F", 7), std::string("Müller"), std::string(1000, 'n')}) {
    Raw(Frame({"GetChannels"}, user, "x"));
  }
  Raw(Frame({"GetChannels"}));
  gateway_.Stop();
  const std::string refused = " GetChannels -> Status: Error 21 Anmeldung fehlgeschlagen";
  EXPECT_EQ(SplitLines(log.str()), (std::vector<std::string>{"x\\r\\nadmin DeleteDocument -> Status: OK" + refused,
                                                             "a\\tb\\x00c\\x1B\\x7F" + refused, "Müller" + refused,
                                                             std::string(200, 'n') + "...(1000 bytes)" + refused,
                                                             "easy GetChannels -> Status: OK"}));
}

// An image segment's first page becomes its thumbnail in the folder the request names; its row gives the size.
TEST_F(GatewayTest, SegmentDescriptionsWriteThumbnails) {
  const Reply reply = Ask({"GetSegmentDescription", kFibu, kIn, "1000001", "1", blob()});
  const std::string thumb = blob() + "/TN_1000001_1_2.TIF";
  ASSERT_TRUE(fs::exists(thumb)) << reply.status;
  EXPECT_THAT(ReadTiff(ReadFile(thumb)), ::testing::Optional(::testing::SizeIs(1)));
  EXPECT_THAT(reply.rows, ::testing::Contains(::testing::EndsWith(",^" + std::to_string(fs::file_size(thumb)) + "^")));
}

// ---- the program --------------------------------------------------------------------------------------------

// Starts that fail end with 2 (bad usage) or 1 and name what to change. Serving on the announced port is what
// the demo, the Python module's and the portal's tests start it for; the Python fixture checks it ends with 0
// on SIGTERM.
TEST_F(GatewayTest, TheProgramRefusesBadStarts) {
  const std::string data = "--data " + gateway_.data(), port = std::to_string(gateway_.port());
  const std::vector<std::tuple<std::string, int, std::string>> starts = {
      // arguments, exit code, a part of the text
      {data + " --port 99999", 2, "'99999' is no whole number from 0 to 65535"},
      {"--port 0", 2, "--data is required"},
      {data + " --port " + port, 1, "cannot listen on 127.0.0.1:" + port + ": "},  // the fixture's gateway has it
      {data + " --listen nowhere", 1, "cannot listen on nowhere:0: nowhere is no IP address"},
      {"--data " + blob(), 1, "archive.json"}};
  for (const auto& [args, code, message] : starts) {
    FILE* p = popen((std::string(VANTOR_GATEWAY_BINARY) + " --blob " + blob() + " " + args + " 2>&1").c_str(), "r");
    ASSERT_NE(p, nullptr);
    char text[512] = {};
    const std::string output(text, fread(text, 1, sizeof text - 1, p));
    EXPECT_THAT(std::pair(output, WEXITSTATUS(pclose(p))), ::testing::FieldsAre(HasSubstr(message), code)) << args;
  }
}

}  // namespace
}  // namespace halqvantor::gateway
