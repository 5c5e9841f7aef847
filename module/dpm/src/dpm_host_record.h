// What stands beside each host, card-locally: what a delete that stands half done has left of it.
// For the sources of the host table alone.
#pragma once

#include "dpm_host.h"
#include "dpm_memory.h"

struct host_record {
    dpm_host_entry entry; // first: the tables see this alone
    bool in_chip;         // false for link-local hosts, and while a delete stands half done
    bool is_announced;    // false while its dependants have heard that it goes
    bool is_leaving;      // its interface has gone, or moved, and the chip kept it
    std::uint32_t sync;   // that brought it
};

inline host_record &record_of(dpm_host_entry &entry) {
    return reinterpret_cast<host_record &>(entry);
}
inline const host_record &record_of(const dpm_host_entry &entry) {
    return reinterpret_cast<const host_record &>(entry);
}

namespace dpm {

// Put a host's entry into, or take it out of, the tree of its family.
void link_host(dpm_host_entry &host);
void unlink_host(dpm_host_entry &host);

// Put a host's entry into the chip, or take it out; 0, or the driver's answer.
int program_host(const dpm_host_entry &host, std::uint32_t slot_bits);
int withdraw_host(const dpm_host_entry &host);

// The host of a global IPv6 address on another interface of its VRF than it is reported on now;
// null when there is none.
dpm_host_entry *moved_host(const dpm_host_entry &reported);

// Frees a host that is not, or no longer, linked.
void free_host(dpm_host_entry &host);

} // namespace dpm
