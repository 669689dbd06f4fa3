#pragma once

// The gateway's TCP server: one asio event loop on one thread reads and writes every connection; each
// connection carries one request. A connection is read until its request is complete (or malformed), the
// command runs on a small pool of worker threads (so a long one holds up no other client), the answer is
// written, and the connection is closed once the client has closed its side. At most `max_connections` are
// open: a new one sheds the connection that has been idle longest (one waiting for its client to close, or
// to send its request). An upload is written to disk as it arrives. Deadlines bound every phase: a client
// that sends nothing for `idle_timeout`, or has not completed its request within `request_timeout`, gets the
// error "Anfrage unvollständig" (or is dropped when it sent nothing at all); a client that does not close
// within `linger_timeout` after its answer is dropped.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace halqvantor::gateway {

struct GatewayOptions {
  std::string data_dir;  // holds archive.json and the content files
  std::string blob_dir;  // the blob folder
  std::string listen = "127.0.0.1";
  uint16_t port = 0;  // 0: any free port
  int busy = 0;       // answer this many requests busy first
  std::chrono::milliseconds idle_timeout{30000};
  std::chrono::milliseconds request_timeout{120000};
  std::chrono::milliseconds linger_timeout{10000};
  size_t max_request_bytes = 1 << 20;                      // a request head with all its arguments
  size_t max_upload_bytes = 256u << 20;                    // the file of one "UploadFile"
  size_t max_connections = 256;                            // open connections at once
  int workers = 2;                                         // threads that run the commands
  size_t max_session_bytes = 16u << 20;                    // every session's last query together
  std::chrono::milliseconds session_idle{30 * 60 * 1000};  // a session unused this long is forgotten
  size_t max_pages = 1000;                                 // pages of one "GetSegmentMultiTIF"
  size_t max_answer_bytes = 64u << 20;                     // a text answer or a file a command composes
  size_t max_note_bytes = 64u << 10;                       // one note
  // The clock of the deadlines and the session expiry; tests install a manual one and call CheckDeadlines().
  std::function<std::chrono::steady_clock::time_point()> now;
  // One line per answered request ("user command -> status"; each field escaped and cut), or nullptr.
  std::ostream* log = nullptr;
};

class GatewayServer {
 public:
  // Loads the archive and binds the listening socket; throws std::exception with a readable message.
  explicit GatewayServer(GatewayOptions options);
  ~GatewayServer();
  GatewayServer(const GatewayServer&) = delete;
  GatewayServer& operator=(const GatewayServer&) = delete;

  uint16_t port() const;
  // Serves until Stop(); call from one thread.
  void Run();
  // Ends Run() and closes every connection; callable from any thread.
  void Stop();
  // Checks every connection's deadline now instead of at the next periodic check; any thread.
  void CheckDeadlines();

  uint64_t answered() const;
  uint64_t received_bytes() const;
  size_t open_connections() const;
  // Sessions remembered and the bytes they hold.
  size_t sessions() const;
  size_t session_bytes() const;

  class Impl;  // defined in server.cpp only

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace halqvantor::gateway
