#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include "support/loopback.h"
#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using ::testing::Contains;
using testing::kMinusOne;
using testing::kOne;
using testing::PatternOf;
using testing::TempDir;

// Each case has a local blob folder of its own.
class BlobTransfer : public testing::SessionTest {
 protected:
  void SetUp() override { v().strBlobPathLocal = blob.path(); }
  TempDir blob;
  Variant status;
};
using ServerUpload = BlobTransfer;

TEST_F(BlobTransfer, BytesGoIntoTheLocalFileOverItsStart) {
  testing::WriteFile(blob.File("f.bin"), "0123456789");
  Send(std::string("ab\0\xFF", 4));
  v().strBlobPathRemote = "\\\\srv\\blob";
  status = "untouched";
  EXPECT_EQ((Outs{v().EASYTransferBLOB("sub\\f.bin", int32_t{4}, &status), status}), (Outs{kOne, "untouched"}));
  EXPECT_FALSE(s().impl().RequestPending);
  EXPECT_EQ(Requests(), std::vector<std::string>{"^S1^,^u^,^ABA1^,^TransferBLOB^,^\\\\srv\\blob\\sub\\f.bin^"});
  EXPECT_THAT(s().LogLines(), Contains("    Packet received (mode: BYTE)."));
  // No status line is read: the bytes are the file; the old file's tail stays.
  EXPECT_EQ(testing::ReadFile(blob.File("f.bin")), std::string("ab\0\xFF", 4) + "456789");
}

// Records every path the component hands to the file system.
struct PathLog : platform::EnvWrapper {
  using EnvWrapper::EnvWrapper;
  std::vector<std::string> paths;
  int OpenForBinaryWrite(const std::string& path, std::unique_ptr<platform::WritableFile>* file) override {
    paths.push_back(path);
    return EnvWrapper::OpenForBinaryWrite(path, file);
  }
  int OpenForRead(const std::string& path, std::unique_ptr<platform::ReadableFile>* file) override {
    paths.push_back(path);
    return EnvWrapper::OpenForRead(path, file);
  }
  int FileSize(const std::string& path, int64_t* size) override {
    paths.push_back(path);
    return EnvWrapper::FileSize(path, size);
  }
};

// Local names that leave the folder, and no local folder at all: file errors before anything is opened or sent.
TEST_F(BlobTransfer, LocalNamesOutsideTheFolderAreFileErrorsBeforeAnythingIsOpened) {
  PathLog disk(&net_);
  SetEnvironment(v(), &disk);
  const std::string kNoFolder = "76 - Path not found: no local blob folder set";
  const std::string kOutside = "75 - Path/File access error";
  const std::string in = blob.path() + "/in";
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {in, "x\\..", kOutside}, {in, "a/../../x", kOutside}, {in, "dir\\", kOutside}, {"", "t1.bin", kNoFolder}};
  for (const auto& [folder, file, error] : cases) {
    SCOPED_TRACE(file);
    v().strBlobPathLocal = folder;
    EXPECT_EQ((Outs{v().EASYTransferBLOB(file, int32_t{4}, &status), status}),
              (Outs{kMinusOne, "File Error (" + error + ")"}));
    EXPECT_EQ((Outs{v().EASYUploadFile(file, &status), status}), (Outs{kMinusOne, "File Error (" + error + ")"}));
    EXPECT_THAT(s().LogLines(), Contains("Datei-Fehler (" + error + ")."));
    EXPECT_FALSE(s().impl().RequestPending);
  }
  EXPECT_EQ(disk.paths, std::vector<std::string>{});
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BlobTransfer, AFileLongerThanTheReplyLimitIsRefusedAtItsFirstBytes) {
  Send("abcd");
  Options(v()).max_reply_bytes = 3;
  EXPECT_EQ((Outs{v().EASYTransferBLOB("f.bin", int32_t{4}, &status), status}),
            (Outs{kMinusOne, "Reply too large (4 bytes announced, the limit is 3 bytes)."}));
  EXPECT_EQ(testing::ReadFile(blob.File("f.bin")), "");
  EXPECT_EQ(s().socket().State(), platform::kSckClosed);
}

// The guard's text and its release belong to the request exchange (request_exchange_test); both take it first.
TEST_F(BlobTransfer, ACallWhileARequestIsUnderWayIsRefused) {
  for (int upload = 0; upload < 2; ++upload) {
    impl().RequestPending = true;
    EXPECT_EQ(upload ? v().EASYUploadFile("u.bin", &status) : v().EASYTransferBLOB("t.bin", int32_t{4}, &status),
              kMinusOne);
    EXPECT_EQ(status, Variant("Winsock Error (previous request not finished properly)."));
  }
}

// Files of several chunks go out whole through the reference gateway (progress_test); here the exact stream.
TEST_F(ServerUpload, TheWireCarriesTheRequestLineAndTheFileAsOneStream) {
  testing::WriteFile(blob.File("ten.txt"), "0123456789");
  Answer("Status: Error 5 whatever");
  v().strBlobPathRemote = "D:\\blob";
  status = "untouched";
  // The answer is not read: even an error status is a success of the upload.
  EXPECT_EQ((Outs{v().EASYUploadFile("ten.txt", &status), status}), (Outs{kOne, "untouched"}));
  EXPECT_EQ(Requests(),
            std::vector<std::string>{"^S1^,^u^,^ABA1^,^UploadFile^,^D:\\blob^,^ten.txt^,^10^\r\n0123456789"});
  EXPECT_THAT(s().LogLines(), Contains("Weitergabe Abfrageergebnis an IIS (Status: Error 5 whatever)"));
}

// Reads fail after the first chunk of every file.
class FailingReads : public platform::EnvWrapper {
 public:
  using EnvWrapper::EnvWrapper;
  int OpenForRead(const std::string& path, std::unique_ptr<platform::ReadableFile>* file) override {
    struct Failing : platform::ReadableFile {
      explicit Failing(std::unique_ptr<platform::ReadableFile> f) : inner(std::move(f)) {}
      int Read(char* buffer, size_t capacity, size_t* count) override {
        return reads++ == 0 ? inner->Read(buffer, capacity, count) : 57;
      }
      std::unique_ptr<platform::ReadableFile> inner;
      int reads = 0;
    };
    const int error = EnvWrapper::OpenForRead(path, file);
    if (error == 0) *file = std::make_unique<Failing>(std::move(*file));
    return error;
  }
};

TEST_F(ServerUpload, LocalFileFailuresEndInTheFileErrorHandler) {
  testing::WriteFile(blob.File("empty"), "");
  testing::WriteFile(blob.File("big"), std::string(3 * 1024 * 1024, 'x'));  // more than one read
  Answer("Status: OK");
  EXPECT_EQ((Outs{v().EASYUploadFile("missing", &status), status}),
            (Outs{kMinusOne, "File Error (53 - File not found)"}));
  EXPECT_EQ((Outs{v().EASYUploadFile("empty", &status), status}),
            (Outs{kMinusOne, "File Error (9 - Subscript out of range)"}));
  EXPECT_TRUE(Requests().empty());

  FailingReads disk(&net_);
  SetEnvironment(v(), &disk);
  EXPECT_EQ((Outs{v().EASYUploadFile("big", &status), status}),
            (Outs{kMinusOne, "File Error (57 - Device I/O error)"}));
  EXPECT_FALSE(s().impl().RequestPending);
  EXPECT_EQ(s().form().ctlWinsock(s().slot()).State(), platform::kSckClosed);
}

// ---- Over the system's network and files, where the bytes move between connection and file directly.

void SendAll(int fd, std::string_view bytes) {
  for (ssize_t n = 0; !bytes.empty() && (n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL)) > 0;) {
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

// Reads the request up to its last expected byte.
void AwaitRequest(int fd, std::string_view ending) {
  std::string request;
  char buf[4096];
  for (ssize_t n = 0; !request.ends_with(ending) && (n = ::recv(fd, buf, sizeof buf, 0)) > 0;) {
    request.append(buf, static_cast<size_t>(n));
  }
}

// The system's network, with the receive low-water marks the socket asks for.
struct MarkedNetwork : platform::EnvWrapper {
  using EnvWrapper::EnvWrapper;
  bool ReceiveToFile(int descriptor, int file_descriptor, size_t max, platform::FileReception* result) override {
    return target()->ReceiveToFile(descriptor, file_descriptor, max, result);
  }
  void SetReceiveLowWater(int descriptor, int bytes) override {
    marks.push_back(bytes);
    target()->SetReceiveLowWater(descriptor, bytes);
  }
  std::vector<int> marks;
};

// The gateway holds the connection open after its last byte, so only the bytes themselves can end the wait. The
// pump lets bytes gather before it wakes for them, never more than are still awaited, and when the gateway
// stops short of the length the caller gave, the time-out still finds every byte that came in the file.
TEST(DirectTransfer, PiecesOfOddSizesAreCountedExactly) {
  const std::string content = PatternOf((9 << 20) + 7);  // more than two passes of the direct path
  for (const int32_t missing : {0, 100000}) {
    testing::LoopbackServer server([&](int c) {
      AwaitRequest(c, "f.bin^");
      const size_t sizes[] = {1, 4093, (3 << 20) + 1, 65537, 5 << 20};
      for (size_t sent = 0, i = 0, left = content.size(); left > 0; ++i, left = content.size() - sent) {
        const size_t n = left == 7 ? 7 : std::min(sizes[i % 5], left - 7);  // the last 7 bytes come alone
        SendAll(c, std::string_view(content).substr(sent, n));
        std::this_thread::sleep_for(std::chrono::milliseconds((sent += n) + 7 == content.size() ? 50 : 2));
      }
      for (char b = 0; ::recv(c, &b, 1, 0) > 0;) {
      }
    });
    TempDir blob;
    MarkedNetwork network(platform::Env::Default());
    testing::GatewaySession s(server.port(), &network);
    s.object().strBlobPathLocal = blob.path();
    s.object().lngREQUESTTIMEOUT = missing == 0 ? 5 : 1;
    Variant status;
    EXPECT_EQ(
        (Outs{s.object().EASYTransferBLOB("f.bin", static_cast<int32_t>(content.size()) + missing, &status), status}),
        (missing == 0 ? Outs{kOne, Variant()}
                      : Outs{kMinusOne, "Timeout of 1 seconds occured waiting for server response."}));
    EXPECT_TRUE(testing::ReadFile(blob.File("f.bin")) == content);
    EXPECT_EQ(s.state().BytesReceived, static_cast<int32_t>(content.size()));
    EXPECT_THAT(network.marks, Contains(262144));
    EXPECT_EQ(network.marks.back(), std::max(missing, 1));
  }
}

// A reset in mid-stream and a file that cannot grow end the transfer as on any other path.
TEST(DirectTransfer, ResetsAndWriteFailuresEndTheWait) {
  const std::string content = PatternOf(3 << 20);
  const struct {
    bool reset;
    rlim_t file_limit;
    std::string status;
  } kCases[] = {{true, RLIM_INFINITY, "Winsock Error (10054 - Connection is reset by remote side)"},
                {false, 1 << 20, "Winsock Error (File Error (61 - Disk full))"}};
  for (const auto& c : kCases) {
    testing::LoopbackServer server([&](int fd) {
      AwaitRequest(fd, "f.bin^");
      SendAll(fd, std::string_view(content).substr(0, c.reset ? content.size() / 2 : content.size()));
      if (c.reset) {
        const linger abort{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
      }
    });
    TempDir blob;
    testing::GatewaySession s(server.port());
    s.object().strBlobPathLocal = blob.path();
    // A write past the limit fails with EFBIG instead of raising SIGXFSZ.
    rlimit old_limit{};
    ::getrlimit(RLIMIT_FSIZE, &old_limit);
    const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{c.file_limit, old_limit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    Variant status;
    const Variant result = s.object().EASYTransferBLOB("f.bin", static_cast<int32_t>(content.size()), &status);
    ::setrlimit(RLIMIT_FSIZE, &old_limit);
    std::signal(SIGXFSZ, old_handler);
    s.socket().Close();  // the server may still be sending
    EXPECT_EQ((Outs{result, status}), (Outs{kMinusOne, c.status}));
    EXPECT_FALSE(s.impl().RequestPending);
    EXPECT_TRUE(c.reset || std::filesystem::file_size(blob.File("f.bin")) == c.file_limit);
  }
}

// A gateway that hangs up in mid-upload ends the call with the connection's error, and the process goes on.
TEST(SystemUpload, AHangUpInMidUploadIsTheConnectionsError) {
  TempDir blob;
  testing::WriteFile(blob.File("big.bin"), PatternOf((5 << 20) + 3));
  testing::LoopbackServer server([&](int c) {
    char buf[65536];
    for (ssize_t n = 0, got = 0; got < (1 << 20) && (n = ::recv(c, buf, sizeof buf, 0)) > 0;) got += n;
  });
  testing::GatewaySession s(server.port());
  s.object().strBlobPathLocal = blob.path();
  Variant status;
  EXPECT_EQ((Outs{s.object().EASYUploadFile("big.bin", &status), status}),
            (Outs{kMinusOne, "Winsock Error (10054 - Connection is reset by remote side)"}));
}

}  // namespace
}  // namespace halqvantor
