#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "support/errors.h"
#include "users/user_directory_fixture.h"

namespace halqvantor::testing {
namespace {

using platform::OdbcConnectStringOf;
using platform::SplitSqlScript;
using platform::SqlitePathOf;

TEST(ConnectStrings, SqliteByProviderOrFileNameAndSqlServerTranslatedForOdbc) {
  const std::vector<std::pair<std::string, std::string>> sqlite = {
      {"Provider=SQLite;Data Source=/var/lib/users.db", "/var/lib/users.db"},
      {" provider = sqlite ; data source = '/a b;c/u.sqlite' ", "/a b;c/u.sqlite"},
      {"/srv/Users.DB", "/srv/Users.DB"},
      {"DSN=users", ""},
      {"Provider=SQLOLEDB;Data Source=x.db", ""}};
  for (const auto& [connect, path] : sqlite) EXPECT_EQ(SqlitePathOf(connect), path) << connect;
  const std::vector<std::pair<std::string, std::string>> odbc = {
      {"Provider=SQLOLEDB.1;Data Source=db1,1433;Initial Catalog=Portal;User ID=web;Password=p;w;Persist Security "
       "Info=False",
       "Driver={FreeTDS};Server=db1;Port=1433;Database=Portal;UID=web;PWD=p;ClientCharset=UTF-8"},
      {"Provider=SQLOLEDB;Driver={ODBC Driver 18};Data Source=db1;Password=\"a;b}\"",
       "Driver={ODBC Driver 18};Server=db1;PWD={a;b}}}"},
      // Anything else goes to the driver manager as it is.
      {"Driver=PostgreSQL;Servername=/tmp;Database=x", "Driver=PostgreSQL;Servername=/tmp;Database=x"}};
  for (const auto& [connect, translated] : odbc) EXPECT_EQ(OdbcConnectStringOf(connect), translated);
}

TEST(SqlScripts, SplitAtSeparatorsOutsideQuotesAndComments) {
  EXPECT_EQ(SplitSqlScript("SELECT 'a;b' FROM t; -- x;y\n/* ; */ INSERT INTO \"q;\" VALUES ('it''s;');;"),
            (std::vector<std::string>{"SELECT 'a;b' FROM t", "INSERT INTO \"q;\" VALUES ('it''s;')"}));
  EXPECT_TRUE(SplitSqlScript(" -- only a comment\n").empty());
}

// The SQL Server schema names the same tables and columns as the portable one.
TEST(SqlScripts, BothSchemasDefineTheSameTables) {
  const auto shape = [](const std::string& script) {
    std::set<std::string> names;
    for (const std::string& statement : SplitSqlScript(script)) {
      std::smatch table;
      if (!std::regex_search(statement, table, std::regex(R"(CREATE TABLE (\w+))"))) continue;
      const std::regex column(R"(\n\s+(\w+)\s+(N?VARCHAR|INT))");
      for (auto it = std::sregex_iterator(statement.begin(), statement.end(), column); it != std::sregex_iterator();
           ++it) {
        names.insert(table[1].str() + "." + (*it)[1].str());
      }
    }
    return names;
  };
  const std::set<std::string> portable = shape(SchemaText());
  EXPECT_EQ(portable.size(), 39u);
  EXPECT_EQ(shape(SchemaText("sqlserver.sql")), portable);
}

class DatabaseBackend : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override {
    HALQVANTOR_SKIP_UNLESS_AVAILABLE(GetParam());
    db = std::make_unique<TestDatabase>(GetParam());
    connection = platform::Env::Default()->NewConnection();
    connection->Open(db->connect_string());
  }
  std::unique_ptr<TestDatabase> db;
  std::unique_ptr<platform::Connection> connection;
};
HALQVANTOR_ON_BOTH_BACKENDS(DatabaseBackend);

// Sums too big for a Long become Doubles; sums the server gives as exact numerics (PostgreSQL's sum of
// BIGINT, any sum of NUMERIC) are numbers all the same.
TEST_P(DatabaseBackend, FieldsByNameAndPositionWithTheirTypes) {
  EXPECT_EQ(connection->Execute("INSERT INTO UserEditRights VALUES (1, 'A', 2000000000, 1, 0)"), nullptr);
  db->Run("INSERT INTO UserEditRights VALUES (2, 'A', 2000000000, 2, 0)");
  std::unique_ptr<platform::Recordset> rs = connection->Execute(
      "SELECT Archive, SUM(New), SUM(Edit), MAX(Del), MAX(UserID), SUM(CAST(Edit AS BIGINT)), "
      "SUM(CAST(New AS BIGINT)), SUM(CAST(Edit AS NUMERIC(10,2)) * 0.5) FROM UserEditRights GROUP BY Archive");
  ASSERT_FALSE(rs->Eof());
  EXPECT_EQ(rs->Field("ARCHIVE"), Variant("A"));
  const std::vector<Variant> fields = {rs->Field(1), rs->Field(2), rs->Field(4),
                                       rs->Field(5), rs->Field(6), rs->Field(7)};
  EXPECT_EQ(fields, (Outs{4000000000.0, int32_t{3}, int32_t{2}, int32_t{3}, 4000000000.0, 1.5}));
  rs->MoveNext();
  EXPECT_TRUE(rs->Eof());
  // An empty set's MAX is NULL.
  rs = connection->Execute("SELECT MAX(UserID), MAX(UserName) FROM Users");
  EXPECT_EQ((Outs{rs->Field(0), rs->Field(1)}), (Outs{Variant::null(), Variant::null()}));
  EXPECT_EQ(RuntimeErrorNumber([&] { rs->Field("nope"); }), platform::kErrItemNotFound);
}

// A text longer than the piece the driver hands out first comes back whole, two-byte characters across the
// pieces' ends included.
TEST_P(DatabaseBackend, LongTextsComeBackWhole) {
  std::string text;
  while (text.size() < 20000) text += "Grüße, ";
  db->Run("CREATE TABLE LongTexts (Body TEXT)");
  connection->Execute("INSERT INTO LongTexts VALUES (?)", {Variant(text)});
  EXPECT_EQ(connection->Execute("SELECT Body FROM LongTexts")->Field(0), Variant(text));
}

TEST_P(DatabaseBackend, OneStatementPerExecute) {
  EXPECT_THROW(connection->Execute("DELETE FROM Users; DROP TABLE Users"), platform::DatabaseError);
  EXPECT_THROW(connection->Execute("SELECT 1; SELECT 2"), platform::DatabaseError);
  EXPECT_NO_THROW(connection->Execute("SELECT UserID FROM Users WHERE UserName='a;b';"));
  EXPECT_EQ(db->Column("SELECT COUNT(*) FROM Users"), std::vector<std::string>{"0"});  // the table is still there
}

// Values go to the "?" placeholders as values of their type and are never read as SQL; the number of
// values must match the placeholders.
TEST_P(DatabaseBackend, ValuesAreBoundToPlaceholders) {
  const std::string name = "O'Brien'); DROP TABLE Users; --";
  const std::string long_text(9000, 'y');
  EXPECT_EQ(connection->Execute("INSERT INTO Users(UserID,UserName,Passwd,EASYUser) VALUES (?, ?, ?, ?)",
                                {Variant(int32_t{3}), Variant(name), Variant::null(), Variant("Jürgen")}),
            nullptr);
  std::unique_ptr<platform::Recordset> rs = connection->Execute(
      "SELECT UserID, Passwd, EASYUser FROM Users WHERE UserName=? AND UserID=?", {Variant(name), Variant(3.0)});
  ASSERT_FALSE(rs->Eof());
  EXPECT_EQ((Outs{rs->Field(0), rs->Field(1), rs->Field(2)}), (Outs{int32_t{3}, Variant::null(), "Jürgen"}));
  rs->Close();
  // A text longer than a plain parameter of some servers takes.
  EXPECT_TRUE(connection->Execute("SELECT UserID FROM Users WHERE UserName=?", {Variant(long_text)})->Eof());
  EXPECT_THROW(connection->Execute("SELECT UserID FROM Users WHERE UserName=?", {}), platform::DatabaseError);
  EXPECT_THROW(connection->Execute("SELECT UserID FROM Users WHERE UserName=?", {Variant("a"), Variant("b")}),
               platform::DatabaseError);
}

TEST_P(DatabaseBackend, ErrorsCarryTheDriversNumberAndText) {
  try {
    connection->Execute("SELECT Nope FROM Users");
    ADD_FAILURE() << "no error";
  } catch (const platform::DatabaseError& e) {
    EXPECT_NE(e.description().find(GetParam() == Backend::kSqlite ? "no such column: Nope" : "nope"), std::string::npos)
        << e.description();
    if (GetParam() == Backend::kPostgres) {
      EXPECT_EQ(e.sqlstate(), "42703");
    }
  }
  connection->Close();
  EXPECT_EQ(connection->State(), platform::kAdStateClosed);
  EXPECT_EQ(RuntimeErrorNumber([&] { connection->Execute("SELECT 1"); }), platform::kErrObjectClosed);
}

TEST(DatabaseInit, NoOrAFailedOpenIsLoggedAndLeavesTheConnectionClosed) {
  TempDir dir;
  FakeClock clock;
  RecordingFactory recorder(&clock);
  {
    clsVantor v;
    SetEnvironment(v, &recorder);
    v.strDebugLogPath = dir.path();
    v.strSessionID = "S";
    v.strDBConnect = "Provider=SQLite;Data Source=" + dir.File("missing.db");
    Variant text;
    EXPECT_EQ(v.GetUserRights(1, &text), Variant(int16_t{-1}));  // before Init: no connection at all
    v.Init(Variant(true));
    EXPECT_EQ(v.GetUserRights(1, &text), Variant(int16_t{-1}));
  }
  EXPECT_FALSE(std::filesystem::exists(dir.File("missing.db")));  // never created
  EXPECT_EQ(
      FailureLines(dir.File("S.LOG")),
      (std::vector<std::string>{
          "Allgemeiner Fehler in Funktion 'GetUserRights': 91 - Object variable or With block variable not set.",
          "Allgemeiner Fehler in Funktion 'Init': 14 - unable to open database file: " + dir.File("missing.db") + ".",
          "Allgemeiner Fehler in Funktion 'GetUserRights': 3704 - Operation is not allowed when the object is "
          "closed."}));
  EXPECT_EQ(recorder.closes, 0);
}

TEST_P(DatabaseBackend, EndOfObjectClosesItsConnection) {
  RecordingFactory recorder;
  {
    clsVantor v;
    SetEnvironment(v, &recorder);
    v.strDBConnect = db->connect_string();
    v.Init(Variant(true));
    EXPECT_EQ(v.CheckLogon("nobody"), Variant(int16_t{0}));
  }
  EXPECT_EQ(recorder.closes, 1);
  {
    clsVantor v;
    SetEnvironment(v, &recorder);
    v.Init();  // created, never opened: nothing to close
  }
  EXPECT_EQ(recorder.closes, 1);
}

}  // namespace
}  // namespace halqvantor::testing
