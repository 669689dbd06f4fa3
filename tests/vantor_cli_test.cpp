// The vantor program run in-process: its sub-commands against the reference gateway over a copy of the
// sample archive, and against a SQLite user database that `initdb` creates.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "options.h"
#include "support/sample_gateway.h"
#include "support/scripted_gateway.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::testing::ReadFile;
using halqvantor::testing::TempDir;
using halqvantor::testing::WriteFile;
using ::testing::HasSubstr;
using ::testing::Not;
using json = nlohmann::json;

struct Outcome {
  int code;
  std::string out, err;
  json Json() const { return json::parse(out); }
};

Outcome RunLine(const std::vector<std::string>& line) {
  std::ostringstream out, err;
  const int code = RunVantor(line, out, err);
  return {code, out.str(), err.str()};
}

// Runs vantor against a scripted gateway: its address, then `line`.
Outcome RunOn(const halqvantor::testing::ScriptedGateway& gateway, std::vector<std::string> line) {
  line.insert(line.begin(), {"--host", "127.0.0.1", "--port", std::to_string(gateway.port())});
  return RunLine(line);
}

class VantorCli : public ::testing::Test {
 protected:
  void SetUp() override {
    gateway_.Start();
    port_ = std::to_string(gateway_.port());
  }

  // Runs vantor with the connection options of the gateway, then `args`.
  Outcome Run(std::vector<std::string> args) {
    std::vector<std::string> line = {"--host",       "127.0.0.1", "--port",        port_,        "--timeout",
                                     "10",           "--user",    "easy",          "--password", "easy",
                                     "--blob-local", local_,      "--blob-remote", blob_};
    if (!db_.empty()) line.insert(line.end(), {"--db", db_});
    line.insert(line.end(), args.begin(), args.end());
    return RunLine(line);
  }

  halqvantor::testing::SampleGateway gateway_;
  const TempDir& dir_ = gateway_.dir();
  std::string blob_ = gateway_.blob();
  std::string local_ = blob_;  // the blob folder as the client sees it; the same folder unless a test says
  std::string db_;
  std::string port_;
};

// What each sub-command prints, and the usage errors (exit 2) and failures (exit 1) that say why.
TEST_F(VantorCli, SubCommandsPrintTablesAndSayWhatWentWrong) {
  struct Case {
    std::vector<std::string> args;
    int code;
    std::vector<std::string> out;  // parts of the output
    std::string err;               // a part of the error output
  };
  const std::vector<Case> cases = {
      {{"channels"}, 0, {"FIBU      Finanzbuchhaltung, Rechnungseingang und -ausgang\n"}, ""},
      {{"fields", "FIBU", "Eingangsrechnungen"}, 0, {"rights: RCEDI\n", "offen, geprüft, bezahlt"}, ""},
      {{"masks", "FIBU", "Eingangsrechnungen"}, 0, {"Einkauf, Vertrieb, Verwaltung, Technik"}, ""},
      {{"query", "FIBU", "Eingangsrechnungen", "", "--max", "2"},
       0,
       {"id       version  Rechnungsnummer  Lieferant", "2 of 14 hits\n"},
       ""},
      {{"text", "FIBU", "Eingangsrechnungen", "1000001", "1", "--query", "meier", "--mark-on", "<<", "--mark-off",
        ">>"},
       0,
       {"Lieferant: <<Meier>> GmbH\nRechnungsdatum"},
       ""},
      {{"query", "FIBU", "Eingangsrechnungen", "", "--sort", "Farbe"},
       2,
       {},
       "columns: id, version, Rechnungsnummer, Lieferant"},
      {{"query", "FIBU", "Rechnungen", "x"}, 1, {}, "EASYQueryArchiveInit: Error 31 Archiv unbekannt"},
      {{"query", "FIBU"}, 2, {}, ""},
      {{"frobnicate"}, 2, {}, ""},
      {{"fetch", "FIBU", "Eingangsrechnungen", "1000001", "1"}, 2, {}, ""},  // no FIELD
      {{"fetch", "FIBU", "Eingangsrechnungen", "1000001", "1", "2", "--pdf", "10", "--pages", "1"}, 2, {}, ""},
      {{"upload", "nix.bin"}, 1, {}, "EASYUploadFile: File Error"},
      {{"call", "strREMOTEHOST", "gw.example"}, 0, {"strREMOTEHOST = gw.example (String)\n"}, ""},
      {{"call", "easygetchannelsinit"}, 0, {"EASYGetChannelsInit = 3 (Long)\nstrStatus =  (String)\n"}, ""},
      {{"call", "EASYGetDocumentInfo", "FIBU", "Eingangsrechnungen", "1000001", "1"},
       0,
       {"strTitel = Rechnung 2002-0117 Meier GmbH (String)\n"},
       ""},
      // "str:" keeps a text as it is where the parameter would convert it; ":missing" leaves an argument out.
      {{"call", "EASYGetSegmentData", "FIBU", "Eingangsrechnungen", "1000001", "1", "BELEG"}, 2, {}, "intFieldIndex"},
      {{"call", "EASYGetSegmentData", "FIBU", "Eingangsrechnungen", "1000001", "1", "str:BELEG"},
       0,
       {"strFileName = 1000001_1_2.TIF (String)\n"},
       ""},
      {{"call", "EASYSortHitlistInit", ":missing"}, 2, {}, "lngCol"},
      {{"call", "EASYGetArchivesInit", "Nix"},
       1,
       {"EASYGetArchivesInit = -1 (Integer)\n"},
       "EASYGetArchivesInit: Error 30"},
      // Members the demo and the sub-commands leave out, with what the sample holds.
      {{"call", "EASYGetAllArchivesInit"}, 0, {"EASYGetAllArchivesInit = 5 (Long)\n"}, ""},
      {{"call", "EASYGetQueryFormatListInit", "FIBU", "Eingangsrechnungen"}, 0, {" = 3 (Long)\n"}, ""},
      {{"call", "EASYGetSegmentERFInit", "FIBU", "Eingangsrechnungen", "1000001", "1", "4"}, 0, {" = 3 (Long)\n"}, ""},
      {{"call", "EASYQueryArchiveInit", "FIBU", "Eingangsrechnungen", "", "0", "0", "Kurz"},
       0,
       {" = 15 (Long)\nstrLayoutFieldID = 1,2 (String)\nstrLayoutID = 10;11 (String)\nlngTotalHits = 14 (String)\n"
        "blnHitlistMultiTIFF = True (Boolean)\n"},
       ""},
      {{"call", "EASYGetSegmentPDF", "FIBU", "Eingangsrechnungen", "1000001", "1", "1", "10"},
       0,
       {"strFileName = 1000001_1_1_L10.PDF (String)\nlngFileLen = 1166 (String)\n"},
       ""},
      {{"call", "EASYGetSegmentPrintfile", "FIBU", "Eingangsrechnungen", "1000001", "1", "2", "11"},
       0,
       {"strFileName = 1000001_1_2_L11_P.PDF (String)\n"},
       ""},
      {{"call", "EASYGetSegmentPrintfile", "FIBU", "Eingangsrechnungen", "1000001", "1", "2", "11", "1"},
       0,
       {"strFileName = 1000001_1_2_P.TIF (String)\nlngFileLen = 9496 (String)\n"},
       ""},
      {{"call", "EASYFrobnicate"}, 2, {}, "EASYFrobnicate"},
      {{"call", "EASYTransferBLOB", "x"}, 2, {}, "lngFileLen"},
  };
  for (const Case& c : cases) {
    const Outcome run = Run(c.args);
    SCOPED_TRACE(::testing::PrintToString(c.args));
    EXPECT_EQ(run.code, c.code) << run.err;
    for (const std::string& part : c.out) EXPECT_THAT(run.out, HasSubstr(part));
    EXPECT_THAT(run.err, HasSubstr(c.err));
    if (c.code == 0) {
      EXPECT_THAT(run.out, Not(HasSubstr("^")));
    }
  }
  EXPECT_EQ(Run({"call", "lngremoteport"}).out, "lngREMOTEPORT = " + port_ + " (Long)\n");
  EXPECT_EQ(RunLine({}).code, 2);
  Outcome help = RunLine({"--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_THAT(help.out, HasSubstr("Examples:\n  vantor"));
  // One line, name and dotted version, as help2man and scripts read it; a sub-command after it is not run.
  Outcome version = RunLine({"--version", "channels"});
  EXPECT_EQ(version.code, 0);
  EXPECT_THAT(version.out, ::testing::MatchesRegex("vantor [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  port_ = std::to_string(halqvantor::testing::ScriptedGateway::UnusedPort());
  Outcome refused = Run({"channels"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err, "EASYGetChannelsInit: Winsock Error (10061 - Connection is forcefully rejected)\n");
  EXPECT_EQ(refused.out, "");
}

TEST_F(VantorCli, JsonListsDocumentsAndSortedHits) {
  json rows = Run({"--json", "channels"}).Json();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[2], json({{"channel", "VERTRAG"}, {"description", "Verträge, Vereinbarungen, Korrespondenz"}}));
  // All archives come from the extended list, grouped under their channels; one channel's from its own.
  json all = Run({"--json", "archives"}).Json();
  ASSERT_EQ(all.size(), 5u);
  EXPECT_EQ(all[4], json({{"channel", "VERTRAG"}, {"archive", "Korrespondenz"}}));
  EXPECT_EQ(Run({"--json", "archives", "FIBU"}).Json(),
            json::parse(R"([{"channel":"FIBU","archive":"Ausgangsrechnungen"},
                                  {"channel":"FIBU","archive":"Eingangsrechnungen"}])"));

  json doc = Run({"--json", "doc", "FIBU", "Eingangsrechnungen", "1000001", "1"}).Json();
  EXPECT_EQ(doc["info"]["title"], "Rechnung 2002-0117 Meier GmbH");
  ASSERT_EQ(doc["segments"].size(), 4u);
  EXPECT_EQ(doc["segments"][1]["name"], "BELEG");
  EXPECT_EQ(doc["segments"][1]["type"], "image");

  auto suppliers = [](const json& hits) {
    std::vector<std::string> names;
    for (const auto& hit : hits) names.push_back(hit["Lieferant"]);
    return names;
  };
  std::vector<std::string> once =
      suppliers(Run({"--json", "query", "FIBU", "Eingangsrechnungen", "", "--sort", "lieferant"}).Json());
  std::vector<std::string> twice = suppliers(
      Run({"--json", "query", "FIBU", "Eingangsrechnungen", "", "--sort", "Lieferant", "--sort", "3"}).Json());
  ASSERT_EQ(once.size(), 14u);
  EXPECT_TRUE(std::is_sorted(once.begin(), once.end()) || std::is_sorted(once.rbegin(), once.rend()));
  EXPECT_NE(once.front(), once.back());
  EXPECT_EQ(twice, std::vector<std::string>(once.rbegin(), once.rend()));
  json archives = Run({"--json", "call", "EASYGetArchivesInit", "FIBU"}).Json();
  EXPECT_EQ(archives["member"], "EASYGetArchivesInit");
  EXPECT_EQ(archives["result"], json({{"type", "Long"}, {"value", 2}}));
  EXPECT_EQ(archives["outputs"]["strStatus"], json({{"type", "String"}, {"value", ""}}));
}

TEST_F(VantorCli, FetchPrintsTheLocalPathWithTheMappedExtension) {
  Outcome data = Run({"--ext-map", "TIF-PDF", "fetch", "FIBU", "Eingangsrechnungen", "1000001", "1", "BELEG"});
  ASSERT_EQ(data.code, 0) << data.err;
  EXPECT_EQ(data.out, blob_ + "/1000001_1_2.PDF\n");
  EXPECT_TRUE(fs::exists(blob_ + "/1000001_1_2.PDF"));

  json pages = Run({"--json", "fetch", "VERTRAG", "Verträge", "1000030", "1", "--pages", "2-3"}).Json();
  EXPECT_EQ(pages["path"], blob_ + "/" + pages["file"].get<std::string>());
  EXPECT_EQ(std::to_string(fs::file_size(pages["path"].get<std::string>())), pages["length"]);
}

TEST_F(VantorCli, UploadThenTransferBackGivesTheSameBytes) {
  local_ = dir_.File("local");
  fs::create_directories(local_);
  std::string bytes;
  for (int i = 0; i < 70000; ++i) bytes += static_cast<char>(i * 7 % 256);
  WriteFile(local_ + "/scan.bin", bytes);

  Outcome upload = Run({"upload", "scan.bin"});
  ASSERT_EQ(upload.code, 0) << upload.err;
  EXPECT_EQ(upload.out, "uploaded scan.bin (70000 bytes)\n");
  EXPECT_EQ(ReadFile(blob_ + "/scan.bin"), bytes);

  fs::remove(local_ + "/scan.bin");
  Outcome transfer = Run({"transfer", "scan.bin", "70000"});
  ASSERT_EQ(transfer.code, 0) << transfer.err;
  EXPECT_EQ(transfer.out, local_ + "/scan.bin\n");
  EXPECT_EQ(ReadFile(local_ + "/scan.bin"), bytes);

  // Only files of the local blob folder go up.
  EXPECT_EQ(Run({"upload", dir_.File("data/archive.json")}).code, 2);

  // A browser upload from a posted body.
  WriteFile(
      dir_.File("body"),
      "-----------------------------7d41b838504d8\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a.txt\""
      "\r\nContent-Type: text/plain\r\n\r\nabc\r\n-----------------------------7d41b838504d8--\r\n");
  Outcome posted = Run({"call", "UploadFile", "--post", dir_.File("body")});
  EXPECT_THAT(posted.out, HasSubstr("UploadFile = True (Boolean)\nstrFileNameParam = a.txt (String)\n"));
  EXPECT_EQ(ReadFile(local_ + "/a.txt"), "abc");
}

TEST_F(VantorCli, NotesWrittenListedAndDeleted) {
  Outcome added =
      Run({"--json", "notes", "FIBU", "Eingangsrechnungen", "1000003", "1", "--add", "Erste Zeile\nzweite"});
  ASSERT_EQ(added.code, 0) << added.err;
  json notes = added.Json();
  ASSERT_FALSE(notes.empty());
  EXPECT_EQ(notes.back()["author"], "easy");
  EXPECT_EQ(notes.back()["text"], "Erste Zeile\nzweite");
  EXPECT_EQ(notes.back()["number"], std::to_string(notes.size()));

  Outcome table = Run({"notes", "FIBU", "Eingangsrechnungen", "1000003", "1"});
  EXPECT_THAT(table.out, HasSubstr("Erste Zeile⏎zweite"));
  EXPECT_EQ(Run({"--json", "notes", "FIBU", "Eingangsrechnungen", "1000003", "1", "--delete"}).Json(), json::array());
}

TEST_F(VantorCli, UserDirectoryFromInitdbThroughRightsWithEitherPasswordFormat) {
  db_ = dir_.File("users.db");
  Outcome created = RunLine({"initdb", db_});
  ASSERT_EQ(created.code, 0) << created.err;
  EXPECT_THAT(created.out, HasSubstr("(12 tables)"));
  const std::string schema = ReadFile(db_);
  Outcome again = RunLine({"initdb", db_});
  EXPECT_EQ(again.code, 1);
  EXPECT_THAT(again.err, HasSubstr("exists"));
  EXPECT_EQ(ReadFile(db_), schema);

  EXPECT_EQ(Run({"adduser", "anna", "Geheim1", "--easy-user", "easy", "--easy-password", "easy"}).out,
            "added anna with user id 1\n");
  // The encoded format cannot keep umlauts: the user is added, with a warning.
  Outcome lossy = Run({"adduser", "dora", "Grüße2002"});
  EXPECT_EQ(lossy.out, "added dora with user id 2\n");
  EXPECT_THAT(lossy.err, HasSubstr("warning: the password of dora does not survive the encoded format"));
  EXPECT_EQ(Run({"adduser", "carl", "pw", "--easy-user", "x"}).code, 2);  // the account needs its password
  EXPECT_EQ(Run({"logon", "anna", "Geheim1"}).out, "anna: user id 1\n");
  Outcome refused = Run({"logon", "anna", "falsch"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("log-on refused for anna"));

  // The demo's users (the portal's sample set-up takes them from here), with groups and rights.
  db_ = dir_.File("demo.db");
  ASSERT_EQ(RunLine({"initdb", "--demo-users", db_}).code, 0);
  Outcome rights = Run({"--json", "rights", "anna"});
  ASSERT_EQ(rights.code, 0) << rights.err;
  const json r = rights.Json();
  const auto sorted = [](json list) {  // the directory's statements give no order
    std::sort(list.begin(), list.end());
    return list;
  };
  EXPECT_EQ(r["id"], "1");
  EXPECT_EQ(sorted(r["rights"]), json({"NOTIZEN", "SUCHE", "UPLOAD"}));
  EXPECT_EQ(sorted(r["edit rights"]), json({"Eingangsrechnungen,N,E,D", "Verträge,E"}));
  EXPECT_EQ(Run({"--json", "rights", "2"}).Json()["archives"], json({"Verträge"}));  // by user id
  EXPECT_EQ(Run({"rights", "nobody"}).code, 1);

  db_.clear();
  Outcome no_db = Run({"logon", "anna"});
  EXPECT_EQ(no_db.code, 2);
  EXPECT_THAT(no_db.err, HasSubstr("--db"));
  db_ = dir_.File("missing.db");
  Outcome bad_db = Run({"logon", "anna"});
  EXPECT_EQ(bad_db.code, 1);
  EXPECT_THAT(bad_db.err, HasSubstr("user database " + db_));

  // With strong passwords a hash keeps any password: no warning.
  db_ = dir_.File("strong.db");
  EXPECT_THAT(RunLine({"initdb", "--strong-passwords", db_}).out,
              HasSubstr("(12 tables; passwords stored as Argon2id hashes)"));
  Outcome strong = Run({"adduser", "dora", "Grüße2002"});
  EXPECT_EQ(strong.out + strong.err, "added dora with user id 1\n");
  EXPECT_EQ(Run({"logon", "dora", "Grüße2002"}).out, "dora: user id 1\n");
}

TEST(VantorCliRuntimeError, NamesTheMemberThatRaisedIt) {
  // A document info row with too few columns is a malformed answer: a run-time error, not a status.
  halqvantor::testing::ScriptedGateway gateway;
  gateway.Script({halqvantor::testing::Answer("Status: OK\r\n^K^,^A^")});
  const Outcome run = RunOn(gateway, {"doc", "K", "A", "D", "1"});
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.err, "EASYGetDocumentInfo: run-time error 5: Invalid procedure call or argument\n");
}

// What a hostile gateway can put in front of the user: control characters, file names outside the blob
// folder, and replies without end.
TEST(VantorCliHostileGateway, EscapesControlsRefusesForeignPathsAndBoundsReplies) {
  using halqvantor::testing::Answer;
  halqvantor::testing::ScriptedGateway gateway;
  TempDir local;
  gateway.Script(
      {Answer("Status: OK\r\nK1\x1b]0;owned\x07,ok\x9d"
              "2J")});
  gateway.Script({Answer("Status: Error 3 \x1b[2J")});
  for (const char* name : {"../../etc/passwd", "/tmp/x.pdf", "a/b.pdf", ""}) {
    gateway.Script({Answer(std::string("Status: OK\r\n3\r\n") + name)});
  }
  gateway.Script({halqvantor::testing::ScriptedGateway::Send("TotalBytes:2000000000\r\nStatus: OK\r\n")});
  auto run = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--timeout", "5", "--blob-local", local.path()});
    return RunOn(gateway, args);
  };
  Outcome channels = run({"channels"});
  EXPECT_EQ(channels.code, 0) << channels.err;
  EXPECT_THAT(channels.out, HasSubstr("K1\\x1B]0;owned\\x07  ok\\u009D2J"));
  EXPECT_EQ(run({"channels"}).err, "EASYGetChannelsInit: Error 3 \\x1B[2J\n");
  for (const char* shown : {"../../etc/passwd", "/tmp/x.pdf", "a/b.pdf"}) {
    Outcome fetch = run({"fetch", "K", "A", "D", "1", "F"});
    EXPECT_EQ(fetch.code, 1);
    EXPECT_EQ(fetch.out, "");
    EXPECT_EQ(fetch.err, std::string("EASYGetSegmentData: the gateway named a file outside the local blob folder: ") +
                             shown + "\n");
  }
  EXPECT_EQ(run({"fetch", "K", "A", "D", "1", "F"}).err, "EASYGetSegmentData: the gateway named no file\n");
  Outcome huge = run({"--max-reply", "1k", "channels"});
  EXPECT_EQ(huge.code, 1);
  EXPECT_EQ(huge.err, "EASYGetChannelsInit: Reply too large (2000000000 bytes announced, the limit is 1024 bytes).\n");
}

TEST(VantorCliMaxReply, ByteCountsWithSuffixesAndUsageErrors) {
  const std::vector<std::pair<std::string, std::optional<int64_t>>> cases = {
      {"1", 1},
      {"64k", 64 << 10},
      {"64KiB", 64 << 10},
      {"3M", 3 << 20},
      {"2gb", int64_t{2} << 30},
      {"0", std::nullopt},
      {"", std::nullopt},
      {"-5", std::nullopt},
      {"1.5G", std::nullopt},
      {"12X", std::nullopt},
      {"9999999999999999999", std::nullopt},  // 19 digits, past 2^62
      {"00000000000000000000001k", 1024},
      {"5000000000G", std::nullopt},  // past 2^62
  };
  for (const auto& [text, bytes] : cases) EXPECT_EQ(ParseByteCount(text), bytes) << text;
  const Outcome run = RunLine({"--max-reply", "12X", "channels"});
  EXPECT_EQ(run.code, 2);
  EXPECT_THAT(run.err, HasSubstr("'12X' is no byte count"));
}

}  // namespace
}  // namespace vantor
