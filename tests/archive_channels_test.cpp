#include <gtest/gtest.h>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using ChannelLists = testing::SessionTest;

// Channels sort by capitals (the empty row first, as a row of its own) and split at the first comma; archive
// lists hand out whole rows; every Next walks the rows of the last list, whichever it was.
TEST_F(ChannelLists, ChannelsSortAndSplitArchivesComeWholeAndEveryNextWalksTheLastList) {
  Answers({"Status: OK\r\nb,2\r\nK1,Rechnungen, alt\r\nA,1\r\na,0\r\n\r\nK2", "Status: OK\r\nb,x\r\nA,y"});
  Variant status = "old", description;
  EXPECT_EQ((Outs{v().EASYGetChannelsInit(&status), status}), (Outs{int32_t{6}, ""}));
  std::vector<std::string> walked;
  for (int i = 0; i < 6; ++i) {  // the empty row's name is "", as the end's is
    const std::string name = v().EASYGetChannelsNext(&description).StringValue();
    walked.push_back(name + "|" + description.StringValue());
  }
  EXPECT_EQ(walked, (std::vector<std::string>{"|", "a|0", "A|1", "b|2", "K1|Rechnungen, alt", "K2|"}));
  description = "untouched";
  EXPECT_EQ((Outs{v().EASYGetChannelsNext(&description), description}),
            (Outs{"", "untouched"}));  // the end leaves it alone

  EXPECT_EQ(v().EASYGetArchivesInit("", &status), Variant(int32_t{2}));
  EXPECT_EQ(v().EASYGetArchivesNext(), Variant("A,y"));
  EXPECT_EQ(v().EASYGetAllArchivesInit(), Variant(int32_t{2}));
  EXPECT_EQ(v().EASYGetChannelsNext(), Variant("A"));
  EXPECT_EQ(v().EASYGetAllArchivesNext(), Variant("b,x"));
  EXPECT_EQ(v().EASYGetArchivesNext(), Variant(""));
  EXPECT_EQ(Requests(), (std::vector<std::string>{Request("^GetChannels^"), Request("^GetArchives^,^^"),
                                                  Request("^GetAllArchives^")}));
}

TEST_F(ChannelLists, AFailedInitReturnsAnIntegerAndTheServerTextAndDropsTheRowsBefore) {
  Answer("Status: OK\r\nK1");
  Answer("Status: Error 3 Archiv unbekannt\r\nK9");
  ASSERT_EQ(v().EASYGetChannelsInit(), Variant(int32_t{1}));
  Variant status;
  EXPECT_EQ((Outs{v().EASYGetAllArchivesInit(&status), status}), (Outs{int16_t{-1}, "Error 3 Archiv unbekannt"}));
  EXPECT_EQ(v().EASYGetChannelsNext(), Variant(""));
  EXPECT_EQ(v().EASYGetArchivesInit("K1"), Variant(int16_t{-1}));
}

}  // namespace
}  // namespace halqvantor
