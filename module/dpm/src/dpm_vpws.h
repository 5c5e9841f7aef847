// Point-to-point pseudowires (VPWS): attachment circuits, ways out (vc_fib) and ways in (vc_ilm).  On
// the worker, under the DPM lock.
//
// The records are packed as the routing suite lays them out: their members are copied, never
// referred to.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_if.h"
#include "dpm_msg.h" // the owners of the messages
#include "dpm_pend.h"
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_vpws_acif) == 627);
static_assert(offsetof(dpm_vpws_acif, ifname) == 16 + 24);
static_assert(offsetof(dpm_vpws_acif, flags) == 16 + 88);
static_assert(offsetof(dpm_vpws_acif, vlans) == 16 + 92);
static_assert(sizeof(dpm_vpws_vc_fib) == 332);
static_assert(offsetof(dpm_vpws_vc_fib, vc_peer) == 24 + 60);
static_assert(offsetof(dpm_vpws_vc_fib, in_ifname) == 24 + 124);
static_assert(offsetof(dpm_vpws_vc_fib, flags) == 24 + 252);
static_assert(offsetof(dpm_vpws_vc_fib, sdk_result) == 24 + DPM_VPWS_VC_FIB_MSG_BYTES);
static_assert(offsetof(dpm_vpws_vc_fib, aps_id) == 328);
static_assert(sizeof(dpm_vpws_vc_ilm) == 242);
static_assert(offsetof(dpm_vpws_vc_ilm, in_ifname) == 24 + 16);
static_assert(offsetof(dpm_vpws_vc_ilm, vc_peer) == 24 + 176);
static_assert(offsetof(dpm_vpws_vc_ilm, flags) == 24 + 212);

// Orders of the tables: circuits by interface index, and by name where this card has no such
// interface; ways out and in by pseudowire and peer.
int dpm_vpws_acif_compile(const dpm_vpws_acif *a, const dpm_vpws_acif *b);
int dpm_vpws_vc_fib_compile(const dpm_vpws_vc_fib *a, const dpm_vpws_vc_fib *b);
int dpm_vpws_vc_ilm_compile(const dpm_vpws_vc_ilm *a, const dpm_vpws_vc_ilm *b);

// The entry with the key of a record, or null.
dpm_vpws_acif *dpm_vpws_acif_lookup(dpm_vpws_acif key);
dpm_vpws_vc_fib *dpm_vpws_vc_fib_lookup(dpm_vpws_vc_fib key);
dpm_vpws_vc_ilm *dpm_vpws_vc_ilm_lookup(dpm_vpws_vc_ilm key);

// Add a copy: the entry, also when its key was present, or null when memory has run out.  Delete
// and free: 0, or -1 for null.
dpm_vpws_acif *dpm_vpws_acif_add(dpm_vpws_acif record);
dpm_vpws_vc_fib *dpm_vpws_vc_fib_add(dpm_vpws_vc_fib record);
dpm_vpws_vc_ilm *dpm_vpws_vc_ilm_add(dpm_vpws_vc_ilm record);
int dpm_vpws_acif_del(dpm_vpws_acif *entry);
int dpm_vpws_vc_fib_del(dpm_vpws_vc_fib *entry);
int dpm_vpws_vc_ilm_del(dpm_vpws_vc_ilm *entry);

// The lists of those that wait to be programmed.  0 or -1; the lookups answer null.
int dpm_mpls_pend_vpws_vc_fib_add(dpm_vpws_vc_fib *entry);
int dpm_mpls_pend_vpws_vc_ilm_add(dpm_vpws_vc_ilm *entry);
int dpm_mpls_pend_vpws_vc_fib_del(dpm_vpws_vc_fib *entry);
int dpm_mpls_pend_vpws_vc_ilm_del(dpm_vpws_vc_ilm *entry);
dpm_vpws_vc_fib *dpm_mpls_pend_vpws_vc_fib_lookup(dpm_vpws_vc_fib key);
dpm_vpws_vc_ilm *dpm_mpls_pend_vpws_vc_ilm_lookup(dpm_vpws_vc_ilm key);

// Whether a request tells of a way out what it is already (0) or something new (1); -1 for null.
int dpm_vpws_vc_fib_same_or_update_compile(const dpm_vpws_vc_fib *entry,
                                           const dpm_vpws_vc_fib *image);

// The pw_index of the first way out of a pseudowire, in table order; 0 when there is none.
std::uint32_t dpm_vpws_get_pwid_by_vcid(std::uint32_t vc_id);

// Insertion of a mirrored image on the standby card; the entry, or null when memory has run out.
dpm_vpws_acif *dpm_vpws_acif_add_for_slave(dpm_vpws_acif image);
dpm_vpws_vc_fib *dpm_vpws_vc_fib_add_for_slave(dpm_vpws_vc_fib image);
dpm_vpws_vc_ilm *dpm_vpws_vc_ilm_add_for_slave(dpm_vpws_vc_ilm image);

namespace dpm {

inline int vpws_acif_order(const dpm_vpws_acif &a, const dpm_vpws_acif &b) {
    return dpm_vpws_acif_compile(&a, &b);
}
inline int vpws_vc_fib_order(const dpm_vpws_vc_fib &a, const dpm_vpws_vc_fib &b) {
    return dpm_vpws_vc_fib_compile(&a, &b);
}
inline int vpws_vc_ilm_order(const dpm_vpws_vc_ilm &a, const dpm_vpws_vc_ilm &b) {
    return dpm_vpws_vc_ilm_compile(&a, &b);
}

using vpws_acif_table = avl_table<dpm_vpws_acif, vpws_acif_order>;
using vpws_vc_fib_table = avl_table<dpm_vpws_vc_fib, vpws_vc_fib_order>;
using vpws_vc_ilm_table = avl_table<dpm_vpws_vc_ilm, vpws_vc_ilm_order>;

vpws_acif_table vpws_acifs();
vpws_vc_fib_table vpws_vc_fibs();
vpws_vc_ilm_table vpws_vc_ilms();
pend_list<dpm_vpws_vc_fib> pend_vpws_vc_fibs();
pend_list<dpm_vpws_vc_ilm> pend_vpws_vc_ilms();

// What pseudowires do when interfaces change.
extern const if_follower vpws_on_interfaces;

} // namespace dpm
