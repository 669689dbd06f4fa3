#pragma once

// The connection settings every sub-command shares: one command-line option (and one VANTOR_* environment
// variable) per property of the component object.

#include <halqvantor/clsVantor.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
  std::string blob;                      // --blob, VANTOR_BLOB: both of the above where they are not given
  std::string db;                        // --db, VANTOR_DB -> strDBConnect
  std::string log;                       // --log, VANTOR_LOG -> strDebugLogPath
  std::string ext_map;                   // --ext-map, VANTOR_EXT_MAP -> strChangeFileExt
  int64_t max_reply = int64_t{1} << 30;  // --max-reply, VANTOR_MAX_REPLY -> Options(object).max_reply_bytes
  bool json = false;                     // --json: machine-readable output
  bool timings = false;                  // --timings: each request's timings on stderr
  bool csv = false;                      // --csv: tables as CSV
  bool password_stdin = false;           // --password-stdin: the password is the first line of stdin

  // Registers the options (with their environment variables) on the top-level app.
  void AddTo(CLI::App& app);
  // Fills in what one option stands for (--blob for both blob folders); call once the line is parsed.
  void Settle();
  // Sets the object's properties (and its reply size limit) from the options. With a log folder and no
  // session id the log file is kDefaultSessionId + ".LOG", not a hidden ".LOG".
  void ApplyTo(halqvantor::clsVantor& object) const;
  // The debug log file the object writes to ("" with logging off).
  std::string LogFile() const;
  // "HOST:PORT" of the gateway, as the object is told to reach it.
  std::string Address() const;
};

// The session id when none is given.
inline constexpr const char* kDefaultSessionId = "vantor";

// What is wrong with the value of a numeric VANTOR_* variable that the command line does not override
// (`given` holds the options the command line names), as one line naming the variable; "" when all is well.
std::string CheckEnvironment(const std::vector<std::string>& given);

// A byte count as given on the command line: decimal digits with an optional suffix K, M or G (powers of
// 1024, either case, "KB"/"KiB" alike), at least 1 and at most 2^62. nullopt for anything else.
std::optional<int64_t> ParseByteCount(std::string_view text);

}  // namespace vantor
