#pragma once

// The result conventions shared by the operations: a failed operation gives -1 as a 16-bit Integer, a
// single operation that succeeded gives 1 as an Integer (deliberately not the true value -1), and an
// out-argument is written only when the caller passed it.

#include <cstdint>
#include <utility>

#include "halqvantor/Variant.h"

namespace halqvantor {

inline Variant FailureResult() { return Variant(int16_t{-1}); }
inline Variant SuccessResult() { return Variant(int16_t{1}); }

// Writes an out-argument only when the caller passed it.
inline void SetOut(Variant* out, Variant value) {
  if (out != nullptr) *out = std::move(value);
}

// An optional input argument, or `fallback` when it was not passed.
inline Variant OrDefault(const Variant& argument, const char* fallback) {
  return argument.IsMissing() ? Variant(fallback) : argument;
}

}  // namespace halqvantor
