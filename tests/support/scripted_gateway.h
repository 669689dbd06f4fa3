#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace halqvantor::testing {

// A gateway for tests: a real TCP server on 127.0.0.1 (ephemeral port, own thread) that serves one
// connection at a time, records its request bytes and answers with scripted steps. Connection i plays
// script i; the last script repeats. A request is complete when `request_complete` says so (default: it
// ends in "^" and holds the four fields session, user, password, command) or the client stops sending.
// After the last step the gateway waits for the client to close, unless a step closed or reset first.
class ScriptedGateway {
 public:
  struct Step {
    enum class Kind { kSend, kPauseMs, kAwait, kClose, kReset, kSilence } kind;
    std::string bytes;
    int millis = 0;
  };
  static Step Send(std::string bytes) { return {Step::Kind::kSend, std::move(bytes)}; }
  static Step PauseMs(int millis) { return {Step::Kind::kPauseMs, {}, millis}; }  // a real pause
  static Step Await() { return {Step::Kind::kAwait, {}}; }  // until Continue() is called (once per Await)
  static Step Close() { return {Step::Kind::kClose, {}}; }
  static Step Reset() { return {Step::Kind::kReset, {}}; }      // abort: the client sees a reset
  static Step Silence() { return {Step::Kind::kSilence, {}}; }  // answer nothing more
  // "TotalBytes:" + length + CR LF + payload.
  static std::string Reply(std::string_view payload);
  // The first `offset` bytes of `wire`, then the connection closed, reset, or left open in silence (a stall).
  enum class Cut { kClose, kReset, kStall };
  static std::vector<Step> CutAt(std::string_view wire, size_t offset, Cut how);

  ScriptedGateway();
  ~ScriptedGateway();
  ScriptedGateway(const ScriptedGateway&) = delete;
  ScriptedGateway& operator=(const ScriptedGateway&) = delete;

  int port() const { return port_; }
  void Script(std::vector<Step> steps);
  void Continue();
  std::function<bool(std::string_view)> request_complete;  // read under lock at each connection's start

  std::vector<std::string> Requests() const;  // request bytes of every connection so far
  int connections() const { return static_cast<int>(Requests().size()); }
  // Connections whose script has been played to its end (the bytes sent, a close or reset done), and
  // connections the gateway has closed on its side.
  int finished() const;
  int closed() const;
  // Waits (real time, at most `timeout_ms`) until every connection so far is closed; false when time is up.
  bool WaitAllClosed(int timeout_ms = 5000) const;

  // A port on 127.0.0.1 that nobody listens on.
  static int UnusedPort();

 private:
  void Serve();
  void Play(int fd, const std::vector<Step>& steps, const std::function<bool(std::string_view)>& complete);
  bool Readable(int fd, int timeout_ms = 10000);  // false when the gateway stops or the time is up

  int listen_fd_ = -1;
  int stop_pipe_[2] = {-1, -1};
  int port_ = 0;
  mutable std::mutex mutex_;
  mutable std::condition_variable released_;  // a release, a stop or a closed connection
  int releases_ = 0;
  int finished_ = 0;
  int closed_ = 0;
  int awaits_ = 0;
  bool stopping_ = false;
  std::vector<std::vector<Step>> scripts_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

// A step that sends the reply of `payload`.
inline ScriptedGateway::Step Answer(std::string_view payload) {
  return ScriptedGateway::Send(ScriptedGateway::Reply(payload));
}

}  // namespace halqvantor::testing
