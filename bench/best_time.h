#pragma once

// Benchmark timing: the best of several rounds, so that a round disturbed by the machine does not count.

#include <algorithm>
#include <chrono>
#include <functional>

namespace halqvantor::testing {

// Seconds for `calls` calls of `body`, the best of `rounds` rounds.
inline double BestTime(int calls, const std::function<void()>& body, int rounds = 5) {
  double best = 1e30;
  for (int round = 0; round < rounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) body();
    best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

}  // namespace halqvantor::testing
