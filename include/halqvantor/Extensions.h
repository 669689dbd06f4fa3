#pragma once

// What an object offers beyond the 77 members of its interface: settings a host or a test gives one object
// and readings it can take from it. None of these changes what a member does unless the setting says so.

#include <cstdint>
#include <functional>
#include <string>

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
};

// The options of `object`, to read or change.
HALQVANTOR_API ObjectOptions& Options(clsVantor& object);
HALQVANTOR_API const ObjectOptions& Options(const clsVantor& object);

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
