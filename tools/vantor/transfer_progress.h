#pragma once

// Progress of the commands that move a file over the gateway connection (transfer, upload): a bar on the
// terminal drawn from the component's progress reports, Ctrl-C turned into a clean cancel, and the gateway's
// early close noted so that the command can say at once what happened instead of waiting out the time-out.

#include <halqvantor/Extensions.h>

#include <csignal>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace vantor {

// The exit code of a command that Ctrl-C ended (128 + SIGINT), as shells report it.
inline constexpr int kInterruptedExit = 130;

// 20000 as "20,000".
std::string GroupedNumber(int64_t value);

// While it lives, SIGINT sets a flag instead of ending the program; the handler it replaced comes back after.
class InterruptCatcher {
 public:
  InterruptCatcher();
  ~InterruptCatcher();
  InterruptCatcher(const InterruptCatcher&) = delete;
  InterruptCatcher& operator=(const InterruptCatcher&) = delete;
  static bool Interrupted();

 private:
  struct sigaction previous_ {};
};

// A progress hook for one file operation. It stops the operation on Ctrl-C (with an InterruptCatcher in
// place) and when the gateway closes the connection before `expected` bytes are in, recording which.
class TransferWatch {
 public:
  // `draw`: show a bar labelled `label` on `err` (a terminal).
  TransferWatch(std::ostream& err, bool draw, std::string label);
  ~TransferWatch() { Finish(); }

  // The hook to install in the object's options; it refers to this watch.
  halqvantor::Progress Hook();
  // Ends the bar's line, if one was drawn.
  void Finish();

  bool interrupted() const { return interrupted_; }
  // Set when the gateway closed early: the bytes that had come and the bytes expected.
  struct Closed {
    int64_t bytes = 0;
    int64_t expected = -1;
  };
  const std::optional<Closed>& closed_early() const { return closed_early_; }
  int64_t bytes() const { return bytes_; }

 private:
  bool Report(const halqvantor::ProgressInfo& info);
  void Draw(int64_t bytes, int64_t expected);

  std::ostream& err_;
  bool draw_;
  bool drawn_ = false;
  std::string label_;
  bool interrupted_ = false;
  std::optional<Closed> closed_early_;
  int64_t bytes_ = 0;
};

}  // namespace vantor
