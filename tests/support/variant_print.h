#pragma once

#include <ostream>

#include "halqvantor/Variant.h"

namespace halqvantor {

// Readable Variants in test failures: the type and the value, e.g. Long 3 or String "abc".
inline void PrintTo(const Variant& v, std::ostream* os) {
  static const char* const kNames[] = {"Empty", "Null", "Integer", "Long", "Double",
                                       "Date",  "String", "Boolean", "Byte", "Missing"};
  *os << kNames[static_cast<int>(v.type())];
  if (v.type() == VarType::String) {
    *os << " \"" << v.StringValue() << '"';
  } else if (v.IsNumeric()) {
    *os << ' ' << v.ToString();
  }
}

}  // namespace halqvantor
