#pragma once

// The connection settings every sub-command shares: one command-line option (and one VANTOR_* environment
// variable) per property of the component object.

#include <cstdint>
#include <string>

#include <halqvantor/clsVantor.h>

namespace CLI {
class App;
}

namespace vantor {

struct GlobalOptions {
  std::string host;         // --host, VANTOR_HOST -> strREMOTEHOST
  int32_t port = 0;         // --port, VANTOR_PORT -> lngREMOTEPORT
  int32_t timeout = 30;     // --timeout, VANTOR_TIMEOUT -> lngREQUESTTIMEOUT (seconds)
  std::string session;      // --session, VANTOR_SESSION -> strSessionID
  std::string user;         // --user, VANTOR_USER -> strEASYUser
  std::string password;     // --password, VANTOR_PASSWORD -> strEASYPwd
  std::string blob_local;   // --blob-local, VANTOR_BLOB_LOCAL -> strBlobPathLocal
  std::string blob_remote;  // --blob-remote, VANTOR_BLOB_REMOTE -> strBlobPathRemote
  std::string db;           // --db, VANTOR_DB -> strDBConnect
  std::string log;          // --log, VANTOR_LOG -> strDebugLogPath
  std::string ext_map;      // --ext-map, VANTOR_EXT_MAP -> strChangeFileExt
  bool json = false;        // --json: machine-readable output

  // Registers the options (with their environment variables) on the top-level app.
  void AddTo(CLI::App& app);
  // Sets the object's properties from the options.
  void ApplyTo(halqvantor::clsVantor& object) const;
};

}  // namespace vantor
