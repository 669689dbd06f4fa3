#include "options.h"

#include <halqvantor/Extensions.h>

#include <CLI/CLI.hpp>

namespace vantor {

void GlobalOptions::AddTo(CLI::App& app) {
  const char* group = "Connection (also from VANTOR_* environment variables)";
  app.add_option("--host", host, "gateway host name or address")->envname("VANTOR_HOST")->group(group);
  app.add_option("--port", port, "gateway TCP port")->envname("VANTOR_PORT")->group(group);
  app.add_option("--timeout", timeout, "seconds each wait of a request may take")
      ->envname("VANTOR_TIMEOUT")
      ->capture_default_str()
      ->group(group);
  app.add_option("--session", session, "gateway session id (also names the debug log file)")
      ->envname("VANTOR_SESSION")
      ->group(group);
  app.add_option("--user", user, "archive user")->envname("VANTOR_USER")->group(group);
  app.add_option("--password", password, "archive password")->envname("VANTOR_PASSWORD")->group(group);
  app.add_option("--blob-local", blob_local, "local blob folder (downloads and uploads land here)")
      ->envname("VANTOR_BLOB_LOCAL")
      ->group(group);
  app.add_option("--blob-remote", blob_remote, "the same folder as the gateway sees it")
      ->envname("VANTOR_BLOB_REMOTE")
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
             throw CLI::ValidationError("--max-reply", "'" + text +
                                                           "' is no byte count: give a whole number of bytes, "
                                                           "optionally with K, M or G (e.g. 64M)");
           }
           max_reply = *bytes;
         },
         "largest reply a request accepts, in bytes; K, M, G suffixes (default 1G)")
      ->envname("VANTOR_MAX_REPLY")
      ->type_name("BYTES")
      ->group(group);
  app.add_flag("--json", json, "machine-readable output (JSON)");
  app.add_flag("--timings", timings,
               "print each request's timings on stderr: bytes sent and received, connect, first and last byte");
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

void GlobalOptions::ApplyTo(halqvantor::clsVantor& object) const {
  object.strREMOTEHOST = host;
  object.lngREMOTEPORT = port;
  object.lngREQUESTTIMEOUT = timeout;
  object.strSessionID = session;
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
