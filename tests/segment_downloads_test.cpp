#include "documents/segment_downloads.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::kMinusOne;
using testing::kOne;
using testing::TempDir;
using SegmentFiles = testing::SessionTest;
using SegmentReferences = testing::SessionTest;

TEST_F(SegmentFiles, RequestsCarryTheirArgumentsInOrderAndFillTheOutputs) {
  Answer("Status: OK\r\n1234\r\nA1.TIF\r\n");
  v().strBlobPathRemote = "\\\\srv\\blob";
  v().strBlobPathLocal = "/nonexistent";
  const Variant ch("CH"), ar("AR"), doc("D7"), ver(int16_t{2});
  Variant name = "old", len, status = "old";
  EXPECT_EQ(v().EASYGetSegmentData(ch, ar, doc, ver, Variant(int16_t{3}), &name, &len, &status), kOne);
  EXPECT_EQ((Outs{name, len, status}), (Outs{"A1.TIF", "1234", ""}));  // len as text
  EXPECT_EQ(v().EASYGetSegmentPDF(ch, ar, doc, ver, Variant(int16_t{3}), Variant(int32_t{9})), kOne);
  EXPECT_EQ(v().EASYGetSegmentPrintfile(ch, ar, doc, ver, Variant("F1"), Variant("L1")), kOne);
  EXPECT_EQ(v().EASYGetSegmentPrintfile(ch, ar, doc, ver, Variant("F1"), Variant("L1"), Variant(int16_t{intPrintTIF})),
            kOne);
  EXPECT_EQ(v().EASYGetSegmentMultiTIF(ch, ar, doc, ver, Variant("1-3;7;5-4")), kOne);
  EXPECT_EQ(v().EASYGetSegmentERFInit(ch, ar, doc, ver, Variant(int16_t{3})), Variant(int32_t{2}));
  const std::string key = ",^CH^,^AR^,^D7^,^2^";
  EXPECT_EQ(Requests(), (std::vector<std::string>{
                            Request("^GetSegmentData^") + key + ",^3^,^\\\\srv\\blob^",
                            Request("^GetSegmentPDF^") + key + ",^3^,^9^,^\\\\srv\\blob^",
                            Request("^GetSegmentPrintfile^") + key + ",^F1^,^L1^,^\\\\srv\\blob^,^0^",
                            Request("^GetSegmentPrintfile^") + key + ",^F1^,^L1^,^\\\\srv\\blob^,^1^",
                            Request("^GetSegmentMultiTIF^") + key + ",^1,2,3,7,5,4^,^\\\\srv\\blob^",
                            Request("^GetSegmentERF^") + key + ",^3^",
                        }));
}

TEST_F(SegmentFiles, FailuresAndShortRepliesLeaveTheOutputsAlone) {
  Answer("Status: Error 3 Archiv unbekannt");
  Answer("Status: OK\r\n77");
  Answer("Status: OK");
  v().strChangeFileExt = "TIF-PDF";  // never consulted without a file name from the gateway
  Variant name = "keep", len = int32_t{5}, status;
  const auto outs = [&] { return Outs{status, name, len}; };
  EXPECT_EQ(v().EASYGetSegmentData("C", "A", "D", "V", int16_t{1}, &name, &len, &status), kMinusOne);
  EXPECT_EQ(outs(), (Outs{"Error 3 Archiv unbekannt", "keep", int32_t{5}}));
  // One row or none: the same outs.
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(v().EASYGetSegmentData("C", "A", "D", "V", int16_t{1}, &name, &len, &status), kOne);
    EXPECT_EQ(outs(), (Outs{"", "keep", int32_t{5}}));
  }
  EXPECT_EQ((Outs{v().EASYGetSegmentMultiTIF("C", "A", "D", "V", "1", &name, &len), name}), (Outs{kOne, ""}));
  EXPECT_EQ(len, Variant(int16_t{0}));
}

TEST_F(SegmentFiles, ExtensionMappingRenamesInTheLocalFolder) {
  TempDir blob, outside;
  testing::WriteFile(blob.File("A1.TIF"), "tif");
  testing::WriteFile(blob.File("B2.TIF"), "new");
  testing::WriteFile(blob.File("B2.pdf"), "old");
  testing::WriteFile(outside.File("x.TIF"), "keep");
  // Z9.tif is no file here; B2.pdf, the new name of B2.TIF, is taken.
  const std::string escape = "../" + std::filesystem::path(outside.path()).filename().string() + "/x.TIF";
  for (const char* name : {"A1.TIF", "A1.DOC", "Z9.tif", "B2.TIF", escape.c_str(), "A1.TIF"}) {
    Answer(std::string("Status: OK\r\n3\r\n") + name);
  }
  v().strBlobPathLocal = blob.path();
  Variant name;
  v().strChangeFileExt = "tif-Pdf";
  EXPECT_EQ((Outs{v().EASYGetSegmentData("C", "A", "D", "V", int16_t{1}, &name), name}), (Outs{kOne, "A1.Pdf"}));
  EXPECT_EQ(testing::ReadFile(blob.File("A1.Pdf")), "tif");
  EXPECT_FALSE(std::filesystem::exists(blob.File("A1.TIF")));

  v().strChangeFileExt = "DOC TIF-pdf";
  EXPECT_EQ((Outs{v().EASYGetSegmentMultiTIF("C", "A", "D", "V", "1", &name), name}), (Outs{kOne, "A1.DOC"}));
  EXPECT_EQ((Outs{v().EASYGetSegmentPrintfile("C", "A", "D", "V", "F", "L", Variant::missing(), &name), name}),
            (Outs{kOne, "Z9.pdf"}));
  EXPECT_EQ((Outs{v().EASYGetSegmentData("C", "A", "D", "V", int16_t{1}, &name), name}), (Outs{kOne, "B2.pdf"}));
  EXPECT_EQ(testing::ReadFile(blob.File("B2.pdf")), "old");
  EXPECT_EQ(testing::ReadFile(blob.File("B2.TIF")), "new");
  // A name that leaves the folder is not followed.
  EXPECT_EQ(v().EASYGetSegmentData("C", "A", "D", "V", int16_t{1}, &name), kOne);
  EXPECT_EQ(testing::ReadFile(outside.File("x.TIF")), "keep");

  testing::WriteFile(blob.File("A1.TIF"), "tif");
  EXPECT_EQ((Outs{v().EASYGetSegmentPDF("C", "A", "D", "V", int16_t{1}, int16_t{1}, &name), name}),
            (Outs{kOne, "A1.TIF"}));
  EXPECT_TRUE(std::filesystem::exists(blob.File("A1.TIF")));
  EXPECT_EQ(testing::RuntimeErrorNumber([&] { v().EASYGetSegmentData("C", "A", "D", "V", int16_t{1}); }), 13);

  // Without a local blob folder there is nothing to rename (never "/A1.TIF"); the name is mapped all the same.
  struct NoRenames : platform::EnvWrapper {
    using EnvWrapper::EnvWrapper;
    int RenameWithoutReplacing(const std::string& from, const std::string&) override {
      ADD_FAILURE() << "renamed " << from;
      return 53;
    }
  } disk(&net_);
  SetEnvironment(v(), &disk);
  v().strBlobPathLocal = "";
  EXPECT_EQ((Outs{v().EASYGetSegmentData("C", "A", "D", "V", int16_t{1}, &name), name}), (Outs{kOne, "A1.pdf"}));
}

TEST(MappedNames, ReplaceTheLastThreeCharacters) {
  EXPECT_EQ(MappedFileName("a.tiff", "IFF-xyz"), "a.txyz");
  EXPECT_EQ(MappedFileName("Ä.TIF", "tif-PDF"), "Ä.PDF");
  EXPECT_EQ(MappedFileName("a.TIF", "TIF-P"), "a.P");
  EXPECT_EQ(MappedFileName("TI", "TI-PDF"), std::nullopt);
  EXPECT_EQ(MappedFileName("a.TIF", "TIFPDF"), std::nullopt);
}

// A list too long to make ("1-2000000000") gives nothing.
TEST(PageLists, PiecesAndRanges) {
  const std::pair<std::string, std::string> cases[] = {{"0-5", "5"},        {"3-0", "3"},
                                                       {"0", ""},           {"", ""},
                                                       {"2-2", "2"},        {"0-0", "0"},
                                                       {"1.5-2", "2"},      {"5-3", "5,4,3"},
                                                       {";;4;x;-2", "4,2"}, {"1-3;7;5-4", "1,2,3,7,5,4"},
                                                       {"1-2000000000", ""}};
  for (const auto& [pages, list] : cases) EXPECT_EQ(ExpandPageList(pages), list) << pages;
}

TEST_F(SegmentReferences, LinesAreSplitAtTheirMarkers) {
  Answer("Status: OK\r\n$(#CH1)\\ARCH,DOC9,3\r\nno marker, here,x\r\n$(#C)\\A");
  Variant status = "old";
  ASSERT_EQ(v().EASYGetSegmentERFInit("C", "A", "D", "V", int16_t{1}, &status), Variant(int32_t{3}));
  EXPECT_EQ(status, Variant(""));
  std::vector<Variant> parts(4, Variant("-"));
  EXPECT_EQ(v().EASYGetSegmentERFNext(&parts[0], &parts[1], &parts[2], &parts[3]), Variant("$(#CH1)\\ARCH,DOC9,3"));
  EXPECT_EQ(parts, (Outs{"CH1", "ARCH", "DOC9", "3"}));
  // Without ")\" the channel and archive stay; the commas still give what follows them.
  parts.assign(4, Variant("-"));
  EXPECT_EQ(v().EASYGetSegmentERFNext(&parts[0], &parts[1], &parts[2], &parts[3]), Variant("no marker, here,x"));
  EXPECT_EQ(parts, (Outs{"-", "-", " here", "x"}));
  // No comma after the archive: it is left alone.
  EXPECT_EQ((Outs{v().EASYGetSegmentERFNext(&parts[0], &parts[1]), parts[0], parts[1]}), (Outs{"$(#C)\\A", "C", "-"}));
  EXPECT_EQ((Outs{v().EASYGetSegmentERFNext(&parts[0]), parts[0]}), (Outs{"", "C"}));
}

}  // namespace
}  // namespace halqvantor
