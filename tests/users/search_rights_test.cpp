#include "users/search_rights.h"

#include <gtest/gtest.h>

#include "support/errors.h"
#include "users/user_directory_fixture.h"

namespace halqvantor::testing {
namespace {

using users::ExpandDateTokens;

constexpr platform::CivilDate kToday{2026, 11, 15};

int ErrorOf(const std::string& value) {
  return RuntimeErrorNumber([&] { ExpandDateTokens(value, kToday); });
}

TEST(DateTokens, ExpandInAnyCaseWithSigns) {
  EXPECT_EQ(ExpandDateTokens("$(DATE)", kToday), "15.11.2026");
  EXPECT_EQ(ExpandDateTokens("from $(date-1) on", kToday), "from 14.11.2026 on");
  EXPECT_EQ(ExpandDateTokens("$(Date+30)|$(DATE-365)", kToday), "15.12.2026|15.11.2025");
  EXPECT_EQ(ExpandDateTokens("$(DATEX) stays", kToday), "$(DATEX) stays");
  EXPECT_EQ(ExpandDateTokens("Müller $(DATE)", kToday), "Müller 15.11.2026");  // positions count characters
}

TEST(DateTokens, TokenRightAfterALongTokenIsSkipped) {
  EXPECT_EQ(ExpandDateTokens("$(DATE+100)$(DATE)", kToday), "23.02.2027$(DATE)");
  EXPECT_EQ(ExpandDateTokens("$(DATE+10)$(DATE)", kToday), "25.11.202615.11.2026");
}

TEST(DateTokens, FailingForms) {
  EXPECT_EQ(ErrorOf("$(DATE+)"), 13);
  EXPECT_EQ(ErrorOf("$(DATE+x)"), 13);
  EXPECT_EQ(ErrorOf("$(DATE+5"), 5);
  EXPECT_EQ(ErrorOf("$(DATE+99999999)"), 6);
  // Scans that would never end: another character, or the value's end, with no ")" after the token.
  EXPECT_EQ(ErrorOf("$(DATEX"), 5);
  EXPECT_EQ(ErrorOf("a $(DATE"), 5);
  EXPECT_EQ(ErrorOf("$(DATE) $(DATEX) $(DATE"), 5);
  // That state is not always hopeless: here a skipped token makes the scan end.
  EXPECT_EQ(ExpandDateTokens("$(DATE+100)$(DATE+100)$(DATEX", kToday), "23.02.202723.02.2027$(DATEX");
}

class SearchRights : public UserDirectoryTest {
 protected:
  // User 1 is in group 10. Right 1: C/A fields 5 (X, hidden) and 7 (Z, no match code); right 2 (group's):
  // C/A field 5 (Y) and field 9 (empty value, hidden and no match code); right 3: D/B field 2 (dated).
  void SetUp() override {
    UserDirectoryTest::SetUp();
    db->Run({"INSERT INTO UserGroups VALUES (1, 10)", "INSERT INTO SearchRights VALUES (1, 'C', 'A')",
             "INSERT INTO SearchRights VALUES (2, 'C', 'A')", "INSERT INTO SearchRights VALUES (3, 'D', 'B')",
             "INSERT INTO UserSearchRights VALUES (1, 1)", "INSERT INTO UserSearchRights VALUES (10, 2)",
             "INSERT INTO UserSearchRights VALUES (10, 3)", "INSERT INTO SearchRightFields VALUES (1, 5, 'X', 1, 0)",
             "INSERT INTO SearchRightFields VALUES (1, 7, 'Z', 0, 1)",
             "INSERT INTO SearchRightFields VALUES (2, 5, 'Y', 0, 0)",
             "INSERT INTO SearchRightFields VALUES (2, 9, '', 1, 1)",
             "INSERT INTO SearchRightFields VALUES (3, 2, '>$(date-7)', 0, 0)"});
  }
};
HALQVANTOR_ON_BOTH_BACKENDS(SearchRights);

TEST_P(SearchRights, ThreeTexts) {
  Variant rights, hidden, nomatch;
  EXPECT_EQ(v->GetUserSearchRights(1, &rights, &hidden, &nomatch), Variant(int32_t{2}));
  // The two values of field 5 come in the server's order.
  const std::string text = rights.ToString();
  EXPECT_TRUE(text == "$(#C)\\A;.5=(X Y)&.7=(Z)\r\n$(#D)\\B;.2=(>08.11.2026)" ||
              text == "$(#C)\\A;.5=(Y X)&.7=(Z)\r\n$(#D)\\B;.2=(>08.11.2026)")
      << text;
  EXPECT_EQ(hidden, Variant("$(#C)\\A;.5,.9"));
  EXPECT_EQ(nomatch, Variant("$(#C)\\A;.7,.9"));
  // No rights at all.
  EXPECT_EQ(v->GetUserSearchRights(2, &rights, &hidden, &nomatch), Variant(int32_t{0}));
  EXPECT_EQ(rights.ToString() + hidden.ToString() + nomatch.ToString(), "");
}

TEST_P(SearchRights, ChannelAndArchiveJoinIntoOneKey) {
  db->Run({"INSERT INTO SearchRights VALUES (4, 'AB', 'C')", "INSERT INTO SearchRights VALUES (5, 'A', 'BC')",
           "INSERT INTO UserSearchRights VALUES (2, 4)", "INSERT INTO UserSearchRights VALUES (2, 5)",
           "INSERT INTO SearchRightFields VALUES (4, 1, 'p', 1, 0)",
           "INSERT INTO SearchRightFields VALUES (5, 2, 'q', 1, 0)"});
  Variant rights, hidden, nomatch;
  EXPECT_EQ(v->GetUserSearchRights(2, &rights, &hidden, &nomatch), Variant(int32_t{1}));
  EXPECT_EQ(rights, Variant("$(#A)\\BC;.2=(q)&.1=(p)"));
  EXPECT_EQ(hidden, Variant("$(#A)\\BC;.2,.1"));
}

TEST_P(SearchRights, FailuresLeaveTheOtherTexts) {
  Variant rights("r"), hidden("h"), nomatch("n");
  db->Run("INSERT INTO SearchRightFields VALUES (3, 4, '$(DATE+x)', 0, 0)");
  EXPECT_EQ(v->GetUserSearchRights(1, &rights, &hidden, &nomatch), Variant(int16_t{-1}));
  EXPECT_EQ(hidden, Variant("h"));  // pass 1 failed: the field lists are untouched
  EXPECT_EQ(nomatch, Variant("n"));
  db->Run("DELETE FROM SearchRightFields WHERE FieldID=4");
  recorder.fail_at = 4;  // the no-match-code pass of the second call
  EXPECT_EQ(v->GetUserSearchRights(1, &rights, &hidden, &nomatch), Variant(int16_t{-1}));
  EXPECT_TRUE(rights.ToString().ends_with(".2=(>08.11.2026)"));
  EXPECT_EQ(hidden, Variant("$(#C)\\A;.5,.9"));
  EXPECT_EQ(nomatch, Variant(""));
  EXPECT_EQ(v->GetUserSearchRights("1)) OR ((1=1", &rights, &hidden, &nomatch), Variant(int16_t{-1}));
  EXPECT_EQ(recorder.statements.size(), 4u);
  EXPECT_EQ(Failures(), (std::vector<std::string>{
                            "Allgemeiner Fehler in Funktion 'GetUserSearchRights': 13 - Type mismatch.",
                            "Allgemeiner Fehler in Funktion 'GetUserSearchRights': 4711 - injected failure.",
                            "Allgemeiner Fehler in Funktion 'GetUserSearchRights': 5 - Invalid procedure call or "
                            "argument (lngUserID '1)) OR ((1=1' is not a whole number)."}));
}

}  // namespace
}  // namespace halqvantor::testing
