#include <gtest/gtest.h>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using ChannelLists = testing::SessionTest;

TEST_F(ChannelLists, ChannelsAreSortedByCapitalsAndSplitAtTheFirstComma) {
  Answer("Status: OK\r\nb,2\r\nK1,Rechnungen, alt\r\nA,1\r\na,0\r\n\r\nK2");
  Variant status = "old";
  const Variant count = v().EASYGetChannelsInit(&status);
  EXPECT_EQ(count, Variant(int32_t{6}));
  EXPECT_EQ(status, Variant(""));
  EXPECT_EQ(Requests(), std::vector<std::string>{Request("^GetChannels^")});

  std::vector<std::string> walked;
  Variant description = "untouched";
  for (int i = 0; i < 6; ++i) {
    const Variant name = v().EASYGetChannelsNext(&description);
    ASSERT_EQ(name.type(), VarType::String);
    walked.push_back(name.StringValue() + "|" + description.StringValue());
  }
  // The empty row sorts first and is a row of its own.
  EXPECT_EQ(walked, (std::vector<std::string>{"|", "a|0", "A|1", "b|2", "K1|Rechnungen, alt", "K2|"}));
  description = "untouched";
  EXPECT_EQ(v().EASYGetChannelsNext(&description), Variant(""));
  EXPECT_EQ(description, Variant("untouched"));
  EXPECT_EQ(v().EASYGetChannelsNext(), Variant(""));
}

TEST_F(ChannelLists, AFailedInitReturnsAnIntegerAndTheServerText) {
  Answer("Status: OK\r\nK1");
  Answer("Status: Error 3 Archiv unbekannt\r\nK9");
  ASSERT_EQ(v().EASYGetChannelsInit(), Variant(int32_t{1}));
  Variant status;
  const Variant result = v().EASYGetAllArchivesInit(&status);
  EXPECT_EQ(result, Variant(int16_t{-1}));
  EXPECT_EQ(status, Variant("Error 3 Archiv unbekannt"));
  // The rows of the list before are gone.
  EXPECT_EQ(v().EASYGetChannelsNext(), Variant(""));
  EXPECT_EQ(v().EASYGetArchivesInit("K1"), Variant(int16_t{-1}));
}

TEST_F(ChannelLists, ArchiveListsSendTheirChannelAndHandOutWholeRows) {
  Answer("Status: OK\r\nb,x\r\nA,y");
  Variant status = "old";
  EXPECT_EQ(v().EASYGetArchivesInit("", &status), Variant(int32_t{2}));
  EXPECT_EQ(status, Variant(""));
  EXPECT_EQ(v().EASYGetArchivesNext(), Variant("A,y"));
  EXPECT_EQ(v().EASYGetArchivesNext(), Variant("b,x"));
  EXPECT_EQ(v().EASYGetArchivesNext(), Variant(""));

  EXPECT_EQ(v().EASYGetAllArchivesInit(), Variant(int32_t{2}));
  // Every Next walks the rows of the last list, whichever it was.
  EXPECT_EQ(v().EASYGetChannelsNext(), Variant("A"));
  EXPECT_EQ(v().EASYGetAllArchivesNext(), Variant("b,x"));
  EXPECT_EQ(Requests(), (std::vector<std::string>{Request("^GetArchives^,^^"), Request("^GetAllArchives^")}));
}

}  // namespace
}  // namespace halqvantor
