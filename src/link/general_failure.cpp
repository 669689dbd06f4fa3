#include "link/general_failure.h"

#include <new>

#include "halqvantor/RuntimeError.h"

namespace halqvantor {

ErrorInfo DescribeError(const std::exception& error) {
  if (const auto* runtime = dynamic_cast<const RuntimeError*>(&error)) {
    return {runtime->number(), runtime->description()};
  }
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
    return {static_cast<int32_t>(ErrorNumber::kOutOfMemory), RuntimeError::StandardText(ErrorNumber::kOutOfMemory)};
  }
  return {static_cast<int32_t>(ErrorNumber::kInvalidProcedureCall), error.what()};
}

std::string GeneralFailureLine(std::string_view function, const std::exception& error) {
  const ErrorInfo info = DescribeError(error);
  std::string line = "Allgemeiner Fehler in Funktion '";
  line += function;
  line += "': " + std::to_string(info.number) + " - " + info.text + ".";
  return line;
}

}  // namespace halqvantor
