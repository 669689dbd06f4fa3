#include <gtest/gtest.h>

#include "archive/notes.h"
#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;
using Notes = testing::SessionTest;

using Lines = std::vector<std::string>;

TEST(NoteRows, HeaderCommaAndTextJoinedWithCrLf) {
  auto join = [](Lines rows) {
    Lines notes;
    archive::JoinNotes(rows, notes);
    return notes;
  };
  EXPECT_EQ(join({"Mia 01.02.2002", "^kurz^", "Tom", "^eins", "", "drei^", "Eva", "^^"}),
            (Lines{"Mia 01.02.2002,kurz", "Tom,eins\r\n\r\ndrei", "Eva,"}));
  EXPECT_EQ(join({"h", "äx^"}), Lines{"h,x"});  // the opening character is dropped whole

  // A header without its text row, a text that never closes: the notes before stay appended.
  Lines notes;
  EXPECT_EQ(RuntimeErrorNumber([&] { archive::JoinNotes({"Mia", "^a^", "Tom"}, notes); }), 9);
  EXPECT_EQ(notes, Lines{"Mia,a"});
  EXPECT_EQ(RuntimeErrorNumber([&] { archive::JoinNotes({"Mia", "^a", "b"}, notes); }), 9);
}

TEST_F(Notes, ReadReplacesSegmentTextAndTheOtherWayRound) {
  Answers({"Status: OK\r\nMia\r\n^erste\r\nZeile^\r\nTom\r\n^zweite^", "Status: OK\r\n^Text^", "Status: OK\r\n^Text^",
           "Status: Error 4 gesperrt", "Status: OK"});
  Variant status("old");
  EXPECT_EQ((Outs{v().EASYGetNotesInit("K1", "A1", "D7", "2", &status), status}), (Outs{int32_t{2}, ""}));
  EXPECT_EQ(v().EASYGetNotesNext(), Variant("Mia,erste\r\nZeile"));
  EXPECT_EQ(Requests()[0], std::string(kHead) + ",^GetNotes^,^K1^,^A1^,^D7^,^2^");

  EXPECT_EQ(v().EASYGetSegmentTextInit("K1", "A1", "D7", "2"), Variant(int32_t{1}));
  EXPECT_EQ((Outs{v().EASYGetNotesNext(), v().EASYGetNotesNext()}), (Outs{"Text", ""}));

  // A failed read keeps the pieces; a document without notes has none.
  EXPECT_EQ(v().EASYGetSegmentTextInit("K1", "A1", "D7", "2"), Variant(int32_t{1}));
  EXPECT_EQ((Outs{v().EASYGetNotesInit("K1", "A1", "D7", "2", &status), status}),
            (Outs{int16_t{-1}, "Error 4 gesperrt"}));
  EXPECT_EQ(v().EASYGetSegmentTextNext(), Variant("Text"));
  EXPECT_EQ(v().EASYGetNotesInit("K1", "A1", "D7", "2"), Variant(int32_t{0}));
  EXPECT_EQ(v().EASYGetNotesNext(), Variant(""));
}

TEST_F(Notes, WriteSendsTheFirst8000CharactersAndTheLineBreak) {
  Answers({"Status: OK\r\nignored", "Status: OK", "Status: Error 5 nein"});
  // 8001 characters of two bytes each in UTF-8, one byte each on the wire.
  std::string note;
  for (int i = 0; i < 8001; ++i) note += "ä";
  Variant status("old");
  const Variant written = v().EASYWriteNote("K1", "A1", "D7", "2", note, Variant::missing(), &status);
  EXPECT_EQ((Outs{written, status}), (Outs{int16_t{1}, ""}));
  EXPECT_EQ(v().EASYWriteNote("K1", "A1", "D7", "2", "a<br>b", "<br>"), Variant(int16_t{1}));
  EXPECT_EQ((Outs{v().EASYDeleteNotes("K1", "A1", "D7", "2", &status), status}), (Outs{int16_t{-1}, "Error 5 nein"}));

  const std::string key = std::string(kHead) + ",^WriteNote^,^K1^,^A1^,^D7^,^2^,^";
  EXPECT_EQ(Requests(), (Lines{key + std::string(8000, '\xE4') + "^,^\r\n^", key + "a<br>b^,^<br>^",
                               std::string(kHead) + ",^DeleteNotes^,^K1^,^A1^,^D7^,^2^"}));
}

}  // namespace
}  // namespace halqvantor
