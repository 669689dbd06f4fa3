#pragma once

// The "one default, and a test installs its own" pattern of the platform interfaces: Installed<T> holds the
// process-wide replacement of T::Default(), if any.

#include <atomic>

namespace halqvantor::platform {

template <typename T>
struct Installed {
  static T& Current() {
    T* installed = pointer.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : *T::Default();
  }
  // Installs `replacement` (nullptr restores the default); returns the one it replaces.
  static T* Install(T* replacement) {
    T* previous = pointer.exchange(replacement, std::memory_order_acq_rel);
    return previous != nullptr ? previous : T::Default();
  }

 private:
  static inline std::atomic<T*> pointer{nullptr};
};

}  // namespace halqvantor::platform
