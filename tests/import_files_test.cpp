#include <gtest/gtest.h>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::kMinusOne;
using testing::kOne;
using testing::RuntimeErrorNumber;
using testing::TempDir;
using Documents = testing::SessionTest;

TEST(ImportFiles, DescriptionsAreAppendedInTheCodePage) {
  TempDir dir;
  clsVantor v;
  Variant status = "old";
  const std::string a = dir.File("a.imp");
  EXPECT_EQ(v.CreateImportFile(a, "CH", "AR", "Müller € 4711", "1,1,3", "NR,NAME", "NR=1\r\nNAME=x", Variant::missing(),
                               &status),
            kOne);
  EXPECT_EQ(status, Variant(""));
  const std::string once =
      "@DB,$(#CH)\\AR\r\n@FOLDER,FT:M\xFCller \x80 4711,1:NR,1:NAME\r\nNR=1\r\nNAME=x\r\n";  // the third type dropped
  EXPECT_EQ(testing::ReadFile(a), once);
  EXPECT_EQ(v.CreateImportFile(a, "CH", "AR", "Müller € 4711", "1,1,3", "NR,NAME", "NR=1\r\nNAME=x"), kOne);
  EXPECT_EQ(testing::ReadFile(a), once + once);

  // A charset passed as "" still gives its line; an empty list gives no field pairs.
  const std::string b = dir.File("b.imp");
  EXPECT_EQ(v.CreateImportFile(b, "CH", "AR", "T", "", "NR", "", ""), kOne);
  EXPECT_EQ(v.CreateImportFile(b, "CH", "AR", "T,:x", "1,2", "", "c", "ISO-8859-1"), kOne);
  EXPECT_EQ(testing::ReadFile(b),
            "@DB,$(#CH)\\AR\r\n@CHARSET,\r\n@FOLDER,FT:T\r\n\r\n"
            "@DB,$(#CH)\\AR\r\n@CHARSET,ISO-8859-1\r\n@FOLDER,FT:T,:x\r\nc\r\n");

  status = "old";
  EXPECT_EQ(RuntimeErrorNumber(
                [&] { v.CreateImportFile(dir.File("no/such.imp"), "C", "A", "T", "1", "N", "c", "", &status); }),
            76);
  EXPECT_EQ(status, Variant("old"));
}

TEST_F(Documents, CreateEditAndDeleteRequestsAndTheirResults) {
  Answer("Status: OK\r\nDOC1;1\r\nmore");
  Answer("Status: OK\r\nDOC1;2");
  Answer("Status: OK");
  Answer("Status: Error 4 gesperrt");
  Variant ref, status = "old";
  EXPECT_EQ((Outs{v().EASYCreateDocument("\\\\srv\\imp\\a.imp", &ref, &status), ref, status}),
            (Outs{int32_t{2}, "DOC1;1", ""}));
  EXPECT_EQ((Outs{v().EASYEditDocument("\\\\srv\\imp\\b.imp", &ref, &status), ref}), (Outs{int32_t{1}, "DOC1;2"}));
  status = "old";
  EXPECT_EQ((Outs{v().EASYDeleteDocument("CH", "AR", "DOC1", int16_t{2}, &status), status}), (Outs{kOne, ""}));
  EXPECT_EQ(Requests(), (std::vector<std::string>{
                            "^S1^,^u^,^ABA1^,^CreateDocument^,^\\\\srv\\imp\\a.imp^",
                            "^S1^,^u^,^ABA1^,^EditDocument^,^\\\\srv\\imp\\b.imp^,^DOC1;1^",
                            "^S1^,^u^,^ABA1^,^DeleteDocument^,^CH^,^AR^,^DOC1^,^2^",
                        }));

  // Error answers: -1 and the status text, the reference kept.
  EXPECT_EQ(v().EASYEditDocument("x", &ref, &status), kMinusOne);
  EXPECT_EQ((Outs{status, ref}), (Outs{"Error 4 gesperrt", "DOC1;2"}));
  EXPECT_EQ(v().EASYCreateDocument("x", &ref, &status), kMinusOne);
  EXPECT_EQ(v().EASYDeleteDocument("CH", "AR", "DOC1", "2", &status), kMinusOne);
  EXPECT_EQ(ref, Variant("DOC1;2"));
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYEditDocument("x", nullptr); }), 449);
}

TEST_F(Documents, AReplyWithoutRowsCannotFillTheReference) {
  Answer("Status: OK");
  EXPECT_EQ(v().EASYCreateDocument("x"), Variant(int32_t{0}));
  Variant ref = "R", status = "old";
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYCreateDocument("x", &ref, &status); }), 9);
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYEditDocument("x", &ref, &status); }), 9);
  EXPECT_EQ((Outs{ref, status}), (Outs{"R", "old"}));
}

}  // namespace
}  // namespace halqvantor
