#pragma once

// What an object offers beyond the 77 members of its interface: settings a host or a test gives one object
// and readings it can take from it. None of these changes what a member does unless the setting says so.

#include <cstdint>

namespace halqvantor {

class clsVantor;

// Per-object settings outside the interface table. Each starts at the value a page that never heard of it
// expects; a host changes them after creating the object and before the members that read them.
struct ObjectOptions {
  // The largest reply payload, in bytes, that a request accepts; a reply announcing or sending more fails at
  // once and its connection is closed.
  int64_t max_reply_bytes = int64_t{1} << 30;
};

// The options of `object`, to read or change.
ObjectOptions& Options(clsVantor& object);
const ObjectOptions& Options(const clsVantor& object);

}  // namespace halqvantor
