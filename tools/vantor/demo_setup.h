#pragma once

// What `vantor demo` sets up around its session: a temporary folder, the reference gateway as a child
// process on a loopback port, and a SQLite user database with sample users, groups and rights. Every
// failure to set something up is thrown as std::runtime_error with a sentence for the user.

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace vantor::demo {

// A fresh folder below the system's temporary folder, removed with everything in it when the object ends
// unless Keep() was called.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  void Keep() { keep_ = true; }

 private:
  std::string path_;
  bool keep_ = false;
};

// The reference gateway, started as `program --data DATA --blob BLOB --listen 127.0.0.1 --port 0`. The
// constructor returns once the program has printed its "listening on" line, and throws when that line does
// not come within `wait` or the program ends first. The object's end stops the program: SIGTERM, then a
// wait for it (SIGKILL when it does not end within a few seconds). `started` learns the process id as soon
// as the program runs.
class GatewayProcess {
 public:
  GatewayProcess(const std::string& program, const std::string& data_dir, const std::string& blob_dir,
                 std::chrono::milliseconds wait, const std::function<void(pid_t)>& started = {});
  ~GatewayProcess();
  GatewayProcess(const GatewayProcess&) = delete;
  GatewayProcess& operator=(const GatewayProcess&) = delete;

  const std::string& address() const { return address_; }
  int port() const { return port_; }

 private:
  void Stop();

  pid_t pid_ = -1;
  std::string address_;
  int port_ = 0;
};

// While it lives, an interrupt (SIGINT, SIGTERM, SIGHUP) does not leave the demo's gateway running or its
// temporary folder behind: a watcher thread stops the gateway, removes the folder, says so and ends the
// program with 128 + the signal's number. The signals are blocked in the creating thread (and the threads it
// starts) until the guard ends. SIGPIPE is ignored meanwhile, so that a closed output is a failed write the
// demo notices (and cleans up after) instead of an end without clean-up.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

  // What to clean up: the gateway's process (-1: none) and the folder ("": none, or kept).
  void Watch(pid_t gateway, const std::string& folder);

 private:
  std::mutex mutex_;
  pid_t gateway_ = -1;
  std::string folder_;
  sigset_t old_mask_;
  struct sigaction old_pipe_ {};
  std::thread watcher_;
};

// The folder of the running program, "" when /proc does not tell.
std::string OwnFolder();
// The gateway program to start: `given` when not empty (throws when it does not exist), else the first
// vantor-gateway found from `own_folder` (the program's): beside it, in ../libexec/halqvantor, or in the
// build tree's ../gateway. Throws, saying where it looked, when there is none.
std::string FindGatewayProgram(const std::string& given, const std::string& own_folder);
// The sample archive folder (one holding archive.json): `given` when not empty, else the installed
// ../share/halqvantor/sample or the build tree's ../gateway/sample from `own_folder`. Throws when there is
// none.
std::string FindSample(const std::string& given, const std::string& own_folder);

// The portal user the session logs on as, and the archive account the directory gives him.
struct SampleUser {
  const char* name;
  const char* password;
  const char* easy_user;
  const char* easy_password;
};
extern const SampleUser kPortalUser;

// Creates the SQLite database file `path` with the user-directory tables and the sample rows: the portal
// user (number 1) in the groups "Buchhaltung" (10) and "Portal" (11), a second user, and rights, channels,
// archives, edit, document and search rights granted partly to the user and partly to his groups.
void CreateUserDatabase(const std::string& path);

}  // namespace vantor::demo
