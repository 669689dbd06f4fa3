#pragma once

// The private side of clsVantor: the link session (slot, request state, result rows) and the state of each
// operation family, each in its own holder. The families reach their parts through SessionOf and their
// StateOf, which are defined here with the object; only the component's own sources and in-tree tests
// include this header.

#include "archive/archive_state.h"
#include "documents/document_files.h"
#include "halqvantor/Export.h"
#include "halqvantor/clsVantor.h"
#include "link/session.h"
#include "users/user_directory.h"

namespace halqvantor {

struct HALQVANTOR_HIDDEN clsVantor::Impl : LinkSession {
  explicit Impl(clsVantor& owner) : LinkSession(owner) {}
  // The private side of `object`.
  static Impl& Of(clsVantor& object) { return *object.impl_; }

  archive::ArchiveState archive_state;      // field records, hit list, text pieces
  documents::DocumentState document_state;  // the page context
  users::UserState user_state;              // the user database connection

  // The end of the object.
  void Terminate();
};

// Access to the private side for in-tree code: tests, the dispatch layer.
struct VantorAccess {
  static clsVantor::Impl& Of(clsVantor& object) { return clsVantor::Impl::Of(object); }
};

}  // namespace halqvantor
