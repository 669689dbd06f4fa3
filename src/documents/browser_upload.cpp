// Browser upload and local clean-up, both on the local blob folder without the gateway:
//   UploadFile stores the one file part of the multipart body that the browser posted to the current page;
//   DeleteFTPObjects removes files, and folders with the files in them, once a page no longer needs them.

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "documents/document_files.h"
#include "link/debug_log.h"
#include "link/general_failure.h"
#include "link/progress.h"
#include "link/result_values.h"
#include "platform/cp1252.h"
#include "platform/files.h"

namespace halqvantor {
namespace {

// With a progress hook the body is read and the file written in pieces of this size, a report between two.
constexpr int32_t kProgressPiece = 1024 * 1024;

// The operation's end at its hook's word: logged, no partial file left behind.
struct UploadCancelled {};

constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kFileNameKeyword = "filename=\"";

// Where the file part of a posted body lies. The header is read from the body's second byte on (index 1) up
// to the first blank line, so its first line is the boundary line less its first character; the file's
// bytes run from just after the blank line to just before CR LF + boundary line + "--" + CR LF at the end.
struct FilePart {
  std::string name;  // the client's file name without its folders (UTF-8); "" when the part names none
  int64_t first = 0;
  int64_t last = -1;
};

// Raises 9 when the body has no blank line.
FilePart FindFilePart(const std::vector<uint8_t>& body, int32_t total) {
  std::string header;
  size_t i = 0;
  while (!std::string_view(header).ends_with(kBlankLine)) {
    ++i;
    if (i >= body.size()) throw RuntimeError(ErrorNumber::kSubscriptOutOfRange);
    header.push_back(static_cast<char>(body[i]));
  }

  FilePart part;
  std::string lowered = header;
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  const size_t keyword = lowered.find(kFileNameKeyword);
  if (keyword != std::string::npos) {
    const size_t start = keyword + kFileNameKeyword.size();
    const size_t quote = header.find('"', start);
    if (quote != std::string::npos) {
      std::string name = header.substr(start, quote - start);
      // A browser that sends the client's full path: keep the bare name.
      for (const char separator : {'\\', '/'}) {
        const size_t at = name.rfind(separator);
        if (at != std::string::npos) name.erase(0, at + 1);
      }
      part.name = platform::Cp1252ToUtf8(name);
    }
  }
  const size_t boundary_length = header.find("\r\n");
  part.first = static_cast<int64_t>(i) + 1;
  part.last = static_cast<int64_t>(total) - (static_cast<int64_t>(boundary_length) + 8);
  return part;
}

// Deletes the files (not folders) of `folder` whose names match `pattern`; every failure is passed over.
void DeleteMatchingFiles(platform::FileSystem& fs, const std::string& folder, const std::string& pattern) {
  std::vector<platform::FolderEntry> entries;
  if (fs.ListFolder(folder, &entries) != 0) return;
  for (const platform::FolderEntry& entry : entries) {
    if (!entry.is_folder && platform::MatchesWildcard(entry.name, pattern)) (void)fs.DeleteFile(folder + entry.name);
  }
}

}  // namespace

bool clsVantor::UploadFile(const Variant& strSubDir, Variant* strFileNameParam, Variant* lngFileSizeParam) {
  LinkSession& d = SessionOf(*this);
  try {
    if (documents::StateOf(*this).request == nullptr) throw RuntimeError(ErrorNumber::kObjectNotSet);
    PageRequest& request = *documents::StateOf(*this).request;
    const int32_t total = request.TotalBytes();
    // Progress counts the body's bytes read and then the file's bytes written.
    ProgressReading done;
    ProgressScope reports(d.progress, d.options.progress, "UploadFile", *d.env, [&done] { return done; });
    std::vector<uint8_t> body;
    if (!d.progress.active()) {
      body = request.BinaryRead(total);
    } else {
      done.expected = total;
      while (static_cast<int64_t>(body.size()) < total) {
        const int32_t want = std::min<int32_t>(kProgressPiece, total - static_cast<int32_t>(body.size()));
        const std::vector<uint8_t> piece = request.BinaryRead(want);
        if (piece.empty()) break;
        body.insert(body.end(), piece.begin(), piece.end());
        done.bytes = static_cast<int64_t>(body.size());
        if (!d.progress.Look()) throw UploadCancelled();
      }
    }
    const FilePart part = FindFilePart(body, total);
    if (part.name.empty()) return false;

    // The prefix joins the name with "_": it names a file, not a folder.
    std::string file_name = part.name;
    if (!strSubDir.IsMissing() && !strSubDir.IsNull()) {
      const std::string prefix = strSubDir.ToString();
      if (!prefix.empty()) file_name = prefix + "_" + file_name;
    }
    const std::string path = documents::LocalBlobPath(d, file_name);
    platform::FileSystem& fs = *d.env;
    if (fs.FileExists(path)) platform::Check(fs.DeleteFile(path));

    const int64_t size = part.last - part.first + 1;
    if (size < 1 || part.last >= static_cast<int64_t>(body.size())) {
      throw RuntimeError(ErrorNumber::kSubscriptOutOfRange);
    }
    std::unique_ptr<platform::WritableFile> file;
    platform::Check(fs.OpenForBinaryWrite(path, &file));
    const std::string_view bytes(reinterpret_cast<const char*>(body.data()) + part.first, static_cast<size_t>(size));
    if (!d.progress.active()) {
      platform::Check(file->Write(bytes));
    } else {
      const int64_t read = done.bytes;
      done.expected = read + size;
      for (size_t at = 0; at < bytes.size(); at += kProgressPiece) {
        platform::Check(file->Write(bytes.substr(at, kProgressPiece)));
        done.bytes = read + static_cast<int64_t>(std::min(bytes.size(), at + kProgressPiece));
        if (!d.progress.Look()) {
          (void)file->Close();
          (void)fs.DeleteFile(path);
          throw UploadCancelled();
        }
      }
    }
    platform::Check(file->Close());
    reports.Done();

    SetOut(strFileNameParam, Variant(part.name));
    SetOut(lngFileSizeParam, Variant(static_cast<int32_t>(size)));
    return true;
  } catch (const UploadCancelled&) {
    d.WriteLog(kCancelledLogLine);
    return false;
  } catch (const std::exception& e) {
    d.WriteLog(GeneralFailureLine("UploadFile", e));
    return false;
  }
}

void clsVantor::DeleteFTPObjects(const Variant& strFile) {
  try {
    const std::string file = strFile.ToString();
    const size_t slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string() : file.substr(0, slash + 1);
    const std::string pattern = file.substr(folder.size());
    platform::FileSystem& fs = *SessionOf(*this).env;

    DeleteMatchingFiles(fs, folder, pattern);
    // The whole list is made before anything goes; then each matching folder is emptied of its files and
    // removed, which leaves a folder that still holds folders. A link to a folder is never followed.
    std::vector<platform::FolderEntry> entries;
    if (fs.ListFolder(folder, &entries) != 0) return;
    for (const platform::FolderEntry& entry : entries) {
      if (!entry.is_folder || !platform::MatchesWildcard(entry.name, pattern)) continue;
      DeleteMatchingFiles(fs, folder + entry.name + "/", "*");
      (void)fs.RemoveFolder(folder + entry.name);
    }
  } catch (const std::exception&) {
    // The clean-up reports nothing.
  }
}

}  // namespace halqvantor
