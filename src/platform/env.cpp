#include "platform/env.h"

namespace halqvantor::platform {
namespace {

// The system's services, each from its own source.
class SystemEnv final : public Env {
 public:
  LocalDateTime Now() override { return Clock::Default()->Now(); }
  int MillisecondsToNextSecond() override { return Clock::Default()->MillisecondsToNextSecond(); }

  int AppendToFile(const std::string& path, std::string_view bytes) override {
    return Files()->AppendToFile(path, bytes);
  }
  int AppendToPrivateFile(const std::string& path, std::string_view bytes) override {
    return Files()->AppendToPrivateFile(path, bytes);
  }
  int OpenForBinaryWrite(const std::string& path, std::unique_ptr<WritableFile>* file) override {
    return Files()->OpenForBinaryWrite(path, file);
  }
  int OpenForRead(const std::string& path, std::unique_ptr<ReadableFile>* file) override {
    return Files()->OpenForRead(path, file);
  }
  int FileSize(const std::string& path, int64_t* size) override { return Files()->FileSize(path, size); }
  bool FileExists(const std::string& path) override { return Files()->FileExists(path); }
  int DeleteFile(const std::string& path) override { return Files()->DeleteFile(path); }
  int RenameWithoutReplacing(const std::string& from, const std::string& to) override {
    return Files()->RenameWithoutReplacing(from, to);
  }
  int ListFolder(const std::string& folder, std::vector<FolderEntry>* entries) override {
    return Files()->ListFolder(folder, entries);
  }
  int RemoveFolder(const std::string& path) override { return Files()->RemoveFolder(path); }

  SocketError Resolve(const std::string& host, int32_t port, std::vector<SocketAddress>* addresses) override {
    return Net()->Resolve(host, port, addresses);
  }
  int OpenSocket(AddressFamily family) override { return Net()->OpenSocket(family); }
  int BindLocalPort(int descriptor, AddressFamily family, int32_t port) override {
    return Net()->BindLocalPort(descriptor, family, port);
  }
  int StartConnect(int descriptor, const SocketAddress& address) override {
    return Net()->StartConnect(descriptor, address);
  }
  int ConnectResult(int descriptor, short ready) override { return Net()->ConnectResult(descriptor, ready); }
  int64_t Send(int descriptor, const char* data, size_t size) override { return Net()->Send(descriptor, data, size); }
  int64_t Receive(int descriptor, char* buffer, size_t capacity) override {
    return Net()->Receive(descriptor, buffer, capacity);
  }
  void CloseSocket(int descriptor) override { Net()->CloseSocket(descriptor); }
  int Poll(std::vector<PollEntry>& entries, int timeout_ms) override { return Net()->Poll(entries, timeout_ms); }
  int EventWaitMs() override { return Net()->EventWaitMs(); }
  bool ReceiveToFile(int descriptor, int file_descriptor, size_t max, FileReception* result) override {
    return Net()->ReceiveToFile(descriptor, file_descriptor, max, result);
  }
  void SetReceiveLowWater(int descriptor, int bytes) override { Net()->SetReceiveLowWater(descriptor, bytes); }

  std::unique_ptr<Connection> NewConnection() override { return ConnectionFactory::Default()->NewConnection(); }

 private:
  static FileSystem* Files() { return FileSystem::Default(); }
  static Network* Net() { return Network::Default(); }
};

}  // namespace

Env* Env::Default() {
  static SystemEnv env;
  return &env;
}

}  // namespace halqvantor::platform
