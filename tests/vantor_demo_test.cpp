// `vantor demo` in-process against the built reference gateway: the whole session, a session whose archive
// does not hold what the pages expect, and the set-up failures.

#include <gtest/gtest.h>

#include <asio.hpp>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "demo.h"
#include "demo_setup.h"
#include "platform/sorted_list.h"
#include "support/temp_dir.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::testing::ReadFile;
using halqvantor::testing::TempDir;
using halqvantor::testing::WriteFile;

struct Outcome {
  int code;
  std::string out;
  std::string err;
};

Outcome Demo(const DemoOptions& options) {
  std::ostringstream out, err;
  const int code = RunDemo(options, out, err);
  return {code, out.str(), err.str()};
}

// The folder the demo worked in, from its "blob folder" line.
std::string WorkFolder(const std::string& out) {
  const std::string label = "blob folder    ";
  const size_t at = out.find(label);
  if (at == std::string::npos) return "";
  const size_t end = out.find('\n', at);
  return fs::path(out.substr(at + label.size(), end - at - label.size())).parent_path().string();
}

// The built gateway and the source's sample: this test program does not lie where vantor looks from.
DemoOptions Built() {
  DemoOptions options;
  options.gateway_program = VANTOR_GATEWAY_BINARY;
  options.sample_dir = VANTOR_GATEWAY_SAMPLE;
  return options;
}

TEST(VantorDemo, EveryStepPassesAndTheFolderGoes) {
  const Outcome run = Demo(Built());
  EXPECT_EQ(run.code, 0) << run.out << run.err;
  EXPECT_TRUE(run.out.ends_with("\ndemo: 14 of 14 steps passed\n")) << run.out;
  EXPECT_EQ(run.out.find("FAILED"), std::string::npos);
  EXPECT_EQ(run.err, "");
  // What the pages show: aligned tables, the marked hit, no raw hit rows.
  EXPECT_NE(run.out.find("Lieferant: \u00bbMeier\u00ab GmbH"), std::string::npos);
  EXPECT_EQ(run.out.find("^,^"), std::string::npos);
  const std::string folder = WorkFolder(run.out);
  ASSERT_FALSE(folder.empty());
  EXPECT_FALSE(fs::exists(folder)) << folder;
}

// An output that takes `limit` bytes and then fails, as a pipe does once its reader has gone.
class ClosingOutput : public std::streambuf {
 public:
  explicit ClosingOutput(size_t limit) : limit_(limit) {}
  const std::string& taken() const { return taken_; }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof()) || taken_.size() >= limit_) return traits_type::eof();
    taken_ += traits_type::to_char_type(c);
    return c;
  }

 private:
  size_t limit_;
  std::string taken_;
};

TEST(VantorDemo, AClosedOutputStopsTheGatewayAndRemovesTheFolder) {
  for (const size_t limit : {size_t{200}, size_t{1500}}) {  // in the set-up lines, then during the steps
    ClosingOutput closing(limit);
    std::ostream out(&closing);
    std::ostringstream err;
    EXPECT_EQ(RunDemo(Built(), out, err), kOutputClosed);
    const std::string& taken = closing.taken();
    const size_t start = taken.find("folder         ") + 15;
    const std::string folder = taken.substr(start, taken.find(" (", start) - start);
    ASSERT_TRUE(folder.starts_with("/")) << taken;
    EXPECT_FALSE(fs::exists(folder)) << folder;
    // The gateway's port, from "listening on 127.0.0.1:PORT", takes no connection any more.
    const size_t at = closing.taken().find("127.0.0.1:");
    ASSERT_NE(at, std::string::npos);
    const int port = std::stoi(closing.taken().substr(at + 10));
    asio::io_context io;
    asio::ip::tcp::socket socket(io);
    asio::error_code error;
    socket.connect({asio::ip::make_address("127.0.0.1"), static_cast<uint16_t>(port)}, error);
    EXPECT_TRUE(error) << port;
  }
}

TEST(VantorDemo, AnArchiveThatDiffersFailsItsStepsAndKeepsTheFolder) {
  TempDir dir;
  fs::copy(VANTOR_GATEWAY_SAMPLE, dir.File("sample"), fs::copy_options::recursive);
  std::string archive = ReadFile(dir.File("sample/archive.json"));
  const std::string title = "Rechnung 2002-0117 Meier GmbH";
  ASSERT_NE(archive.find(title), std::string::npos);
  archive.replace(archive.find(title), title.size(), "Rechnung 2002-0117 Maier GmbH");
  WriteFile(dir.File("sample/archive.json"), archive);

  DemoOptions options = Built();
  options.sample_dir = dir.File("sample");
  options.keep = true;
  const Outcome run = Demo(options);
  EXPECT_EQ(run.code, 1) << run.out;
  EXPECT_NE(run.out.find("FAILED: the title is \"Rechnung 2002-0117 Maier GmbH\""), std::string::npos) << run.out;
  EXPECT_TRUE(run.out.ends_with("demo: 13 of 14 steps passed\n")) << run.out;
  EXPECT_EQ(run.err, "vantor demo: failed: Document info of 1000001\n");
  const std::string folder = WorkFolder(run.out);
  EXPECT_NE(run.out.find("kept " + folder + "\n"), std::string::npos);
  EXPECT_TRUE(fs::exists(folder + "/DEMO.LOG"));
  EXPECT_TRUE(fs::exists(folder + "/users.db"));
  fs::remove_all(folder);
}

TEST(VantorDemo, SetUpFailuresEndWithTwoAndSayWhy) {
  DemoOptions missing;
  missing.gateway_program = "/nonexistent/vantor-gateway";
  Outcome run = Demo(missing);
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.err, "vantor demo: the gateway program /nonexistent/vantor-gateway does not exist\n");
  EXPECT_EQ(run.out, "");

  // A program that ends without ever listening.
  DemoOptions silent = Built();
  silent.gateway_program = "/bin/false";
  run = Demo(silent);
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.err, "vantor demo: /bin/false ended before it was listening\n");
  // One that prints something else (echo prints its arguments).
  silent.gateway_program = "/bin/echo";
  run = Demo(silent);
  EXPECT_EQ(run.code, 2);
  EXPECT_TRUE(run.err.starts_with("vantor demo: /bin/echo printed \"--data /")) << run.err;
  EXPECT_TRUE(run.err.ends_with("--port 0\" instead of its listening address\n")) << run.err;

  TempDir empty;
  DemoOptions no_sample = Built();
  no_sample.sample_dir = empty.path();
  run = Demo(no_sample);
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.err, "vantor demo: the sample folder " + empty.path() + " holds no archive.json\n");
}

TEST(VantorDemo, GatewayAndSampleFoundFromTheProgramsFolder) {
  struct Layout {
    std::vector<std::string> files;  // under the prefix
    std::string gateway, sample;     // found from prefix/bin ("" when nothing is)
  };
  const std::vector<Layout> layouts = {
      {{"bin/vantor-gateway", "share/halqvantor/sample/archive.json"}, "bin/vantor-gateway", "share/halqvantor/sample"},
      {{"libexec/halqvantor/vantor-gateway", "share/halqvantor/sample/archive.json"},
       "libexec/halqvantor/vantor-gateway",
       "share/halqvantor/sample"},
      // The build tree: tools/vantor beside tools/gateway, which holds the sample.
      {{"gateway/vantor-gateway", "gateway/sample/archive.json"}, "gateway/vantor-gateway", "gateway/sample"},
      {{"share/halqvantor/sample/other.json"}, "", ""},
  };
  for (const Layout& layout : layouts) {
    TempDir prefix;
    for (const std::string& file : layout.files) {
      fs::create_directories(fs::path(prefix.File(file)).parent_path());
      WriteFile(prefix.File(file), "");
    }
    const std::string bin = prefix.File("bin");
    fs::create_directories(bin);
    if (layout.gateway.empty()) {
      EXPECT_THROW(demo::FindGatewayProgram("", bin), std::runtime_error);
      EXPECT_THROW(demo::FindSample("", bin), std::runtime_error);
      continue;
    }
    EXPECT_EQ(demo::FindGatewayProgram("", bin), prefix.File(layout.gateway));
    EXPECT_EQ(demo::FindSample("", bin), prefix.File(layout.sample));
  }
}

TEST(VantorDemo, HitListOrderIsTheComponentsNotTheCodePages) {
  // By code point Z < Ä < Œ < Š; the code page puts Š (0x8A) and Œ (0x8C) before Ä (0xC4).
  const std::vector<std::string> sorted = {"Zeta", "\u00c4hre", "\u0152uvre", "\u0160imon"};
  EXPECT_TRUE(InHitListOrder(sorted));
  EXPECT_TRUE(InHitListOrder({sorted.rbegin(), sorted.rend()}));
  EXPECT_FALSE(InHitListOrder({"Zeta", "\u0160imon", "\u00c4hre"}));
  // What the component's list gives back passes.
  halqvantor::platform::SortedList list;
  for (const char* name : {"\u0160imon", "zeta", "\u00e4hre", "Apfel"}) list.AddItem(name, 0);
  std::vector<std::string> listed;
  for (int32_t i = 0; i < list.ListCount(); ++i) listed.push_back(list.List(i));
  EXPECT_TRUE(InHitListOrder(listed));
}

}  // namespace
}  // namespace vantor
