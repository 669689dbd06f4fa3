#include "options.h"

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
  app.add_flag("--json", json, "machine-readable output (JSON)");
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
}

}  // namespace vantor
