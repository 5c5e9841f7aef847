// Next hops for management readers, who walk and print them from threads of their own.
#include "dpm_nexthop.h"

#include "dpm_locks.h"

#include <cstdio>

const dpm_nexthop_entry *dpm_api_get_nexthop_entry_first() {
    return dpm::nexthops().first();
}

const dpm_nexthop_entry *dpm_api_get_nexthop_entry_next(const dpm_nexthop_entry *entry) {
    return entry != nullptr ? dpm::nexthops().next(*entry) : nullptr;
}

void dpm_nexthop_show() {
    const dpm::dpm_lock lock;
    for (const dpm_nexthop_entry &entry : dpm::nexthops())
        std::printf(
            "\n\r nexthop entry cnt %d port_type %d port_id %x         svlan %d cvlan %d mac %x.%x.%x.%x.%x.%x sdk_index %d \n\r",
            entry.cnt, entry.port_type, entry.port_id, entry.svlan, entry.cvlan, entry.mac[0],
            entry.mac[1], entry.mac[2], entry.mac[3], entry.mac[4], entry.mac[5], entry.sdk_index);
}
