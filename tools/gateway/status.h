#pragma once

// The gateway's error codes. An error answer's status line is "Status: Error " + code + " " + message.
// Codes that begin with the digit 1 or 7 ask the client to try again later (busy); no other code does.

#include <stdexcept>
#include <string>

namespace halqvantor::gateway {

enum ErrorCode : int {
  kBusy = 101,         // --busy: the server is busy, try again later
  kLogonFailed = 21,   // unknown user or wrong password
  kNoPermission = 22,  // the user lacks the right for the archive or the action
  kUnknownChannel = 30,
  kUnknownArchive = 31,
  kUnknownDocument = 32,  // no such document or version
  kUnknownField = 33,     // index field or segment
  kUnknownLayout = 34,
  kUnknownQueryFormat = 35,
  kNoSuchPage = 36,  // page list beyond the document's pages
  kBadQuery = 40,
  kBadArgument = 41,  // an argument that is not of its form (number, segment kind, ...)
  kBadPath = 50,      // a path that would leave the blob folder
  kFileNotFound = 51,
  kFileNotWritten = 52,
  kBadImportFile = 53,
  kBadFraming = 80,
  kUnknownCommand = 81,
  kWrongArgumentCount = 82,
  kIncompleteRequest = 83,  // the client stopped sending before the request was complete
  kRequestTooLarge = 84,
  kAnswerTooLarge = 85,  // the answer (or the file it writes) would exceed the gateway's limit
  kInternalError = 90,
};

// A failed command: becomes the answer's error status line.
class GatewayError : public std::runtime_error {
 public:
  GatewayError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}
  int code() const { return code_; }

 private:
  int code_;
};

// The standard message of a code (Windows-1252 text), e.g. "Archiv unbekannt".
const char* StandardMessage(int code);

}  // namespace halqvantor::gateway
