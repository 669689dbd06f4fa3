// The vantor program run in-process: its sub-commands against the reference gateway over a copy of the
// sample archive, and against a SQLite user database that `initdb` creates.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "cli.h"
#include "options.h"
#include "output.h"
#include "support/sample_gateway.h"
#include "support/scripted_gateway.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::testing::ReadFile;
using halqvantor::testing::TempDir;
using halqvantor::testing::WriteFile;
using ::testing::AllOf;
using ::testing::FieldsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::PrintToString;
using json = nlohmann::json;
using Args = std::vector<std::string>;
const std::string kIn = "Eingangsrechnungen";

// Sets (or, given nullptr, removes) an environment variable for one scope: the locale and NO_COLOR that
// the output follows.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

struct Outcome {
  int code;
  std::string out, err;
  friend void PrintTo(const Outcome& o, std::ostream* os) {
    *os << "exit " << o.code << ", output " << PrintToString(o.out) << ", error output " << PrintToString(o.err);
  }
  json Json() const { return json::parse(out); }
};

// Runs vantor with `input` as its standard input.
Outcome RunLine(const Args& line, const std::string& input = "") {
  std::istringstream in(input);
  std::ostringstream out, err;
  const int code = RunVantor(line, in, out, err);
  return {code, out.str(), err.str()};
}

class VantorCli : public ::testing::Test {
 protected:
  void SetUp() override {
    gateway_.Start();
    port_ = std::to_string(gateway_.port());
  }

  // Runs vantor with the connection options of the gateway, then `args`.
  Outcome Run(const Args& args, const std::string& input = "") {
    Args line = {"--host", "127.0.0.1", "--port", port_, "--timeout", "10", "--user", "easy", "--password", "easy"};
    if (!local_.empty()) line.insert(line.end(), {"--blob-local", local_, "--blob-remote", blob_});
    if (!db_.empty()) line.insert(line.end(), {"--db", db_});
    line.insert(line.end(), args.begin(), args.end());
    return RunLine(line, input);
  }
  // Runs `args` and expects the exit code and, in the output (exit 0) or the error output, `text`.
  Outcome Expect(const Args& args, int code, const std::string& text, const std::string& input = "") {
    Outcome run = Run(args, input);
    EXPECT_THAT(run, FieldsAre(code, HasSubstr(code == 0 ? text : ""), HasSubstr(code == 0 ? "" : text)))
        << PrintToString(args);
    return run;
  }

  halqvantor::testing::SampleGateway gateway_;
  const TempDir& dir_ = gateway_.dir();
  std::string blob_ = gateway_.blob();
  std::string local_ = blob_;  // the blob folder as the client sees it (the same unless a test says); "": none
  std::string db_;
  std::string port_;
};

// What each sub-command prints (exit 0), and the usage errors (exit 2) and failures (exit 1) that say what to do.
TEST_F(VantorCli, SubCommandsPrintTablesAndSayWhatWentWrong) {
  // The arguments, the exit code and a part of the output, or of the error output when the code is not 0.
  const std::vector<std::tuple<Args, int, std::string>> cases = {
      {{"channels"}, 0, "FIBU      Finanzbuchhaltung, Rechnungseingang und -ausgang\n"},
      {{"fields", "FIBU", kIn}, 0, "rights: RCEDI\n"},
      {{"fields", "FIBU", kIn}, 0, "offen, geprüft, bezahlt"},
      {{"masks", "FIBU", kIn}, 0, "Einkauf, Vertrieb, Verwaltung, Technik"},
      {{"query", "FIBU", kIn, "", "--max", "2"}, 0, "id       version  Rechnungsnummer  Lieferant"},
      {{"query", "FIBU", kIn, "", "--max", "2"}, 0, "2 of 14 hits, in the gateway's order\n"},
      {{"text", "FIBU", kIn, "1000001", "1", "--query", "meier", "--mark-on", "<<", "--mark-off", ">>"},
       0,
       "Lieferant: <<Meier>> GmbH\nRechnungsdatum"},
      {{"query", "FIBU", kIn, "", "--sort", "Farbe"}, 2, "columns: id, version, Rechnungsnummer"},
      {{"fetch", "FIBU", kIn, "1000001", "1"}, 2, ""},  // no FIELD
      {{"fetch", "FIBU", kIn, "1000001", "1", "2", "--pdf", "10", "--pages", "1"}, 2, ""},
      {{"call", "strREMOTEHOST", "gw.example"}, 0, "strREMOTEHOST = gw.example (String)\n"},
      {{"call", "easygetchannelsinit"}, 0, "EASYGetChannelsInit = 3 (Long)\nstrStatus =  (String)\n"},
      {{"call", "EASYGetDocumentInfo", "FIBU", kIn, "1000001", "1"},
       0,
       "strTitel = Rechnung 2002-0117 Meier GmbH (String)\n"},
      // "str:" keeps a text as it is where the parameter would convert it; ":missing" leaves an argument out.
      {{"call", "EASYGetSegmentData", "FIBU", kIn, "1000001", "1", "BELEG"}, 2, "intFieldIndex"},
      {{"call", "EASYGetSegmentData", "FIBU", kIn, "1000001", "1", "str:BELEG"},
       0,
       "strFileName = 1000001_1_2.TIF (String)\n"},
      {{"call", "EASYSortHitlistInit", ":missing"}, 2, "lngCol"},
      {{"call", "EASYGetArchivesInit", "Nix"}, 1, "EASYGetArchivesInit: Error 30"},
      {{"chanels"}, 2, "vantor: unknown command 'chanels'; did you mean channels? (`vantor help` lists"},
      {{"xyzzy"}, 2, "unknown command 'xyzzy' (`vantor help`"},
      {{"help", "xyzzy"}, 2, "unknown command 'xyzzy'"},
      {{"help"}, 0, "Examples:\n  VANTOR_PASSWORD=easy vantor"},
      {{"help", "channels"}, 0, "Usage: vantor channels"},
      {{"channels", "--help"}, 0, "Global options (before or after the command):"},
      {{"--port", "99999", "channels"}, 2, "'99999' is no port: give a whole number from 1 to 65535"},
      {{"--timeout", "x", "channels"}, 2, "'x' is no number of seconds: give a whole number from 1 to 86400"},
      {{"--max-reply", "12X", "channels"}, 2, "'12X' is no byte count"},
      // What the gateway renders: the ERF list, a PDF in a layout, a print file as one TIFF of the pages.
      {{"call", "EASYGetSegmentERFInit", "FIBU", kIn, "1000001", "1", "4"}, 0, " = 3 (Long)\n"},
      {{"call", "EASYGetSegmentPDF", "FIBU", kIn, "1000001", "1", "1", "10"},
       0,
       "strFileName = 1000001_1_1_L10.PDF (String)\nlngFileLen = 1166 (String)\n"},
      {{"call", "EASYGetSegmentPrintfile", "FIBU", kIn, "1000001", "1", "2", "11", "1"},
       0,
       "strFileName = 1000001_1_2_P.TIF (String)\nlngFileLen = 9496 (String)\n"}};
  for (const auto& [args, code, part] : cases) {
    const Outcome run = Expect(args, code, part);
    EXPECT_THAT(code == 0 ? run.out : "", Not(HasSubstr("^"))) << PrintToString(args);
  }
  EXPECT_EQ(RunLine({}).code, 2);
  // One line, name and dotted version, as help2man and scripts read it; a sub-command after it is not run.
  EXPECT_THAT(RunLine({"--version", "channels"}), FieldsAre(0, MatchesRegex("vantor [0-9]+\\.[0-9]+\\.[0-9]+\n"), ""));
  port_ = std::to_string(halqvantor::testing::ScriptedGateway::UnusedPort());
  EXPECT_THAT(Run({"channels"}),
              FieldsAre(1, "",
                        "EASYGetChannelsInit: Winsock Error (10061 - Connection is forcefully rejected)\n"
                        "is vantor-gateway running on 127.0.0.1:" +
                            port_ + "? (check --host and --port, or VANTOR_HOST and VANTOR_PORT)\n"));
}

// The demo checks the bytes of a round trip; here what the commands print and how they fail. A fetched file
// is named with its mapped extension.
TEST_F(VantorCli, FetchUploadAndTransferSayWhatTheyDidOrWhyNot) {
  EXPECT_THAT(Run({"--ext-map", "TIF-PDF", "fetch", "FIBU", kIn, "1000001", "1", "BELEG"}),
              FieldsAre(0, blob_ + "/1000001_1_2.PDF\n", ""));
  EXPECT_TRUE(fs::exists(blob_ + "/1000001_1_2.PDF"));
  json pages = Run({"--json", "fetch", "VERTRAG", "Verträge", "1000030", "1", "--pages", "2-3"}).Json();
  EXPECT_EQ(pages["path"], blob_ + "/" + pages["file"].get<std::string>());
  EXPECT_EQ(fs::file_size(pages["path"].get<std::string>()), pages["length"]);

  local_ = dir_.File("local");
  fs::create_directories(local_);
  WriteFile(local_ + "/scan.bin", std::string(70000, 's'));
  Expect({"upload", "scan.bin"}, 0, "uploaded scan.bin (70000 bytes)\n");
  EXPECT_EQ(ReadFile(blob_ + "/scan.bin"), std::string(70000, 's'));
  fs::remove(local_ + "/scan.bin");
  EXPECT_EQ(Expect({"transfer", "scan.bin", "70000"}, 0, "").out, local_ + "/scan.bin\n");

  // The gateway's early close says at once what went wrong (the time-out is 10 s): exit 1 with the reason.
  const auto start = std::chrono::steady_clock::now();
  Expect({"transfer", "scan.bin", "70001"}, 1, "closed the connection after 70,000 of 70,001 bytes (LENGTH too");
  Expect({"transfer", "nix.bin", "5"}, 1, "before sending anything: no such file on the gateway?\n");
  blob_.clear();
  Expect({"transfer", "scan.bin", "5"}, 1, "no such file on the gateway? (--blob-remote is not set)");
  blob_ = gateway_.blob();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  // Only files of the local blob folder go up.
  EXPECT_EQ(Run({"upload", dir_.File("data/archive.json")}).code, 2);

  // A browser upload from a posted body.
  WriteFile(
      dir_.File("body"),
      "-----------------------------7d41b838504d8\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a.txt\""
      "\r\nContent-Type: text/plain\r\n\r\nabc\r\n-----------------------------7d41b838504d8--\r\n");
  Expect({"call", "UploadFile", "--post", dir_.File("body")}, 0,
         "UploadFile = True (Boolean)\nstrFileNameParam = a.txt (String)\n");
  EXPECT_EQ(ReadFile(local_ + "/a.txt"), "abc");
}

TEST_F(VantorCli, NotesWrittenListedAndDeleted) {
  const Args add = {"--json", "notes", "FIBU", kIn, "1000003", "1", "--add", "Erste Zeile\nzweite"};
  const Args notes(add.begin() + 1, add.end() - 2);
  const json added = Expect(add, 0, "").Json();
  ASSERT_FALSE(added.empty());
  const json& note = added.back();
  EXPECT_EQ(json({note["author"], note["text"], note["number"]}), json({"easy", "Erste Zeile\nzweite", added.size()}));
  for (const auto& [locale, shown] : {std::pair{"C.UTF-8", "Erste Zeile⏎zweite"}, {"C", "Erste Zeile\\nzweite"}}) {
    ScopedEnv scoped("LC_ALL", locale);
    Expect(notes, 0, shown);
  }
  EXPECT_EQ(Run({"--json", "notes", "FIBU", kIn, "1000003", "1", "--delete"}).Json(), json::array());
}

// A user directory from initdb: portal users (passwords never need the command line, a name is added once,
// log-on needs its password), grants, the demo's users and strong passwords.
TEST_F(VantorCli, UserDirectoryFromInitdbThroughGrantsAndRights) {
  db_ = dir_.File("users.db");
  const auto initdb = [&](const Args& args, const std::string& text) {
    EXPECT_THAT(RunLine(args), FieldsAre(0, HasSubstr(text), ""));
  };
  initdb({"initdb", db_}, "(12 tables)");
  const std::string schema = ReadFile(db_);
  EXPECT_THAT(RunLine({"initdb", db_}).err, HasSubstr("exists"));
  EXPECT_EQ(ReadFile(db_), schema);

  Expect({"adduser", "anna", "--password-stdin", "--easy-user", "easy", "--easy-password", "easy"}, 0,
         "added anna with user id 1\n", "Geheim1\r\nrest\n");
  Expect({"adduser", "anna", "Anders"}, 1, "has a user anna already (user id 1)");
  Expect({"adduser", "bert"}, 2, "adduser needs the password of bert");
  // The encoded format cannot keep umlauts: the user is added, with a warning.
  const Outcome lossy = Expect({"adduser", "dora", "Grüße2002"}, 0, "added dora with user id 2\n");
  EXPECT_THAT(lossy.err, HasSubstr("warning: the password of dora does not survive the encoded format"));
  Expect({"logon", "anna"}, 2, "--empty-password for a user without one");
  Expect({"logon", "anna", "--password-stdin"}, 0, "anna: user id 1\n", "Geheim1\n");
  Expect({"logon", "--password-stdin", "anna"}, 1, "log-on refused for anna", "falsch\n");
  Expect({"logon", "anna", "x", "--empty-password"}, 2, "excludes");

  // Grants of rights, groups, channels and archives; an unknown group changes nothing.
  Expect({"adduser", "Einkauf", "e"}, 0, "");
  const json granted =
      Run({"--json", "grant", "anna", "--right", "SUCHE", "--group", "Einkauf", "--channel", "FIBU", "--archive", kIn})
          .Json();
  EXPECT_EQ(granted["changes"][1], json({{"kind", "group"}, {"name", "Einkauf"}, {"result", "granted"}}));
  EXPECT_EQ(Run({"--json", "grant", "1", "--right", "SUCHE"}).Json()["changes"][0]["result"], "already granted");
  Expect({"grant", "anna", "--right", "UPLOAD", "--group", "Vertrieb"}, 1, "no group Vertrieb in the user database");
  EXPECT_EQ(Run({"--json", "rights", "anna"}).Json(), json::parse(R"({"user": "anna", "id": 1, "rights": ["SUCHE"],
      "groups": ["Einkauf"], "channels": ["FIBU"], "archives": ["Eingangsrechnungen"], "edit_rights": [],
      "search_rights": [], "hidden_fields": [], "no_match_code_fields": []})"));
  Expect({"grant", "7", "--right", "SUCHE"}, 1, "no user with id 7");
  EXPECT_EQ(Run({"--json", "grant", "anna", "--revoke", "--channel", "FIBU"}).Json()["changes"][0]["result"],
            "revoked");
  EXPECT_EQ(Run({"--json", "rights", "anna"}).Json()["channels"], json::array());

  // The demo's users, whose rights the demo's own steps check; looked up by user id.
  db_ = dir_.File("demo.db");
  initdb({"initdb", "--demo-users", db_}, "the demo's users");
  EXPECT_EQ(Run({"--json", "rights", "2"}).Json()["archives"], json({"Verträge"}));

  db_.clear();
  Expect({"logon", "anna", "x"}, 2, "--db");
  db_ = dir_.File("missing.db");
  Expect({"logon", "anna", "x"}, 1, "user database " + db_);

  // With strong passwords a hash keeps any password: no warning.
  db_ = dir_.File("strong.db");
  initdb({"initdb", "--strong-passwords", db_}, "(12 tables; passwords stored as Argon2id hashes)");
  EXPECT_THAT(Run({"adduser", "dora", "Grüße2002"}), FieldsAre(0, "added dora with user id 1\n", ""));
  Expect({"logon", "dora", "Grüße2002"}, 0, "dora: user id 1\n");
}

// A variable's value that cannot be used names the variable; an option given instead, before or after the
// command, overrides it.
TEST_F(VantorCli, GlobalOptionsFromTheCommandLineAndTheEnvironment) {
  ScopedEnv port("VANTOR_PORT", "47x"), password("VANTOR_PASSWORD", "easy");
  EXPECT_THAT(RunLine({"--host", "127.0.0.1", "channels"}),
              FieldsAre(2, "",
                        "vantor: the environment variable VANTOR_PORT is wrong: '47x' is no port: give a whole "
                        "number from 1 to 65535 (or unset it)\n"));
  // The option overrides the variable, given after the command too.
  EXPECT_EQ(RunLine({"--host", "127.0.0.1", "channels", "--port", port_, "--user", "easy"}).code, 0);
}

// Passwords stay out of what we print and log; the log is its owner's alone and has a visible name.
TEST_F(VantorCli, SecretsMaskedAndTheDebugLogPrivate) {
  EXPECT_THAT(RunLine({"--db", "Driver={No Such};Server=db;UID=sa;PWD={se;cr}}et};Database=u", "logon", "anna", "x"}),
              FieldsAre(1, "",
                        AllOf(HasSubstr("user database Driver={No Such};Server=db;UID=sa;PWD=***;Database=u: "),
                              Not(HasSubstr("se;cr")))));

  const std::string logs = dir_.File("logs");  // made by the first line
  Expect({"--log", logs, "channels"}, 0, "");
  EXPECT_EQ(fs::status(logs).permissions() & fs::perms::all, fs::perms::owner_all);
  const std::string log = logs + "/vantor.LOG";
  EXPECT_EQ(fs::status(log).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_THAT(ReadFile(log), HasSubstr("Verbindungsaufbau."));

  db_ = dir_.File("empty.db");  // no tables: the look-up fails, and the message names the log file
  WriteFile(db_, "");
  EXPECT_EQ(Expect({"--log", logs, "rights", "anna"}, 1, "").err,
            "CheckLogon: failed (the debug log " + log + " says why)\n");
  db_.clear();

  WriteFile(dir_.File("plain"), "");
  EXPECT_EQ(Expect({"--log", dir_.File("plain"), "channels"}, 0, "").err,
            "warning: no debug log: the folder " + dir_.File("plain") + " cannot be written (it is no folder)\n");
}

// What a hostile gateway can put in front of the user: control characters, file names outside the blob
// folder, replies without end and malformed rows.
TEST(VantorCliHostileGateway, EscapesControlsRefusesForeignPathsAndBoundsReplies) {
  using halqvantor::testing::ScriptedGateway;
  ScriptedGateway gateway;
  TempDir local;
  const auto reply = &ScriptedGateway::Reply;
  const auto failed = [](const std::string& err) { return FieldsAre(1, "", err); };
  const Args fetch = {"fetch", "K", "A", "D", "1", "F"};
  const std::string outside = "EASYGetSegmentData: the gateway named a file outside the local blob folder: ";
  // What the gateway sends, the command and what it ends with.
  const std::vector<std::tuple<std::string, Args, ::testing::Matcher<const Outcome&>>> cases = {
      {reply("Status: OK\r\nK1\x1b]0;owned\x07,ok\x9d"
             "2J"),
       {"channels"},
       FieldsAre(0, HasSubstr("K1\\x1B]0;owned\\x07  ok\\u009D2J"), "")},
      {reply("Status: Error 3 \x1b[2J"), {"channels"}, failed("EASYGetChannelsInit: Error 3 \\x1B[2J\n")},
      {reply("Status: OK\r\n3\r\n../../etc/passwd"), fetch, failed(outside + "../../etc/passwd\n")},
      {reply("Status: OK\r\n3\r\n/tmp/x.pdf"), fetch, failed(outside + "/tmp/x.pdf\n")},
      {reply("Status: OK\r\n3\r\na/b.pdf"), fetch, failed(outside + "a/b.pdf\n")},
      {reply("Status: OK\r\n3\r\n"), fetch, failed("EASYGetSegmentData: the gateway named no file\n")},
      {"TotalBytes:2000000000\r\nStatus: OK\r\n",
       {"--max-reply", "1k", "channels"},
       failed("EASYGetChannelsInit: Reply too large (2000000000 bytes announced, the limit is 1024 bytes).\n")},
      // A document info row with too few columns is a malformed answer: a run-time error, not a status.
      {reply("Status: OK\r\n^K^,^A^"),
       {"doc", "K", "A", "D", "1"},
       failed("EASYGetDocumentInfo: run-time error 5: Invalid procedure call or argument\n")}};
  for (const auto& [wire, args, expected] : cases) {
    gateway.Script({ScriptedGateway::Send(wire)});
    Args line = {"--host",    "127.0.0.1", "--port",       std::to_string(gateway.port()),
                 "--timeout", "5",         "--blob-local", local.path()};
    line.insert(line.end(), args.begin(), args.end());
    EXPECT_THAT(RunLine(line), expected) << PrintToString(args);
  }
}

// Byte counts and dates in the gateway's rows as scripts get them; CSV fields quoted and escaped.
TEST(VantorCliText, ByteCountsIsoDatesAndCsvQuoting) {
  EXPECT_EQ(ParseByteCount("64KiB"), 64 << 10);
  EXPECT_EQ(ParseByteCount("2gb"), int64_t{2} << 30);
  EXPECT_EQ(ParseByteCount("00000000000000000000001k"), 1024);
  for (const char* bad :
       {"0", "", "-5", "1.5G", "12X", "5000000000G", "9999999999999999999"}) {  // the last two: past 2^62
    EXPECT_FALSE(ParseByteCount(bad)) << bad;
  }
  EXPECT_EQ(IsoDate("1.2.2002"), "2002-02-01");
  EXPECT_EQ(IsoDate("29.02.2000"), "2000-02-29");
  EXPECT_EQ(IsoDate("15.03.2002 10:30"), "2002-03-15");
  for (const char* bad :
       {"29.02.1900", "31.04.2002", "15.03.02", "", "3513,76", "2002-0117", "1.13.2002", "15..2002"}) {
    EXPECT_FALSE(IsoDate(bad)) << bad;
  }

  std::ostringstream csv;
  WriteCsvRecord(csv, {"plain", "a,b", "sagt \"ja\"", "zwei\r\nZeilen", "\x1b[2J", ""});
  EXPECT_EQ(csv.str(), "plain,\"a,b\",\"sagt \"\"ja\"\"\",\"zwei\nZeilen\",\\x1B[2J,\r\n");
}

// The shapes scripts read: snake_case keys everywhere, numbers, booleans, arrays and ISO dates where the
// table shows texts; CSV records; errors as a JSON object on stderr.
TEST_F(VantorCli, ScriptOutputIsTypedJsonOrCsvAndErrorsStayJson) {
  // The command after --json, and the values at JSON pointers into its output ("-": no value there).
  const std::vector<std::pair<Args, std::string>> shapes = {
      {{"channels"}, R"({"/2": {"channel": "VERTRAG", "description": "Verträge, Vereinbarungen, Korrespondenz"},
                         "/3": "-"})"},
      // All archives come from the extended list, grouped under their channels; one channel's from its own.
      {{"archives"}, R"({"/4": {"channel": "VERTRAG", "archive": "Korrespondenz"}, "/5": "-"})"},
      {{"archives", "FIBU"}, R"({"": [{"channel": "FIBU", "archive": "Ausgangsrechnungen"},
                                     {"channel": "FIBU", "archive": "Eingangsrechnungen"}]})"},
      {{"doc", "FIBU", kIn, "1000001", "1"}, R"({"/info/title": "Rechnung 2002-0117 Meier GmbH",
          "/info/created_iso": "2002-01-01", "/info/text_fields": 1, "/segments/1/name": "BELEG",
          "/segments/1/type": "image", "/segments/1/image_length": 9496, "/segments/4": "-"})"},
      {{"query", "FIBU", kIn, "", "--max", "1"},
       R"({"/total_hits": 14, "/sorted": null, "/hits/0/rechnungsdatum_iso": "2002-01-01", "/hits/1": "-"})"},
      {{"fields", "FIBU", kIn}, R"({"/fields/0/size": 20, "/fields/0/select_list/3": "Technik"})"},
      {{"masks", "FIBU", kIn},
       R"({"/0/mandatory": true, "/4/list": ["Einkauf", "Vertrieb", "Verwaltung", "Technik"]})"},
      {{"formats", "FIBU", kIn}, R"({"/1": {"format": "Kurz"}})"},
      {{"call", "EASYGetArchivesInit", "FIBU"}, R"({"/member": "EASYGetArchivesInit",
          "/result": {"type": "Long", "value": 2}, "/outputs": [{"type": "String", "value": "", "name": "strStatus"}]})"}};
  for (const auto& [command, values] : shapes) {
    Args args = {"--json"};
    args.insert(args.end(), command.begin(), command.end());
    SCOPED_TRACE(PrintToString(args));
    const json output = Expect(args, 0, "").Json(), expected = json::parse(values);
    for (const auto& [at, value] : expected.items()) {
      const json::json_pointer pointer(at);
      EXPECT_EQ(output.contains(pointer) ? output.at(pointer) : json("-"), value) << at;
    }
    // Flattened, each step of a value's JSON pointer is a snake_case key or an array index.
    const json flat = output.flatten();
    for (const auto& item : flat.items()) EXPECT_THAT(item.key(), MatchesRegex("(/([a-z][a-z0-9_]*|[0-9]+))*"));
  }

  Outcome masks = Run({"--csv", "masks", "FIBU", kIn});
  EXPECT_THAT(masks.out, ::testing::StartsWith("mask,field,tab,width,align,name,mandatory,initial,list_only,list\r\n"));
  EXPECT_THAT(masks.out, HasSubstr(",Betrag,no,\"0,00\",no,\r\n"));
  EXPECT_THAT(Run({"--csv", "notes", "FIBU", kIn, "1000003", "1"}).out,
              ::testing::StartsWith("number,author,date,date_iso,time,text\r\n"));

  const std::vector<std::tuple<Args, int, std::string>> failures = {
      {{"--json", "query", "FIBU", "Rechnungen", "x"}, 1, "EASYQueryArchiveInit: Error 31 Archiv unbekannt"},
      {{"--json", "query", "FIBU"}, 2, "ARCHIVE is required"},
      {{"--json", "query", "FIBU", kIn, "", "--max", "zwei"}, 2, "'zwei' is no hit count"},
      {{"--json", "call", "EASYFrobnicate"}, 2, "EASYFrobnicate"},
      {{"--json", "--csv", "channels"}, 2, "excludes"}};
  for (const auto& [args, code, text] : failures) {
    const Outcome run = Run(args);
    const json error = json::parse(run.err);  // one object, nothing else
    EXPECT_THAT(std::tuple(run.code, run.out, error["exit_code"], error["error"].get<std::string>()),
                FieldsAre(code, "", code, HasSubstr(text)))
        << PrintToString(args);
  }
}

// Sorting twice reverses; --asc and --desc put the last sort column in the wanted order whatever the clicks
// before gave, and the footer says which order it is.
TEST_F(VantorCli, QueryOrderFollowsSortsAscDescAndTheFooterSaysIt) {
  const auto with = [](Args extra) {
    extra.insert(extra.begin(), {"query", "FIBU", kIn, ""});
    return extra;
  };
  const auto column = [&](const std::string& key, Args extra) {
    extra.push_back("--json");
    const json query = Run(with(extra)).Json();
    std::vector<std::string> values;
    for (const auto& hit : query["hits"]) values.push_back(hit[key]);
    return values;
  };
  const std::vector<std::string> once = column("lieferant", {"--sort", "lieferant"});
  ASSERT_EQ(once.size(), 14u);
  EXPECT_NE(once.front(), once.back());
  EXPECT_EQ(column("lieferant", {"--sort", "Lieferant", "--sort", "3"}),
            std::vector<std::string>(once.rbegin(), once.rend()));
  EXPECT_TRUE(std::ranges::is_sorted(column("rechnungsdatum_iso", {"--sort", "4", "--sort", "4", "--asc"})));
  const std::vector<std::string> descending = column("rechnungsdatum_iso", {"--sort", "Rechnungsdatum", "--desc"});
  EXPECT_TRUE(descending.size() == 14u && std::ranges::is_sorted(descending, std::greater<>()));

  Expect(with({"--sort", "rechnungsdatum", "--desc"}), 0, "14 of 14 hits, sorted by Rechnungsdatum, newest first\n");
  Expect(with({"--asc"}), 0, "14 of 14 hits, sorted by id, oldest first\n");
  Expect(with({"--sort", "Lieferant", "--desc"}), 0, "sorted by Lieferant, descending\n");
  Expect(with({"--asc", "--desc"}), 2, "");
  Expect(with({"--sort", "99"}), 2, "no column 99");
}

// Documents from an import file in the shared blob folder: created, changed, a version and then the whole
// document deleted; --blob names that folder for both sides at once.
TEST_F(VantorCli, CreateEditAndDeleteDocumentsFromAnImportFile) {
  WriteFile(blob_ + "/neu.txt",
            "@DB,$(#FIBU)\\Eingangsrechnungen\r\n@FOLDER,FT:Rechnung Test,1:1,1:2\r\n^2002-9999^,^Test GmbH^\r\n");
  WriteFile(blob_ + "/neu2.txt",
            "@DB,$(#FIBU)\\Eingangsrechnungen\r\n@FOLDER,FT:Rechnung bezahlt,1:STATUS\r\n^bezahlt^\r\n");
  local_.clear();
  const json created = Expect({"--blob", blob_, "--json", "create", "neu.txt"}, 0, "").Json();
  const std::string id = created["id"];
  EXPECT_EQ(created, json({{"import_file", blob_ + "\\neu.txt"}, {"documents", 1}, {"id", id}, {"version", 1}}));
  EXPECT_EQ(Run({"--json", "query", "FIBU", kIn, ".NR=(2002-9999)"}).Json()["total_hits"], 1);

  EXPECT_EQ(Run({"--blob", blob_, "edit", dir_.File("blob/neu2.txt"), id}).out,
            "document " + id + " is now version 2\n");
  EXPECT_EQ(Run({"--json", "doc", "FIBU", kIn, id, "2"}).Json()["info"]["title"], "Rechnung bezahlt");
  Expect({"delete", "FIBU", kIn, id, "2"}, 0, "");
  Expect({"doc", "FIBU", kIn, id, "2"}, 1, "EASYGetDocumentInfo: Error 32");
  Expect({"doc", "FIBU", kIn, id, "1"}, 0, "Rechnung Test");
  Expect({"delete", "FIBU", kIn, id}, 0, "deleted document " + id + " from FIBU/Eingangsrechnungen\n");
  EXPECT_EQ(Run({"--json", "query", "FIBU", kIn, ""}).Json()["total_hits"], 14);

  // The gateway could not read a file outside the blob folder: refused before any request.
  local_ = blob_;
  WriteFile(dir_.File("elsewhere.txt"), "x");
  Expect({"create", dir_.File("elsewhere.txt")}, 2,
         "put " + dir_.File("elsewhere.txt") + " into the local blob folder");
  Expect({"create", "fehlt.txt"}, 2, "no import file fehlt.txt in the local blob folder");
}

// Every member with its parameters; box-drawing characters only in a UTF-8 locale; colour only on a terminal
// and never with NO_COLOR.
TEST(VantorCliTerminal, CallListGlyphsFollowTheLocaleAndColourTheTerminal) {
  for (const auto& [locale, rule] :
       std::vector<std::pair<const char*, std::string>>{{"C.UTF-8", "──────"}, {"C", "------"}, {"POSIX", "------"}}) {
    ScopedEnv scoped("LC_ALL", locale);
    EXPECT_THAT(
        RunLine({"call", "--list"}).out,
        AllOf(::testing::StartsWith("member  "), HasSubstr("\n" + rule),
              ::testing::ContainsRegex("\nEASYGetArchivesInit +operation  Variant  strChannel, \\[out strStatus\\]\n")))
        << locale;
  }
  const json members = RunLine({"--json", "call", "--list"}).Json();
  ASSERT_EQ(members.size(), 77u);  // 11 properties, 66 operations
  EXPECT_EQ(members[0]["member"], "strREMOTEHOST");
  EXPECT_EQ(RunLine({"call", "--list", "EASYGetChannelsInit"}).code, 2);
  EXPECT_THAT(RunLine({"call"}).err, HasSubstr("vantor call --list"));

  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0);
  const int terminal = ::open(::ptsname(master), O_RDWR | O_NOCTTY), file = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(terminal, 0);
  ScopedEnv term("TERM", "xterm");
  // NO_COLOR, the descriptor and whether it gets colour.
  for (const auto& [no_colour, fd, allowed] : std::vector<std::tuple<const char*, int, bool>>{
           {nullptr, terminal, true}, {nullptr, file, false}, {"1", terminal, false}, {"", terminal, false}}) {
    ScopedEnv scoped("NO_COLOR", no_colour);
    EXPECT_EQ(ColourAllowed(fd), allowed) << (no_colour ? no_colour : "unset") << " " << fd;
  }
  for (const int fd : {file, terminal, master}) ::close(fd);
}

}  // namespace
}  // namespace vantor
