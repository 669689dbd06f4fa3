#include "users/user_directory.h"

#include <cmath>
#include <cstdio>

#include "platform/vb_runtime.h"

namespace halqvantor::users {
namespace {

[[noreturn]] void Refuse(std::string_view argument, std::string_view value, std::string_view why) {
  throw RuntimeError(ErrorNumber::kInvalidProcedureCall,
                     RuntimeError::StandardText(ErrorNumber::kInvalidProcedureCall) + " (" + std::string(argument) +
                         " '" + std::string(value) + "' " + std::string(why) + ")");
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::string SqlNumber(const Variant& value, std::string_view argument) {
  switch (value.type()) {
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
      return value.ToString();
    case VarType::Double: {
      const double v = value.ToDouble();
      // Beyond 2^53 a double no longer names one whole number.
      if (std::isfinite(v) && v == std::floor(v) && std::fabs(v) <= 9007199254740992.0) {
        char text[32];
        std::snprintf(text, sizeof text, "%.0f", v);
        return text;
      }
      break;
    }
    case VarType::String: {
      const std::string& text = value.StringValue();
      const size_t start = (!text.empty() && text[0] == '-') ? 1 : 0;
      bool whole = text.size() > start;
      for (size_t i = start; i < text.size() && whole; ++i) whole = IsDigit(text[i]);
      if (whole) return text;
      Refuse(argument, text, "is not a whole number");
    }
    default:
      break;
  }
  const std::string shown = (value.IsNull() || value.IsMissing()) ? "" : value.ToString();
  Refuse(argument, shown, "is not a whole number");
}

Variant SqlText(const Variant& value) { return Variant(value.ToString()); }

std::string SqlIdentifier(const Variant& value, std::string_view argument) {
  std::string text = value.ToString();
  bool plain = !text.empty() && !IsDigit(text[0]);
  for (char c : text) {
    plain = plain && (IsDigit(c) || c == '_' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'));
  }
  if (!plain) Refuse(argument, text, "is not a plain name");
  return text;
}

std::string ColumnText(const Variant& value) { return value.IsNull() ? std::string() : value.ToString(); }

platform::Connection& Database(LinkSession& d) {
  std::unique_ptr<platform::Connection>& connection = StateOf(d.self).DBConnection;
  if (!connection) throw RuntimeError(ErrorNumber::kObjectNotSet);
  return *connection;
}

}  // namespace halqvantor::users
