#include <gtest/gtest.h>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;
using Masks = testing::SessionTest;

const std::string kEightColumns = "^10^,^1^,^30^,^L^,^Name^,^1^,^Herr^,^0^";
const std::string kTenColumns = "^11^,^2^,^8^,^R^,^Ort^,^2^,^^,^1^,^Bonn^,^Bern^";

TEST_F(Masks, TwoLevelWalkWithSkipsRestartAndTheEnd) {
  Answers(
      {"Status: OK\r\n@Person\r\n" + kEightColumns + "\r\n" + kTenColumns + "\r\n@Leer\r\n@Firma\r\n" + kEightColumns,
       "Status: Error 3 Archiv unbekannt"});
  Variant status("old"), name;
  EXPECT_EQ((Outs{v().EASYGetMasksInit("K1", "A1", &status), status}), (Outs{int32_t{3}, ""}));
  EXPECT_EQ(Requests()[0], std::string(kHead) + ",^GetMasks^,^K1^,^A1^");
  EXPECT_EQ((Outs{v().EASYGetMasksNext(&name), name}), (Outs{int32_t{2}, "Person"}));

  std::vector<Variant> out(8, Variant("untouched"));
  auto next_field = [&] {
    return v().EASYGetMasksNextField(&out[0], &out[1], &out[2], &out[3], &out[4], &out[5], &out[6], &out[7]);
  };
  EXPECT_EQ(next_field(), Variant(int32_t{10}));
  EXPECT_EQ(out, (Outs{int32_t{1}, int32_t{30}, "L", "Name", true, "Herr", false, "untouched"}));
  // The second field: a mandatory flag of "2" reads as false.
  EXPECT_EQ((Outs{next_field(), out[4], out[6], out[7]}), (Outs{int32_t{11}, false, true, "^Bonn^,^Bern^"}));
  // At the next mask row: -1 without moving.
  EXPECT_EQ(next_field(), Variant(int16_t{-1}));
  EXPECT_EQ((Outs{v().EASYGetMasksNext(&name), name}), (Outs{int32_t{0}, "Leer"}));
  EXPECT_EQ(next_field(), Variant(int16_t{-1}));
  EXPECT_EQ(v().EASYGetMasksNext(&name), Variant(int32_t{1}));
  EXPECT_EQ(next_field(), Variant(int32_t{10}));
  // The cursor stands at the answer's end: the row there is read and does not exist.
  EXPECT_EQ(RuntimeErrorNumber([&] { next_field(); }), 9);
  EXPECT_EQ((Outs{v().EASYGetMasksNext(&name), name}), (Outs{int16_t{-1}, ""}));

  // From the start again; Next skips the fields that were not read.
  v().EASYGetMasksFirst();
  EXPECT_EQ(v().EASYGetMasksNext(), Variant(int32_t{2}));
  EXPECT_EQ((Outs{v().EASYGetMasksNext(&name), name}), (Outs{int32_t{0}, "Leer"}));

  EXPECT_EQ((Outs{v().EASYGetMasksInit("K1", "A1", &status), status}), (Outs{int16_t{-1}, "Error 3 Archiv unbekannt"}));
  EXPECT_EQ(v().EASYGetMasksNext(&name), Variant(int16_t{-1}));
}

TEST_F(Masks, AMalformedFieldRaisesAfterTheOutsBeforeItAndDoesNotMove) {
  Answers({"Status: OK\r\n@M\r\n^x^,^4^,^5^,^L^,^N^,^0^,^^,^0^\r\n^7^,^4^,^5^,^L^,^N^,^300^,^^,^0^"});
  EXPECT_EQ(v().EASYGetMasksInit("K1", "A1"), Variant(int32_t{1}));
  v().EASYGetMasksNext();
  Variant tab, width;
  // Column 0 is read last: the outs are written, the cursor stays.
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYGetMasksNextField(&tab, &width); }), 13);
  EXPECT_EQ(tab, Variant(int32_t{4}));
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYGetMasksNextField(); }), 13);
  // A flag out of the byte range raises even when its out-argument is not passed.
  impl().ResultCursor = 2;
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYGetMasksNextField(&tab); }), 6);
}

}  // namespace
}  // namespace halqvantor
