#include <gtest/gtest.h>

#include "users/user_directory_fixture.h"

namespace halqvantor::testing {
namespace {

class DocumentRights : public UserDirectoryTest {
 protected:
  // Right 1 (C1/A1) is granted to user 1 and to his group 10; right 2 (C1/A1) to the group only; right 3
  // belongs to C2/A2.
  DocumentRights()
      : UserDirectoryTest({"INSERT INTO UserGroups VALUES (1, 10)",
                           "INSERT INTO DocRights VALUES (1, 'C1', 'A1'), (2, 'C1', 'A1'), (3, 'C2', 'A2')",
                           "INSERT INTO UserDocRights VALUES (1, 1), (10, 1), (10, 2), (1, 3)",
                           "INSERT INTO DocRightFields VALUES (1, 12, '=', 'Meier', 1, 0), (1, 5, '>=', '2000', 2, 1), "
                           "(1, 3, '<>', 'x', 1, 1), (2, 7, 'LIKE', 'A*', 1, 0), (3, 1, '=', '', 1, 0)"}) {}
};
HALQVANTOR_ON_BOTH_BACKENDS(DocumentRights);

TEST_P(DocumentRights, BlocksPerRightAndPair) {
  Variant text;
  // Conditions by Grade, then FieldID; operators padded or cut to two characters; granted twice, once here.
  const std::string c1 =
      "[$(#C1)\\A1;(12 =\"Meier\",1,0);(3<>\"x\",1,1);(5>=\"2000\",2,1)]\r\n[$(#C1)\\A1;(7KE\"A*\",1,0)]";
  EXPECT_EQ((Outs{v->GetUserDocRights(1, "C1", "A1", &text), text}), (Outs{int32_t{2}, c1}));
  EXPECT_EQ((Outs{v->GetUserDocRights(1, "C1,C2,C1", "A1,A2,A9,EXTRA", &text), text}),
            (Outs{int32_t{3}, c1 + "\r\n[$(#C2)\\A2;(1 =\"\",1,0)]"}));
  // Empty lists pair two empty names: nothing found.
  EXPECT_EQ((Outs{v->GetUserDocRights(1, "", "", &text), text}), (Outs{int32_t{0}, ""}));
}

TEST_P(DocumentRights, RightNumberedZeroJoinsTheBlockBefore) {
  db->Run({"INSERT INTO DocRights VALUES (0, 'C2', 'A2')", "INSERT INTO UserDocRights VALUES (1, 0)",
           "INSERT INTO DocRightFields VALUES (0, 9, '=', 'z', 1, 0)"});
  Variant text;
  EXPECT_EQ((Outs{v->GetUserDocRights(1, "C2", "A2", &text), text}),
            (Outs{int32_t{1}, ";(9 =\"z\",1,0)]\r\n[$(#C2)\\A2;(1 =\"\",1,0)]"}));
  EXPECT_EQ(v->GetUserDocRights(1, "C1,C2", "A1,A2", &text), Variant(int32_t{3}));
  EXPECT_TRUE(text.ToString().ends_with("(7KE\"A*\",1,0);(9 =\"z\",1,0)]\r\n[$(#C2)\\A2;(1 =\"\",1,0)]"));
}

TEST_P(DocumentRights, ShorterArchiveListFailsKeepingTheTextSoFar) {
  Variant text;
  EXPECT_EQ((Outs{v->GetUserDocRights(1, "C2,C1", "A2", &text), text}),
            (Outs{int16_t{-1}, "[$(#C2)\\A2;(1 =\"\",1,0)"}));  // no closing bracket
  EXPECT_EQ(recorder.statements.size(), 1u);
  EXPECT_EQ(Failures(),
            std::vector<std::string>{
                "Allgemeiner Fehler in Funktion 'GetUserDocRights': 5 - Invalid procedure call or argument."});
}

}  // namespace
}  // namespace halqvantor::testing
