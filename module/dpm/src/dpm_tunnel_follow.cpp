// Tunnels follow the routes to their destinations.
//
// A tunnel leads over the best IPv4 route of its VRF, which is never one over a tunnel: so no tunnel
// can come to lead through itself, and what the routes over tunnels do when a tunnel changes is told
// to no tunnel.  A better route that comes is taken at once, one of the same length too; when the
// route that it holds goes, the best of the others is looked for.
#include "dpm_tunnel_record.h"

#include "dpm_address.h"
#include "dpm_bridge.h"
#include "dpm_route_record.h"
#include "dpm_trace.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

bool has_destination(const dpm_tunnel_entry &tunnel) {
    return tunnel.destination.family == DPM_FAMILY_IPV4;
}

bool is_inside(const dpm_prefix &address, const dpm_prefix &prefix) {
    dpm_prefix a = address, b = prefix;
    dpm::clear_host_bits(a.address, prefix.prefix_len, dpm::address_bytes(DPM_FAMILY_IPV4));
    dpm::clear_host_bits(b.address, prefix.prefix_len, dpm::address_bytes(DPM_FAMILY_IPV4));
    return dpm::address_word(a.address) == dpm::address_word(b.address);
}

void take(dpm_tunnel_entry &tunnel, const dpm_route_entry &route) {
    dpm::take_route(tunnel, route);
    (void)dpm_tunnel_driver_add(&tunnel);
}

void route_came(dpm_tunnel_entry &tunnel, const dpm_route_entry &route,
                const dpm::call_site &caller) {
    const dpm::tunnel_work work(tunnel);
    if (tunnel.route_flag != 1)
        return take(tunnel, route);
    DPM_LOG_FROM(caller, "%s %d::tunnel route prefix %x.%x.%x.%x prefixlen %d\r\n",
                 DPM_IPV4_BYTES(tunnel.route_prefix), tunnel.route_prefix.prefix_len);
    if (tunnel.route_prefix.prefix_len > route.destination.prefix_len) {
        (void)dpm_tunnel_driver_add(&tunnel); // one that is down tries again
        return;
    }
    (void)dpm_tunnel_destination_nexthop_del(&tunnel); // deliberate: also for an equal length
    take(tunnel, route);
}

void route_went(dpm_tunnel_entry &tunnel, const dpm_route_entry &route) {
    dpm::tunnel_work work(tunnel);
    work.mirror_anyway(); // deliberate: whether or not it held the route
    if (!dpm::holds_route(tunnel, route))
        return;
    (void)dpm_tunnel_destination_nexthop_del(&tunnel);
    (void)dpm_tunnel_destination_nexthop_add(&tunnel);
}

// Whether a tunnel leads over its route as that is now, and none is better.
bool is_up_to_date(const dpm_tunnel_entry &tunnel, const dpm_route_entry *best) {
    if (best == nullptr || tunnel.route_flag != 1)
        return best == nullptr && tunnel.route_flag != 1;
    const dpm_route_entry *route = dpm::find_route(tunnel.tunnel_vrf, tunnel.route_prefix);
    return route != nullptr && dpm::is_best_route_candidate(*route) &&
           route->destination.prefix_len == best->destination.prefix_len &&
           route->ecmp_enable == tunnel.ecmp_enable &&
           std::equal(tunnel.host_index, std::end(tunnel.host_index), route->host_index);
}

void take_over(dpm_tunnel_entry &tunnel) {
    const dpm::tunnel_work work(tunnel);
    if (!has_destination(tunnel))
        return;
    const dpm_route_entry *best = dpm_route_find_best_route(tunnel.tunnel_vrf, &tunnel.destination);
    if (!std::exchange(record_of(tunnel).is_torn, false) && is_up_to_date(tunnel, best)) {
        (void)dpm_tunnel_driver_add(&tunnel);
        return;
    }
    (void)dpm_tunnel_destination_nexthop_del(&tunnel);
    (void)dpm_tunnel_destination_nexthop_add(&tunnel);
}

} // namespace

namespace dpm {

tunnel_work::tunnel_work(dpm_tunnel_entry &tunnel) : tunnel_(tunnel), before_(tunnel) {}

tunnel_work::~tunnel_work() {
    constexpr std::size_t content = offsetof(dpm_tunnel_entry, tunnel_id); // behind the tree's node
    if (is_mirrored_ || std::memcmp(reinterpret_cast<const char *>(&before_) + content,
                                    reinterpret_cast<const char *>(&tunnel_) + content,
                                    sizeof before_ - content) != 0)
        (void)dpm_tunnel_entry_add_sync_send(&tunnel_);
    const tunnel_ends ends = ends_of(before_);
    if (is_up(before_) && !(is_up(tunnel_) && ends_of(tunnel_) == ends))
        ends_are_free(ends, &tunnel_);
}

void ends_are_free(const tunnel_ends &ends, const dpm_tunnel_entry *but) {
    for (dpm_tunnel_entry *tunnel = first_with(ends); tunnel != nullptr;
         tunnel = next_with_same(*tunnel)) {
        if (tunnel == but || is_up(*tunnel))
            continue;
        const tunnel_work work(*tunnel);
        (void)dpm_tunnel_driver_add(tunnel);
        if (is_up(*tunnel))
            return;
    }
}

void take_route(dpm_tunnel_entry &tunnel, const dpm_route_entry &route) {
    tunnel.route_flag = 1;
    tunnel.ecmp_enable = route.ecmp_enable;
    tunnel.route_prefix = route.destination;
    std::copy(route.host_index, std::end(route.host_index), tunnel.host_index);
}

bool holds_route(const dpm_tunnel_entry &tunnel, const dpm_route_entry &route) {
    return tunnel.route_flag == 1 && tunnel.route_prefix.family == route.destination.family &&
           dpm_prefix_compare(tunnel.route_prefix, route.destination) == 0;
}

void tunnels_take_over() {
    routes_rejoin_tunnels();
    for (dpm_tunnel_entry &tunnel : tunnels())
        take_over(tunnel);
}

} // namespace dpm

int dpm_tunnel_destination_nexthop_add(dpm_tunnel_entry *tunnel) {
    const dpm_route_entry *best =
        dpm_route_find_best_route(tunnel->tunnel_vrf, &tunnel->destination);
    if (best == nullptr) {
        DPM_TRACE("%s %d::not find best route!\r\n");
        return 0;
    }
    if (best->destination.family == DPM_FAMILY_IPV6) {
        DPM_TRACE("%s %d::find best route is ipv6 type!\r\n");
        return 0;
    }
    const std::int32_t *host = best->host_index;
    DPM_TRACE(
        "%s %d::best route prefix %s prefixlen %d np_num %d sdk_index %d host_index %d/%d/%d/%d/%d/%d/%d/%d\r\n",
        dpm::address_text(best->destination).c_str(), best->destination.prefix_len, best->np_num,
        best->sdk_index, host[0], host[1], host[2], host[3], host[4], host[5], host[6], host[7]);
    take(*tunnel, *best);
    return 0;
}

int dpm_tunnel_destination_nexthop_del(dpm_tunnel_entry *tunnel) {
    (void)dpm_tunnel_driver_del(tunnel);
    dpm_tunnel_clear_destination_nexthop(tunnel);
    return 0;
}

void dpm_tunnel_clear_destination_nexthop(dpm_tunnel_entry *tunnel) {
    tunnel->ecmp_enable = 0;
    tunnel->route_prefix = {};
    tunnel->route_flag = 0;
    tunnel->sdk_index = 0;
    std::fill(tunnel->host_index, std::end(tunnel->host_index), 0);
}

int dpm_tunnel_route_notify(const dpm_route_entry *route, std::uint32_t event) {
    if (route == nullptr || (event != DPM_OPER_ADD && event != DPM_OPER_DEL)) {
        DPM_TRACE("%s %d::the input parameter is error!\r\n");
        return -1;
    }
    const bool is_there = event == DPM_OPER_ADD;
    if (dpm_bridge_self_is_slave() || route->destination.family != DPM_FAMILY_IPV4 ||
        (is_there && !dpm::is_best_route_candidate(*route)))
        return 0;
    for (dpm_tunnel_entry &tunnel : dpm::tunnels()) {
        if (!has_destination(tunnel)) {
            DPM_PLAIN("%s: tunnel %d is not exist destination ip!\r\n", __func__, tunnel.tunnel_id);
            continue;
        }
        if (tunnel.tunnel_vrf != route->vrf || !is_inside(tunnel.destination, route->destination))
            continue;
        if (is_there)
            route_came(tunnel, *route, DPM_CALL_SITE);
        else
            route_went(tunnel, *route);
    }
    return 0;
}
