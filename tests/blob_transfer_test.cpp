#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>

#include "support/session_fixture.h"

namespace halqvantor {
namespace {

using testing::kMinusOne;
using testing::kOne;
using testing::TempDir;
using BlobTransfer = testing::SessionTest;
using ServerUpload = testing::SessionTest;

bool Contains(const std::vector<std::string>& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

TEST_F(BlobTransfer, BytesGoIntoTheLocalFileOverItsStart) {
  TempDir blob;
  testing::WriteFile(blob.File("f.bin"), "0123456789");
  Send(std::string("ab\0\xFF", 4));
  v().strBlobPathLocal = blob.path();
  v().strBlobPathRemote = "\\\\srv\\blob";
  Variant status = "untouched";
  EXPECT_EQ(v().EASYTransferBLOB("sub\\f.bin", int32_t{4}, &status), kOne);
  EXPECT_EQ(status, Variant("untouched"));
  EXPECT_FALSE(s().impl().RequestPending);
  EXPECT_EQ(Requests(), std::vector<std::string>{"^S1^,^u^,^ABA1^,^TransferBLOB^,^\\\\srv\\blob\\sub\\f.bin^"});
  EXPECT_TRUE(Contains(s().LogLines(), "    Packet received (mode: BYTE)."));
  // No status line is read: the bytes are the file; the old file's tail stays.
  EXPECT_EQ(testing::ReadFile(blob.File("f.bin")), std::string("ab\0\xFF"
                                                               "456789",
                                                               10));
}

TEST_F(BlobTransfer, LocalNamesThatLeaveTheFolderAreFileErrors) {
  TempDir blob;
  s().object().strBlobPathLocal = blob.path() + "/in";
  for (const char* file : {"x\\..", "a/../../x", "dir\\"}) {
    Variant status;
    EXPECT_EQ(s().object().EASYTransferBLOB(file, int32_t{4}, &status), kMinusOne) << file;
    EXPECT_EQ(status, Variant("File Error (75 - Path/File access error)"));
    EXPECT_FALSE(s().impl().RequestPending);
  }
  EXPECT_TRUE(Contains(s().LogLines(), "Datei-Fehler (75 - Path/File access error)."));
  EXPECT_TRUE(Requests().empty());
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

TEST_F(BlobTransfer, WithoutALocalBlobFolderNothingIsOpenedAndNothingSent) {
  PathLog disk(&net_);
  SetEnvironment(v(), &disk);
  v().strBlobPathLocal = "";
  const std::string error = "76 - Path not found: no local blob folder set";
  Variant status;
  EXPECT_EQ(v().EASYTransferBLOB("t1.bin", int32_t{4}, &status), kMinusOne);
  EXPECT_EQ(status, Variant("File Error (" + error + ")"));
  EXPECT_EQ(v().EASYUploadFile("t1.bin", &status), kMinusOne);
  EXPECT_EQ(status, Variant("File Error (" + error + ")"));
  EXPECT_TRUE(Contains(s().LogLines(), "Datei-Fehler (" + error + ")."));
  EXPECT_EQ(disk.paths, std::vector<std::string>{});
  EXPECT_TRUE(Requests().empty());
  EXPECT_FALSE(s().impl().RequestPending);
}

TEST_F(BlobTransfer, AFileLongerThanTheReplyLimitIsRefusedAtItsFirstBytes) {
  TempDir blob;
  Send("abcd");
  v().strBlobPathLocal = blob.path();
  Options(v()).max_reply_bytes = 3;
  Variant status;
  EXPECT_EQ(v().EASYTransferBLOB("f.bin", int32_t{4}, &status), kMinusOne);
  EXPECT_EQ(status, Variant("Reply too large (4 bytes announced, the limit is 3 bytes)."));
  EXPECT_EQ(testing::ReadFile(blob.File("f.bin")), "");
  EXPECT_EQ(s().socket().State(), platform::kSckClosed);
}

TEST_F(BlobTransfer, ExchangeFailuresAndTheBusyGuard) {
  TempDir blob;
  testing::WriteFile(blob.File("u.bin"), "data");
  net_.refused["127.0.0.1"] = ECONNREFUSED;
  clsVantor& v = this->v();
  v.strBlobPathLocal = blob.path();
  Variant status;
  EXPECT_EQ(v.EASYTransferBLOB("t.bin", int32_t{4}, &status), kMinusOne);
  EXPECT_EQ(status, Variant("Winsock Error (10061 - Connection is forcefully rejected)"));
  EXPECT_TRUE(std::filesystem::exists(blob.File("t.bin")));
  EXPECT_EQ(v.EASYUploadFile("u.bin", &status), kMinusOne);
  EXPECT_EQ(status, Variant("Winsock Error (10061 - Connection is forcefully rejected)"));

  // A call made while a request is under way is refused once and releases the guard.
  for (int upload = 0; upload < 2; ++upload) {
    impl().RequestPending = true;
    status = Variant();
    EXPECT_EQ(upload ? v.EASYUploadFile("u.bin", &status) : v.EASYTransferBLOB("t.bin", int32_t{4}, &status),
              kMinusOne);
    EXPECT_EQ(status, Variant("Winsock Error (previous request not finished properly)."));
    EXPECT_FALSE(impl().RequestPending);
  }
}

TEST_F(ServerUpload, TheWireCarriesTheRequestLineAndTheFileAsOneStream) {
  TempDir blob;
  std::string content;
  for (int i = 0; i < 600 * 1024; ++i) content.push_back(static_cast<char>(i * 7 % 256));  // several chunks
  testing::WriteFile(blob.File("Bericht.pdf"), content);
  testing::WriteFile(blob.File("ten.txt"), "0123456789");
  Answer("Status: Error 5 whatever");
  v().strBlobPathLocal = blob.path();
  v().strBlobPathRemote = "D:\\blob";
  Variant status = "untouched";
  // The answer is not read: even an error status is a success of the upload.
  EXPECT_EQ(v().EASYUploadFile("Bericht.pdf", &status), kOne);
  EXPECT_EQ(v().EASYUploadFile("ten.txt", &status), kOne);
  EXPECT_EQ(status, Variant("untouched"));
  const std::vector<std::string> requests = Requests();
  ASSERT_EQ(requests.size(), 2u);
  const std::string head = "^S1^,^u^,^ABA1^,^UploadFile^,^D:\\blob^,^Bericht.pdf^,^614400^\r\n";
  EXPECT_EQ(requests[0].size(), head.size() + content.size());
  EXPECT_TRUE(requests[0] == head + content);
  EXPECT_EQ(requests[1], "^S1^,^u^,^ABA1^,^UploadFile^,^D:\\blob^,^ten.txt^,^10^\r\n0123456789");
  EXPECT_TRUE(Contains(s().LogLines(), "Weitergabe Abfrageergebnis an IIS (Status: Error 5 whatever)"));
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
  TempDir blob;
  testing::WriteFile(blob.File("empty"), "");
  testing::WriteFile(blob.File("big"), std::string(1024 * 1024, 'x'));
  Answer("Status: OK");
  v().strBlobPathLocal = blob.path();
  Variant status;
  EXPECT_EQ(v().EASYUploadFile("missing", &status), kMinusOne);
  EXPECT_EQ(status, Variant("File Error (53 - File not found)"));
  EXPECT_EQ(v().EASYUploadFile("empty", &status), kMinusOne);
  EXPECT_EQ(status, Variant("File Error (9 - Subscript out of range)"));
  EXPECT_EQ(v().EASYUploadFile("../x", &status), kMinusOne);
  EXPECT_EQ(status, Variant("File Error (75 - Path/File access error)"));
  EXPECT_TRUE(Requests().empty());
  EXPECT_TRUE(Contains(s().LogLines(), "Datei-Fehler (53 - File not found)."));

  FailingReads disk(&net_);
  SetEnvironment(v(), &disk);
  EXPECT_EQ(v().EASYUploadFile("big", &status), kMinusOne);
  EXPECT_EQ(status, Variant("File Error (57 - Device I/O error)"));
  EXPECT_FALSE(s().impl().RequestPending);
  EXPECT_EQ(s().form().ctlWinsock(s().slot()).State(), platform::kSckClosed);
  EXPECT_TRUE(Contains(s().LogLines(), "Datei-Fehler (57 - Device I/O error)."));
}

}  // namespace
}  // namespace halqvantor
