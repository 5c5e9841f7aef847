// A route's entry in the chip: put there, taken out, and what a refusal leaves behind.
#include "dpm_route_program.h"

#include "dpm_destination.h"
#include "dpm_driver.h"
#include "dpm_ecmp.h"
#include "dpm_retry.h"
#include "platform/dal.h"

#include <initializer_list>
#include <iterator>

namespace {

int chip_add(const dpm_route_entry &route, std::uint32_t slot_bits) {
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

void switch_cpu_defaults_due();

// One that the chip did not switch is switched again, as the routes are then.
void switch_cpu_default(std::uint32_t vrf, std::uint32_t family, std::uint32_t mode,
                        std::uint32_t slot_bits) {
    const int result = dpm_driver_default_route_set(vrf, family, mode, slot_bits);
    auto &due = g_dpm_index.cpu_default_due[family == DPM_FAMILY_IPV6];
    if (slot_bits != DPM_SLOT_ALL_BITS || vrf >= std::size(due))
        return;
    due[vrf] = result != 0;
    if (result != 0)
        dpm::retry_later(g_dpm_index.cpu_default_timer, switch_cpu_defaults_due);
}

void switch_cpu_defaults_due() {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6}) {
        const auto &due = g_dpm_index.cpu_default_due[family == DPM_FAMILY_IPV6];
        for (std::uint32_t vrf = 0; vrf < std::size(due); vrf++)
            if (due[vrf] != 0)
                switch_cpu_default(vrf, family,
                                   dpm::has_default(vrf, family) ? DPM_DISABLE : DPM_ENABLE,
                                   DPM_SLOT_ALL_BITS);
    }
}

void set_cpu_default(const dpm_route_entry &route, std::uint32_t mode, std::uint32_t slot_bits) {
    if (route.destination.prefix_len == 0)
        switch_cpu_default(route.vrf, route.destination.family, mode, slot_bits);
}

} // namespace

namespace dpm {

int program_route(route_record &record, const call_site &caller) {
    const dpm_route_entry &route = record.entry;
    if (record.chip_index == route.sdk_index)
        return 0;
    if (const int result = withdraw_route(record, caller)) // what the chip would not let go before
        return result;
    set_cpu_default(route, DPM_DISABLE, DPM_SLOT_ALL_BITS);
    if (taken_above(destination_rank::route, route.vrf, route.destination))
        return 0; // the chip's entry is another's
    return restore_chip_entry(record, caller);
}

int restore_chip_entry(route_record &record, const call_site &caller) {
    const dpm_route_entry &route = record.entry;
    const int result = chip_add(route, DPM_SLOT_ALL_BITS);
    if (result == 0)
        record.chip_index = route.sdk_index;
    else
        DPM_LOG_FROM(caller, "%s %d::prefix %s add driver failed!\r\n",
                     address_text(route.destination).c_str());
    return result;
}

int lose_chip_entry(route_record &record) {
    if (record.chip_index == 0)
        return 0;
    const int result = chip_delete(record);
    if (result != 0 && result != DAL_NOT_THERE)
        return result;
    record.chip_index = 0;
    return 0;
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
    if (route.destination.prefix_len == 0 &&
        !has_default(route.vrf, route.destination.family, &record_of(route)))
        set_cpu_default(route, DPM_ENABLE, DPM_SLOT_ALL_BITS);
}

void unresolve(dpm_route_entry &route) {
    if (route.ecmp_enable == DPM_ROUTE_ECMP) {
        (void)dpm_ecmp_del_all(route.destination.family, &route.sdk_index);
    } else {
        if (!record_of(route).is_tunnels) // which has no gateway that could be resolved
            route.host_index[0] = DPM_ROUTE_UNRESOLVED;
        route.sdk_index = 0;
    }
    restore_cpu_default(route);
}

void leave_empty_group(dpm_route_entry &route) {
    (void)dpm_ecmp_del_all(route.destination.family, &route.sdk_index);
    for (std::int32_t &host_index : route.host_index)
        if (host_index > 0)
            host_index = DPM_ROUTE_UNRESOLVED;
}

void adopt_chip_entry(route_record &record) {
    const dpm_route_entry &route = record.entry;
    const bool is_there = route.sdk_index > 0 && !gives_way(route);
    record.chip_index = is_there ? route.sdk_index : 0;
}

void reprogram_route(const dpm_route_entry &route, std::uint32_t slot_bits) {
    if (route.sdk_index <= 0 || record_of(route).chip_index == 0)
        return;
    set_cpu_default(route, DPM_DISABLE, slot_bits);
    (void)chip_add(route, slot_bits);
}

bool gives_way(const dpm_route_entry &route) {
    return is_held_above(destination_rank::route, route.vrf, route.destination);
}

} // namespace dpm
