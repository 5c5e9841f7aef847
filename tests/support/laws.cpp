// The laws, read from the library's own tables and from the chip.

#include "support/laws.h"

#include "chassis/tables/law.h"
#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "dpm.h"
#include "dpm_address.h"
#include "dpm_check.h"
#include "dpm_host_record.h"
#include "dpm_if_announced.h"
#include "dpm_ipmc_global.h"
#include "dpm_l3vpn.h"
#include "dpm_route_record.h"
#include "dpm_vpn.h"
#include "support/multicast.h"
#include "support/shelf.h"
#include "support/soundness.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace rig::laws {

using namespace chassis;

namespace {

constexpr std::uint32_t families[] = {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6};

template <class Visitor> void each_route(Visitor visit) {
    for (const std::uint32_t family : families)
        for (const dpm_route_entry &route : dpm::routes_of(family))
            visit(route);
}

void expect_equal(const char *what, unsigned left, unsigned right, Lines &lines) {
    if (left != right)
        lines.push_back(std::string(what) + ": " + std::to_string(left) + " and " +
                        std::to_string(right));
}

// --- routes ----------------------------------------------------------------------------------

std::string name_of(const dpm_route_entry &route) {
    return "route vrf " + std::to_string(route.vrf) + " " + rig::text_of(route.destination);
}

// What a gateway resolves to as the host table stands.
std::int32_t resolution(const dpm_route_entry &route, std::uint32_t i) {
    if (route.np[i].family == DPM_FAMILY_NONE)
        return record_of(route).is_tunnels ? 0 : DPM_ROUTE_NO_ADDRESS;
    if (!dpm::asks_for_host(route, i))
        return DPM_ROUTE_UNRESOLVED;
    const dpm_host_entry *const host =
        dpm_host_find_by_ip(route.vrf, &route.np[i], route.np_ifindex[i]);
    return host ? std::int32_t(host->sdk_index) : DPM_ROUTE_UNRESOLVED;
}

void check_resolution(const dpm_route_entry &route, Lines &lines) {
    for (std::uint32_t i = 0; i < route.np_num; ++i)
        if (route.host_index[i] != resolution(route, i))
            lines.push_back(name_of(route) + " does not follow gateway " +
                            rig::text_of(route.np[i]));
}

// What stands beside a route is what the chip has in its place, unless a host has it.
void check_memory(const chip::Chip &chip, const dpm_route_entry &route, Lines &lines) {
    const chip::Address key = tables::chip_key(route.vrf, route.destination);
    const auto entry = chip.held<chip::kinds::entry>().find(key);
    const auto in_chip = entry == chip.held<chip::kinds::entry>().end() ? 0 : entry->second;
    const auto index = chip::Index(record_of(route).chip_index);
    if (index != in_chip && (index != 0 || !dpm::has_chip_host(route.vrf, route.destination)))
        lines.push_back(name_of(route) + " remembers " + std::to_string(index) +
                        " in the chip, which has " + std::to_string(in_chip));
}

// What waits for its neighbour waits no longer than until that comes.  What the chip refused, and
// what a host that is about to go has left, waits on; VPN routes wait for the suite as well.
template <class Entry>
void check_waiting(const char *name, const Entry &entry, std::uint32_t vrf, Lines &lines) {
    if (entry.sdk_result != 0 || entry.tunnel_ip_type != DPM_FAMILY_IPV4)
        return;
    const dpm_prefix neighbour = dpm::host_prefix(DPM_FAMILY_IPV4, entry.tunnel_nhop);
    const dpm_host_entry *const host = dpm_host_find_by_ip(vrf, &neighbour, 0);
    if (host && record_of(*host).is_announced)
        lines.push_back(std::string(name) + " waits for " + rig::text_of(neighbour) +
                        ", which is there");
}

void check_waiting_labels(Lines &lines) {
    for (const dpm_ftn &ftn : dpm::pend_ftns())
        if (ftn.vrf_id == 0)
            check_waiting("an FTN", ftn, 0, lines);
    for (const dpm_ilm &ilm : dpm::pend_ilms())
        check_waiting("an ILM", ilm, ilm.vrf_id, lines);
}

unsigned waiting(const auto &table, auto is_waiting) {
    unsigned count = 0;
    for (const auto &entry : table)
        count += is_waiting(entry);
    return count;
}

unsigned checked_length(const char *name, const list_head &head, Lines &lines) {
    unsigned count = 0;
    if (const std::string problem = list_problem(head, &count); !problem.empty())
        lines.push_back(std::string("list ") + name + ": " + problem);
    return count;
}

unsigned indexed_networks(const dpm_route_index &index) {
    unsigned count = index.unmasked.numnodes;
    for (std::uint32_t i = 0; index.by_network && i < DPM_ROUTE_CAPACITY; ++i)
        for (const route_record *record = index.by_network[i]; record; record = record->next)
            ++count;
    return count;
}

// Each place stands with its own gateway, which none but its places refer to.
unsigned indexed_gateways(const dpm_route_index &index, Lines &lines) {
    unsigned count = 0;
    for (void *at = dpm_avl_first(&index.by_gateway); at;
         at = dpm_avl_next(&index.by_gateway, at)) {
        auto &gateway = *static_cast<route_gateway *>(at);
        unsigned users = 0;
        const dpm_route_entry *previous = nullptr;
        for (const gateway_place &place : dpm::gateway_places(gateway.places)) {
            const dpm_route_entry &route = place.route->entry;
            if (gateway.is_sorted && previous &&
                previous->destination.family == route.destination.family &&
                dpm_prefix_compare(previous->destination, route.destination) > 0)
                lines.push_back("out of order over its gateway: " + name_of(route));
            previous = &route;
            if (place.gateway != &gateway || route.vrf != gateway.vrf ||
                dpm_prefix_compare(route.np[place.position], gateway.address) != 0)
                lines.push_back("a place of another gateway than that of " + name_of(route));
            ++users;
        }
        expect_equal("a gateway's places and its users", users, gateway.users, lines);
        count += users;
    }
    return count;
}

// A VPN route that went with its tunnel does not wait on the card that withdrew it.
void check_label_indexes(Lines &lines) {
    const dpm_index &index = g_dpm_index;
    expect_equal("FTNs by end", dpm::ftns().count(), index.ftn_by_end.numnodes, lines);
    expect_equal("FTNs by next hop", dpm::ftns().count(), index.ftn_by_nexthop.numnodes, lines);
    expect_equal("ILMs by next hop", dpm::ilms().count(), index.ilm_by_nexthop.numnodes, lines);
    const auto waits = [](const auto &entry) { return entry.flags == DPM_LABEL_WAITING; };
    const unsigned ftns = checked_length("pending FTNs", g_dpm_vpn.pend_ftn_list, lines);
    const unsigned ilms = checked_length("pending ILMs", g_dpm_vpn.pend_ilm_list, lines);
    expect_equal("pending FTNs and their index", ftns, index.ftn_waiting.numnodes, lines);
    expect_equal("pending ILMs and their index", ilms, index.ilm_waiting.numnodes, lines);
    expect_equal("pending FTNs", ftns,
                 waiting(dpm::ftns(), [&](auto &ftn) { return waits(ftn) && !ftn.stale; }), lines);
    expect_equal("pending ILMs", ilms,
                 waiting(dpm::ilms(), [&](auto &ilm) { return !ilm.is_egress && waits(ilm); }),
                 lines);
}

void check_route_indexes(Lines &lines) {
    unsigned gateways = 0, indexed = 0;
    for (const std::uint32_t family : families) {
        const dpm_route_index &index =
            family == DPM_FAMILY_IPV4 ? g_dpm_index.ipv4_routes : g_dpm_index.ipv6_routes;
        unsigned routes = 0, of_length[129] = {};
        for (const dpm_route_entry &route : dpm::routes_of(family)) {
            ++routes;
            gateways += unsigned(
                std::count_if(route.np, route.np + route.np_num, [](const dpm_prefix &gateway) {
                    return dpm::is_known_family(gateway.family);
                }));
            ++of_length[route.destination.prefix_len];
        }
        expect_equal("routes and their networks", routes, indexed_networks(index), lines);
        indexed += indexed_gateways(index, lines);
        if (!std::equal(std::begin(of_length), std::end(of_length), index.of_length))
            lines.push_back("the numbers of routes by length are wrong");
    }
    expect_equal("gateways and their index", gateways, indexed, lines);
    check_label_indexes(lines);
}

unsigned route_timers() {
    unsigned armed = 0;
    each_route([&](const dpm_route_entry &route) { armed += route.delete_timer.expiry_sec != 0; });
    return armed;
}

unsigned bfd_timers() {
    unsigned armed = 0;
    tables::bfd.each([&](const dpm_bfd_sess &session) { armed += session.timer.expiry_sec != 0; });
    return armed;
}

// --- trees, lists, timers, blocks ------------------------------------------------------------

void check_trees(Lines &lines) {
#define TREE(tree) std::pair(#tree, &tree)
    // clang-format off
    const std::pair<const char *, const dpm_avl_tree *> trees[] = {
        TREE(g_dpm_global.ecmp_ipv4_tree), TREE(g_dpm_global.ecmp_ipv6_tree),
        TREE(g_dpm_global.host_ipv4_tree), TREE(g_dpm_global.host_ipv6_tree),
        TREE(g_dpm_global.route_ipv4_tree), TREE(g_dpm_global.route_ipv6_tree),
        TREE(g_dpm_global.bfd_tree), TREE(g_dpm_global.nexthop_tree),
        TREE(g_dpm_global.tunnel_tree), TREE(g_dpm_global.tunnel_port_tree),
        TREE(g_dpm_global.policy_route_tree), TREE(g_dpm_index.policy_route_by_next_hop),
        TREE(g_dpm_index.bfd_by_next_hop), TREE(g_dpm_index.unreachable_by_address),
        TREE(g_dpm_index.hold_by_address), TREE(g_dpm_index.nexthop_by_sdk_index),
        TREE(g_dpm_index.tunnel_by_ends), TREE(g_dpm_index.route_by_tunnel),
        TREE(g_dpm_vpn.ftn_tree), TREE(g_dpm_vpn.ilm_tree), TREE(g_dpm_vpn.mpls_if_tree),
        TREE(g_dpm_index.ftn_by_end), TREE(g_dpm_index.ftn_by_nexthop),
        TREE(g_dpm_index.ftn_waiting), TREE(g_dpm_index.ilm_by_nexthop),
        TREE(g_dpm_index.ilm_waiting),
        TREE(g_dpm_vpn.vpws_acif_tree), TREE(g_dpm_vpn.vpws_vc_fib_tree),
        TREE(g_dpm_vpn.vpws_vc_ilm_tree), TREE(g_dpm_index.vpws_acif_by_vc),
        TREE(g_dpm_index.vpws_acif_by_port), TREE(g_dpm_index.vpws_vc_fib_by_peer),
        TREE(g_dpm_index.vpws_vc_fib_by_circuit),
        TREE(g_dpm_vpn.vpls_vsi_tree), TREE(g_dpm_vpn.vpls_acif_tree),
        TREE(g_dpm_vpn.vpls_vc_fib_tree), TREE(g_dpm_vpn.vpls_vc_ilm_tree),
        TREE(g_dpm_index.vpls_acif_by_vsi), TREE(g_dpm_index.vpls_acif_by_port),
        TREE(g_dpm_index.vpls_vc_fib_by_peer),
        TREE(g_dpm_index.ipv4_routes.by_gateway), TREE(g_dpm_index.ipv6_routes.by_gateway),
        TREE(g_ipmc_global.ipv4_tree), TREE(g_ipmc_global.ipv6_tree),
        TREE(g_ipmc_global.ipv4_rx_tree), TREE(g_ipmc_global.ipv6_rx_tree),
        TREE(g_dpm_index.ipv4_routes.unmasked), TREE(g_dpm_index.ipv6_routes.unmasked)};
    // clang-format on
    for (const auto &[name, tree] : trees)
        if (const std::string problem = tree_problem(*tree); !problem.empty())
            lines.push_back(std::string("tree ") + name + ": " + problem);
}

void check_lists(Lines &lines) {
    using timer_view = dpm::list_view<dpm_timer_node, &dpm_timer_node::link>;
    const dpm_global &global = g_dpm_global;
    const unsigned interfaces = checked_length("interfaces", global.if_list, lines);
    const unsigned unreachable = checked_length("unreachable", global.unreachable_list, lines);
    const unsigned holds = checked_length("hold", global.hold_list, lines);
    checked_length("notify", global.notify_list, lines);
    checked_length("spare", global.spare_list, lines);
    expect_equal("interfaces and their count", interfaces, global.if_count, lines);
    expect_equal("held and their count", holds, global.hold_count, lines);
    expect_equal("held and their index", holds, g_dpm_index.hold_by_address.numnodes, lines);
    expect_equal("waited for and their index", unreachable,
                 g_dpm_index.unreachable_by_address.numnodes, lines);
    expect_equal("next hops and their index", global.nexthop_tree.numnodes,
                 g_dpm_index.nexthop_by_sdk_index.numnodes, lines);
    expect_equal("policy routes and their index", global.policy_route_tree.numnodes,
                 g_dpm_index.policy_route_by_next_hop.numnodes, lines);
    expect_equal("BFD sessions and their index", global.bfd_tree.numnodes,
                 g_dpm_index.bfd_by_next_hop.numnodes, lines);
    expect_equal("tunnels and their index", global.tunnel_tree.numnodes,
                 g_dpm_index.tunnel_by_ends.numnodes, lines);
    check_route_indexes(lines);
    if (!global.timer_list)
        return;
    const unsigned timers = checked_length("timers", global.timer_list->head, lines);
    expect_equal("timers and those that hold one", timers,
                 unreachable + holds + route_timers() + bfd_timers() +
                     (global.peer_timer.expiry_sec != 0) +
                     (g_dpm_index.leaving_timer.expiry_sec != 0) +
                     (g_dpm_index.cpu_default_timer.expiry_sec != 0) +
                     (g_dpm_index.kept_group_timer.expiry_sec != 0) +
                     (g_dpm_index.kept_gre_timer.expiry_sec != 0) +
                     (g_dpm_index.vpws_timer.expiry_sec != 0) +
                     (g_dpm_index.vpls_timer.expiry_sec != 0) +
                     (g_dpm_index.left_port_timer.expiry_sec != 0),
                 lines);
    const dpm_timer_node *previous = nullptr;
    for (const dpm_timer_node &timer : timer_view(global.timer_list->head)) {
        if (!lines.empty()) // its links may lead anywhere
            return;
        if (previous && dpm_timer_compare(previous->expiry_sec, previous->expiry_nsec,
                                          timer.expiry_sec, timer.expiry_nsec) > 0)
            lines.push_back("timers are out of order");
        previous = &timer;
    }
}

std::size_t blocks_of_interfaces() {
    std::size_t blocks = 0;
    Lines lines;
    tables::interfaces.each([&](const dpm_if_entry &entry) {
        blocks += 1 + checked_length("IPv4", entry.ipv4_list, lines) +
                  checked_length("IPv6", entry.ipv6_list, lines) +
                  checked_length("sub", entry.sub_list, lines);
    });
    return blocks;
}

} // namespace

Lines chip_equals_tables(Card &card, const Exceptions &stated) {
    const tables::Verdict verdict = tables::chip_equals_tables(card);
    Lines lines = verdict.faults;
    if (!stated.routes_adrift)
        lines.insert(lines.end(), verdict.drifts.begin(), verdict.drifts.end());
    const std::map<std::string_view, unsigned> allowed{{"next hop", stated.nexthop_leaks},
                                                       {"group", stated.group_leaks},
                                                       {"port key", 0}};
    for (const auto &[kind, count] : allowed) {
        const auto found = verdict.leaked.find(kind);
        const unsigned leaked = found == verdict.leaked.end() ? 0 : found->second;
        expect_equal("users that are not there, and those that were stated", leaked, count, lines);
        if (leaked != count)
            lines.insert(lines.end(), verdict.leaks.begin(), verdict.leaks.end());
    }
    return lines;
}

Lines routes_follow_hosts(Card &card, bool adrift) {
    CardScope scope(card);
    Lines lines;
    each_route([&](const dpm_route_entry &route) {
        check_memory(card.chip, route, lines);
        if (!adrift)
            check_resolution(route, lines);
    });
    check_waiting_labels(lines);
    return lines;
}

bool is_mirroring(Card &card) {
    CardScope scope(card);
    return g_dpm_global.slave_up == 1 && card.peer.exists();
}

Lines tables_are_sound(Card &card) {
    CardScope scope(card);
    Lines lines;
    check_trees(lines);
    check_lists(lines);
    return lines;
}

Lines heap_is_explained(Card &card, std::size_t at_start, std::size_t extra) {
    const CardScope scope(card);
    std::size_t held = at_start + extra + blocks_of_interfaces() + dpm::if_announced_count();
    held += 3 * g_dpm_global.policy_route_tree.numnodes; // each with its buffers
    held += multicast::blocks();
    held += g_dpm_index.unreachable_by_address.numnodes + g_dpm_global.hold_count;
    for (const dpm_route_index *index : {&g_dpm_index.ipv4_routes, &g_dpm_index.ipv6_routes})
        held += index->by_gateway.numnodes + (index->by_network != nullptr);
    const tables::Reading reading(card);
    for (const tables::Table &table : tables::all())
        if (table.is_mirrored)
            table.each(reading, [&](const tables::Row &) { ++held; });
    const std::size_t live = card.os.live_blocks();
    if (live == held)
        return {};
    Lines lines{std::to_string(live) + " blocks are live, " + std::to_string(held) +
                " are explained:"};
    for (const auto &[place, use] : card.os.live_by_place())
        lines.push_back("  " + std::to_string(use.blocks) + " from " + place.file + ":" +
                        std::to_string(place.line));
    return lines;
}

std::uint64_t failed_checks(Card &card) {
    CardScope scope(card);
    return g_dpm_failed_checks;
}

} // namespace rig::laws
