// Hosts under an interface that changes.
//
// On the master they go with their interface, and with its VRF, in full; the IP stack forgets them
// too, so that whoever is still there is learnt anew.  On the standby they stay until the master's
// deletes come: an index is part of an IPv6 host's key, so it follows the name.
#include "dpm_host_record.h"

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_if.h"
#include "dpm_retry.h"

#include <cstring>
#include <utility>

namespace {

constexpr std::uint32_t wait_for_interfaces_sec = 600; // after a switch-over

// Deletes the hosts that are to leave; false when the chip would not let some of them go.  The IP
// stack forgets those too, once.
template <class Table, class Leaves> bool delete_hosts(const Table &table, Leaves leaves) {
    bool all_left = true;
    for (dpm_host_entry &host : table.erasable()) {
        if (!leaves(host))
            continue;
        const bool is_known = !std::exchange(record_of(host).is_leaving, true);
        const std::uint32_t vrf = host.vrf, ifindex = host.ifindex;
        const dpm_prefix ip = host.ip;
        if (dpm_host_entry_del(&host) != 0)
            all_left = false;
        if (is_known)
            dpm::drop_neighbour(vrf, ifindex, ip);
    }
    return all_left;
}

// No request names such a host any more, so it is tried again until it goes.
void delete_leaving();

template <class Leaves> void delete_all(Leaves leaves) {
    const bool ipv4_left = delete_hosts(dpm::ipv4_hosts(), leaves);
    const bool ipv6_left = delete_hosts(dpm::ipv6_hosts(), leaves);
    if (!ipv4_left || !ipv6_left)
        dpm::retry_later(g_dpm_index.leaving_timer, delete_leaving);
}

// No master takes a host so: an earlier one could not delete it, and died.  One that was reported
// before its interface has no name for it.
bool is_left_over(const dpm_host_entry &host) {
    const bool has_lost_interface = host.ifindex == DPM_IFINDEX_NONE && host.ifname[0] != '\0';
    return has_lost_interface || host.vrf != dpm_if_get_vrf_by_vlan(host.svlan);
}

void delete_leaving() {
    delete_all([](const dpm_host_entry &host) {
        return record_of(host).is_leaving || is_left_over(host);
    });
}

// A host is on its interface, and has the VRF of its VLAN's interface, 0 without one: reports tell
// both.
void leave(const dpm_if_entry &entry, std::uint32_t vrf) {
    const bool goes = vrf == DPM_VRF_NONE;
    const bool gives_other_vrf = entry.if_type == DPM_IF_VLANIF && (goes ? 0 : vrf) != entry.vrf;
    delete_all([&](const dpm_host_entry &host) {
        return host.ifindex == entry.if_index || (gives_other_vrf && host.svlan == entry.if_id);
    });
    const std::uint32_t left = goes ? DPM_VRF_NONE : entry.vrf;
    dpm::unreachables_end_on(entry.if_index, left);
    dpm::holds_end_on(entry.if_index, left);
}

// One that was reported before its interface has no name for it, so the standby knows no index.
void name_host(dpm_host_entry &host) {
    (void)dpm_host_entry_del_sync_send(&host);
    (void)dpm_if_get_ifnamebyindex(host.ifindex, host.ifname);
    (void)dpm_host_entry_add_sync_send(&host);
}

// Of two hosts that come to have one key the one that was there stays: a report renews it.  A
// master that has taken over without the interface asks for them where they are.
template <class Table>
void renumber_hosts(const Table &table, const char *ifname, std::uint32_t ifindex) {
    const bool is_masters = ifindex != DPM_IFINDEX_NONE && dpm_bridge_self_is_master();
    for (dpm_host_entry &host : table.erasable()) {
        if (is_masters && host.ifindex == ifindex && host.ifname[0] == '\0')
            name_host(host);
        if (host.ifindex == ifindex || std::strcmp(host.ifname, ifname) != 0)
            continue;
        table.remove(host);
        host.ifindex = ifindex;
        if (table.add(host) != nullptr)
            dpm::free_host(host);
        else if (is_masters)
            (void)dpm_host_unreachable_add(host.vrf, ifindex, &host.ip, DPM_SWITCHOVER_PROBES);
    }
}

void renumber(const char *ifname, std::uint32_t ifindex) {
    renumber_hosts(dpm::ipv4_hosts(), ifname, ifindex);
    renumber_hosts(dpm::ipv6_hosts(), ifname, ifindex);
}

} // namespace

void dpm::hosts_left_over() {
    const auto are_left_over = [](const auto &hosts) {
        for (const dpm_host_entry &host : hosts)
            if (is_left_over(host))
                return true;
        return false;
    };
    if (are_left_over(ipv4_hosts()) || are_left_over(ipv6_hosts()))
        retry_later(g_dpm_index.leaving_timer, delete_leaving, wait_for_interfaces_sec);
}

constexpr dpm::if_follower dpm::hosts_on_interfaces = {.leave = leave, .renumber = renumber};
