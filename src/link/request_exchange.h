#pragma once

// The request exchange with the Vantor-Server: one TCP connection per request (connect, send the request,
// receive one reply, close), the busy retry and the status line. The operations are members of
// LinkSession (link/session.h); the pure pieces of the reply handling are here.
//
// A request is "^" + session id + "^,^" + user + "^,^" + encoded password + "^", then ",^" + field + "^"
// per argument, the command first; no terminator, no escaping. It goes out in Windows-1252.
// A reply's payload is a status line ("Status: OK", or "Status: Error " + code [+ " " + message]) followed
// by one row per line, lines separated by CR LF; the last line may lack its CR LF.

#include <string>
#include <string_view>

namespace halqvantor {

// The status line of a reply: the text before the first CR LF (all of it without one).
std::string_view StatusLineOf(std::string_view response);

// True for a busy answer, to be tried again: the status line starts "Status: Error 1" or "Status: Error 7"
// (so codes 10, 12, 70, ... count too).
bool IsBusyAnswer(std::string_view status_line);

// The status text of a status line other than "Status: OK": the line without its first seven characters,
// blanks trimmed ("Error 3 Archiv unbekannt"); a line shorter than seven characters is given whole.
std::string FailureStatusText(std::string_view status_line);

}  // namespace halqvantor
