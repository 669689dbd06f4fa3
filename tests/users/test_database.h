#pragma once

// The databases of the user-directory tests: a fresh SQLite file, or a fresh schema on the PostgreSQL
// server of the test run (reached through ODBC), both created from the portable schema file. Plus a
// connection factory that records every statement the component executes and can fail one on demand.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/database.h"
#include "platform/env.h"
#include "support/temp_dir.h"

namespace halqvantor::testing {

enum class Backend { kSqlite, kPostgres };
std::string BackendName(const ::testing::TestParamInfo<Backend>& info);

// In a test's SetUp: skips the case when the run leaves PostgreSQL out (HALQVANTOR_TEST_POSTGRES=OFF).
#define HALQVANTOR_SKIP_UNLESS_AVAILABLE(backend)                                          \
  if ((backend) == ::halqvantor::testing::Backend::kPostgres && !HALQVANTOR_TEST_POSTGRES) \
  GTEST_SKIP() << "PostgreSQL is left out of this run (HALQVANTOR_TEST_POSTGRES=OFF)"

// The portable schema, or another file of src/users/schema.
std::string SchemaText(const std::string& file = "portable.sql");

class TestDatabase {
 public:
  explicit TestDatabase(Backend backend);
  ~TestDatabase();

  // What the component's strDBConnect gets.
  const std::string& connect_string() const { return connect_; }
  // Runs statements through the test's own connection.
  void Run(const std::string& sql);
  void Run(std::initializer_list<std::string> statements);
  // The first column of every row of a SELECT, as text ("NULL" for NULL).
  std::vector<std::string> Column(const std::string& sql);

 private:
  Backend backend_;
  TempDir dir_;
  std::string schema_;  // PostgreSQL: the schema of this test
  std::string connect_;
  std::unique_ptr<platform::Connection> connection_;
};

// Records the statements of every connection it makes; `fail_at` (1-based, counted over all connections) makes that
// Execute raise a database error instead of running. An environment: everything but the connections goes to `base`.
class RecordingFactory : public platform::EnvWrapper {
 public:
  explicit RecordingFactory(platform::Env* base = platform::Env::Default()) : EnvWrapper(base) {}
  std::unique_ptr<platform::Connection> NewConnection() override;

  std::vector<std::string> statements;
  int fail_at = 0;
  int closes = 0;
};

}  // namespace halqvantor::testing
