#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "support/loopback.h"

namespace halqvantor::testing {

// A gateway for tests that need real TCP: a server on 127.0.0.1 (ephemeral port, own thread) that serves
// one connection at a time, records its request bytes and answers with scripted bytes. Connection i plays
// script i; the last script repeats. A request is complete once it ends in "^" and holds the four fields
// session, user, password, command (or the client stops sending). After the script the gateway waits for
// the client to close.
class ScriptedGateway {
 public:
  struct Step {
    std::string bytes;
    bool close = false;  // the gateway closes the connection here
  };
  static Step Send(std::string bytes) { return {std::move(bytes)}; }
  static Step Close() { return {{}, true}; }
  // "TotalBytes:" + length + CR LF + payload.
  static std::string Reply(std::string_view payload);

  int port() const { return server_.port(); }
  void Script(std::vector<Step> steps);
  std::vector<std::string> Requests() const;  // request bytes of every connection so far

  // A port on 127.0.0.1 that nobody listens on.
  static int UnusedPort();

 private:
  void Play(int fd);

  mutable std::mutex mutex_;
  std::vector<std::vector<Step>> scripts_;
  std::vector<std::string> requests_;
  LoopbackServer server_{[this](int fd) { Play(fd); }};  // last: stops before the state above goes
};

// A step that sends the reply of `payload`.
inline ScriptedGateway::Step Answer(std::string_view payload) {
  return ScriptedGateway::Send(ScriptedGateway::Reply(payload));
}

}  // namespace halqvantor::testing
