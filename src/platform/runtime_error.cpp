#include "halqvantor/RuntimeError.h"

namespace halqvantor {

std::string RuntimeError::StandardText(int32_t number) {
  switch (number) {
    case 5:
      return "Invalid procedure call or argument";
    case 6:
      return "Overflow";
    case 7:
      return "Out of memory";
    case 9:
      return "Subscript out of range";
    case 11:
      return "Division by zero";
    case 13:
      return "Type mismatch";
    case 52:
      return "Bad file name or number";
    case 53:
      return "File not found";
    case 54:
      return "Bad file mode";
    case 55:
      return "File already open";
    case 57:
      return "Device I/O error";
    case 58:
      return "File already exists";
    case 61:
      return "Disk full";
    case 62:
      return "Input past end of file";
    case 67:
      return "Too many files";
    case 70:
      return "Permission denied";
    case 75:
      return "Path/File access error";
    case 76:
      return "Path not found";
    case 91:
      return "Object variable or With block variable not set";
    case 94:
      return "Invalid use of Null";
    case 449:
      return "Argument not optional";
    default:
      return "Application-defined or object-defined error";
  }
}

RuntimeError::RuntimeError(ErrorNumber number) : RuntimeError(static_cast<int32_t>(number)) {}

RuntimeError::RuntimeError(int32_t number) : RuntimeError(number, StandardText(number)) {}

RuntimeError::RuntimeError(int32_t number, std::string description)
    : std::runtime_error(std::to_string(number) + " - " + description),
      number_(number),
      description_(std::move(description)) {}

}  // namespace halqvantor
