// Moves a 1 GiB file over loopback with EASYTransferBLOB and EASYUploadFile and with plain blocking sockets
// doing the same work (receiving into a file, sending from a file), against the same server thread. Each
// figure is printed as a ratio to the plain baseline measured in the same run (best of five runs each),
// with the peak memory of the process during the component's runs.
//
// Goals: transfer and upload each at most 1.25 times the baseline's time, peak memory under 64 MB.
// Run by hand: ./dev.sh bench (the files go to /tmp and are deleted afterwards).

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "halqvantor/Extensions.h"
#include "halqvantor/clsVantor.h"
#include "support/loopback.h"

namespace {

constexpr int64_t kFileBytes = int64_t{1} << 30;
constexpr size_t kChunk = 256 * 1024;
constexpr int kRuns = 5;

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

// Bytes of the test file: a repeating pattern, so nothing has to be kept.
std::vector<char> Pattern() {
  std::vector<char> p(1 << 20);
  for (size_t i = 0; i < p.size(); ++i) p[i] = static_cast<char>((i * 131 + 7) & 0xFF);
  return p;
}

// The gateway for the two commands: TransferBLOB requests are answered
// with kFileBytes raw bytes; an upload is read to its end and answered with a short reply.
void Handle(int c, const std::vector<char>& pattern) {
  std::string head;
  std::vector<char> buf(kChunk);
  // The request: an upload's line ends in CR LF; a transfer request is complete with its closing "^".
  size_t eol = std::string::npos;
  for (;;) {
    const ssize_t n = ::recv(c, buf.data(), buf.size(), 0);
    if (n <= 0) return;
    head.append(buf.data(), static_cast<size_t>(n));
    if ((eol = head.find("\r\n")) != std::string::npos) break;
    if (head.find("^TransferBLOB^,^") != std::string::npos && head.back() == '^') break;
  }
  if (eol == std::string::npos) {
    for (int64_t left = kFileBytes; left > 0;) {
      const size_t n = static_cast<size_t>(std::min<int64_t>(left, static_cast<int64_t>(pattern.size())));
      SendAll(c, pattern.data(), n);
      left -= static_cast<int64_t>(n);
    }
  } else {
    const std::string line = head.substr(0, eol);
    const size_t last = line.rfind("^,^");
    int64_t left =
        std::stoll(line.substr(last + 3, line.size() - last - 4)) - static_cast<int64_t>(head.size() - eol - 2);
    while (left > 0) {
      const ssize_t n = ::recv(c, buf.data(), buf.size(), 0);
      if (n <= 0) return;
      left -= n;
    }
    const std::string reply = "TotalBytes:10\r\nStatus: OK";
    SendAll(c, reply.data(), reply.size());
  }
  // Wait for the client to close.
  while (::recv(c, buf.data(), buf.size(), 0) > 0) {
  }
}
std::unique_ptr<halqvantor::testing::LoopbackServer> StartServer() {
  return std::make_unique<halqvantor::testing::LoopbackServer>([pattern = Pattern()](int c) { Handle(c, pattern); });
}

int Connect(int port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  Require(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0, "connect");
  return fd;
}

// The plain client: sends the request and writes every received byte into the file.
void PlainReceive(int port, const std::string& path) {
  const int fd = Connect(port);
  const std::string request = "^S^,^u^,^^,^TransferBLOB^,^\\blob\\bench.bin^";
  SendAll(fd, request.data(), request.size());
  const int out = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  Require(out >= 0, "open");
  std::vector<char> buf(kChunk);
  for (int64_t got = 0; got < kFileBytes;) {
    const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
    Require(n > 0, "recv");
    Require(::write(out, buf.data(), static_cast<size_t>(n)) == n, "write");
    got += n;
  }
  ::close(out);
  ::close(fd);
}

// The plain sender: the request line, then the file read a chunk at a time, then the reply.
void PlainSend(int port, const std::string& path) {
  const int fd = Connect(port);
  const std::string head = "^S^,^u^,^^,^UploadFile^,^\\blob^,^bench.bin^,^" + std::to_string(kFileBytes) + "^\r\n";
  SendAll(fd, head.data(), head.size());
  const int in = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  Require(in >= 0, "open");
  std::vector<char> buf(kChunk);
  for (ssize_t n; (n = ::read(in, buf.data(), buf.size())) > 0;) SendAll(fd, buf.data(), static_cast<size_t>(n));
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

struct Figures {
  double baseline = 1e9, component = 1e9, peak_mb = 0;
};

void Report(const char* name, const char* baseline_name, const Figures& f) {
  const double ratio = f.component / f.baseline;
  std::printf("%-18s 1 GiB: %.3f s, %s %.3f s: ratio %.2f (goal <= 1.25) %s; peak memory %.1f MB (goal < 64) %s\n",
              name, f.component, baseline_name, f.baseline, ratio, ratio <= 1.25 ? "ok" : "MISSED", f.peak_mb,
              f.peak_mb < 64 ? "ok" : "MISSED");
}

// The cost of a progress hook that does nothing: EASYTransferBLOB of the whole file with such a hook against
// the same transfer without one, taking turns, best of kRuns each.
void ReportHookCost(halqvantor::clsVantor& v, const std::string& path) {
  auto transfer = [&] {
    std::filesystem::remove(path);
    halqvantor::Variant status;
    return Seconds([&] {
      if (v.EASYTransferBLOB("bench.bin", static_cast<int32_t>(kFileBytes), &status) != halqvantor::Variant(int16_t{1})) {
        throw std::runtime_error("EASYTransferBLOB: " + status.ToString());
      }
    });
  };
  int64_t calls = 0;
  double without = 1e9, with = 1e9;
  for (int run = 0; run < kRuns; ++run) {
    for (int side = 0; side < 2; ++side) {
      if ((run + side) % 2 == 0) {
        halqvantor::Options(v).progress = nullptr;
        without = std::min(without, transfer());
      } else {
        halqvantor::Options(v).progress = [&calls](const halqvantor::ProgressInfo&) { return ++calls > 0; };
        with = std::min(with, transfer());
      }
    }
  }
  halqvantor::Options(v).progress = nullptr;
  const double ratio = with / without;
  std::printf("progress hook      1 GiB: %.3f s with a hook doing nothing (%lld calls), %.3f s without: ratio %.3f "
              "(goal <= 1.02) %s\n",
              with, static_cast<long long>(calls), without, ratio, ratio <= 1.02 ? "ok" : "MISSED");
}

}  // namespace

// Arguments: "transfer", "upload" or "hook" runs only that figure.
int main(int argc, char** argv) {
  const std::string only = argc > 1 ? argv[1] : "";
  namespace fs = std::filesystem;
  std::string folder = (fs::temp_directory_path() / "halqvantor-bench-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) return 1;
  int rc = 0;
  try {
    const auto server = StartServer();
    halqvantor::clsVantor v;
    v.strREMOTEHOST = "127.0.0.1";
    v.lngREMOTEPORT = server->port();
    v.lngREQUESTTIMEOUT = 120;
    v.strSessionID = "S";
    v.strEASYUser = "u";
    v.strBlobPathLocal = folder;
    v.strBlobPathRemote = "\\blob";
    v.Init();
    const std::string path = folder + "/bench.bin";

    // The two sides take turns at going first, each from a clean page cache, so that neither pays for the
    // other's writes.
    auto fresh = [&] {
      fs::remove(path);
      ::sync();
    };
    Figures transfer;
    for (int run = 0; run < kRuns && only != "upload" && only != "hook"; ++run) {
      for (int side = 0; side < 2; ++side) {
        fresh();
        if ((run + side) % 2 == 0) {
          transfer.baseline = std::min(transfer.baseline, Seconds([&] { PlainReceive(server->port(), path); }));
          continue;
        }
        ResetPeakMemory();
        halqvantor::Variant status;
        transfer.component = std::min(transfer.component, Seconds([&] {
                                        if (v.EASYTransferBLOB("bench.bin", static_cast<int32_t>(kFileBytes),
                                                               &status) != halqvantor::Variant(int16_t{1})) {
                                          throw std::runtime_error("EASYTransferBLOB: " + status.ToString());
                                        }
                                      }));
        transfer.peak_mb = std::max(transfer.peak_mb, PeakMemoryMB());
      }
    }
    if (only.empty() || only == "transfer") {
      if (static_cast<int64_t>(fs::file_size(path)) != kFileBytes) throw std::runtime_error("short transfer");
      Report("EASYTransferBLOB", "plain client", transfer);
    }
    if (only.empty() || only == "hook") ReportHookCost(v, path);

    Figures upload;
    if (only == "upload") {
      std::ofstream out(path, std::ios::binary);
      const std::vector<char> pattern = Pattern();
      for (int64_t left = kFileBytes; left > 0; left -= static_cast<int64_t>(pattern.size())) {
        out.write(pattern.data(), static_cast<std::streamsize>(pattern.size()));
      }
    }
    ::sync();
    for (int run = 0; run < kRuns && (only.empty() || only == "upload"); ++run) {
      for (int side = 0; side < 2; ++side) {
        if ((run + side) % 2 == 0) {
          upload.baseline = std::min(upload.baseline, Seconds([&] { PlainSend(server->port(), path); }));
          continue;
        }
        ResetPeakMemory();
        halqvantor::Variant status;
        upload.component = std::min(upload.component, Seconds([&] {
                                      if (v.EASYUploadFile("bench.bin", &status) != halqvantor::Variant(int16_t{1})) {
                                        throw std::runtime_error("EASYUploadFile: " + status.ToString());
                                      }
                                    }));
        upload.peak_mb = std::max(upload.peak_mb, PeakMemoryMB());
      }
    }
    if (only.empty() || only == "upload") Report("EASYUploadFile", "plain sender", upload);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "documents_bench: %s\n", e.what());
    rc = 1;
  }
  std::error_code ec;
  fs::remove_all(folder, ec);
  return rc;
}
