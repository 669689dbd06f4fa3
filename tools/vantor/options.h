#pragma once

// The connection settings every sub-command shares: one command-line option (and one VANTOR_* environment
// variable) per property of the component object.

#include <halqvantor/clsVantor.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace vantor {

struct GlobalOptions {
  std::string host;                      // --host, VANTOR_HOST -> strREMOTEHOST
  int32_t port = 0;                      // --port, VANTOR_PORT -> lngREMOTEPORT
  int32_t timeout = 30;                  // --timeout, VANTOR_TIMEOUT -> lngREQUESTTIMEOUT (seconds)
  std::string session;                   // --session, VANTOR_SESSION -> strSessionID
  std::string user;                      // --user, VANTOR_USER -> strEASYUser
  std::string password;                  // --password, VANTOR_PASSWORD -> strEASYPwd
  std::string blob_local;                // --blob-local, VANTOR_BLOB_LOCAL -> strBlobPathLocal
  std::string blob_remote;               // --blob-remote, VANTOR_BLOB_REMOTE -> strBlobPathRemote
  std::string db;                        // --db, VANTOR_DB -> strDBConnect
  std::string log;                       // --log, VANTOR_LOG -> strDebugLogPath
  std::string ext_map;                   // --ext-map, VANTOR_EXT_MAP -> strChangeFileExt
  int64_t max_reply = int64_t{1} << 30;  // --max-reply, VANTOR_MAX_REPLY -> Options(object).max_reply_bytes
  bool json = false;                     // --json: machine-readable output
  bool timings = false;                  // --timings: each request's timings on stderr

  // Registers the options (with their environment variables) on the top-level app.
  void AddTo(CLI::App& app);
  // Sets the object's properties (and its reply size limit) from the options.
  void ApplyTo(halqvantor::clsVantor& object) const;
};

// A byte count as given on the command line: decimal digits with an optional suffix K, M or G (powers of
// 1024, either case, "KB"/"KiB" alike), at least 1 and at most 2^62. nullopt for anything else.
std::optional<int64_t> ParseByteCount(std::string_view text);

}  // namespace vantor
