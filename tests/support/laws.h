// What must hold of every card at every quiet point, whatever happened before.  Each function
// answers the differences, one line each; none: the law holds.  The card in question is made
// current by the function.
#pragma once

#include "chassis/chassis.h"

#include <string>
#include <vector>

namespace rig::laws {

using Lines = std::vector<std::string>;

// The chip holds an entry for each host that is not link-local, no other host's, and the next hops
// of the table; each next hop counts the hosts behind it, but for `leaks` references.
Lines chip_equals_tables(chassis::Card &card, unsigned leaks);

// The standby's records are the master's, but for what is card-local.
Lines standby_equals_master(chassis::Card &master, chassis::Card &standby);

// Whether the card mirrors its changes to a peer at present.
bool is_mirroring(chassis::Card &card);

// Every tree and list is sound, every index covers its table, every count is right, the timers are
// in order.
Lines tables_are_sound(chassis::Card &card);

// Live blocks are those that the tables and lists hold, beside those that were there at the start
// and `extra` ones.
Lines heap_is_explained(chassis::Card &card, std::size_t at_start, std::size_t extra);

std::uint64_t failed_checks(chassis::Card &card);

} // namespace rig::laws
