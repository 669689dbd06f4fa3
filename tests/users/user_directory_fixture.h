#pragma once

// A component object whose user database is a fresh test database of the backend under test, opened by
// Init, with logging on and every statement recorded.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "halqvantor/clsVantor.h"
#include "support/fake_clock.h"
#include "support/temp_dir.h"
#include "support/variant_print.h"
#include "users/test_database.h"

namespace halqvantor::testing {

// The "Allgemeiner Fehler" lines of a debug log, without their time stamps.
inline std::vector<std::string> FailureLines(const std::string& log_file) {
  std::vector<std::string> lines;
  for (const std::string& line : ReadLines(log_file)) {
    if (line.size() > 22 && line.substr(22).starts_with("Allgemeiner Fehler")) lines.push_back(line.substr(22));
  }
  return lines;
}

// `rows`: statements that fill the fresh database before each case.
class UserDirectoryTest : public ::testing::TestWithParam<Backend> {
 protected:
  explicit UserDirectoryTest(std::vector<std::string> rows = {}) : rows_(std::move(rows)) {}
  void SetUp() override {
    HALQVANTOR_SKIP_UNLESS_AVAILABLE(GetParam());
    db = std::make_unique<TestDatabase>(GetParam());
    for (const std::string& sql : rows_) db->Run(sql);
    v = std::make_unique<clsVantor>();
    SetEnvironment(*v, &recorder);
    v->strDebugLogPath = log.path();
    v->strSessionID = "S";
    v->strDBConnect = db->connect_string();
    v->Init(Variant(true));
    recorder.statements.clear();
  }
  void TearDown() override { v.reset(); }

  std::vector<std::string> Failures() const { return FailureLines(log.File("S.LOG")); }

  std::vector<std::string> rows_;
  TempDir log;
  FakeClock clock{{{2026, 11, 15}, 9, 0, 0}};
  RecordingFactory recorder{&clock};
  std::unique_ptr<TestDatabase> db;
  std::unique_ptr<clsVantor> v;
};

#define HALQVANTOR_ON_BOTH_BACKENDS(Suite) \
  INSTANTIATE_TEST_SUITE_P(Backends, Suite, ::testing::Values(Backend::kSqlite, Backend::kPostgres), BackendName)

}  // namespace halqvantor::testing
