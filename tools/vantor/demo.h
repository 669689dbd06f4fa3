#pragma once

// `vantor demo`: a whole portal session against a reference gateway over a temporary copy of the sample
// archive and a fresh SQLite user database, printing what a page would show.

#include <ostream>
#include <string>
#include <vector>

namespace vantor {

struct DemoOptions {
  std::string gateway_program;  // vantor-gateway to start; "" finds it beside vantor or in the build tree
  std::string sample_dir;       // the sample archive to copy; "" finds the installed or the build tree's one
  bool keep = false;            // keep the temporary folder (log, blob folder, database) and say where it is
};

// Whether `texts` (a text column of a sorted hit list, top to bottom) are in the order the component's
// hit-list sort gives, ascending or descending.
bool InHitListOrder(const std::vector<std::string>& texts);

// Runs the session. Exit code: 0 when every step gave what it should, 1 otherwise (each failed step is
// reported on `err`), 2 when the demo could not be set up (no gateway program, no sample), 141 (as for a
// broken pipe) when `out` stopped taking output: the demo then ends at once, stops its gateway and removes
// its temporary folder, as it does on Ctrl-C.
inline constexpr int kOutputClosed = 141;
int RunDemo(const DemoOptions& options, std::ostream& out, std::ostream& err);

}  // namespace vantor
