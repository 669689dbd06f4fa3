#pragma once

// What every sub-command shares: one component object set up from the global options, the member being
// called (for error messages), the check of results, and output as a table or as JSON.

#include <halqvantor/clsVantor.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <istream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "options.h"

namespace vantor {

// JSON output keeps the order in which the keys were set (the columns' order).
using Json = nlohmann::ordered_json;

// A failure the component reported (a -1 result with its status text): printed on err, exit code 1.
class CommandFailed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A command line that names something impossible (a missing --db, a file outside the blob folder): exit 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a column holds, for scripts: JSON gives a Number column's whole numbers as numbers, a Date column's
// German dates also in ISO form (key + "_iso"), a Flag column's "yes"/"no" as true/false and a List
// column's items as an array. Empty cells of the typed kinds are null.
enum class ColumnKind { kText, kNumber, kDate, kFlag, kList };

struct Column {
  Column(const char* heading) : heading(heading) {}  // NOLINT: a plain text column
  Column(std::string heading, ColumnKind kind = ColumnKind::kText) : heading(std::move(heading)), kind(kind) {}
  std::string heading;
  ColumnKind kind = ColumnKind::kText;
};

// One cell: its text, and for a List column its items (the text is them joined by ", ").
struct Cell {
  Cell(const char* text) : text(text) {}             // NOLINT
  Cell(std::string text) : text(std::move(text)) {}  // NOLINT
  Cell(std::vector<std::string> items);              // NOLINT
  std::string text;
  std::vector<std::string> items;
};

// Rows with named columns, printed as an aligned table, as CSV or as a JSON array of objects whose keys are
// the headings in snake_case.
class Listing {
 public:
  explicit Listing(std::vector<Column> columns) : columns_(std::move(columns)) {}
  void Add(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }
  void AddTexts(const std::vector<std::string>& texts) { Add(std::vector<Cell>(texts.begin(), texts.end())); }
  size_t size() const { return rows_.size(); }

  Json ToJson() const;
  void PrintTable(std::ostream& out, bool bold_headings = false) const;
  // A header record of the JSON keys (a Date column followed by its "_iso" column), then one per row.
  void PrintCsv(std::ostream& out) const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;
};

// A cell as its column's kind gives it to JSON.
Json TypedValue(const std::string& text, ColumnKind kind);

class Session {
 public:
  Session(const GlobalOptions& options, std::istream& in, std::ostream& out, std::ostream& err)
      : options_(options), in_(in), out_(out), err_(err) {}

  // Creates the object, sets its properties and calls Init. With the user database, --db must be given and
  // must open (its error is reported here, since Init only writes it to the debug log), and the settings it
  // records (the password format) are applied to the object. Without it the object talks to the gateway:
  // an archive user without a password gets one from ReadPassword when there is one to read. A --log
  // folder that cannot be written is a warning on err; the command goes on without its log.
  halqvantor::clsVantor& Open(bool with_database = false);
  halqvantor::clsVantor& object() { return *object_; }

  // Names the member about to be called: a run-time error it raises is reported under this name.
  void Calling(std::string_view member) { member_ = member; }
  const std::string& member() const { return member_; }

  // Ends the command as a failure when `result` is the -1 (Integer) of a failed call; `status` holds the
  // component's text. A connection that failed gets a second line naming the address and what to check.
  void Check(const halqvantor::Variant& result, const halqvantor::Variant& status) const;
  // Ends the command as a failure with the gateway's status line when the last reply was not "Status: OK"
  // (for the members that do not read it themselves).
  void CheckLastStatus() const;

  // A password the user did not give on the command line: the first line of the input with
  // --password-stdin (read once, handed out once), else typed at `prompt` without echo when the input and
  // stderr are a terminal; nullopt when there is none to be had.
  std::optional<std::string> ReadPassword(const std::string& prompt);
  // The same for the user-directory members, which log their failures instead of returning a text.
  void CheckDirectory(const halqvantor::Variant& result) const;

  const GlobalOptions& options() const { return options_; }
  bool json() const { return options_.json; }
  bool csv() const { return options_.csv; }
  std::ostream& out() { return out_; }
  std::ostream& err() { return err_; }

  // A listing as a table, CSV or JSON; `caption`, when not empty, is printed under the table only.
  void Print(const Listing& listing, const std::string& caption = "");
  void PrintJson(const Json& value);

 private:
  const GlobalOptions& options_;
  std::istream& in_;
  std::ostream& out_;
  std::ostream& err_;
  std::unique_ptr<halqvantor::clsVantor> object_;
  std::string member_;
  bool stdin_used_ = false;
};

// The four values that name a document, as positional arguments of a sub-command.
struct DocumentRef {
  std::string channel, archive, id, version;
  void AddTo(CLI::App* command);
};

// A sub-command registers its options on `app` and returns what to run once the line is parsed.
using Action = std::function<int(Session&)>;

// Installs, once `command` is parsed, the action that runs `run(session, *args)`.
template <typename Args, typename Run>
void OnParsed(CLI::App* command, Action& action, std::shared_ptr<Args> args, Run run);

void AddArchiveCommands(CLI::App& app, Action& action);
void AddFileCommands(CLI::App& app, Action& action);
void AddUserCommands(CLI::App& app, Action& action);
void AddCallCommand(CLI::App& app, Action& action);
void AddDocumentCommands(CLI::App& app, Action& action);
void AddGrantCommand(CLI::App& app, Action& action);

// True when `err` is the process's standard error and that is a terminal.
bool IsTerminal(const std::ostream& err);

// ---- Text helpers shared by the commands

// A Variant as text for a table cell: Empty and Null give "".
std::string Text(const halqvantor::Variant& value);
// The columns of a display row "^a^,^b^,^c^" (the hit list's and other multi-column rows); "" gives none.
std::vector<std::string> DisplayColumns(std::string_view row);
// "^A^,^B^" lists of names ("^" + name + "^" joined by ",") and "[A],[B]" group lists, as plain names.
std::vector<std::string> EnclosedNames(std::string_view text, char open, char close);
// Lines of a text broken by CR LF (or LF); no empty last line.
std::vector<std::string> Lines(std::string_view text);
// A text's CR LF line breaks as "\n", for the terminal.
std::string UnixLines(std::string_view text);
Json ToJson(const std::vector<std::string>& items);

template <typename Args, typename Run>
void OnParsed(CLI::App* command, Action& action, std::shared_ptr<Args> args, Run run) {
  command->callback([&action, args, run] { action = [args, run](Session& session) { return run(session, *args); }; });
}

}  // namespace vantor
