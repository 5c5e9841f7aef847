// What the peer of a BFD session does, which the chip notices and reports.
#pragma once

#include "chassis/chip/chip.h"

#include <string>

namespace chassis::chip {

// The peer's packets arrive, with its discriminator; or they arrive no more, which a chip notices
// that checks continuity.  On the current card.  Why nothing was reported; empty: it was.
std::string bfd_peer_talks(Chip &chip, std::uint32_t local_disc, std::uint32_t remote_disc);
std::string bfd_peer_is_lost(Chip &chip, std::uint32_t local_disc);

} // namespace chassis::chip
