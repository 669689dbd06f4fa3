#pragma once

// Small helpers shared by the document operations.

#include <cstdint>
#include <utility>

#include "halqvantor/Variant.h"

namespace halqvantor {

// Writes an out-argument only when the caller passed it.
inline void SetOut(Variant* out, Variant value) {
  if (out != nullptr) *out = std::move(value);
}

// The 16-bit results of the single operations: 1 for success (deliberately not the true value -1), -1 for
// failure.
inline Variant Succeeded() { return Variant(int16_t{1}); }
inline Variant Failed() { return Variant(int16_t{-1}); }

}  // namespace halqvantor
