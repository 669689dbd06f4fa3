#include "platform/database.h"

namespace halqvantor::platform {
namespace {

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

bool StartsWithName(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && SameName(text.substr(0, prefix.size()), prefix);
}

std::string_view TrimBlanks(std::string_view s) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

const ConnectPair* Find(const std::vector<ConnectPair>& pairs, std::initializer_list<std::string_view> keys) {
  for (const ConnectPair& pair : pairs) {
    for (std::string_view key : keys) {
      if (SameName(pair.key, key)) return &pair;
    }
  }
  return nullptr;
}

// A value as the ODBC connect-string syntax wants it: braced when it holds a character that would end or
// split it.
std::string OdbcValue(std::string_view value) {
  const bool plain = value.find_first_of(";{}=") == std::string_view::npos && TrimBlanks(value) == value;
  if (plain) return std::string(value);
  std::string out = "{";
  for (char c : value) {
    out += c;
    if (c == '}') out += '}';
  }
  return out + "}";
}

bool IsSqlServerProvider(std::string_view provider) {
  return StartsWithName(provider, "SQLOLEDB") || StartsWithName(provider, "SQLNCLI") ||
         StartsWithName(provider, "MSOLEDBSQL");
}

// The keys of an ADO SQL Server string that have no meaning for an ODBC driver.
bool IsProviderOnlyKey(std::string_view key) {
  for (std::string_view k :
       {"Provider", "Persist Security Info", "Auto Translate", "Use Procedure for Prepare", "Workstation ID",
        "OLE DB Services", "Use Encryption for Data", "Tag with column collation when possible", "Packet Size"}) {
    if (SameName(key, k)) return true;
  }
  return false;
}

std::string TranslateSqlServer(const std::vector<ConnectPair>& pairs) {
  const ConnectPair* driver = Find(pairs, {"Driver"});
  const bool freetds = driver == nullptr || SameName(TrimBlanks(driver->value), "FreeTDS");
  // Driver names are braced, as they often hold blanks.
  std::string driver_name = driver != nullptr ? std::string(TrimBlanks(driver->value)) : "FreeTDS";
  std::string out = "Driver={";
  for (char c : driver_name) {
    out += c;
    if (c == '}') out += '}';
  }
  out += "}";
  bool has_charset = false;
  for (const ConnectPair& pair : pairs) {
    const std::string_view key = pair.key;
    if (SameName(key, "Driver") || IsProviderOnlyKey(key)) continue;
    if (SameName(key, "Data Source") || SameName(key, "Server") || SameName(key, "Address") || SameName(key, "Addr") ||
        SameName(key, "Network Address")) {
      std::string host = pair.value;
      if (StartsWithName(host, "tcp:")) host.erase(0, 4);
      // "host,port" is the provider's way to name a port.
      const size_t comma = host.find(',');
      if (comma != std::string::npos) {
        out += ";Server=" + OdbcValue(TrimBlanks(std::string_view(host).substr(0, comma)));
        out += ";Port=" + OdbcValue(TrimBlanks(std::string_view(host).substr(comma + 1)));
      } else {
        out += ";Server=" + OdbcValue(host);
      }
    } else if (SameName(key, "Initial Catalog") || SameName(key, "Database")) {
      out += ";Database=" + OdbcValue(pair.value);
    } else if (SameName(key, "User ID") || SameName(key, "UID") || SameName(key, "User")) {
      out += ";UID=" + OdbcValue(pair.value);
    } else if (SameName(key, "Password") || SameName(key, "PWD")) {
      out += ";PWD=" + OdbcValue(pair.value);
    } else if (SameName(key, "Application Name")) {
      out += ";APP=" + OdbcValue(pair.value);
    } else {
      if (SameName(key, "ClientCharset")) has_charset = true;
      out += ";" + pair.key + "=" + OdbcValue(pair.value);
    }
  }
  // The component speaks UTF-8; FreeTDS hands out the server's code page unless told otherwise.
  if (freetds && !has_charset) out += ";ClientCharset=UTF-8";
  return out;
}

// One step of a lexer over SQL text that knows quotes and comments. Returns the index after the token that
// starts at i; sets `separator` when that token is a ";" outside quotes and comments, `comment` when it is a
// comment.
size_t NextSqlToken(std::string_view sql, size_t i, bool& separator, bool& comment) {
  separator = false;
  comment = false;
  const char c = sql[i];
  if (c == '\'' || c == '"' || c == '[') {
    const char close = c == '[' ? ']' : c;
    size_t j = i + 1;
    while (j < sql.size()) {
      if (sql[j] == close) {
        // A doubled quote stays inside the quoted text.
        if (j + 1 < sql.size() && sql[j + 1] == close) {
          j += 2;
          continue;
        }
        return j + 1;
      }
      ++j;
    }
    return sql.size();
  }
  if (c == '-' && i + 1 < sql.size() && sql[i + 1] == '-') {
    comment = true;
    const size_t eol = sql.find('\n', i);
    return eol == std::string_view::npos ? sql.size() : eol;
  }
  if (c == '/' && i + 1 < sql.size() && sql[i + 1] == '*') {
    comment = true;
    const size_t end = sql.find("*/", i + 2);
    return end == std::string_view::npos ? sql.size() : end + 2;
  }
  separator = c == ';';
  return i + 1;
}

// The connection the component holds: the backend is chosen by the connect string when it opens.
class DispatchingConnection final : public Connection {
 public:
  void Open(const std::string& connect_string) override {
    if (State() == kAdStateOpen) {
      throw DatabaseError(kErrOpenAlreadyOpen, "Operation is not allowed when the object is open");
    }
    std::unique_ptr<Connection> backend =
        SqlitePathOf(connect_string).empty() ? NewOdbcConnection() : NewSqliteConnection();
    backend->Open(connect_string);
    backend_ = std::move(backend);
  }
  using Connection::Execute;
  std::unique_ptr<Recordset> Execute(const std::string& sql, const std::vector<Variant>& params) override {
    if (!backend_) throw ObjectClosedError();
    return backend_->Execute(sql, params);
  }
  int32_t State() const override { return backend_ ? backend_->State() : kAdStateClosed; }
  void Close() override {
    if (backend_) backend_->Close();
    backend_.reset();
  }

 private:
  std::unique_ptr<Connection> backend_;
};

class DefaultFactory final : public ConnectionFactory {
 public:
  std::unique_ptr<Connection> NewConnection() override { return std::make_unique<DispatchingConnection>(); }
};

}  // namespace

DatabaseError::DatabaseError(int32_t native, std::string message, std::string sqlstate)
    : RuntimeError(native, std::move(message)), sqlstate_(std::move(sqlstate)) {}

Variant Recordset::Field(std::string_view name) const {
  const int count = FieldCount();
  for (int i = 0; i < count; ++i) {
    if (SameName(FieldName(i), name)) return Field(i);
  }
  throw DatabaseError(kErrItemNotFound,
                      "Item cannot be found in the collection corresponding to the requested name or ordinal (" +
                          std::string(name) + ")");
}

DatabaseError ObjectClosedError() {
  return DatabaseError(kErrObjectClosed, "Operation is not allowed when the object is closed");
}

ConnectionFactory* ConnectionFactory::Default() {
  static DefaultFactory factory;
  return &factory;
}

std::vector<ConnectPair> ParseConnectString(std::string_view text) {
  std::vector<ConnectPair> pairs;
  size_t i = 0;
  while (i < text.size()) {
    const size_t eq = text.find('=', i);
    const size_t semi = text.find(';', i);
    if (eq == std::string_view::npos || (semi != std::string_view::npos && semi < eq)) {
      // A piece without "=": skipped (an empty piece between two ";" is the common case).
      if (semi == std::string_view::npos) break;
      i = semi + 1;
      continue;
    }
    ConnectPair pair;
    pair.key = std::string(TrimBlanks(text.substr(i, eq - i)));
    size_t j = eq + 1;
    while (j < text.size() && text[j] == ' ') ++j;
    if (j < text.size() && (text[j] == '"' || text[j] == '\'' || text[j] == '{')) {
      const char close = text[j] == '{' ? '}' : text[j];
      ++j;
      while (j < text.size()) {
        if (text[j] == close) {
          if (j + 1 < text.size() && text[j + 1] == close) {
            pair.value += close;
            j += 2;
            continue;
          }
          ++j;
          break;
        }
        pair.value += text[j++];
      }
      const size_t end = text.find(';', j);
      i = end == std::string_view::npos ? text.size() : end + 1;
    } else {
      const size_t end = text.find(';', j);
      const size_t stop = end == std::string_view::npos ? text.size() : end;
      pair.value = std::string(TrimBlanks(text.substr(j, stop - j)));
      i = end == std::string_view::npos ? text.size() : end + 1;
    }
    if (!pair.key.empty()) pairs.push_back(std::move(pair));
  }
  return pairs;
}

std::string SqlitePathOf(std::string_view connect_string) {
  const std::string_view trimmed = TrimBlanks(connect_string);
  if (trimmed.find('=') == std::string_view::npos) {
    // A bare path to a database file.
    if (trimmed.size() > 3 && SameName(trimmed.substr(trimmed.size() - 3), ".db")) return std::string(trimmed);
    return "";
  }
  const std::vector<ConnectPair> pairs = ParseConnectString(connect_string);
  const ConnectPair* provider = Find(pairs, {"Provider"});
  if (provider == nullptr || !SameName(provider->value, "SQLite")) return "";
  const ConnectPair* source = Find(pairs, {"Data Source", "DataSource", "Filename"});
  return source != nullptr ? source->value : "";
}

std::string OdbcConnectStringOf(std::string_view connect_string) {
  const std::vector<ConnectPair> pairs = ParseConnectString(connect_string);
  const ConnectPair* provider = Find(pairs, {"Provider"});
  if (provider == nullptr) return std::string(connect_string);
  if (IsSqlServerProvider(provider->value)) return TranslateSqlServer(pairs);
  // Any other provider name means "through ODBC": the key itself is dropped.
  std::string out;
  for (const ConnectPair& pair : pairs) {
    if (SameName(pair.key, "Provider")) continue;
    if (!out.empty()) out += ';';
    out += pair.key + "=" + OdbcValue(pair.value);
  }
  return out;
}

std::vector<std::string> SplitSqlScript(std::string_view script) {
  std::vector<std::string> statements;
  std::string current;
  const auto flush = [&] {
    const std::string_view text = TrimBlanks(current);
    if (!text.empty()) statements.emplace_back(text);
    current.clear();
  };
  size_t i = 0;
  while (i < script.size()) {
    bool separator = false;
    bool comment = false;
    const size_t next = NextSqlToken(script, i, separator, comment);
    if (separator) {
      flush();
    } else if (comment) {
      current += ' ';
    } else {
      current.append(script.substr(i, next - i));
    }
    i = next;
  }
  flush();
  return statements;
}

}  // namespace halqvantor::platform
