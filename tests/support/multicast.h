// Multicast in tests: the command of hosts, and the laws of membership.
//
//   hear PORT VLAN   KIND GROUP [SOURCE]...   a host's report comes in on a port, as a whole frame
//       KIND: join leave is-in is-ex to-in to-ex allow block
#pragma once

#include "support/laws.h"
#include "support/shelf.h"

namespace rig::multicast {

bool is_command(const Words &words);
bool act(Shelf &shelf, const Words &words); // false when the library refused

// A source of any sender, from the first of these VLANs to all of them.
dpm_ipmc_request request_of(const Card &card, const std::string &group, unsigned first_vlan,
                            unsigned last_vlan);

// Counts, links back, timers; and on the master, if it `follows`: a port is a member of a source on
// a VLAN exactly if its filter passes the source, but for those that a switch-over left without a
// filter.
laws::Lines is_sound(chassis::Card &card, bool follows);

// The chip of a card holds what its tables say, and perhaps more.
laws::Lines chip_holds_tables(chassis::Card &card);

// Takes away what was installed and reported.
void clear(Shelf &shelf);

std::size_t blocks(); // of the current card, but for those that have a row in a mirrored table

} // namespace rig::multicast
