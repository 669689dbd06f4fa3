#include "halqvantor/RuntimeError.h"

namespace halqvantor {

std::string RuntimeError::StandardText(int32_t number) {
  switch (static_cast<ErrorNumber>(number)) {
    case ErrorNumber::kInvalidProcedureCall:
      return "Invalid procedure call or argument";
    case ErrorNumber::kOverflow:
      return "Overflow";
    case ErrorNumber::kOutOfMemory:
      return "Out of memory";
    case ErrorNumber::kSubscriptOutOfRange:
      return "Subscript out of range";
    case ErrorNumber::kDivisionByZero:
      return "Division by zero";
    case ErrorNumber::kTypeMismatch:
      return "Type mismatch";
    case ErrorNumber::kBadFileNameOrNumber:
      return "Bad file name or number";
    case ErrorNumber::kFileNotFound:
      return "File not found";
    case ErrorNumber::kBadFileMode:
      return "Bad file mode";
    case ErrorNumber::kFileAlreadyOpen:
      return "File already open";
    case ErrorNumber::kDeviceIoError:
      return "Device I/O error";
    case ErrorNumber::kFileAlreadyExists:
      return "File already exists";
    case ErrorNumber::kDiskFull:
      return "Disk full";
    case ErrorNumber::kInputPastEndOfFile:
      return "Input past end of file";
    case ErrorNumber::kTooManyFiles:
      return "Too many files";
    case ErrorNumber::kPermissionDenied:
      return "Permission denied";
    case ErrorNumber::kPathFileAccessError:
      return "Path/File access error";
    case ErrorNumber::kPathNotFound:
      return "Path not found";
    case ErrorNumber::kObjectNotSet:
      return "Object variable or With block variable not set";
    case ErrorNumber::kInvalidUseOfNull:
      return "Invalid use of Null";
    case ErrorNumber::kArgumentNotOptional:
      return "Argument not optional";
    default:
      return "Application-defined or object-defined error";
  }
}

RuntimeError::RuntimeError(ErrorNumber number) : RuntimeError(static_cast<int32_t>(number)) {}

RuntimeError::RuntimeError(int32_t number) : RuntimeError(number, StandardText(number)) {}

RuntimeError::RuntimeError(ErrorNumber number, std::string description)
    : RuntimeError(static_cast<int32_t>(number), std::move(description)) {}

RuntimeError::RuntimeError(int32_t number, std::string description)
    : std::runtime_error(std::to_string(number) + " - " + description),
      number_(number),
      description_(std::move(description)) {}

}  // namespace halqvantor
