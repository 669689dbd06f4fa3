#include <gtest/gtest.h>

#include "archive/row_columns.h"
#include "support/archive_gateway.h"

namespace halqvantor::archive {
namespace {

using testing::RuntimeErrorNumber;

TEST(RowColumns, ColumnsEndAtTheirSeparatorOrRaise5) {
  EXPECT_EQ(ColumnAt("^a^,^^,^c^,^", 1), "");
  EXPECT_EQ(ColumnAt("^a^,^^,^c^,^", 2), "c");
  EXPECT_EQ(ColumnAt("äö^,^b", 0), "ö");  // the first character is skipped whole and unchecked
  EXPECT_EQ(RuntimeErrorNumber([] { ColumnAt("^a^,^b^", 1); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { ColumnAt("", 0); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { ColumnAt("^,^", 0); }), 5);  // the search starts at the second character
  ColumnCursor cursor("^a^,^b^c");
  cursor.Next();
  EXPECT_EQ(cursor.NextToCaret(), "b");
  EXPECT_EQ(RuntimeErrorNumber([&] { cursor.NextToCaret(); }), 5);

  EXPECT_EQ(WithoutEnds("äxü"), "x");
  EXPECT_EQ(WithoutEnds("^^"), "");
  EXPECT_EQ(RuntimeErrorNumber([] { WithoutEnds("ä"); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { WithoutEnds(""); }), 5);
}

}  // namespace
}  // namespace halqvantor::archive
