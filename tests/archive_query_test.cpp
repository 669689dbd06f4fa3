#include <gtest/gtest.h>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;
using ArchiveQuery = testing::SessionTest;

const std::string kTitle = "^Ort^,^Nr^,^Ver^,^Wert^";

// A hit in channel K1, archive A1, with one display column.
std::string Hit(const std::string& id, const std::string& value) {
  return "^001K1)\\A1^,^" + id + "^,^1^,^" + value + "^";
}

// A query answer: total, layout line, multi-page flag, column types (the display column's last), title, hits.
std::string QueryAnswer(const std::string& display_type, const std::vector<std::string>& hits,
                        const std::string& layout = "", const std::string& multi = "0") {
  std::string payload =
      "Status: OK\r\n57\r\n" + layout + "\r\n" + multi + "\r\n^0^,^0^,^0^,^" + display_type + "^\r\n" + kTitle;
  for (const std::string& hit : hits) payload += "\r\n" + hit;
  return payload;
}

// The document ids of a sorted walk, after checking that it starts with the title line.
std::string SortedIds(clsVantor& v) {
  Variant channel, id;
  EXPECT_EQ((Outs{v.EASYSortHitlistNext(&channel, nullptr, &id), channel}), (Outs{"^Wert^", "Channel"}));
  std::string ids;
  for (int i = 0; i < 10 && v.EASYSortHitlistNext(&channel, nullptr, &id) != Variant(""); ++i) ids += id.StringValue();
  return ids;
}

TEST_F(ArchiveQuery, RequestOutsAndTheWalkInTheServersOrder) {
  Answer(QueryAnswer("0", {Hit("4711", "x"), "^002K2)\\A2^,^9^,^3^"}, "1=A;7=B", "1"));
  Answer(QueryAnswer("0", {}, "3=C"));
  Answer(QueryAnswer("0", {}, ""));
  Variant field_ids, layout_ids, total, multi, status = "old";
  const Variant count =
      v().EASYQueryArchiveInit("K1", "A1", "Nr=1", Variant(int32_t{100}), Variant(int32_t{500}), Variant::missing(),
                               Variant::missing(), &field_ids, &layout_ids, &total, &multi, &status);
  EXPECT_EQ(count, Variant(int32_t{3}));
  // The query format goes ahead of the two limits.
  EXPECT_EQ(Requests()[0], Request("^QueryArchive^,^K1^,^A1^,^Nr=1^,^^,^100^,^500^,^^"));
  EXPECT_EQ((Outs{field_ids, layout_ids, total, multi, status}), (Outs{"1,7", "A;B", "57", true, ""}));

  Variant channel, archive, id, ver;
  EXPECT_EQ(v().EASYQueryArchiveNext(&channel, &archive, &id, &ver), Variant("^Wert^"));
  EXPECT_EQ((Outs{channel, archive, id, ver}), (Outs{"Channel", "Archive", "Nr", "Ver"}));
  EXPECT_EQ((Outs{v().EASYQueryArchiveNext(&channel, &archive, &id, &ver), channel, archive, id, ver}),
            (Outs{"^x^", "K1", "A1", "4711", "1"}));
  // A hit of three columns has no display columns.
  EXPECT_EQ((Outs{v().EASYQueryArchiveNext(&channel, &archive, &id, &ver), channel, archive, id, ver}),
            (Outs{"", "K2", "A2", "9", "3"}));
  EXPECT_EQ((Outs{v().EASYQueryArchiveNext(&channel, &archive, &id, &ver), id}), (Outs{"", "9"}));

  // The layout outs are written only as a pair; an empty layout line empties both.
  field_ids = "untouched";
  v().EASYQueryArchiveInit("K1", "A1", "q", 1, 2, "F", "R", &field_ids, nullptr, nullptr, &multi);
  EXPECT_EQ(Requests()[1], Request("^QueryArchive^,^K1^,^A1^,^q^,^F^,^1^,^2^,^R^"));
  EXPECT_EQ((Outs{field_ids, multi}), (Outs{"untouched", false}));
  v().EASYQueryArchiveInit("K1", "A1", "q", 1, 2, "", "", &field_ids, &layout_ids);
  EXPECT_EQ((Outs{field_ids, layout_ids}), (Outs{"", ""}));
}

TEST_F(ArchiveQuery, NoHitsHandsOutTheTitleLineOnce) {
  Answer(QueryAnswer("0", {}));
  EXPECT_EQ(v().EASYQueryArchiveInit("K", "A", "q", 1, 1), Variant(int32_t{1}));
  EXPECT_EQ((Outs{v().EASYQueryArchiveNext(), v().EASYQueryArchiveNext()}), (Outs{"^Wert^", ""}));
  EXPECT_EQ(v().EASYSortHitlistInit(0), 0);
  EXPECT_EQ(archive::ToText(impl().archive_state.hits.SortDirection), "DOWN");
  EXPECT_EQ(SortedIds(v()), "");
  EXPECT_EQ(v().EASYSortHitlistNext(), Variant(""));
}

TEST_F(ArchiveQuery, FailedAndShortAnswersLeaveTheHitListForSorting) {
  Answer(QueryAnswer("0", {Hit("b", "x"), Hit("a", "y")}));
  Answer("Status: Error 4 Syntax");
  Answer("Status: OK\r\n12\r\n1=A");
  Answer("Status: OK\r\nK1,Kanal");
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYSortHitlistInit(0); }), 9) << "no query yet";
  ASSERT_EQ(v().EASYQueryArchiveInit("K", "A", "q", 1, 1), Variant(int32_t{3}));

  Variant total = "old", status;
  EXPECT_EQ((Outs{v().EASYQueryArchiveInit("K", "A", "q", 1, 1, "", "", nullptr, nullptr, &total, nullptr, &status),
                  status, total}),
            (Outs{int16_t{-1}, "Error 4 Syntax", "old"}));
  // Three lines: the total is written, then the missing column-type line ends the call.
  EXPECT_EQ(
      RuntimeErrorNumber([&] { v().EASYQueryArchiveInit("K", "A", "q", 1, 1, "", "", nullptr, nullptr, &total); }), 9);
  EXPECT_EQ(total, Variant("12"));
  ASSERT_EQ(v().EASYGetChannelsInit(), Variant(int32_t{1}));

  EXPECT_EQ(v().EASYSortHitlistInit(0), 2);
  EXPECT_EQ(SortedIds(v()), "ab");
  // Columns past the type line's end: one of negative extent, then one that reads "", which is no number.
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYSortHitlistInit(3); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYSortHitlistInit(4); }), 13);
}

TEST_F(ArchiveQuery, NumbersSortZeroPaddedAndEverySortReversesTheLast) {
  Answer(QueryAnswer("512", {Hit("a", "100"), Hit("b", "9"), Hit("c", "10"), Hit("d", "-5")}));
  ASSERT_EQ(v().EASYQueryArchiveInit("K", "A", "q", 1, 1), Variant(int32_t{5}));
  // The server's order runs from "…100" down to "…-5", so the first sort goes up; -5 pads to "…0-5", which
  // sorts as text before the padded digits.
  EXPECT_EQ(v().EASYSortHitlistInit(2), 4);
  Variant channel, archive, id, ver;
  v().EASYSortHitlistNext();
  EXPECT_EQ((Outs{v().EASYSortHitlistNext(&channel, &archive, &id, &ver), channel, archive, id, ver}),
            (Outs{"^-5^", "K1", "A1", "d", "1"}));
  EXPECT_EQ(v().EASYSortHitlistNext(), Variant("^9^"));
  v().EASYSortHitlistInit(2);
  EXPECT_EQ(SortedIds(v()), "acbd");
  // Another column carries the alternation on.
  EXPECT_EQ(v().EASYSortHitlistInit(Variant("0")), 4);
  EXPECT_EQ(SortedIds(v()), "abcd");
}

TEST_F(ArchiveQuery, DatesSortByYearMonthDayAndTextIgnoresCaseStably) {
  Answer(QueryAnswer("1024", {Hit("a", "01.02.2002"), Hit("b", "15.01.2002"), Hit("c", "2002-01-20 10:00")}));
  Answer(QueryAnswer("0", {Hit("x", "b"), Hit("y", "B"), Hit("z", "a")}));
  ASSERT_EQ(v().EASYQueryArchiveInit("K", "A", "q", 1, 1), Variant(int32_t{4}));
  v().EASYSortHitlistInit(2);
  EXPECT_EQ(SortedIds(v()), "bca");
  ASSERT_EQ(v().EASYQueryArchiveInit("K", "A", "q", 1, 1), Variant(int32_t{4}));
  v().EASYSortHitlistInit(2);
  EXPECT_EQ(SortedIds(v()), "zxy");
  v().EASYSortHitlistInit(2);
  EXPECT_EQ(SortedIds(v()), "yxz");
}

TEST_F(ArchiveQuery, DeletingCountsHitsInTheOrderThePageSawThem) {
  Answer(QueryAnswer("512", {Hit("a", "100"), Hit("b", "9"), Hit("c", "10"), Hit("d", "-5")}));
  ASSERT_EQ(v().EASYQueryArchiveInit("K", "A", "q", 1, 1), Variant(int32_t{5}));
  for (int at : {0, 5}) EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYDeleteFromHitlist(at); }), 9) << at;
  // Unsorted: the server's first hit.
  EXPECT_EQ(v().EASYDeleteFromHitlist(1).type(), VarType::Empty);
  EXPECT_EQ(v().EASYSortHitlistInit(2), 3);
  EXPECT_EQ(SortedIds(v()), "dbc");
  // Sorted up: the first of the sorted order.
  v().EASYDeleteFromHitlist(1);
  EXPECT_EQ(v().EASYSortHitlistInit(2), 2);
  EXPECT_EQ(SortedIds(v()), "cb");
  // Sorted down: the first the page saw, the sorted list's last item.
  v().EASYDeleteFromHitlist(1);
  EXPECT_EQ(v().EASYSortHitlistInit(2), 1);
  EXPECT_EQ(SortedIds(v()), "b");
  EXPECT_EQ(RuntimeErrorNumber([&] { v().EASYDeleteFromHitlist(2); }), 9);
}

}  // namespace
}  // namespace halqvantor
