#pragma once

// Reception of a string-mode reply, as plain functions over the bytes of one packet, so that the framing
// can be exercised without a network. The reply starts with the header "TotalBytes:" + decimal length +
// CR LF at the very start of its first packet; the header does not count towards BytesReceived. Counts are
// raw bytes; the payload is added to Response as UTF-8 (each received byte one Windows-1252 character).

#include <string_view>

#include "link/frm_comm.h"

namespace halqvantor {

// True when the packet begins with "TotalBytes:", that is, it is the first packet of a reply.
bool IsFirstPacket(std::string_view packet);

// First packet: BytesToReceive = the length in the header, BytesReceived = the bytes after the header's
// CR LF, Response = those bytes (replacing the old one). Raises 5 when no CR LF follows the keyword, 13 when
// the length is not a number, 6 when it does not fit 32 bits. The slot is unchanged when it raises.
void ReceiveFirstPacket(SlotState& slot, std::string_view packet);

// Following packet: BytesReceived grows by the packet's size (6 on 32-bit overflow, the slot unchanged),
// Response by its text.
void ReceiveNextPacket(SlotState& slot, std::string_view packet);

}  // namespace halqvantor
