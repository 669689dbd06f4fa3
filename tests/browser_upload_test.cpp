#include <gtest/gtest.h>

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
  std::vector<std::string> Log() const { return testing::ReadLines(logs.File("S9.LOG")); }

  FakeClock clock;
  TempDir blob, logs;
  clsVantor v;
};

// Folders in the name go (the Python test posts one with them); here headers in any case and 8-bit names.
TEST_F(BrowserUpload, StoresTheBareClientNameWithItsBytes) {
  struct Case {
    std::string disposition;
    std::string stored;
  };
  const Case cases[] = {
      {"Content-Disposition: form-data; name=\"f\"; filename=\"x/y/b.txt\"", "b.txt"},
      {"content-disposition: form-data; name=\"f\"; FILENAME=\"Upper.TXT\"", "Upper.TXT"},
      {"Content-Disposition: form-data; name=\"f\"; Filename=\"K\xE4se.txt\"", "Käse.txt"},  // one byte, one character
  };
  const std::string content("PDF\0\r\n\r\n--x\xFF", 12);
  for (const Case& c : cases) {
    Post(Body(c.disposition, content));
    Variant name, size;
    ASSERT_TRUE(v.UploadFile(Variant::missing(), &name, &size)) << c.stored;
    EXPECT_EQ(name, Variant(c.stored));
    EXPECT_EQ(size, Variant(int32_t{12}));
    EXPECT_EQ(testing::ReadFile(blob.File(c.stored)), content);
  }
}

TEST_F(BrowserUpload, APrefixNamesTheFileAndAnOldFileIsReplaced) {
  testing::WriteFile(blob.File("K17_a.pdf"), "an older and much longer file");
  Post(Body("Content-Disposition: form-data; name=\"f\"; filename=\"a.pdf\"", "new"));
  Variant name;
  ASSERT_TRUE(v.UploadFile("K17", &name));
  EXPECT_EQ(name, Variant("a.pdf"));
  EXPECT_EQ(testing::ReadFile(blob.File("K17_a.pdf")), "new");
  EXPECT_FALSE(fs::exists(blob.File("a.pdf")));
}

TEST_F(BrowserUpload, NoNameOrABrokenBodyStoresNothing) {
  Variant name = "old", size = int32_t{1};
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));  // no page request

  Post(Body("Content-Disposition: form-data; name=\"f\"; filename=\"\"", "abc"));
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));
  Post(Body("Content-Disposition: form-data; name=\"title\"", "abc"));
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));
  Post("--b\r\nContent-Disposition: form-data; filename=\"a.pdf\"\r\n");
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));
  Post(Body("Content-Disposition: form-data; filename=\"a.pdf\"", ""));  // a file of no bytes
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));
  Post(Body("Content-Disposition: form-data; filename=\"..\"", "abc"));
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));
  Post(Body("Content-Disposition: form-data; filename=\"a\"", "abc"));
  EXPECT_FALSE(v.UploadFile("../up", &name, &size));
  v.strBlobPathLocal = "";  // never the root folder
  Post(Body("Content-Disposition: form-data; filename=\"a\"", "abc"));
  EXPECT_FALSE(v.UploadFile(Variant::missing(), &name, &size));
  EXPECT_FALSE(fs::exists("/a"));

  EXPECT_EQ(name, Variant("old"));
  EXPECT_EQ(size, Variant(int32_t{1}));
  EXPECT_TRUE(fs::is_empty(blob.path()));
  const std::vector<std::string> log = Log();
  ASSERT_EQ(log.size(), 6u);  // a part without a file name is no failure
  auto text = [&](size_t i) { return log[i].substr(22); };
  EXPECT_EQ(text(0),
            "Allgemeiner Fehler in Funktion 'UploadFile': 91 - Object variable or With block variable not set.");
  EXPECT_EQ(text(1), "Allgemeiner Fehler in Funktion 'UploadFile': 9 - Subscript out of range.");
  EXPECT_EQ(text(2), "Allgemeiner Fehler in Funktion 'UploadFile': 9 - Subscript out of range.");
  EXPECT_EQ(text(3), "Allgemeiner Fehler in Funktion 'UploadFile': 75 - Path/File access error.");
  EXPECT_EQ(text(4), text(3));
  EXPECT_EQ(text(5), "Allgemeiner Fehler in Funktion 'UploadFile': 76 - Path not found: no local blob folder set.");
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
  EXPECT_FALSE(fs::exists(b + "/S1_x.pdf"));
  EXPECT_FALSE(fs::exists(b + "/S1_dir"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(b + "/S1_link")));  // the link goes, not what it points to
  EXPECT_TRUE(fs::exists(outside.File("keep")));
  EXPECT_TRUE(fs::exists(b + "/a.tif"));

  v.DeleteFTPObjects(b + "/*");
  EXPECT_FALSE(fs::exists(b + "/a.tif"));
  EXPECT_FALSE(fs::exists(b + "/sub2"));
  EXPECT_FALSE(fs::exists(b + "/sub1/x"));
  EXPECT_TRUE(fs::exists(b + "/sub1/deeper/z"));  // a folder that still holds a folder stays

  v.DeleteFTPObjects(b + "/nowhere/*");
  v.DeleteFTPObjects(Variant::null());
  EXPECT_TRUE(fs::exists(b + "/sub1/deeper/z"));
}

}  // namespace
}  // namespace halqvantor
