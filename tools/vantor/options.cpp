#include "options.h"

#include <halqvantor/Extensions.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>

#include "link/debug_log.h"

namespace vantor {
namespace {

constexpr int64_t kMaxPort = 65535;
constexpr int64_t kMaxTimeout = 24 * 3600;

// `text` as a whole number from `low` to `high`; nullopt for anything else (signs, blanks, huge numbers).
std::optional<int64_t> WholeNumber(std::string_view text, int64_t low, int64_t high) {
  if (text.empty() || text.size() > 18) return std::nullopt;
  int64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (value < low || value > high) return std::nullopt;
  return value;
}

std::string RangeMessage(const std::string& text, const std::string& what, int64_t low, int64_t high) {
  return "'" + text + "' is no " + what + ": give a whole number from " + std::to_string(low) + " to " +
         std::to_string(high);
}

// Checks a whole number on the command line (and from its variable) with a message that says what to give.
CLI::Validator InRange(std::string what, int64_t low, int64_t high) {
  return CLI::Validator(
      [what, low, high](std::string& text) {
        return WholeNumber(text, low, high) ? std::string() : RangeMessage(text, what, low, high);
      },
      "", "");
}

constexpr const char* kByteCountHint = "give a whole number of bytes, optionally with K, M or G (e.g. 64M)";

}  // namespace

void GlobalOptions::AddTo(CLI::App& app) {
  const char* group = "Connection (also from VANTOR_* environment variables)";
  app.add_option("--host", host, "gateway host name or address")->envname("VANTOR_HOST")->group(group);
  app.add_option("--port", port, "gateway TCP port (1 to 65535)")
      ->envname("VANTOR_PORT")
      ->check(InRange("port", 1, kMaxPort))
      ->group(group);
  app.add_option("--timeout", timeout, "seconds each wait of a request may take")
      ->envname("VANTOR_TIMEOUT")
      ->check(InRange("number of seconds", 1, kMaxTimeout))
      ->capture_default_str()
      ->group(group);
  app.add_option("--session", session, "gateway session id (also names the debug log file)")
      ->envname("VANTOR_SESSION")
      ->group(group);
  app.add_option("--user", user, "archive user")->envname("VANTOR_USER")->group(group);
  app.add_option("--password", password, "archive password (rather VANTOR_PASSWORD or --password-stdin)")
      ->envname("VANTOR_PASSWORD")
      ->group(group);
  app.add_flag("--password-stdin", password_stdin,
               "read the password from the first line of standard input (logon and adduser: the portal "
               "user's, otherwise the archive password); without a password a terminal prompts for it")
      ->group(group);
  app.add_option("--blob-local", blob_local, "local blob folder (downloads and uploads land here)")
      ->envname("VANTOR_BLOB_LOCAL")
      ->group(group);
  app.add_option("--blob-remote", blob_remote, "the same folder as the gateway sees it")
      ->envname("VANTOR_BLOB_REMOTE")
      ->group(group);
  app.add_option("--blob", blob,
                 "the blob folder when the gateway sees it under the same path: sets both --blob-local and "
                 "--blob-remote (either, given too, wins for its side)")
      ->envname("VANTOR_BLOB")
      ->group(group);
  app.add_option("--db", db, "user database: a SQLite .db file or an ODBC connection string")
      ->envname("VANTOR_DB")
      ->group(group);
  app.add_option("--log", log, "folder for the debug log (off when not given)")->envname("VANTOR_LOG")->group(group);
  app.add_option("--ext-map", ext_map, "file-extension mappings of downloads, e.g. TIF-PDF")
      ->envname("VANTOR_EXT_MAP")
      ->group(group);
  app.add_option_function<std::string>(
         "--max-reply",
         [this](const std::string& text) {
           const std::optional<int64_t> bytes = ParseByteCount(text);
           if (!bytes) {
             throw CLI::ValidationError("--max-reply", "'" + text + "' is no byte count: " + kByteCountHint);
           }
           max_reply = *bytes;
         },
         "largest reply a request accepts, in bytes; K, M, G suffixes (default 1G)")
      ->envname("VANTOR_MAX_REPLY")
      ->type_name("BYTES")
      ->group(group);
  app.add_flag("--timings", timings,
               "print each request's timings on stderr: bytes sent and received, connect, first and last byte");
  auto* json_flag = app.add_flag("--json", json, "machine-readable output (JSON; errors too, as JSON on stderr)");
  app.add_flag("--csv", csv, "tables as CSV (RFC 4180: a header of the JSON keys, CR LF line ends)")
      ->excludes(json_flag);
}

std::optional<int64_t> ParseByteCount(std::string_view text) {
  size_t digits = 0;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
  if (digits == 0) return std::nullopt;
  constexpr int64_t kMax = int64_t{1} << 62;
  int64_t value = 0;
  for (size_t i = 0; i < digits; ++i) {
    if (value > kMax / 10) return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  std::string suffix;
  for (char c : text.substr(digits)) suffix += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  int shift = 0;
  if (suffix.empty() || suffix == "B") {
    shift = 0;
  } else if (suffix == "K" || suffix == "KB" || suffix == "KIB") {
    shift = 10;
  } else if (suffix == "M" || suffix == "MB" || suffix == "MIB") {
    shift = 20;
  } else if (suffix == "G" || suffix == "GB" || suffix == "GIB") {
    shift = 30;
  } else {
    return std::nullopt;
  }
  if (value < 1 || value > (kMax >> shift)) return std::nullopt;
  return value << shift;
}

void GlobalOptions::Settle() {
  if (blob_local.empty()) blob_local = blob;
  if (blob_remote.empty()) blob_remote = blob;
}

std::string CheckEnvironment(const std::vector<std::string>& given) {
  struct Number {
    const char* variable;
    const char* option;
    const char* what;
    int64_t high;  // 0: a byte count
  };
  static constexpr Number kNumbers[] = {
      {"VANTOR_PORT", "--port", "port", kMaxPort},
      {"VANTOR_TIMEOUT", "--timeout", "number of seconds", kMaxTimeout},
      {"VANTOR_MAX_REPLY", "--max-reply", "byte count", 0},
  };
  for (const Number& number : kNumbers) {
    const char* value = std::getenv(number.variable);
    if (value == nullptr || std::find(given.begin(), given.end(), number.option) != given.end()) continue;
    const std::string text = value;
    std::string problem;
    if (number.high == 0) {
      if (!ParseByteCount(text)) problem = "'" + text + "' is no byte count: " + kByteCountHint;
    } else if (!WholeNumber(text, 1, number.high)) {
      problem = RangeMessage(text, number.what, 1, number.high);
    }
    if (!problem.empty()) {
      return "the environment variable " + std::string(number.variable) + " is wrong: " + problem + " (or unset it)";
    }
  }
  return "";
}

std::string GlobalOptions::LogFile() const {
  return halqvantor::LogFilePath(log, session.empty() && !log.empty() ? kDefaultSessionId : session);
}

std::string GlobalOptions::Address() const { return host + ":" + std::to_string(port); }

void GlobalOptions::ApplyTo(halqvantor::clsVantor& object) const {
  object.strREMOTEHOST = host;
  object.lngREMOTEPORT = port;
  object.lngREQUESTTIMEOUT = timeout;
  object.strSessionID = session.empty() && !log.empty() ? kDefaultSessionId : session;
  object.strEASYUser = user;
  object.strEASYPwd = password;
  object.strBlobPathLocal = blob_local;
  object.strBlobPathRemote = blob_remote;
  object.strDBConnect = db;
  object.strDebugLogPath = log;
  object.strChangeFileExt = ext_map;
  halqvantor::Options(object).max_reply_bytes = max_reply;
}

}  // namespace vantor
