// A label entry in the chip: asked for, taken out, waiting, with the neighbour that it leads to.
// For the sources of the label tables alone.
#pragma once

#include "dpm_host.h"
#include "dpm_l3vpn_record.h"

// Withdraw an entry that is about to be told anew; the driver's answer.  Flags are the caller's.
int dpm_mpls_tunnel_update(const dpm_ftn *ftn);
int dpm_mpls_ilm_update_for_del(const dpm_ilm *ilm);

// Label entries in use, of all kinds, for `what` 12; 0 for any other.
std::uint32_t dpm_mpls_vpn_item_check(std::uint32_t what);

namespace dpm {

// Whether one more label entry has room; logs when it has not.
bool has_label_room();

// The neighbour of an entry: a host with that address on an interface; null when there is none.
const dpm_host_entry *find_label_neighbour(std::uint32_t vrf, std::uint32_t family,
                                           const std::uint8_t *nexthop, std::uint32_t ifindex);

// The following stand for dpm_ftn and dpm_ilm.

// The entry leads to this neighbour.
template <class Entry> void take_neighbour(Entry &entry, const dpm_host_entry &host);

// Asks the chip for an entry as it stands.  One that is programmed waits no more; one that is
// refused is as before, without ids.  The driver's answer, which the entry keeps.
template <class Entry> int label_program(Entry &entry);

// The same over a neighbour that came: what it gives is kept only when the chip took the entry.
template <class Entry> int label_program_over(Entry &entry, const dpm_host_entry &host);

// The entry keeps the answer to its withdrawal, and the result: on 0 it is out of the chip, else as
// it was.
template <class Entry> int label_withdrawn(Entry &entry, int result);

// An entry waits from now on, or still.
template <class Entry> void label_wait(Entry &entry);

// Whether a tunnel in the chip has this prefix, beside `but`; the one that a VPN route rides on.
bool has_programmed_tunnel(std::uint32_t family, const std::uint8_t *end, std::uint32_t length,
                           const dpm_ftn *but);
bool is_carried(const dpm_ftn &vpn);

} // namespace dpm
