// What must hold of every card at every quiet point, whatever happened before.  Each function
// answers the differences, one line each; none: the law holds.  The card in question is made
// current by the function.
//
// What can be told from outside is told by the tables' descriptions, of standby and master as well
// (chassis/tables).  Here is what looks into the library.
#pragma once

#include "chassis/chassis.h"

#include <string>
#include <vector>

namespace rig {

struct Exceptions;

namespace laws {

using Lines = std::vector<std::string>;

// The law of the descriptions (chassis/tables/law.h), but for what a test states: objects that
// count more users than they have, and routes that a refusal set adrift.
Lines chip_equals_tables(chassis::Card &card, const Exceptions &stated);

// Routes point to what the host table resolves their gateways to, and remember what the chip has of
// them.
Lines routes_follow_hosts(chassis::Card &card, bool adrift);

// Whether the card mirrors its changes to a peer at present.
bool is_mirroring(chassis::Card &card);

// Every tree and list is sound, every index covers its table, every count is right, the timers are
// in order.
Lines tables_are_sound(chassis::Card &card);

// Live blocks are those that the tables and lists hold, beside those that were there at the start
// and `extra` ones.
Lines heap_is_explained(chassis::Card &card, std::size_t at_start, std::size_t extra);

std::uint64_t failed_checks(chassis::Card &card);

} // namespace laws
} // namespace rig
