// What the routing suite and the host process supply to the library: the registry's answers, VLAN
// ports, notices about VLAN interfaces, and the proxy ARP's side of the worker.

#include "chassis/address.h"
#include "chassis/chassis.h"
#include "platform/bep.h"
#include "platform/hal.h"
#include "platform/host.h"
#include "platform/mrib.h"
#include "platform/nsm.h"
#include "platform/uv.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace chassis::suite {

struct Contract {
    static Suite &suite() { return card().suite; }

    static bool runs_ospf(std::uint32_t address, unsigned prefix_len) {
        Suite &own = suite();
        std::lock_guard lock(own.mutex_);
        const auto bytes = address_bytes(DPM_FAMILY_IPV4, &address);
        return std::ranges::any_of(own.ospf_networks_, [&](const auto &running) {
            const auto &[network, length] = running;
            return prefix_len >= length &&
                   masked(bytes, length) ==
                       masked(address_bytes(DPM_FAMILY_IPV4, &network), length);
        });
    }

    static std::uint32_t vlan_interface(unsigned vlan) {
        Suite &own = suite();
        std::lock_guard lock(own.mutex_);
        for (const auto &[name, entry] : own.interfaces_)
            if (entry.vlan == int(vlan) && entry.type != DPM_IF_SUBVLAN)
                return entry.ifindex;
        return 0;
    }

    static int membership_interval() {
        Suite &own = suite();
        std::lock_guard lock(own.mutex_);
        return own.membership_interval_sec_;
    }

    static int notice(const std::string &text) {
        constexpr std::size_t max_notices = 65536;
        Suite &own = suite();
        std::lock_guard lock(own.mutex_);
        if (own.hal_notices_.size() < max_notices)
            own.hal_notices_.push_back({text});
        if (own.watcher_)
            own.watcher_(text);
        return 0;
    }

    static void count(unsigned Suite::ProxyCounts::*what, const char *name) {
        Suite &own = suite();
        std::lock_guard lock(own.mutex_);
        ++(own.proxy_.*what);
        if (own.watcher_)
            own.watcher_(name);
    }

    static void report(const BfdReport &report) {
        constexpr std::size_t max_reports = 4096;
        Suite &own = suite();
        std::lock_guard lock(own.mutex_);
        if (own.bfd_reports_.size() == max_reports)
            own.bfd_reports_.pop_front();
        own.bfd_reports_.push_back(report);
        if (own.watcher_)
            own.watcher_("bfd " + std::to_string(report.local_disc) + " state " +
                         std::to_string(report.state) + " diag " + std::to_string(report.diag) +
                         " of " + std::to_string(report.remote_disc));
    }

    static std::mutex &vlan_lock() { return suite().vlan_lock_; }
};

} // namespace chassis::suite

using chassis::address_text;
using chassis::suite::Contract;
using chassis::suite::Suite;
using chassis::suite::Vrf;

namespace {

// The number behind the head of a name; negative for another name.
int number_behind(std::string_view head, std::string_view name) {
    int number = -1;
    if (!name.starts_with(head))
        return -1;
    const char *const first = name.data() + head.size(), *const last = name.data() + name.size();
    const auto [end, error] = std::from_chars(first, last, number);
    return error == std::errc() && end == last ? number : -1;
}

template <class... Arguments> int notice(const char *format, Arguments... arguments) {
    char text[128];
    std::snprintf(text, sizeof text, format, arguments...);
    return Contract::notice(text);
}

} // namespace

extern "C" {

// The settings belong to the process: two cards in one process share them.
int g_mpls_ttl_module = 0;
int g_mpls_exp_module = 0;
int g_mpls_exp_value = 0;

int nsm_ifp_get_ifnamebyindex(uint32_t ifindex, char *name) {
    const auto entry = Contract::suite().find(ifindex);
    if (!entry)
        return -1;
    std::snprintf(name, 128, "%s", entry->name.c_str());
    return 0;
}

uint32_t nsm_ifp_get_ifindexbyname(const char *name) {
    const auto entry = Contract::suite().find(std::string(name));
    return entry ? entry->ifindex : 0;
}

int nsm_get_vlanid_by_ifname(const char *name) {
    const auto entry = Contract::suite().find(std::string(name));
    return entry ? entry->vlan : number_behind("vlanif", name);
}

int nsm_vrf_id_get_by_ifindex(uint32_t ifindex) {
    const auto entry = Contract::suite().find(ifindex);
    return entry ? int(entry->vrf) : -1;
}

uint32_t ns_get_ifindex_by_vlanid(uint32_t vlan) {
    return Contract::vlan_interface(vlan);
}

int nsm_vrf_id_get_by_name(const char *name) {
    const auto id = number_behind("vrf", name);
    const auto vrfs = Contract::suite().vrfs();
    return id >= 0 && std::ranges::find(vrfs, unsigned(id), &Vrf::id) != vrfs.end() ? id : -1;
}

int dpm_if_ip_ospf_network_exist(const void *address, uint32_t prefix_len) {
    uint32_t word = 0;
    std::memcpy(&word, address, sizeof word);
    return Contract::runs_ospf(word, prefix_len);
}

int bfd_dist_notifier(uint32_t local_disc, uint32_t state, uint32_t diag, uint32_t, uint32_t,
                      uint32_t, uint32_t remote_disc) {
    Contract::report({local_disc, state, diag, remote_disc, chassis::card().os.now_nsec()});
    return 0;
}

int mrib4_igmp_api_if_gmi_get(uint32_t) {
    return Contract::membership_interval();
}
int mrib6_mld_api_if_gmi_get(uint32_t) {
    return Contract::membership_interval();
}

void uv_lock_outside() {
    Contract::vlan_lock().lock();
}
void uv_unlock_outside() {
    Contract::vlan_lock().unlock();
}

int uv_get_fst_vlan_port_cfg(uint32_t vlan, struct uv_vlan_port *port) {
    const unsigned number = chassis::card().suite.vlan_port(vlan);
    if (!number)
        return -1;
    *port = {.logical_port = uint16_t(number), .tagged = 0};
    return 0;
}

int rcal_bit_is_set(const void *bitmap, uint32_t position) {
    return static_cast<const uint8_t *>(bitmap)[position / 8] >> position % 8 & 1;
}

int hal_ns_vlanif_proc(uint32_t vlan, uint32_t oper) {
    return notice("vlan %u oper %u", vlan, oper);
}

int hal_ns_vlanif_ip_proc(uint32_t vlan, uint32_t family, const void *address, uint32_t prefix_len,
                          uint32_t oper) {
    return notice("vlan %u address %s/%u oper %u", vlan, address_text(family, address).c_str(),
                  prefix_len, oper);
}

int hal_ns_vlanif_vrf_proc(uint32_t vlan, uint32_t vrf, uint32_t oper) {
    return notice("vlan %u vrf %u oper %u", vlan, vrf, oper);
}

int hal_ipstack_static_route_process(uint32_t origin, uint32_t destination, uint32_t prefix_len,
                                     uint32_t gateway, uint32_t) {
    return notice("static route origin %u %s/%u via %s goes", origin,
                  address_text(DPM_FAMILY_IPV4, &destination).c_str(), prefix_len,
                  address_text(DPM_FAMILY_IPV4, &gateway).c_str());
}

int hal_ipstack_ipv6_static_route_process(uint32_t origin, const void *destination,
                                          uint32_t prefix_len, const void *gateway, uint32_t) {
    return notice("static route origin %u %s/%u via %s goes", origin,
                  address_text(DPM_FAMILY_IPV6, destination).c_str(), prefix_len,
                  address_text(DPM_FAMILY_IPV6, gateway).c_str());
}

void dpm_proxy_msg_packet_recv(void *packet) {
    Contract::count(&Suite::ProxyCounts::packets, "proxy packet");
    bep_freeEx(packet, __FILE__, __LINE__);
}

void dpm_proxy_msg_timer() {
    Contract::count(&Suite::ProxyCounts::ticks, "proxy tick");
}

void dpm_proxy_msg_slave_sync(void *data) {
    Contract::count(&Suite::ProxyCounts::syncs, "proxy data");
    bep_freeEx(data, __FILE__, __LINE__);
}

int proxy_arp_route_del_by_vrf_ip(uint32_t, uint32_t) {
    return Contract::count(&Suite::ProxyCounts::route_deletions, "proxy route goes"), 0;
}

} // extern "C"
