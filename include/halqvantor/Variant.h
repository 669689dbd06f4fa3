#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "halqvantor/Export.h"

namespace halqvantor {

// The automation variant: every argument and most results of clsVantor are Variants.
//   Integer is 16-bit signed, Long 32-bit signed, Byte 8-bit unsigned; Date is the automation date (days
//   since 30.12.1899, the fraction being the time of day); Missing is an optional argument not passed.
// Strings are UTF-8. The To...() conversions (CInt, CLng, CDbl, CBool, CByte, CStr) are checked: numbers
// round half to even, a value out of range raises RuntimeError 6 (overflow), a value that cannot convert
// raises 13 (type mismatch). Text is read in the C locale, with optional blanks around it, and "&H"/"&O"
// prefixes for hexadecimal and octal whole numbers.
enum class VarType { Empty, Null, Integer, Long, Double, Date, String, Boolean, Byte, Missing };

class HALQVANTOR_API Variant {
 public:
  Variant() = default;  // Empty
  Variant(int16_t v) : type_(VarType::Integer), value_(static_cast<int64_t>(v)) {}
  Variant(int32_t v) : type_(VarType::Long), value_(static_cast<int64_t>(v)) {}
  Variant(double v) : type_(VarType::Double), value_(v) {}
  Variant(bool v) : type_(VarType::Boolean), value_(static_cast<int64_t>(v ? -1 : 0)) {}
  Variant(uint8_t v) : type_(VarType::Byte), value_(static_cast<int64_t>(v)) {}
  Variant(std::string v) : type_(VarType::String), value_(std::move(v)) {}
  Variant(const char* v) : type_(VarType::String), value_(std::string(v)) {}

  static Variant missing();
  static Variant null();
  static Variant date(double automation_date);

  VarType type() const { return type_; }
  bool operator==(const Variant& other) const;

  bool IsMissing() const { return type_ == VarType::Missing; }
  bool IsNull() const { return type_ == VarType::Null; }
  bool IsEmpty() const { return type_ == VarType::Empty; }
  bool IsNumeric() const;  // Integer, Long, Double, Byte, Boolean or Date

  // Checked conversions (see above). Empty converts to 0, "" or false; Null and Missing raise 13 (type
  // mismatch).
  int16_t ToInteger() const;
  int32_t ToLong() const;
  double ToDouble() const;
  bool ToBoolean() const;
  uint8_t ToByte() const;
  std::string ToString() const;  // CStr: numbers in plain decimal, Boolean "True"/"False", Date DD.MM.YYYY

  // Accessors that do not convert; valid only for the matching type.
  const std::string& StringValue() const { return std::get<std::string>(value_); }

 private:
  VarType type_ = VarType::Empty;
  std::variant<int64_t, double, std::string> value_{int64_t{0}};
};

}  // namespace halqvantor
