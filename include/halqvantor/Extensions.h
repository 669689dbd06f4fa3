#pragma once

// What an object offers beyond the 77 members of its interface: settings a host or a test gives one object
// and readings it can take from it. None of these changes what a member does unless the setting says so.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "halqvantor/Export.h"

namespace halqvantor {

class clsVantor;
namespace platform {
class Env;
}

// What one request to the gateway took. Times are milliseconds from the start of its connection, -1 for a
// point the request never reached (no connection made, no byte of a reply).
struct RequestTimings {
  std::string command;         // the request's command, e.g. "GetChannels" or "TransferBLOB"
  int64_t bytes_sent = 0;      // the request and any file sent after it
  int64_t bytes_received = 0;  // the reply's payload (a text reply's "TotalBytes:" header not counted)
  double connect_ms = -1;
  double first_byte_ms = -1;
  double last_byte_ms = -1;
};

// What a long operation tells its progress hook. Bytes count what the operation moved so far: the reply's
// payload for a list request or a blob transfer, the file's bytes for an upload to the gateway, the posted
// body read plus the file written for a browser upload.
struct ProgressInfo {
  enum class Event {
    kMoved,        // more bytes than at the last call (at most every 100 ms, or after each further MiB)
    kWaiting,      // nothing moved for a second; bytes as at the last call
    kClosedEarly,  // the gateway closed the connection before `expected` bytes were in; once per connection
    kDone,         // the last call: every byte is through (bytes == expected when that is known)
  };
  std::string_view operation;  // the member's name, e.g. "EASYTransferBLOB"
  int64_t bytes = 0;
  int64_t expected = -1;  // -1 while not known (a reply whose header has not come yet)
  Event event = Event::kMoved;
};

// A progress hook: true to go on, false to cancel the operation. A cancelled operation fails with the status
// "Cancelled by the caller.", its connection closed and the object ready for the next request; a partial
// transfer stays in its file as far as it came, as after any failed transfer. The answer to kDone is not
// read. The hook runs on the object's thread, inside the wait; an exception from it cancels too.
using Progress = std::function<bool(const ProgressInfo&)>;

// Per-object settings outside the interface table. Each starts at the value a page that never heard of it
// expects; a host changes them after creating the object and before the members that read them.
struct ObjectOptions {
  // The largest reply payload, in bytes, that a request accepts; a reply announcing or sending more fails at
  // once and its connection is closed.
  int64_t max_reply_bytes = int64_t{1} << 30;
  // The format in which WriteUserToDB and ChangePasswd store a log-on password. false: the reversible
  // encoding of Encode, which existing directories hold and which CheckLogon compares without regard to
  // case. true: a salted Argon2id hash ("$argon2id$..."), compared exactly, every character and its case;
  // an encoded password is then replaced by its hash at its next log-on that gives it exactly. CheckLogon
  // accepts both formats either way; archive passwords stay encoded, as requests must carry them.
  bool strong_passwords = false;
  // A timing line per request in the debug log ("Zeitmessung (...)": command, bytes sent and received,
  // connect, first and last byte in ms). Starts on when the environment variable HALQVANTOR_TIMINGS is 1
  // as the object is made.
  bool log_timings = false;
  // Called after each request with its timings, when set (whether or not they are logged).
  std::function<void(const RequestTimings&)> on_request_timings;
  // Called during RequestList and the members built on it (lists, segment downloads), EASYTransferBLOB,
  // EASYUploadFile and UploadFile; empty: no calls, and every operation runs as without the hook.
  Progress progress;
};

// The options of `object`, to read or change.
HALQVANTOR_API ObjectOptions& Options(clsVantor& object);
HALQVANTOR_API const ObjectOptions& Options(const clsVantor& object);

// The status line of the last text reply `object` received from the gateway ("Status: OK", or
// "Status: Error " + code [+ " " + message]), for the members that do not read it themselves (EASYUploadFile
// sends a file and returns once the reply has come). "" before the object's first complete reply, after a
// round trip that failed (no reply, a time-out, a reply too large) and after a file received in byte mode.
HALQVANTOR_API std::string LastStatusLine(const clsVantor& object);

// Sets the options that a user database records for itself, after Init has opened it: the one row of its
// DirectorySettings table (which `vantor initdb` creates), whose StrongPasswords column sets
// strong_passwords (1 on, 0 off). True when the database holds that row; false, options unchanged, when the
// object has no open user database or the database no such table or row.
HALQVANTOR_API bool ApplyDirectorySettings(clsVantor& object);

// Hands `object` the environment it runs on from now on: its clock, files, network and database factory
// (an in-tree platform::Env; nullptr gives back the system's). `env` must outlive the object's use of it.
// A slot the object already took follows: its log lines and its next connection.
HALQVANTOR_API void SetEnvironment(clsVantor& object, platform::Env* env);

}  // namespace halqvantor
