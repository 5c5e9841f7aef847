// A route's entry in the chip: put there, taken out, left to a label entry or host, followed as its
// gateways come and go.
#include "dpm_route_program.h"

#include "dpm_driver.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_if.h"
#include "dpm_l3vpn.h"
#include "dpm_mirror.h"

namespace {

int chip_add(route_record &record, std::uint32_t slot_bits) {
    const dpm_route_entry &route = record.entry;
    return dpm_driver_route_add(route.vrf, route.destination.family, route.destination.address,
                                route.destination.prefix_len,
                                static_cast<std::uint32_t>(route.sdk_index), slot_bits);
}

int chip_delete(const route_record &record) {
    const dpm_route_entry &route = record.entry;
    return dpm_driver_route_del(route.vrf, route.destination.family, route.destination.address,
                                route.destination.prefix_len,
                                static_cast<std::uint32_t>(record.chip_index), DPM_SLOT_ALL_BITS);
}

void set_cpu_default(const dpm_route_entry &route, std::uint32_t mode, std::uint32_t slot_bits) {
    if (route.destination.prefix_len == 0)
        (void)dpm_driver_default_route_set(route.vrf, route.destination.family, mode, slot_bits);
}

// What one host event did to one route.
struct following {
    dpm_route_entry &route;
    const dpm_host_entry &host;
    std::uint32_t event;
    std::uint32_t position; // of the gateway
    std::int32_t old_sdk_index;
};

void log_came(const following &f, const dpm::call_site &caller) {
    const dpm_route_entry &route = f.route;
    DPM_LOG_FROM(caller,
                 "%s %d::oper %d prefix %s prefixlen %d nexthop %s route_type %d ecmp_enable %d "
                 "\t\t\t\t\t\t\told_sdk_index %d new_sdk_index %d host_index %d .\r\n",
                 f.event, dpm::address_text(route.destination).c_str(),
                 route.destination.prefix_len, dpm::address_text(f.host.ip).c_str(),
                 route.route_type, route.ecmp_enable, f.old_sdk_index, route.sdk_index,
                 route.host_index[f.position]);
}

void log_went(const following &f, const dpm::call_site &caller) {
    const dpm_route_entry &route = f.route;
    DPM_LOG_FROM(caller,
                 "%s %d::oper %d prefix %s prefixlen %d nexthop %s route_type %d ecmp_enable %d "
                 "old_sdk_index %d new_sdk_index %d .\r\n",
                 f.event, dpm::address_text(route.destination).c_str(),
                 route.destination.prefix_len, dpm::address_text(f.host.ip).c_str(),
                 route.route_type, route.ecmp_enable, f.old_sdk_index, route.sdk_index);
}

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

// A gateway's host came.  True when the route changed and is to be mirrored.
bool gateway_came(const following &f, const dpm::call_site &caller) {
    dpm_route_entry &route = f.route;
    const auto host_index = static_cast<std::int32_t>(f.host.sdk_index);
    if (route.host_index[f.position] != DPM_ROUTE_UNRESOLVED || host_index <= 0)
        return false;
    route.host_index[f.position] = host_index;
    if (route.ecmp_enable == DPM_ROUTE_ECMP)
        (void)dpm_ecmp_add(route.destination.family, &route.sdk_index, f.host.sdk_index);
    else if (route.host_index[0] > 0)
        route.sdk_index = route.host_index[0];
    log_came(f, caller);
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
    const std::int32_t host_index = route.host_index[f.position];
    if (host_index <= 0)
        return false;
    if (route.ecmp_enable == DPM_ROUTE_ECMP)
        (void)dpm_ecmp_del(route.destination.family, &route.sdk_index,
                           static_cast<std::uint32_t>(host_index));
    else
        route.sdk_index = 0;
    route.host_index[f.position] = DPM_ROUTE_UNRESOLVED;
    log_went(f, caller);
    if (route.sdk_index == 0 && f.old_sdk_index > 0) {
        if (dpm::withdraw_route(record_of(route), caller) != 0)
            return false;
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
    const route_record &record = *place->route;
    __builtin_prefetch(&record.entry);
    __builtin_prefetch(&record.entry.np_ifindex);
    __builtin_prefetch(&record.entry.sdk_index);
    __builtin_prefetch(&record.chip_index);
}

struct route_mirror {
    using entry = dpm_route_entry;
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_ROUTE, del_code = DPM_MSG_SYNC_DEL_ROUTE;
    static constexpr std::uint32_t batch_entries = 100;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, route driver sync.\r\n";
    static constexpr const char *empty_first_text = "%s %d::ipv4 route tree is null.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, route table sync.\r\n";
    static std::span<dpm_avl_tree *const> trees() {
        static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.route_ipv4_tree,
                                                       &g_dpm_global.route_ipv6_tree};
        return list;
    }
    static bool reprogram(const dpm_route_entry &route, std::uint32_t slot_bits) {
        auto &record = record_of(const_cast<dpm_route_entry &>(route));
        if (route.sdk_index <= 0 || record.chip_index == 0)
            return true;
        set_cpu_default(route, DPM_DISABLE, slot_bits);
        (void)chip_add(record, slot_bits);
        return true;
    }
};

// A mirrored route as this card keeps it: interface indexes are looked up by name again.
bool localise(dpm_route_entry &route, const dpm::call_site &caller) {
    const dpm_prefix &destination = route.destination;
    if (!dpm::is_known_family(destination.family) || route.np_num > DPM_ROUTE_GATEWAYS ||
        destination.prefix_len > dpm::host_bits(destination.family)) {
        DPM_LOG_FROM(caller, "%s %d::iptype = %d is err!\r\n", destination.family);
        return false;
    }
    for (std::uint32_t i = 0; i < DPM_ROUTE_GATEWAYS; i++) {
        route.np_ifname[i][DPM_IFNAME_BYTES - 1] = '\0';
        if (i < route.np_num)
            route.np_ifindex[i] = dpm_if_get_ifindexbyname(route.np_ifname[i]);
    }
    route.node = {};
    return true;
}

void drop_mirrored(dpm_route_entry *present) {
    if (present == nullptr)
        return;
    (void)dpm_timer_stop(g_dpm_global.timer_list, &present->delete_timer);
    dpm::unlink_route(record_of(*present));
    dpm::free_route(record_of(*present));
}

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(route_mirror,
                   dpm_route_entry_add_sync_send, dpm_route_entry_add_sync_receive,
                   dpm_route_entry_del_sync_send, dpm_route_entry_del_sync_receive,
                   dpm_route_entry_sync_all_send, dpm_route_entry_sync_all_receive)
// clang-format on

namespace dpm {

int program_route(route_record &record, const call_site &caller) {
    const dpm_route_entry &route = record.entry;
    if (record.chip_index == route.sdk_index)
        return 0;
    if (const int result = withdraw_route(record, caller)) // what the chip would not let go before
        return result;
    set_cpu_default(route, DPM_DISABLE, DPM_SLOT_ALL_BITS);
    if (gives_way(route))
        return 0; // the chip's entry is another's
    const int result = chip_add(record, DPM_SLOT_ALL_BITS);
    if (result == 0)
        record.chip_index = route.sdk_index;
    else
        DPM_LOG_FROM(caller, "%s %d::prefix %s add driver failed!\r\n",
                     address_text(route.destination).c_str());
    return result;
}

int withdraw_route(route_record &record, const call_site &caller) {
    if (record.chip_index == 0)
        return 0;
    const int result = chip_delete(record);
    if (result == 0)
        record.chip_index = 0;
    else
        DPM_LOG_FROM(caller, "%s %d::prefix %s delete driver failed!\r\n",
                     address_text(record.entry.destination).c_str());
    return result;
}

void restore_cpu_default(const dpm_route_entry &route) {
    if (route.destination.prefix_len == 0 && !has_other_default(record_of(route)))
        set_cpu_default(route, DPM_ENABLE, DPM_SLOT_ALL_BITS);
}

void unresolve(dpm_route_entry &route) {
    if (route.ecmp_enable == DPM_ROUTE_ECMP) {
        (void)dpm_ecmp_del_all(route.destination.family, &route.sdk_index);
    } else {
        route.host_index[0] = DPM_ROUTE_UNRESOLVED;
        route.sdk_index = 0;
    }
    restore_cpu_default(route);
}

void adopt_chip_entry(route_record &record) {
    const dpm_route_entry &route = record.entry;
    const bool is_there = route.sdk_index > 0 && !gives_way(route);
    record.chip_index = is_there ? route.sdk_index : 0;
}

bool gives_way(const dpm_route_entry &route) {
    const dpm_prefix &destination = route.destination;
    return has_tunnel_ftn(route.vrf, destination) ||
           (destination.prefix_len == host_bits(destination.family) &&
            has_chip_host(route.vrf, destination));
}

int route_leave_to_label(dpm_route_entry &route) {
    return withdraw_route(record_of(route), DPM_CALL_SITE);
}

void route_lose_to_host(dpm_route_entry &route) {
    record_of(route).chip_index = 0;
}

int route_take_back(dpm_route_entry &route) {
    route_record &record = record_of(route);
    if (route.sdk_index <= 0 || record.chip_index != 0 || gives_way(route))
        return 0;
    const int result = program_route(record, DPM_CALL_SITE);
    if (result != 0) {
        unresolve(route);
        (void)dpm_route_entry_add_sync_send(&route);
    }
    return result;
}

} // namespace dpm

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
        dpm_route_entry &route = place.route->entry;
        const following f = {route, *host, event, place.position, route.sdk_index};
        const bool has_changed = event == DPM_HOST_ADDED ? gateway_came(f, DPM_CALL_SITE)
                                                         : gateway_went(f, DPM_CALL_SITE);
        if (has_changed)
            (void)dpm_route_entry_add_sync_send(&route);
    }
    return 0;
}

int dpm_route_entry_add_sync_process(const dpm_route_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    dpm_route_entry route = *entry;
    if (!localise(route, DPM_CALL_SITE))
        return -1;
    dpm::route_block record(route);
    if (!record)
        return -1;
    drop_mirrored(dpm_route_find_by_entry(&record->entry));
    record->is_mirrored = true;
    dpm::adopt_chip_entry(*record);
    dpm::link_route(*record.release());
    return 0;
}

int dpm_route_entry_del_sync_process(const dpm_route_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_family(entry->destination.family)) {
        DPM_TRACE("%s %d::iptype = %d is err!\r\n", entry->destination.family);
        return -1;
    }
    drop_mirrored(dpm_route_find_by_entry(entry));
    return 0;
}
