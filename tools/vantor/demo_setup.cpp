#include "demo_setup.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <thread>
#include <vector>

#include "link/text_encoding.h"
#include "platform/database.h"
#include "schema_sql.h"

extern char** environ;

namespace vantor::demo {
namespace fs = std::filesystem;

namespace {

std::runtime_error Failure(const std::string& what) { return std::runtime_error(what); }

std::string ErrnoText(int error) { return std::strerror(error); }

bool IsFile(const std::string& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

// Waits for the child's first line on `fd` until `deadline`; "" when the pipe closed first.
std::string ReadFirstLine(int fd, std::chrono::steady_clock::time_point deadline, bool* timed_out) {
  std::string line;
  *timed_out = false;
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      *timed_out = true;
      return "";
    }
    pollfd waiting{fd, POLLIN, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;  // the deadline check above ends the wait
    char buffer[256];
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return "";
    line.append(buffer, static_cast<size_t>(got));
    const size_t end = line.find('\n');
    if (end != std::string::npos) return line.substr(0, end);
  }
}

}  // namespace

// ---- temporary folder

TempFolder::TempFolder() {
  std::string pattern = (fs::temp_directory_path() / "vantor-demo-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw Failure("cannot make a temporary folder " + pattern + ": " + ErrnoText(errno));
  }
  path_ = pattern;
}

TempFolder::~TempFolder() {
  if (keep_) return;
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

// ---- the gateway as a child process

GatewayProcess::GatewayProcess(const std::string& program, const std::string& data_dir, const std::string& blob_dir,
                               std::chrono::milliseconds wait, const std::function<void(pid_t)>& started) {
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) throw Failure("cannot make a pipe: " + ErrnoText(errno));

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  // The child starts with no blocked signals and the default handling of the ones it stops on, whatever
  // the caller (a test program, a shell) set for itself.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGTERM);
  sigaddset(&defaults, SIGINT);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<std::string> args{program,    "--data",    data_dir, "--blob", blob_dir,
                                "--listen", "127.0.0.1", "--port", "0"};
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  const int spawned = posix_spawn(&pid_, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(out[1]);
  if (spawned != 0) {
    close(out[0]);
    pid_ = -1;
    throw Failure("cannot start " + program + ": " + ErrnoText(spawned));
  }
  if (started) started(pid_);

  bool timed_out = false;
  const std::string line = ReadFirstLine(out[0], std::chrono::steady_clock::now() + wait, &timed_out);
  close(out[0]);  // the gateway prints nothing after this line
  const std::string prefix = "listening on ";
  const size_t colon = line.rfind(':');
  if (line.rfind(prefix, 0) == 0 && colon != std::string::npos && colon > prefix.size()) {
    address_ = line.substr(prefix.size(), colon - prefix.size());
    port_ = std::atoi(line.c_str() + colon + 1);
  }
  if (port_ > 0) return;

  std::string reason;
  if (timed_out) {
    reason = "did not say it was listening within " + std::to_string(wait.count() / 1000.0).substr(0, 4) + " s";
  } else if (line.empty()) {
    reason = "ended before it was listening";
  } else {
    reason = "printed \"" + line + "\" instead of its listening address";
  }
  Stop();
  throw Failure(program + " " + reason);
}

GatewayProcess::~GatewayProcess() { Stop(); }

void GatewayProcess::Stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  // The gateway stops at once on SIGTERM; one that hangs is killed after five seconds.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  for (;;) {
    const pid_t ended = waitpid(pid_, nullptr, WNOHANG);
    if (ended == pid_ || (ended < 0 && errno != EINTR)) break;
    if (std::chrono::steady_clock::now() >= deadline) {
      kill(pid_, SIGKILL);
      while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
      }
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  pid_ = -1;
}

// ---- interrupts

namespace {
// Wakes the watcher when the guard ends normally.
constexpr int kGuardEnds = SIGUSR1;
}  // namespace

InterruptGuard::InterruptGuard() {
  sigset_t watched;
  sigemptyset(&watched);
  for (const int s : {SIGINT, SIGTERM, SIGHUP, kGuardEnds}) sigaddset(&watched, s);
  pthread_sigmask(SIG_BLOCK, &watched, &old_mask_);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGPIPE, &ignore, &old_pipe_);
  watcher_ = std::thread([this, watched] {
    int signal_number = 0;
    if (sigwait(&watched, &signal_number) != 0 || signal_number == kGuardEnds) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (gateway_ > 0) kill(gateway_, SIGTERM);
    // The interrupted thread may still be filling the folder: remove until it stays gone.
    std::error_code ignored;
    for (int quiet = 0, round = 0; !folder_.empty() && quiet < 2 && round < 100; ++round) {
      fs::remove_all(folder_, ignored);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      quiet = fs::exists(folder_, ignored) ? 0 : quiet + 1;
    }
    std::fprintf(stderr, "\nvantor demo: interrupted; %s%s\n", gateway_ > 0 ? "gateway stopped" : "nothing started",
                 folder_.empty() ? "" : ", temporary folder removed");
    std::_Exit(128 + signal_number);
  });
}

InterruptGuard::~InterruptGuard() {
  pthread_kill(watcher_.native_handle(), kGuardEnds);
  watcher_.join();
  sigaction(SIGPIPE, &old_pipe_, nullptr);
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
}

void InterruptGuard::Watch(pid_t gateway, const std::string& folder) {
  const std::lock_guard<std::mutex> lock(mutex_);
  gateway_ = gateway;
  folder_ = folder;
}

// ---- finding the gateway and the sample

std::string OwnFolder() {
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  return error ? std::string() : self.parent_path().string();
}

namespace {

// The first of `names` under `folder` that `exists`, else "".
std::string FirstIn(const std::string& folder, std::initializer_list<const char*> names,
                    bool (*exists)(const std::string&)) {
  if (folder.empty()) return "";
  for (const char* name : names) {
    const std::string path = (fs::path(folder) / name).lexically_normal().string();
    if (exists(path)) return path;
  }
  return "";
}

bool HasArchive(const std::string& folder) { return IsFile(folder + "/archive.json"); }

}  // namespace

std::string FindGatewayProgram(const std::string& given, const std::string& own_folder) {
  if (!given.empty()) {
    if (!IsFile(given)) throw Failure("the gateway program " + given + " does not exist");
    return given;
  }
  // Installed beside vantor (bin), or kept off the PATH in libexec; in the build tree, tools/gateway lies
  // beside tools/vantor.
  const std::string found = FirstIn(
      own_folder, {"vantor-gateway", "../libexec/halqvantor/vantor-gateway", "../gateway/vantor-gateway"}, IsFile);
  if (!found.empty()) return found;
  throw Failure("no vantor-gateway beside this program (" + own_folder +
                "), in ../libexec/halqvantor or in the build tree; name one with --gateway");
}

std::string FindSample(const std::string& given, const std::string& own_folder) {
  if (!given.empty()) {
    if (!HasArchive(given)) throw Failure("the sample folder " + given + " holds no archive.json");
    return given;
  }
  // Installed under share/halqvantor of the prefix; in the build tree, the gateway's folder links to it.
  const std::string found = FirstIn(own_folder, {"../share/halqvantor/sample", "../gateway/sample"}, HasArchive);
  if (!found.empty()) {
    std::error_code error;
    const fs::path real = fs::canonical(found, error);  // the build tree's link shown as the folder it names
    return error ? found : real.string();
  }
  throw Failure("no sample archive in ../share/halqvantor/sample beside this program (" + own_folder +
                ") or in the build tree; name one with --sample");
}

// ---- the user database

const SampleUser kPortalUser{"anna", "Portal2002", "easy", "easy"};

void CreateUserDatabase(const std::string& path) {
  using halqvantor::EncodeText;
  auto text = [](const std::string& value) { return "'" + value + "'"; };
  const std::string anna = std::string("INSERT INTO Users VALUES (1, 'anna', ") +
                           text(EncodeText(kPortalUser.password)) + ", " + text(kPortalUser.easy_user) + ", " +
                           text(EncodeText(kPortalUser.easy_password)) + ")";
  const std::string bert = "INSERT INTO Users VALUES (2, 'bert', " + text(EncodeText("bert")) + ", 'gast', " +
                           text(EncodeText("gast")) + ")";
  const std::vector<std::string> rows{
      anna,
      bert,
      // Groups are users without a password; 10 and 11 hold anna, 11 also bert.
      "INSERT INTO Users (UserID, UserName) VALUES (10, 'Buchhaltung')",
      "INSERT INTO Users (UserID, UserName) VALUES (11, 'Portal')",
      "INSERT INTO UserGroups VALUES (1, 10)",
      "INSERT INTO UserGroups VALUES (1, 11)",
      "INSERT INTO UserGroups VALUES (2, 11)",
      "INSERT INTO UserRights VALUES (1, 'UPLOAD')",
      "INSERT INTO UserRights VALUES (10, 'NOTIZEN')",
      "INSERT INTO UserRights VALUES (11, 'SUCHE')",
      "INSERT INTO UserChannels VALUES (10, 'FIBU')",
      "INSERT INTO UserChannels VALUES (11, 'VERTRAG')",
      "INSERT INTO UserArchives VALUES (10, 'Eingangsrechnungen')",
      "INSERT INTO UserArchives VALUES (10, 'Ausgangsrechnungen')",
      "INSERT INTO UserArchives VALUES (11, 'Verträge')",
      // Edit flags add up over the user and his groups.
      "INSERT INTO UserEditRights VALUES (10, 'Eingangsrechnungen', 1, 1, 0)",
      "INSERT INTO UserEditRights VALUES (1, 'Eingangsrechnungen', 0, 0, 1)",
      "INSERT INTO UserEditRights VALUES (11, 'Verträge', 0, 1, 0)",
      // The accounting group sees invoices that are no longer open.
      "INSERT INTO DocRights VALUES (1, 'FIBU', 'Eingangsrechnungen')",
      "INSERT INTO DocRightFields VALUES (1, 6, '<>', 'offen', 1, 0)",
      "INSERT INTO UserDocRights VALUES (10, 1)",
      // Portal users search the last ten years of invoices, without the amount, the supplier unmatched.
      "INSERT INTO SearchRights VALUES (1, 'FIBU', 'Eingangsrechnungen')",
      "INSERT INTO SearchRightFields VALUES (1, 3, '>$(DATE-3650)', 0, 0)",
      "INSERT INTO SearchRightFields VALUES (1, 4, '', 1, 0)",
      "INSERT INTO SearchRightFields VALUES (1, 2, '', 0, 1)",
      "INSERT INTO UserSearchRights VALUES (11, 1)",
  };
  try {
    auto db = halqvantor::platform::NewSqliteConnection(/*create_missing=*/true);
    db->Open(path);
    for (const auto& statement : halqvantor::platform::SplitSqlScript(kPortableSchema)) db->Execute(statement);
    for (const auto& statement : rows) db->Execute(statement);
    db->Close();
  } catch (const halqvantor::RuntimeError& e) {
    throw Failure("cannot create the user database " + path + ": " + e.description());
  }
}

}  // namespace vantor::demo
