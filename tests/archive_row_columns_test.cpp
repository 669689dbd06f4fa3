#include <gtest/gtest.h>

#include "archive/row_columns.h"
#include "support/archive_gateway.h"

namespace halqvantor::archive {
namespace {

using testing::ErrorOf;

TEST(RowColumns, ColumnsBetweenSeparatorsWithTheFirstCharacterSkippedUnchecked) {
  EXPECT_EQ(ColumnAt("^a^,^^,^c^,^", 0), "a");
  EXPECT_EQ(ColumnAt("^a^,^^,^c^,^", 1), "");
  EXPECT_EQ(ColumnAt("^a^,^^,^c^,^", 2), "c");
  EXPECT_EQ(ColumnAt("xa^,^b", 0), "a");
  // The first character is skipped whole, however many bytes it takes; a "^,^" in a text splits it.
  EXPECT_EQ(ColumnAt("äö^,^b", 0), "ö");
  // A column without a closing separator, and rows too short for any column.
  EXPECT_EQ(ErrorOf([] { ColumnAt("^a^,^b^", 1); }), 5);
  EXPECT_EQ(ErrorOf([] { ColumnAt("", 0); }), 5);
  EXPECT_EQ(ErrorOf([] { ColumnAt("^,^", 0); }), 5);  // the search starts at the second character
}

TEST(RowColumns, LastColumnsClosedByACaretOrByTheRowEnd) {
  ColumnCursor to_caret("^a^,^b^c");
  EXPECT_EQ(to_caret.Next(), "a");
  EXPECT_EQ(to_caret.NextToCaret(), "b");
  EXPECT_EQ(ErrorOf([&] { to_caret.NextToCaret(); }), 5);

  ColumnCursor at_end("^a^,^b^");
  at_end.Next();
  EXPECT_EQ(at_end.NextOrRowEnd(), "b");
  EXPECT_TRUE(at_end.LastClosedAtRowEnd());
  EXPECT_EQ(at_end.RestFromOpeningCaret(), "");
  ColumnCursor inside("^a^,^b^,^c^");
  inside.Next();
  EXPECT_EQ(inside.NextOrRowEnd(), "b");
  EXPECT_FALSE(inside.LastClosedAtRowEnd());
  EXPECT_EQ(inside.RestFromOpeningCaret(), "^c^");
  ColumnCursor open_end("^a^,^b");
  open_end.Next();
  EXPECT_EQ(ErrorOf([&] { open_end.NextOrRowEnd(); }), 5);
}

TEST(RowColumns, EndsOfATextAreWholeCharacters) {
  EXPECT_EQ(WithoutEnds("^ab^"), "ab");
  EXPECT_EQ(WithoutEnds("^^"), "");
  EXPECT_EQ(WithoutEnds("äxü"), "x");
  EXPECT_EQ(ErrorOf([] { WithoutEnds("^"); }), 5);
  EXPECT_EQ(ErrorOf([] { WithoutEnds("ä"); }), 5);
  EXPECT_EQ(ErrorOf([] { WithoutEnds(""); }), 5);
  EXPECT_EQ(WithoutFirst("äb"), "b");
  EXPECT_EQ(WithoutFirst(""), "");
}

}  // namespace
}  // namespace halqvantor::archive
