// `vantor call` in a build without the dispatch table: the command exists and says so.

#include "session.h"

namespace vantor {

void AddCallCommand(CLI::App& app, Action& action) {
  auto* command = app.add_subcommand("call", "call any member of the component by name (not in this build)");
  command->allow_extras();
  command->callback([&action] {
    action = [](Session& session) {
      session.err() << "vantor call: not available in this build (no dispatch table)\n";
      return 1;
    };
  });
}

}  // namespace vantor
