#pragma once

// The private side of clsVantor. Operation families keep their own state in small structs held here; their
// member functions are defined in the sources of those families.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/clsVantor.h"
#include "platform/database.h"

namespace halqvantor {

class frmComm;

struct clsVantor::Impl {
  explicit Impl(clsVantor& owner);

  clsVantor& self;  // the public side: the properties
  frmComm& form;    // the slot table of the thread that created the object

  int32_t SlotIndex = 0;        // connection slot taken by Init; 0 before Init
  bool RequestPending = false;  // a request exchange is under way
  std::string LineBreak;        // CR LF

  // Rows of the last list request, shared by all ...Next operations.
  std::vector<std::string> ResultRows;
  int32_t ResultCount = 0;
  int32_t ResultCursor = 0;

  // The user database connection: created (closed) by Init, opened there when asked, closed at the end.
  std::unique_ptr<platform::Connection> DBConnection;

  std::shared_ptr<ScriptingContext> context;  // kept by OnStartPage
  std::shared_ptr<PageRequest> request;       // its Request object

  // One line of the object's debug log (strDebugLogPath, strSessionID as they are now).
  void WriteLog(std::string_view text) const;
  // The end of the object.
  void Terminate();
};

// Access to the private side for in-tree code: tests, the dispatch layer.
struct VantorAccess {
  static clsVantor::Impl& Of(clsVantor& object) { return *object.impl_; }
};

}  // namespace halqvantor
