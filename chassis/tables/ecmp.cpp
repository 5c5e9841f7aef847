// Groups of next hops.  One is found by the route that it is for, or by the tunnel's destination.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

#include <algorithm>

namespace chassis::tables {

namespace {

const TwoForms no_route{"", "null"};

struct RoutesByGroup {
    explicit RoutesByGroup(const Reading &) {
        routes.each([this](const dpm_route_entry &route) {
            if (route.ecmp_enable == DPM_ROUTE_ECMP && route.sdk_index > 0)
                by_group.emplace(route.sdk_index, &route);
        });
    }
    std::map<std::int32_t, const dpm_route_entry *> by_group;
};

struct TunnelsByGroup {
    explicit TunnelsByGroup(const Reading &) {
        tunnels.each([this](const dpm_tunnel_entry &tunnel) {
            if (tunnel.ecmp_enable == DPM_ROUTE_ECMP && tunnel.sdk_index > 0)
                by_group.emplace(tunnel.sdk_index, Place{tunnel.tunnel_vrf, tunnel.destination});
        });
    }
    std::map<std::int32_t, Place> by_group;
};

const dpm_route_entry *route_over(const dpm_ecmp_entry &group, const Reading &reading) {
    const auto &by_group = reading.made<RoutesByGroup>().by_group;
    const auto found = by_group.find(group.sdk_index);
    return found == by_group.end() ? nullptr : found->second;
}

std::vector<Place> places_of(const dpm_ecmp_entry &group, const Reading &reading) {
    if (const dpm_route_entry *const route = route_over(group, reading))
        return {{route->vrf, route->destination}};
    const auto &tunnels = reading.made<TunnelsByGroup>().by_group;
    const auto found = tunnels.find(group.sdk_index);
    return found == tunnels.end() ? std::vector<Place>() : std::vector<Place>{found->second};
}

template <class Members = std::vector<std::int64_t>>
Members members_of(const dpm_ecmp_entry &group) {
    Members members;
    for (const std::uint32_t member : group.host_sdk)
        if (member != 0)
            members.push_back(member);
    return members;
}

struct MembersByGroup {
    explicit MembersByGroup(const Reading &) {
        ecmp.each([this](const dpm_ecmp_entry &group) {
            chip::Members &members = by_group[group.sdk_index] = members_of<chip::Members>(group);
            std::ranges::sort(members);
        });
    }
    std::map<std::int32_t, chip::Members> by_group;
};

} // namespace

void want_group(const std::string &owner, std::uint32_t index, chip::Members members,
                Wanted &wanted, Cause cause) {
    wanted.use<kinds::group>(index);
    std::ranges::sort(members);
    const auto &by_group = wanted.reading.made<MembersByGroup>().by_group;
    const auto found = by_group.find(std::int32_t(index));
    if (found != by_group.end() && found->second != members)
        wanted.differ(owner + " has a group of other next hops than its own", cause);
}

const TableOf<dpm_ecmp_entry> ecmp{
    .each = walk<dpm_api_get_ecmp_entry_first, dpm_api_get_ecmp_entry_next>,
    .key = [](auto &group) { return "group " + std::to_string(group.sdk_index); },
    .places = places_of,
    .own = [](auto &group, auto &) { group.node = {}; },
    .columns = {{"group", TABLE_MEMBER(sdk_index)},
                {"family",
                 [](auto &group) { return group.ecmp_type == DPM_FAMILY_IPV4 ? "IPv4" : "IPv6"; }},
                {"members", TABLE_MEMBER(host_cnt)},
                {"nexthops", members_of<>},
                {"vrf",
                 [](auto &group, auto &reading) {
                     const dpm_route_entry *const route = route_over(group, reading);
                     return route ? Cell(route->vrf) : Cell(no_route);
                 }},
                {"route",
                 [](auto &group, auto &reading) {
                     const dpm_route_entry *const route = route_over(group, reading);
                     return route ? Cell(prefix_text(route->destination)) : Cell(no_route);
                 }}},
    .in_chip =
        [](auto &group, Wanted &wanted) {
            const auto members = members_of<chip::Members>(group);
            wanted.want<kinds::group>(std::uint32_t(group.sdk_index), members);
            wanted.count<kinds::group>(std::uint32_t(group.sdk_index), 1); // its route, or tunnel
            if (members.size() != group.host_cnt)
                wanted.differ("group " + std::to_string(group.sdk_index) + " counts " +
                              std::to_string(group.host_cnt) + " members and has " +
                              std::to_string(members.size()));
        },
};

} // namespace chassis::tables
