// Figures of the server link, each against a baseline measured in the same run:
//   1. round trip of RequestList against a gateway that answers at once, as a ratio to a plain blocking
//      client doing the same connect, send, receive and close (goal: 1.1 or less), and for reference to a plain
//      client that waits in poll as an event loop must (non-blocking connect, poll, send, poll, receive);
//   2. CPU time of a request that waits 2 seconds for a slow gateway (goal: 1 ms or less), as a ratio to the
//      CPU time of the blocking client in the same wait (goal: 3 or less);
//   3. a reply of 1,000,000 rows (50 MB) received and split into rows, as a ratio to reading the same bytes
//      with the plain client and splitting them at CR LF (goal: 1.0 or less), and the peak memory of that
//      request, rows included, as a multiple of the reply's size (goal: 1.5 or less).
// The gateway is a child process, so that its memory and CPU are not counted.

#include <arpa/inet.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "component/vantor_impl.h"
#include "halqvantor/clsVantor.h"
#include "link/frm_comm.h"
#include "support/loopback.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRows = 1000000;
constexpr size_t kRowLength = 48;  // + CR LF: 50 bytes a row

std::string QuickPayload() { return "Status: OK\r\nEins\r\nZwei\r\nDrei"; }

std::string BigPayload() {
  std::string payload = "Status: OK\r\n";
  payload.reserve(payload.size() + static_cast<size_t>(kRows) * (kRowLength + 2));
  std::string row(kRowLength, 'x');
  for (int i = 0; i < kRows; ++i) {
    const std::string number = std::to_string(i);
    row.replace(0, number.size(), number);
    payload += row;
    payload += "\r\n";
  }
  return payload;
}

std::string Framed(const std::string& payload) {
  return "TotalBytes:" + std::to_string(payload.size()) + "\r\n" + payload;
}

bool SendAll(int fd, const std::string& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

// The command of a complete request (its fourth field), or "" while it is incomplete.
std::string CommandOf(const std::string& request) {
  if (request.empty() || request.back() != '^') return "";
  size_t pos = 0;
  for (int i = 0; i < 3; ++i) {
    pos = request.find("^,^", pos);
    if (pos == std::string::npos) return "";
    pos += 3;
  }
  return request.substr(pos, request.find('^', pos) - pos);
}

// The gateway: "Quick" answers at once, "Slow" after 2 seconds, "Big" with the 1,000,000-row reply.
[[noreturn]] void ServeForever(int listen_fd) {
  const std::string quick = Framed(QuickPayload());
  const std::string big = Framed(BigPayload());
  for (;;) {
    const int fd = ::accept(listen_fd, nullptr, nullptr);
    if (fd < 0) continue;
    const int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    std::string request;
    std::string command;
    char buf[4096];
    while (command.empty()) {
      const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
      if (n <= 0) break;
      request.append(buf, static_cast<size_t>(n));
      command = CommandOf(request);
    }
    if (command == "Slow") std::this_thread::sleep_for(std::chrono::seconds(2));
    SendAll(fd, command == "Big" ? big : quick);
    while (::recv(fd, buf, sizeof buf, 0) > 0) {
    }
    ::close(fd);
  }
}

// The baselines: a plain client, blocking or waiting in poll. Returns the payload.
std::string PlainExchange(int port, const std::string& request, bool poll_wait = false) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | (poll_wait ? SOCK_NONBLOCK : 0), 0);
  const int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  auto wait_for = [&](short events) {
    pollfd p{fd, events, 0};
    if (poll_wait) ::poll(&p, 1, 1000);
  };
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 && errno != EINPROGRESS) {
    std::perror("connect");
    std::exit(1);
  }
  wait_for(POLLOUT);
  SendAll(fd, request);
  std::string data;
  size_t header_end = std::string::npos;
  size_t total = 0;
  // One buffer for all calls, so that no call pays for clearing it.
  static std::vector<char> buf(256 * 1024);
  for (;;) {
    wait_for(POLLIN);
    const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
    if (n <= 0) break;
    data.append(buf.data(), static_cast<size_t>(n));
    if (header_end == std::string::npos) {
      header_end = data.find("\r\n");
      if (header_end != std::string::npos) total = std::stoul(data.substr(11, header_end - 11));
    }
    if (header_end != std::string::npos && data.size() - header_end - 2 >= total) break;
  }
  ::close(fd);
  return data.substr(header_end + 2);
}

std::vector<std::string> PlainSplit(const std::string& payload) {
  std::vector<std::string> rows;
  size_t start = payload.find("\r\n") + 2;
  for (size_t pos = payload.find("\r\n", start); pos != std::string::npos; pos = payload.find("\r\n", start)) {
    rows.emplace_back(payload, start, pos - start);
    start = pos + 2;
  }
  if (start < payload.size()) rows.emplace_back(payload.substr(start));
  return rows;
}

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double ThreadCpuMs() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

// Resident memory of this process in bytes: now, and the peak since the last ResetPeak.
size_t StatusKb(const char* field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(field, 0) == 0) return std::stoul(line.substr(std::string(field).size()));
  }
  return 0;
}
long RssBytes() { return static_cast<long>(StatusKb("VmRSS:")) * 1024; }
long PeakBytes() { return static_cast<long>(StatusKb("VmHWM:")) * 1024; }
// Hands freed memory back first, so that the peak that follows is the request's own.
void ResetPeak() {
  ::malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";
}

}  // namespace

int main() {
  using halqvantor::clsVantor;
  using halqvantor::VantorAccess;
  using halqvantor::Variant;

  // The gateway process, forked before this process has any threads.
  int port = 0;
  const int listen_fd = halqvantor::testing::ListenOnLoopback(64, &port);
  const pid_t gateway = ::fork();
  if (gateway == 0) ServeForever(listen_fd);
  ::close(listen_fd);

  clsVantor v;
  v.strREMOTEHOST = "127.0.0.1";
  v.lngREMOTEPORT = port;
  v.lngREQUESTTIMEOUT = 60;
  v.strSessionID = "BENCH";
  v.strEASYUser = "u";
  v.Init();
  clsVantor::Impl& d = VantorAccess::Of(v);
  auto request = [&](const char* command) { return d.BuildRequest({Variant(command)}); };
  auto list = [&](const std::string& wire) {
    std::string status;
    if (!d.RequestList(wire, status)) {
      std::fprintf(stderr, "request failed: %s\n", status.c_str());
      std::exit(1);
    }
  };

  // 1. Round trips, in short blocks that take turns, each side first as often as the others, so that all
  //    three see the same machine and none always follows the same one.
  {
    const std::string wire = request("Quick");
    constexpr int kBlocks = 30;
    constexpr int kPerBlock = 100;
    Clock::duration ours{}, plain{}, polled{};
    for (int i = 0; i < 50; ++i) {  // warm-up
      list(wire);
      PlainExchange(port, wire);
    }
    for (int b = 0; b < kBlocks; ++b) {
      for (int turn = 0; turn < 3; ++turn) {
        const int side = (b + turn) % 3;
        const auto t0 = Clock::now();
        for (int i = 0; i < kPerBlock; ++i) {
          if (side == 0) {
            list(wire);
          } else {
            PlainSplit(PlainExchange(port, wire, side == 2));
          }
        }
        (side == 0 ? ours : side == 1 ? plain : polled) += Clock::now() - t0;
      }
    }
    const double n = kBlocks * kPerBlock;
    std::printf("1. round trip: RequestList %.1f us, plain blocking client %.1f us: ratio %.2f (goal <= 1.1)\n",
                Seconds(ours) / n * 1e6, Seconds(plain) / n * 1e6, Seconds(ours) / Seconds(plain));
    std::printf("   plain client waiting in poll %.1f us: ratio %.2f to it\n", Seconds(polled) / n * 1e6,
                Seconds(ours) / Seconds(polled));
  }

  // 2. CPU time while the gateway takes 2 seconds to answer.
  {
    double cpu0 = ThreadCpuMs();
    auto t0 = Clock::now();
    list(request("Slow"));
    const double ours_cpu = ThreadCpuMs() - cpu0;
    const double ours_wall = Seconds(Clock::now() - t0);
    cpu0 = ThreadCpuMs();
    PlainExchange(port, request("Slow"));
    const double plain_cpu = ThreadCpuMs() - cpu0;
    std::printf(
        "2. waiting %.2f s for a slow gateway: CPU %.2f ms (goal <= 1 ms), plain blocking client %.2f ms: "
        "ratio %.1f (goal <= 3)\n",
        ours_wall, ours_cpu, plain_cpu, ours_cpu / std::max(plain_cpu, 0.001));
  }

  // 3. The 50 MB reply of 1,000,000 rows.
  {
    const std::string wire = request("Big");
    double best_ours = 1e9, best_plain = 1e9;
    size_t reply_size = 0;
    long ours_peak = 0, plain_peak = 0;
    for (int round = 0; round < 3; ++round) {
      {
        d.ResultRows.Clear();
        ResetPeak();
        const long before = RssBytes();
        auto t0 = Clock::now();
        list(wire);
        best_ours = std::min(best_ours, Seconds(Clock::now() - t0));
        ours_peak = std::max(ours_peak, PeakBytes() - before);
        if (d.ResultCount != kRows) {
          std::fprintf(stderr, "got %d rows\n", d.ResultCount);
          return 1;
        }
        // The rows own the reply: its size is that of the rows with their CR LF, and the status line's.
        reply_size = std::string_view("Status: OK\r\n").size();
        for (const std::string_view row : d.ResultRows) reply_size += row.size() + 2;
        // Free what this request holds before the baseline runs.
        d.ResultRows.Clear();
        d.form.SetResponse(d.SlotIndex, "");
      }
      {
        ResetPeak();
        const long before = RssBytes();
        auto t0 = Clock::now();
        std::vector<std::string> rows = PlainSplit(PlainExchange(port, wire));
        best_plain = std::min(best_plain, Seconds(Clock::now() - t0));
        plain_peak = std::max(plain_peak, PeakBytes() - before);
        if (rows.size() != static_cast<size_t>(kRows)) return 1;
      }
    }
    std::printf(
        "3. %zu-byte reply of %d rows: RequestList %.0f ms, plain read + split %.0f ms: ratio %.2f "
        "(goal <= 1.0)\n",
        reply_size, kRows, best_ours * 1e3, best_plain * 1e3, best_ours / best_plain);
    std::printf(
        "   peak memory: RequestList %.0f MB, ratio %.2f to the reply (goal <= 1.5), plain %.0f MB, ratio %.2f\n",
        ours_peak / 1e6, static_cast<double>(ours_peak) / static_cast<double>(reply_size), plain_peak / 1e6,
        static_cast<double>(plain_peak) / static_cast<double>(reply_size));
  }

  ::kill(gateway, SIGTERM);
  ::waitpid(gateway, nullptr, 0);
  return 0;
}
