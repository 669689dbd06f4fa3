#pragma once

// A small blocking client of the gateway protocol, for tests, benchmarks and looking at a gateway by hand.
// Its framing and answer parsing are written apart from the component's reception on purpose: tests hold
// what the component receives against what this client reads.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::gateway {

// "^" + session + "^,^" + user + "^,^" + encoded password + "^", then ",^" + argument + "^" for each argument
// (the command name first). Texts are passed through as they are (Windows-1252 expected).
std::string FrameRequest(std::string_view session, std::string_view user, std::string_view encoded_password,
                         const std::vector<std::string>& args);

struct ExchangeOptions {
  std::chrono::milliseconds timeout{5000};  // for connecting and for each read
  bool abortive_close = false;              // close with a reset (no TIME_WAIT; load generators)
  bool half_close = false;                  // shut down the sending side after the request
};

// A client of one gateway; each Exchange is one connection: it sends `request`, then reads until a
// "TotalBytes:" answer is complete or the server closes, and returns every byte received. Throws
// std::runtime_error when connecting, sending or a read fails or times out. One object per thread.
class GatewayClient {
 public:
  GatewayClient(std::string host, uint16_t port, ExchangeOptions options = {});
  ~GatewayClient();
  std::string Exchange(std::string_view request);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// One exchange with a client of its own.
std::string Exchange(const std::string& host, uint16_t port, std::string_view request,
                     const ExchangeOptions& options = {});

// The payload of a complete text answer, or nothing when `reply` is not one.
std::optional<std::string> PayloadOf(std::string_view reply);

}  // namespace halqvantor::gateway
