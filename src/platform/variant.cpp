#include "halqvantor/Variant.h"

#include "platform/clock.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace {

[[noreturn]] void TypeMismatch() { vb::Raise(ErrorNumber::kTypeMismatch); }

// A text as a number for the numeric conversions: "True"/"False" count as -1/0.
double TextAsNumber(const std::string& text) {
  if (auto number = vb::ParseNumber(text)) return *number;
  const std::string upper = vb::UCase(vb::TrimView(text));
  if (upper == "TRUE") return -1;
  if (upper == "FALSE") return 0;
  TypeMismatch();
}

}  // namespace

Variant Variant::missing() {
  Variant v;
  v.type_ = VarType::Missing;
  return v;
}

Variant Variant::null() {
  Variant v;
  v.type_ = VarType::Null;
  return v;
}

Variant Variant::date(double automation_date) {
  Variant v(automation_date);
  v.type_ = VarType::Date;
  return v;
}

bool Variant::operator==(const Variant& other) const { return type_ == other.type_ && value_ == other.value_; }

bool Variant::IsNumeric() const {
  switch (type_) {
    case VarType::Integer:
    case VarType::Long:
    case VarType::Double:
    case VarType::Date:
    case VarType::Boolean:
    case VarType::Byte:
      return true;
    default:
      return false;
  }
}

double Variant::ToDouble() const {
  switch (type_) {
    case VarType::Empty:
      return 0;
    case VarType::Integer:
    case VarType::Long:
    case VarType::Boolean:
    case VarType::Byte:
      return static_cast<double>(std::get<int64_t>(value_));
    case VarType::Double:
    case VarType::Date:
      return std::get<double>(value_);
    case VarType::String:
      return TextAsNumber(std::get<std::string>(value_));
    case VarType::Null:
    case VarType::Missing:
      break;
  }
  TypeMismatch();
}

int16_t Variant::ToInteger() const { return vb::ToInt16(ToDouble()); }
int32_t Variant::ToLong() const { return vb::ToInt32(ToDouble()); }
uint8_t Variant::ToByte() const { return vb::ToUInt8(ToDouble()); }
bool Variant::ToBoolean() const { return ToDouble() != 0; }

std::string Variant::ToString() const {
  switch (type_) {
    case VarType::Empty:
      return "";
    case VarType::String:
      return std::get<std::string>(value_);
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
      return std::to_string(std::get<int64_t>(value_));
    case VarType::Boolean:
      return std::get<int64_t>(value_) != 0 ? "True" : "False";
    case VarType::Double:
      return vb::FormatDouble(std::get<double>(value_));
    case VarType::Date: {
      const double serial = std::get<double>(value_);
      const platform::LocalDateTime t = platform::FromAutomationDate(serial);
      const bool has_time = t.hour != 0 || t.minute != 0 || t.second != 0;
      const bool has_date = static_cast<int64_t>(serial) != 0;
      const std::string time = platform::FormatTime(t.hour, t.minute, t.second);
      if (!has_date && has_time) return time;
      const std::string date = platform::FormatDate(t.date);
      return has_time ? date + " " + time : date;
    }
    case VarType::Null:
    case VarType::Missing:
      break;
  }
  TypeMismatch();
}

}  // namespace halqvantor
