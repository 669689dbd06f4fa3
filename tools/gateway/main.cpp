// vantor-gateway: the reference gateway. Serves the archive in --data over the gateway protocol until it is
// interrupted; prints "listening on ADDRESS:PORT" once it accepts connections.

#include <CLI/CLI.hpp>
#include <asio.hpp>
#include <csignal>
#include <iostream>
#include <thread>

#include "server.h"
#include "version.h"

int main(int argc, char** argv) {
  halqvantor::gateway::GatewayOptions options;
  int idle_seconds = 30;
  int linger_seconds = 10;
  int request_seconds = 120;
  int session_idle_seconds = 1800;
  bool verbose = false;

  CLI::App app{"vantor-gateway: reference gateway serving a sample archive over the gateway protocol"};
  app.add_option("--data", options.data_dir, "folder with archive.json and the content files (changed in place)")
      ->required()
      ->check(CLI::ExistingDirectory);
  app.add_option("--blob", options.blob_dir, "blob folder: segment files, transfers, uploads, import files")
      ->required()
      ->check(CLI::ExistingDirectory);
  app.add_option("--listen", options.listen, "address to listen on")->capture_default_str();
  app.add_option("--port", options.port, "port to listen on (0: any free port)")->capture_default_str();
  app.add_option("--busy", options.busy, "answer the first N requests with a busy status")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--idle-timeout", idle_seconds, "seconds a client may stay silent before its request is complete")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--linger-timeout", linger_seconds, "seconds a client may keep the connection after its answer")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--request-timeout", request_seconds, "seconds a client has to complete its request")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--max-connections", options.max_connections,
                 "connections open at once; a new one sheds the one idle longest")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--workers", options.workers, "threads that run the commands")
      ->capture_default_str()
      ->check(CLI::Range(1, 64));
  app.add_option("--max-session-bytes", options.max_session_bytes,
                 "memory for all sessions' last queries; the least recently used session goes first")
      ->capture_default_str();
  app.add_option("--session-idle", session_idle_seconds, "seconds after which an unused session is forgotten")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--max-pages", options.max_pages, "pages of one GetSegmentMultiTIF")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--max-answer-bytes", options.max_answer_bytes, "size of a text answer or a composed file")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--max-note-bytes", options.max_note_bytes, "size of one note")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  app.add_option("--max-upload-bytes", options.max_upload_bytes, "size of one uploaded file")->capture_default_str();
  app.add_flag("-v,--verbose", verbose, "print one line per answered request");
  app.set_version_flag("--version", std::string("vantor-gateway ") + vantor::kVersion, "print the version and exit");
  CLI11_PARSE(app, argc, argv);
  options.idle_timeout = std::chrono::seconds(idle_seconds);
  options.linger_timeout = std::chrono::seconds(linger_seconds);
  options.request_timeout = std::chrono::seconds(request_seconds);
  options.session_idle = std::chrono::seconds(session_idle_seconds);
  if (verbose) options.log = &std::cerr;

  // The signals are taken by a thread of their own, so the server's loop needs no handler for them.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  try {
    halqvantor::gateway::GatewayServer server(options);
    std::cout << "listening on " << options.listen << ":" << server.port() << std::endl;
    std::thread waiter([&server, signals] {
      int received = 0;
      sigwait(&signals, &received);
      server.Stop();
    });
    server.Run();
    // Run() only ends through Stop(), which the waiter calls after a signal.
    waiter.join();
  } catch (const std::exception& e) {
    std::cerr << "vantor-gateway: " << e.what() << std::endl;
    return 1;
  }
  return 0;
}
