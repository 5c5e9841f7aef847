// A route's entry in the chip, and what keeps it equal to what the route points at.  For the
// sources of the route table alone.
#pragma once

#include "dpm_route_record.h"
#include "dpm_trace.h"

namespace dpm {

// Puts a route that points somewhere into the chip, unless it gives way.  A default route takes the
// CPU's place first.  0, or the driver's answer: then the CPU default is
// the caller's to restore.
int program_route(route_record &record, const call_site &caller);

// Takes what the chip holds of a route out of it.  0, or the driver's answer.
int withdraw_route(route_record &record, const call_site &caller);

// Takes it out for an owner that tells of a refusal itself; what the chip does not know has gone.  0,
// or the driver's answer.
int lose_chip_entry(route_record &record);

// Puts it in again behind an owner that has gone.  0, or the driver's answer.
int restore_chip_entry(route_record &record, const call_site &caller);

// What no entry matches goes to the CPU again, now that a default route is not programmed, unless
// another one is.
void restore_cpu_default(const dpm_route_entry &route);

// The chip refused a route: it stays in the table as one that points nowhere.
void unresolve(dpm_route_entry &route);

// The chip refused every member of a route's group: nothing may point to it, and the gateways wait.
void leave_empty_group(dpm_route_entry &route);

// Looks for the hosts of the gateways that a route waits for, and asks for those that are not
// there.
void ask_for_gateways(dpm_route_entry &route);

// On a card that becomes master, tables only: gateways lead to the hosts that are here, and the group
// has these as members.  False: the route's group has gone, or has no member left.
bool recount_gateways(dpm_route_entry &route);

// What the chip holds of a route that another card has programmed.
void adopt_chip_entry(route_record &record);

// Programs a slot that came up with what the chip holds of a route.
void reprogram_route(const dpm_route_entry &route, std::uint32_t slot_bits);

} // namespace dpm
