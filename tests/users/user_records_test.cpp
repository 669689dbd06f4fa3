#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "users/text_encoding.h"
#include "users/user_directory_fixture.h"

namespace halqvantor::testing {
namespace {

class UserRecords : public UserDirectoryTest {
 protected:
  void AddUser(int id, const std::string& name, const std::string& passwd_sql) {
    db->Run("INSERT INTO Users(UserID,UserName,Passwd) VALUES (" + std::to_string(id) + ", '" + name + "', " +
            passwd_sql + ")");
  }
  static std::string Encoded(const std::string& text) { return "'" + EncodeText(text) + "'"; }
};
HALQVANTOR_ON_BOTH_BACKENDS(UserRecords);

TEST_P(UserRecords, NumbersByMaxPlusOneStartingAtOne) {
  EXPECT_EQ(v->GetNextDBObjectID("UserID", "Users"), Variant(int16_t{1}));  // empty table
  EXPECT_EQ(v->WriteUserToDB("anna", "pw"), Variant(int32_t{1}));
  AddUser(41, "grp", "NULL");
  EXPECT_EQ(v->GetNextDBObjectID("UserID", "Users"), Variant(int32_t{42}));
  EXPECT_EQ(v->WriteUserToDB("bert", "pw", "ARCH", "apw"), Variant(int32_t{42}));
  EXPECT_EQ(db->Column("SELECT Passwd FROM Users WHERE UserID=42"), std::vector<std::string>{EncodeText("pw")});
  EXPECT_EQ(db->Column("SELECT EASYUser FROM Users WHERE UserID=42"), std::vector<std::string>{"ARCH"});
  EXPECT_EQ(db->Column("SELECT EASYPasswd FROM Users WHERE UserID=42"), std::vector<std::string>{EncodeText("apw")});
  // Only one of the two archive arguments stores neither.
  EXPECT_EQ(v->WriteUserToDB("carl", "pw", "ARCH"), Variant(int32_t{43}));
  EXPECT_EQ(db->Column("SELECT EASYUser FROM Users WHERE UserID=43"), std::vector<std::string>{"NULL"});
  db->Run("UPDATE Users SET EASYUser=NULL");
  // MAX over a column of only NULL counts as an empty table.
  EXPECT_EQ(v->GetNextDBObjectID("EASYUser", "Users"), Variant(int16_t{1}));
}

TEST_P(UserRecords, NumberingFailureEndsWriteUserToDBWithOneLogLine) {
  recorder.fail_at = 1;
  EXPECT_EQ(v->WriteUserToDB("anna", "pw"), Variant(int16_t{-1}));
  EXPECT_EQ(recorder.statements.size(), 1u);  // no INSERT
  EXPECT_EQ(Failures(),
            std::vector<std::string>{"Allgemeiner Fehler in Funktion 'GetNextDBObjectID': 4711 - injected failure."});
}

TEST_P(UserRecords, LogOn) {
  AddUser(7, "anna", Encoded("SECRET"));
  AddUser(8, "nopw", "NULL");
  EXPECT_EQ(v->CheckLogon("anna"), Variant(int32_t{7}));  // the name alone
  EXPECT_EQ(v->CheckLogon("anna", "secret"), Variant(int32_t{7}));
  EXPECT_EQ(v->CheckLogon("anna", "wrong"), Variant(int16_t{0}));
  EXPECT_EQ(v->CheckLogon("nobody"), Variant(int16_t{0}));
  EXPECT_EQ(v->CheckLogon("nopw", ""), Variant(int16_t{0}));  // a NULL password refuses any password
  EXPECT_EQ(v->CheckLogon("nopw"), Variant(int32_t{8}));
  EXPECT_TRUE(Failures().empty());
}

TEST_P(UserRecords, ChangePasswdByName) {
  AddUser(7, "anna", Encoded("old"));
  AddUser(9, "anna", Encoded("other"));
  EXPECT_EQ(v->ChangePasswd("anna", "wrong", "new"), Variant(int16_t{0}));
  EXPECT_EQ(recorder.statements.size(), 1u);  // the log-on check only
  EXPECT_EQ(v->ChangePasswd("anna", "OLD", "new"), Variant(int16_t{7}));
  EXPECT_EQ(db->Column("SELECT Passwd FROM Users ORDER BY UserID"),
            (std::vector<std::string>{EncodeText("new"), EncodeText("new")}));
  // A user number above the Integer range fails the conversion of the log-on result.
  AddUser(40000, "big", Encoded("pw"));
  EXPECT_EQ(v->ChangePasswd("big", "pw", "x"), Variant(int16_t{-1}));
  EXPECT_EQ(Failures(), std::vector<std::string>{"Allgemeiner Fehler in Funktion 'ChangePasswd': 6 - Overflow."});
}

TEST_P(UserRecords, ArchiveAccount) {
  db->Run({"INSERT INTO Users VALUES (1, 'anna', NULL, 'ARCH', '" + EncodeText("apw") + "')",
           "INSERT INTO Users VALUES (2, 'bert', NULL, 'ARCH', NULL)"});
  Variant user("untouched"), passwd("untouched");
  EXPECT_EQ(v->GetUserEASYUser(3, &user, &passwd), Variant(int16_t{0}));
  EXPECT_EQ(user, Variant("untouched"));
  EXPECT_EQ(v->GetUserEASYUser("1", &user, &passwd), Variant(int16_t{1}));
  EXPECT_EQ(user, Variant("ARCH"));
  EXPECT_EQ(passwd, Variant("apw"));
  EXPECT_EQ(v->GetUserEASYUser(int16_t{2}, &user, &passwd), Variant(int16_t{1}));
  EXPECT_EQ(user, Variant(""));
  EXPECT_EQ(passwd, Variant(""));
}

// Values that would change a statement stop every member before the database: -1 and one log line each.
// Where a member has a text out, a refused call clears it or leaves it as the row says.
TEST_P(UserRecords, GuardStopsUnsafeValuesBeforeTheDatabase) {
  const std::string five = "5 - Invalid procedure call or argument";
  Variant out, more;
  struct Case {
    std::function<Variant()> call;
    std::string line;  // the start of the log line after "Allgemeiner Fehler in Funktion '"
    std::optional<Variant> out = std::nullopt;
  };
  const std::vector<Case> cases = {
      {[&] { return v->CheckLogon("o'brien", "x"); },
       "CheckLogon': " + five + " (strUser 'o'brien' holds an apostrophe)."},
      {[&] { return v->ChangePasswd("o'brien", "x", "y"); }, "CheckLogon': " + five},  // logged by CheckLogon
      {[&] { return v->WriteUserToDB("o'brien", "x"); }, "WriteUserToDB': " + five},
      {[&] { return v->GetUserEASYUser("1 OR 1=1", &out, &more); },
       "GetUserEASYUser': " + five + " (strUserID '1 OR 1=1' is not a whole number).", Variant("old")},
      {[&] { return v->GetUserEASYUser(1.5, &out, &more); }, "GetUserEASYUser': " + five, Variant("old")},
      {[&] { return v->GetNextDBObjectID("UserID", "Users; DROP TABLE Users"); }, "GetNextDBObjectID': " + five},
      {[&] { return v->GetUserGroups("", &out); }, "GetUserGroups': " + five + " (strUserID '' is not a whole number).",
       Variant("")},
      {[&] { return v->GetUserEditRights("abc", &out); },
       "GetUserEditRights': " + five + " (strUserID 'abc' is not a whole number)."},
      {[&] { return v->GetUserDocRights(1, "C'1", "A1", &out); }, "GetUserDocRights': " + five},
      {[&] { return v->GetUserDocRights("x", "C1", "A1", &out); }, "GetUserDocRights': " + five},
      {[&] { return v->GetUserSearchRights("1)) OR ((1=1", &out, &more, &more); },
       "GetUserSearchRights': " + five + " (lngUserID '1)) OR ((1=1' is not a whole number)."},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].line);
    out = Variant("old");
    EXPECT_EQ(cases[i].call(), Variant(int16_t{-1}));
    const std::vector<std::string> log = Failures();
    ASSERT_EQ(log.size(), i + 1);
    EXPECT_TRUE(log.back().starts_with("Allgemeiner Fehler in Funktion '" + cases[i].line)) << log.back();
    if (cases[i].out) {
      EXPECT_EQ(out, *cases[i].out);
    }
  }
  EXPECT_TRUE(recorder.statements.empty()) << ::testing::PrintToString(recorder.statements);
}

TEST_P(UserRecords, DatabaseErrorsReachTheLogLine) {
  db->Run("DROP TABLE Users");
  EXPECT_EQ(v->CheckLogon("anna"), Variant(int16_t{-1}));
  const std::vector<std::string> log = Failures();
  ASSERT_EQ(log.size(), 1u);
  // The driver's own message names the missing table (SQLite: "no such table: Users"; PostgreSQL: relation
  // "users" does not exist).
  EXPECT_TRUE(log[0].starts_with("Allgemeiner Fehler in Funktion 'CheckLogon': ")) << log[0];
  EXPECT_NE(log[0].find(GetParam() == Backend::kSqlite ? "Users" : "users"), std::string::npos) << log[0];
  EXPECT_TRUE(log[0].ends_with(".")) << log[0];
}

}  // namespace
}  // namespace halqvantor::testing
