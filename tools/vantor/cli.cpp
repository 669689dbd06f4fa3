#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "demo.h"
#include "options.h"
#include "session.h"
#include "version.h"

namespace vantor {
namespace {

constexpr const char* kFooter = R"footer(Examples:
  vantor --host gw.example --port 4711 --user easy --password easy channels
  vantor query FIBU Eingangsrechnungen ".LIEFERANT=(Meier*)" --sort Rechnungsdatum
  vantor --blob-local /srv/blob --blob-remote 'D:\blob' fetch FIBU Eingangsrechnungen 1000001 1 BELEG
  vantor --db users.db rights anna
  vantor call EASYGetArchivesInit FIBU        (any member by name; by-reference outputs are printed)
  vantor demo                                 (a whole session against a local reference gateway)

Exit codes: 0 done, 1 the gateway or the component reported a failure, 2 bad usage.)footer";

}  // namespace

int RunVantor(std::vector<std::string> args, std::ostream& out, std::ostream& err) {
  CLI::App app{"vantor: the archive gateway client on the command line"};
  app.name("vantor");  // the usage line names the program, as help2man and readers of --help expect
  app.require_subcommand(1);
  app.footer(kFooter);
  app.set_version_flag("--version", std::string("vantor ") + kVersion, "print the version and exit");
  GlobalOptions options;
  options.AddTo(app);

  Action action;
  AddArchiveCommands(app, action);
  AddFileCommands(app, action);
  AddUserCommands(app, action);
  AddCallCommand(app, action);

  DemoOptions demo;
  auto* demo_command = app.add_subcommand("demo", "run a portal session against a local reference gateway");
  demo_command->add_option("--gateway", demo.gateway_program, "the vantor-gateway program to start");
  demo_command->add_option("--sample", demo.sample_dir, "the sample archive folder to copy");
  demo_command->add_flag("--keep", demo.keep, "keep the temporary folder and print where it is");
  demo_command->callback(
      [&] { action = [&](Session& session) { return RunDemo(demo, session.out(), session.err()); }; });

  std::reverse(args.begin(), args.end());  // the parser takes the arguments last first
  try {
    app.parse(args);
  } catch (const CLI::ParseError& e) {
    int code = app.exit(e, out, err);
    return code == 0 ? 0 : 2;
  }

  Session session(options, out, err);
  try {
    return action ? action(session) : 0;
  } catch (const UsageError& e) {
    err << "vantor: " << e.what() << '\n';
    return 2;
  } catch (const CommandFailed& e) {
    err << e.what() << '\n';
    return 1;
  } catch (const halqvantor::RuntimeError& e) {
    err << session.member() << ": run-time error " << e.number() << ": " << e.description() << '\n';
    return 1;
  }
}

}  // namespace vantor
