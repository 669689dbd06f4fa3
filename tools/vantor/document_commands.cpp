// Sub-commands that change the archive from an import file: create (new documents), edit (a new version of
// one) and delete. The gateway reads the import file itself, so it has to lie in the shared blob folder: the
// command checks it on the local side and names it to the gateway by the remote side.

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "output.h"
#include "platform/files.h"
#include "session.h"
#include "table.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::Variant;

// The import file's name in the gateway's view of the blob folder. `file` is a name in the local blob
// folder or a path into it; anything else is bad usage, since the gateway could not read it.
std::string GatewayPath(const Session& session, const std::string& file) {
  const std::string& local = session.options().blob_local;
  std::string name = file;
  if (file.find('/') != std::string::npos) {
    std::error_code error;
    const fs::path folder = fs::weakly_canonical(local, error);
    const fs::path given = fs::weakly_canonical(file, error);
    if (local.empty() || given.parent_path() != folder) {
      throw UsageError("the gateway reads import files from the shared blob folder: put " + file +
                       " into the local blob folder (--blob-local or --blob) and give its name");
    }
    name = given.filename().string();
  }
  if (!halqvantor::platform::IsPlainFileName(name)) throw UsageError("no import file name: " + file);
  if (!local.empty()) {
    std::error_code error;
    if (!fs::is_regular_file(halqvantor::platform::JoinPath(local, name), error)) {
      throw UsageError("no import file " + name + " in the local blob folder " + local);
    }
  }
  const std::string& remote = session.options().blob_remote;
  if (remote.empty()) return name;
  const bool separated = remote.back() == '\\' || remote.back() == '/';
  return remote + (separated ? "" : "\\") + name;
}

// "id,version" as the gateway names a document, split.
std::pair<std::string, std::string> SplitReference(const std::string& reference) {
  const size_t comma = reference.find(',');
  if (comma == std::string::npos) return {reference, ""};
  return {reference.substr(0, comma), reference.substr(comma + 1)};
}

struct CreateArgs {
  std::string file;
};

int RunCreate(Session& session, const CreateArgs& args) {
  const std::string path = GatewayPath(session, args.file);
  auto& vantor = session.Open();
  Variant reference, status;
  session.Calling("EASYCreateDocument");
  const Variant count = vantor.EASYCreateDocument(path, &reference, &status);
  session.Check(count, status);
  const auto [id, version] = SplitReference(Text(reference));
  const int64_t documents = count.IsNumeric() ? count.ToLong() : 0;
  if (session.json()) {
    session.PrintJson({{"import_file", path},
                       {"documents", documents},
                       {"id", id},
                       {"version", TypedValue(version, ColumnKind::kNumber)}});
  } else {
    session.out() << "created document " << EscapeControls(id) << " version " << EscapeControls(version);
    if (documents > 1) session.out() << " (and " << documents - 1 << " more from the same import file)";
    session.out() << '\n';
  }
  return 0;
}

struct EditArgs {
  std::string file, id, version;
};

int RunEdit(Session& session, const EditArgs& args) {
  const std::string path = GatewayPath(session, args.file);
  auto& vantor = session.Open();
  Variant reference(args.version.empty() ? args.id : args.id + "," + args.version);
  Variant status;
  session.Calling("EASYEditDocument");
  session.Check(vantor.EASYEditDocument(path, &reference, &status), status);
  const auto [id, version] = SplitReference(Text(reference));
  if (session.json()) {
    session.PrintJson({{"import_file", path}, {"id", id}, {"version", TypedValue(version, ColumnKind::kNumber)}});
  } else {
    session.out() << "document " << EscapeControls(id) << " is now version " << EscapeControls(version) << '\n';
  }
  return 0;
}

struct DeleteArgs {
  std::string channel, archive, id, version;
};

int RunDelete(Session& session, const DeleteArgs& args) {
  auto& vantor = session.Open();
  Variant status;
  session.Calling("EASYDeleteDocument");
  session.Check(vantor.EASYDeleteDocument(args.channel, args.archive, args.id, args.version, &status), status);
  if (session.json()) {
    session.PrintJson({{"channel", args.channel},
                       {"archive", args.archive},
                       {"id", args.id},
                       {"version", TypedValue(args.version, ColumnKind::kNumber)}});
  } else {
    session.out() << "deleted document " << args.id
                  << (args.version.empty() ? std::string() : " version " + args.version) << " from " << args.channel
                  << '/' << args.archive << '\n';
  }
  return 0;
}

}  // namespace

void AddDocumentCommands(CLI::App& app, Action& action) {
  auto create = std::make_shared<CreateArgs>();
  auto* create_command = app.add_subcommand(
      "create", "import new documents from an import file in the shared blob folder (format: the gateway's README)");
  create_command->add_option("FILE", create->file, "the import file's name in the local blob folder")->required();
  OnParsed(create_command, action, create, RunCreate);

  auto edit = std::make_shared<EditArgs>();
  auto* edit_command =
      app.add_subcommand("edit", "make a new version of a document from an import file in the shared blob folder");
  edit_command->add_option("FILE", edit->file, "the import file's name in the local blob folder")->required();
  edit_command->add_option("DOCID", edit->id, "the document to change")->required();
  edit_command->add_option("VER", edit->version, "the version the new one starts from (default: the current one)");
  OnParsed(edit_command, action, edit, RunEdit);

  auto remove = std::make_shared<DeleteArgs>();
  auto* delete_command = app.add_subcommand("delete", "delete a document, or one version of it");
  delete_command->add_option("CHANNEL", remove->channel, "channel name")->required();
  delete_command->add_option("ARCHIVE", remove->archive, "archive name")->required();
  delete_command->add_option("DOCID", remove->id, "document id")->required();
  delete_command->add_option("VER", remove->version, "only this version (left out: the whole document)");
  OnParsed(delete_command, action, remove, RunDelete);
}

}  // namespace vantor
