// User-directory benchmarks, each figure a ratio against a baseline measured in the same run:
//   - CheckLogon on SQLite against the same statement run through libsqlite3 directly (goal: 1.5 or less);
//   - GetUserSearchRights over 10 000 right rows against 1 000 rows (goal: under 12, i.e. linear growth).

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "best_time.h"
#include "component/vantor_impl.h"
#include "halqvantor/clsVantor.h"
#include "link/text_encoding.h"
#include "platform/database.h"
#include "support/temp_dir.h"

namespace {

using halqvantor::Variant;

using halqvantor::testing::BestTime;

void CreateDatabase(const std::string& path) {
  auto connection = halqvantor::platform::NewSqliteConnection(/*create_missing=*/true);
  connection->Open(path);
  const std::string schema = halqvantor::testing::ReadFile(std::string(HALQVANTOR_SCHEMA_DIR) + "/portable.sql");
  for (const std::string& statement : halqvantor::platform::SplitSqlScript(schema)) connection->Execute(statement);
}

void Run(sqlite3* db, const std::string& sql) {
  char* error = nullptr;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    std::fprintf(stderr, "%s: %s\n", sql.c_str(), error);
    sqlite3_free(error);
    std::exit(1);
  }
}

// 1 000 users; "user500" logs on with "secret".
double CheckLogonRatio(const std::string& path) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  Run(db, "BEGIN");
  for (int i = 1; i <= 1000; ++i) {
    Run(db, "INSERT INTO Users(UserID,UserName,Passwd) VALUES (" + std::to_string(i) + ", 'user" + std::to_string(i) +
                "', '" + halqvantor::EncodeText("secret") + "')");
  }
  Run(db, "COMMIT");

  const std::string sql = "SELECT UserID, Passwd FROM Users WHERE UserName='user500'";
  long sink = 0;
  const int runs = 20000;
  const auto direct_call = [&] {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr);
    if (sqlite3_step(stmt) == SQLITE_ROW) {
      sink += sqlite3_column_int(stmt, 0);
      sink += sqlite3_column_bytes(stmt, 1);
    }
    sqlite3_finalize(stmt);
  };
  halqvantor::clsVantor v;
  v.strDBConnect = "Provider=SQLite;Data Source=" + path;
  v.Init(Variant(true));
  const auto component_call = [&] { sink += v.CheckLogon("user500", "SECRET").ToLong(); };
  // Rounds alternate, so that load from elsewhere on the machine weighs on both sides alike.
  double direct = 1e30;
  double component = 1e30;
  for (int round = 0; round < 5; ++round) {
    direct = std::min(direct, BestTime(runs / 5, direct_call));
    component = std::min(component, BestTime(runs / 5, component_call));
  }
  sqlite3_close(db);
  std::printf("CheckLogon on SQLite: %.0f calls/s, direct libsqlite3 %.0f statements/s (sink %ld)\n", runs / component,
              runs / direct, sink % 7);
  return component / direct;
}

// Rows of SearchRightFields for user 1: `rows` values over 100 archives, 10 fields each.
double SearchRightsTime(const std::string& path, int rows) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  Run(db, "BEGIN");
  Run(db, "DELETE FROM SearchRights");
  Run(db, "DELETE FROM UserSearchRights");
  Run(db, "DELETE FROM SearchRightFields");
  for (int r = 1; r <= 100; ++r) {
    Run(db, "INSERT INTO SearchRights VALUES (" + std::to_string(r) + ", 'CH" + std::to_string(r % 7) + "', 'AR" +
                std::to_string(r) + "')");
    Run(db, "INSERT INTO UserSearchRights VALUES (1, " + std::to_string(r) + ")");
  }
  for (int i = 0; i < rows; ++i) {
    Run(db, "INSERT INTO SearchRightFields VALUES (" + std::to_string(i % 100 + 1) + ", " + std::to_string(i % 10) +
                ", 'v" + std::to_string(i) + (i % 5 == 0 ? " $(DATE-7)" : "") + "', " + std::to_string(i % 2) + ", " +
                std::to_string(i % 3 == 0) + ")");
  }
  Run(db, "COMMIT");
  sqlite3_close(db);

  halqvantor::clsVantor v;
  v.strDBConnect = "Provider=SQLite;Data Source=" + path;
  v.Init(Variant(true));
  Variant rights, hidden, nomatch;
  return BestTime(3, [&] {
    if (v.GetUserSearchRights(1, &rights, &hidden, &nomatch).ToLong() < 1) std::exit(1);
  });
}

}  // namespace

int main() {
  halqvantor::testing::TempDir dir;
  const std::string path = dir.File("users.db");
  CreateDatabase(path);

  const double logon = CheckLogonRatio(path);
  std::printf("CheckLogon time / direct statement time: %.2f (goal <= 1.5)\n", logon);

  const double small = SearchRightsTime(path, 1000);
  const double large = SearchRightsTime(path, 10000);
  std::printf("GetUserSearchRights: 1 000 rows %.2f ms, 10 000 rows %.2f ms\n", small * 1000 / 3, large * 1000 / 3);
  std::printf("GetUserSearchRights 10 000 rows / 1 000 rows: %.2f (goal < 12)\n", large / small);
  return 0;
}
