// The interfaces that the routing suite has announced, as its own threads know them: the worker may
// not have come to a request yet when the next one asks for its interface.
//
// Under a lock of its own, which is never held while something else is called out for: a caller may
// hold a lock of the suite's that the worker waits for.  Any thread.
#pragma once

#include "dpm_if.h"
#include "dpm_memory.h"

#include <optional>

namespace dpm {

struct announced_if {
    list_head link;
    std::uint32_t ifindex;
    std::uint32_t if_type;
    std::uint16_t vlan;
    char ifname[DPM_IFNAME_BYTES];
};

// Nothing is announced yet; at start-up, before any other thread enters.
void if_announced_init();

// The first announcement of a name counts: of a later one the block is given back, and false is
// the answer.
bool if_announced(block<announced_if> &entry);
void if_withdrawn(const char *ifname);

// The VLAN of a VLAN's or super-VLAN's interface; 0, told in the log, for any other index.
std::uint32_t announced_vlan(std::uint32_t ifindex);

// How many there are: one block each, for who accounts for memory.
std::size_t if_announced_count();

} // namespace dpm
