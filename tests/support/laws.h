// What must hold of every card at every quiet point, whatever happened before.  Each function
// answers the differences, one line each; none: the law holds.  The card in question is made
// current by the function.
#pragma once

#include "chassis/chassis.h"

#include <string>
#include <vector>

namespace rig::laws {

using Lines = std::vector<std::string>;

// The chip holds an entry for each host that is not link-local and for each route that is said to
// be there, no others, and the next hops of the table; each next hop counts the hosts behind it,
// but for `leaks` references.
Lines chip_equals_tables(chassis::Card &card, unsigned leaks);

// Groups are in the chip as they are in the table, each route over one has its own, and all but
// `group_leaks` have a route; the CPU default is off exactly where a default route stands.  Unless
// a refusal set them adrift, routes point to what the host table resolves their gateways to, and
// stand in the chip so, but for those that a label entry stands for.
Lines routes_follow_hosts(chassis::Card &card, unsigned group_leaks, bool adrift);

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
