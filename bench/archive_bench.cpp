// Benchmarks of the archive lists: each figure is a ratio against a baseline measured in the same run.
//   (1) a 1 000 000-row channel list: EASYGetChannelsInit (request, reception, rows, sort) plus walking
//       every row with EASYGetChannelsNext, against a plain blocking socket client that receives the same
//       reply, splits it into rows and std::stable_sorts them.
//   (2) a 100 000-hit query sorted by a date column: EASYSortHitlistInit plus the walk with
//       EASYSortHitlistNext, against formatting the same keys and stable-sorting them directly; and the
//       absolute time of query, sort and walk.
// Each figure is the best of a few runs. A minimal server on 127.0.0.1 serves both sides.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "archive/query.h"
#include "archive/row_columns.h"
#include "best_time.h"
#include "halqvantor/clsVantor.h"
#include "support/loopback.h"

namespace {

using halqvantor::Variant;
using Clock = std::chrono::steady_clock;

constexpr int kChannelRows = 1000000;
constexpr int kHits = 100000;
constexpr int kRuns = 3;

// The baseline's server: reads a request up to its closing "^" after at least the four head and command
// fields, sends the framed reply, and waits for the client to close.
std::unique_ptr<halqvantor::testing::LoopbackServer> MiniServer(std::string reply) {
  return std::make_unique<halqvantor::testing::LoopbackServer>([reply = std::move(reply)](int c) {
    std::string request;
    char buf[4096];
    while (request.empty() || request.back() != '^' || std::count(request.begin(), request.end(), ',') < 3) {
      const ssize_t n = ::recv(c, buf, sizeof buf, 0);
      if (n <= 0) break;
      request.append(buf, static_cast<size_t>(n));
    }
    for (size_t sent = 0; sent < reply.size();) {
      const ssize_t n = ::send(c, reply.data() + sent, reply.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) break;
      sent += static_cast<size_t>(n);
    }
    while (::recv(c, buf, sizeof buf, 0) > 0) {
    }
  });
}

std::string Framed(const std::string& payload) {
  return "TotalBytes:" + std::to_string(payload.size()) + "\r\n" + payload;
}

// The plain client: connect, send, read until the announced length has arrived, close.
std::string PlainReceive(int port, const std::string& request) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) throw std::runtime_error("connect");
  ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
  std::string data;
  size_t header = std::string::npos, total = 0;
  std::vector<char> buf(1 << 16);
  for (;;) {
    const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
    if (n <= 0) break;
    data.append(buf.data(), static_cast<size_t>(n));
    if (header == std::string::npos && (header = data.find("\r\n")) != std::string::npos) {
      total = std::stoul(data.substr(11, header - 11));
      data.reserve(header + 2 + total);
    }
    if (header != std::string::npos && data.size() - header - 2 >= total) break;
  }
  ::close(fd);
  return data.substr(header + 2);
}

std::vector<std::string> SplitRows(const std::string& payload) {
  std::vector<std::string> rows;
  size_t start = payload.find("\r\n") + 2;
  for (size_t end; (end = payload.find("\r\n", start)) != std::string::npos; start = end + 2) {
    rows.emplace_back(payload, start, end - start);
  }
  if (start < payload.size()) rows.emplace_back(payload, start);
  return rows;
}

double BestSeconds(const std::function<void()>& run) { return halqvantor::testing::BestTime(1, run, kRuns); }

std::unique_ptr<halqvantor::clsVantor> Object(int port) {
  auto v = std::make_unique<halqvantor::clsVantor>();
  v->strREMOTEHOST = "127.0.0.1";
  v->lngREMOTEPORT = port;
  v->lngREQUESTTIMEOUT = 60;
  v->strSessionID = "B";
  v->strEASYUser = "u";
  v->Init();
  return v;
}

void ChannelList() {
  std::mt19937 random(7);
  std::string payload = "Status: OK";
  for (int i = 0; i < kChannelRows; ++i) {
    std::string name;
    for (int k = 0; k < 8; ++k) {
      const char base = (random() & 1) ? 'a' : 'A';
      name += static_cast<char>(base + random() % 26);
    }
    payload += "\r\n" + name + ",Kanal " + std::to_string(i) + ", Beschreibung";
  }
  const auto server = MiniServer(Framed(payload));
  auto v = Object(server->port());

  size_t walked = 0;
  const double ours = BestSeconds([&] {
    const Variant count = v->EASYGetChannelsInit();
    Variant description;
    while (v->EASYGetChannelsNext(&description).StringValue().size() > 0) ++walked;
    if (count.ToLong() != kChannelRows) throw std::runtime_error("channel count");
  });
  const double baseline = BestSeconds([&] {
    std::vector<std::string> rows = SplitRows(PlainReceive(server->port(), "^B^,^u^,^^,^GetChannels^"));
    std::stable_sort(rows.begin(), rows.end());
    walked += rows.size();
  });
  std::printf(
      "channel list, %d rows (%.1f MB): Init + Next walk %.3f s, plain receive + stable_sort %.3f s, "
      "ratio %.2f (goal <= 1.5)\n",
      kChannelRows, static_cast<double>(payload.size()) / 1e6, ours, baseline, ours / baseline);
}

std::string GermanDate(std::mt19937& random) {
  char text[16];
  std::snprintf(text, sizeof text, "%02u.%02u.%04u", static_cast<unsigned>(1 + random() % 28),
                static_cast<unsigned>(1 + random() % 12), static_cast<unsigned>(1990 + random() % 30));
  return text;
}

void SortedHitList() {
  std::mt19937 random(11);
  std::string payload = "Status: OK\r\n" + std::to_string(kHits) + "\r\n1=A\r\n0\r\n^0^,^0^,^0^,^1024^,^0^\r\n" +
                        "^Ort^,^Nr^,^Ver^,^Datum^,^Betreff^";
  std::vector<std::string> lines;
  for (int i = 0; i < kHits; ++i) {
    lines.push_back("^001Rechnungen)\\Eingang^,^" + std::to_string(100000 + i) + "^,^1^,^" + GermanDate(random) +
                    "^,^Betreff der Rechnung " + std::to_string(i) + "^");
    payload += "\r\n" + lines.back();
  }
  const auto server = MiniServer(Framed(payload));
  auto v = Object(server->port());

  size_t walked = 0;
  auto sort_and_walk = [&] {
    if (v->EASYSortHitlistInit(1) != kHits) throw std::runtime_error("hit count");
    Variant channel, archive, id, ver;
    while (v->EASYSortHitlistNext(&channel, &archive, &id, &ver).StringValue().size() > 0) ++walked;
  };
  const double whole = BestSeconds([&] {
    v->EASYQueryArchiveInit("Rechnungen", "Eingang", "q", 0, 0);
    sort_and_walk();
  });
  const double ours = BestSeconds(sort_and_walk);
  const double baseline = BestSeconds([&] {
    struct Keyed {
      std::string key;
      int32_t index;
    };
    std::vector<Keyed> keys;
    keys.reserve(lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
      keys.push_back({halqvantor::archive::SortKey(halqvantor::archive::ColumnAt(lines[i], 3),
                                                   halqvantor::archive::kDateColumnFlag),
                      static_cast<int32_t>(i)});
    }
    std::stable_sort(keys.begin(), keys.end(), [](const Keyed& a, const Keyed& b) { return a.key < b.key; });
    walked += keys.size();
  });
  std::printf(
      "hit list, %d hits by a date column: query + sort + walk %.3f s (goal < 0.5 s); sort + walk %.3f s, "
      "keys + stable_sort %.3f s, ratio %.2f (goal <= 1.5)\n",
      kHits, whole, ours, baseline, ours / baseline);
  if (walked == 0) std::printf("nothing walked\n");
}

}  // namespace

int main() {
  ChannelList();
  SortedHitList();
  return 0;
}
