#pragma once

#include <ostream>
#include <vector>

#include "halqvantor/Variant.h"

namespace halqvantor {

// Lets test failures show a Variant as its type and text instead of its bytes.
inline void PrintTo(const Variant& v, std::ostream* os) {
  static const char* const kTypes[] = {"Empty", "Null",   "Integer", "Long", "Double",
                                       "Date",  "String", "Boolean", "Byte", "Missing"};
  *os << kTypes[static_cast<int>(v.type())];
  if (v.type() != VarType::Null && v.type() != VarType::Missing) *os << "(\"" << v.ToString() << "\")";
}

// A member's result and the outs it wrote, compared as one: Outs{v.Member(&a, &b), a, b}. A braced list
// evaluates its elements in order, so the outs are read after the call has written them.
using Outs = std::vector<Variant>;

}  // namespace halqvantor
