// Multicast groups: what is forwarded, and what ports have reported.  On the worker, under the DPM
// lock.
//
// Two pairs of trees, each an IPv4 and an IPv6 one.  The forwarding groups come from the routing
// suite: sources with outgoing VLANs.  The reported groups come from IGMP and MLD: ports with source
// filters, by VLAN.  Where a port's filter passes a source, the port is a member of the source's
// outgoing VLAN, here and in the chip.
#pragma once

#include "dpm_address.h"
#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_if.h"
#include "dpm_ipmc_driver.h"
#include "dpm_ipmc_global.h"
#include "dpm_list.h"
#include "dpm_memory.h"
#include "dpm_msg.h" // the owners of the messages
#include "dpm_tables.h"
#include "platform/uv.h"

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_ipmc_rx_group) == 52);
static_assert(offsetof(dpm_ipmc_rx_group, ports) == 40);
static_assert(sizeof(dpm_ipmc_rx_port) == 216);
static_assert(offsetof(dpm_ipmc_rx_port, src_cnt) == 172);
static_assert(offsetof(dpm_ipmc_rx_port, phy) == 180);
static_assert(offsetof(dpm_ipmc_rx_port, timer) == 184);
static_assert(sizeof(dpm_ipmc_request) == 308);

// Hosts can be hostile: no more is learnt from them, both families together.
inline constexpr std::uint32_t DPM_IPMC_RX_GROUPS = 8192;
inline constexpr std::uint32_t DPM_IPMC_RX_PORTS = 32768;

// Orders of the trees: VRF or VLAN, then the group.
inline int dpm_ipmc_ipv4_compare(const dpm_ipmc_group &a, const dpm_ipmc_group &b) {
    return a.vrf != b.vrf ? dpm::three_way(a.vrf, b.vrf) : dpm_prefix_compare(a.group, b.group);
}
inline int dpm_ipmc_ipv6_compare(const dpm_ipmc_group &a, const dpm_ipmc_group &b) {
    return dpm_ipmc_ipv4_compare(a, b);
}
inline int dpm_ipmc_ipv4_rx_compare(const dpm_ipmc_rx_group &a, const dpm_ipmc_rx_group &b) {
    return a.vlan != b.vlan ? dpm::three_way(a.vlan, b.vlan) : dpm_prefix_compare(a.group, b.group);
}
inline int dpm_ipmc_ipv6_rx_compare(const dpm_ipmc_rx_group &a, const dpm_ipmc_rx_group &b) {
    return dpm_ipmc_ipv4_rx_compare(a, b);
}

// Lookups; null when there is none.
dpm_ipmc_source *dpm_ipmc_group_src_find(dpm_ipmc_group *group, const dpm_prefix *source);
dpm_ipmc_out_vlan *dpm_ipmc_gourp_outvlan_find(dpm_ipmc_source *source, std::uint32_t vlan);
dpm_ipmc_member *dpm_ipmc_gourp_phy_find(dpm_ipmc_out_vlan *out, std::uint32_t phy);
dpm_ipmc_rx_port *dpm_ipmc_rx_find_phy(dpm_ipmc_rx_group *group, std::uint32_t phy);

// An outgoing VLAN comes with the ports whose filters pass the source, or goes with its members.
// 0; the VLAN's record belongs to the source, or is freed.
int dpm_ipmc_group_add_member(dpm_ipmc_group *group, dpm_ipmc_source *source,
                              dpm_ipmc_out_vlan *out);
int dpm_ipmc_group_del_member(dpm_ipmc_group *group, dpm_ipmc_source *source,
                              dpm_ipmc_out_vlan *out);

// A port wants a source, or every source (null), of a group on a VLAN, or wants it no more.  0.
int dpm_ipmc_entry_add_phy_member(std::uint32_t vrf, const dpm_prefix *group,
                                  const dpm_prefix *source, std::uint32_t vlan,
                                  std::uint16_t inner_vlan, std::uint32_t phy);
int dpm_ipmc_entry_del_phy_member(std::uint32_t vrf, const dpm_prefix *group,
                                  const dpm_prefix *source, std::uint32_t vlan,
                                  std::uint16_t inner_vlan, std::uint32_t phy);

// What a port reports.  0, or -1 for another family, where there is nothing that the report could
// refer to, and when it cannot be kept.  At most DPM_IPMC_SOURCES sources.
int dpm_ipmc_join_group(const dpm_prefix *group, const uv_rx_descriptor *from);
int dpm_ipmc_leave_group(const dpm_prefix *group, const uv_rx_descriptor *from);
int dpm_ipmc_restart_group(const dpm_prefix *group, const dpm_prefix *sources, std::uint32_t count,
                           std::uint32_t mode, const uv_rx_descriptor *from);
int dpm_ipmc_exchange_to_include(const dpm_prefix *group, const dpm_prefix *sources,
                                 std::uint32_t count, const uv_rx_descriptor *from);
int dpm_ipmc_exchange_to_exclude(const dpm_prefix *group, const dpm_prefix *sources,
                                 std::uint32_t count, const uv_rx_descriptor *from);
int dpm_ipmc_new_src(const dpm_prefix *group, const dpm_prefix *sources, std::uint32_t count,
                     const uv_rx_descriptor *from);
int dpm_ipmc_block_src(const dpm_prefix *group, const dpm_prefix *sources, std::uint32_t count,
                       const uv_rx_descriptor *from);

// Ends of timers: of a port (its dpm_ipmc_rx_port), of a member (its dpm_ipmc_member).
int dpm_ipmc_rx_phyport_timeout(std::uintptr_t port, std::uintptr_t, std::uintptr_t);
int dpm_ipmc_member_phyport_timeout(std::uintptr_t member, std::uintptr_t, std::uintptr_t);

// This card became master: members that no filter stands behind end unless they are reported again.
int dpm_ipmc_slave_to_master_pro();

// The groups, or all that there is, to the standby card; another slot gets nothing.  0.
int dpm_ipmc_group_sync_all_send();
int dpm_ipmc_sync_all_send(std::uint32_t slot);

namespace dpm {

using ipmc_group_table = avl_table<dpm_ipmc_group, dpm_ipmc_ipv4_compare>;
using ipmc_rx_table = avl_table<dpm_ipmc_rx_group, dpm_ipmc_ipv4_rx_compare>;
using ipmc_sources = list_view<dpm_ipmc_source, &dpm_ipmc_source::link>;
using ipmc_members = list_view<dpm_ipmc_member, &dpm_ipmc_member::link>;
using ipmc_rx_ports = list_view<dpm_ipmc_rx_port, &dpm_ipmc_rx_port::link>;

inline constexpr std::uint32_t ipmc_families[] = {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6};

// The trees of a known family.  Both orders are one, so either view serves both.
ipmc_group_table ipmc_groups(std::uint32_t family);
ipmc_rx_table ipmc_rx_groups(std::uint32_t family);
void create_ipmc_trees();

dpm_ipmc_group *find_ipmc_group(std::uint32_t vrf, const dpm_prefix &group);
dpm_ipmc_rx_group *find_ipmc_rx_group(std::uint32_t vlan, const dpm_prefix &group);

// Two absent sources are one.
bool is_same_source(const dpm_prefix &a, const dpm_prefix &b);
bool is_in_filter(const dpm_ipmc_rx_port &port, const dpm_prefix &source);
bool passes_filter(const dpm_ipmc_rx_port &port, const dpm_prefix &source);

// Calls `visit(group, source)` for every source; the body may end it.
template <class Visit> void each_ipmc_source(Visit visit) {
    for (const std::uint32_t family : ipmc_families)
        for (dpm_ipmc_group &group : ipmc_groups(family).erasable()) {
            const ipmc_sources sources(group.sources);
            // the group goes with its last source
            for (dpm_ipmc_source *at = sources.first(), *next; at != nullptr; at = next) {
                next = sources.next(*at);
                visit(group, *at);
            }
        }
}

// Calls `visit(member)` for every member of a source; the body may end it and its VLAN.
template <class Visit> void each_ipmc_member(dpm_ipmc_source &source, Visit visit) {
    for (dpm_ipmc_out_vlan *out : source.out) {
        if (out == nullptr)
            continue;
        const ipmc_members members(out->members);
        for (dpm_ipmc_member *at = members.first(), *next; at != nullptr; at = next) {
            next = members.next(*at);
            visit(*at);
        }
    }
}

// Group membership interval of a VLAN; never below 0.
std::uint32_t membership_interval_sec(std::uint32_t family, std::uint32_t vlan);

// Records come and go, in the tables alone.  Those that make answer null without memory, those that
// free stop the timer first.
dpm_ipmc_group *get_ipmc_group(std::uint32_t vrf, const dpm_prefix &group); // found or made
void free_unused(dpm_ipmc_group &group);                                    // when it has no source
dpm_ipmc_source *make_source(const dpm_prefix &source);                     // on no list yet
void link(dpm_ipmc_group &group, dpm_ipmc_source &source);
void free_source(dpm_ipmc_group &group, dpm_ipmc_source &source);    // and a group without any
dpm_ipmc_out_vlan *make_out_vlan(std::uint32_t vlan);                // in no slot yet
bool keep_out_vlan(dpm_ipmc_source &source, dpm_ipmc_out_vlan &out); // false: no slot is free
void free_out_vlan(dpm_ipmc_source &source, dpm_ipmc_out_vlan &out); // whether or not it had one
dpm_ipmc_member *make_member(dpm_ipmc_group &group, dpm_ipmc_source &source, dpm_ipmc_out_vlan &out,
                             std::uint16_t inner_vlan, std::uint32_t phy);
void link(dpm_ipmc_member &member);
void free_member(dpm_ipmc_member &member); // linked or not

// What stands beside a record: the number of the sync that brought it.
std::uint32_t &sync_of(dpm_ipmc_source &source);
std::uint32_t &sync_of(dpm_ipmc_member &member);

// Takes a member out of the chip, and away in any case.
void withdraw_member(dpm_ipmc_member &member);

// The ports of a VLAN, or all ports, have reported nothing.  The second leaves the groups' members.
void ipmc_filters_end_on(std::uint32_t vlan);
void ipmc_filters_forget();

extern const if_follower multicast_on_interfaces;

} // namespace dpm
