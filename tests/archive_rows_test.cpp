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

// The text `call` gives, or "raised N" for the run-time error it raises.
template <typename F>
std::string Try(F call) {
  try {
    return std::string(call());
  } catch (const RuntimeError& e) {
    return "raised " + std::to_string(e.number());
  }
}

TEST(RowColumns, ColumnsBetweenSeparatorsAndTheirMalformedRows) {
  const std::string row = "^K1^,^Müller, Hans^,^^,^x^";
  // The last column has no separator after it. The first character is skipped whole and unchecked; the search
  // starts at the second one.
  EXPECT_EQ((Rows{Try([&] { return ColumnAt(row, 0); }), Try([&] { return ColumnAt(row, 1); }),
                  Try([&] { return ColumnAt(row, 2); }), Try([&] { return ColumnAt(row, 3); }),
                  Try([] { return ColumnAt("", 0); }), Try([] { return ColumnAt("äö^,^b", 0); }),
                  Try([] { return ColumnAt("^,^", 0); }), Try([] { return WithoutEnds("äxü"); }),
                  Try([] { return WithoutEnds("^^"); }), Try([] { return WithoutEnds("ä"); })}),
            (Rows{"K1", "Müller, Hans", "", "raised 5", "raised 5", "ö", "raised 5", "x", "", "raised 5"}));
  EXPECT_EQ(SplitColumns(row, 4), (Rows{"K1", "Müller, Hans", "", "x"}));
  // A further separator stays in the last column; the closing character is dropped unchecked.
  EXPECT_EQ(SplitColumns(row, 3), (Rows{"K1", "Müller, Hans", "^,^x"}));
  EXPECT_EQ(SplitColumns("^a^,^bc", 2), (Rows{"a", "b"}));
  // A row that ends with its last separator has a last column of negative extent.
  EXPECT_EQ(RuntimeErrorNumber([] { SplitColumns("^a^,^", 2); }), 5);
  ColumnCursor cursor("^a^,^b^c");
  cursor.Next();
  EXPECT_EQ(cursor.NextToCaret(), "b");
  EXPECT_EQ(RuntimeErrorNumber([&] { cursor.NextToCaret(); }), 5);
}

// Rows equal in capitals keep their order, whether or not they needed capitals made.
TEST(ChannelRows, CapitalOrderIsStable) {
  platform::RowList rows = {"b", "A", "a", "B", "ä", "Z", "Ä"};
  SortRowsByCapitals(rows);
  EXPECT_EQ(Rows(rows.begin(), rows.end()), (Rows{"A", "a", "b", "B", "Z", "ä", "Ä"}));
}

// The stable sort by weight and a short row come out of the description walk (archive_description_test).
TEST(FieldRecords, SortFailuresLeaveTheOrderOfThePassesDone) {
  auto record = [](std::string id, std::string weight) { return FieldRecord{id, "", "", "", "", weight, ""}; };
  auto ids = [](const std::vector<FieldRecord>& records) {
    std::string out;
    for (const FieldRecord& r : records) out += r[0];
    return out;
  };
  // A weight that is no number stops the sort after one exchange pass over the records before it.
  std::vector<FieldRecord> records = {record("a", "10"), record("b", "9"), record("c", "8"), record("d", "x"),
                                      record("e", "1")};
  EXPECT_EQ(RuntimeErrorNumber([&] { SortFieldRecords(records); }), 13);
  EXPECT_EQ(ids(records), "bcade");
  records = {record("a", "1"), record("b", "99999999999")};
  EXPECT_EQ(RuntimeErrorNumber([&] { SortFieldRecords(records); }), 6);
  records = {record("c", " 9 "), record("d", "-1")};
  SortFieldRecords(records);
  EXPECT_EQ(ids(records), "dc");
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

// Past the end the search starts over at position 3: "^a^,^b^" reads "", "b", then fails, round after round,
// however far the column lies.
TEST(HitLines, SortColumnsIncludingTheLastAndThosePastTheEnd) {
  using Columns = std::vector<std::pair<int64_t, std::string>>;
  for (const auto& [column, text] : Columns{{1, "loc"}, {2, "id"}, {4, "last"}, {0, "loc"}}) {
    EXPECT_EQ(SortColumnText("^loc^,^id^,^v^,^last^", column), text) << column;
  }
  for (const auto& [column, text] :
       Columns{{3, "raised 5"}, {4, ""}, {5, "b"}, {6, "raised 5"}, {30001, ""}, {30002, "b"}, {30003, "raised 5"}}) {
    EXPECT_EQ(Try([&] { return SortColumnText("^a^,^b^", column); }), text) << column;
  }
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

// A pair without "=" ends the split with the pairs before it kept; the good list comes out of the query.
TEST(LayoutList, APairWithoutEqualsEndsTheSplit) {
  std::string ids, layouts;
  EXPECT_EQ(RuntimeErrorNumber([&] { SplitLayoutList("1=A;7", ids, layouts); }), 5);
  EXPECT_EQ(ids + "|" + layouts, "1|A");
  EXPECT_EQ(RuntimeErrorNumber([&] { SplitLayoutList(std::string(40000, 'x'), ids, layouts); }), 6);
}

}  // namespace
}  // namespace halqvantor::archive
