// Dispatch benchmark, the figure a ratio against a baseline measured in the same run: Encode called through
// the dispatch table (member looked up by name on every call, as a script host does, and the arguments in a
// vector) against the same call made directly on the object. Encode is the cheapest operation, so the
// ratio shows the table's whole overhead; every other operation waits for a gateway or a database.

#include <cstdio>
#include <vector>

#include "best_time.h"
#include "halqvantor/clsVantor.h"

using halqvantor::Variant;
using halqvantor::testing::BestTime;

int main() {
  namespace dispatch = halqvantor::dispatch;
  halqvantor::clsVantor object;
  const Variant text("Rechnung 2002-0147");
  constexpr int kRuns = 200000;
  size_t sink = 0;

  const double direct = BestTime(kRuns, [&] { sink += object.Encode(text).StringValue().size(); });
  const double by_name = BestTime(kRuns, [&] {
    std::vector<Variant> args{text};
    sink += dispatch::Invoke(object, dispatch::MemberNamed("encode"), args).StringValue().size();
  });
  const double by_id = BestTime(kRuns, [&] {
    std::vector<Variant> args{text};
    sink += dispatch::Invoke(object, dispatch::MemberWithId(0x60030003), args).StringValue().size();
  });

  std::printf("Encode through dispatch by name / direct call: %.2f (%.0f vs %.0f ns per call)\n", by_name / direct,
              by_name / kRuns * 1e9, direct / kRuns * 1e9);
  std::printf("Encode through dispatch by id / direct call:   %.2f (%.0f vs %.0f ns per call)\n", by_id / direct,
              by_id / kRuns * 1e9, direct / kRuns * 1e9);
  return sink == 0;  // keeps the calls from being optimised away
}
