// Blob transfer and server upload: whole files move over the object's own socket, for deployments in which
// the web server and the gateway share no blob folder. Each operation runs its own round trip (busy check,
// connect, send, wait, disconnect, with the exchange's texts and log lines) and reads no status line:
//   EASYTransferBLOB receives in byte mode, every byte into the local file as it arrives (moved there by
//   the socket itself where the network can);
//   EASYUploadFile sends the "UploadFile" request line, CR LF and the file's bytes as one stream, straight
//   from the file where the network can (else read a chunk at a time), and logs the gateway's answer
//   without reading it.
// A local file that cannot be opened, sized, read or written ends the call in the file error handler:
// strStatus "File Error (" number " - " text ")" and the log line "Datei-Fehler (...)".

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "documents/document_files.h"
#include "link/debug_log.h"
#include "link/frm_comm.h"
#include "link/general_failure.h"
#include "link/progress.h"
#include "link/result_values.h"
#include "platform/cp1252.h"
#include "platform/files.h"
#include "platform/socket.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace {

std::string FileErrorDetail(const RuntimeError& error) {
  return std::to_string(error.number()) + " - " + error.description();
}

// The local name of a transferred file: the text after the last "\" of the gateway's path.
std::string LocalNameOf(const std::string& remote_file) {
  const size_t slash = remote_file.rfind('\\');
  return slash == std::string::npos ? remote_file : remote_file.substr(slash + 1);
}

// The bytes of a local file after the upload's request line, `size` of them, read a chunk at a time as the
// connection takes them. A read that fails, or a file that ends before `size` bytes, is recorded and ends
// the wait on the slot as a file error, the way reception reports a failed write.
class FileBody final : public platform::SendSource {
 public:
  FileBody(std::unique_ptr<platform::ReadableFile> file, int64_t size, frmComm& form, int32_t slot)
      : file_(std::move(file)), size_(size), remaining_(size), form_(form), slot_(slot) {}

  // The file's bytes handed to the connection so far.
  int64_t handed() const { return size_ - remaining_; }

  int64_t Read(char* buffer, size_t capacity) override {
    if (remaining_ == 0) return 0;
    size_t count = 0;
    int error = file_->Read(buffer, std::min<size_t>(capacity, static_cast<size_t>(remaining_)), &count);
    // A file that ends early got shorter since it was sized.
    if (error == 0 && count == 0) error = static_cast<int>(ErrorNumber::kInputPastEndOfFile);
    if (error != 0) {
      failure_.emplace(error);
      form_.SetWinsockError(slot_, "File Error (" + FileErrorDetail(*failure_) + ")");
      return -1;
    }
    remaining_ -= static_cast<int64_t>(count);
    return static_cast<int64_t>(count);
  }

  const std::optional<RuntimeError>& failure() const { return failure_; }

 private:
  std::unique_ptr<platform::ReadableFile> file_;
  int64_t size_;
  int64_t remaining_;
  frmComm& form_;
  int32_t slot_;
  std::optional<RuntimeError> failure_;
};

}  // namespace

Variant documents::FileErrorResult(LinkSession& d, const std::exception& error, Variant* strStatus) {
  const ErrorInfo info = DescribeError(error);
  const std::string detail = std::to_string(info.number) + " - " + info.text;
  // A connection still open (a file that failed while it was being sent) goes now, not with the next request.
  try {
    platform::Socket& socket = d.form.ctlWinsock(d.SlotIndex);
    if (socket.State() != platform::kSckClosed) socket.Close();
  } catch (const std::exception&) {
  }
  SetOut(strStatus, Variant("File Error (" + detail + ")"));
  d.WriteLog("Datei-Fehler (" + detail + ").");
  d.RequestPending = false;
  return FailureResult();
}

Variant clsVantor::EASYTransferBLOB(const Variant& strFile, const Variant& lngFileLen, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  std::string status;
  if (!d.TakeRequestGuard(status)) {
    SetOut(strStatus, Variant(status));
    return FailureResult();
  }
  std::string request;
  try {
    d.form.SetMode(d.SlotIndex, ReceptionMode::kByte);
    d.form.SetBytesReceived(d.SlotIndex, 0);
    d.form.SetBytesToReceive(d.SlotIndex, lngFileLen.ToLong());
    request = d.BuildRequest({Variant("TransferBLOB"), Variant(strBlobPathRemote + "\\" + strFile.ToString())});
  } catch (const std::exception&) {
    // Arguments that do not convert are the caller's error; the guard must not outlive it.
    d.RequestPending = false;
    throw;
  }

  int number = 0;
  try {
    const std::string path = documents::LocalBlobPath(d, LocalNameOf(strFile.ToString()));
    number = platform::FreeFile();
    platform::OpenFileForBinaryWrite(*d.env, number, path);
    d.form.SetFile(d.SlotIndex, static_cast<uint8_t>(number));
    ProgressScope reports(d.progress, d.options.progress, "EASYTransferBLOB", *d.env,
                          [&d] { return d.SlotProgress(); });
    const bool ok = d.RunRoundTrip(request, platform::Utf8ToCp1252(request), status);
    if (ok) reports.Done();
    // What arrived stays in the file, also after a failure.
    platform::CloseFile(std::exchange(number, 0));
    d.RequestPending = false;
    if (!ok) {
      SetOut(strStatus, Variant(status));
      return FailureResult();
    }
    return SuccessResult();
  } catch (const std::exception& e) {
    if (number != 0) {
      try {
        platform::CloseFile(number);
      } catch (const std::exception&) {
      }
    }
    return documents::FileErrorResult(d, e, strStatus);
  }
}

Variant clsVantor::EASYUploadFile(const Variant& strFileName, Variant* strStatus) {
  LinkSession& d = SessionOf(*this);
  std::string status;
  if (!d.TakeRequestGuard(status)) {
    SetOut(strStatus, Variant(status));
    return FailureResult();
  }
  try {
    const std::string name = strFileName.ToString();
    const std::string path = documents::LocalBlobPath(d, name);
    platform::FileSystem& fs = *d.env;
    int64_t size = 0;
    platform::Check(fs.FileSize(path, &size));
    const int32_t length = vb::CheckedInt32(size);
    const std::string request =
        d.BuildRequest({Variant("UploadFile"), Variant(strBlobPathRemote), strFileName, Variant(length)});
    // The file's bytes are held in a buffer of their length, and a buffer of no bytes cannot be made.
    if (length == 0) throw RuntimeError(ErrorNumber::kSubscriptOutOfRange);
    std::unique_ptr<platform::ReadableFile> file;
    platform::Check(fs.OpenForRead(path, &file));
    auto body = std::make_shared<FileBody>(std::move(file), length, d.form, d.SlotIndex);

    d.form.SetMode(d.SlotIndex, ReceptionMode::kString);
    std::string head = platform::Utf8ToCp1252(request);
    head += "\r\n";
    const SlotState& slot = d.form.State(d.SlotIndex);
    ProgressScope reports(d.progress, d.options.progress, "EASYUploadFile", *d.env, [&slot, body, length] {
      return ProgressReading{body->handed(), length, slot.PeerClosed && !slot.Ready};
    });
    const bool ok = d.RunRoundTrip(request, head, status, body);
    if (ok) reports.Done();
    if (body->failure()) throw *body->failure();
    if (!ok) {
      d.RequestPending = false;
      SetOut(strStatus, Variant(status));
      return FailureResult();
    }
    // The answer is logged and otherwise dropped: no status line is read.
    if (d.LogEnabled()) d.WriteLog("Weitergabe Abfrageergebnis an IIS (" + d.form.GetResponse(d.SlotIndex) + ")");
    d.RequestPending = false;
    return SuccessResult();
  } catch (const std::exception& e) {
    return documents::FileErrorResult(d, e, strStatus);
  }
}

}  // namespace halqvantor
