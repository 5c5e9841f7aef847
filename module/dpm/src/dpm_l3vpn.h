// Label entries: FTN (prefix to labels) and ILM (incoming label).  On the worker, under the DPM
// lock.
//
// The records are packed as the routing suite lays them out: their members are copied, never
// referred to.
#pragma once

#include "dpm_address.h"
#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_destination.h"
#include "dpm_if.h"
#include "dpm_msg.h" // the owners of the messages
#include "dpm_pend.h"
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_ftn) == 140);
static_assert(offsetof(dpm_ftn, pend) == 16);
static_assert(offsetof(dpm_ftn, fec_prefix) == 32);
static_assert(offsetof(dpm_ftn, vrf_id) == 69);
static_assert(offsetof(dpm_ftn, flags) == 97);
static_assert(offsetof(dpm_ftn, stale) == 136);
static_assert(sizeof(dpm_ilm) == 199);
static_assert(offsetof(dpm_ilm, pend) == 16);
static_assert(offsetof(dpm_ilm, in_label) == 28);
static_assert(offsetof(dpm_ilm, out_ifname) == 81);
static_assert(offsetof(dpm_ilm, flags) == 167);
static_assert(offsetof(dpm_ilm, port_type) == 195);

// Orders of the tables: FTN by VRF, prefix length, tunnel next hop and FEC; ILM by incoming label.
int dpm_mpls_ftn_compare(const dpm_ftn *a, const dpm_ftn *b);
int dpm_mpls_ilm_compare(const dpm_ilm *a, const dpm_ilm *b);

// Two 16-byte address fields, byte by byte.
int dpm_fec_addr_cmp(const void *a, const void *b);

// The entry with the key of a record, or null.
dpm_ftn *dpm_mpls_ftn_lookup(dpm_ftn key);
dpm_ilm *dpm_mpls_ilm_lookup(dpm_ilm key);

// Add a copy: the entry, also when its key was present, or null when memory has run out.  Delete
// and free: 0, or -1 for null.
dpm_ftn *dpm_mpls_ftn_add(dpm_ftn record);
dpm_ilm *dpm_mpls_ilm_add(dpm_ilm record);
int dpm_mpls_ftn_del(dpm_ftn *entry);
int dpm_mpls_ilm_del(dpm_ilm *entry);

// The lists of entries that wait to be programmed.  0 or -1; the lookups answer null.
int dpm_mpls_pend_ftn_add(dpm_ftn *entry);
int dpm_mpls_pend_ilm_add(dpm_ilm *entry);
int dpm_mpls_pend_ftn_del(dpm_ftn *entry);
int dpm_mpls_pend_ilm_del(dpm_ilm *entry);
dpm_ftn *dpm_mpls_pend_ftn_lookup(dpm_ftn key);
dpm_ilm *dpm_mpls_pend_ilm_lookup(dpm_ilm key);

// The first tunnel FTN (VRF 0) in table order for an address of 16 bytes; 4 count for an IPv4 entry
// in the second.  Null when there is none.
dpm_ftn *dpm_mpls_ftn_get_by_fec(const std::uint8_t *address);
dpm_ftn *dpm_mpls_ftn_get_by_vpn_nhop(const std::uint8_t *address);

// The labels for an IPv4 address (network order) of a VRF, by exact host FTN or longest prefix.
int dpm_get_mpls_ftn_info(std::uint32_t vrf_id, std::uint32_t address, std::uint32_t *tunnel_label,
                          std::uint32_t *vpn_label, std::uint32_t *tunnel_nhop);

// The next hop (network order) and label for an IPv4 prefix (host order); 0, or -1 when there is
// none.
int dpm_mpls_ftn_tnl_nexthop_get(std::uint32_t vrf_id, std::uint32_t address,
                                 std::uint32_t prefix_len, std::uint32_t *tunnel_nhop,
                                 std::uint32_t *tunnel_label);

// What an incoming label leads to.  The outputs tell whether there is such an entry, the result
// does not.
int dpm_ilm_info_get_by_lbl(std::uint32_t in_label, std::uint32_t *out_ifindex,
                            std::uint32_t *tunnel_nhop, std::uint32_t *swap_label,
                            std::uint32_t *vrf_id);

// The exact IPv4 FTN; both addresses are four bytes.
dpm_ftn *dpm_mpls_ftn_table_get(std::uint32_t vrf_id, const std::uint8_t *fec,
                                std::uint32_t prefix_len, const std::uint8_t *tunnel_nhop);

namespace dpm {

// The label path to an IPv4 host (four bytes) that is in the chip, other than the one over the next
// hop `but` (null: none; 16 bytes); the one that the chip knows as `nhid` before others.  Null when
// there is none.
const dpm_ftn *label_path_to(const std::uint8_t *host, const std::uint8_t *but, std::uint32_t nhid);

} // namespace dpm

// Netmask of a length in network order; 0 for a length above 32.
std::uint32_t dpm_get_netmask_addr(std::uint32_t prefix_len);

// Insertion of a mirrored image on the standby card; the entry, or null when memory has run out.
dpm_ftn *dpm_mpls_ftn_add_for_salve(dpm_ftn image);
dpm_ilm *dpm_mpls_ilm_add_for_slave(dpm_ilm image);

// Events: a neighbour came or goes (a dependant of the host table), all in all, for the one or the
// other, and for VPN routes alone.  0 or -1.
int dpm_mpls_ftn_arp_pro(const dpm_host_entry *host, std::uint32_t event);
int dpm_mpls_arp_add_msg(const dpm_host_entry *host);
int dpm_mpls_arp_del_msg(const dpm_host_entry *host);
int dpm_mpls_vpn_ftn_proc_for_arp(std::uint32_t event, const dpm_host_entry *host);

// At start-up: labels of maintenance packets need nothing of the chip; 0.
int dpm_mpls_oam_ipuc_ilm_enable();

namespace dpm {

inline int ftn_order(const dpm_ftn &a, const dpm_ftn &b) {
    if (a.vrf_id != b.vrf_id)
        return a.vrf_id < b.vrf_id ? -1 : 1;
    if (a.prefixlen != b.prefixlen)
        return a.prefixlen < b.prefixlen ? -1 : 1;
    if (const int order = bytes16_order(a.tunnel_nhop, b.tunnel_nhop))
        return order;
    if (const int order = bytes16_order(a.fec_prefix, b.fec_prefix))
        return order;
    return a.ip_type < b.ip_type ? -1 : a.ip_type > b.ip_type; // 0.0.0.0/0 is not ::/0
}
inline int ilm_order(const dpm_ilm &a, const dpm_ilm &b) {
    return a.in_label < b.in_label ? -1 : a.in_label > b.in_label;
}
using ftn_table = avl_table<dpm_ftn, ftn_order>;
using ilm_table = avl_table<dpm_ilm, ilm_order>;

ftn_table ftns();
ilm_table ilms();

// The lists of those that wait.
pend_list<dpm_ftn> pend_ftns();
pend_list<dpm_ilm> pend_ilms();

// Addresses as they are kept: four bytes of an IPv4 address, the rest zero.
void trim(dpm_ftn &image);

// What stands beside an entry: the sync that brought it (dpm_mirror.h).
std::uint32_t &label_sync_of(dpm_ftn &entry);
std::uint32_t &label_sync_of(dpm_ilm &entry);

void ftn_tables_create();
void ilm_tables_create();

// On a card that becomes master: entries whose neighbours came just before are programmed.
void labels_ask();

// What label entries do when interfaces change.
extern const if_follower labels_on_interfaces;

// What label entries do as holders of destinations.
extern const destination_owner label_owner;

} // namespace dpm
