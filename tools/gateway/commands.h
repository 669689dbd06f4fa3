#pragma once

// The gateway's commands over its archive: one complete request in, the bytes of its answer out.
// A text answer is "TotalBytes:" + payload length + CR LF + payload, the payload being the status line
// ("Status: OK" or "Status: Error " + code + " " + message) and one row per line, every line ending with
// CR LF, all in Windows-1252. "TransferBLOB" answers the file's bytes alone, or nothing when it fails.

#include <map>
#include <string>
#include <vector>

#include "archive.h"
#include "blob_files.h"
#include "request_reader.h"

namespace halqvantor::gateway {

struct Answer {
  std::string bytes;  // everything to send
  bool raw = false;   // file bytes without a header: the connection is shut down after them
};

// The framed text answers.
Answer OkAnswer(const std::vector<std::string>& rows);
Answer ErrorAnswer(int code, const std::string& message);

class Commands {
 public:
  // `busy_answers`: how many requests are answered busy first ("TransferBLOB" and "UploadFile", which
  // clients do not repeat, are never answered busy and do not count).
  Commands(Store& store, BlobFolder blob, int busy_answers);

  Answer Handle(const Request& request);

 private:
  using Rows = std::vector<std::string>;
  struct Target;  // channel, archive, document, version of a request

  Rows Dispatch(const Request& request);
  bool LogOn(const Request& request);

  Archive& ArchiveFor(const std::string& channel, const std::string& archive, const std::string& user,
                      char right);
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
  Rows GetSegmentPdf(const Request& r, const std::string& segment, const std::string& layout,
                     const std::string& folder, const std::string& suffix);
  Rows GetSegmentPrintfile(const Request& r);
  Rows GetSegmentMultiTif(const Request& r);
  Rows GetSegmentErf(const Request& r);
  Answer TransferBlob(const Request& r);
  Rows UploadFile(const Request& r);
  Rows ImportDocuments(const Request& r, bool edit);
  Rows DeleteDocument(const Request& r);

  Store& store_;
  BlobFolder blob_;
  int busy_left_;
  std::map<std::string, std::string> encoded_passwords_;        // user (upper case) -> as sent
  std::map<std::string, std::vector<std::string>> last_words_;  // session -> free-text words of its last query
  std::map<std::string, std::string> text_cache_;               // content file -> text in Windows-1252
};

}  // namespace halqvantor::gateway
