#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <memory>

#include "component/vantor_impl.h"
#include "support/fake_clock.h"
#include "support/temp_dir.h"
#include "support/variant_print.h"

namespace halqvantor {
namespace {

using testing::FakeClock;
using testing::TempDir;
namespace fs = std::filesystem;

// A posted form with one part, as a browser sends it.
std::string Body(const std::string& disposition, const std::string& content) {
  return "-----------------------------7d41b838504d8\r\n" + disposition +
         "\r\nContent-Type: application/octet-stream\r\n\r\n" + content +
         "\r\n-----------------------------7d41b838504d8--\r\n";
}

class BrowserUpload : public ::testing::Test {
 protected:
  BrowserUpload() {
    SetEnvironment(v, &clock);
    v.strBlobPathLocal = blob.path();
    v.strDebugLogPath = logs.path();
    v.strSessionID = "S9";
  }
  void Post(const std::string& body) {
    v.OnStartPage(std::make_shared<MemoryScriptingContext>(
        std::make_shared<MemoryPageRequest>(std::vector<uint8_t>(body.begin(), body.end()))));
  }

  FakeClock clock;
  TempDir blob, logs;
  clsVantor v;
};

// Folders in the name go, headers in any case, 8-bit names; a prefix names the file and replaces an older one.
TEST_F(BrowserUpload, StoresTheBareClientNameWithItsBytes) {
  testing::WriteFile(blob.File("K17_a.pdf"), "an older and much longer file");
  const std::vector<std::array<std::string, 3>> cases = {
      // disposition, prefix, the file stored
      {"Content-Disposition: form-data; name=\"f\"; filename=\"x/y/b.txt\"", "", "b.txt"},
      {"content-disposition: form-data; name=\"f\"; FILENAME=\"Upper.TXT\"", "", "Upper.TXT"},
      {"Content-Disposition: form-data; name=\"f\"; Filename=\"K\xE4se.txt\"", "", "Käse.txt"},  // one byte a character
      {"Content-Disposition: form-data; name=\"f\"; filename=\"a.pdf\"", "K17", "K17_a.pdf"}};
  const std::string content("PDF\0\r\n\r\n--x\xFF", 12);
  for (const auto& [disposition, prefix, stored] : cases) {
    Post(Body(disposition, content));
    Variant name, size;
    ASSERT_TRUE(v.UploadFile(prefix.empty() ? Variant::missing() : Variant(prefix), &name, &size)) << stored;
    EXPECT_EQ(std::pair(name, size),
              std::pair(Variant(stored.substr(prefix.empty() ? 0 : prefix.size() + 1)), Variant(int32_t{12})));
    EXPECT_EQ(testing::ReadFile(blob.File(stored)), content);
  }
  EXPECT_FALSE(fs::exists(blob.File("a.pdf")));
}

// Each refusal leaves the outputs and the blob folder alone and logs its error; a part without a file name
// is no failure and logs nothing.
TEST_F(BrowserUpload, NoNameOrABrokenBodyStoresNothing) {
  Variant name = "old", size = int32_t{1};
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));  // no page request
  const std::string file = "Content-Disposition: form-data; filename=";
  const std::vector<std::array<std::string, 3>> posts = {
      // body, prefix, blob folder
      {Body(file + "\"\"", "abc")},          {Body("Content-Disposition: form-data; name=\"title\"", "abc")},
      {"--b\r\n" + file + "\"a.pdf\"\r\n"},  {Body(file + "\"a.pdf\"", "")},  // a file of no bytes
      {Body(file + "\"..\"", "abc")},        {Body(file + "\"a\"", "abc"), "../up"},
      {Body(file + "\"a\"", "abc"), "", "-"}};  // never the root folder
  for (const auto& [body, prefix, folder] : posts) {
    if (folder == "-") v.strBlobPathLocal = "";
    Post(body);
    EXPECT_FALSE(v.UploadFile(prefix.empty() ? Variant::missing() : Variant(prefix), &name, &size)) << body;
  }
  EXPECT_FALSE(fs::exists("/a"));
  EXPECT_EQ(std::pair(name, size), std::pair(Variant("old"), Variant(int32_t{1})));
  EXPECT_TRUE(fs::is_empty(blob.path()));
  std::vector<std::string> log;
  for (const std::string& line : testing::ReadLines(logs.File("S9.LOG"))) log.push_back(line.substr(22));
  const std::string f = "Allgemeiner Fehler in Funktion 'UploadFile': ", bad = f + "75 - Path/File access error.";
  EXPECT_EQ(log, (std::vector<std::string>{f + "91 - Object variable or With block variable not set.",
                                           f + "9 - Subscript out of range.", f + "9 - Subscript out of range.", bad,
                                           bad, f + "76 - Path not found: no local blob folder set."}));
}

TEST(CleanUp, FilesThenOneLevelOfFolders) {
  TempDir blob, outside;
  const std::string b = blob.path();
  for (const char* dir : {"/sub1/deeper", "/sub2", "/S1_dir"}) fs::create_directories(b + dir);
  for (const char* file : {"/a.tif", "/S1_x.pdf", "/S1_y", "/sub1/x", "/sub1/deeper/z", "/sub2/w", "/S1_dir/f"}) {
    testing::WriteFile(b + file, "x");
  }
  testing::WriteFile(outside.File("keep"), "x");
  fs::create_directory_symlink(outside.path(), b + "/S1_link");

  clsVantor v;
  v.DeleteFTPObjects(b + "/S1_?");
  EXPECT_FALSE(fs::exists(b + "/S1_y"));
  EXPECT_TRUE(fs::exists(b + "/S1_x.pdf"));
  v.DeleteFTPObjects(b + "/S1_*");
  for (const char* gone : {"/S1_x.pdf", "/S1_dir"}) EXPECT_FALSE(fs::exists(b + gone)) << gone;
  EXPECT_FALSE(fs::exists(fs::symlink_status(b + "/S1_link")));  // the link goes, not what it points to
  EXPECT_TRUE(fs::exists(outside.File("keep")));
  EXPECT_TRUE(fs::exists(b + "/a.tif"));

  v.DeleteFTPObjects(b + "/*");
  for (const char* gone : {"/a.tif", "/sub2", "/sub1/x"}) EXPECT_FALSE(fs::exists(b + gone)) << gone;
  EXPECT_TRUE(fs::exists(b + "/sub1/deeper/z"));  // a folder that still holds a folder stays

  v.DeleteFTPObjects(b + "/nowhere/*");
  v.DeleteFTPObjects(Variant::null());
  EXPECT_TRUE(fs::exists(b + "/sub1/deeper/z"));
}

}  // namespace
}  // namespace halqvantor
