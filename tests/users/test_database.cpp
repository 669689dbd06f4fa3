#include "users/test_database.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "support/temp_dir.h"

namespace halqvantor::testing {
namespace {

// The driver manager reads the test run's own odbcinst.ini, never the machine's.
const bool kOdbcConfigured = [] {
  ::setenv("ODBCSYSINI", HALQVANTOR_ODBCSYSINI, 1);
  ::setenv("ODBCINSTINI", "odbcinst.ini", 1);
  return true;
}();

// The ODBC connect string of the PostgreSQL server of this test run (database "postgres"); fails the test
// when no server was started (the tests run under ctest, which starts it).
std::string PostgresConnectString() {
  (void)kOdbcConfigured;
  std::ifstream in(HALQVANTOR_PG_STATE);
  std::string dir;
  std::getline(in, dir);
  if (dir.empty()) {
    ADD_FAILURE() << "no PostgreSQL server for this run (" << HALQVANTOR_PG_STATE << "); run the tests with ctest";
    return "";
  }
  return "Driver=HalqVantorPostgreSQL;Servername=" + dir + ";Port=5432;Database=postgres;Username=postgres";
}

class RecordingConnection final : public platform::Connection {
 public:
  RecordingConnection(RecordingFactory& factory, std::unique_ptr<platform::Connection> inner)
      : factory_(factory), inner_(std::move(inner)) {}
  void Open(const std::string& connect_string) override { inner_->Open(connect_string); }
  using platform::Connection::Execute;
  std::unique_ptr<platform::Recordset> Execute(const std::string& sql, const std::vector<Variant>& params) override {
    factory_.statements.push_back(sql);
    if (static_cast<int>(factory_.statements.size()) == factory_.fail_at) {
      throw platform::DatabaseError(4711, "injected failure");
    }
    return inner_->Execute(sql, params);
  }
  int32_t State() const override { return inner_->State(); }
  void Close() override {
    ++factory_.closes;
    inner_->Close();
  }

 private:
  RecordingFactory& factory_;
  std::unique_ptr<platform::Connection> inner_;
};

}  // namespace

std::string BackendName(const ::testing::TestParamInfo<Backend>& info) {
  return info.param == Backend::kSqlite ? "SQLite" : "PostgreSQL";
}

std::string SchemaText(const std::string& file) { return ReadFile(std::string(HALQVANTOR_SCHEMA_DIR) + "/" + file); }

TestDatabase::TestDatabase(Backend backend) : backend_(backend) {
  if (backend == Backend::kSqlite) {
    const std::string path = dir_.File("users.db");
    connection_ = platform::NewSqliteConnection(/*create_missing=*/true);
    connection_->Open(path);
    connect_ = "Provider=SQLite;Data Source=" + path;
  } else {
    const std::string server = PostgresConnectString();
    schema_ = "t" + std::to_string(::getpid());
    connection_ = platform::NewOdbcConnection();
    connection_->Open(server);
    connection_->Execute("DROP SCHEMA IF EXISTS " + schema_ + " CASCADE");
    connection_->Execute("CREATE SCHEMA " + schema_);
    connection_->Execute("SET search_path TO " + schema_);
    connect_ = server + ";ConnSettings=SET search_path TO " + schema_;
  }
  for (const std::string& statement : platform::SplitSqlScript(SchemaText())) connection_->Execute(statement);
}

TestDatabase::~TestDatabase() {
  try {
    if (!schema_.empty()) connection_->Execute("DROP SCHEMA " + schema_ + " CASCADE");
  } catch (const std::exception&) {
    // The server and its folder go at the end of the run anyway.
  }
}

void TestDatabase::Run(const std::string& sql) { connection_->Execute(sql); }

void TestDatabase::Run(std::initializer_list<std::string> statements) {
  for (const std::string& sql : statements) Run(sql);
}

std::vector<std::string> TestDatabase::Column(const std::string& sql) {
  std::vector<std::string> values;
  std::unique_ptr<platform::Recordset> rs = connection_->Execute(sql);
  for (; rs && !rs->Eof(); rs->MoveNext()) {
    const Variant v = rs->Field(0);
    values.push_back(v.IsNull() ? "NULL" : v.ToString());
  }
  return values;
}

std::unique_ptr<platform::Connection> RecordingFactory::NewConnection() {
  return std::make_unique<RecordingConnection>(*this, EnvWrapper::NewConnection());
}

}  // namespace halqvantor::testing
