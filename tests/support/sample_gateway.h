#pragma once

// For the test programs that link the reference gateway: it serves in-process, on a loopback port, a copy
// of the sample archive in a temporary folder ("data") with an empty blob folder ("blob").

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "server.h"
#include "support/temp_dir.h"

namespace halqvantor::testing {

class SampleGateway {
 public:
  SampleGateway() {
    std::filesystem::copy(VANTOR_GATEWAY_SAMPLE, data(), std::filesystem::copy_options::recursive);
    std::filesystem::create_directories(blob());
  }
  ~SampleGateway() { Stop(); }

  // Serves with `options` (its folders filled in) until Stop, replacing a gateway that serves already. The
  // gateway's clock is the real one moved on by PassTime.
  void Start(gateway::GatewayOptions options = {}) {
    Stop();
    options.data_dir = data();
    options.blob_dir = blob();
    options.now = [this] {
      { std::lock_guard<std::mutex> lock(mutex_); }
      looked_.notify_all();
      return std::chrono::steady_clock::now() + std::chrono::milliseconds(shift_ms_.load());
    };
    server_ = std::make_unique<gateway::GatewayServer>(options);
    thread_ = std::thread([this] { server_->Run(); });
  }
  void Stop() {
    if (!server_) return;
    server_->Stop();
    thread_.join();
    server_.reset();
  }

  // Moves the gateway's clock on, so its deadlines pass without waiting for them.
  void PassTime(std::chrono::milliseconds ms) { shift_ms_ += ms.count(); }
  // Waits until `done` holds, checking it each time the gateway looks at its clock (on every read and
  // answer, and at least once a second); false after `limit` of real time.
  bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    std::unique_lock<std::mutex> lock(mutex_);
    return looked_.wait_for(lock, limit, done);
  }

  gateway::GatewayServer& server() { return *server_; }
  int port() const { return server_->port(); }
  const TempDir& dir() const { return dir_; }
  std::string data() const { return dir_.File("data"); }
  std::string blob() const { return dir_.File("blob"); }

 private:
  TempDir dir_;
  std::unique_ptr<gateway::GatewayServer> server_;
  std::thread thread_;
  std::atomic<int64_t> shift_ms_{0};
  std::mutex mutex_;
  std::condition_variable looked_;
};

}  // namespace halqvantor::testing
