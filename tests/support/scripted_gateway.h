#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace halqvantor::testing {

// A gateway for tests: a real TCP server on 127.0.0.1 (ephemeral port, own thread) that takes one
// connection at a time, records the request bytes of each and answers with scripted steps. Connection i
// plays script i; the last script repeats for all later connections (an empty list of scripts answers
// nothing and keeps silent).
//
// A request is complete when the `request_complete` rule says so (default: it ends in "^" and holds at
// least the four fields session, user, password, command) or the client stops sending.
// After its last step the gateway waits for the client to close, then closes too, unless a step closed
// or reset the connection first.
class ScriptedGateway {
 public:
  struct Step {
    enum class Kind { kSend, kPauseMs, kAwait, kClose, kReset, kSilence };
    Kind kind = Kind::kSend;
    std::string bytes;
    int millis = 0;
  };
  static Step Send(std::string bytes) { return {Step::Kind::kSend, std::move(bytes), 0}; }
  // A real pause (for benchmarks and a slow server); tests that wait on purpose use kAwait instead.
  static Step PauseMs(int millis) { return {Step::Kind::kPauseMs, {}, millis}; }
  // Waits until the test calls Continue() (one call releases one Await).
  static Step Await() { return {Step::Kind::kAwait, {}, 0}; }
  static Step Close() { return {Step::Kind::kClose, {}, 0}; }
  // Aborts the connection (the client sees it reset).
  static Step Reset() { return {Step::Kind::kReset, {}, 0}; }
  // Answers nothing more and keeps the connection open until the client closes it.
  static Step Silence() { return {Step::Kind::kSilence, {}, 0}; }

  // A whole reply: "TotalBytes:" + payload length + CR LF + payload, in one send.
  static std::string Reply(std::string_view payload);

  ScriptedGateway();
  ~ScriptedGateway();
  ScriptedGateway(const ScriptedGateway&) = delete;
  ScriptedGateway& operator=(const ScriptedGateway&) = delete;

  int port() const { return port_; }

  // Adds the script of the next connection.
  void Script(std::vector<Step> steps);
  void set_request_complete(std::function<bool(std::string_view)> rule);
  void Continue();

  // Request bytes of every connection so far, in order.
  std::vector<std::string> Requests() const;
  int connections() const;

  // A port on 127.0.0.1 that nobody listens on.
  static int UnusedPort();

 private:
  void Serve();
  void Handle(int fd, const std::vector<Step>& steps);
  bool WaitReadable(int fd);
  void WaitForClientClose(int fd);

  int listen_fd_ = -1;
  int stop_pipe_[2] = {-1, -1};
  int port_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable released_;
  int releases_ = 0;
  int awaits_passed_ = 0;
  bool stopping_ = false;
  std::vector<std::vector<Step>> scripts_;
  std::vector<std::string> requests_;
  std::function<bool(std::string_view)> request_complete_;
  std::thread thread_;
};

}  // namespace halqvantor::testing
