#pragma once

// Results and out-arguments of the archive operations: a count is a Long, a failure -1 as an Integer, and
// an out-argument is written only when the caller passed it.

#include <utility>

#include "halqvantor/Variant.h"

namespace halqvantor::archive {

inline Variant FailureResult() { return Variant(int16_t{-1}); }

inline void SetIfPassed(Variant* out, Variant value) {
  if (out != nullptr) *out = std::move(value);
}

}  // namespace halqvantor::archive
