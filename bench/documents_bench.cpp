// Moves a 1 GiB file over loopback with EASYTransferBLOB and EASYUploadFile and with the fastest plain
// clients doing the same work against the same server thread: receiving into a file with recv/write through
// a 1 MiB buffer, with a blocking splice through a pipe and with splice after poll under a receive low-water
// mark, sending a file with read/send through a 1 MiB buffer and with sendfile. The plain client of each direction with
// the lowest median time is the baseline; every figure is printed as a ratio to it (the median over the runs of each
// run's ratio), with the peak memory of the process during the component's runs.
//
// Goals: transfer and upload each at most 1.1 times the baseline's time, peak memory under 32 MB; a progress
// hook that does nothing costs the transfer at most 1.02 times its time without one.
// Run by hand: ./dev.sh bench, or build/bench/documents_bench [transfer|upload] [RUNS]. The file goes to a
// temporary folder ($TMPDIR or /tmp) that is removed at the end.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "halqvantor/Extensions.h"
#include "halqvantor/clsVantor.h"
#include "support/loopback.h"

namespace {

constexpr int64_t kFileBytes = int64_t{1} << 30;
constexpr size_t kBuffer = 1 << 20;
constexpr int64_t kLowWater = 256 << 10;
constexpr double kTimeGoal = 1.1;
constexpr double kMemoryGoalMB = 32;

void Require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

void SendAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
    Require(n > 0, "send");
    data += n;
    size -= static_cast<size_t>(n);
  }
}

// Bytes of the test file: a repeating pattern of 1 MiB.
std::vector<char> Pattern() {
  std::vector<char> p(kBuffer);
  for (size_t i = 0; i < p.size(); ++i) p[i] = static_cast<char>((i * 131 + 7) & 0xFF);
  return p;
}

// The gateway for the two commands, kept cheap so that it is not what is measured: a transfer is served by
// sendfile from an in-memory file holding the pattern, an upload is read to its end with MSG_TRUNC (the
// bytes are dropped in the kernel) and answered with a short reply.
class Gateway {
 public:
  Gateway() : pattern_fd_(::memfd_create("pattern", MFD_CLOEXEC)) {
    Require(pattern_fd_ >= 0, "memfd_create");
    const std::vector<char> pattern = Pattern();
    Require(::write(pattern_fd_, pattern.data(), pattern.size()) == static_cast<ssize_t>(pattern.size()), "write");
    server_ = std::make_unique<halqvantor::testing::LoopbackServer>([this](int c) { Handle(c); });
  }
  ~Gateway() {
    server_.reset();
    ::close(pattern_fd_);
  }
  int port() const { return server_->port(); }
  // The bytes a transfer sends: the whole file unless a figure asks for less.
  void set_transfer_bytes(int64_t bytes) { transfer_bytes_ = bytes; }

 private:
  void Handle(int c) const {
    std::string head;
    char buf[4096];
    // The request: an upload's line ends in CR LF; a transfer request is complete with its closing "^".
    size_t eol = std::string::npos;
    for (;;) {
      const ssize_t n = ::recv(c, buf, sizeof buf, 0);
      if (n <= 0) return;
      head.append(buf, static_cast<size_t>(n));
      if ((eol = head.find("\r\n")) != std::string::npos) break;
      if (head.find("^TransferBLOB^,^") != std::string::npos && head.back() == '^') break;
    }
    if (eol == std::string::npos) {
      for (int64_t left = transfer_bytes_; left > 0;) {
        off_t offset = 0;
        const ssize_t n = ::sendfile(c, pattern_fd_, &offset, static_cast<size_t>(std::min<int64_t>(left, kBuffer)));
        if (n <= 0) return;  // the client went away
        left -= n;
      }
    } else {
      const std::string line = head.substr(0, eol);
      const size_t last = line.rfind("^,^");
      int64_t left =
          std::stoll(line.substr(last + 3, line.size() - last - 4)) - static_cast<int64_t>(head.size() - eol - 2);
      while (left > 0) {
        const ssize_t n = ::recv(c, nullptr, static_cast<size_t>(std::min<int64_t>(left, 1 << 30)), MSG_TRUNC);
        if (n <= 0) return;
        left -= n;
      }
      const std::string reply = "TotalBytes:10\r\nStatus: OK";
      SendAll(c, reply.data(), reply.size());
    }
    // Wait for the client to close.
    while (::recv(c, buf, sizeof buf, 0) > 0) {
    }
  }

  int pattern_fd_;
  std::atomic<int64_t> transfer_bytes_{kFileBytes};
  std::unique_ptr<halqvantor::testing::LoopbackServer> server_;
};

int Connect(int port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  Require(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0, "connect");
  return fd;
}

// The plain receivers: send the request, then move every received byte into the file, with recv/write
// through a 1 MiB buffer, or with splice through a pipe: woken for each piece that arrives (a blocking
// splice), or woken by poll only once a share of the bytes is in (a receive low-water mark).
enum class Receiver { kRecvWrite, kSplice, kSpliceLowWater };

void PlainReceive(int port, const std::string& path, Receiver how) {
  const int fd = Connect(port);
  const std::string request = "^S^,^u^,^^,^TransferBLOB^,^\\blob\\bench.bin^";
  SendAll(fd, request.data(), request.size());
  const int out = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  Require(out >= 0, "open");
  if (how == Receiver::kRecvWrite) {
    std::vector<char> buf(kBuffer);
    for (int64_t got = 0; got < kFileBytes;) {
      const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
      Require(n > 0, "recv");
      Require(::write(out, buf.data(), static_cast<size_t>(n)) == n, "write");
      got += n;
    }
  } else {
    const bool low_water = how == Receiver::kSpliceLowWater;
    int pipe_fds[2];
    Require(::pipe2(pipe_fds, O_CLOEXEC) == 0, "pipe2");
    (void)::fcntl(pipe_fds[1], F_SETPIPE_SZ, static_cast<int>(kBuffer));
    // A splice from a blocking socket waits for the next piece instead of answering EAGAIN.
    if (low_water) Require(::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) == 0, "fcntl");
    int mark = 1;
    bool wait = low_water;
    for (int64_t got = 0, since_wait = 0; got < kFileBytes;) {
      if (wait) {
        // Never more than what is still to come, or the last bytes would not wake poll.
        const int wanted = static_cast<int>(std::min<int64_t>(kLowWater, kFileBytes - got));
        if (wanted != mark) Require(::setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &wanted, sizeof wanted) == 0, "lowat");
        mark = wanted;
        pollfd ready{fd, POLLIN, 0};
        Require(::poll(&ready, 1, -1) == 1, "poll");
        since_wait = 0;
      }
      const ssize_t n = ::splice(fd, nullptr, pipe_fds[1], nullptr, kBuffer, SPLICE_F_MOVE);
      wait = low_water && n < 0 && errno == EAGAIN;
      if (wait) continue;
      Require(n > 0, "splice from the socket");
      for (ssize_t left = n; left > 0;) {
        const ssize_t w = ::splice(pipe_fds[0], nullptr, out, nullptr, static_cast<size_t>(left), SPLICE_F_MOVE);
        Require(w > 0, "splice to the file");
        left -= w;
      }
      got += n;
      since_wait += n;
      // Woken, it takes what there is, up to 4 MiB, before it waits for the next share to gather.
      wait = low_water && since_wait >= 4 * static_cast<int64_t>(kBuffer);
    }
    ::close(pipe_fds[0]);
    ::close(pipe_fds[1]);
  }
  ::close(out);
  ::close(fd);
}

// The plain senders: the request line, then the file, then the reply.
void PlainSend(int port, const std::string& path, bool sendfile) {
  const int fd = Connect(port);
  const std::string head = "^S^,^u^,^^,^UploadFile^,^\\blob^,^bench.bin^,^" + std::to_string(kFileBytes) + "^\r\n";
  SendAll(fd, head.data(), head.size());
  const int in = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  Require(in >= 0, "open");
  std::vector<char> buf(sendfile ? 64 : kBuffer);
  if (sendfile) {
    for (int64_t left = kFileBytes; left > 0;) {
      const ssize_t n = ::sendfile(fd, in, nullptr, static_cast<size_t>(left));
      Require(n > 0, "sendfile");
      left -= n;
    }
  } else {
    for (ssize_t n; (n = ::read(in, buf.data(), buf.size())) > 0;) SendAll(fd, buf.data(), static_cast<size_t>(n));
  }
  ::close(in);
  size_t reply = 0;
  while (reply < 25) {
    const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
    Require(n > 0, "recv reply");
    reply += static_cast<size_t>(n);
  }
  ::close(fd);
}

// Peak resident memory of the process since the last reset, in MB.
void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }
double PeakMemoryMB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
  }
  return -1;
}

double Seconds(const std::function<void()>& run) {
  const auto start = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// CPU seconds (user and system) the calling thread has used so far.
double ThreadCpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

// Contenders that take turns at going first, run after run. Side 0 is the component; the baseline is the
// plain client with the lowest median time. The figure is the median over the runs of the component's time
// divided by the baseline's in the same run, which one slow moment of the machine cannot move the way it
// moves a best-of time. The best times are shown too.
struct Contest {
  std::vector<std::string> names;
  std::vector<std::vector<double>> seconds, cpu;  // [side][run]
  double peak_mb = 0;

  void Run(int runs, const std::function<void()>& before, const std::vector<std::function<void()>>& sides) {
    seconds.assign(sides.size(), {});
    cpu.assign(sides.size(), {});
    for (int run = 0; run < runs; ++run) {
      for (size_t i = 0; i < sides.size(); ++i) {
        const size_t side = (i + static_cast<size_t>(run)) % sides.size();
        before();
        const double cpu_before = ThreadCpuSeconds();
        seconds[side].push_back(Seconds(sides[side]));
        cpu[side].push_back(ThreadCpuSeconds() - cpu_before);
      }
    }
  }

  // Each run's ratio of `ours` to `theirs`, in run order.
  static std::vector<double> Ratios(const std::vector<double>& ours, const std::vector<double>& theirs) {
    std::vector<double> ratios;
    for (size_t run = 0; run < ours.size(); ++run) ratios.push_back(ours[run] / std::max(theirs[run], 1e-6));
    return ratios;
  }
  static double RatioMedian(const std::vector<double>& ours, const std::vector<double>& theirs) {
    return Median(Ratios(ours, theirs));
  }

  void Report(const char* what) const {
    size_t baseline = 1;
    for (size_t side = 2; side < seconds.size(); ++side) {
      if (Median(seconds[side]) < Median(seconds[baseline])) baseline = side;
    }
    const double ratio = RatioMedian(seconds[0], seconds[baseline]);
    const auto best = [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); };
    std::printf("%-16s 1 GiB: median %.3f s, best %.3f s; plain", what, Median(seconds[0]), best(seconds[0]));
    for (size_t i = 1; i < seconds.size(); ++i) {
      std::printf(" %s %.3f s, best %.3f s%s", names[i].c_str(), Median(seconds[i]), best(seconds[i]),
                  i == baseline ? " (baseline)" : "");
    }
    std::printf(
        ": time ratio %.2f over %zu runs (goal <= %.1f) %s; client CPU %.2f; peak memory %.1f MB, %.2f of %.0f MB "
        "%s\n",
        ratio, seconds[0].size(), kTimeGoal, ratio <= kTimeGoal ? "ok" : "MISSED", RatioMedian(cpu[0], cpu[baseline]),
        peak_mb, peak_mb / kMemoryGoalMB, kMemoryGoalMB, peak_mb < kMemoryGoalMB ? "ok" : "MISSED");
  }
};

// The cost of a progress hook that does nothing: EASYTransferBLOB of 16 MiB with such a hook (side 0) against
// the same transfer without one (side 1), taking turns as any contest does, over 120 * runs + 1 pairs. One pair's
// ratio swings by a fifth either way on a busy machine, so only many pairs resolve 2%, and short transfers give
// the most pairs a second. The hook is called as often per byte as on a long transfer, and what it costs once a
// transfer weighs more on a short one, so the figure errs on the high side. The interval is the median's 95%
// interval by rank.
void ReportHookCost(Gateway& gateway, halqvantor::clsVantor& v, const std::string& path, int runs) {
  constexpr int64_t kBytes = int64_t{16} << 20;
  gateway.set_transfer_bytes(kBytes);
  int64_t calls = 0;
  const auto transfer = [&v](halqvantor::Progress hook) {
    return [&v, hook] {
      halqvantor::Options(v).progress = hook;
      halqvantor::Variant status;
      if (v.EASYTransferBLOB("bench.bin", static_cast<int32_t>(kBytes), &status) != halqvantor::Variant(int16_t{1})) {
        throw std::runtime_error("EASYTransferBLOB: " + status.ToString());
      }
    };
  };
  Contest hook;
  hook.Run(120 * runs + 1, [&] { std::filesystem::remove(path); },
           {transfer([&calls](const halqvantor::ProgressInfo&) { return ++calls > 0; }), transfer(nullptr)});
  halqvantor::Options(v).progress = nullptr;
  gateway.set_transfer_bytes(kFileBytes);
  std::vector<double> ratios = Contest::Ratios(hook.seconds[0], hook.seconds[1]);
  std::sort(ratios.begin(), ratios.end());
  const size_t pairs = ratios.size();
  const auto spread = static_cast<size_t>(0.98 * std::sqrt(static_cast<double>(pairs)));
  const double ratio = ratios[pairs / 2];
  std::printf(
      "progress hook     16 MiB: median %.4f s with a hook doing nothing (%lld calls a transfer), %.4f s without, "
      "%zu pairs: median ratio %.3f (95%% interval %.3f to %.3f; goal <= 1.02) %s; client CPU median ratio %.3f\n",
      Median(hook.seconds[0]), static_cast<long long>(calls / static_cast<int64_t>(pairs)), Median(hook.seconds[1]),
      pairs, ratio, ratios[pairs / 2 - spread], ratios[std::min(pairs - 1, pairs / 2 + spread)],
      ratio <= 1.02 ? "ok" : "MISSED", Contest::RatioMedian(hook.cpu[0], hook.cpu[1]));
}

}  // namespace

// Arguments: "transfer", "upload" or "hook" runs only that figure; a number sets the transfer's runs (default 9; the
// upload, quicker and noisier, runs twice as often, and the hook's short pairs 120 times as often).
int main(int argc, char** argv) {
  std::string only;
  int runs = 9;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "transfer" || arg == "upload" || arg == "hook") {
      only = arg;
    } else {
      runs = std::max(1, std::atoi(arg.c_str()));
    }
  }
  namespace fs = std::filesystem;
  std::string folder = (fs::temp_directory_path() / "halqvantor-bench-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) return 1;
  int rc = 0;
  try {
    Gateway gateway;
    const int port = gateway.port();
    halqvantor::clsVantor v;
    v.strREMOTEHOST = "127.0.0.1";
    v.lngREMOTEPORT = port;
    v.lngREQUESTTIMEOUT = 120;
    v.strSessionID = "S";
    v.strEASYUser = "u";
    v.strBlobPathLocal = folder;
    v.strBlobPathRemote = "\\blob";
    v.Init();
    const std::string path = folder + "/bench.bin";

    // Peak memory is taken over the component's runs only.
    auto component = [&](Contest& contest, const std::function<bool(halqvantor::Variant*)>& call) {
      return [&contest, call] {
        ResetPeakMemory();
        halqvantor::Variant status;
        if (!call(&status)) throw std::runtime_error("component: " + status.ToString());
        contest.peak_mb = std::max(contest.peak_mb, PeakMemoryMB());
      };
    };
    const halqvantor::Variant kOk(int16_t{1});

    if (only.empty() || only == "transfer") {
      Contest transfer;
      transfer.names = {"EASYTransferBLOB", "recv/write", "splice", "splice+lowat"};
      // Every run writes over the same file, whose pages stay in memory from one run to the next. A new file
      // would take pages the system has just freed, and a virtual machine may have handed those back to its
      // host, which then makes the first touch of each page cost a fault: that, not the transfer, would decide
      // a run's time.
      transfer.Run(runs, [] {},
                   {component(transfer,
                              [&](halqvantor::Variant* status) {
                                return v.EASYTransferBLOB("bench.bin", static_cast<int32_t>(kFileBytes), status) == kOk;
                              }),
                    [&] { PlainReceive(port, path, Receiver::kRecvWrite); },
                    [&] { PlainReceive(port, path, Receiver::kSplice); },
                    [&] { PlainReceive(port, path, Receiver::kSpliceLowWater); }});
      if (static_cast<int64_t>(fs::file_size(path)) != kFileBytes) throw std::runtime_error("short transfer");
      transfer.Report("EASYTransferBLOB");
    }

    if (only.empty() || only == "upload") {
      if (!fs::exists(path)) {
        std::ofstream out(path, std::ios::binary);
        const std::vector<char> pattern = Pattern();
        for (int64_t left = kFileBytes; left > 0; left -= static_cast<int64_t>(pattern.size())) {
          out.write(pattern.data(), static_cast<std::streamsize>(pattern.size()));
        }
      }
      Contest upload;
      upload.names = {"EASYUploadFile", "read/send", "sendfile"};
      upload.Run(
          2 * runs, [] {},
          {component(upload, [&](halqvantor::Variant* status) { return v.EASYUploadFile("bench.bin", status) == kOk; }),
           [&] { PlainSend(port, path, false); }, [&] { PlainSend(port, path, true); }});
      upload.Report("EASYUploadFile");
    }
    if (only.empty() || only == "hook") ReportHookCost(gateway, v, path, runs);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "documents_bench: %s\n", e.what());
    rc = 1;
  }
  std::error_code ec;
  fs::remove_all(folder, ec);
  return rc;
}
