#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "halqvantor/Export.h"

namespace halqvantor {

// The run-time errors a page sees as an automation error, by the number a page reads from Err.Number; each
// has its standard text.
enum class ErrorNumber : int32_t {
  kInvalidProcedureCall = 5,    // "Invalid procedure call or argument"
  kOverflow = 6,                // "Overflow"
  kOutOfMemory = 7,             // "Out of memory"
  kSubscriptOutOfRange = 9,     // "Subscript out of range"
  kDivisionByZero = 11,         // "Division by zero"
  kTypeMismatch = 13,           // "Type mismatch"
  kBadFileNameOrNumber = 52,    // "Bad file name or number"
  kFileNotFound = 53,           // "File not found"
  kBadFileMode = 54,            // "Bad file mode"
  kFileAlreadyOpen = 55,        // "File already open"
  kDeviceIoError = 57,          // "Device I/O error"
  kFileAlreadyExists = 58,      // "File already exists"
  kDiskFull = 61,               // "Disk full"
  kInputPastEndOfFile = 62,     // "Input past end of file"
  kTooManyFiles = 67,           // "Too many files"
  kPermissionDenied = 70,       // "Permission denied"
  kPathFileAccessError = 75,    // "Path/File access error"
  kPathNotFound = 76,           // "Path not found"
  kObjectNotSet = 91,           // "Object variable or With block variable not set"
  kInvalidUseOfNull = 94,       // "Invalid use of Null"
  kInvalidPropertyValue = 380,  // raised with its text "Invalid property value"
  kArgumentNotOptional = 449,   // "Argument not optional"
};

// Thrown where the component raises a run-time error to its caller; nothing else is thrown at a caller.
class HALQVANTOR_API RuntimeError : public std::runtime_error {
 public:
  // An error with the standard text of its number ("Application-defined or object-defined error" for a
  // number without one).
  explicit RuntimeError(ErrorNumber number);
  explicit RuntimeError(int32_t number);
  RuntimeError(ErrorNumber number, std::string description);
  RuntimeError(int32_t number, std::string description);

  int32_t number() const { return number_; }
  const std::string& description() const { return description_; }

  // The standard text of a VB run-time error number.
  static std::string StandardText(int32_t number);
  static std::string StandardText(ErrorNumber number) { return StandardText(static_cast<int32_t>(number)); }

 private:
  int32_t number_;
  std::string description_;
};

}  // namespace halqvantor
