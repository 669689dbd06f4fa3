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
#include <regex>
#include <sstream>
#include <string>
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
using ::testing::HasSubstr;
using ::testing::Not;
using json = nlohmann::json;

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
       {"id       version  Rechnungsnummer  Lieferant", "2 of 14 hits, in the gateway's order\n"},
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
  EXPECT_THAT(help.out, HasSubstr("Examples:\n  VANTOR_PASSWORD=easy vantor"));
  // One line, name and dotted version, as help2man and scripts read it; a sub-command after it is not run.
  Outcome version = RunLine({"--version", "channels"});
  EXPECT_EQ(version.code, 0);
  EXPECT_THAT(version.out, ::testing::MatchesRegex("vantor [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  port_ = std::to_string(halqvantor::testing::ScriptedGateway::UnusedPort());
  Outcome refused = Run({"channels"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err,
            "EASYGetChannelsInit: Winsock Error (10061 - Connection is forcefully rejected)\nis vantor-gateway "
            "running on 127.0.0.1:" +
                port_ + "? (check --host and --port, or VANTOR_HOST and VANTOR_PORT)\n");
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

  auto suppliers = [](const json& query) {
    std::vector<std::string> names;
    for (const auto& hit : query["hits"]) names.push_back(hit["lieferant"]);
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
  EXPECT_EQ(archives["outputs"], json::parse(R"([{"type":"String","value":"","name":"strStatus"}])"));
}

TEST_F(VantorCli, FetchPrintsTheLocalPathWithTheMappedExtension) {
  Outcome data = Run({"--ext-map", "TIF-PDF", "fetch", "FIBU", "Eingangsrechnungen", "1000001", "1", "BELEG"});
  ASSERT_EQ(data.code, 0) << data.err;
  EXPECT_EQ(data.out, blob_ + "/1000001_1_2.PDF\n");
  EXPECT_TRUE(fs::exists(blob_ + "/1000001_1_2.PDF"));

  json pages = Run({"--json", "fetch", "VERTRAG", "Verträge", "1000030", "1", "--pages", "2-3"}).Json();
  EXPECT_EQ(pages["path"], blob_ + "/" + pages["file"].get<std::string>());
  EXPECT_EQ(fs::file_size(pages["path"].get<std::string>()), pages["length"]);
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

  // The gateway's early close says at once what went wrong (the time-out is 10 s): exit 1 with the reason.
  struct Case {
    std::vector<std::string> args;
    bool remote;  // --blob-remote given
    std::string err;
  };
  for (const Case& c : std::vector<Case>{
           {{"transfer", "scan.bin", "70001"}, true, "closed the connection after 70,000 of 70,001 bytes (LENGTH too"},
           {{"transfer", "nix.bin", "5"}, true, "before sending anything: no such file on the gateway?\n"},
           {{"transfer", "scan.bin", "5"}, false, "no such file on the gateway? (--blob-remote is not set)"},
       }) {
    std::vector<std::string> line = {"--host", "127.0.0.1", "--port",     port_,  "--timeout",    "10",
                                     "--user", "easy",      "--password", "easy", "--blob-local", local_};
    if (c.remote) line.insert(line.end(), {"--blob-remote", blob_});
    line.insert(line.end(), c.args.begin(), c.args.end());
    const auto start = std::chrono::steady_clock::now();
    Outcome o = RunLine(line);
    EXPECT_EQ(o.code, 1) << c.err;
    EXPECT_THAT(o.err, HasSubstr(c.err));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << c.err;
  }

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
  EXPECT_EQ(notes.back()["number"], notes.size());

  {
    ScopedEnv utf8("LC_ALL", "C.UTF-8");
    EXPECT_THAT(Run({"notes", "FIBU", "Eingangsrechnungen", "1000003", "1"}).out, HasSubstr("Erste Zeile⏎zweite"));
  }
  ScopedEnv ascii("LC_ALL", "C");
  EXPECT_THAT(Run({"notes", "FIBU", "Eingangsrechnungen", "1000003", "1"}).out, HasSubstr("Erste Zeile\\nzweite"));
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
  EXPECT_EQ(r["id"], 1);
  EXPECT_EQ(sorted(r["rights"]), json({"NOTIZEN", "SUCHE", "UPLOAD"}));
  EXPECT_EQ(sorted(r["edit_rights"]), json({"Eingangsrechnungen,N,E,D", "Verträge,E"}));
  EXPECT_EQ(Run({"--json", "rights", "2"}).Json()["archives"], json({"Verträge"}));  // by user id
  EXPECT_EQ(Run({"rights", "nobody"}).code, 1);

  db_.clear();
  Outcome no_db = Run({"logon", "anna", "x"});
  EXPECT_EQ(no_db.code, 2);
  EXPECT_THAT(no_db.err, HasSubstr("--db"));
  db_ = dir_.File("missing.db");
  Outcome bad_db = Run({"logon", "anna", "x"});
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

// Runs `line` with `input` as standard input.
Outcome RunWithInput(const std::vector<std::string>& line, const std::string& input) {
  std::istringstream in(input);
  std::ostringstream out, err;
  const int code = RunVantor(line, in, out, err);
  return {code, out.str(), err.str()};
}

TEST_F(VantorCli, UploadTheGatewayRefusesFailsWithItsStatus) {
  halqvantor::gateway::GatewayOptions small;
  small.max_upload_bytes = 100;
  gateway_.Start(small);
  port_ = std::to_string(gateway_.port());
  WriteFile(blob_ + "/big.bin", std::string(5000, 'x'));
  const Outcome run = Run({"upload", "big.bin"});
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, ::testing::StartsWith("EASYUploadFile: Error 84 "));
}

// Portal passwords never need the command line, a name is added once, and log-on needs its password.
TEST_F(VantorCli, PortalUsersPasswordsFromStdinAndNoDuplicates) {
  db_ = dir_.File("users.db");
  ASSERT_EQ(RunLine({"initdb", db_}).code, 0);
  const std::vector<std::string> db = {"--db", db_};
  struct Case {
    std::vector<std::string> args;
    std::string input;
    int code;
    std::string out, err;  // whole output, a part of the error output
  };
  const std::vector<Case> cases = {
      {{"adduser", "anna", "--password-stdin"}, "Geheim1\r\nrest\n", 0, "added anna with user id 1\n", ""},
      {{"adduser", "anna", "Anders"}, "", 1, "", "has a user anna already (user id 1)"},
      {{"adduser", "bert"}, "", 2, "", "adduser needs the password of bert"},
      {{"logon", "anna"}, "", 2, "", "--empty-password for a user without one"},
      {{"logon", "anna", "--password-stdin"}, "Geheim1\n", 0, "anna: user id 1\n", ""},
      {{"logon", "--password-stdin", "anna"}, "falsch\n", 1, "", "log-on refused for anna"},
      {{"logon", "anna", "--empty-password"}, "", 1, "", "log-on refused for anna"},
      {{"logon", "anna", "x", "--empty-password"}, "", 2, "", "excludes"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    std::vector<std::string> line = db;
    line.insert(line.end(), c.args.begin(), c.args.end());
    const Outcome run = RunWithInput(line, c.input);
    EXPECT_EQ(run.code, c.code) << run.err;
    EXPECT_EQ(run.out, c.out);
    EXPECT_THAT(run.err, HasSubstr(c.err));
  }
  ASSERT_EQ(RunLine({"--db", db_, "adduser", "leer", "--password-stdin"}).code, 2);  // no input: no password
}

// Usage mistakes end with 2 and say what to do; global options work after the command too.
TEST_F(VantorCli, UsageMessagesNameWhatToGive) {
  struct Case {
    std::vector<std::string> args;
    int code;
    std::string out, err;  // parts
  };
  const std::vector<Case> cases = {
      {{"chanels"}, 2, "", "vantor: unknown command 'chanels'; did you mean channels? (`vantor help` lists"},
      {{"--json", "adduserr", "x"}, 2, "", "did you mean adduser?"},
      {{"xyzzy"}, 2, "", "unknown command 'xyzzy' (`vantor help`"},
      {{"help", "xyzzy"}, 2, "", "unknown command 'xyzzy'"},
      {{"help"}, 0, "Examples:", ""},
      {{"help", "channels"}, 0, "Usage: vantor channels", ""},
      {{"channels", "--help"}, 0, "Global options (before or after the command):", ""},
      {{"--port", "99999", "channels"}, 2, "", "'99999' is no port: give a whole number from 1 to 65535"},
      {{"--timeout", "x", "channels"}, 2, "", "'x' is no number of seconds: give a whole number from 1 to 86400"},
      {{"channels", "--host", "127.0.0.1", "--port", port_, "--json", "--user", "easy", "--password", "easy"},
       0,
       "\"channel\": \"FIBU\"",
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    const Outcome run = RunLine(c.args);
    EXPECT_EQ(run.code, c.code) << run.err;
    EXPECT_THAT(run.out, HasSubstr(c.out));
    EXPECT_THAT(run.err, HasSubstr(c.err));
  }
  ::setenv("VANTOR_PORT", "47x", 1);
  ::setenv("VANTOR_PASSWORD", "easy", 1);
  const Outcome variable = RunLine({"--host", "127.0.0.1", "channels"});
  const Outcome overridden = RunLine({"--host", "127.0.0.1", "--port", port_, "--user", "easy", "channels"});
  ::unsetenv("VANTOR_PORT");
  ::unsetenv("VANTOR_PASSWORD");
  EXPECT_EQ(variable.code, 2);
  EXPECT_EQ(variable.err,
            "vantor: the environment variable VANTOR_PORT is wrong: '47x' is no port: give a whole number from 1 to "
            "65535 (or unset it)\n");
  EXPECT_EQ(overridden.code, 0) << overridden.err;
}

// Passwords stay out of what we print and log; the log is its owner's alone and has a visible name.
TEST_F(VantorCli, SecretsMaskedAndTheDebugLogPrivate) {
  const Outcome odbc =
      RunLine({"--db", "Driver={No Such};Server=db;UID=sa;PWD={se;cr}}et};Database=u", "logon", "anna", "x"});
  EXPECT_EQ(odbc.code, 1);
  EXPECT_THAT(odbc.err, HasSubstr("user database Driver={No Such};Server=db;UID=sa;PWD=***;Database=u: "));
  EXPECT_THAT(odbc.err, Not(HasSubstr("se;cr")));

  const std::string logs = dir_.File("logs");  // made by the first line
  ASSERT_EQ(Run({"--log", logs, "channels"}).code, 0);
  EXPECT_EQ(fs::status(logs).permissions() & fs::perms::all, fs::perms::owner_all);
  const std::string log = logs + "/vantor.LOG";
  EXPECT_EQ(fs::status(log).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_THAT(ReadFile(log), HasSubstr("Verbindungsaufbau."));

  db_ = dir_.File("empty.db");  // no tables: the look-up fails, and the message names the log file
  WriteFile(db_, "");
  const Outcome failed = Run({"--log", logs, "rights", "anna"});
  EXPECT_EQ(failed.code, 1);
  EXPECT_EQ(failed.err, "CheckLogon: failed (the debug log " + log + " says why)\n");
  db_.clear();

  WriteFile(dir_.File("plain"), "");
  const Outcome unwritable = Run({"--log", dir_.File("plain"), "channels"});
  EXPECT_EQ(unwritable.code, 0);
  EXPECT_EQ(unwritable.err,
            "warning: no debug log: the folder " + dir_.File("plain") + " cannot be written (it is no folder)\n");
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

// Every key of a JSON value, at any depth, is snake_case: what a script may rely on.
void ExpectSnakeCaseKeys(const json& value, const std::string& where) {
  static const std::regex kSnake("[a-z][a-z0-9_]*");
  if (value.is_object()) {
    for (const auto& [key, item] : value.items()) {
      EXPECT_TRUE(std::regex_match(key, kSnake)) << where << ": key \"" << key << "\"";
      ExpectSnakeCaseKeys(item, where);
    }
  } else if (value.is_array()) {
    for (const auto& item : value) ExpectSnakeCaseKeys(item, where);
  }
}

// The shapes scripts read: snake_case keys everywhere, numbers, booleans, arrays and ISO dates where the
// table shows texts; CSV records; errors as a JSON object on stderr.
TEST_F(VantorCli, ScriptOutputIsTypedJsonOrCsvAndErrorsStayJson) {
  struct Shape {
    std::vector<std::string> args;
    std::string pointer;  // a JSON pointer into the output
    json expected;
  };
  const std::vector<Shape> shapes = {
      {{"doc", "FIBU", "Eingangsrechnungen", "1000001", "1"}, "/info/created_iso", "2002-01-01"},
      {{"doc", "FIBU", "Eingangsrechnungen", "1000001", "1"}, "/info/text_fields", 1},
      {{"doc", "FIBU", "Eingangsrechnungen", "1000001", "1"}, "/segments/1/image_length", 9496},
      {{"query", "FIBU", "Eingangsrechnungen", "", "--max", "2"}, "/total_hits", 14},
      {{"query", "FIBU", "Eingangsrechnungen", "", "--max", "2"}, "/sorted", nullptr},
      {{"query", "FIBU", "Eingangsrechnungen", "", "--max", "1"}, "/hits/0/rechnungsdatum_iso", "2002-01-01"},
      {{"fields", "FIBU", "Eingangsrechnungen"}, "/fields/0/size", 20},
      {{"fields", "FIBU", "Eingangsrechnungen"}, "/fields/0/select_list/3", "Technik"},
      {{"masks", "FIBU", "Eingangsrechnungen"}, "/0/mandatory", true},
      {{"masks", "FIBU", "Eingangsrechnungen"},
       "/4/list",
       json::array({"Einkauf", "Vertrieb", "Verwaltung", "Technik"})},
      {{"formats", "FIBU", "Eingangsrechnungen"}, "/1", json({{"format", "Kurz"}})},
      {{"call", "EASYGetDocumentInfo", "FIBU", "Eingangsrechnungen", "1000001", "1"},
       "/outputs/3/value",
       "Rechnung 2002-0117 Meier GmbH"},
  };
  for (const Shape& shape : shapes) {
    std::vector<std::string> args = {"--json"};
    args.insert(args.end(), shape.args.begin(), shape.args.end());
    const Outcome run = Run(args);
    SCOPED_TRACE(::testing::PrintToString(args));
    ASSERT_EQ(run.code, 0) << run.err;
    const json output = run.Json();
    const json::json_pointer pointer(shape.pointer);
    EXPECT_EQ(output.contains(pointer) ? output.at(pointer) : json("(missing)"), shape.expected);
    ExpectSnakeCaseKeys(output, shape.args[0]);
  }

  Outcome masks = Run({"--csv", "masks", "FIBU", "Eingangsrechnungen"});
  EXPECT_THAT(masks.out, ::testing::StartsWith("mask,field,tab,width,align,name,mandatory,initial,list_only,list\r\n"));
  EXPECT_THAT(masks.out, HasSubstr(",Betrag,no,\"0,00\",no,\r\n"));
  EXPECT_THAT(Run({"--csv", "notes", "FIBU", "Eingangsrechnungen", "1000003", "1"}).out,
              ::testing::StartsWith("number,author,date,date_iso,time,text\r\n"));

  struct Failure {
    std::vector<std::string> args;
    int code;
    std::string error;
  };
  const std::vector<Failure> failures = {
      {{"--json", "query", "FIBU", "Rechnungen", "x"}, 1, "EASYQueryArchiveInit: Error 31 Archiv unbekannt"},
      {{"--json", "formats", "FIBU", "Rechnungen"}, 1, "EASYGetQueryFormatListInit: Error 31"},
      {{"--json", "query", "FIBU"}, 2, "ARCHIVE is required"},
      {{"--json", "query", "FIBU", "Eingangsrechnungen", "", "--max", "zwei"}, 2, "'zwei' is no hit count"},
      {{"--json", "call", "EASYFrobnicate"}, 2, "EASYFrobnicate"},
      {{"--json", "--csv", "channels"}, 2, "excludes"},
  };
  for (const Failure& f : failures) {
    const Outcome run = Run(f.args);
    SCOPED_TRACE(::testing::PrintToString(f.args));
    EXPECT_EQ(run.code, f.code);
    EXPECT_EQ(run.out, "");
    const json error = json::parse(run.err);  // one object, nothing else
    EXPECT_EQ(error["exit_code"], f.code);
    EXPECT_THAT(error["error"].get<std::string>(), HasSubstr(f.error));
  }
}

// --asc and --desc put the last sort column in the wanted order whatever the clicks before gave, and the
// footer says which order it is.
TEST_F(VantorCli, QueryOrderFollowsAscDescAndTheFooterSaysIt) {
  const auto dates = [&](std::vector<std::string> extra) {
    std::vector<std::string> args = {"--json", "query", "FIBU", "Eingangsrechnungen", ""};
    args.insert(args.end(), extra.begin(), extra.end());
    const json query = Run(args).Json();
    std::vector<std::string> iso;
    for (const auto& hit : query["hits"]) iso.push_back(hit["rechnungsdatum_iso"]);
    return iso;
  };
  for (const auto& extra : std::vector<std::vector<std::string>>{{"--sort", "Rechnungsdatum", "--asc"},
                                                                 {"--sort", "4", "--sort", "4", "--asc"}}) {
    const std::vector<std::string> ascending = dates(extra);
    ASSERT_EQ(ascending.size(), 14u);
    EXPECT_TRUE(std::is_sorted(ascending.begin(), ascending.end())) << ::testing::PrintToString(extra);
  }
  const std::vector<std::string> descending = dates({"--sort", "Rechnungsdatum", "--desc"});
  EXPECT_TRUE(std::is_sorted(descending.rbegin(), descending.rend()));

  EXPECT_THAT(Run({"query", "FIBU", "Eingangsrechnungen", "", "--sort", "rechnungsdatum", "--desc"}).out,
              HasSubstr("14 of 14 hits, sorted by Rechnungsdatum, newest first\n"));
  EXPECT_THAT(Run({"query", "FIBU", "Eingangsrechnungen", "", "--asc"}).out,
              HasSubstr("14 of 14 hits, sorted by id, oldest first\n"));
  EXPECT_THAT(Run({"query", "FIBU", "Eingangsrechnungen", "", "--sort", "Lieferant", "--desc"}).out,
              HasSubstr("sorted by Lieferant, descending\n"));
  EXPECT_EQ(Run({"query", "FIBU", "Eingangsrechnungen", "", "--asc", "--desc"}).code, 2);
  EXPECT_THAT(Run({"query", "FIBU", "Eingangsrechnungen", "", "--sort", "99"}).err, HasSubstr("no column 99"));
}

// Documents from an import file in the shared blob folder: created, changed, deleted; --blob names that
// folder for both sides at once.
TEST_F(VantorCli, CreateEditAndDeleteDocumentsFromAnImportFile) {
  WriteFile(blob_ + "/neu.txt",
            "@DB,$(#FIBU)\\Eingangsrechnungen\r\n@FOLDER,FT:Rechnung Test,1:1,1:2\r\n^2002-9999^,^Test GmbH^\r\n");
  const auto run = [&](std::vector<std::string> args) {
    std::vector<std::string> line = {"--host", "127.0.0.1", "--port", port_, "--user", "easy", "--password", "easy"};
    line.insert(line.end(), args.begin(), args.end());
    return RunLine(line);
  };
  Outcome created = run({"--blob", blob_, "--json", "create", "neu.txt"});
  ASSERT_EQ(created.code, 0) << created.err;
  const std::string id = created.Json()["id"];
  EXPECT_EQ(created.Json()["version"], 1);
  EXPECT_EQ(created.Json()["import_file"], blob_ + "\\neu.txt");
  EXPECT_EQ(Run({"--json", "query", "FIBU", "Eingangsrechnungen", ".NR=(2002-9999)"}).Json()["total_hits"], 1);

  EXPECT_EQ(run({"--blob", blob_, "edit", dir_.File("blob/neu.txt"), id}).out,
            "document " + id + " is now version 2\n");
  EXPECT_EQ(Run({"delete", "FIBU", "Eingangsrechnungen", id}).out,
            "deleted document " + id + " from FIBU/Eingangsrechnungen\n");
  Outcome gone = Run({"delete", "FIBU", "Eingangsrechnungen", id});
  EXPECT_EQ(gone.code, 1);
  EXPECT_THAT(gone.err, HasSubstr("EASYDeleteDocument: Error"));

  // The gateway could not read a file outside the blob folder: refused before any request.
  WriteFile(dir_.File("elsewhere.txt"), "x");
  Outcome outside = Run({"create", dir_.File("elsewhere.txt")});
  EXPECT_EQ(outside.code, 2);
  EXPECT_THAT(outside.err, HasSubstr("put " + dir_.File("elsewhere.txt") + " into the local blob folder"));
  EXPECT_THAT(Run({"create", "fehlt.txt"}).err, HasSubstr("no import file fehlt.txt in the local blob folder"));
}

// Grants written into a SQLite user directory show in `rights`; an unknown group changes nothing.
TEST_F(VantorCli, GrantWritesRightsGroupsChannelsAndArchives) {
  db_ = dir_.File("users.db");
  ASSERT_EQ(RunLine({"initdb", db_}).code, 0);
  ASSERT_EQ(Run({"adduser", "anna", "a"}).code, 0);
  ASSERT_EQ(Run({"adduser", "Einkauf", "e"}).code, 0);
  Outcome granted = Run({"--json", "grant", "anna", "--right", "SUCHE", "--group", "Einkauf", "--channel", "FIBU",
                         "--archive", "Eingangsrechnungen"});
  ASSERT_EQ(granted.code, 0) << granted.err;
  EXPECT_EQ(granted.Json()["changes"][1], json({{"kind", "group"}, {"name", "Einkauf"}, {"result", "granted"}}));
  EXPECT_EQ(Run({"--json", "grant", "1", "--right", "SUCHE"}).Json()["changes"][0]["result"], "already granted");
  const json rights = Run({"--json", "rights", "anna"}).Json();
  EXPECT_EQ(rights["rights"], json({"SUCHE"}));
  EXPECT_EQ(rights["groups"], json({"Einkauf"}));
  EXPECT_EQ(rights["channels"], json({"FIBU"}));
  EXPECT_EQ(rights["archives"], json({"Eingangsrechnungen"}));

  Outcome unknown = Run({"grant", "anna", "--right", "UPLOAD", "--group", "Vertrieb"});
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.err, HasSubstr("no group Vertrieb in the user database"));
  EXPECT_EQ(Run({"--json", "rights", "anna"}).Json()["rights"], json({"SUCHE"}));
  EXPECT_EQ(Run({"grant", "anna"}).code, 2);
  EXPECT_THAT(Run({"grant", "7", "--right", "SUCHE"}).err, HasSubstr("no user with id 7"));
  EXPECT_EQ(Run({"--json", "grant", "anna", "--revoke", "--channel", "FIBU"}).Json()["changes"][0]["result"],
            "revoked");
  EXPECT_EQ(Run({"--json", "rights", "anna"}).Json()["channels"], json::array());
}

TEST_F(VantorCli, CallListShowsEveryMemberWithItsParameters) {
  const json members = Run({"--json", "call", "--list"}).Json();
  ASSERT_EQ(members.size(), 77u);  // 11 properties, 66 operations
  EXPECT_EQ(members[0]["member"], "strREMOTEHOST");
  Outcome table = Run({"call", "--list"});
  EXPECT_THAT(table.out, ::testing::ContainsRegex("\nEASYGetArchivesInit +operation  Variant  strChannel, "
                                                  "\\[out strStatus\\]\n"));
  EXPECT_EQ(Run({"call", "--list", "EASYGetChannelsInit"}).code, 2);
  EXPECT_THAT(Run({"call"}).err, HasSubstr("vantor call --list"));
}

// Box-drawing characters only in a UTF-8 locale; colour only on a terminal and never with NO_COLOR.
TEST(VantorCliTerminal, GlyphsFollowTheLocaleAndColourTheTerminal) {
  for (const auto& [locale, rule] :
       std::vector<std::pair<const char*, std::string>>{{"C.UTF-8", "──────"}, {"C", "------"}, {"POSIX", "------"}}) {
    ScopedEnv scoped("LC_ALL", locale);
    EXPECT_THAT(RunLine({"call", "--list"}).out, ::testing::StartsWith("member  ")) << locale;
    EXPECT_THAT(RunLine({"call", "--list"}).out, HasSubstr("\n" + rule)) << locale;
  }

  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(::grantpt(master), 0);
  ASSERT_EQ(::unlockpt(master), 0);
  const int terminal = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
  ScopedEnv term("TERM", "xterm");
  {
    ScopedEnv colour("NO_COLOR", nullptr);
    EXPECT_TRUE(ColourAllowed(terminal));
    const int file = ::open("/dev/null", O_RDONLY);
    EXPECT_FALSE(ColourAllowed(file));
    ::close(file);
  }
  for (const char* value : {"1", ""}) {
    ScopedEnv no_colour("NO_COLOR", value);
    EXPECT_FALSE(ColourAllowed(terminal));
  }
  ::close(terminal);
  ::close(master);
}

TEST(VantorCliText, IsoDatesKeysAndCsvQuoting) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> dates = {
      {"15.03.2002", "2002-03-15"}, {"1.2.2002", "2002-02-01"},         {"29.02.2000", "2000-02-29"},
      {"29.02.1900", std::nullopt}, {"31.04.2002", std::nullopt},       {"15.03.02", std::nullopt},
      {"", std::nullopt},           {"15.03.2002 10:30", "2002-03-15"}, {"3513,76", std::nullopt},
      {"2002-0117", std::nullopt},  {"1.13.2002", std::nullopt},        {"15..2002", std::nullopt},
  };
  for (const auto& [text, iso] : dates) EXPECT_EQ(IsoDate(text), iso) << text;

  for (const auto& [heading, key] :
       std::vector<std::pair<std::string, std::string>>{{"text length", "text_length"},
                                                        {"no-match-code fields", "no_match_code_fields"},
                                                        {"Rechnungsdatum", "rechnungsdatum"},
                                                        {" Größe (KB) ", "größe_kb"}}) {
    EXPECT_EQ(SnakeCase(heading), key);
  }

  std::ostringstream csv;
  WriteCsvRecord(csv, {"plain", "a,b", "sagt \"ja\"", "zwei\r\nZeilen", "\x1b[2J", ""});
  EXPECT_EQ(csv.str(), "plain,\"a,b\",\"sagt \"\"ja\"\"\",\"zwei\nZeilen\",\\x1B[2J,\r\n");
}

}  // namespace
}  // namespace vantor
