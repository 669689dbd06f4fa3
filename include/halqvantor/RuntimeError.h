#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "halqvantor/Export.h"

namespace halqvantor {

// The run-time errors a page sees as an automation error. Numbers and standard texts are the ones of the
// VB runtime, so a page that tests Err.Number keeps working.
enum class ErrorNumber : int32_t {
  kInvalidProcedureCall = 5,   // "Invalid procedure call or argument"
  kOverflow = 6,               // "Overflow"
  kSubscriptOutOfRange = 9,    // "Subscript out of range"
  kTypeMismatch = 13,          // "Type mismatch"
  kBadFileNameOrNumber = 52,   // "Bad file name or number"
  kFileNotFound = 53,          // "File not found"
  kFileAlreadyOpen = 55,       // "File already open"
  kDeviceIoError = 57,         // "Device I/O error"
  kFileAlreadyExists = 58,     // "File already exists"
  kDiskFull = 61,              // "Disk full"
  kPermissionDenied = 70,      // "Permission denied"
  kPathFileAccessError = 75,   // "Path/File access error"
  kPathNotFound = 76,          // "Path not found"
  kArgumentNotOptional = 449,  // "Argument not optional"
};

// Thrown where the component raises a run-time error to its caller; nothing else is thrown at a caller.
class HALQVANTOR_API RuntimeError : public std::runtime_error {
 public:
  // An error with the standard text of its number ("Application-defined or object-defined error" for a
  // number without one).
  explicit RuntimeError(ErrorNumber number);
  explicit RuntimeError(int32_t number);
  RuntimeError(int32_t number, std::string description);

  int32_t number() const { return number_; }
  const std::string& description() const { return description_; }

  // The standard text of a VB run-time error number.
  static std::string StandardText(int32_t number);

 private:
  int32_t number_;
  std::string description_;
};

}  // namespace halqvantor
