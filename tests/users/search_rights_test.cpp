#include "users/search_rights.h"

#include <gtest/gtest.h>

#include "support/errors.h"
#include "users/user_directory_fixture.h"

namespace halqvantor::testing {
namespace {

using users::ExpandDateTokens;

constexpr platform::CivilDate kToday{2026, 11, 15};

// Expansion in any case, with signs; positions count characters. A token right after a long one is skipped.
// Failing forms raise 5, 6 or 13; so do scans that would never end for want of a ")" after the token.
TEST(DateTokens, ExpansionsAndFailingForms) {
  const std::vector<std::pair<std::string, std::string>> expanded = {
      {"$(DATE)", "15.11.2026"},
      {"from $(date-1) on", "from 14.11.2026 on"},
      {"$(Date+30)|$(DATE-365)", "15.12.2026|15.11.2025"},
      {"$(DATEX) stays", "$(DATEX) stays"},
      {"Müller $(DATE)", "Müller 15.11.2026"},
      {"$(DATE+100)$(DATE)", "23.02.2027$(DATE)"},
      {"$(DATE+10)$(DATE)", "25.11.202615.11.2026"},
      {"$(DATE+100)$(DATE+100)$(DATEX", "23.02.202723.02.2027$(DATEX"},  // the skip ends that scan
  };
  for (const auto& [value, text] : expanded) EXPECT_EQ(ExpandDateTokens(value, kToday), text) << value;
  const std::pair<std::string, int> failing[] = {{"$(DATE+5", 5},
                                                 {"$(DATEX", 5},
                                                 {"a $(DATE", 5},
                                                 {"$(DATE+)", 13},
                                                 {"$(DATE+x)", 13},
                                                 {"$(DATE+99999999)", 6},
                                                 {"$(DATE) $(DATEX) $(DATE", 5}};
  for (const auto& [value, number] : failing) {
    EXPECT_EQ(RuntimeErrorNumber([&] { ExpandDateTokens(value, kToday); }), number) << value;
  }
}

class SearchRights : public UserDirectoryTest {
 protected:
  // User 1 is in group 10. Right 1: C/A fields 5 (X, hidden) and 7 (Z, no match code); right 2 (group's):
  // C/A field 5 (Y) and field 9 (empty value, hidden and no match code); right 3: D/B field 2 (dated).
  SearchRights()
      : UserDirectoryTest(
            {"INSERT INTO UserGroups VALUES (1, 10)",
             "INSERT INTO SearchRights VALUES (1, 'C', 'A'), (2, 'C', 'A'), (3, 'D', 'B')",
             "INSERT INTO UserSearchRights VALUES (1, 1), (10, 2), (10, 3)",
             "INSERT INTO SearchRightFields VALUES (1, 5, 'X', 1, 0), (1, 7, 'Z', 0, 1), (2, 5, 'Y', 0, 0), "
             "(2, 9, '', 1, 1), (3, 2, '>$(date-7)', 0, 0)"}) {}
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
  EXPECT_EQ((Outs{hidden, nomatch}), (Outs{"$(#C)\\A;.5,.9", "$(#C)\\A;.7,.9"}));
  // No rights at all.
  EXPECT_EQ(v->GetUserSearchRights(2, &rights, &hidden, &nomatch), Variant(int32_t{0}));
  EXPECT_EQ(rights.ToString() + hidden.ToString() + nomatch.ToString(), "");
}

TEST_P(SearchRights, ChannelAndArchiveJoinIntoOneKey) {
  db->Run({"INSERT INTO SearchRights VALUES (4, 'AB', 'C'), (5, 'A', 'BC')",
           "INSERT INTO UserSearchRights VALUES (2, 4), (2, 5)",
           "INSERT INTO SearchRightFields VALUES (4, 1, 'p', 1, 0), (5, 2, 'q', 1, 0)"});
  Variant rights, hidden, nomatch;
  EXPECT_EQ((Outs{v->GetUserSearchRights(2, &rights, &hidden, &nomatch), rights}),
            (Outs{int32_t{1}, "$(#A)\\BC;.2=(q)&.1=(p)"}));
  EXPECT_EQ(hidden, Variant("$(#A)\\BC;.2,.1"));
}

TEST_P(SearchRights, FailuresLeaveTheOtherTexts) {
  Variant rights("r"), hidden("h"), nomatch("n");
  db->Run("INSERT INTO SearchRightFields VALUES (3, 4, '$(DATE+x)', 0, 0)");
  EXPECT_EQ((Outs{v->GetUserSearchRights(1, &rights, &hidden, &nomatch), hidden}),
            (Outs{int16_t{-1}, "h"}));  // pass 1 failed: the field lists are untouched
  EXPECT_EQ(nomatch, Variant("n"));
  db->Run("DELETE FROM SearchRightFields WHERE FieldID=4");
  recorder.fail_at = 4;  // the no-match-code pass of the second call
  EXPECT_EQ(v->GetUserSearchRights(1, &rights, &hidden, &nomatch), Variant(int16_t{-1}));
  EXPECT_TRUE(rights.ToString().ends_with(".2=(>08.11.2026)"));
  EXPECT_EQ((Outs{hidden, nomatch}), (Outs{"$(#C)\\A;.5,.9", ""}));
  EXPECT_EQ(recorder.statements.size(), 4u);
  EXPECT_EQ(Failures(), (std::vector<std::string>{
                            "Allgemeiner Fehler in Funktion 'GetUserSearchRights': 13 - Type mismatch.",
                            "Allgemeiner Fehler in Funktion 'GetUserSearchRights': 4711 - injected failure."}));
}

}  // namespace
}  // namespace halqvantor::testing
