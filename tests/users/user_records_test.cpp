#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "link/text_encoding.h"
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
  EXPECT_EQ(db->Column("SELECT Passwd || ':' || EASYUser || ':' || EASYPasswd FROM Users WHERE UserID=42"),
            std::vector<std::string>{EncodeText("pw") + ":ARCH:" + EncodeText("apw")});
  // Only one of the two archive arguments stores neither.
  EXPECT_EQ(v->WriteUserToDB("carl", "pw", "ARCH"), Variant(int32_t{43}));
  EXPECT_EQ(db->Column("SELECT EASYUser FROM Users WHERE UserID=43"), std::vector<std::string>{"NULL"});
  db->Run("UPDATE Users SET EASYUser=NULL");
  // MAX over a column of only NULL counts as an empty table.
  EXPECT_EQ(v->GetNextDBObjectID("EASYUser", "Users"), Variant(int16_t{1}));
}

// The name alone logs on; a NULL password refuses any password given.
TEST_P(UserRecords, LogOn) {
  AddUser(7, "anna", Encoded("SECRET"));
  AddUser(8, "nopw", "NULL");
  EXPECT_EQ((Outs{v->CheckLogon("anna"), v->CheckLogon("anna", "secret"), v->CheckLogon("anna", "wrong"),
                  v->CheckLogon("nobody"), v->CheckLogon("nopw", ""), v->CheckLogon("nopw")}),
            (Outs{int32_t{7}, int32_t{7}, int16_t{0}, int16_t{0}, int16_t{0}, int32_t{8}}));
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
  EXPECT_EQ((Outs{v->GetUserEASYUser(3, &user, &passwd), user}), (Outs{int16_t{0}, "untouched"}));
  EXPECT_EQ((Outs{v->GetUserEASYUser("1", &user, &passwd), user, passwd}), (Outs{int16_t{1}, "ARCH", "apw"}));
  EXPECT_EQ((Outs{v->GetUserEASYUser(int16_t{2}, &user, &passwd), user, passwd}), (Outs{int16_t{1}, "", ""}));
}

// A text that would have changed a statement spliced into it is just a value that matches nobody, in every
// text slot: nothing is found, nothing changes, nothing fails. Written as a user, it is stored as written and
// logs on, apostrophes and all.
TEST_P(UserRecords, InjectionPayloadsMatchNobodyAndChangeNothing) {
  AddUser(1, "anna", Encoded("pw"));
  db->Run({"INSERT INTO DocRights VALUES (1, 'C1', 'A1')", "INSERT INTO UserDocRights VALUES (1, 1)",
           "INSERT INTO DocRightFields VALUES (1, 2, '=', 'v', 1, 0)"});
  const std::vector<std::string> payloads = {"' OR '1'='1",
                                             "anna'; DROP TABLE Users; --",
                                             "x' UNION SELECT UserID, Passwd FROM Users --",
                                             "\\'; DELETE FROM Users; --",
                                             "?",
                                             "C1') OR ('1'='1"};
  const auto users = [&] { return db->Column("SELECT UserName || ':' || Passwd FROM Users ORDER BY UserID"); };
  const std::vector<std::string> before = users();
  int32_t id = 1;
  for (const std::string& p : payloads) {
    SCOPED_TRACE(p);
    Variant text("old");
    // The lists of GetUserDocRights split at commas, so a payload goes into both to keep them the same length.
    EXPECT_EQ((Outs{v->CheckLogon(p), v->CheckLogon(p, "pw"), v->CheckLogon("anna", p), v->ChangePasswd(p, "pw", "new"),
                    v->ChangePasswd("anna", p, "new"), v->GetUserDocRights(1, p, p, &text)}),
              (Outs{int16_t{0}, int16_t{0}, int16_t{0}, int16_t{0}, int16_t{0}, int32_t{0}}));
    EXPECT_EQ((Outs{v->GetUserDocRights(1, "C1," + p, "A1," + p, &text), text}),
              (Outs{int32_t{1}, "[$(#C1)\\A1;(2 =\"v\",1,0)]"}));
    EXPECT_EQ(users(), before);
  }
  // The same texts as a new user's four values are stored as given and log on.
  for (const std::string& p : payloads) {
    SCOPED_TRACE(p);
    EXPECT_EQ(v->WriteUserToDB(p, p, p, p), Variant(++id));
    EXPECT_EQ(v->CheckLogon(p, p), Variant(id));
    EXPECT_EQ(v->ChangePasswd(p, p, "x" + p), Variant(static_cast<int16_t>(id)));
    EXPECT_EQ(v->CheckLogon(p, "X" + p), Variant(id));  // without regard to case
    Variant user, passwd;
    EXPECT_EQ((Outs{v->GetUserEASYUser(id, &user, &passwd), user, passwd}), (Outs{int16_t{1}, p, p}));
  }
  EXPECT_EQ(db->Column("SELECT UserName FROM Users WHERE UserID=1"), std::vector<std::string>{"anna"});
  EXPECT_TRUE(Failures().empty()) << ::testing::PrintToString(Failures());
}

// Numbers and names are written into the statement's text, so one that could change it stops the member
// before the database: -1 and one log line each. Where a member has a text out, a refused call clears it or
// leaves it as the row says.
TEST_P(UserRecords, NumberSlotsAndNamesThatAreNotPlainAreRefused) {
  const std::string five = "5 - Invalid procedure call or argument";
  Variant out, more;
  struct Case {
    std::function<Variant()> call;
    std::string line;  // the start of the log line after "Allgemeiner Fehler in Funktion '"
    std::optional<Variant> out = std::nullopt;
  };
  const std::vector<Case> cases = {
      {[&] { return v->GetUserEASYUser("1 OR 1=1", &out, &more); },
       "GetUserEASYUser': " + five + " (strUserID '1 OR 1=1' is not a whole number).", Variant("old")},
      {[&] { return v->GetUserEASYUser(1.5, &out, &more); }, "GetUserEASYUser': " + five, Variant("old")},
      {[&] { return v->GetNextDBObjectID("UserID", "Users; DROP TABLE Users"); }, "GetNextDBObjectID': " + five},
      {[&] { return v->GetNextDBObjectID("UserID) FROM Users --", "Users"); }, "GetNextDBObjectID': " + five},
      {[&] { return v->GetUserGroups("", &out); }, "GetUserGroups': " + five + " (strUserID '' is not a whole number).",
       Variant("")},
      {[&] { return v->GetUserEditRights("abc", &out); },
       "GetUserEditRights': " + five + " (strUserID 'abc' is not a whole number)."},
      {[&] { return v->GetUserDocRights("x", "C1", "A1", &out); }, "GetUserDocRights': " + five},
      {[&] { return v->GetUserSearchRights("1)) OR ((1=1", &out, &more, &more); },
       "GetUserSearchRights': " + five + " (lngUserID '1)) OR ((1=1' is not a whole number)."}};
  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].line);
    out = Variant("old");
    EXPECT_EQ(cases[i].call(), Variant(int16_t{-1}));
    const std::vector<std::string> log = Failures();
    ASSERT_EQ(log.size(), i + 1);
    EXPECT_TRUE(log.back().starts_with("Allgemeiner Fehler in Funktion '" + cases[i].line)) << log.back();
    EXPECT_EQ(out, cases[i].out.value_or(out));  // a row without an out leaves it unchecked
  }
  EXPECT_TRUE(recorder.statements.empty()) << ::testing::PrintToString(recorder.statements);
}

// Strong passwords are hashed, checked exactly (case, umlauts, any length) and accepted whatever the
// setting. Every hash and every check of one takes a fraction of a second, so the cases are few.
TEST_P(UserRecords, StrongPasswordsAreHashedAndCheckedExactly) {
  Options(*v).strong_passwords = true;
  const std::string umlauts = "Grüße2002";
  const std::string long_one = std::string(60, 'x') + "Ä";
  EXPECT_EQ(v->WriteUserToDB("anna", umlauts, "ARCH", "apw"), Variant(int32_t{1}));
  const std::string stored = db->Column("SELECT Passwd FROM Users")[0];
  EXPECT_TRUE(stored.starts_with("$argon2id$")) << stored;
  EXPECT_EQ(db->Column("SELECT EASYPasswd FROM Users"), std::vector<std::string>{EncodeText("apw")});
  EXPECT_EQ((Outs{v->CheckLogon("anna", umlauts), v->CheckLogon("anna", "grüße2002")}), (Outs{int32_t{1}, int16_t{0}}));
  EXPECT_EQ(v->ChangePasswd("anna", umlauts, long_one), Variant(int16_t{1}));
  EXPECT_NE(db->Column("SELECT Passwd FROM Users")[0], stored);  // a new hash
  EXPECT_EQ((Outs{v->CheckLogon("anna", long_one), v->CheckLogon("anna", long_one.substr(0, 60))}),
            (Outs{int32_t{1}, int16_t{0}}));
  // With the setting off a hashed password still logs on, and the new one is encoded.
  Options(*v).strong_passwords = false;
  EXPECT_EQ(v->ChangePasswd("anna", long_one, "neu"), Variant(int16_t{1}));
  EXPECT_EQ(db->Column("SELECT Passwd FROM Users"), std::vector<std::string>{EncodeText("neu")});
  EXPECT_TRUE(Failures().empty());
}

// An encoded password becomes a hash at the first log-on that gives it exactly; a wrong one, or one right
// only without regard to case, leaves it as it is.
TEST_P(UserRecords, OldPasswordsAreUpgradedAtTheirNextExactLogOn) {
  Options(*v).strong_passwords = true;
  AddUser(7, "bert", Encoded("Geheim1"));
  AddUser(8, "carl", Encoded("Geheim1"));
  // The password given, the log-on's result, and whether the stored password is a hash after it.
  const std::tuple<std::string, Variant, bool> steps[] = {{"wrong", Variant(int16_t{0}), false},
                                                          {"GEHEIM1", Variant(int32_t{7}), false},
                                                          {"Geheim1", Variant(int32_t{7}), true},
                                                          {"GEHEIM1", Variant(int16_t{0}), true}};
  for (const auto& [given, result, hashed_after] : steps) {
    EXPECT_EQ(v->CheckLogon("bert", given), result) << given;
    const std::string stored = db->Column("SELECT Passwd FROM Users WHERE UserID=7")[0];
    EXPECT_TRUE(hashed_after ? stored.starts_with("$argon2id$") : stored == EncodeText("Geheim1")) << given;
  }
  // Carl's row is untouched; changing his password writes the new one hashed at once.
  EXPECT_EQ(db->Column("SELECT Passwd FROM Users WHERE UserID=8"), std::vector<std::string>{EncodeText("Geheim1")});
  EXPECT_EQ(v->ChangePasswd("carl", "Geheim1", "Neu2"), Variant(int16_t{8}));
  EXPECT_TRUE(db->Column("SELECT Passwd FROM Users WHERE UserID=8")[0].starts_with("$argon2id$"));
  EXPECT_TRUE(Failures().empty());
}

// The password format a directory records for itself (the table that `vantor initdb` creates).
TEST_P(UserRecords, DirectorySettingsSetThePasswordFormat) {
  EXPECT_FALSE(ApplyDirectorySettings(*v));  // no such table: nothing changes, nothing is logged
  db->Run({"CREATE TABLE DirectorySettings (StrongPasswords INTEGER NOT NULL)"});
  EXPECT_FALSE(ApplyDirectorySettings(*v));  // no row
  for (const std::string set :
       {"INSERT INTO DirectorySettings VALUES (1)", "UPDATE DirectorySettings SET StrongPasswords=0"}) {
    db->Run(set);
    EXPECT_TRUE(ApplyDirectorySettings(*v));
    EXPECT_EQ(Options(*v).strong_passwords, set.starts_with("INSERT")) << set;
  }
  EXPECT_EQ(v->CheckLogon("nobody"), Variant(int16_t{0}));  // the connection is fine after the failed read
  clsVantor closed;
  EXPECT_FALSE(ApplyDirectorySettings(closed));
  EXPECT_TRUE(Failures().empty());
}

}  // namespace
}  // namespace halqvantor::testing
