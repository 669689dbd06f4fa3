#include <gtest/gtest.h>

#include "archive/document.h"
#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;
using DocumentInfo = testing::SessionTest;
using SegmentText = testing::SessionTest;
using SegmentDescription = testing::SessionTest;
using Pieces = std::vector<std::string>;

const std::string kInfoRow = "^K1^,^A1^,^D7^,^2^,^1234^,^01.02.2002^,^15.01.2003^,^Titel^,^4^,^2^,^1^,^1^,^x^";
const std::string kSegmentRow = "^3^,^Text^,^120^,^2^,^0^,^TXT^,^1^,^Inhalt^,^d.txt^,^0^,^L1^,^77^";

// String Variants, so that a comparison checks the type too.
std::vector<Variant> Texts(const Pieces& texts) { return {texts.begin(), texts.end()}; }

TEST(DocumentRows, TextPiecesSplitWhereACaretEndMeetsACaretStart) {
  auto join = [](Pieces rows, std::string_view line_break) {
    Pieces pieces;
    archive::JoinTextPieces(rows, line_break, pieces);
    return pieces;
  };
  EXPECT_EQ(join({"^abc^", "^def^"}, "\r\n"), (Pieces{"abc", "def"}));
  EXPECT_EQ(join({"^ab", "", "cd^", "^e^"}, "<br>"), (Pieces{"ab<br><br>cd", "e"}));
  EXPECT_EQ(join({"^a", "b^"}, ""), (Pieces{"ab"}));
  // A "^" meant inside the text still splits; a row that only ends with "^" does not.
  EXPECT_EQ(join({"^x^", "^y^ z^", "w^"}, "|"), (Pieces{"x", "y^ z^|w"}));
  // A piece that cannot lose its two enclosing characters: the pieces before it are kept.
  Pieces pieces;
  EXPECT_EQ(RuntimeErrorNumber([&] { archive::JoinTextPieces({"^a^", "^"}, "|", pieces); }), 5);
  EXPECT_EQ(pieces, Pieces{"a"});
}

TEST_F(DocumentInfo, ColumnsFourToElevenAsTextAndTheRowCount) {
  Answers({"Status: OK\r\n" + kInfoRow + "\r\nnext", "Status: OK", "Status: Error 3 Archiv unbekannt"});
  std::vector<Variant> out(8);
  Variant status("old");
  EXPECT_EQ(v().EASYGetDocumentInfo("K1", "A1", "D7", int32_t{2}, &out[0], &out[1], &out[2], &out[3], &out[4], &out[5],
                                    &out[6], &out[7], &status),
            Variant(int32_t{2}));
  out.push_back(status);
  EXPECT_EQ(out, Texts({"1234", "01.02.2002", "15.01.2003", "Titel", "4", "2", "1", "1", ""}));
  EXPECT_EQ(Requests()[0], std::string(kHead) + ",^GetDocumentInfo^,^K1^,^A1^,^D7^,^2^");
  // No row: 0 and no field written; a failure: -1 as an Integer and the status text.
  EXPECT_EQ(v().EASYGetDocumentInfo("K1", "A1", "D7", "2", &out[0]), Variant(int32_t{0}));
  EXPECT_EQ(v().EASYGetDocumentInfo("K1", "A1", "D7", "2", &out[0], nullptr, nullptr, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, &status),
            Variant(int16_t{-1}));
  EXPECT_EQ((Outs{out[0], status}), Texts({"1234", "Error 3 Archiv unbekannt"}));
}

TEST_F(SegmentDescription, NotesRowThenOneSegmentPerNext) {
  Answers({"Status: OK\r\n2\r\n" + kSegmentRow + "\r\n^4^,^Bild^,^0^,^0^,^9^,^TIF^,^2^,^Scan^,^s.tif^,^0^,^^,^0^",
           "Status: OK\r\n0", "Status: OK"});
  Variant notes, status("old");
  EXPECT_EQ(v().EASYGetSegmentDescriptionInit("K1", "A1", "D7", "2", Variant::missing(), &notes, &status),
            Variant(int32_t{2}));
  EXPECT_EQ((Outs{notes, status}), Texts({"2", ""}));
  std::vector<Variant> out(11);
  EXPECT_EQ(v().EASYGetSegmentDescriptionNext(&out[0], &out[1], &out[2], &out[3], &out[4], &out[5], &out[6], &out[7],
                                              &out[8], &out[9], &out[10]),
            Variant("Text"));
  EXPECT_EQ(out, Texts({"3", "120", "2", "0", "TXT", "1", "Inhalt", "d.txt", "0", "L1", "77"}));
  EXPECT_EQ(v().EASYGetSegmentDescriptionNext(&out[0]), Variant("Bild"));
  EXPECT_EQ((Outs{v().EASYGetSegmentDescriptionNext(&out[0]), out[0]}), (Outs{"", "4"}));

  // Only the notes row: no segment. No row at all: -1 as a Long and an empty notes count.
  EXPECT_EQ(v().EASYGetSegmentDescriptionInit("K1", "A1", "D7", "2", "\\\\srv\\thumbs"), Variant(int32_t{0}));
  EXPECT_EQ(v().EASYGetSegmentDescriptionNext(), Variant(""));
  EXPECT_EQ((Outs{v().EASYGetSegmentDescriptionInit("K1", "A1", "D7", "2", "", &notes), notes}),
            (Outs{int32_t{-1}, ""}));
  EXPECT_EQ(v().EASYGetSegmentDescriptionNext(), Variant(""));
  const std::string ask = std::string(kHead) + ",^GetSegmentDescription^,^K1^,^A1^,^D7^,^2^,^";
  EXPECT_EQ(Pieces(Requests().begin(), Requests().begin() + 2), (Pieces{ask + "^", ask + "\\\\srv\\thumbs^"}));
}

TEST_F(SegmentText, PiecesJoinedWithTheCallersLineBreakWhichIsNeverSent) {
  const std::string text = "Status: OK\r\n^Zeile 1\r\nZeile 2^\r\n^zwei^";
  Answers({text, text, "Status: OK\r\n" + kInfoRow, "Status: Error 2 x", "Status: OK"});
  EXPECT_EQ(v().EASYGetSegmentTextInit("K1", "A1", "D7", "2"), Variant(int32_t{2}));
  EXPECT_EQ(v().EASYGetSegmentTextNext(), Variant("Zeile 1\r\nZeile 2"));
  EXPECT_EQ(v().EASYGetSegmentTextInit("K1", "A1", "D7", "2", "Suche", "<b>", "</b>", "<br>", "&nbsp;"),
            Variant(int32_t{2}));
  EXPECT_EQ(v().EASYGetSegmentTextNext(), Variant("Zeile 1<br>Zeile 2"));
  // The pieces outlive other requests and a failed read.
  v().EASYGetDocumentInfo("K1", "A1", "D7", "2");
  Variant status("old");
  EXPECT_EQ((Outs{v().EASYGetSegmentTextInit("K1", "A1", "D7", "2", "", "", "", "", "", &status), status}),
            (Outs{int16_t{-1}, "Error 2 x"}));
  EXPECT_EQ((Outs{v().EASYGetSegmentTextNext(), v().EASYGetSegmentTextNext()}), (Outs{"zwei", ""}));
  // An answer without rows holds no piece.
  EXPECT_EQ((Outs{v().EASYGetSegmentTextInit("K1", "A1", "D7", "2", "", "", "", "", "", &status), status}),
            (Outs{int32_t{0}, ""}));
  EXPECT_EQ(v().EASYGetSegmentTextNext(), Variant(""));
  const std::string ask = std::string(kHead) + ",^GetSegmentText^,^K1^,^A1^,^D7^,^2^,";
  EXPECT_EQ(Pieces(Requests().begin(), Requests().begin() + 2),
            (Pieces{ask + "^^,^^,^^,^^", ask + "^Suche^,^<b>^,^</b>^,^&nbsp;^"}));
}

}  // namespace
}  // namespace halqvantor
