// `vantor demo` in-process against the built reference gateway: the whole session, a session whose archive
// does not hold what the pages expect, and the set-up failures.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <asio.hpp>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "demo.h"
#include "demo_setup.h"
#include "support/temp_dir.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::testing::ReadFile;
using halqvantor::testing::TempDir;
using halqvantor::testing::WriteFile;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::FieldsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::PrintToString;

struct Outcome {
  int code;
  std::string out, err;
  friend void PrintTo(const Outcome& o, std::ostream* os) {
    *os << "exit " << o.code << ", output " << PrintToString(o.out) << ", error output " << PrintToString(o.err);
  }
};

Outcome Demo(const DemoOptions& options) {
  std::ostringstream out, err;
  const int code = RunDemo(options, out, err);
  return {code, out.str(), err.str()};
}

// The folder the demo worked in: the one holding the folder of its "blob folder" line.
std::string WorkFolder(const std::string& out) {
  std::smatch found;
  return std::regex_search(out, found, std::regex("blob folder +(.+)/[^/\n]+\n")) ? found.str(1) : "";
}

// The built gateway and the source's sample: this test program does not lie where vantor looks from.
DemoOptions Built() { return {.gateway_program = VANTOR_GATEWAY_BINARY, .sample_dir = VANTOR_GATEWAY_SAMPLE}; }

TEST(VantorDemo, EveryStepPassesAndTheFolderGoes) {
  const Outcome run = Demo(Built());
  // No raw hit rows: the pages show tables.
  EXPECT_THAT(run, FieldsAre(0, AllOf(EndsWith("\ndemo: 14 of 14 steps passed\n"), Not(HasSubstr("^,^"))), ""));
  ASSERT_FALSE(WorkFolder(run.out).empty());
  EXPECT_FALSE(fs::exists(WorkFolder(run.out)));
}

// An output that takes `limit` bytes and then fails, as a pipe does once its reader has gone.
struct ClosingOutput : std::streambuf {
  explicit ClosingOutput(size_t limit) : limit(limit) {}
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof()) || taken.size() >= limit) return traits_type::eof();
    taken += traits_type::to_char_type(c);
    return c;
  }

  const size_t limit;
  std::string taken;  // what it took before it failed
};

TEST(VantorDemo, AClosedOutputStopsTheGatewayAndRemovesTheFolder) {
  for (const size_t limit : {size_t{200}, size_t{1500}}) {  // in the set-up lines, then during the steps
    ClosingOutput closing(limit);
    std::ostream out(&closing);
    std::ostringstream err;
    EXPECT_EQ(RunDemo(Built(), out, err), kOutputClosed);
    // The folder and the gateway's port, from "folder  PATH (...)" and "listening on 127.0.0.1:PORT".
    std::smatch found;
    ASSERT_TRUE(std::regex_search(closing.taken, found, std::regex("folder +(/[^ ]+) \\([^]*127\\.0\\.0\\.1:([0-9]+)")))
        << closing.taken;
    EXPECT_FALSE(fs::exists(found.str(1))) << found.str(1);
    // The gateway takes no connection any more.
    asio::io_context io;
    asio::ip::tcp::socket socket(io);
    asio::error_code error;
    socket.connect({asio::ip::make_address("127.0.0.1"), static_cast<uint16_t>(std::stoi(found.str(2)))}, error);
    EXPECT_TRUE(error) << found.str(2);
  }
}

TEST(VantorDemo, AnArchiveThatDiffersFailsItsStepsAndKeepsTheFolder) {
  TempDir dir;
  fs::copy(VANTOR_GATEWAY_SAMPLE, dir.File("sample"), fs::copy_options::recursive);
  std::string archive = ReadFile(dir.File("sample/archive.json"));
  const size_t meier = archive.find("Rechnung 2002-0117 Meier GmbH");
  ASSERT_NE(meier, std::string::npos);
  WriteFile(dir.File("sample/archive.json"), archive.replace(meier + 20, 1, "a"));  // Maier

  const Outcome run = Demo({.gateway_program = VANTOR_GATEWAY_BINARY, .sample_dir = dir.File("sample"), .keep = true});
  const std::string folder = WorkFolder(run.out);
  EXPECT_THAT(run, FieldsAre(1,
                             AllOf(HasSubstr("FAILED: the title is \"Rechnung 2002-0117 Maier GmbH\""),
                                   HasSubstr("kept " + folder + "\n"), EndsWith("demo: 13 of 14 steps passed\n")),
                             "vantor demo: failed: Document info of 1000001\n"));
  for (const char* file : {"/DEMO.LOG", "/users.db"}) EXPECT_TRUE(fs::exists(folder + file)) << file;
  fs::remove_all(folder);
}

TEST(VantorDemo, SetUpFailuresEndWithTwoAndSayWhy) {
  TempDir empty;
  // The gateway program ("" for the built one), the sample folder ("" likewise) and a part of the error output.
  const std::vector<std::array<std::string, 3>> cases = {
      {"/nonexistent/vantor-gateway", "", "the gateway program /nonexistent/vantor-gateway does not exist\n"},
      {"/bin/false", "", "vantor demo: /bin/false ended before it was listening\n"},  // never listens
      {"/bin/echo", "", "--port 0\" instead of its listening address\n"},             // prints its arguments instead
      {"", empty.path(), "vantor demo: the sample folder " + empty.path() + " holds no archive.json\n"}};
  for (const auto& [program, sample, err] : cases) {
    EXPECT_THAT(Demo({.gateway_program = program.empty() ? VANTOR_GATEWAY_BINARY : program,
                      .sample_dir = sample.empty() ? VANTOR_GATEWAY_SAMPLE : sample}),
                FieldsAre(2, "", HasSubstr(err)));
  }
}

// Installed (bin/ or libexec/, with share/halqvantor/sample) and the build tree (tools/vantor beside
// tools/gateway, which holds the sample), found from prefix/bin.
TEST(VantorDemo, GatewayAndSampleFoundFromTheProgramsFolder) {
  const std::string sample = "share/halqvantor/sample";
  // The gateway and the sample ("": none).
  const std::vector<std::pair<std::string, std::string>> layouts = {{"bin/vantor-gateway", sample},
                                                                    {"libexec/halqvantor/vantor-gateway", sample},
                                                                    {"gateway/vantor-gateway", "gateway/sample"},
                                                                    {"", ""}};
  for (const auto& [gateway, found] : layouts) {
    TempDir prefix;
    fs::create_directories(prefix.File("bin"));
    const std::string none = sample + "/other.json";  // a folder without an archive
    for (const std::string& file : {gateway.empty() ? none : gateway, found.empty() ? none : found + "/archive.json"}) {
      fs::create_directories(fs::path(prefix.File(file)).parent_path());
      WriteFile(prefix.File(file), "");
    }
    if (gateway.empty()) {
      EXPECT_THROW(demo::FindGatewayProgram("", prefix.File("bin")), std::runtime_error);
      EXPECT_THROW(demo::FindSample("", prefix.File("bin")), std::runtime_error);
      continue;
    }
    EXPECT_EQ(demo::FindGatewayProgram("", prefix.File("bin")), prefix.File(gateway));
    EXPECT_EQ(demo::FindSample("", prefix.File("bin")), prefix.File(found));
  }
}

}  // namespace
}  // namespace vantor
