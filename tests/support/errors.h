#pragma once

#include "halqvantor/RuntimeError.h"

namespace halqvantor::testing {

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
