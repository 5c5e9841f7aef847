// The global context: all that the tables share.
//
// Built once by dpm_main_init, on the start-up thread; from then on changed under the DPM lock: by
// the worker, and the card's settings (VRFs, hash mode, MAC) also by the threads that set them.
// slave_up, the locks and the queue are read by other threads without it.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_state.h"
#include "dpm_timer.h"
#include "platform/bep.h"

#include <cstddef>
#include <cstdint>

inline constexpr std::uint32_t DPM_VRF_COUNT = 256; // VRF ids that can be enabled

struct dpm_global {
    std::uint32_t module_id; // handle for the log; 0 until the module is registered
    std::uint8_t device_mac[DPM_MAC_BYTES];
    std::uint16_t if_count; // entries of if_list
    std::uint32_t slave_up; // 1: the tables are mirrored to the peer card
    list_head if_list;      // dpm_if_entry
    list_head notify_list;  // callbacks told about hosts, in order of registration
    list_head spare_list;
    list_head unreachable_list; // dpm_unreachable_entry
    list_head hold_list;        // dpm_hold_entry
    std::uint32_t hold_count;   // entries of hold_list
    dpm_avl_tree ecmp_ipv4_tree;
    dpm_avl_tree ecmp_ipv6_tree;
    dpm_avl_tree host_ipv4_tree;
    dpm_avl_tree host_ipv6_tree;
    dpm_avl_tree route_ipv4_tree;
    dpm_avl_tree route_ipv6_tree;
    dpm_avl_tree bfd_tree;
    dpm_avl_tree nexthop_tree;
    dpm_avl_tree tunnel_tree;
    dpm_avl_tree tunnel_port_tree;
    dpm_avl_tree policy_route_tree;
    dpm_timer_list *timer_list; // null when it could not be had: then nothing is timed
    bep_sem dpm_sem;
    bep_sem nsm_sem;
    bep_sem bfd_sem;
    bep_sem slot_up_sem;
    bep_msgq queue;                        // the worker runs while there is one
    std::uint8_t vrf_state[DPM_VRF_COUNT]; // 0 never set, DPM_ENABLE, DPM_DISABLE
    std::uint32_t ecmp_hash;               // hash mode last given to the chip
    dpm_timer_node peer_timer;             // looks whether the standby card is still usable
    std::uint32_t reserved;
};
static_assert(sizeof(dpm_global) == 600);
static_assert(offsetof(dpm_global, if_list) == 16);
static_assert(offsetof(dpm_global, hold_count) == 56);
static_assert(offsetof(dpm_global, ecmp_ipv4_tree) == 60);
static_assert(offsetof(dpm_global, timer_list) == 280);
static_assert(offsetof(dpm_global, vrf_state) == 304);
static_assert(offsetof(dpm_global, peer_timer) == 564);

extern DPM_STATE dpm_global g_dpm_global;

// Card-local indexes beside the tables: they make a search by something that is not a table's key
// cheap, yield the table's own order, and are never mirrored.
struct dpm_route_index {
    dpm_avl_tree by_gateway;          // route_gateway
    struct route_record **by_network; // heads of a hash table's chains; null before the first route
    dpm_avl_tree unmasked;            // routes that are stored with host bits set
    std::uint32_t of_length[129];     // routes of each prefix length, in all VRFs
};

// A group that is in the chip alone; none: an index of 0.
struct dpm_kept_group {
    std::uint32_t ecmp_type;
    std::int32_t sdk_index;
};

// A GRE object that the chip alone has: a next hop by its id, or a tunnel (id 0) by its values.
struct dpm_kept_gre {
    std::uint32_t is_used; // 0: a free place
    std::uint32_t nexthop;
    std::uint32_t vrf;
    std::uint8_t source[4], destination[4];
    std::uint32_t key_enable, key, checksum;
};

struct dpm_index {
    dpm_avl_tree unreachable_by_address;
    dpm_avl_tree hold_by_address;
    dpm_avl_tree nexthop_by_sdk_index;
    dpm_avl_tree policy_route_by_next_hop;
    dpm_avl_tree bfd_by_next_hop;
    dpm_avl_tree tunnel_by_ends;
    dpm_avl_tree route_by_tunnel;
    dpm_avl_tree ftn_by_end;
    dpm_avl_tree ftn_by_nexthop;
    dpm_avl_tree ftn_waiting;
    dpm_avl_tree ilm_by_nexthop;
    dpm_avl_tree ilm_waiting;
    dpm_avl_tree vpws_acif_by_vc;
    dpm_avl_tree vpws_acif_by_port;
    dpm_avl_tree vpws_vc_fib_by_peer;
    dpm_avl_tree vpws_vc_fib_by_circuit;
    dpm_avl_tree vpls_acif_by_vsi;
    dpm_avl_tree vpls_acif_by_port;
    dpm_avl_tree vpls_vc_fib_by_peer;
    std::uint64_t label_waits; // label entries that came to wait so far
    dpm_route_index ipv4_routes;
    dpm_route_index ipv6_routes;
    std::uint32_t hash_seed;
    std::uint32_t nexthop_gone; // the chip's index of the last next hop that the master let go
    std::int32_t group_gone;    // and of the last group
    // What the chip refused, each with the timer that tries it again.
    dpm_timer_node leaving_timer;         // hosts whose interface has gone, or moved
    dpm_timer_node cpu_default_timer;     // defaults of the CPU that it did not switch:
    std::uint8_t cpu_default_due[2][256]; // by family and VRF
    dpm_timer_node kept_group_timer;      // groups without a record that it kept
    dpm_kept_group kept_groups[32];       // more are forgotten
    dpm_timer_node kept_gre_timer;        // GRE objects of no tunnel, and what leads to them:
    dpm_kept_gre kept_gre[64];            // more are forgotten
    dpm_timer_node vpws_timer;            // pseudowires, and their circuits without a port:
    dpm_timer_node vpls_timer;            // of its coming no event tells; the same of bridges
    dpm_timer_node left_port_timer;       // ports without GRE next hops on which it goes on looking
};

extern DPM_STATE dpm_index g_dpm_index;
