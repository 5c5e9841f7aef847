// Next hops of the chip, shared by the hosts behind one neighbour.  On the worker, under the DPM
// lock.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_msg.h"    // the owners of the messages
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_nexthop_entry) == 44);
static_assert(offsetof(dpm_nexthop_entry, mac) == 16);
static_assert(offsetof(dpm_nexthop_entry, sdk_index) == 40);

int dpm_nexthop_compare(const dpm_nexthop_entry &a, const dpm_nexthop_entry &b);

// Takes a reference, creating the chip's object with the first: 0 and the index, or the driver's
// non-zero answer, or -1 when memory or the count ran out.  The reference is given back with the
// index: 0, or the driver's non-zero answer.
int dpm_nexthop_add(std::uint32_t port_type, std::uint32_t port_id, const std::uint8_t *mac,
                    std::uint32_t svlan, std::uint32_t cvlan, std::uint32_t *sdk_index,
                    std::uint32_t slot_bits);
int dpm_nexthop_del(std::uint32_t port_type, std::uint32_t port_id, const std::uint8_t *mac,
                    std::uint32_t svlan, std::uint32_t cvlan, std::uint32_t sdk_index,
                    std::uint32_t slot_bits);

// The first entry in table order with that index, or null.
dpm_nexthop_entry *dpm_nexthop_find_by_index(std::uint32_t sdk_index);

namespace dpm {

using nexthop_table = avl_table<dpm_nexthop_entry, dpm_nexthop_compare>;
nexthop_table nexthops();

// On a card that becomes master, tables only: nobody counts, each host does, and what none counts
// for goes.  False: the next hop of that index is the last that the master let go, so that its host was
// about to go as well.
void nexthops_uncount();
bool nexthop_count(std::uint32_t sdk_index);
void nexthops_drop_uncounted();

} // namespace dpm
