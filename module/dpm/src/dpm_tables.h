// The tables that are mirrored, in the order in which they travel to the standby card: an entry
// behind what it points to.  Start-up creates them from this list, and a slot that comes up is
// served in its order.
#pragma once

#include "dpm_api.h"

#include <cstdint>

// One row per table that is mirrored entry by entry; multicast groups travel in a way of
// their own.
//   table     what start-up and the slave-up process ask of it; its DPM_MIRRORED_TABLE defines it
//   record    what travels, byte for byte
//   add, del  send one entry; 0, -1 for null, or the transport's answer
//   all       programs a slot that came up and, when it is the peer card's, sends the table there
// clang-format off
#define DPM_TABLES(ROW)                                                                           \
    ROW(mirrored_nexthops, dpm_nexthop_entry,                                                     \
        dpm_nexthop_entry_add_sync_send, dpm_nexthop_entry_del_sync_send,                         \
        dpm_nexthop_entry_sync_all_send)                                                          \
    ROW(mirrored_hosts, dpm_host_entry,                                                           \
        dpm_host_entry_add_sync_send, dpm_host_entry_del_sync_send, dpm_host_entry_sync_all_send) \
    ROW(mirrored_tunnel_ports, dpm_tunnel_port_entry,                                             \
        dpm_tunnel_port_entry_add_sync_send, dpm_tunnel_port_entry_del_sync_send,                 \
        dpm_tunnel_port_entry_sync_all_send)                                                      \
    ROW(mirrored_tunnels, dpm_tunnel_entry,                                                       \
        dpm_tunnel_entry_add_sync_send, dpm_tunnel_entry_del_sync_send,                           \
        dpm_tunnel_entry_sync_all_send)                                                           \
    ROW(mirrored_groups, dpm_ecmp_entry,                                                          \
        dpm_ecmp_entry_add_sync_send, dpm_ecmp_entry_del_sync_send, dpm_ecmp_entry_sync_all_send) \
    ROW(mirrored_routes, dpm_route_entry,                                                         \
        dpm_route_entry_add_sync_send, dpm_route_entry_del_sync_send,                             \
        dpm_route_entry_sync_all_send)                                                            \
    ROW(mirrored_mpls_ifs, dpm_mpls_if,                                                           \
        dpm_mpls_if_add_sync_send, dpm_mpls_if_del_sync_send, dpm_mpls_if_sync_all_send)          \
    ROW(mirrored_ftns, dpm_ftn,                                                                   \
        dpm_mpls_ftn_add_sync_send, dpm_mpls_ftn_del_sync_send, dpm_mpls_ftn_sync_all_send)       \
    ROW(mirrored_ilms, dpm_ilm,                                                                   \
        dpm_mpls_ilm_add_sync_send, dpm_mpls_ilm_del_sync_send, dpm_mpls_ilm_sync_all_send)       \
    ROW(mirrored_vpws_acifs, dpm_vpws_acif,                                                       \
        dpm_vpws_acif_add_sync_send, dpm_vpws_acif_del_sync_send, dpm_vpws_sync_all_send)         \
    ROW(mirrored_vpws_vc_fibs, dpm_vpws_vc_fib,                                                   \
        dpm_vpws_vc_fib_add_sync_send, dpm_vpws_vc_fib_del_sync_send, dpm_vpws_sync_all_send)     \
    ROW(mirrored_vpws_vc_ilms, dpm_vpws_vc_ilm,                                                   \
        dpm_vpws_vc_ilm_add_sync_send, dpm_vpws_vc_ilm_del_sync_send, dpm_vpws_sync_all_send)     \
    ROW(mirrored_vpls_vsis, dpm_vpls_vsi,                                                         \
        dpm_vpls_vsi_add_sync_send, dpm_vpls_vsi_del_sync_send, dpm_vpls_vsi_sync_all_send)       \
    ROW(mirrored_vpls_acifs, dpm_vpls_acif,                                                       \
        dpm_vpls_acif_add_sync_send, dpm_vpls_acif_del_sync_send, dpm_vpls_acif_sync_all_send)    \
    ROW(mirrored_vpls_vc_fibs, dpm_vpls_vc_fib,                                                   \
        dpm_vpls_vc_fib_add_sync_send, dpm_vpls_vc_fib_del_sync_send, dpm_vpls_pw_sync_all_send)  \
    ROW(mirrored_vpls_vc_ilms, dpm_vpls_vc_ilm,                                                   \
        dpm_vpls_vc_ilm_add_sync_send, dpm_vpls_vc_ilm_del_sync_send, dpm_vpls_pw_sync_all_send)

// Those behind the multicast groups.
#define DPM_LAST_TABLES(ROW)                                                                      \
    ROW(mirrored_bfd_sessions, dpm_bfd_sess,                                                      \
        dpm_bfd_entry_add_sync_send, dpm_bfd_entry_del_sync_send, dpm_bfd_sync_all_send)
// clang-format on

namespace dpm {

// What a table does for those who know all tables.
struct mirrored {
    void (*create)(); // its trees, indexes and lists are made; at start-up
    int (*send_all)(std::uint32_t slot); // null: the table travels with one before it
    std::uint32_t (*drop_old)(); // what a sync has not renewed; at its end, on the standby card
};

#define DPM_ROW(table, record, add, del, all) extern const mirrored table;
DPM_TABLES(DPM_ROW)
DPM_LAST_TABLES(DPM_ROW)
#undef DPM_ROW
extern const mirrored mirrored_multicast;

} // namespace dpm

#define DPM_ROW(table, record, add, del, all)                                                      \
    int add(const record *entry);                                                                  \
    int del(const record *entry);                                                                  \
    int all(std::uint32_t slot);
DPM_TABLES(DPM_ROW)
DPM_LAST_TABLES(DPM_ROW)
#undef DPM_ROW
