// The ODBC backend of the user database (unixODBC driver manager and whatever driver the string names).

#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "platform/database.h"
#include "platform/secrets.h"
#include "platform/vb_runtime.h"

namespace halqvantor::platform {
namespace {

bool Ok(SQLRETURN rc) { return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO; }

// The first diagnostic record of a handle as a DatabaseError: "[SQLSTATE] message", the driver's native
// number. Line breaks in the message become blanks so that it fits one log line, and a driver that quotes
// the connection string has its password masked.
DatabaseError DiagnosticOf(SQLSMALLINT type, SQLHANDLE handle, std::string_view fallback) {
  SQLCHAR state[6] = {0};
  SQLINTEGER native = 0;
  SQLCHAR message[1024] = {0};
  SQLSMALLINT length = 0;
  const SQLRETURN rc = SQLGetDiagRec(type, handle, 1, state, &native, message, sizeof message, &length);
  if (!Ok(rc)) return DatabaseError(-1, std::string(fallback));
  std::string text(reinterpret_cast<const char*>(message));
  for (char& c : text) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  const std::string sqlstate(reinterpret_cast<const char*>(state));
  return DatabaseError(native, "[" + sqlstate + "] " + MaskSecrets(text), sqlstate);
}

// The handles of one open connection, shared with its record sets so that a set never frees a statement
// that disconnecting has already freed.
struct OdbcLink {
  SQLHENV env = SQL_NULL_HENV;
  SQLHDBC dbc = SQL_NULL_HDBC;
  bool connected = false;

  ~OdbcLink() {
    if (connected) SQLDisconnect(dbc);
    if (dbc != SQL_NULL_HDBC) SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    if (env != SQL_NULL_HENV) SQLFreeHandle(SQL_HANDLE_ENV, env);
  }
};

struct Column {
  std::string name;
  SQLSMALLINT type = SQL_VARCHAR;
};

// A whole number that fits 32 bits is a Long, any other number a Double.
Variant NumberVariant(double value) {
  if (value == std::floor(value) && value >= std::numeric_limits<int32_t>::min() &&
      value <= std::numeric_limits<int32_t>::max()) {
    return Variant(static_cast<int32_t>(value));
  }
  return Variant(value);
}

class OdbcRecordset final : public Recordset {
 public:
  OdbcRecordset(std::shared_ptr<OdbcLink> link, SQLHSTMT stmt, SQLSMALLINT columns)
      : link_(std::move(link)), stmt_(stmt) {
    columns_.resize(static_cast<size_t>(columns));
    for (SQLSMALLINT i = 0; i < columns; ++i) {
      SQLCHAR name[256] = {0};
      SQLSMALLINT name_length = 0;
      SQLSMALLINT type = 0;
      SQLULEN size = 0;
      SQLSMALLINT digits = 0;
      SQLSMALLINT nullable = 0;
      const SQLRETURN rc = SQLDescribeCol(stmt_, static_cast<SQLUSMALLINT>(i + 1), name, sizeof name, &name_length,
                                          &type, &size, &digits, &nullable);
      if (!Ok(rc)) Fail("SQLDescribeCol failed");
      columns_[static_cast<size_t>(i)] = {reinterpret_cast<const char*>(name), type};
    }
    Fetch();
  }
  ~OdbcRecordset() override { Close(); }

  bool Eof() const override { return eof_; }
  int FieldCount() const override { return static_cast<int>(columns_.size()); }

  Variant Field(int index) const override {
    CheckOpen();
    CheckIndex(index);
    if (eof_) {
      throw DatabaseError(kErrEndOfRecordset, "Either BOF or EOF is True, or the current record has been deleted");
    }
    return row_[static_cast<size_t>(index)];
  }
  using Recordset::Field;

  std::string FieldName(int index) const override {
    CheckIndex(index);
    return columns_[static_cast<size_t>(index)].name;
  }

  void MoveNext() override {
    CheckOpen();
    if (eof_) {
      throw DatabaseError(kErrEndOfRecordset, "Either BOF or EOF is True, or the current record has been deleted");
    }
    Fetch();
  }

  void Close() override {
    // Disconnecting frees the statements of a connection; only a live one is freed here.
    if (stmt_ != SQL_NULL_HSTMT && link_->connected) SQLFreeHandle(SQL_HANDLE_STMT, stmt_);
    stmt_ = SQL_NULL_HSTMT;
    eof_ = true;
    row_.clear();
  }

 private:
  void CheckOpen() const {
    if (stmt_ == SQL_NULL_HSTMT || !link_->connected) {
      throw ObjectClosedError();
    }
  }
  void CheckIndex(int index) const {
    if (index < 0 || static_cast<size_t>(index) >= columns_.size()) {
      throw DatabaseError(kErrItemNotFound,
                          "Item cannot be found in the collection corresponding to the requested name or ordinal");
    }
  }

  [[noreturn]] void Fail(std::string_view what) {
    DatabaseError error = DiagnosticOf(SQL_HANDLE_STMT, stmt_, what);
    Close();
    throw error;
  }

  // Moves to the next row and reads all its columns (in order, which every driver allows).
  void Fetch() {
    const SQLRETURN rc = SQLFetch(stmt_);
    if (rc == SQL_NO_DATA) {
      eof_ = true;
      row_.clear();
      return;
    }
    if (!Ok(rc)) Fail("SQLFetch failed");
    row_.clear();
    row_.reserve(columns_.size());
    for (size_t i = 0; i < columns_.size(); ++i)
      row_.push_back(Read(static_cast<SQLUSMALLINT>(i + 1), columns_[i].type));
  }

  Variant Read(SQLUSMALLINT column, SQLSMALLINT type) {
    SQLLEN indicator = 0;
    switch (type) {
      case SQL_TINYINT:
      case SQL_SMALLINT:
      case SQL_INTEGER:
      case SQL_BIGINT: {
        SQLBIGINT value = 0;
        if (!Ok(SQLGetData(stmt_, column, SQL_C_SBIGINT, &value, sizeof value, &indicator))) Fail("SQLGetData failed");
        if (indicator == SQL_NULL_DATA) return Variant::null();
        if (value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max()) {
          return Variant(static_cast<int32_t>(value));
        }
        return Variant(static_cast<double>(value));
      }
      case SQL_REAL:
      case SQL_FLOAT:
      case SQL_DOUBLE: {
        double value = 0;
        if (!Ok(SQLGetData(stmt_, column, SQL_C_DOUBLE, &value, sizeof value, &indicator))) Fail("SQLGetData failed");
        if (indicator == SQL_NULL_DATA) return Variant::null();
        return Variant(value);
      }
      case SQL_BIT: {
        unsigned char value = 0;
        if (!Ok(SQLGetData(stmt_, column, SQL_C_BIT, &value, sizeof value, &indicator))) Fail("SQLGetData failed");
        if (indicator == SQL_NULL_DATA) return Variant::null();
        return Variant(value != 0);
      }
      default:
        break;
    }
    std::optional<std::string> text = ReadText(column);
    if (!text) return Variant::null();
    if (type == SQL_NUMERIC || type == SQL_DECIMAL) {
      // Sums of whole numbers come back as exact numerics on some servers.
      if (std::optional<double> number = vb::ParseNumber(*text)) return NumberVariant(*number);
    }
    return Variant(std::move(*text));
  }

  // A character column read in pieces until the driver has handed out all of it; nullopt for NULL.
  std::optional<std::string> ReadText(SQLUSMALLINT column) {
    std::string text;
    char buffer[4096];
    for (;;) {
      SQLLEN indicator = 0;
      const SQLRETURN rc = SQLGetData(stmt_, column, SQL_C_CHAR, buffer, sizeof buffer, &indicator);
      if (rc == SQL_NO_DATA) break;
      if (!Ok(rc)) Fail("SQLGetData failed");
      if (indicator == SQL_NULL_DATA) return std::nullopt;
      // A piece that filled the buffer carries a terminating NUL; the last piece says its own length.
      const bool more = indicator == SQL_NO_TOTAL || indicator >= static_cast<SQLLEN>(sizeof buffer);
      if (more) {
        text.append(buffer, sizeof buffer - 1);
      } else {
        text.append(buffer, static_cast<size_t>(indicator));
        break;
      }
      if (rc == SQL_SUCCESS) break;
    }
    return text;
  }

  std::shared_ptr<OdbcLink> link_;
  SQLHSTMT stmt_;
  std::vector<Column> columns_;
  std::vector<Variant> row_;
  bool eof_ = false;
};

// The values of one statement in the buffers that SQLBindParameter points at: texts as UTF-8 characters,
// whole numbers as 64-bit integers, reals as doubles, NULL by its indicator.
class BoundValues {
 public:
  explicit BoundValues(const std::vector<Variant>& params) : params_(params) {
    texts_.reserve(params.size());
    numbers_.resize(params.size());
    reals_.resize(params.size());
    indicators_.resize(params.size());
  }

  SQLRETURN BindTo(SQLHSTMT stmt) {
    for (size_t i = 0; i < params_.size(); ++i) {
      const Variant& value = params_[i];
      const auto number = static_cast<SQLUSMALLINT>(i + 1);
      SQLRETURN rc = SQL_SUCCESS;
      switch (value.type()) {
        case VarType::Null:
        case VarType::Missing:
          indicators_[i] = SQL_NULL_DATA;
          rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 1, 0, nullptr, 0,
                                &indicators_[i]);
          break;
        case VarType::Integer:
        case VarType::Long:
        case VarType::Byte:
        case VarType::Boolean:
          numbers_[i] = static_cast<SQLBIGINT>(value.ToDouble());
          indicators_[i] = 0;
          rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0, 0, &numbers_[i], 0,
                                &indicators_[i]);
          break;
        case VarType::Double:
        case VarType::Date:
          reals_[i] = value.ToDouble();
          indicators_[i] = 0;
          rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 0, 0, &reals_[i], 0,
                                &indicators_[i]);
          break;
        default: {
          std::string& text = texts_.emplace_back(value.ToString());
          indicators_[i] = static_cast<SQLLEN>(text.size());
          // Servers cap a plain VARCHAR parameter (SQL Server at 8000 bytes); longer texts go as long ones.
          const SQLSMALLINT type = text.size() > 4000 ? SQL_LONGVARCHAR : SQL_VARCHAR;
          rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_CHAR, type, std::max<SQLULEN>(text.size(), 1), 0,
                                text.data(), static_cast<SQLLEN>(text.size()), &indicators_[i]);
          break;
        }
      }
      if (!Ok(rc)) return rc;
    }
    return SQL_SUCCESS;
  }

 private:
  const std::vector<Variant>& params_;
  std::vector<std::string> texts_;  // reserved up front, so the bound pointers stay put
  std::vector<SQLBIGINT> numbers_;
  std::vector<double> reals_;
  std::vector<SQLLEN> indicators_;
};

class OdbcConnection final : public Connection {
 public:
  ~OdbcConnection() override { Close(); }

  void Open(const std::string& connect_string) override {
    if (link_) throw DatabaseError(kErrOpenAlreadyOpen, "Operation is not allowed when the object is open");
    auto link = std::make_shared<OdbcLink>();
    if (!Ok(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &link->env))) {
      throw DatabaseError(-1, "the ODBC driver manager could not be started");
    }
    SQLSetEnvAttr(link->env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    if (!Ok(SQLAllocHandle(SQL_HANDLE_DBC, link->env, &link->dbc))) {
      throw DiagnosticOf(SQL_HANDLE_ENV, link->env, "no ODBC connection handle");
    }
    std::string odbc = OdbcConnectStringOf(connect_string);
    SQLCHAR out[1024];
    SQLSMALLINT out_length = 0;
    const SQLRETURN rc = SQLDriverConnect(link->dbc, nullptr, reinterpret_cast<SQLCHAR*>(odbc.data()), SQL_NTS, out,
                                          sizeof out, &out_length, SQL_DRIVER_NOPROMPT);
    if (!Ok(rc)) throw DiagnosticOf(SQL_HANDLE_DBC, link->dbc, "the ODBC connection could not be opened");
    link->connected = true;
    link_ = std::move(link);
  }

  using Connection::Execute;
  std::unique_ptr<Recordset> Execute(const std::string& sql, const std::vector<Variant>& params) override {
    if (!link_) throw ObjectClosedError();
    // The driver would run a second statement behind a ";"; only one goes through.
    if (SplitSqlScript(sql).size() > 1) throw DatabaseError(-1, "more than one statement in one Execute");
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    if (!Ok(SQLAllocHandle(SQL_HANDLE_STMT, link_->dbc, &stmt))) {
      throw DiagnosticOf(SQL_HANDLE_DBC, link_->dbc, "no ODBC statement handle");
    }
    std::string text = sql;
    // The bound values must live until the statement has run.
    BoundValues bound(params);
    if (!params.empty()) {
      SQLRETURN prepared = SQLPrepare(stmt, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS);
      SQLSMALLINT placeholders = 0;
      if (Ok(prepared) && Ok(SQLNumParams(stmt, &placeholders)) && static_cast<size_t>(placeholders) != params.size()) {
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        throw DatabaseError(-1, "the statement has " + std::to_string(placeholders) + " placeholders for " +
                                    std::to_string(params.size()) + " values");
      }
      if (Ok(prepared)) prepared = bound.BindTo(stmt);
      if (!Ok(prepared)) {
        DatabaseError error = DiagnosticOf(SQL_HANDLE_STMT, stmt, "the statement could not be prepared");
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        throw error;
      }
    }
    const SQLRETURN rc =
        params.empty() ? SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS) : SQLExecute(stmt);
    if (!Ok(rc) && rc != SQL_NO_DATA) {
      DatabaseError error = DiagnosticOf(SQL_HANDLE_STMT, stmt, "the statement failed");
      SQLFreeHandle(SQL_HANDLE_STMT, stmt);
      throw error;
    }
    SQLSMALLINT columns = 0;
    if (rc == SQL_NO_DATA || !Ok(SQLNumResultCols(stmt, &columns)) || columns == 0) {
      SQLFreeHandle(SQL_HANDLE_STMT, stmt);
      return nullptr;
    }
    return std::make_unique<OdbcRecordset>(link_, stmt, columns);
  }

  int32_t State() const override { return link_ ? kAdStateOpen : kAdStateClosed; }

  void Close() override {
    if (!link_) return;
    SQLDisconnect(link_->dbc);
    link_->connected = false;
    link_.reset();
  }

 private:
  std::shared_ptr<OdbcLink> link_;
};

}  // namespace

std::unique_ptr<Connection> NewOdbcConnection() { return std::make_unique<OdbcConnection>(); }

}  // namespace halqvantor::platform
