#pragma once

#include "halqvantor/RuntimeError.h"
#include "halqvantor/Variant.h"

namespace halqvantor::testing {

// The two results of the members that answer success or failure, as 16-bit Integers.
inline const Variant kOne(int16_t{1});
inline const Variant kMinusOne(int16_t{-1});

// The number of the RuntimeError that `call` raises, or 0 when it raises none.
template <typename F>
int RuntimeErrorNumber(F call) {
  try {
    call();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

}  // namespace halqvantor::testing
