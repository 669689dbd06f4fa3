#pragma once

// Everything an object needs from the world outside the process, in one place: the clock, the file system,
// the network (name resolution, sockets and the wait of the event pump) and the user database's connection
// factory. An object takes Env::Default() when it is made; a host or a test hands it another one
// (SetEnvironment). A test environment derives from EnvWrapper and overrides only the calls it fakes or
// fails, forwarding the rest to the environment it wraps.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock.h"
#include "platform/database.h"
#include "platform/files.h"
#include "platform/network.h"

namespace halqvantor::platform {

class Env : public Clock, public FileSystem, public Network, public ConnectionFactory {
 public:
  ~Env() override = default;

  // The system's clock, files, network and database backends. Lives as long as the process.
  static Env* Default();
};

// Forwards every call to `target`, which must outlive the wrapper, except the network's direct file path
// (ReceiveToFile, with the receive low-water mark that serves it): a wrapped environment moves every byte
// through Receive and Send, so that what a test fakes there sees them all.
class EnvWrapper : public Env {
 public:
  explicit EnvWrapper(Env* target) : target_(target) {}
  Env* target() const { return target_; }

  LocalDateTime Now() override { return target_->Now(); }
  int MillisecondsToNextSecond() override { return target_->MillisecondsToNextSecond(); }
  int64_t SteadyMilliseconds() override { return target_->SteadyMilliseconds(); }

  int AppendToFile(const std::string& path, std::string_view bytes) override {
    return target_->AppendToFile(path, bytes);
  }
  int AppendToPrivateFile(const std::string& path, std::string_view bytes) override {
    return target_->AppendToPrivateFile(path, bytes);
  }
  int OpenForBinaryWrite(const std::string& path, std::unique_ptr<WritableFile>* file) override {
    return target_->OpenForBinaryWrite(path, file);
  }
  int OpenForRead(const std::string& path, std::unique_ptr<ReadableFile>* file) override {
    return target_->OpenForRead(path, file);
  }
  int FileSize(const std::string& path, int64_t* size) override { return target_->FileSize(path, size); }
  bool FileExists(const std::string& path) override { return target_->FileExists(path); }
  int DeleteFile(const std::string& path) override { return target_->DeleteFile(path); }
  int RenameWithoutReplacing(const std::string& from, const std::string& to) override {
    return target_->RenameWithoutReplacing(from, to);
  }
  int ListFolder(const std::string& folder, std::vector<FolderEntry>* entries) override {
    return target_->ListFolder(folder, entries);
  }
  int RemoveFolder(const std::string& path) override { return target_->RemoveFolder(path); }

  SocketError Resolve(const std::string& host, int32_t port, std::vector<SocketAddress>* addresses) override {
    return target_->Resolve(host, port, addresses);
  }
  int OpenSocket(AddressFamily family) override { return target_->OpenSocket(family); }
  int BindLocalPort(int descriptor, AddressFamily family, int32_t port) override {
    return target_->BindLocalPort(descriptor, family, port);
  }
  int StartConnect(int descriptor, const SocketAddress& address) override {
    return target_->StartConnect(descriptor, address);
  }
  int ConnectResult(int descriptor, short ready) override { return target_->ConnectResult(descriptor, ready); }
  int64_t Send(int descriptor, const char* data, size_t size) override { return target_->Send(descriptor, data, size); }
  int64_t Receive(int descriptor, char* buffer, size_t capacity) override {
    return target_->Receive(descriptor, buffer, capacity);
  }
  void CloseSocket(int descriptor) override { target_->CloseSocket(descriptor); }
  int Poll(std::vector<PollEntry>& entries, int timeout_ms) override { return target_->Poll(entries, timeout_ms); }
  int EventWaitMs() override { return target_->EventWaitMs(); }

  std::unique_ptr<Connection> NewConnection() override { return target_->NewConnection(); }

 private:
  Env* target_;
};

}  // namespace halqvantor::platform
