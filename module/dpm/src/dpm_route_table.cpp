// The route trees: their orders, lookups by key, and what a route is by itself.  Below everything
// else that is known about routes, so that each of those sources can use it.
#include "dpm_route.h"

#include "dpm.h"
#include "dpm_if.h"
#include "dpm_state.h"
#include "dpm_trace.h"

#include <cstring>

namespace {

constexpr char tunnel_prefix[] = "tunnel";

DPM_STATE dpm::route_notice g_dpm_route_notice;

} // namespace

namespace dpm {

ipv4_route_table ipv4_routes() {
    return ipv4_route_table(g_dpm_global.route_ipv4_tree);
}
ipv6_route_table ipv6_routes() {
    return ipv6_route_table(g_dpm_global.route_ipv6_tree);
}

ipv4_route_table routes_of(std::uint32_t family) {
    return ipv4_route_table(family == DPM_FAMILY_IPV4 ? g_dpm_global.route_ipv4_tree
                                                      : g_dpm_global.route_ipv6_tree);
}

void route_notify_register(route_notice notice) {
    g_dpm_route_notice = notice;
}

void tell_of_route(const dpm_route_entry &route, route_event event) {
    if (g_dpm_route_notice != nullptr)
        (void)g_dpm_route_notice(&route, static_cast<std::uint32_t>(event));
}

std::uint32_t route_weight(const dpm_route_entry &route) {
    return route.destination.family == DPM_FAMILY_IPV6 ? 2 : 1;
}

bool has_route_room(std::uint32_t own_weight, const call_site &caller) {
    const std::uint32_t occupied = ipv4_routes().count() + 2 * ipv6_routes().count();
    if (occupied - own_weight < DPM_ROUTE_CAPACITY)
        return true;
    DPM_LOG_FROM(caller, "%s %d::route entry is full!!!\r\n");
    return false;
}

bool is_over_tunnel(const dpm_route_entry &route) {
    return std::strncmp(route.np_ifname[0], tunnel_prefix, sizeof tunnel_prefix - 1) == 0;
}

bool is_same_gateway(const dpm_prefix &a, const dpm_prefix &b) {
    if (a.family != b.family || a.family == DPM_FAMILY_NONE)
        return a.family == b.family;
    return is_known_family(a.family) ? dpm_prefix_compare(a, b) == 0
                                     : std::memcmp(&a, &b, sizeof a) == 0;
}

// The place behind of a gateway that stands in a route twice takes no part: one host resolves one.
bool asks_for_host(const dpm_route_entry &route, std::uint32_t position) {
    const dpm_prefix &gateway = route.np[position];
    if (!is_known_family(gateway.family) || dpm_if_is_manage_vlan(route.np_ifname[position]))
        return false;
    for (std::uint32_t before = 0; before < position; before++)
        if (is_same_gateway(route.np[before], gateway) &&
            (gateway.family == DPM_FAMILY_IPV4 || // its interface does not matter
             (route.np_ifindex[before] == route.np_ifindex[position] &&
              std::strcmp(route.np_ifname[before], route.np_ifname[position]) == 0)))
            return false;
    return true;
}

} // namespace dpm

int dpm_route_ipv4_compare(const dpm_route_entry &a, const dpm_route_entry &b) {
    if (a.vrf != b.vrf)
        return dpm::three_way(a.vrf, b.vrf);
    return dpm_prefix_compare(a.destination, b.destination);
}

int dpm_route_ipv6_compare(const dpm_route_entry &a, const dpm_route_entry &b) {
    return dpm_route_ipv4_compare(a, b);
}

dpm_route_entry *dpm_route_find_by_entry(const dpm_route_entry *key) {
    if (key == nullptr) {
        (void)dpm::null_parameter();
        return nullptr;
    }
    if (!dpm::is_iptype(key->destination.family, DPM_CALL_SITE))
        return nullptr;
    return dpm::routes_of(key->destination.family).find(*key);
}

int dpm_route_is_same(const dpm_route_entry *a, const dpm_route_entry *b) {
    if (a == nullptr || b == nullptr || a->vrf != b->vrf ||
        a->destination.family != b->destination.family ||
        dpm_prefix_compare(a->destination, b->destination) != 0 || a->np_num != b->np_num)
        return 0;
    for (std::uint32_t i = 0; i < a->np_num; i++)
        if (!dpm::is_same_gateway(a->np[i], b->np[i]) ||
            (dpm::is_scoped(a->np[i]) && a->np_ifindex[i] != b->np_ifindex[i]))
            return 0;
    return 1;
}

// Static and directly connected routes are not; what a protocol learnt is.
int dpm_route_dynamic_type_check(std::uint32_t route_type) {
    return route_type <= 12 && route_type != 2 && route_type != 3;
}
