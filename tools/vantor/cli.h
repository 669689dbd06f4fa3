#pragma once

// The vantor program as a function, so that tests run its sub-commands in-process.

#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace vantor {

// Runs one command line (the arguments after the program name). Exit code: 0 done, 1 the component
// reported a failure or raised a run-time error (the text is on `err`), 2 bad usage. `in` is where
// --password-stdin reads (the three-argument form reads standard input).
int RunVantor(std::vector<std::string> args, std::istream& in, std::ostream& out, std::ostream& err);
int RunVantor(std::vector<std::string> args, std::ostream& out, std::ostream& err);

// The name among `names` closest to `word` (fewest single-letter edits, case ignored) when it is close
// enough to be a slip of the keyboard; "" otherwise.
std::string ClosestName(const std::string& word, const std::vector<std::string>& names);

}  // namespace vantor
