#pragma once

// The gateway's commands over its archive: one complete request in, the bytes of its answer out.
// A text answer is "TotalBytes:" + payload length + CR LF + payload, the payload being the status line
// ("Status: OK" or "Status: Error " + code + " " + message) and one row per line, every line ending with
// CR LF, all in Windows-1252. "TransferBLOB" answers the file's bytes alone, or nothing when it fails.

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "archive.h"
#include "blob_files.h"
#include "import_file.h"
#include "query.h"
#include "request_reader.h"
#include "session_cache.h"

namespace halqvantor::gateway {

struct Answer {
  std::string bytes;  // everything to send
  bool raw = false;   // file bytes without a header: the connection is shut down after them
};

// The framed text answers.
Answer OkAnswer(const std::vector<std::string>& rows);
Answer ErrorAnswer(int code, const std::string& message);

// What one request may make the gateway spend.
struct CommandLimits {
  size_t max_session_bytes = 16u << 20;                        // all sessions' last-query words together
  std::chrono::milliseconds session_idle{30 * 60 * 1000};      // a session unused this long is forgotten
  size_t max_pages = 1000;                                     // pages of one "GetSegmentMultiTIF"
  size_t max_answer_bytes = 64u << 20;                         // a text answer, or a file a command composes
  size_t max_note_bytes = 64u << 10;                           // the text of one note
  std::function<std::chrono::steady_clock::time_point()> now;  // the clock of the session expiry
};

class Commands {
 public:
  // `busy_answers`: how many requests are answered busy first ("TransferBLOB" and "UploadFile", which
  // clients do not repeat, are never answered busy and do not count).
  Commands(Store& store, BlobFolder blob, int busy_answers, CommandLimits limits = {});

  // Answers one request. Safe to call from several threads at once: commands that change the archive run
  // alone, the others side by side.
  Answer Handle(const Request& request);

  // An "UploadFile" whose bytes are streamed (RequestReader::StreamUploads): Open is given the head and
  // returns where the bytes go, a temporary file beside the target (or nowhere, when the log-on, the path
  // or the file fails: Finish then answers that error); Finish answers the completed upload, putting the
  // file in place. A body that is dropped before Finish takes its temporary file with it.
  std::unique_ptr<UploadBody> OpenUpload(const Request& head);
  Answer FinishUpload(const Request& request, UploadBody* body);

  SessionCache& sessions() { return sessions_; }

 private:
  using Rows = std::vector<std::string>;
  struct Target;  // channel, archive, document, version of a request
  struct Plan;    // a version an import description makes, before it is stored

  Rows Dispatch(const Request& request);
  bool LogOn(const Request& request);

  Archive& ArchiveFor(const std::string& channel, const std::string& archive, const std::string& user, char right);
  Target DocumentFor(const Request& request, char right);

  // Segment contents as the client receives them (text segments in Windows-1252 with CR LF).
  std::string SegmentBytes(const Archive& archive, const Segment& segment);
  std::vector<std::string> TextsOf(const Archive& archive, const Version& version);
  std::string WriteDownload(const std::string& remote_folder, const std::string& name, const std::string& bytes,
                            Rows& rows);

  Rows GetChannels();
  Rows GetArchives(const Request& r);
  Rows GetAllArchives(const Request& r);
  Rows GetArchiveDescription(const Request& r);
  Rows GetSegmentSelectList(const Request& r);
  Rows QueryArchive(const Request& r);
  std::vector<const Document*> FindHits(const Archive& archive, const Query& query, const Query& restriction,
                                        int64_t query_max);
  Rows GetQueryFormatList(const Request& r);
  Rows GetDocumentInfo(const Request& r);
  Rows GetSegmentDescription(const Request& r);
  Rows GetSegmentText(const Request& r);
  Rows GetNotes(const Request& r);
  Rows WriteNote(const Request& r);
  Rows DeleteNotes(const Request& r);
  Rows GetMasks(const Request& r);
  Rows GetAllArchivesExt(const Request& r);
  Rows GetArchiveProperties(const Request& r);
  Rows GetSegmentData(const Request& r);
  Rows GetSegmentPdf(const Request& r, const std::string& segment, const std::string& layout, const std::string& folder,
                     const std::string& suffix);
  Rows GetSegmentPrintfile(const Request& r);
  Rows GetSegmentMultiTif(const Request& r);
  Rows GetSegmentErf(const Request& r);
  Answer TransferBlob(const Request& r);
  Rows UploadFile(const Request& r);
  Rows ImportDocuments(const Request& r, bool edit);
  Plan PlanImport(const Request& r, const ImportDescription& d, bool edit, const std::string& import_folder,
                  int64_t& next_id);
  void AddImportedSegment(Plan& plan, const ImportGroup& group, const std::string& import_folder);
  Rows CommitImport(std::vector<Plan>& plans);
  Rows DeleteDocument(const Request& r);

  Store& store_;
  BlobFolder blob_;
  const CommandLimits limits_;
  std::mutex busy_mutex_;
  int busy_left_;
  std::map<std::string, std::string> encoded_passwords_;  // user (upper case) -> as sent; fixed after start
  SessionCache sessions_;                                 // session -> free-text words of its last query
  std::shared_mutex store_mutex_;                         // the archive: shared to read, alone to change
  std::mutex text_cache_mutex_;
  std::map<std::string, std::string> text_cache_;  // content file -> text in Windows-1252
};

}  // namespace halqvantor::gateway
