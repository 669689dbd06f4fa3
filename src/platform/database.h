#pragma once

// The user database as the component sees it: a connection that runs one SQL statement at a time and a
// forward-only record set over a SELECT's rows. Two backends sit behind it, picked by the connect string
// when the connection opens:
//   - SQLite (libsqlite3): "Provider=SQLite;Data Source=PATH", or a bare path ending in ".db";
//   - ODBC (unixODBC): anything else. An SQL Server string of the form
//     "Provider=SQLOLEDB;Data Source=host;Initial Catalog=db;User ID=u;Password=p" is translated to the keys
//     of the FreeTDS driver (or of the driver that a "Driver=" key names); other strings go to the driver
//     manager as they are.
// New connections come from the ConnectionFactory of the object's environment, so a test can wrap or
// replace them.
//
// Every failure is thrown as DatabaseError, a RuntimeError that carries the driver's native error number and
// message (and the SQLSTATE for ODBC); a connection that is not open raises 3704.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/RuntimeError.h"
#include "halqvantor/Variant.h"

namespace halqvantor::platform {

// State() of a connection.
inline constexpr int32_t kAdStateClosed = 0;
inline constexpr int32_t kAdStateOpen = 1;

// Error numbers of the connection layer itself.
inline constexpr int32_t kErrItemNotFound = 3265;     // a field name or index that the row does not have
inline constexpr int32_t kErrObjectClosed = 3704;     // Execute on a closed connection or record set
inline constexpr int32_t kErrEndOfRecordset = 3021;   // a field read at EOF
inline constexpr int32_t kErrOpenAlreadyOpen = 3705;  // Open on an open connection

class DatabaseError : public RuntimeError {
 public:
  DatabaseError(int32_t native, std::string message, std::string sqlstate = "");
  // "" for SQLite.
  const std::string& sqlstate() const { return sqlstate_; }

 private:
  std::string sqlstate_;
};

// The error of a call on a connection or record set that is closed (3704).
DatabaseError ObjectClosedError();

// The rows of one SELECT, read forward. Field values: NULL is Variant::null(); whole numbers are Long when
// they fit 32 bits and Double otherwise; reals are Double; everything else is a String (UTF-8).
class Recordset {
 public:
  virtual ~Recordset() = default;
  // True when there is no current row (the set was empty or MoveNext went past the last row).
  virtual bool Eof() const = 0;
  virtual int FieldCount() const = 0;
  // The current row's value by 0-based position, or by column name compared without regard to case.
  // Raises 3265 for an unknown name or position, 3021 at EOF.
  virtual Variant Field(int index) const = 0;
  Variant Field(std::string_view name) const;
  virtual std::string FieldName(int index) const = 0;
  virtual void MoveNext() = 0;
  // Releases the statement; the set reads as EOF afterwards. Destroying the set does the same.
  virtual void Close() = 0;
};

class Connection {
 public:
  virtual ~Connection() = default;
  // Opens the database that `connect_string` names. Raises DatabaseError when it cannot be opened (the
  // connection stays closed) and 3705 when it is already open.
  virtual void Open(const std::string& connect_string) = 0;
  // Runs exactly one statement: a text holding a second one is refused before it reaches the database.
  // `params` are bound in order to the statement's "?" placeholders, so no value is ever read as SQL: a
  // String as text, Integer, Long, Byte and Boolean as whole numbers, Double and Date as reals, Null and
  // Missing as NULL, Empty as "". A statement whose placeholders do not match params.size() is refused.
  // Returns the rows of a statement that yields a result set, nullptr for any other statement. Raises 3704
  // when the connection is not open.
  virtual std::unique_ptr<Recordset> Execute(const std::string& sql, const std::vector<Variant>& params) = 0;
  // A statement without placeholders.
  std::unique_ptr<Recordset> Execute(const std::string& sql) { return Execute(sql, {}); }
  virtual int32_t State() const = 0;
  // Closes the connection (nothing happens when it is closed). Record sets still open must not be read
  // afterwards.
  virtual void Close() = 0;
};

class ConnectionFactory {
 public:
  virtual ~ConnectionFactory() = default;
  // A new, closed connection.
  virtual std::unique_ptr<Connection> NewConnection() = 0;
  // The real backends, picked by the connect string on Open.
  static ConnectionFactory* Default();
};

// The backends on their own. A SQLite connection opens an existing database file only, unless it was made
// with create_missing (then a missing file is created empty).
std::unique_ptr<Connection> NewSqliteConnection(bool create_missing = false);
std::unique_ptr<Connection> NewOdbcConnection();

// ---- Connect strings (pure functions, exposed for tests)

// One "key=value" pair of a connect string; keys keep their spelling, values lose their quotes.
struct ConnectPair {
  std::string key;
  std::string value;
};
// Splits "k1=v1;k2='v;2';k3={v;3}" into pairs. Values may be quoted with ", ' or {}.
std::vector<ConnectPair> ParseConnectString(std::string_view text);
// The SQLite file a connect string names, or "" when the string is not for SQLite.
std::string SqlitePathOf(std::string_view connect_string);
// The string handed to the ODBC driver manager: SQL Server strings translated, others unchanged.
std::string OdbcConnectStringOf(std::string_view connect_string);

// Splits a script of statements ended by ";" into single statements (quotes and "--" comments respected,
// empty statements dropped). Used to run the schema files.
std::vector<std::string> SplitSqlScript(std::string_view script);

}  // namespace halqvantor::platform
