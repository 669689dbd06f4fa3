#pragma once

// What every sub-command shares: one component object set up from the global options, the member being
// called (for error messages), the check of results, and output as a table or as JSON.

#include <halqvantor/clsVantor.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
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

// Rows with named columns, printed as an aligned table or as a JSON array of objects keyed by column.
class Listing {
 public:
  explicit Listing(std::vector<std::string> columns) : columns_(std::move(columns)) {}
  void Add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  size_t size() const { return rows_.size(); }

  Json ToJson() const;
  void PrintTable(std::ostream& out) const;

 private:
  std::vector<std::string> columns_;
  std::vector<std::vector<std::string>> rows_;
};

class Session {
 public:
  Session(const GlobalOptions& options, std::ostream& out, std::ostream& err)
      : options_(options), out_(out), err_(err) {}

  // Creates the object, sets its properties and calls Init. With the user database, --db must be given and
  // must open (its error is reported here, since Init only writes it to the debug log), and the settings it
  // records (the password format) are applied to the object.
  halqvantor::clsVantor& Open(bool with_database = false);
  halqvantor::clsVantor& object() { return *object_; }

  // Names the member about to be called: a run-time error it raises is reported under this name.
  void Calling(std::string_view member) { member_ = member; }
  const std::string& member() const { return member_; }

  // Ends the command as a failure when `result` is the -1 (Integer) of a failed call; `status` holds the
  // component's text.
  void Check(const halqvantor::Variant& result, const halqvantor::Variant& status) const;
  // The same for the user-directory members, which log their failures instead of returning a text.
  void CheckDirectory(const halqvantor::Variant& result) const;

  const GlobalOptions& options() const { return options_; }
  bool json() const { return options_.json; }
  std::ostream& out() { return out_; }
  std::ostream& err() { return err_; }

  // A listing as a table (or JSON); `caption`, when not empty, is printed under the table.
  void Print(const Listing& listing, const std::string& caption = "");
  void PrintJson(const Json& value);

 private:
  const GlobalOptions& options_;
  std::ostream& out_;
  std::ostream& err_;
  std::unique_ptr<halqvantor::clsVantor> object_;
  std::string member_;
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
