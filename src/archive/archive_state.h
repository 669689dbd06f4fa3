#pragma once

// What the archive operations keep between calls, held by the object: the field records of the last
// archive description, the hit list of the last query, and the text pieces of the last segment text or
// notes read (each read replaces the other; they survive other requests).

#include <cstdint>
#include <string>
#include <vector>

#include "archive/description.h"
#include "archive/query.h"
#include "halqvantor/Variant.h"
#include "halqvantor/clsVantor.h"

namespace halqvantor::archive {

struct TextPieceList {
  std::vector<std::string> Pieces;
  int32_t Cursor = 0;  // index of the next piece to hand out
  // The next piece, or "" when all have been handed out.
  Variant Next();
};

struct ArchiveState {
  DescriptionState description;
  HitListState hits;
  TextPieceList TextPieces;
};

// The archive state of `object` (defined with the object's private side).
ArchiveState& StateOf(clsVantor& object);

}  // namespace halqvantor::archive
