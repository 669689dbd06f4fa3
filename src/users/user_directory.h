#pragma once

// What the user-directory operations share: the checks of the values that are written into a statement's
// text, the catch-all handler with its log line, and the by-reference texts that keep what was built when
// an operation fails.

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "halqvantor/Variant.h"
#include "halqvantor/clsVantor.h"
#include "link/debug_log.h"
#include "link/general_failure.h"
#include "link/session.h"
#include "platform/database.h"

namespace halqvantor::users {

// ---- Values in statements. Texts are bound to "?" placeholders and never become part of a statement, so
// any text is just a value. Numbers and names are written into the statement's text, so these raise
// error 5 (logged by the operation, which returns -1) for a value that could change its shape.

// A number slot: the text of a whole number (Integer, Long, Byte, a whole Double, or a String of an optional
// "-" and digits). Anything else, "" included, is refused.
std::string SqlNumber(const Variant& value, std::string_view argument);
// A table or column name: letters, digits and "_", not starting with a digit.
std::string SqlIdentifier(const Variant& value, std::string_view argument);
// A text slot: the value to bind, as a String. Null and Missing raise 13.
Variant SqlText(const Variant& value);

// A column value as the texts handed to the page write it: NULL gives "".
std::string ColumnText(const Variant& value);

// What the user-directory operations keep: the user database connection, created (closed) by Init, opened
// there when asked, closed at the end of the object.
struct UserState {
  std::unique_ptr<platform::Connection> DBConnection;
};

// The user state of `object` (defined with the object's private side).
UserState& StateOf(clsVantor& object);

// The open user database of the object: raises 91 when Init has not created the connection and 3704 (from
// the connection) when it is closed.
platform::Connection& Database(LinkSession& d);

// A by-reference text under construction. It is written to the caller's variable when it goes out of scope,
// on success and on failure alike, so a failing operation leaves the text built so far.
class OutText {
 public:
  // Clears the caller's text at once, as the operations do on entry.
  explicit OutText(Variant* target) : target_(target) { Flush(); }
  ~OutText() { Flush(); }
  OutText(const OutText&) = delete;
  OutText& operator=(const OutText&) = delete;

  std::string& text() { return text_; }

 private:
  void Flush() {
    if (target_ != nullptr) *target_ = Variant(text_);
  }
  Variant* target_;
  std::string text_;
};

// Runs `body` under the catch-all handler of the user-directory operations: a failure is logged as
// "Allgemeiner Fehler in Funktion '<function>': <number> - <text>." and gives -1 as an Integer.
template <typename Body>
Variant Logged(LinkSession& d, std::string_view function, Body&& body) {
  try {
    return body();
  } catch (const std::exception& e) {
    d.WriteLog(GeneralFailureLine(function, e));
    return Variant(int16_t{-1});
  }
}

}  // namespace halqvantor::users
