// vantor: the command line of the archive client. Calls any member of the component by name, offers
// sub-commands for daily work, and runs a demonstration session against the reference gateway.

#include <iostream>

#include <CLI/CLI.hpp>

#include "demo.h"
#include "options.h"

int main(int argc, char** argv) {
  CLI::App app{"vantor: archive gateway client"};
  app.require_subcommand(1);
  vantor::GlobalOptions options;
  options.AddTo(app);

  vantor::DemoOptions demo;
  int exit_code = 0;
  auto* demo_command = app.add_subcommand("demo", "run a portal session against a local reference gateway");
  demo_command->add_option("--gateway", demo.gateway_program, "the vantor-gateway program to start");
  demo_command->add_option("--sample", demo.sample_dir, "the sample archive folder to copy");
  demo_command->add_flag("--keep", demo.keep, "keep the temporary folder and print where it is");
  demo_command->callback([&] { exit_code = vantor::RunDemo(demo, std::cout, std::cerr); });

  CLI11_PARSE(app, argc, argv);
  return exit_code;
}
