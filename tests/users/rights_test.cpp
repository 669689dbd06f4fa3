#include <gtest/gtest.h>

#include <algorithm>
#include <ranges>

#include "users/user_directory_fixture.h"

namespace halqvantor::testing {
namespace {

// The items of a packed list, sorted: the statements have no ORDER BY, so servers differ in the order.
std::vector<std::string> Items(const Variant& text, std::string_view separator) {
  std::vector<std::string> items;
  for (const auto item : std::views::split(text.ToString(), separator)) items.emplace_back(item.begin(), item.end());
  std::ranges::sort(items);
  return items;
}

class Rights : public UserDirectoryTest {
 protected:
  // User 1 is in groups 10 and 11; group 10 is in group 20, which user 1 does not inherit.
  Rights()
      : UserDirectoryTest({"INSERT INTO Users(UserID,UserName) VALUES (1, 'anna'), (2, 'bert'), (10, 'Admins'), "
                           "(11, 'Editors'), (20, 'Everyone')",
                           "INSERT INTO UserGroups VALUES (1, 10), (1, 11), (10, 20)"}) {}
};
HALQVANTOR_ON_BOTH_BACKENDS(Rights);

TEST_P(Rights, UnionOfUserAndDirectGroupsOnceAndAFailureClearsTheText) {
  db->Run({"INSERT INTO UserRights VALUES (1, 'READ'), (10, 'READ'), (11, 'ADMIN'), (20, 'NEVER')",
           "INSERT INTO UserArchives VALUES (10, 'A1'), (11, 'A2')",
           "INSERT INTO UserChannels VALUES (1, 'C1'), (11, 'C1')"});
  Variant text;
  EXPECT_EQ(v->GetUserRights(1, &text), Variant(int32_t{2}));
  EXPECT_EQ(Items(text, ","), (std::vector<std::string>{"^ADMIN^", "^READ^"}));
  EXPECT_EQ(v->GetUserArchives("1", &text), Variant(int32_t{2}));
  EXPECT_EQ(Items(text, ","), (std::vector<std::string>{"^A1^", "^A2^"}));
  EXPECT_EQ((Outs{v->GetUserChannels(1, &text), text}), (Outs{int32_t{1}, "^C1^"}));
  EXPECT_EQ(v->GetUserGroups(1, &text), Variant(int32_t{2}));
  EXPECT_EQ(Items(text, ","), (std::vector<std::string>{"[Admins]", "[Editors]"}));
  // Nothing of his own and no groups.
  text = Variant("old");
  EXPECT_EQ((Outs{v->GetUserRights(2, &text), text}), (Outs{int32_t{0}, ""}));
  EXPECT_EQ(v->GetUserGroups(2, &text), Variant(int32_t{0}));
  // A database failure clears the text and is logged.
  recorder.fail_at = static_cast<int>(recorder.statements.size()) + 1;
  text = Variant("old");
  EXPECT_EQ((Outs{v->GetUserArchives(1, &text), text}), (Outs{int16_t{-1}, ""}));
  EXPECT_EQ(Failures(),
            std::vector<std::string>{"Allgemeiner Fehler in Funktion 'GetUserArchives': 4711 - injected failure."});
}

TEST_P(Rights, EditRightsSummedOverGroupsOneLinePerArchive) {
  db->Run(
      "INSERT INTO UserEditRights VALUES (1, 'ARCH1', 1, 0, 0), (10, 'ARCH1', 0, 2, 0), (11, 'ARCH2', 0, 0, 0), "
      "(11, 'ARCH3', 0, 0, 1), (20, 'ARCH3', 1, 1, 0)");
  Variant text;
  EXPECT_EQ(v->GetUserEditRights(1, &text), Variant(int32_t{3}));
  ASSERT_TRUE(text.ToString().ends_with("\r\n"));
  EXPECT_EQ(Items(text.ToString().substr(0, text.ToString().size() - 2), "\r\n"),
            (std::vector<std::string>{"ARCH1,N,E", "ARCH2", "ARCH3,D"}));
}

}  // namespace
}  // namespace halqvantor::testing
