// Hosts, held neighbours and waited-for addresses for management readers, who walk and print them
// from threads of their own.
#include "dpm_host.h"

#include "dpm.h"
#include "dpm_locks.h"

#include <cstdio>

namespace {

using hold_list = dpm::list_view<dpm_hold_entry, &dpm_hold_entry::link>;
using unreachable_list = dpm::list_view<dpm_unreachable_entry, &dpm_unreachable_entry::link>;

} // namespace

const dpm_host_entry *dpm_api_get_host_entry_first(std::uint32_t family) {
    if (family == DPM_FAMILY_IPV4)
        return dpm::ipv4_hosts().first();
    if (family == DPM_FAMILY_IPV6)
        return dpm::ipv6_hosts().first();
    return nullptr;
}

const dpm_host_entry *dpm_api_get_host_entry_next(const dpm_host_entry *entry) {
    if (entry == nullptr)
        return nullptr;
    return entry->ip.family == DPM_FAMILY_IPV4 ? dpm::ipv4_hosts().next(*entry)
                                               : dpm::ipv6_hosts().next(*entry);
}

const dpm_unreachable_entry *dpm_api_get_unreachable_entry_first() {
    return unreachable_list(g_dpm_global.unreachable_list).first();
}

const dpm_unreachable_entry *
dpm_api_get_unreachable_entry_next(const dpm_unreachable_entry *entry) {
    return entry != nullptr ? unreachable_list(g_dpm_global.unreachable_list).next(*entry)
                            : nullptr;
}

const dpm_hold_entry *dpm_api_get_hold_entry_first() {
    return hold_list(g_dpm_global.hold_list).first();
}

const dpm_hold_entry *dpm_api_get_hold_entry_next(const dpm_hold_entry *entry) {
    return entry != nullptr ? hold_list(g_dpm_global.hold_list).next(*entry) : nullptr;
}

#define SHOW_HOST(host, bytes, format)                                                             \
    std::printf(format, (host).vrf, (host).port_type, (host).log_port_id, (host).phy_port_id,      \
                (host).svlan, bytes((host).ip), (host).mac[0], (host).mac[1], (host).mac[2],       \
                (host).mac[3], (host).mac[4], (host).mac[5], (host).sdk_index, (host).ifindex,     \
                (host).ifname)

void dpm_ipv4_host_show() {
    const dpm::dpm_lock lock;
    for (const dpm_host_entry &host : dpm::ipv4_hosts())
        SHOW_HOST(
            host, DPM_IPV4_BYTES,
            "\n\r host entry vrf %d port type %d port %d/0x%x svlan %d                ip %x.%x.%x.%x mac %x.%x.%x.%x.%x.%x sdk_index %d ifindex %d ifname %s\n\r");
}

void dpm_ipv6_host_show() {
    const dpm::dpm_lock lock;
    for (const dpm_host_entry &host : dpm::ipv6_hosts())
        SHOW_HOST(
            host, DPM_IPV6_BYTES,
            "\n\r host entry vrf %d port type %d port %d/0x%x svlan %d                ip %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x mac %x.%x.%x.%x.%x.%x sdk_index %d ifindex %d ifname %s\n\r");
}
