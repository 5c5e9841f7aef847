// The laws, read from the library's own tables and from the chip.

#include "support/laws.h"

#include "dpm.h"
#include "dpm_check.h"
#include "dpm_host.h"
#include "dpm_if.h"
#include "dpm_nexthop.h"
#include "dpm_vpn.h"
#include "platform/dal.h"
#include "support/laws_support.h"
#include "support/shelf.h"
#include "support/soundness.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace rig::laws {

using namespace chassis;

namespace {

template <class Visitor> void each_host(Visitor visit) {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (const dpm_host_entry *host = dpm_api_get_host_entry_first(family); host;
             host = dpm_api_get_host_entry_next(host))
            visit(*host);
}

template <class Visitor> void each_nexthop(Visitor visit) {
    for (const dpm_nexthop_entry *entry = dpm_api_get_nexthop_entry_first(); entry;
         entry = dpm_api_get_nexthop_entry_next(entry))
        visit(*entry);
}

std::string text_of(const chip::Address &key) {
    dpm_prefix ip{std::uint16_t(key.family), std::uint16_t(key.prefix_len), {}};
    std::copy(key.bytes.begin(), key.bytes.end(), ip.address);
    return "vrf " + std::to_string(key.vrf) + " " + rig::text_of(ip);
}

bool is_same_object(const chip::NextHop &object, const dpm_nexthop_entry &entry) {
    return object.port_id == entry.port_id && object.svlan == std::uint16_t(entry.svlan) &&
           object.cvlan == std::uint16_t(entry.cvlan) &&
           std::equal(object.mac.begin(), object.mac.end(), entry.mac);
}

void compare_entries(const chip::Chip &chip, Lines &lines) {
    std::map<chip::Address, std::uint32_t> wanted;
    each_host([&](const dpm_host_entry &host) {
        if (!dpm_host_is_linklocal(&host.ip))
            wanted[chip_key(host.vrf, host.ip)] = host.sdk_index;
    });
    want_routes(wanted, lines);
    for (const auto &[key, index] : wanted) {
        const auto found = chip.entries.find(key);
        if (found == chip.entries.end())
            lines.push_back("the chip lacks " + text_of(key));
        else if (found->second != index)
            lines.push_back("the chip has another next hop for " + text_of(key));
    }
    for (const auto &[key, index] : chip.entries)
        if (index != DAL_NEXTHOP_TO_CPU && !wanted.contains(key))
            lines.push_back("the chip has nobody's entry " + text_of(key));
}

void compare_nexthops(const chip::Chip &chip, unsigned leaks, Lines &lines) {
    std::map<std::uint32_t, unsigned> users;
    each_host([&](const dpm_host_entry &host) { ++users[host.sdk_index]; });
    std::size_t entries = 0;
    unsigned unused = 0;
    each_nexthop([&](const dpm_nexthop_entry &entry) {
        ++entries;
        const std::string name = "next hop " + std::to_string(entry.sdk_index);
        const auto object = chip.nexthops.find(entry.sdk_index);
        if (object == chip.nexthops.end())
            lines.push_back("the chip lacks " + name);
        else if (!is_same_object(object->second, entry))
            lines.push_back("the chip has another " + name);
        const unsigned used = users[entry.sdk_index];
        if (entry.cnt < used)
            lines.push_back(name + " counts " + std::to_string(entry.cnt) + " and has " +
                            std::to_string(used) + " hosts");
        unused += entry.cnt - used;
    });
    if (chip.nexthops.size() != entries)
        lines.push_back("the chip has " + std::to_string(chip.nexthops.size()) +
                        " next hops, the table " + std::to_string(entries));
    if (unused != leaks)
        lines.push_back(std::to_string(unused) + " references of next hops have no host, " +
                        std::to_string(leaks) + " were allowed");
}

Records host_records(Card &card) {
    CardScope scope(card);
    Records records;
    each_host([&](dpm_host_entry host) {
        host.ifindex = 0;
        std::memset(host.card_local, 0, sizeof host.card_local);
        records.emplace(bytes_of(host), "host " + rig::text_of(host));
    });
    return records;
}

Records nexthop_records(Card &card) {
    CardScope scope(card);
    Records records;
    each_nexthop([&](const dpm_nexthop_entry &entry) {
        records.emplace(bytes_of(entry), "next hop " + std::to_string(entry.sdk_index) + " count " +
                                             std::to_string(entry.cnt));
    });
    return records;
}

void compare_records(const Records &master, const Records &standby, Lines &lines) {
    for (const auto &[bytes, name] : master)
        if (!standby.contains(bytes))
            lines.push_back("the standby lacks " + name);
    for (const auto &[bytes, name] : standby)
        if (!master.contains(bytes))
            lines.push_back("the master lacks " + name);
    if (lines.empty() && master.size() != standby.size())
        lines.push_back("the tables differ in size");
}

void check_local_ifindexes(Card &standby, Lines &lines) {
    CardScope scope(standby);
    each_host([&](const dpm_host_entry &host) {
        const dpm_if_entry *const entry = dpm_if_find_by_ifname(host.ifname);
        if (entry && entry->if_index != host.ifindex)
            lines.push_back("the standby has the master's ifindex in host " + rig::text_of(host));
    });
}

void check_trees(Lines &lines) {
    const std::pair<const char *, const dpm_avl_tree *> trees[] = {
        {"ecmp ipv4", &g_dpm_global.ecmp_ipv4_tree},
        {"ecmp ipv6", &g_dpm_global.ecmp_ipv6_tree},
        {"host ipv4", &g_dpm_global.host_ipv4_tree},
        {"host ipv6", &g_dpm_global.host_ipv6_tree},
        {"route ipv4", &g_dpm_global.route_ipv4_tree},
        {"route ipv6", &g_dpm_global.route_ipv6_tree},
        {"bfd", &g_dpm_global.bfd_tree},
        {"nexthop", &g_dpm_global.nexthop_tree},
        {"tunnel", &g_dpm_global.tunnel_tree},
        {"tunnel port", &g_dpm_global.tunnel_port_tree},
        {"policy route", &g_dpm_global.policy_route_tree},
        {"unreachable index", &g_dpm_index.unreachable_by_address},
        {"hold index", &g_dpm_index.hold_by_address},
        {"nexthop index", &g_dpm_index.nexthop_by_sdk_index},
        {"ftn", &g_dpm_vpn.ftn_tree},
        {"ilm", &g_dpm_vpn.ilm_tree},
        {"ftn index", &g_dpm_index.ftn_by_fec},
        {"route ipv4 by gateway", &g_dpm_index.ipv4_routes.by_gateway},
        {"route ipv6 by gateway", &g_dpm_index.ipv6_routes.by_gateway},
        {"route ipv4 unmasked", &g_dpm_index.ipv4_routes.unmasked},
        {"route ipv6 unmasked", &g_dpm_index.ipv6_routes.unmasked},
    };
    for (const auto &[name, tree] : trees)
        if (const std::string problem = tree_problem(*tree); !problem.empty())
            lines.push_back(std::string("tree ") + name + ": " + problem);
}

unsigned checked_length(const char *name, const list_head &head, Lines &lines) {
    unsigned count = 0;
    if (const std::string problem = list_problem(head, &count); !problem.empty())
        lines.push_back(std::string("list ") + name + ": " + problem);
    return count;
}

void check_lists(Lines &lines) {
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
    check_route_indexes(lines);
    if (!global.timer_list)
        return;
    const unsigned timers = checked_length("timers", global.timer_list->head, lines);
    expect_equal("timers and those that hold one", timers,
                 unreachable + holds + route_timers() + (global.peer_timer.expiry_sec != 0), lines);
}

void check_timer_order(Lines &lines) {
    using timers = dpm::list_view<dpm_timer_node, &dpm_timer_node::link>;
    if (!g_dpm_global.timer_list)
        return;
    const dpm_timer_node *previous = nullptr;
    for (const dpm_timer_node &timer : timers(g_dpm_global.timer_list->head)) {
        if (previous && dpm_timer_compare(previous->expiry_sec, previous->expiry_nsec,
                                          timer.expiry_sec, timer.expiry_nsec) > 0)
            lines.push_back("timers are out of order");
        previous = &timer;
    }
}

std::size_t blocks_of_interfaces() {
    std::size_t blocks = 0;
    unsigned count = 0;
    for (const dpm_if_entry *entry = dpm_api_get_if_entry_first(); entry;
         entry = dpm_api_get_if_entry_next(entry)) {
        ++blocks;
        for (const list_head *list : {&entry->ipv4_list, &entry->ipv6_list, &entry->sub_list}) {
            list_problem(*list, &count);
            blocks += count;
        }
    }
    return blocks;
}

} // namespace

Lines chip_equals_tables(Card &card, unsigned leaks) {
    CardScope scope(card);
    Lines lines;
    compare_entries(card.chip, lines);
    compare_nexthops(card.chip, leaks, lines);
    return lines;
}

Lines standby_equals_master(Card &master, Card &standby) {
    Lines lines;
    compare_records(host_records(master), host_records(standby), lines);
    compare_records(nexthop_records(master), nexthop_records(standby), lines);
    compare_records(route_records(master), route_records(standby), lines);
    compare_records(label_records(master), label_records(standby), lines);
    check_local_ifindexes(standby, lines);
    check_routes_ifindexes(standby, lines);
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
    if (lines.empty())
        check_timer_order(lines);
    return lines;
}

Lines heap_is_explained(Card &card, std::size_t at_start, std::size_t extra) {
    CardScope scope(card);
    std::size_t held = at_start + extra + blocks_of_interfaces();
    each_host([&](const dpm_host_entry &) { ++held; });
    each_nexthop([&](const dpm_nexthop_entry &) { ++held; });
    held += g_dpm_index.unreachable_by_address.numnodes + g_dpm_global.hold_count;
    held += blocks_of_routes();
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
