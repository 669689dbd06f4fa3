#pragma once

// For the test programs that link the reference gateway: it serves in-process, on a loopback port, a copy
// of the sample archive in a temporary folder ("data") with an empty blob folder ("blob").

#include <filesystem>
#include <memory>
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

  // Serves with `options` (its folders filled in) until Stop, replacing a gateway that serves already.
  void Start(gateway::GatewayOptions options = {}) {
    Stop();
    options.data_dir = data();
    options.blob_dir = blob();
    server_ = std::make_unique<gateway::GatewayServer>(options);
    thread_ = std::thread([this] { server_->Run(); });
  }
  void Stop() {
    if (!server_) return;
    server_->Stop();
    thread_.join();
    server_.reset();
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
};

}  // namespace halqvantor::testing
