// Routes: the unicast routes that the routing suite installs, each with up to eight gateways.
//
// A route is in the chip only while at least one gateway is a resolved host: with one gateway it
// points at that host's next hop, with several at an ECMP group of the resolved ones.  It follows
// its gateways through the host table's notices (dpm_route_follow), gives way to what stands above
// it for the same destination (dpm_destination), and ages out after a switch-over unless it is
// installed again.  A route that the chip refuses stays in the table, unprogrammed.
//
// sdk_index tells what the route points at, also while another entry stands in its place; what the
// chip itself holds is remembered beside the record, so that a delete is sent exactly when there is
// something to delete.
#include "dpm_route.h"

#include "dpm_bridge.h"
#include "dpm_destination.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_if.h"
#include "dpm_route_program.h"
#include "dpm_route_record.h"
#include "dpm_trace.h"
#include "platform/hal.h"

#include <utility>

namespace {

constexpr dpm::call_site adding = {"dpm_route_add", __LINE__}; // also when a route is replaced
constexpr std::uint32_t static_route_origin = 15;              // as the IP stack numbers it

// Refusals about tunnels carry no function and line: the text is format and argument at once.
int refuse(const char *text) {
    // deliberate: those who watch the logs know these two lines so
    ulogPrintf(g_dpm_global.module_id, DPM_LEVEL_TRACE, text, text);
    return -1;
}

void fill_route(dpm_route_entry &route, const dpm_route_msg &body) {
    route.vrf = body.vrf;
    route.route_type = body.route_type;
    route.destination = body.destination;
    std::memcpy(route.np, body.np, sizeof route.np);
    std::memcpy(route.np_ifindex, body.np_ifindex, sizeof route.np_ifindex);
    route.np_num = body.np_num;
    route.ecmp_enable = body.np_num == 1 ? DPM_ROUTE_SINGLE : DPM_ROUTE_ECMP;
    for (std::uint32_t i = 0; i < route.np_num; i++)
        if (i > 0 && route.np_ifindex[i] == route.np_ifindex[i - 1])
            std::memcpy(route.np_ifname[i], route.np_ifname[i - 1], sizeof route.np_ifname[i]);
        else
            (void)dpm_if_get_ifnamebyindex(route.np_ifindex[i], route.np_ifname[i]);
}

// What the chip shall point to for one gateway.
std::int32_t resolve(const dpm_route_entry &route, std::uint32_t position) {
    const dpm_prefix &gateway = route.np[position];
    if (gateway.family == DPM_FAMILY_NONE)
        return DPM_ROUTE_NO_ADDRESS;
    if (!dpm::asks_for_host(route, position))
        return DPM_ROUTE_UNRESOLVED;
    return static_cast<std::int32_t>(
        dpm_host_get_index_by_ip(route.vrf, route.np_ifindex[position], &gateway));
}

void resolve_gateways(dpm_route_entry &route) {
    dpm::ecmp_group group(route.destination.family, route.sdk_index);
    for (std::uint32_t i = 0; i < route.np_num; i++) {
        route.host_index[i] = resolve(route, i);
        if (route.ecmp_enable == DPM_ROUTE_ECMP && route.host_index[i] != DPM_ROUTE_UNRESOLVED)
            (void)group.add(static_cast<std::uint32_t>(route.host_index[i]));
    }
    if (group.is_empty())
        dpm::leave_empty_group(route);
    if (route.ecmp_enable == DPM_ROUTE_SINGLE && route.host_index[0] > 0)
        route.sdk_index = route.host_index[0];
}

void leave_groups(dpm_route_entry &route) {
    if (route.ecmp_enable != DPM_ROUTE_ECMP || route.sdk_index <= 0)
        return;
    dpm::ecmp_group group(route.destination.family, route.sdk_index);
    for (const std::int32_t host_index : route.host_index)
        if (host_index > 0)
            (void)group.remove(static_cast<std::uint32_t>(host_index));
    if (route.sdk_index != 0) // members that the chip kept, or never took: nobody else ends it
        (void)dpm_ecmp_del_all(route.destination.family, &route.sdk_index);
}

int delete_expired(std::uintptr_t route, std::uintptr_t, std::uintptr_t) {
    if (dpm_bridge_self_is_slave()) // a timer that finds its card on standby does nothing
        return 0;
    return dpm_route_del(reinterpret_cast<dpm_route_entry *>(route));
}

// The IP stack's own route over an old gateway goes too; it has none over the other family's.
void forget_in_ip_stack(const dpm_prefix &destination, const dpm_prefix &gateway) {
    if (dpm::is_known_family(gateway.family) && gateway.family != destination.family)
        return;
    if (destination.family == DPM_FAMILY_IPV4)
        (void)hal_ipstack_static_route_process(
            static_route_origin, dpm::address_word(destination.address), destination.prefix_len,
            dpm::address_word(gateway.address), 0);
    else
        (void)hal_ipstack_ipv6_static_route_process(static_route_origin, destination.address,
                                                    destination.prefix_len, gateway.address, 0);
}

void put_into_chip(route_record &record) {
    if (record.entry.sdk_index > 0 && dpm::program_route(record, adding) != 0)
        dpm::unresolve(record.entry);
}

// Adds a route whose block is at hand; the block is released when the table takes it.
int add_route(dpm::route_block &record) {
    dpm_route_entry &route = record->entry;
    resolve_gateways(route);
    const std::int32_t *host = route.host_index;
    DPM_LOG_FROM(
        adding,
        "%s %d::prefix %s prefixlen %d route_type %d ecmp_enable %d sdk_index %d host_index %d/%d/%d/%d/%d/%d/%d/%d .\r\n",
        dpm::address_text(route.destination).c_str(), route.destination.prefix_len,
        route.route_type, route.ecmp_enable, route.sdk_index, host[0], host[1], host[2], host[3],
        host[4], host[5], host[6], host[7]);
    put_into_chip(*record);
    dpm::link_route(*record.release());
    dpm::tell_of_route(route, dpm::route_event::came);
    (void)dpm_route_entry_add_sync_send(&route);
    return 0;
}

// As if it had just come: its group had gone before the master could mirror the route.
void resolve_anew(dpm_route_entry &route) {
    route.sdk_index = 0;
    record_of(route).chip_index = 0;
    resolve_gateways(route);
    put_into_chip(record_of(route));
}

void take_over(dpm_route_entry &route) {
    const bool has_group = dpm::recount_gateways(route);
    if (record_of(route).is_mirrored) // label entries may have come behind it
        dpm::adopt_chip_entry(record_of(route));
    record_of(route).is_mirrored = false;
    if (!has_group)
        resolve_anew(route);
    dpm::ask_for_gateways(route);
    if (dpm_route_dynamic_type_check(route.route_type))
        (void)dpm_timer_start(g_dpm_global.timer_list, &route.delete_timer, DPM_ROUTE_DELETE_SEC,
                              delete_expired, reinterpret_cast<std::uintptr_t>(&route), 0, 0);
}

// Routes over tunnels leave the chip with their tunnel, which may go down with the first route that is
// taken over: what the chip holds of them must be known before.
void adopt_routes_over_tunnels() {
    for (route_record &record : dpm::routes_of_tunnels())
        if (std::exchange(record.is_mirrored, false))
            dpm::adopt_chip_entry(record);
}

// --- as an owner of destinations ---

bool holds(std::uint32_t vrf, const dpm_prefix &destination) {
    const dpm_route_entry *route = dpm::find_route(vrf, destination);
    return route != nullptr && record_of(*route).chip_index != 0;
}

bool claims(std::uint32_t vrf, const dpm_prefix &destination) {
    const dpm_route_entry *route = dpm::find_route(vrf, destination);
    return route != nullptr && route->sdk_index > 0;
}

// A host comes to the route's very address: nobody needs the route any more.
int leave_table(dpm_route_entry &route, const dpm::call_site &caller) {
    const dpm::address_text prefix(route.destination);
    DPM_LOG_FROM(caller, "%s %d::prefix %s exist in fib route, del!\r\n", prefix.c_str());
    const int result = dpm_route_del(&route);
    if (result != 0)
        DPM_LOG_FROM(caller, "%s %d::prefix %s del err!\r\n", prefix.c_str());
    return result;
}

int route_give_way(std::uint32_t vrf, const dpm_prefix &destination, dpm::way how,
                   const dpm::call_site &caller) {
    dpm_route_entry *route = dpm::find_route(vrf, destination);
    if (route == nullptr)
        return 0;
    if (how == dpm::way::out_of_table)
        return leave_table(*route, caller);
    if (how == dpm::way::out_of_chip)
        return dpm::lose_chip_entry(record_of(*route));
    record_of(*route).chip_index = 0;
    return 0;
}

void route_take_back(std::uint32_t vrf, const dpm_prefix &destination) {
    dpm_route_entry *route = dpm::find_route(vrf, destination);
    if (route == nullptr || route->sdk_index <= 0 || record_of(*route).chip_index != 0 ||
        dpm::gives_way(*route))
        return;
    if (dpm::restore_chip_entry(record_of(*route), DPM_CALL_SITE) != 0) {
        dpm::unresolve(*route);
        (void)dpm_route_entry_add_sync_send(route);
        dpm::tell_of_route(*route, dpm::route_event::went);
    }
}

// What a label entry claims leads no tunnel to its destination.
void route_claimed(std::uint32_t vrf, const dpm_prefix &destination, bool is_claimed) {
    const dpm_route_entry *route = dpm::find_route(vrf, destination);
    if (route != nullptr && route->sdk_index > 0)
        dpm::tell_of_route(*route, is_claimed ? dpm::route_event::went : dpm::route_event::came);
}

} // namespace

constexpr dpm::destination_owner dpm::route_owner = {
    .holds = holds,
    .claims = claims,
    .take_over = nullptr, // nothing stands below a route
    .give_way = route_give_way,
    .take_back = route_take_back,
    .claimed = route_claimed,
};

bool dpm::is_address_of_host(const dpm_route_entry &route, const call_site &caller) {
    const dpm_prefix &destination = route.destination;
    if (!is_known_family(destination.family) ||
        destination.prefix_len != host_bits(destination.family) ||
        dpm_host_find_by_ip(route.vrf, &destination, route.np_ifindex[0]) == nullptr)
        return false;
    DPM_LOG_FROM(caller, "%s %d::ip_str %s exist in fib host\r\n",
                 address_text(destination).c_str());
    return true;
}

int dpm_route_add(const dpm_route_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    if (!dpm::has_route_room(0, DPM_CALL_SITE))
        return -1;
    if (!dpm::is_known_family(entry->destination.family)) {
        DPM_TRACE("%s %d::ip_type = %d is err!\r\n", entry->destination.family);
        return 0;
    }
    if (!dpm::is_sound(*entry, DPM_CALL_SITE))
        return -1;
    dpm::route_block record(*entry);
    if (!record)
        return -1;
    return add_route(record);
}

int dpm_route_del(dpm_route_entry *entry) {
    if (entry == nullptr) {
        (void)dpm::null_parameter();
        return 0;
    }
    if (!dpm::is_known_family(entry->destination.family)) {
        DPM_TRACE("%s %d::ip_type = %d is err!\r\n", entry->destination.family);
        return 0;
    }
    DPM_TRACE("%s %d::prefix %s prefixlen %d sdk_index %d route_type %d ecmp_enable %d.\r\n",
              dpm::address_text(entry->destination).c_str(), entry->destination.prefix_len,
              entry->sdk_index, entry->route_type, entry->ecmp_enable);
    route_record &record = record_of(*entry);
    const bool was_programmed = entry->sdk_index != 0 || record.chip_index != 0;
    if (dpm::withdraw_route(record, DPM_CALL_SITE) != 0)
        return -1;
    if (was_programmed)
        dpm::restore_cpu_default(*entry);
    leave_groups(*entry);
    (void)dpm_timer_stop(g_dpm_global.timer_list, &entry->delete_timer);
    (void)dpm_route_entry_del_sync_send(entry);
    dpm::unlink_route(record);
    if (!record.is_tunnels)
        dpm::tell_of_route(*entry, dpm::route_event::went);
    dpm::free_route(record);
    return 0;
}

int dpm_route_update(dpm_route_entry *old_entry, const dpm_route_entry *new_entry) {
    if (old_entry == nullptr || new_entry == nullptr)
        return dpm::null_parameter();
    if (dpm_route_is_same(old_entry, new_entry)) // renewed: it outlives a switch-over
        return (void)dpm_timer_stop(g_dpm_global.timer_list, &old_entry->delete_timer), 0;
    if (!dpm::is_sound(*new_entry, DPM_CALL_SITE) ||
        !dpm::has_route_room(dpm::route_weight(*old_entry), DPM_CALL_SITE))
        return -1;
    dpm::route_block record(*new_entry); // taken before the old route goes
    if (!record)
        return -1;
    for (std::uint32_t i = 0; i < old_entry->np_num; i++)
        forget_in_ip_stack(old_entry->destination, old_entry->np[i]);
    if (dpm_route_del(old_entry) != 0)
        return -1;
    return add_route(record);
}

int dpm_route_add_msg(const dpm_route_msg *body) {
    int result;
    if (!dpm::may_change(body, result, DPM_CALL_SITE))
        return result;
    if (!dpm::is_sound(*body, DPM_CALL_SITE))
        return -1;
    dpm_route_entry route = {};
    fill_route(route, *body);
    if (dpm::is_address_of_host(route, DPM_CALL_SITE))
        return 0;
    dpm_route_entry *present = dpm_route_find_by_entry(&route);
    if (present == nullptr) {
        DPM_TRACE("%s %d::prefix not exit in route table.\r\n");
        return dpm_route_add(&route);
    }
    DPM_TRACE("%s %d::find same prefix and mask in route table.\r\n");
    if (dpm::is_over_tunnel(*present))
        return refuse("exist route nexthop is tunnel!\r\n");
    return dpm_route_update(present, &route);
}

int dpm_route_del_msg(const dpm_route_msg *body) {
    int result;
    if (!dpm::may_change(body, result, DPM_CALL_SITE))
        return result;
    route_record key; // only what the compare reads is set
    key.entry.vrf = body->vrf;
    key.entry.destination = body->destination;
    dpm_route_entry *present = dpm_route_find_by_entry(&key.entry);
    if (present == nullptr)
        return 0;
    DPM_TRACE("%s %d::find same prefix and mask in route table.\r\n");
    if (dpm::is_over_tunnel(*present))
        return refuse("route nexthop is tunnel, not delelte!\r\n");
    return dpm_route_del(present);
}

int dpm_route_start_delete_time() {
    if (dpm::ipv4_routes().empty())
        DPM_TRACE("%s %d::ipv4 route table is null!\r\n");
    std::memset(g_dpm_index.cpu_default_due, 0, sizeof g_dpm_index.cpu_default_due);
    adopt_routes_over_tunnels();
    for (dpm_route_entry &route : dpm::ipv4_routes())
        take_over(route);
    for (dpm_route_entry &route : dpm::ipv6_routes())
        take_over(route);
    return 0;
}
