// The SQLite backend of the user database (libsqlite3).

#include <sqlite3.h>

#include <limits>

#include "platform/database.h"

namespace halqvantor::platform {
namespace {

// Writers of other page requests hold the file for a moment; wait for them rather than fail at once.
constexpr int kBusyTimeoutMs = 5000;

[[noreturn]] void ThrowFrom(sqlite3* db, int rc) {
  std::string message = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
  throw DatabaseError(rc & 0xff, std::move(message));
}

class SqliteRecordset final : public Recordset {
 public:
  // Takes over `stmt`, which has been stepped once with result `rc` (SQLITE_ROW or SQLITE_DONE).
  SqliteRecordset(sqlite3* db, sqlite3_stmt* stmt, int rc)
      : db_(db), stmt_(stmt), columns_(sqlite3_column_count(stmt)), eof_(rc != SQLITE_ROW) {}
  ~SqliteRecordset() override { Close(); }

  bool Eof() const override { return eof_; }
  int FieldCount() const override { return columns_; }

  Variant Field(int index) const override {
    if (stmt_ == nullptr) throw ObjectClosedError();
    CheckIndex(index);
    if (eof_) {
      throw DatabaseError(kErrEndOfRecordset, "Either BOF or EOF is True, or the current record has been deleted");
    }
    switch (sqlite3_column_type(stmt_, index)) {
      case SQLITE_NULL:
        return Variant::null();
      case SQLITE_INTEGER: {
        const sqlite3_int64 v = sqlite3_column_int64(stmt_, index);
        if (v >= std::numeric_limits<int32_t>::min() && v <= std::numeric_limits<int32_t>::max()) {
          return Variant(static_cast<int32_t>(v));
        }
        return Variant(static_cast<double>(v));
      }
      case SQLITE_FLOAT:
        return Variant(sqlite3_column_double(stmt_, index));
      default: {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, index));
        const int bytes = sqlite3_column_bytes(stmt_, index);
        return Variant(std::string(text != nullptr ? text : "", static_cast<size_t>(bytes)));
      }
    }
  }
  using Recordset::Field;

  std::string FieldName(int index) const override {
    if (stmt_ == nullptr) throw ObjectClosedError();
    CheckIndex(index);
    const char* name = sqlite3_column_name(stmt_, index);
    return name != nullptr ? name : "";
  }

  void MoveNext() override {
    if (stmt_ == nullptr) throw ObjectClosedError();
    if (eof_) {
      throw DatabaseError(kErrEndOfRecordset, "Either BOF or EOF is True, or the current record has been deleted");
    }
    const int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) return;
    eof_ = true;
    if (rc != SQLITE_DONE) ThrowFrom(db_, rc);
  }

  void Close() override {
    if (stmt_ != nullptr) sqlite3_finalize(stmt_);
    stmt_ = nullptr;
    eof_ = true;
  }

 private:
  void CheckIndex(int index) const {
    if (index < 0 || index >= columns_) {
      throw DatabaseError(kErrItemNotFound,
                          "Item cannot be found in the collection corresponding to the requested name or ordinal");
    }
  }

  sqlite3* db_;
  sqlite3_stmt* stmt_;
  int columns_;
  bool eof_;
};

std::string PlaceholderMismatch(int placeholders, size_t values) {
  return "the statement has " + std::to_string(placeholders) + " placeholders for " + std::to_string(values) +
         " values";
}

// Binds `params` to the placeholders 1..n of `stmt`; SQLITE_RANGE when their numbers differ.
int Bind(sqlite3_stmt* stmt, const std::vector<Variant>& params) {
  if (static_cast<size_t>(sqlite3_bind_parameter_count(stmt)) != params.size()) return SQLITE_RANGE;
  for (size_t i = 0; i < params.size(); ++i) {
    const Variant& value = params[i];
    const int index = static_cast<int>(i + 1);
    int rc = SQLITE_OK;
    switch (value.type()) {
      case VarType::Null:
      case VarType::Missing:
        rc = sqlite3_bind_null(stmt, index);
        break;
      case VarType::Integer:
      case VarType::Long:
      case VarType::Byte:
      case VarType::Boolean:
        rc = sqlite3_bind_int64(stmt, index, static_cast<sqlite3_int64>(value.ToDouble()));
        break;
      case VarType::Double:
      case VarType::Date:
        rc = sqlite3_bind_double(stmt, index, value.ToDouble());
        break;
      default: {
        const std::string text = value.ToString();
        rc = sqlite3_bind_text64(stmt, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        break;
      }
    }
    if (rc != SQLITE_OK) return rc;
  }
  return SQLITE_OK;
}

class SqliteConnection final : public Connection {
 public:
  explicit SqliteConnection(bool create_missing) : create_missing_(create_missing) {}
  ~SqliteConnection() override { Close(); }

  void Open(const std::string& connect_string) override {
    if (db_ != nullptr) throw DatabaseError(kErrOpenAlreadyOpen, "Operation is not allowed when the object is open");
    std::string path = SqlitePathOf(connect_string);
    if (path.empty()) path = connect_string;
    int flags = SQLITE_OPEN_READWRITE;
    if (create_missing_) flags |= SQLITE_OPEN_CREATE;
    sqlite3* db = nullptr;
    const int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    if (rc != SQLITE_OK) {
      std::string message = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
      sqlite3_close(db);
      throw DatabaseError(rc & 0xff, message + ": " + path);
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    db_ = db;
  }

  using Connection::Execute;
  std::unique_ptr<Recordset> Execute(const std::string& sql, const std::vector<Variant>& params) override {
    if (db_ == nullptr) throw ObjectClosedError();
    sqlite3_stmt* stmt = nullptr;
    const char* tail = nullptr;
    int rc = sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &stmt, &tail);
    if (rc != SQLITE_OK) ThrowFrom(db_, rc);
    if (stmt == nullptr) {  // only blanks or comments
      if (!params.empty()) throw DatabaseError(SQLITE_RANGE, PlaceholderMismatch(0, params.size()));
      return nullptr;
    }
    if (tail != nullptr && !SplitSqlScript(tail).empty()) {
      sqlite3_finalize(stmt);
      throw DatabaseError(SQLITE_ERROR, "more than one statement in one Execute");
    }
    rc = Bind(stmt, params);
    if (rc != SQLITE_OK) {
      const int placeholders = sqlite3_bind_parameter_count(stmt);
      sqlite3_finalize(stmt);
      if (rc == SQLITE_RANGE) throw DatabaseError(rc, PlaceholderMismatch(placeholders, params.size()));
      throw DatabaseError(rc & 0xff, sqlite3_errstr(rc));
    }
    rc = sqlite3_step(stmt);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
      sqlite3_finalize(stmt);
      ThrowFrom(db_, rc);
    }
    if (sqlite3_column_count(stmt) == 0) {
      sqlite3_finalize(stmt);
      return nullptr;
    }
    return std::make_unique<SqliteRecordset>(db_, stmt, rc);
  }

  int32_t State() const override { return db_ != nullptr ? kAdStateOpen : kAdStateClosed; }

  void Close() override {
    // A record set still open keeps the handle alive until it is finalized.
    if (db_ != nullptr) sqlite3_close_v2(db_);
    db_ = nullptr;
  }

 private:
  bool create_missing_;
  sqlite3* db_ = nullptr;
};

}  // namespace

std::unique_ptr<Connection> NewSqliteConnection(bool create_missing) {
  return std::make_unique<SqliteConnection>(create_missing);
}

}  // namespace halqvantor::platform
