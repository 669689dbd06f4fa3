// Sub-commands that move files: fetch (a segment written into the blob folder), transfer (a file of the
// gateway's blob folder fetched over the socket) and upload (a file of the local blob folder sent to it).

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "halqvantor/Extensions.h"
#include "platform/files.h"
#include "session.h"
#include "table.h"
#include "transfer_progress.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::Variant;

// Runs `call` (one file member of the object) with a progress hook that draws the bar on a terminal and
// stops at Ctrl-C or when the gateway closes the connection early. Returns the watch's findings.
template <typename Call>
halqvantor::Variant WithProgress(Session& session, TransferWatch& watch, Call call) {
  InterruptCatcher interrupts;
  halqvantor::Progress& hook = halqvantor::Options(session.object()).progress;
  hook = watch.Hook();
  struct Uninstall {
    halqvantor::Progress& hook;
    ~Uninstall() { hook = nullptr; }
  } uninstall{hook};
  halqvantor::Variant result = call();
  watch.Finish();
  return result;
}

// After Ctrl-C: what is where, and the exit code of an interrupted command.
int Interrupted(Session& session, const TransferWatch& watch, const std::string& what) {
  session.err() << "vantor: interrupted after " << GroupedNumber(watch.bytes()) << " bytes; " << what << '\n';
  return kInterruptedExit;
}

int64_t SizeOf(const std::string& path) {
  std::error_code error;
  auto size = fs::file_size(path, error);
  return error ? 0 : static_cast<int64_t>(size);
}

std::string LocalPath(const Session& session, const std::string& name) {
  const std::string& folder = session.options().blob_local;
  return folder.empty() ? name : halqvantor::platform::JoinPath(folder, name);
}

// Where a file landed: its path (JSON: name, path and length).
int PrintFile(Session& session, const std::string& name, const std::string& length) {
  std::string path = LocalPath(session, name);
  if (session.json()) {
    session.PrintJson({{"file", name}, {"path", path}, {"length", TypedValue(length, ColumnKind::kNumber)}});
  } else {
    session.out() << path << '\n';
  }
  return 0;
}

struct FetchArgs {
  DocumentRef doc;
  std::string field, pdf, print, pages;
  bool tif = false;
};

int RunFetch(Session& session, const FetchArgs& args) {
  if (args.field.empty() && args.pages.empty()) throw UsageError("fetch: FIELD is required (or --pages)");
  auto& vantor = session.Open();
  const DocumentRef& doc = args.doc;
  Variant name, length, status, result;
  if (!args.pages.empty()) {
    session.Calling("EASYGetSegmentMultiTIF");
    result = vantor.EASYGetSegmentMultiTIF(doc.channel, doc.archive, doc.id, doc.version, args.pages, &name, &length,
                                           &status);
  } else if (!args.pdf.empty()) {
    session.Calling("EASYGetSegmentPDF");
    result = vantor.EASYGetSegmentPDF(doc.channel, doc.archive, doc.id, doc.version, args.field, args.pdf, &name,
                                      &length, &status);
  } else if (!args.print.empty()) {
    session.Calling("EASYGetSegmentPrintfile");
    Variant mode(static_cast<int16_t>(args.tif ? halqvantor::intPrintTIF : halqvantor::intPrintPDF));
    result = vantor.EASYGetSegmentPrintfile(doc.channel, doc.archive, doc.id, doc.version, args.field, args.print, mode,
                                            &name, &length, &status);
  } else {
    session.Calling("EASYGetSegmentData");
    result =
        vantor.EASYGetSegmentData(doc.channel, doc.archive, doc.id, doc.version, args.field, &name, &length, &status);
  }
  session.Check(result, status);
  // The name comes from the gateway: only a plain name in the local blob folder is a download. Anything else
  // ("../x", "/etc/passwd", "a/b") would point the caller at a file the component never fetched.
  const std::string file = Text(name);
  if (file.empty()) throw CommandFailed(session.member() + ": the gateway named no file");
  if (!halqvantor::platform::IsPlainFileName(file)) {
    throw CommandFailed(session.member() +
                        ": the gateway named a file outside the local blob folder: " + EscapeControls(file));
  }
  return PrintFile(session, file, Text(length));
}

struct TransferArgs {
  std::string file;
  int32_t length = 0;
};

int RunTransfer(Session& session, const TransferArgs& args) {
  auto& vantor = session.Open();
  std::string name =
      args.file.substr(args.file.find_last_of('\\') == std::string::npos ? 0 : args.file.find_last_of('\\') + 1);
  std::string path = LocalPath(session, name);
  Variant status;
  session.Calling("EASYTransferBLOB");
  TransferWatch watch(session.err(), IsTerminal(session.err()), name);
  Variant result =
      WithProgress(session, watch, [&] { return vantor.EASYTransferBLOB(args.file, Variant(args.length), &status); });
  if (watch.interrupted()) return Interrupted(session, watch, "what had arrived is in " + path);
  if (const auto& closed = watch.closed_early()) {
    // The gateway ends a transfer by closing: nothing at all means it has no such file, less than LENGTH
    // that LENGTH was more than the file holds.
    if (closed->bytes == 0) {
      std::string hint = session.options().blob_remote.empty() ? " (--blob-remote is not set)" : "";
      throw CommandFailed(session.member() + ": the gateway closed the connection before sending anything: no such " +
                          "file on the gateway?" + hint);
    }
    throw CommandFailed(session.member() + ": the gateway closed the connection after " + GroupedNumber(closed->bytes) +
                        " of " + GroupedNumber(closed->expected) + " bytes (LENGTH too large? " + path +
                        " may hold the whole file)");
  }
  session.Check(result, status);
  return PrintFile(session, name, std::to_string(args.length));
}

int RunUpload(Session& session, const std::string& file) {
  std::string name = file;
  if (name.find('/') != std::string::npos) {
    // A path is fine when it lies in the local blob folder, which is where the component reads from.
    std::error_code error;
    fs::path folder = fs::weakly_canonical(session.options().blob_local, error);
    fs::path given = fs::weakly_canonical(file, error);
    if (session.options().blob_local.empty() || given.parent_path() != folder) {
      throw UsageError("upload sends a file of the local blob folder (--blob-local): give its name");
    }
    name = given.filename().string();
  }
  auto& vantor = session.Open();
  std::string path = LocalPath(session, name);
  int64_t size = SizeOf(path);
  Variant status;
  session.Calling("EASYUploadFile");
  TransferWatch watch(session.err(), IsTerminal(session.err()), name);
  Variant result = WithProgress(session, watch, [&] { return vantor.EASYUploadFile(name, &status); });
  if (watch.interrupted()) return Interrupted(session, watch, "the gateway keeps no part of " + name);
  if (watch.closed_early()) {
    throw CommandFailed(session.member() + ": the gateway closed the connection after " +
                        GroupedNumber(watch.closed_early()->bytes) + " of " + GroupedNumber(size) + " bytes");
  }
  session.Check(result, status);
  session.CheckLastStatus();
  if (session.json()) {
    session.PrintJson({{"file", name}, {"length", size}});
  } else {
    session.out() << "uploaded " << name << " (" << size << " bytes)\n";
  }
  return 0;
}

}  // namespace

void AddFileCommands(CLI::App& app, Action& action) {
  auto fetch = std::make_shared<FetchArgs>();
  auto* fetch_command = app.add_subcommand(
      "fetch", "have the gateway write a segment into the blob folder and print the local file's path");
  fetch->doc.AddTo(fetch_command);
  fetch_command->add_option("FIELD", fetch->field, "segment id or short name (not with --pages)");
  auto* pdf = fetch_command->add_option("--pdf", fetch->pdf, "the segment printed as PDF under this layout");
  auto* print = fetch_command->add_option("--print", fetch->print, "the segment's print file under this layout");
  fetch_command->add_flag("--tif", fetch->tif, "with --print: a TIFF instead of a PDF")->needs(print);
  auto* pages =
      fetch_command->add_option("--pages", fetch->pages, "pages of the document's images as one TIFF, e.g. 1-3 or 1;4");
  pdf->excludes(print)->excludes(pages);
  print->excludes(pages);
  OnParsed(fetch_command, action, fetch, RunFetch);

  auto transfer = std::make_shared<TransferArgs>();
  auto* transfer_command = app.add_subcommand(
      "transfer", "fetch a file of the gateway's blob folder over the socket into the local blob folder");
  transfer_command->add_option("FILE", transfer->file, "file below the remote blob folder, e.g. 1000001_1_2.TIF")
      ->required();
  transfer_command->add_option("LENGTH", transfer->length, "its length in bytes")->required();
  OnParsed(transfer_command, action, transfer, RunTransfer);

  auto upload = std::make_shared<std::string>();
  auto* upload_command = app.add_subcommand("upload", "send a file of the local blob folder to the gateway");
  upload_command->add_option("FILE", *upload, "the file's name in the local blob folder")->required();
  OnParsed(upload_command, action, upload, RunUpload);
}

}  // namespace vantor
