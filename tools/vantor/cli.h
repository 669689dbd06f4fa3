#pragma once

// The vantor program as a function, so that tests run its sub-commands in-process.

#include <ostream>
#include <string>
#include <vector>

namespace vantor {

// Runs one command line (the arguments after the program name). Exit code: 0 done, 1 the component
// reported a failure or raised a run-time error (the text is on `err`), 2 bad usage.
int RunVantor(std::vector<std::string> args, std::ostream& out, std::ostream& err);

}  // namespace vantor
