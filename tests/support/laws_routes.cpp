// The laws of routes, groups and label entries.

#include "support/laws.h"

#include "dpm.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_if.h"
#include "dpm_l3vpn.h"
#include "dpm_route_record.h"
#include "dpm_vpn.h"
#include "support/laws_support.h"
#include "support/shelf.h"
#include "support/soundness.h"

#include <algorithm>
#include <map>
#include <set>

namespace rig::laws {

using namespace chassis;

namespace {

constexpr std::uint32_t families[] = {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6};

std::string name_of(const dpm_route_entry &route) {
    return "route vrf " + std::to_string(route.vrf) + " " + rig::text_of(route.destination);
}

template <class Visitor> void each_group(Visitor visit) {
    for (const std::uint32_t family : families)
        for (const dpm_ecmp_entry &group : dpm::ecmp_groups(family))
            visit(group);
}

using Members = std::multiset<std::uint32_t>;

Members members_of(const dpm_ecmp_entry &group) {
    Members members(std::begin(group.host_sdk), std::end(group.host_sdk));
    members.erase(0);
    return members;
}

Members resolved_gateways(const dpm_route_entry &route) {
    Members members;
    for (std::uint32_t i = 0; i < route.np_num; ++i)
        if (route.host_index[i] > 0)
            members.insert(std::uint32_t(route.host_index[i]));
    return members;
}

// What a gateway resolves to as the host table stands.
std::int32_t resolution(const dpm_route_entry &route, std::uint32_t i) {
    if (route.np[i].family == DPM_FAMILY_NONE)
        return DPM_ROUTE_NO_ADDRESS;
    if (route.np[i].family != route.destination.family || dpm_if_is_manage_vlan(route.np_ifname[i]))
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
    const std::int32_t points_to = std::max(route.sdk_index, 0);
    const std::int32_t in_chip = record_of(route).chip_index;
    if (dpm::gives_way(route) ? in_chip != 0 && in_chip != points_to : in_chip != points_to)
        lines.push_back(name_of(route) + " points to " + std::to_string(points_to) +
                        " and stands in the chip with " + std::to_string(in_chip));
}

void compare_groups(const chip::Chip &chip, Lines &lines) {
    std::size_t groups = 0;
    each_group([&](const dpm_ecmp_entry &group) {
        ++groups;
        const std::string name = "group " + std::to_string(group.sdk_index);
        const Members members = members_of(group);
        if (members.size() != group.host_cnt)
            lines.push_back(name + " counts wrong");
        const auto object = chip.groups.find(std::uint32_t(group.sdk_index));
        if (object == chip.groups.end())
            lines.push_back("the chip lacks " + name);
        else if (group.host_cnt < DPM_ECMP_MEMBERS &&
                 Members(object->second.begin(), object->second.end()) != members)
            lines.push_back("the chip has other members in " + name);
    });
    if (chip.groups.size() != groups)
        lines.push_back("the chip has " + std::to_string(chip.groups.size()) +
                        " groups, the table " + std::to_string(groups));
}

// Each route over a group has one of its own.
void check_owners(unsigned group_leaks, bool adrift, Lines &lines) {
    std::map<std::int32_t, const dpm_ecmp_entry *> ownerless;
    each_group([&](const dpm_ecmp_entry &group) { ownerless[group.sdk_index] = &group; });
    each_route([&](const dpm_route_entry &route) {
        if (route.sdk_index <= 0)
            return;
        if (route.ecmp_enable == DPM_ROUTE_SINGLE) {
            if (route.sdk_index != route.host_index[0])
                lines.push_back(name_of(route) + " points to no gateway's next hop");
            return;
        }
        const auto group = ownerless.extract(route.sdk_index);
        if (group.empty())
            lines.push_back(name_of(route) + " points to no group of its own");
        else if (!adrift && members_of(*group.mapped()) != resolved_gateways(route))
            lines.push_back(name_of(route) + " has a group of other members");
    });
    if (ownerless.size() != group_leaks)
        lines.push_back(std::to_string(ownerless.size()) + " groups have no route, " +
                        std::to_string(group_leaks) + " were allowed");
}

// What matches nothing is dropped exactly where a default route stands.
void check_cpu_defaults(const chip::Chip &chip, Lines &lines) {
    std::set<chip::DefaultKey> standing;
    each_route([&](const dpm_route_entry &route) {
        if (route.destination.prefix_len == 0 &&
            (route.sdk_index > 0 || record_of(route).chip_index != 0))
            standing.insert({route.destination.family, route.vrf});
    });
    for (const auto &key : standing)
        if (!chip.cpu_default.contains(key) || chip.cpu_default.at(key))
            lines.push_back("the CPU default stands beside a default route in vrf " +
                            std::to_string(key.vrf));
    for (const auto &[key, to_cpu] : chip.cpu_default)
        if (!to_cpu && !standing.contains(key) &&
            g_dpm_global.vrf_state[key.vrf % DPM_VRF_COUNT] != DPM_DISABLE)
            lines.push_back("no default at all in vrf " + std::to_string(key.vrf));
}

unsigned waiting(const auto &table, auto is_waiting) {
    unsigned count = 0;
    for (const auto &entry : table)
        count += is_waiting(entry);
    return count;
}

void check_pend_list(const char *name, const list_head &head, unsigned wanted, Lines &lines) {
    unsigned count = 0;
    if (const std::string problem = list_problem(head, &count); !problem.empty())
        lines.push_back(std::string("list ") + name + ": " + problem);
    expect_equal(name, count, wanted, lines);
}

} // namespace

Lines routes_follow_hosts(Card &card, unsigned group_leaks, bool adrift) {
    CardScope scope(card);
    Lines lines;
    compare_groups(card.chip, lines);
    check_owners(group_leaks, adrift, lines);
    check_cpu_defaults(card.chip, lines);
    if (!adrift)
        each_route([&](const dpm_route_entry &route) { check_resolution(route, lines); });
    return lines;
}

void want_routes(std::map<chip::Address, std::uint32_t> &wanted, Lines &lines) {
    each_route([&](const dpm_route_entry &route) {
        const std::int32_t index = record_of(route).chip_index;
        if (index != 0 && !wanted.emplace(chip_key(route.vrf, route.destination), index).second)
            lines.push_back(name_of(route) + " stands in the chip beside a host");
    });
}

Records route_records(Card &card) {
    CardScope scope(card);
    Records records;
    each_route([&](dpm_route_entry route) {
        const std::string name = name_of(route);
        std::fill(std::begin(route.np_ifindex), std::end(route.np_ifindex), 0);
        route.delete_timer = {};
        records.emplace(bytes_of(route), name);
    });
    each_group([&](const dpm_ecmp_entry &group) {
        records.emplace(bytes_of(group), "group " + std::to_string(group.sdk_index));
    });
    return records;
}

Records label_records(Card &card) {
    CardScope scope(card);
    Records records;
    for (dpm_ftn ftn : dpm::ftns()) {
        ftn.pend = {};
        ftn.stale = 0;
        records.emplace(bytes_of(ftn), "an FTN of label " + std::to_string(ftn.tunnel_label));
    }
    for (dpm_ilm ilm : dpm::ilms()) {
        ilm.pend = {};
        ilm.out_ifindex = 0;
        records.emplace(bytes_of(ilm), "the ILM of label " + std::to_string(ilm.in_label));
    }
    return records;
}

void check_routes_ifindexes(Card &standby, Lines &lines) {
    CardScope scope(standby);
    each_route([&](const dpm_route_entry &route) {
        for (std::uint32_t i = 0; i < route.np_num; ++i) {
            const dpm_if_entry *const entry = dpm_if_find_by_ifname(route.np_ifname[i]);
            if (entry && entry->if_index != route.np_ifindex[i])
                lines.push_back("the standby has the master's ifindex in " + name_of(route));
        }
    });
}

namespace {

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

} // namespace

void check_route_indexes(Lines &lines) {
    for (const std::uint32_t family : families) {
        const dpm_route_index &index =
            family == DPM_FAMILY_IPV4 ? g_dpm_index.ipv4_routes : g_dpm_index.ipv6_routes;
        unsigned routes = 0, gateways = 0, of_length[129] = {};
        for (const dpm_route_entry &route : dpm::routes_of(family)) {
            ++routes;
            gateways += unsigned(
                std::count_if(route.np, route.np + route.np_num,
                              [&](const dpm_prefix &gateway) { return gateway.family == family; }));
            ++of_length[route.destination.prefix_len];
        }
        expect_equal("routes and their networks", routes, indexed_networks(index), lines);
        expect_equal("gateways and their index", gateways, indexed_gateways(index, lines), lines);
        if (!std::equal(std::begin(of_length), std::end(of_length), index.of_length))
            lines.push_back("the numbers of routes by length are wrong");
    }
    expect_equal("tunnel FTNs and their index",
                 waiting(dpm::ftns(), [](const dpm_ftn &ftn) { return ftn.vrf_id == 0; }),
                 g_dpm_index.ftn_by_fec.numnodes, lines);
    check_pend_list(
        "pending FTNs", g_dpm_vpn.pend_ftn_list,
        waiting(dpm::ftns(), [](const dpm_ftn &ftn) { return ftn.flags == DPM_LABEL_WAITING; }),
        lines);
    check_pend_list("pending ILMs", g_dpm_vpn.pend_ilm_list,
                    waiting(dpm::ilms(),
                            [](const dpm_ilm &ilm) {
                                return !ilm.is_egress && ilm.flags == DPM_LABEL_WAITING;
                            }),
                    lines);
}

unsigned route_timers() {
    unsigned armed = 0;
    each_route([&](const dpm_route_entry &route) { armed += route.delete_timer.expiry_sec != 0; });
    return armed;
}

std::size_t blocks_of_routes() {
    std::size_t blocks = 0;
    for (const dpm_route_index *index : {&g_dpm_index.ipv4_routes, &g_dpm_index.ipv6_routes})
        blocks += index->by_gateway.numnodes + (index->by_network != nullptr);
    return blocks + g_dpm_global.route_ipv4_tree.numnodes + g_dpm_global.route_ipv6_tree.numnodes +
           g_dpm_global.ecmp_ipv4_tree.numnodes + g_dpm_global.ecmp_ipv6_tree.numnodes +
           g_dpm_vpn.ftn_tree.numnodes + g_dpm_vpn.ilm_tree.numnodes;
}

} // namespace rig::laws
