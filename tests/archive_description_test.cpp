#include <gtest/gtest.h>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;
using ArchiveDescription = testing::SessionTest;

std::string FieldLine(const std::string& id, const std::string& weight) {
  return "^" + id + "^,^Feld " + id + "^,^C^,^40^,^0^,^" + weight + "^,^" + id + "L^";
}

TEST_F(ArchiveDescription, FieldsComeOutByWeightAsStrings) {
  Answer("Status: OK\r\nRW-X\r\n" + FieldLine("1", "10") + "\r\n" + FieldLine("2", "9") + "\r\n" + FieldLine("3", "9") +
         "\r\n");
  Variant rights, status = "old";
  EXPECT_EQ((Outs{v().EASYGetArchiveDescriptionInit("K1", "A1", &rights, &status), rights, status}),
            (Outs{int32_t{3}, "RW-X", ""}));
  EXPECT_EQ(Requests(), std::vector<std::string>{Request("^GetArchiveDescription^,^K1^,^A1^")});

  Variant id, type, size, state, weight, select;
  EXPECT_EQ(v().EASYGetArchiveDescriptionNext(&id, &type, &size, &state, &weight, &select), Variant("Feld 2"));
  EXPECT_EQ((Outs{id, type, size, state, weight, select}), (Outs{"2", "C", "40", "0", "9", "2L"}));
  EXPECT_EQ(v().EASYGetArchiveDescriptionNext(&id), Variant("Feld 3"));
  EXPECT_EQ((Outs{v().EASYGetArchiveDescriptionNext(&id, nullptr, nullptr, nullptr, &weight), weight}),
            (Outs{"Feld 1", "10"}));
  EXPECT_EQ((Outs{v().EASYGetArchiveDescriptionNext(&id, &type), id, type}),
            (Outs{"", "1", "C"}));  // left alone at the end
}

TEST_F(ArchiveDescription, ShortAnswersKeepTheOldRecordsButHandOutNothing) {
  Answer("Status: OK\r\nR\r\n" + FieldLine("1", "1") + "\r\n" + FieldLine("2", "2"));
  Answer("Status: OK\r\nR2");
  Answer("Status: OK");
  ASSERT_EQ(v().EASYGetArchiveDescriptionInit("K", "A"), Variant(int32_t{2}));

  Variant rights = "old";
  EXPECT_EQ((Outs{v().EASYGetArchiveDescriptionInit("K", "A", &rights), rights}), (Outs{int32_t{0}, "R2"}));
  EXPECT_EQ(impl().archive_state.description.FieldRecords.size(), 2u);
  EXPECT_EQ(v().EASYGetArchiveDescriptionNext(), Variant(""));
  // No line at all: -1, but as a Long, and no edit rights.
  EXPECT_EQ((Outs{v().EASYGetArchiveDescriptionInit("K", "A", &rights), rights}), (Outs{int32_t{-1}, ""}));
  EXPECT_EQ(v().EASYGetArchiveDescriptionNext(), Variant(""));
}

TEST_F(ArchiveDescription, FailuresAndMalformedAnswers) {
  Answer("Status: Error 2 kein Archiv");
  Answer("Status: OK\r\nR\r\n^1^,^a^,^b^,^c^,^d^,^e");
  Answer("Status: OK\r\nR\r\n" + FieldLine("1", "x") + "\r\n" + FieldLine("2", "1"));
  Variant rights = "old", status;
  EXPECT_EQ((Outs{v().EASYGetArchiveDescriptionInit("K", "A", &rights, &status), status, rights}),
            (Outs{int16_t{-1}, "Error 2 kein Archiv", "old"}));

  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYGetArchiveDescriptionInit("K", "A", &rights, &status); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYGetArchiveDescriptionInit("K", "A", &rights, &status); }), 13);
  // The rows of the answer stay loaded; the outs were not reached.
  EXPECT_EQ(impl().ResultCount, 3);
  EXPECT_EQ(rights, Variant("old"));
}

TEST_F(ArchiveDescription, SelectListEntriesComeBackWholeInTheServersOrder) {
  Answer("Status: OK\r\nR\r\n" + FieldLine("1", "1"));
  Answer("Status: OK\r\nz\r\n^a^,^b^\r\nA");
  ASSERT_EQ(v().EASYGetArchiveDescriptionInit("K", "A"), Variant(int32_t{1}));
  Variant status = "old";
  EXPECT_EQ((Outs{v().EASYGetSegmentSelectListInit("K", "A", Variant(int16_t{42}), &status), status}),
            (Outs{int32_t{3}, ""}));
  EXPECT_EQ(Requests()[1], Request("^GetSegmentSelectList^,^K^,^A^,^42^"));
  // The description's Next reads the field records, which hold one field where these rows count three.
  EXPECT_EQ(v().EASYGetArchiveDescriptionNext(), Variant("Feld 1"));
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYGetArchiveDescriptionNext(); }), 9);
  EXPECT_EQ(v().EASYGetSegmentSelectListNext(), Variant("^a^,^b^"));
  EXPECT_EQ(v().EASYGetSegmentSelectListNext(), Variant("A"));
  EXPECT_EQ(v().EASYGetSegmentSelectListNext(), Variant(""));
}

}  // namespace
}  // namespace halqvantor
