#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/env.h"

namespace halqvantor::testing {

// A network inside the process, for the link's tests: names resolve from a table, connections are refused
// or accepted by address, and each accepted connection plays the next script once its request has come.
// A script step is a packet (one DataArrival each: one packet per pump pass), the peer's close, a reset,
// or nothing more. Everything else goes to `base`; the pump never waits.
class FakeNetwork : public platform::EnvWrapper {
 public:
  struct Step {
    enum class Kind { kPacket, kClose, kReset } kind;
    std::string bytes;
  };
  static Step Packet(std::string bytes) { return {Step::Kind::kPacket, std::move(bytes)}; }
  static Step Close() { return {Step::Kind::kClose, {}}; }
  static Step Reset() { return {Step::Kind::kReset, {}}; }
  // "TotalBytes:" + length + CR LF + payload, as one packet.
  static Step Reply(std::string_view payload);

  explicit FakeNetwork(platform::Env* base = platform::Env::Default());

  // Name resolution: `host` gives these addresses in this order ("127.0.0.1" gives itself from the start);
  // a name not in the table fails with 11001 unless `resolver_error` says otherwise.
  std::map<std::string, std::vector<platform::SocketAddress>> hosts;
  platform::SocketError resolver_error{11001, "Authoritative answer: Host not found"};
  // Connections to these addresses fail with the errno; `at_once` reports it from StartConnect, otherwise
  // it comes when the connection would complete.
  std::map<std::string, int> refused;
  bool at_once = false;
  // Local ports whose binding fails with EADDRINUSE.
  std::vector<int32_t> ports_in_use;
  // Send fails with this errno when not 0.
  int send_error = 0;
  // While set, no packet arrives anywhere (a gateway that takes its time).
  bool hold = false;
  // Connection i plays script i; the last one repeats (none: every connection stays silent).
  std::vector<std::vector<Step>> scripts;

  // What happened: the bytes each accepted connection received, the addresses connected to in order, the
  // local ports bound, the largest buffer a Receive was offered and the connections still open.
  std::vector<std::string> requests;
  std::vector<std::string> tried;
  std::vector<int32_t> bound;
  size_t largest_read = 0;
  int open_sockets() const { return static_cast<int>(sockets_.size()); }

  platform::SocketError Resolve(const std::string& host, int32_t port,
                                std::vector<platform::SocketAddress>* addresses) override;
  int OpenSocket(platform::AddressFamily family) override;
  int BindLocalPort(int descriptor, platform::AddressFamily family, int32_t port) override;
  int StartConnect(int descriptor, const platform::SocketAddress& address) override;
  int ConnectResult(int descriptor, short ready) override;
  int64_t Send(int descriptor, const char* data, size_t size) override;
  int64_t Receive(int descriptor, char* buffer, size_t capacity) override;
  void CloseSocket(int descriptor) override;
  int Poll(std::vector<platform::PollEntry>& entries, int timeout_ms) override;
  int EventWaitMs() override { return 0; }

 private:
  struct Fake {
    std::string address;
    bool connecting = false;
    int connect_error = 0;
    int request = -1;        // index into requests once accepted
    std::deque<Step> steps;  // what is left to play
    std::string partial;     // the rest of a packet the reader had no room for
    bool fresh = true;       // a packet may be handed out in this pass
  };
  int next_descriptor_ = 1000;
  int accepted_ = 0;
  std::map<int, Fake> sockets_;
};

}  // namespace halqvantor::testing
