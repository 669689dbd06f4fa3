#include <gtest/gtest.h>

#include "archive/channels.h"
#include "archive/description.h"
#include "archive/query.h"
#include "archive/row_columns.h"
#include "support/session_fixture.h"

namespace halqvantor::archive {
namespace {

using halqvantor::testing::RuntimeErrorNumber;
using Rows = std::vector<std::string>;

TEST(RowColumns, ColumnsBetweenSeparatorsAndTheirMalformedRows) {
  const std::string row = "^K1^,^Müller, Hans^,^^,^x^";
  EXPECT_EQ(ColumnAt(row, 0), "K1");
  EXPECT_EQ(ColumnAt(row, 1), "Müller, Hans");
  EXPECT_EQ(ColumnAt(row, 2), "");
  // The last column has no separator after it.
  EXPECT_EQ(RuntimeErrorNumber([&] { ColumnAt(row, 3); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([&] { ColumnAt("", 0); }), 5);
  EXPECT_EQ(SplitColumns(row, 4), (Rows{"K1", "Müller, Hans", "", "x"}));
  // A further separator stays in the last column; the closing character is dropped unchecked.
  EXPECT_EQ(SplitColumns(row, 3), (Rows{"K1", "Müller, Hans", "^,^x"}));
  EXPECT_EQ(SplitColumns("^a^,^bc", 2), (Rows{"a", "b"}));
  // A row that ends with its last separator has a last column of negative extent.
  EXPECT_EQ(RuntimeErrorNumber([] { SplitColumns("^a^,^", 2); }), 5);
  // The first character is skipped whole and unchecked; the search starts at the second one.
  EXPECT_EQ(ColumnAt("äö^,^b", 0), "ö");
  EXPECT_EQ(RuntimeErrorNumber([] { ColumnAt("^,^", 0); }), 5);
  ColumnCursor cursor("^a^,^b^c");
  cursor.Next();
  EXPECT_EQ(cursor.NextToCaret(), "b");
  EXPECT_EQ(RuntimeErrorNumber([&] { cursor.NextToCaret(); }), 5);
  EXPECT_EQ(WithoutEnds("äxü"), "x");
  EXPECT_EQ(WithoutEnds("^^"), "");
  EXPECT_EQ(RuntimeErrorNumber([] { WithoutEnds("ä"); }), 5);
}

// Rows equal in capitals keep their order, whether or not they needed capitals made.
TEST(ChannelRows, CapitalOrderIsStable) {
  platform::RowList rows = {"b", "A", "a", "B", "ä", "Z", "Ä"};
  SortRowsByCapitals(rows);
  EXPECT_EQ(Rows(rows.begin(), rows.end()), (Rows{"A", "a", "b", "B", "Z", "ä", "Ä"}));
}

TEST(FieldRecords, SevenColumnsSortedByNumericWeightStably) {
  EXPECT_EQ(ParseFieldLine("^1^,^Name^,^C^,^40^,^0^,^10^,^1^"), (FieldRecord{"1", "Name", "C", "40", "0", "10", "1"}));
  EXPECT_EQ(RuntimeErrorNumber([] { ParseFieldLine("^1^,^Name^,^C^,^40^,^0^,^10"); }), 5);

  auto record = [](std::string id, std::string weight) { return FieldRecord{id, "", "", "", "", weight, ""}; };
  std::vector<FieldRecord> records = {record("a", "10"), record("b", "9"), record("c", " 9 "), record("d", "-1")};
  SortFieldRecords(records);
  std::string ids;
  for (const FieldRecord& r : records) ids += r[0];
  EXPECT_EQ(ids, "dbca");

  // A weight that is no number stops the sort after one exchange pass over the records before it.
  records = {record("a", "10"), record("b", "9"), record("c", "8"), record("d", "x"), record("e", "1")};
  EXPECT_EQ(RuntimeErrorNumber([&] { SortFieldRecords(records); }), 13);
  ids.clear();
  for (const FieldRecord& r : records) ids += r[0];
  EXPECT_EQ(ids, "bcade");
  records = {record("a", "1"), record("b", "99999999999")};
  EXPECT_EQ(RuntimeErrorNumber([&] { SortFieldRecords(records); }), 6);
  // A single record is never compared.
  records = {record("a", "x")};
  EXPECT_NO_THROW(SortFieldRecords(records));
}

TEST(HitLines, ColumnsLocationAndDisplayRest) {
  auto parts = [](const HitLine& h) {
    return Rows{std::string(h.location), std::string(h.doc_id), std::string(h.version), std::string(h.display)};
  };
  EXPECT_EQ(parts(ParseHitLine("^001K1)\\Rechnungen^,^4711^,^2^,^A^,^B^")),
            (Rows{"001K1)\\Rechnungen", "4711", "2", "^A^,^B^"}));
  // Three columns: no display columns, and the version ends one character before the line's end.
  EXPECT_EQ(parts(ParseHitLine("^loc^,^4711^,^2^")), (Rows{"loc", "4711", "2", ""}));
  EXPECT_EQ(ParseHitLine("^loc^,^4711^,^23").version, "2");
  EXPECT_EQ(RuntimeErrorNumber([] { ParseHitLine("^loc^,^4711"); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { ParseHitLine(""); }), 5);

  const Location location = SplitLocation("001K1)\\Rechnungen");
  EXPECT_EQ((Rows{location.channel, location.archive}), (Rows{"K1", "Rechnungen"}));
  // The three leading characters are characters, not bytes.
  EXPECT_EQ(SplitLocation("äöüKanal)\\Archiv").channel, "Kanal");
  EXPECT_EQ(RuntimeErrorNumber([] { SplitLocation("001K1\\Rechnungen"); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { SplitLocation("0)\\1K1)\\A"); }), 5);
}

TEST(HitLines, SortColumnsIncludingTheLastAndThosePastTheEnd) {
  const std::string line = "^loc^,^id^,^v^,^last^";
  EXPECT_EQ(SortColumnText(line, 1), "loc");
  EXPECT_EQ(SortColumnText(line, 2), "id");
  EXPECT_EQ(SortColumnText(line, 4), "last");
  EXPECT_EQ(SortColumnText(line, 0), "loc");
  // Past the end the search starts over at position 3: "^a^,^b^" reads "", "b", then fails, round after
  // round, however far the column lies.
  EXPECT_EQ(RuntimeErrorNumber([] { SortColumnText("^a^,^b^", 3); }), 5);
  EXPECT_EQ(SortColumnText("^a^,^b^", 4), "");
  EXPECT_EQ(SortColumnText("^a^,^b^", 5), "b");
  EXPECT_EQ(RuntimeErrorNumber([] { SortColumnText("^a^,^b^", 6); }), 5);
  EXPECT_EQ(SortColumnText("^a^,^b^", 30001), "");
  EXPECT_EQ(SortColumnText("^a^,^b^", 30002), "b");
  EXPECT_EQ(RuntimeErrorNumber([] { SortColumnText("^a^,^b^", 30003); }), 5);
}

TEST(SortKeys, DatesAndZeroPaddedNumbers) {
  for (const char* text : {"15.1.2002", " 2002-01-15 ", "15.01.2002 9:05", "2002-01-15T09:05:59"}) {
    EXPECT_EQ(SortKey(text, kDateColumnFlag | kNumberColumnFlag), "20020115") << text;
  }
  EXPECT_EQ(SortKey("29.02.2004", kDateColumnFlag), "20040229");
  // Not dates: they stay as they are, even when they are numbers.
  for (const char* text : {"29.02.2003", "1.2.02", "2002-1-15", "15.01.2002 24:00", "15.01.2002x", "12", ""}) {
    EXPECT_EQ(SortKey(text, kDateColumnFlag | kNumberColumnFlag), text);
  }
  EXPECT_EQ(SortKey("9", kNumberColumnFlag), "00000000000000000009");
  EXPECT_EQ(SortKey("-5", kNumberColumnFlag), "000000000000000000-5");
  EXPECT_EQ(SortKey("1.5E3", kNumberColumnFlag), "0000000000000001.5E3");
  EXPECT_EQ(SortKey("123456789012345678901234", kNumberColumnFlag), "56789012345678901234");
  EXPECT_EQ(SortKey("12a", kNumberColumnFlag), "12a");
  EXPECT_EQ(SortKey("9", 0), "9");
}

TEST(LayoutList, IdsJoinedByCommasLayoutsBySemicolons) {
  std::string ids, layouts;
  SplitLayoutList("1=A;7=B", ids, layouts);
  EXPECT_EQ(ids, "1,7");
  EXPECT_EQ(layouts, "A;B");
  // A pair without "=" ends the split with the pairs before it kept.
  ids.clear();
  layouts.clear();
  EXPECT_EQ(RuntimeErrorNumber([&] { SplitLayoutList("1=A;7", ids, layouts); }), 5);
  EXPECT_EQ(ids, "1");
  EXPECT_EQ(layouts, "A");
  ids.clear();
  layouts.clear();
  EXPECT_EQ(RuntimeErrorNumber([&] { SplitLayoutList(std::string(40000, 'x'), ids, layouts); }), 6);
}

}  // namespace
}  // namespace halqvantor::archive
