// Routes over tunnels: static routes that lead into a GRE tunnel of their VRF.
//
// Such a route stands in the route table like any other and gives way like any other, but has no
// gateway: it leads where its tunnel does, and nowhere while that is down.  It names the tunnel by
// name, so it waits when the tunnel ends, and follows when one of that name comes again.
#include "dpm_address.h"
#include "dpm_if.h"
#include "dpm_route_program.h"
#include "dpm_tunnel_record.h"

#include "dpm_bridge.h"

namespace {

constexpr std::uint32_t tunnel_route_type = 3; // static

// Leads a route to what its tunnel leads to.
void join_tunnel(route_record &record, const dpm_tunnel_entry &tunnel,
                 const dpm::call_site &caller) {
    record.entry.sdk_index = tunnel.sdk_index;
    if (record.entry.sdk_index > 0 && dpm::program_route(record, caller) != 0)
        dpm::unresolve(record.entry);
}

void leave_tunnel(route_record &record, const dpm::call_site &caller) {
    record.entry.sdk_index = 0;
    (void)dpm::withdraw_route(record, caller); // what stays is taken out later
    dpm::restore_cpu_default(record.entry);
}

// The tunnel of a route, null when there is none of that name or in that VRF; told in the log.
const dpm_tunnel_entry *tunnel_of(const dpm_route_entry &route, const dpm::call_site &caller) {
    const dpm_tunnel_entry *tunnel = dpm_tunnel_find_by_tunnelname(route.np_ifname[0]);
    if (tunnel == nullptr) {
        DPM_LOG_FROM(caller, "%s %d::np_ifname %s is not exist!\r\n", route.np_ifname[0]);
        return nullptr;
    }
    if (tunnel->ip_vrfid == route.vrf)
        return tunnel;
    DPM_LOG_FROM(caller, "%s %d::vrf not match! tunnel ip_vrfid %d route vrf %d\r\n",
                 tunnel->ip_vrfid, route.vrf);
    return nullptr;
}

void insert(dpm::route_block &block, const dpm_tunnel_entry &tunnel, const dpm::call_site &caller) {
    route_record &record = *block.release();
    record.is_tunnels = true; // a refusal leaves its gateway as it is
    join_tunnel(record, tunnel, caller);
    dpm::link_route(record);
    (void)dpm_route_entry_add_sync_send(&record.entry);
}

dpm_route_entry route_of(const dpm_route_tunnel_msg &body) {
    dpm_route_entry route = {};
    route.vrf = body.vrf;
    route.route_type = tunnel_route_type;
    route.destination = body.destination;
    route.np_num = 1;
    route.ecmp_enable = DPM_ROUTE_SINGLE;
    std::strcpy(route.np_ifname[0], dpm::bounded_name(body.np_ifname).c_str());
    route.np_ifindex[0] = dpm_if_get_ifindexbyname(route.np_ifname[0]);
    return route;
}

// What the tunnel table made; another over an interface with a tunnel's name has a gateway.
bool is_tunnels(const dpm_route_entry &route) {
    return record_of(route).is_tunnels;
}

route_record *first_over(const dpm_tunnel_entry &tunnel) {
    route_record key = {}; // before every route over the tunnel
    key.entry.vrf = tunnel.ip_vrfid;
    std::memcpy(key.entry.np_ifname[0], tunnel.name, sizeof key.entry.np_ifname[0]);
    return dpm::routes_of_tunnels().find_from(key);
}

bool is_over(const dpm_route_entry &route, const dpm_tunnel_entry &tunnel) {
    return route.vrf == tunnel.ip_vrfid &&
           std::strncmp(route.np_ifname[0], tunnel.name, sizeof tunnel.name) == 0;
}

} // namespace

namespace dpm {

void routes_leave_tunnels() {
    for (route_record &record : routes_of_tunnels())
        if (record.entry.sdk_index == 0 && record.chip_index != 0)
            (void)withdraw_route(record, {"dpm_route_tunnel_notify", __LINE__});
}

void routes_rejoin_tunnels() {
    const call_site caller = {"dpm_route_tunnel_notify", __LINE__};
    for (route_record &record : routes_of_tunnels()) {
        const dpm_tunnel_entry *tunnel = dpm_tunnel_find_by_tunnelname(record.entry.np_ifname[0]);
        const bool is_known = tunnel != nullptr && tunnel->ip_vrfid == record.entry.vrf;
        const bool is_whole = is_known && !record_of(*tunnel).is_torn; // else it comes up anew
        const std::int32_t index = is_whole ? tunnel->sdk_index : 0;
        if (record.entry.sdk_index == index)
            continue;
        if (index > 0)
            join_tunnel(record, *tunnel, caller);
        else
            leave_tunnel(record, caller);
    }
}

} // namespace dpm

int dpm_route_tunnel_is_same(const dpm_route_entry *a, const dpm_route_entry *b) {
    return a != nullptr && b != nullptr && a->vrf == b->vrf &&
           a->destination.family == b->destination.family &&
           dpm_prefix_compare(a->destination, b->destination) == 0 &&
           std::strncmp(a->np_ifname[0], b->np_ifname[0], sizeof a->np_ifname[0]) == 0;
}

int dpm_route_tunnel_add(const dpm_route_entry *route) {
    if (route == nullptr)
        return dpm::null_parameter();
    if (!dpm::has_route_room(0, DPM_CALL_SITE))
        return -1;
    if (!dpm::is_known_family(route->destination.family)) {
        DPM_TRACE("%s %d::ip_type = %d is err!\r\n", route->destination.family);
        return 0;
    }
    const dpm_tunnel_entry *tunnel = nullptr;
    if (!dpm::is_sound(*route, DPM_CALL_SITE) ||
        (tunnel = tunnel_of(*route, DPM_CALL_SITE)) == nullptr)
        return -1;
    dpm::route_block block(*route);
    if (!block)
        return -1;
    insert(block, *tunnel, DPM_CALL_SITE);
    return 0;
}

int dpm_route_tunnel_update(dpm_route_entry *present, const dpm_route_entry *route) {
    if (present == nullptr || route == nullptr)
        return dpm::null_parameter();
    if (is_tunnels(*present) && dpm_route_tunnel_is_same(present, route))
        return 0;
    const dpm_tunnel_entry *tunnel = tunnel_of(*route, DPM_CALL_SITE);
    if (tunnel == nullptr)
        return -1;
    dpm::route_block block(*route); // taken before the present route goes
    if (!block || dpm_route_tunnel_del(present) != 0)
        return -1;
    // An ordinary route that went may have been the one that the tunnel was up by.
    insert(block, *tunnel, DPM_CALL_SITE);
    return 0;
}

int dpm_route_tunnel_del(dpm_route_entry *route) {
    if (route == nullptr)
        return dpm::null_parameter();
    if (!is_tunnels(*route))
        return dpm_route_del(route);
    route_record &record = record_of(*route);
    const bool was_programmed = route->sdk_index > 0 || record.chip_index != 0;
    if (dpm::withdraw_route(record, DPM_CALL_SITE) != 0)
        return -1;
    if (was_programmed)
        dpm::restore_cpu_default(*route);
    (void)dpm_route_entry_del_sync_send(route);
    dpm::unlink_route(record);
    dpm::free_route(record);
    return 0;
}

int dpm_route_tunnel_notify(const dpm_tunnel_entry *tunnel, std::uint32_t event) {
    if (tunnel == nullptr)
        return dpm::null_parameter();
    for (route_record *record = first_over(*tunnel);
         record != nullptr && is_over(record->entry, *tunnel);
         record = dpm::routes_of_tunnels().next(*record)) {
        if (event == DPM_OPER_ADD && record->entry.sdk_index <= 0)
            join_tunnel(*record, *tunnel, DPM_CALL_SITE);
        else if (event == DPM_OPER_DEL && record->entry.sdk_index > 0)
            leave_tunnel(*record, DPM_CALL_SITE);
        (void)dpm_route_entry_add_sync_send(&record->entry);
    }
    return 0;
}

int dpm_route_tunnel_add_msg(const dpm_route_tunnel_msg *body) {
    int result;
    if (!dpm::may_change(body, result, DPM_CALL_SITE))
        return result;
    const dpm_route_entry route = route_of(*body);
    DPM_PLAIN(
        "route add vrf %d ip %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x prefixlen %d ifname %s \n\r",
        route.vrf, DPM_IPV6_BYTES(route.destination), route.destination.prefix_len,
        route.np_ifname[0]);
    if (dpm::is_address_of_host(route, DPM_CALL_SITE))
        return 0;
    dpm_route_entry *present = dpm_route_find_by_entry(&route);
    if (present == nullptr) {
        DPM_TRACE("%s %d::add route_entry!\r\n");
        return dpm_route_tunnel_add(&route);
    }
    DPM_TRACE("%s %d::update route_entry!\r\n");
    return dpm_route_tunnel_update(present, &route);
}

// As of any route, what it leads over does not count.
int dpm_route_tunnel_del_msg(const dpm_route_tunnel_msg *body) {
    int result;
    if (!dpm::may_change(body, result, DPM_CALL_SITE))
        return result;
    const dpm_route_entry route = route_of(*body);
    dpm_route_entry *present = dpm_route_find_by_entry(&route);
    if (present == nullptr)
        return 0;
    if (dpm::is_over_tunnel(*present))
        return dpm_route_tunnel_del(present);
    DPM_TRACE("%s %d::prefix %s is not over a tunnel!\r\n",
              dpm::address_text(present->destination).c_str());
    return -1;
}
