#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>

#include "halqvantor/Variant.h"
#include "platform/clock.h"
#include "platform/cp1252.h"
#include "platform/files.h"
#include "platform/secrets.h"
#include "platform/vb_runtime.h"
#include "support/errors.h"
#include "support/temp_dir.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;

TEST(Variant, ConversionsRoundHalfToEvenAndCheckRanges) {
  const std::pair<Variant, int32_t> integers[] = {{2.5, 2},      {3.5, 4},      {" 12 ", 12},
                                                  {"1.5", 2},    {"&HFF", 255}, {"&HFFFF", -1},
                                                  {"1e3", 1000}, {true, -1},    {"True", -1}};
  for (const auto& [value, number] : integers) EXPECT_EQ(value.ToInteger(), number) << value.ToString();
  EXPECT_EQ(RuntimeErrorNumber([] { Variant(int32_t{32768}).ToInteger(); }), 6);
  EXPECT_EQ(RuntimeErrorNumber([] { Variant(256.0).ToByte(); }), 6);
  for (const Variant& bad : {Variant("12abc"), Variant("&O19"), Variant::missing()}) {
    EXPECT_EQ(RuntimeErrorNumber([&] { bad.ToLong(); }), 13);
  }
  EXPECT_EQ(RuntimeErrorNumber([] { Variant::null().ToString(); }), 13);
}

TEST(Variant, TextFormsOfValues) {
  EXPECT_EQ((std::vector<std::string>{Variant(int16_t{-1}).ToString(), Variant(1.5).ToString(),
                                      Variant(1e20).ToString(), Variant(false).ToString(),
                                      Variant::date(platform::ToAutomationDate({{2026, 11, 15}, 0, 0, 0})).ToString(),
                                      Variant::date(platform::ToAutomationDate({{2026, 11, 15}, 8, 5, 0})).ToString()}),
            (std::vector<std::string>{"-1", "1.5", "1E+20", "False", "15.11.2026", "15.11.2026 08:05:00"}));
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
  EXPECT_EQ((std::vector<std::string>{vb::Left(s, 2), vb::Right(s, 2), vb::Mid(s, 2, 2), vb::Mid(s, 9, 2), vb::Chr(128),
                                      vb::Oct(98), vb::Hex(142), vb::UCase("äöüßÿšœž abc"), vb::LCase("ÄŸ")}),
            (std::vector<std::string>{"äb", "€d", "bc", "", "€", "142", "8E", "ÄÖÜßŸŠŒŽ ABC", "äÿ"}));
  EXPECT_EQ((std::vector<int64_t>{vb::Len(s), vb::InStr(s, "€"), vb::InStr(5, s, "€"), vb::InStr(4, "abc", ""),
                                  vb::InStr(5, "abc", ""), vb::Asc("ä")}),
            (std::vector<int64_t>{5, 4, 0, 4, 0, 228}));
  EXPECT_EQ(RuntimeErrorNumber([] { vb::Mid("abc", 0, 1); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { vb::InStr(0, "abc", "a"); }), 5);
}

// Day counts far from today land on the same calendar: leap days of century years, both ends of the years
// a page can use, and dates many 400-year cycles away.
TEST(Calendar, DayCountsAcrossCenturies) {
  const std::pair<platform::CivilDate, int64_t> kDates[] = {
      {{1, 1, 1}, -719162},      {{100, 1, 1}, -683003},      {{1600, 2, 29}, -135081},
      {{1899, 12, 30}, -25569},  {{1900, 3, 1}, -25508},      {{1969, 12, 31}, -1},
      {{2000, 2, 29}, 11016},    {{2100, 3, 1}, 47541},       {{9999, 12, 31}, 2932896},
      {{-4000, 3, 1}, -2180438}, {{275760, 9, 12}, 99999999}, {{-5473845, 12, 27}, -2000000000}};
  for (const auto& [date, days] : kDates) {
    EXPECT_EQ(platform::DaysFromCivil(date), days) << date.year << "-" << date.month << "-" << date.day;
    EXPECT_EQ(platform::CivilFromDays(days), date) << days;
  }
  EXPECT_EQ(platform::DaysFromCivil({2023, 2, 29}), platform::DaysFromCivil({2023, 3, 1}));
  for (int64_t days = -800000; days < 3000000; days += 7919) {
    EXPECT_EQ(platform::DaysFromCivil(platform::CivilFromDays(days)), days);
  }
}

TEST(Wildcards, StarAndQuestionMarkAgainstWholeNames) {
  using platform::MatchesWildcard;
  // "?" is one character, not one byte; case counts; a "*" in the name is text that the pattern's "*" covers.
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"S1_a.pdf", "S1_*", true}, {"xS1_a", "S1_*", false},   {"aXbXc", "a*b*c", true},  {"aXbXd", "a*b*c", false},
      {"ä1.tif", "?1.tif", true}, {"1.tif", "?1.tif", false}, {"A.TIF", "*.tif", false}, {"noext", "*.*", true},
      {"exact", "", false},       {"*x", "*", true}};
  for (const auto& [name, pattern, matches] : cases) EXPECT_EQ(MatchesWildcard(name, pattern), matches) << name;
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
      {"no password here, pwd, Password", "no password here, pwd, Password"}};
  for (const auto& [text, masked] : cases) EXPECT_EQ(platform::MaskSecrets(text), masked) << text;
}

// The error numbers of the file system; renaming, listing and deleting are checked through the downloads'
// extension mapping and DeleteFTPObjects (browser_upload_test), links to folders included.
TEST(Files, ErrorNumbersOfMissingAndWrongKindsOfFiles) {
  testing::TempDir dir;
  platform::FileSystem& fs = *platform::FileSystem::Default();
  testing::WriteFile(dir.File("a"), "12345");
  testing::WriteFile(dir.File("b"), "x");
  std::filesystem::create_directory(dir.File("sub"));
  int64_t size = 0;
  std::unique_ptr<platform::ReadableFile> file;
  std::vector<platform::FolderEntry> entries;
  EXPECT_EQ(
      (std::vector<int>{fs.FileSize(dir.File("missing"), &size), fs.FileSize(dir.File("sub"), &size),
                        fs.OpenForRead(dir.File("sub"), &file), fs.RenameWithoutReplacing(dir.File("a"), dir.File("b")),
                        fs.RenameWithoutReplacing(dir.File("missing"), dir.File("d")),
                        fs.ListFolder(dir.File("missing"), &entries), fs.DeleteFile(dir.File("sub"))}),
      (std::vector<int>{53, 75, 75, 58, 53, 76, 75}));
  EXPECT_EQ(fs.FileSize(dir.File("a"), &size), 0);
  EXPECT_EQ(size, 5);
  EXPECT_FALSE(fs.FileExists(dir.File("sub")));
}

}  // namespace
}  // namespace halqvantor
