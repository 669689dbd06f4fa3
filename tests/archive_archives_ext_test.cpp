#include <gtest/gtest.h>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;
using ArchiveProperties = testing::SessionTest;
using ArchivesExt = testing::SessionTest;

TEST_F(ArchivesExt, TwoLevelWalkWithSkipsRestartAndTheEnd) {
  Answers({"Status: OK\r\n#K1,Rechnungen, alt\r\nA1\r\nA2\r\n#K2,leer\r\n#K3,x\r\nB1"});
  Variant status("old"), channel, description;
  EXPECT_EQ((Outs{v().EASYGetAllArchivesExtInit(&status), status}), (Outs{int32_t{3}, ""}));
  EXPECT_EQ(Requests()[0], std::string(kHead) + ",^GetAllArchivesExt^");
  EXPECT_EQ((Outs{v().EASYGetAllArchivesExtNext(&channel, &description), channel, description}),
            (Outs{int32_t{2}, "K1", "Rechnungen, alt"}));
  EXPECT_EQ(v().EASYGetAllArchivesExtNextArchive(), Variant("A1"));
  // A2 is skipped; a channel without archives gives 0 and "" without moving.
  EXPECT_EQ((Outs{v().EASYGetAllArchivesExtNext(&channel), channel}), (Outs{int32_t{0}, "K2"}));
  EXPECT_EQ(v().EASYGetAllArchivesExtNextArchive(), Variant(""));
  EXPECT_EQ(v().EASYGetAllArchivesExtNextArchive(), Variant(""));
  EXPECT_EQ((Outs{v().EASYGetAllArchivesExtNext(&channel), channel}), (Outs{int32_t{1}, "K3"}));
  EXPECT_EQ(v().EASYGetAllArchivesExtNextArchive(), Variant("B1"));
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYGetAllArchivesExtNextArchive(); }), 9);
  EXPECT_EQ((Outs{v().EASYGetAllArchivesExtNext(&channel, &description), channel, description}),
            (Outs{int16_t{-1}, "", ""}));

  v().EASYGetAllArchivesExtFirst();
  EXPECT_EQ((Outs{v().EASYGetAllArchivesExtNext(&channel), channel}), (Outs{int32_t{2}, "K1"}));
}

TEST_F(ArchiveProperties, FourPermissionsAndTheFifthValue) {
  Answers({"Status: OK\r\n1,0,1,0,5", "Status: OK", "Status: OK\r\n1,1,2,true,viele", "Status: Error 2 x"});
  std::vector<Variant> out(4, Variant("untouched"));
  Variant status("old");
  auto properties = [&] {
    return v().EASYGetArchiveProperties("K1", "A1", &out[0], &out[1], &out[2], &out[3], &status);
  };
  EXPECT_EQ((Outs{properties(), out[0], out[1], out[2], out[3], status}),
            (Outs{int32_t{5}, true, false, true, false, ""}));
  EXPECT_EQ(Requests()[0], std::string(kHead) + ",^GetArchiveProperties^,^K1^,^A1^");

  // No row: an Empty result and only the status written.
  out.assign(4, Variant("untouched"));
  status = Variant("old");
  EXPECT_EQ((Outs{properties(), out[0], status}), (Outs{Variant(), "untouched", ""}));
  // A fifth value that is no number raises after the permissions were written ("1" exactly).
  status = Variant("old");
  EXPECT_EQ(RuntimeErrorNumber(properties), 13);
  EXPECT_EQ(out, (Outs{true, true, false, false}));
  EXPECT_EQ(status, Variant("old"));
  EXPECT_EQ((Outs{properties(), status}), (Outs{int16_t{-1}, "Error 2 x"}));
}

}  // namespace
}  // namespace halqvantor
