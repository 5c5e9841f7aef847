// Routes follow their gateways: a host that comes resolves them, one that goes takes them away.
//
// A host event visits the routes over that host alone, in the order of the table.  A route is put
// into the chip with its first resolved gateway and taken out with the last; in between only its
// group changes.
#include "dpm_route_program.h"

#include "dpm_bridge.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_if.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace {

// What one host event did to one route.
struct following {
    dpm_route_entry &route;
    const dpm_host_entry &host;
    std::uint32_t event;
    std::uint32_t position; // of the gateway
    std::int32_t old_sdk_index;
};

// What both lines about it tell; a host that came also which next hop that is.
#define LOG_FOLLOWING(caller, f, format, ...)                                                      \
    DPM_LOG_FROM(caller, format, (f).event, dpm::address_text((f).route.destination).c_str(),      \
                 (f).route.destination.prefix_len, dpm::address_text((f).host.ip).c_str(),         \
                 (f).route.route_type, (f).route.ecmp_enable, (f).old_sdk_index,                   \
                 (f).route.sdk_index __VA_OPT__(, ) __VA_ARGS__)

// The chip refused: the gateway counts as unresolved again.
void undo_arrival(const following &f) {
    dpm_route_entry &route = f.route;
    if (route.ecmp_enable == DPM_ROUTE_ECMP)
        (void)dpm_ecmp_del(route.destination.family, &route.sdk_index,
                           static_cast<std::uint32_t>(route.host_index[f.position]));
    else
        route.sdk_index = 0;
    if (route.sdk_index != 0) // the arrival made the group, and its member was refused as well
        (void)dpm_ecmp_del_all(route.destination.family, &route.sdk_index);
    route.host_index[f.position] = DPM_ROUTE_UNRESOLVED;
    dpm::restore_cpu_default(route);
}

// A member of a route's group that the chip kept when its host went: it is no gateway's any more.
bool is_kept_member(dpm_route_entry &route, std::int32_t host_index) {
    if (route.ecmp_enable != DPM_ROUTE_ECMP)
        return false;
    dpm::ecmp_group group(route.destination.family, route.sdk_index);
    const auto gateways = std::count(route.host_index, route.host_index + route.np_num, host_index);
    return group.count(static_cast<std::uint32_t>(host_index)) > static_cast<std::size_t>(gateways);
}

// A gateway's host came.  True when the route changed and is to be mirrored.
bool gateway_came(const following &f, const dpm::call_site &caller) {
    dpm_route_entry &route = f.route;
    const auto host_index = static_cast<std::int32_t>(f.host.sdk_index);
    if (route.host_index[f.position] != DPM_ROUTE_UNRESOLVED || host_index <= 0)
        return false;
    const bool is_member = is_kept_member(route, host_index);
    route.host_index[f.position] = host_index;
    if (route.ecmp_enable == DPM_ROUTE_ECMP && !is_member) {
        dpm::ecmp_group group(route.destination.family, route.sdk_index);
        (void)group.add(f.host.sdk_index);
        if (group.is_empty())
            dpm::leave_empty_group(route);
    } else if (route.ecmp_enable == DPM_ROUTE_SINGLE && route.host_index[0] > 0) {
        route.sdk_index = route.host_index[0];
    }
    LOG_FOLLOWING(
        caller, f,
        "%s %d::oper %d prefix %s prefixlen %d nexthop %s route_type %d ecmp_enable %d \t\t\t\t\t\t\told_sdk_index %d new_sdk_index %d host_index %d .\r\n",
        host_index);
    if (f.old_sdk_index == 0 && route.sdk_index > 0 &&
        dpm::program_route(record_of(route), caller) != 0) {
        undo_arrival(f);
        return false;
    }
    return true;
}

// A gateway's host is going.  True when the route changed and is to be mirrored.
bool gateway_went(const following &f, const dpm::call_site &caller) {
    dpm_route_entry &route = f.route;
    std::int32_t host_index = route.host_index[f.position];
    if (host_index <= 0 && is_kept_member(route, static_cast<std::int32_t>(f.host.sdk_index)))
        host_index = static_cast<std::int32_t>(f.host.sdk_index); // it goes before the next hop can
    if (host_index <= 0)
        return false;
    if (route.ecmp_enable == DPM_ROUTE_ECMP)
        (void)dpm_ecmp_del(route.destination.family, &route.sdk_index,
                           static_cast<std::uint32_t>(host_index));
    else
        route.sdk_index = 0;
    route.host_index[f.position] = DPM_ROUTE_UNRESOLVED;
    LOG_FOLLOWING(
        caller, f,
        "%s %d::oper %d prefix %s prefixlen %d nexthop %s route_type %d ecmp_enable %d old_sdk_index %d new_sdk_index %d .\r\n");
    if (route.sdk_index == 0 && f.old_sdk_index > 0) {
        if (dpm::withdraw_route(record_of(route), caller) != 0) {
            // deliberate: not mirrored; the standby looks itself when it takes over
            dpm::tell_of_route(route, dpm::route_event::went);
            return false;
        }
        dpm::restore_cpu_default(route);
    }
    return true;
}

// The interface is compared for IPv6 alone: its addresses are scoped.
bool is_gateway(const gateway_place &place, const dpm_host_entry &host) {
    return host.ip.family == DPM_FAMILY_IPV4 ||
           place.route->entry.np_ifindex[place.position] == host.ifindex;
}

// Records are far apart: what the next one needs is asked for while this one is worked on.
void fetch_ahead(const gateway_place *place) {
    if (place == nullptr)
        return;
    __builtin_prefetch(place->link.next); // to tell of the one behind it
    const route_record &record = *place->route;
    __builtin_prefetch(&record.entry);
    __builtin_prefetch(&record.entry.np_ifindex);
    __builtin_prefetch(&record.entry.sdk_index);
    __builtin_prefetch(&record.chip_index);
}

void follow(dpm_route_entry &route, std::uint32_t position, const dpm_host_entry &host,
            std::uint32_t event, const dpm::call_site &caller) {
    const following f = {route, host, event, position, route.sdk_index};
    const bool is_there = event == DPM_HOST_ADDED;
    if (!(is_there ? gateway_came(f, caller) : gateway_went(f, caller)))
        return;
    (void)dpm_route_entry_add_sync_send(&route);
    dpm::tell_of_route(route, is_there ? dpm::route_event::came : dpm::route_event::went);
}

} // namespace

void dpm::ask_for_gateways(dpm_route_entry &route) {
    for (std::uint32_t i = 0; i < route.np_num; i++) {
        if (route.host_index[i] != DPM_ROUTE_UNRESOLVED || !asks_for_host(route, i))
            continue;
        const std::uint32_t ifindex = route.np_ifindex[i];
        if (const dpm_host_entry *host = dpm_host_find_by_ip(route.vrf, &route.np[i], ifindex))
            follow(route, i, *host, DPM_HOST_ADDED, {"dpm_route_host_notify", __LINE__});
        else
            (void)dpm_host_unreachable_add(route.vrf, ifindex, &route.np[i],
                                           DPM_UNREACHABLE_PROBES);
    }
}

namespace {

const dpm_host_entry *host_of(const dpm_route_entry &route, std::uint32_t i) {
    if (!dpm::asks_for_host(route, i))
        return nullptr;
    dpm_host_entry key; // only what the compares read is set
    key.vrf = route.vrf;
    key.ip = route.np[i];
    key.ifindex = route.np_ifindex[i];
    std::memcpy(key.ifname, route.np_ifname[i], sizeof key.ifname);
    return dpm_host_find_by_entry(&key);
}

// Points a gateway at its host.  One that came counts when the group has it already; else it is asked
// for, and with that told to the chip.  False: the host is not here.  It goes behind its routes, so it
// has not come, or was not the master's to tell.
bool recount(dpm_route_entry &route, std::uint32_t i, dpm::ecmp_group &group) {
    const dpm_host_entry *host = host_of(route, i);
    if (host == nullptr)
        return false;
    const auto host_index = static_cast<std::int32_t>(host->sdk_index);
    if (route.host_index[i] != host_index && group.count(host->sdk_index) == 0)
        route.host_index[i] = DPM_ROUTE_UNRESOLVED;
    else
        route.host_index[i] = host_index;
    return true;
}

} // namespace

bool dpm::recount_gateways(dpm_route_entry &route) {
    if (record_of(route).is_tunnels) // whose group is the tunnel's
        return true;
    ecmp_group group(route.destination.family, route.sdk_index);
    bool has_host = false;
    for (std::uint32_t i = 0; i < route.np_num; i++)
        has_host |= recount(route, i, group);
    if (!has_host) // its gateways may have no address, and its group have gone all the same
        return group.keep() || route.ecmp_enable != DPM_ROUTE_ECMP;
    if (route.ecmp_enable == DPM_ROUTE_ECMP)
        return route.sdk_index == 0 || group.recount(route.host_index);
    route.sdk_index = std::max(route.host_index[0], 0);
    return true;
}

namespace {

bool is_over(const dpm_route_entry &route, std::uint32_t ifindex) {
    return std::find(route.np_ifindex, route.np_ifindex + route.np_num, ifindex) !=
           route.np_ifindex + route.np_num;
}

// The routes of the VRF that the interface has come to look for their gateways again.
void arrive(const dpm_if_entry &entry) {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (dpm_route_entry &route : dpm::routes_of(family))
            if (route.vrf == entry.vrf && is_over(route, entry.if_index))
                dpm::ask_for_gateways(route);
}

bool renumber_gateways(dpm_route_entry &route, const char *ifname, std::uint32_t ifindex) {
    bool has_changed = false;
    for (std::uint32_t i = 0; i < route.np_num; i++)
        if (route.np_ifindex[i] != ifindex && std::strcmp(route.np_ifname[i], ifname) == 0)
            route.np_ifindex[i] = ifindex, has_changed = true;
    return has_changed;
}

// Those that were given before their interface have no name for it, so the standby knows no index.
bool name_gateways(dpm_route_entry &route, std::uint32_t ifindex) {
    bool has_changed = false;
    for (std::uint32_t i = 0; i < route.np_num; i++)
        if (ifindex != 0 && route.np_ifindex[i] == ifindex && route.np_ifname[i][0] == '\0')
            has_changed = dpm_if_get_ifnamebyindex(ifindex, route.np_ifname[i]) == 0;
    if (has_changed && dpm::is_over_tunnel(route) && !record_of(route).is_over_tunnel) {
        record_of(route).is_over_tunnel = true; // it leads to no tunnel's destination any more
        dpm::tell_of_route(route, dpm::route_event::went);
    }
    return has_changed;
}

// Gateways on an interface that is there again are looked for again.
void renumber(const char *ifname, std::uint32_t ifindex) {
    const bool is_masters = ifindex != DPM_IFINDEX_NONE && dpm_bridge_self_is_master();
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (dpm_route_entry &route : dpm::routes_of(family)) {
            if (is_masters && name_gateways(route, ifindex))
                (void)dpm_route_entry_add_sync_send(&route);
            if (renumber_gateways(route, ifname, ifindex) && is_masters)
                dpm::ask_for_gateways(route);
        }
}

} // namespace

constexpr dpm::if_follower dpm::routes_on_interfaces = {.arrive = arrive, .renumber = renumber};

int dpm_route_host_notify(const dpm_host_entry *host, std::uint32_t event) {
    if (host == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_family(host->ip.family))
        return -1;
    if (event != DPM_HOST_ADDED && event != DPM_HOST_DELETED)
        return 0;
    route_gateway *gateway = dpm::find_gateway(host->vrf, host->ip);
    if (gateway == nullptr)
        return 0;
    const route_record *handled = nullptr; // of a route's equal gateways the first alone counts
    const dpm::gateway_places places(gateway->places);
    for (gateway_place &place : places) {
        fetch_ahead(places.next(place));
        if (place.route == handled || !is_gateway(place, *host))
            continue;
        handled = place.route;
        follow(place.route->entry, place.position, *host, event, DPM_CALL_SITE);
    }
    return 0;
}
