// The host trees: their orders, lookups, and what others ask about a host.  Below everything else
// that is known about hosts, so that each of those sources can use it.
#include "dpm_host_record.h"

#include "dpm.h"
#include "dpm_driver.h"
#include "dpm_trace.h"

namespace dpm {

ipv4_host_table ipv4_hosts() {
    return ipv4_host_table(g_dpm_global.host_ipv4_tree);
}
ipv6_host_table ipv6_hosts() {
    return ipv6_host_table(g_dpm_global.host_ipv6_tree);
}

void link_host(dpm_host_entry &host) {
    if (host.ip.family == DPM_FAMILY_IPV4)
        (void)ipv4_hosts().add(host);
    else
        (void)ipv6_hosts().add(host);
}

void unlink_host(dpm_host_entry &host) {
    if (host.ip.family == DPM_FAMILY_IPV4)
        ipv4_hosts().remove(host);
    else
        ipv6_hosts().remove(host);
}

bool egress_of(const dpm_host_entry &host, egress &out) {
    switch (host.port_type) {
    case DPM_PORT_LOGICAL:
        out = {DPM_PORT_LOGICAL, host.log_port_id};
        return host.log_port_id != 0;
    case 0:
    case DPM_PORT_PHYSICAL:
        out = {DPM_PORT_PHYSICAL, host.phy_port_id};
        return true;
    default:
        return false;
    }
}

int program_host(const dpm_host_entry &host, std::uint32_t slot_bits) {
    return dpm_driver_route_add(host.vrf, host.ip.family, host.ip.address,
                                host_bits(host.ip.family), host.sdk_index, slot_bits);
}

int withdraw_host(const dpm_host_entry &host) {
    return dpm_driver_route_del(host.vrf, host.ip.family, host.ip.address,
                                host_bits(host.ip.family), host.sdk_index, DPM_SLOT_ALL_BITS);
}

bool has_chip_host(std::uint32_t vrf, const dpm_prefix &ip) {
    if (ip.prefix_len != host_bits(ip.family))
        return false;
    dpm_host_entry key; // only what the compares read is set
    key.vrf = vrf;
    key.ifindex = 0; // before every interface
    key.ip = ip;
    const bool is_ipv4 = ip.family == DPM_FAMILY_IPV4;
    const dpm_host_entry *host = is_ipv4 ? ipv4_hosts().find(key) : ipv6_hosts().find_from(key);
    for (; host != nullptr && host->vrf == vrf && dpm_prefix_compare(host->ip, ip) == 0;
         host = is_ipv4 ? nullptr : ipv6_hosts().next(*host))
        if (record_of(*host).in_chip)
            return true;
    return false;
}

dpm_host_entry *moved_host(const dpm_host_entry &reported) {
    if (reported.ip.family != DPM_FAMILY_IPV6 || is_scoped(reported.ip))
        return nullptr;
    dpm_host_entry key; // only what the compares read is set
    key.vrf = reported.vrf;
    key.ifindex = 0; // before every interface
    key.ip = reported.ip;
    for (dpm_host_entry *host = ipv6_hosts().find_from(key);
         host != nullptr && dpm_host_ipv4_compare(*host, reported) == 0;
         host = ipv6_hosts().next(*host))
        if (host->ifindex != reported.ifindex)
            return host;
    return nullptr;
}

void free_host(dpm_host_entry &host) {
    free_zeroed(&record_of(host));
}

} // namespace dpm

int dpm_host_ipv4_compare(const dpm_host_entry &a, const dpm_host_entry &b) {
    if (a.vrf != b.vrf)
        return dpm::three_way(a.vrf, b.vrf);
    return dpm_prefix_compare(a.ip, b.ip);
}

// IPv6 addresses are scoped by interface; one that this card does not have yet is told by its name.
int dpm_host_ipv6_compare(const dpm_host_entry &a, const dpm_host_entry &b) {
    if (const int order = dpm_host_ipv4_compare(a, b))
        return order;
    if (a.ifindex != b.ifindex || a.ifindex != DPM_IFINDEX_NONE)
        return dpm::three_way(a.ifindex, b.ifindex);
    return dpm::three_way(std::strcmp(a.ifname, b.ifname), 0);
}

int dpm_host_entry_is_same(const dpm_host_entry *a, const dpm_host_entry *b) {
    if (a->vrf != b->vrf || a->ip.family != b->ip.family || dpm_prefix_compare(a->ip, b->ip) != 0 ||
        a->svlan != b->svlan || a->cvlan != b->cvlan || a->port_type != b->port_type ||
        std::memcmp(a->mac, b->mac, sizeof a->mac) != 0)
        return 0;
    switch (a->port_type) {
    case DPM_PORT_LOGICAL:
        return a->log_port_id == b->log_port_id;
    case 0:
    case DPM_PORT_PHYSICAL:
        return a->phy_port_id == b->phy_port_id;
    default:
        return 0;
    }
}

dpm_host_entry *dpm_host_find_by_entry(const dpm_host_entry *key) {
    if (!dpm::is_iptype(key->ip.family, DPM_CALL_SITE))
        return nullptr;
    return key->ip.family == DPM_FAMILY_IPV4 ? dpm::ipv4_hosts().find(*key)
                                             : dpm::ipv6_hosts().find(*key);
}

dpm_host_entry *dpm_host_find_by_ip(std::uint32_t vrf, const dpm_prefix *ip,
                                    std::uint32_t ifindex) {
    dpm_host_entry key; // only what the compares read is set: routes ask for each of their gateways
    key.vrf = vrf;
    key.ifindex = ifindex;
    key.ifname[0] = '\0';
    key.ip = *ip;
    return dpm_host_find_by_entry(&key);
}

int dpm_host_is_linklocal(const dpm_prefix *ip) {
    return dpm::is_linklocal(*ip);
}
