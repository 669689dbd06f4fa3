#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "halqvantor/Variant.h"
#include "platform/clock.h"
#include "platform/cp1252.h"
#include "platform/files.h"
#include "platform/secrets.h"
#include "platform/sorted_list.h"
#include "platform/vb_runtime.h"
#include "support/errors.h"
#include "support/temp_dir.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;

TEST(Variant, ConversionsRoundHalfToEvenAndCheckRanges) {
  EXPECT_EQ(Variant(2.5).ToInteger(), 2);
  EXPECT_EQ(Variant(3.5).ToInteger(), 4);
  EXPECT_EQ(Variant(" 12 ").ToLong(), 12);
  EXPECT_EQ(Variant("1.5").ToInteger(), 2);
  EXPECT_EQ(Variant("&HFF").ToInteger(), 255);
  EXPECT_EQ(Variant("&HFFFF").ToInteger(), -1);
  EXPECT_EQ(Variant("1e3").ToLong(), 1000);
  EXPECT_EQ(Variant(true).ToInteger(), -1);
  EXPECT_EQ(Variant("True").ToInteger(), -1);
  EXPECT_EQ(RuntimeErrorNumber([] { Variant(int32_t{32768}).ToInteger(); }), 6);
  EXPECT_EQ(RuntimeErrorNumber([] { Variant(256.0).ToByte(); }), 6);
  EXPECT_EQ(RuntimeErrorNumber([] { Variant("12abc").ToLong(); }), 13);
  EXPECT_EQ(RuntimeErrorNumber([] { Variant("&O19").ToInteger(); }), 13);
  EXPECT_EQ(RuntimeErrorNumber([] { Variant::null().ToString(); }), 13);
  EXPECT_EQ(RuntimeErrorNumber([] { Variant::missing().ToLong(); }), 13);
}

TEST(Variant, TextFormsOfValues) {
  EXPECT_EQ(Variant(int16_t{-1}).ToString(), "-1");
  EXPECT_EQ(Variant(1.5).ToString(), "1.5");
  EXPECT_EQ(Variant(1e20).ToString(), "1E+20");
  EXPECT_EQ(Variant(false).ToString(), "False");
  EXPECT_EQ(Variant::date(platform::ToAutomationDate({{2026, 11, 15}, 0, 0, 0})).ToString(), "15.11.2026");
  EXPECT_EQ(Variant::date(platform::ToAutomationDate({{2026, 11, 15}, 8, 5, 0})).ToString(), "15.11.2026 08:05:00");
  // Same value, different type: not equal.
  EXPECT_FALSE(Variant(int16_t{1}) == Variant(int32_t{1}));
  EXPECT_TRUE(Variant("a") == Variant(std::string("a")));
}

TEST(CodePage, EveryByteSurvivesTheRoundTrip) {
  std::string all;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  const std::string utf8 = platform::Cp1252ToUtf8(all);
  EXPECT_EQ(platform::Utf8ToCp1252(utf8), all);
  EXPECT_EQ(platform::Cp1252ToUtf8("\x80\xE4"), "€ä");
  EXPECT_EQ(platform::Utf8ToCp1252("a\u4e2db"), "a?b");
  EXPECT_EQ(platform::Utf8ToCp1252("a\xC3"), "a?");  // a truncated sequence
  EXPECT_EQ(platform::Utf8ToCp1252("\xE2\x82"), "??");
}

TEST(VbStrings, CountCharactersNotBytes) {
  const std::string s = "äbc€d";
  EXPECT_EQ(vb::Len(s), 5);
  EXPECT_EQ(vb::Left(s, 2), "äb");
  EXPECT_EQ(vb::Right(s, 2), "€d");
  EXPECT_EQ(vb::Mid(s, 2, 2), "bc");
  EXPECT_EQ(vb::Mid(s, 9, 2), "");
  EXPECT_EQ(vb::InStr(s, "€"), 4);
  EXPECT_EQ(vb::InStr(5, s, "€"), 0);
  EXPECT_EQ(vb::InStr(4, "abc", ""), 4);
  EXPECT_EQ(vb::InStr(5, "abc", ""), 0);
  EXPECT_EQ(RuntimeErrorNumber([] { vb::Mid("abc", 0, 1); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { vb::InStr(0, "abc", "a"); }), 5);
  EXPECT_EQ(vb::UCase("äöüßÿšœž abc"), "ÄÖÜßŸŠŒŽ ABC");
  EXPECT_EQ(vb::LCase("ÄŸ"), "äÿ");
  EXPECT_EQ(vb::Asc("ä"), 228);
  EXPECT_EQ(vb::Chr(128), "€");
  EXPECT_EQ(vb::Oct(98), "142");
  EXPECT_EQ(vb::Hex(142), "8E");
}

TEST(SortedList, OrdersWithoutRegardToCaseAndKeepsEqualsInOrder) {
  platform::SortedList list;
  list.AddItem("b", 1);
  list.AddItem("B", 2);
  list.AddItem("a", 3);
  list.AddItem("Ä", 4);
  list.AddItem("ä", 5);
  ASSERT_EQ(list.ListCount(), 5);
  const char* texts[] = {"a", "b", "B", "Ä", "ä"};
  const int32_t data[] = {3, 1, 2, 4, 5};
  for (int32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(list.List(i), texts[i]);
    EXPECT_EQ(list.ItemData(i), data[i]);
  }
  EXPECT_EQ(RuntimeErrorNumber([&] { list.ItemData(5); }), 9);
  list.Clear();
  EXPECT_EQ(list.ListCount(), 0);
}

TEST(Calendar, DaysAndAutomationDates) {
  EXPECT_EQ(platform::AddDays({2026, 11, 15}, 30), (platform::CivilDate{2026, 12, 15}));
  EXPECT_EQ(platform::AddDays({2024, 3, 1}, -1), (platform::CivilDate{2024, 2, 29}));
  EXPECT_EQ(platform::ToAutomationDate({{1899, 12, 30}, 0, 0, 0}), 0.0);
  EXPECT_EQ(platform::ToAutomationDate({{1900, 1, 1}, 12, 0, 0}), 2.5);
  EXPECT_TRUE(platform::IsValidDate(2024, 2, 29));
  EXPECT_FALSE(platform::IsValidDate(2023, 2, 29));
  EXPECT_FALSE(platform::IsValidDate(1900, 2, 29));
  EXPECT_TRUE(platform::IsValidDate(2000, 2, 29));
  EXPECT_FALSE(platform::IsValidDate(2026, 4, 31));
}

// Day counts far from today land on the same calendar: leap days of century years, both ends of the years
// a page can use, and dates many 400-year cycles away.
TEST(Calendar, DayCountsAcrossCenturies) {
  const struct {
    platform::CivilDate date;
    int64_t days;
  } kDates[] = {{{1, 1, 1}, -719162},      {{100, 1, 1}, -683003},      {{1600, 2, 29}, -135081},
                {{1899, 12, 30}, -25569},  {{1900, 3, 1}, -25508},      {{1969, 12, 31}, -1},
                {{2000, 2, 29}, 11016},    {{2100, 3, 1}, 47541},       {{9999, 12, 31}, 2932896},
                {{-4000, 3, 1}, -2180438}, {{275760, 9, 12}, 99999999}, {{-5473845, 12, 27}, -2000000000}};
  for (const auto& c : kDates) {
    EXPECT_EQ(platform::DaysFromCivil(c.date), c.days) << c.date.year << "-" << c.date.month << "-" << c.date.day;
    EXPECT_EQ(platform::CivilFromDays(c.days), c.date) << c.days;
  }
  EXPECT_EQ(platform::DaysFromCivil({2023, 2, 29}), platform::DaysFromCivil({2023, 3, 1}));
  for (int64_t days = -800000; days < 3000000; days += 7919) {
    EXPECT_EQ(platform::DaysFromCivil(platform::CivilFromDays(days)), days);
  }
}

TEST(Wildcards, StarAndQuestionMarkAgainstWholeNames) {
  using platform::MatchesWildcard;
  EXPECT_TRUE(MatchesWildcard("S1_a.pdf", "S1_*"));
  EXPECT_FALSE(MatchesWildcard("xS1_a", "S1_*"));
  EXPECT_TRUE(MatchesWildcard("aXbXc", "a*b*c"));
  EXPECT_FALSE(MatchesWildcard("aXbXd", "a*b*c"));
  EXPECT_TRUE(MatchesWildcard("ä1.tif", "?1.tif"));  // one character, not one byte
  EXPECT_FALSE(MatchesWildcard("1.tif", "?1.tif"));
  EXPECT_FALSE(MatchesWildcard("A.TIF", "*.tif"));
  EXPECT_TRUE(MatchesWildcard("noext", "*.*"));
  EXPECT_FALSE(MatchesWildcard("exact", ""));
  EXPECT_TRUE(MatchesWildcard("*x", "*"));  // a "*" in the name is text, the pattern's "*" covers it
}

TEST(Secrets, PasswordValuesAreMaskedWhereverTheyStand) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Provider=SQLOLEDB;User ID=sa;Password=geheim;Initial Catalog=x",
       "Provider=SQLOLEDB;User ID=sa;Password=***;Initial Catalog=x"},
      {"Driver=PG;pwd=a b c", "Driver=PG;pwd=***"},
      {"PASSWORD = x;PWD={a;b}}c};Server=s", "PASSWORD = ***;PWD=***;Server=s"},
      {"PWD={open to the end", "PWD=***"},
      {"Password=;PWD=", "Password=;PWD="},
      {"line Password=x\r\nnext line", "line Password=***\r\nnext line"},
      {"no password here, pwd, Password", "no password here, pwd, Password"},
  };
  for (const auto& [text, masked] : cases) EXPECT_EQ(platform::MaskSecrets(text), masked) << text;
}

TEST(Files, SizesRenamesDeletesAndListings) {
  testing::TempDir dir;
  platform::FileSystem& fs = *platform::FileSystem::Default();
  testing::WriteFile(dir.File("a"), "12345");
  testing::WriteFile(dir.File("b"), "x");
  std::filesystem::create_directory(dir.File("sub"));
  std::filesystem::create_directory_symlink(dir.path(), dir.File("link"));

  int64_t size = 0;
  EXPECT_EQ(fs.FileSize(dir.File("a"), &size), 0);
  EXPECT_EQ(size, 5);
  EXPECT_EQ(fs.FileSize(dir.File("missing"), &size), 53);
  EXPECT_EQ(fs.FileSize(dir.File("sub"), &size), 75);
  std::unique_ptr<platform::ReadableFile> file;
  EXPECT_EQ(fs.OpenForRead(dir.File("sub"), &file), 75);

  // An existing target is never replaced; a free one is taken.
  EXPECT_EQ(fs.RenameWithoutReplacing(dir.File("a"), dir.File("b")), 58);
  EXPECT_EQ(testing::ReadFile(dir.File("b")), "x");
  EXPECT_EQ(fs.RenameWithoutReplacing(dir.File("a"), dir.File("c")), 0);
  EXPECT_EQ(fs.RenameWithoutReplacing(dir.File("a"), dir.File("d")), 53);

  std::vector<platform::FolderEntry> entries;
  ASSERT_EQ(fs.ListFolder(dir.path(), &entries), 0);
  std::vector<std::string> folders, files;
  for (const auto& e : entries) (e.is_folder ? folders : files).push_back(e.name);
  std::sort(files.begin(), files.end());
  EXPECT_EQ(folders, std::vector<std::string>{"sub"});  // a link to a folder is no folder
  EXPECT_EQ(files, (std::vector<std::string>{"b", "c", "link"}));
  EXPECT_EQ(fs.ListFolder(dir.File("missing"), &entries), 76);

  EXPECT_TRUE(fs.FileExists(dir.File("link")));
  EXPECT_FALSE(fs.FileExists(dir.File("sub")));
  EXPECT_EQ(fs.DeleteFile(dir.File("link")), 0);  // the link goes, its folder stays
  EXPECT_TRUE(std::filesystem::exists(dir.File("c")));
  EXPECT_EQ(fs.DeleteFile(dir.File("sub")), 75);
  testing::WriteFile(dir.File("sub/x"), "");
  EXPECT_NE(fs.RemoveFolder(dir.File("sub")), 0);
  EXPECT_EQ(fs.DeleteFile(dir.File("sub/x")), 0);
  EXPECT_EQ(fs.RemoveFolder(dir.File("sub")), 0);
}

}  // namespace
}  // namespace halqvantor
