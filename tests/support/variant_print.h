#pragma once

#include <ostream>

#include "halqvantor/Variant.h"

namespace halqvantor {

// Lets test failures show a Variant as its type and text instead of its bytes.
inline void PrintTo(const Variant& v, std::ostream* os) {
  static const char* const kTypes[] = {"Empty", "Null",   "Integer", "Long", "Double",
                                       "Date",  "String", "Boolean", "Byte", "Missing"};
  *os << kTypes[static_cast<int>(v.type())];
  if (v.type() != VarType::Null && v.type() != VarType::Missing) *os << "(\"" << v.ToString() << "\")";
}

}  // namespace halqvantor
