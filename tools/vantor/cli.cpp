#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "demo.h"
#include "options.h"
#include "output.h"
#include "platform/secrets.h"
#include "session.h"
#include "version.h"

namespace vantor {
namespace {

constexpr const char* kFooter = R"footer(Examples:
  VANTOR_PASSWORD=easy vantor --host 127.0.0.1 --port 4711 --user easy channels
  vantor query FIBU Eingangsrechnungen ".LIEFERANT=(Meier*)" --sort Rechnungsdatum
  vantor --blob-local /srv/blob --blob-remote 'D:\blob' fetch FIBU Eingangsrechnungen 1000001 1 BELEG
  vantor --db users.db rights anna
  vantor call EASYGetArchivesInit FIBU        (any member by name; by-reference outputs are printed)
  vantor demo                                 (a whole session against a local reference gateway)

Global options may also follow the command. `vantor help COMMAND` shows one command's help.
Exit codes: 0 done, 1 the gateway or the component reported a failure, 2 bad usage.)footer";

// The sub-command called `name`, nullptr when there is none.
const CLI::App* FindCommand(const CLI::App& app, const std::string& name) {
  for (const CLI::App* command : app.get_subcommands({})) {
    if (command->get_name() == name) return command;
  }
  return nullptr;
}

// The names of the sub-commands, for suggestions.
std::vector<std::string> CommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

// The word of the command line that names the sub-command: the first one that is neither an option nor the
// value of one ("" when there is none).
std::string CommandWord(const CLI::App& app, const std::vector<std::string>& args) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--") return i + 1 < args.size() ? args[i + 1] : "";
    if (!arg.starts_with("-") || arg == "-") return arg;
    if (arg.find('=') != std::string::npos) continue;
    const CLI::Option* option = app.get_option_no_throw(arg);
    if (option != nullptr && option->get_expected_min() > 0) ++i;  // its value
  }
  return "";
}

std::string UnknownCommand(const CLI::App& app, const std::string& word) {
  std::string message = "vantor: unknown command '" + word + "'";
  const std::string closest = ClosestName(word, CommandNames(app));
  if (!closest.empty()) message += "; did you mean " + closest + "?";
  return message + " (`vantor help` lists the commands)";
}

// The options given on the command line by name ("--port" for "--port=1" too).
std::vector<std::string> GivenOptions(const std::vector<std::string>& args) {
  std::vector<std::string> given;
  for (const std::string& arg : args) {
    if (arg == "--") break;
    if (arg.starts_with("--")) given.push_back(arg.substr(0, arg.find('=')));
  }
  return given;
}

}  // namespace

std::string ClosestName(const std::string& word, const std::vector<std::string>& names) {
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  std::string best;
  size_t best_distance = std::max<size_t>(2, word.size() / 3) + 1;
  for (const std::string& name : names) {
    // Levenshtein distance, one row at a time.
    std::vector<size_t> row(name.size() + 1);
    for (size_t j = 0; j <= name.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= word.size(); ++i) {
      size_t diagonal = row[0];
      row[0] = i;
      for (size_t j = 1; j <= name.size(); ++j) {
        const size_t up = row[j];
        row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (lower(word[i - 1]) == lower(name[j - 1]) ? 0 : 1)});
        diagonal = up;
      }
    }
    if (row[name.size()] < best_distance) {
      best_distance = row[name.size()];
      best = name;
    }
  }
  return best;
}

int RunVantor(std::vector<std::string> args, std::ostream& out, std::ostream& err) {
  return RunVantor(std::move(args), std::cin, out, err);
}

int RunVantor(std::vector<std::string> args, std::istream& in, std::ostream& out, std::ostream& err) {
  CLI::App app{"vantor: the archive gateway client on the command line"};
  app.name("vantor");  // the usage line names the program, as help2man and readers of --help expect
  app.require_subcommand(1);
  // The global options are taken after the sub-command too (its subcommands inherit this).
  app.fallthrough();
  app.footer(kFooter);
  app.set_version_flag("--version", std::string("vantor ") + kVersion, "print the version and exit");
  GlobalOptions options;
  options.AddTo(app);

  Action action;
  AddArchiveCommands(app, action);
  AddFileCommands(app, action);
  AddUserCommands(app, action);
  AddCallCommand(app, action);
  AddDocumentCommands(app, action);
  AddGrantCommand(app, action);

  DemoOptions demo;
  auto* demo_command = app.add_subcommand("demo", "run a portal session against a local reference gateway");
  demo_command->add_option("--gateway", demo.gateway_program, "the vantor-gateway program to start");
  demo_command->add_option("--sample", demo.sample_dir, "the sample archive folder to copy");
  demo_command->add_flag("--keep", demo.keep, "keep the temporary folder and print where it is");
  demo_command->callback(
      [&] { action = [&](Session& session) { return RunDemo(demo, session.out(), session.err()); }; });

  SetUnicodeOutput(LocaleIsUtf8());
  const bool json_errors = WantsJson(args);
  std::string help_topic;
  auto* help_command = app.add_subcommand("help", "show the help of vantor or of one command");
  help_command->add_option("COMMAND", help_topic, "the command to explain");

  // Each command's help ends with the options every command takes.
  const std::string global_help = "Global options (before or after the command):\n" +
                                  CLI::Formatter().make_groups(&app, CLI::AppFormatMode::Normal);
  for (CLI::App* command : app.get_subcommands({})) command->footer(global_help);

  const std::vector<std::string> given = args;
  std::reverse(args.begin(), args.end());  // the parser takes the arguments last first
  try {
    app.parse(args);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() != 0) {
      // The parser checks VANTOR_* values as if given on the command line: say which variable it was. An
      // unknown command gets a suggestion.
      std::string problem;
      if (const std::string env = CheckEnvironment(GivenOptions(given)); !env.empty()) {
        problem = "vantor: " + env;
      } else if (app.get_subcommands().empty()) {
        const std::string word = CommandWord(app, given);
        if (!word.empty() && FindCommand(app, word) == nullptr) problem = UnknownCommand(app, word);
      }
      if (json_errors) {
        ReportError(err, true, problem.empty() ? std::string(e.what()) : problem, 2);
        return 2;
      }
      if (!problem.empty()) {
        err << problem << '\n';
        return 2;
      }
    }
    int code = app.exit(e, out, err);
    return code == 0 ? 0 : 2;
  }
  options.Settle();
  if (help_command->parsed()) {
    if (help_topic.empty()) {
      out << app.get_formatter()->make_help(&app, "vantor", CLI::AppFormatMode::Normal);
      return 0;
    }
    const CLI::App* topic = FindCommand(app, help_topic);
    if (topic == nullptr) {
      ReportError(err, options.json, UnknownCommand(app, help_topic), 2);
      return 2;
    }
    out << topic->help("vantor");
    return 0;
  }

  // Whatever a failure says may quote a connection string: its password never reaches the terminal.
  using halqvantor::platform::MaskSecrets;
  Session session(options, in, out, err);
  try {
    return action ? action(session) : 0;
  } catch (const UsageError& e) {
    ReportError(err, options.json, "vantor: " + MaskSecrets(e.what()), 2);
    return 2;
  } catch (const CommandFailed& e) {
    ReportError(err, options.json, MaskSecrets(e.what()), 1);
    return 1;
  } catch (const halqvantor::RuntimeError& e) {
    ReportError(
        err, options.json,
        session.member() + ": run-time error " + std::to_string(e.number()) + ": " + MaskSecrets(e.description()), 1);
    return 1;
  }
}

}  // namespace vantor
