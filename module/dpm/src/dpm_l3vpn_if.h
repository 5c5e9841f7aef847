// MPLS interfaces: the IP interfaces that take packets with labels.  On the worker, under the DPM
// lock.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_if.h"
#include "dpm_msg.h"    // the owners of the messages
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_mpls_if_msg) == 76);
static_assert(offsetof(dpm_mpls_if_msg, label_space) == 68);
static_assert(sizeof(dpm_mpls_if) == 100);
static_assert(offsetof(dpm_mpls_if, ifname) == 20);
static_assert(offsetof(dpm_mpls_if, vlan_id) == 92);
static_assert(offsetof(dpm_mpls_if, sdk_result) == 96);

// Order of the table: the interface index; by name where this card has no such interface.
int dpm_mpls_if_compile(const dpm_mpls_if *a, const dpm_mpls_if *b);

// The entry with the key of a record, or null.
dpm_mpls_if *dpm_mpls_if_lookup(dpm_mpls_if key);

// Adds a copy: the entry, also when its key was present, or null when memory has run out.  Delete
// and free: 0, or -1 for null.
dpm_mpls_if *dpm_mpls_if_add(dpm_mpls_if record);
int dpm_mpls_if_del(dpm_mpls_if *entry);

namespace dpm {

inline int mpls_if_order(const dpm_mpls_if &a, const dpm_mpls_if &b) {
    return dpm_mpls_if_compile(&a, &b);
}
using mpls_if_table = avl_table<dpm_mpls_if, mpls_if_order>;
mpls_if_table mpls_ifs();

extern const if_follower mpls_ifs_on_interfaces;

} // namespace dpm
