// Lookups in the interface list: by index, name, VLAN and network.  The first match in list order
// is the answer.
#include "dpm_if.h"

#include "dpm.h"
#include "dpm_address.h"
#include "dpm_trace.h"

#include <cstdio>
#include <cstring>

namespace {

using address_list = dpm::list_view<dpm_if_ip_entry, &dpm_if_ip_entry::link>;
using interface_list = dpm::list_view<dpm_if_entry, &dpm_if_entry::link>;

// Whether two addresses of a family are in one network of that length.
bool is_same_network(const dpm_prefix &a, const dpm_prefix &b, std::uint32_t prefix_len) {
    dpm_prefix networks[2] = {a, b};
    for (dpm_prefix &network : networks)
        dpm::clear_host_bits(network.address, prefix_len, dpm::address_bytes(a.family));
    return std::memcmp(networks[0].address, networks[1].address, dpm::address_bytes(a.family)) == 0;
}

// In one VRF, or in whatever.
bool has_network_of(dpm_if_entry &entry, const std::uint32_t *vrf, const dpm_prefix &prefix) {
    const bool is_ipv4 = prefix.family == DPM_FAMILY_IPV4;
    for (const dpm_if_ip_entry &address : address_list(is_ipv4 ? entry.ipv4_list : entry.ipv6_list))
        if ((vrf == nullptr || address.vrf == *vrf) &&
            is_same_network(address.ip, prefix, address.ip.prefix_len))
            return true;
    return false;
}

template <class Matches> dpm_if_entry *find_interface(Matches matches) {
    for (dpm_if_entry &entry : dpm::interfaces())
        if (matches(entry))
            return &entry;
    return nullptr;
}

dpm_if_entry *find_by_network(const std::uint32_t *vrf, const dpm_prefix &prefix) {
    if (!dpm::is_known_family(prefix.family))
        return nullptr;
    return find_interface(
        [&](dpm_if_entry &candidate) { return has_network_of(candidate, vrf, prefix); });
}

dpm_if_entry *find_by_vlan(std::uint32_t vlan, std::uint32_t if_type) {
    return find_interface(
        [=](const dpm_if_entry &entry) { return entry.if_type == if_type && entry.if_id == vlan; });
}

} // namespace

namespace dpm {

bounded_name::bounded_name(const char *name) {
    const std::size_t length = strnlen(name, sizeof text_ - 1);
    std::memcpy(text_, name, length);
    std::memset(text_ + length, 0, sizeof text_ - length);
}

vlanif_name::vlanif_name(std::uint32_t vlan) {
    std::snprintf(text_, sizeof text_, "vlanif%d", static_cast<int>(vlan));
}

list_view<dpm_if_entry, &dpm_if_entry::link> interfaces() {
    return interface_list(g_dpm_global.if_list);
}

} // namespace dpm

dpm_if_entry *dpm_if_find_by_ifindex(std::uint32_t ifindex) {
    return find_interface([=](const dpm_if_entry &entry) { return entry.if_index == ifindex; });
}

dpm_if_entry *dpm_if_find_by_ifname(const char *name) {
    if (name == nullptr) {
        DPM_TRACE("%s %d:: the input parameter is null!\r\n");
        return nullptr;
    }
    return find_interface(
        [=](const dpm_if_entry &entry) { return std::strcmp(entry.ifname, name) == 0; });
}

dpm_if_entry *dpm_if_get_by_vlan(std::uint32_t vlan) {
    return find_by_vlan(vlan, DPM_IF_VLANIF);
}

dpm_if_entry *dpm_if_get_by_supervlan(std::uint32_t vlan) {
    return find_by_vlan(vlan, DPM_IF_SUPERVLAN);
}

int dpm_if_get_ifnamebyindex(std::uint32_t ifindex, char *name) {
    const dpm_if_entry *entry = dpm_if_find_by_ifindex(ifindex);
    if (entry == nullptr)
        return -1;
    std::memcpy(name, entry->ifname, std::strlen(entry->ifname) + 1);
    return 0;
}

std::uint32_t dpm_if_get_ifindexbyname(const char *name) {
    const dpm_if_entry *entry = dpm_if_find_by_ifname(name);
    return entry != nullptr ? entry->if_index : DPM_IFINDEX_NONE;
}

std::uint32_t dpm_if_get_vrf(std::uint32_t ifindex) {
    const dpm_if_entry *entry = dpm_if_find_by_ifindex(ifindex);
    if (entry != nullptr)
        return entry->vrf;
    DPM_TRACE("%s %d::if_index %d,can not find same if_entry!\r\n", ifindex);
    return 0;
}

std::uint32_t dpm_if_get_vlanid(std::uint32_t ifindex) {
    const dpm_if_entry *entry = dpm_if_find_by_ifindex(ifindex);
    if (entry != nullptr && (entry->if_type == DPM_IF_VLANIF || entry->if_type == DPM_IF_SUPERVLAN))
        return entry->if_id;
    DPM_TRACE("%s %d::if_index %d, can not find same if_entry, or if_type != DPM_IF_VLANIF!\r\n",
              ifindex);
    return 0;
}

std::uint32_t dpm_if_get_vrf_by_vlan(std::uint32_t vlan) {
    const dpm_if_entry *entry = dpm_if_get_by_vlan(vlan);
    return entry != nullptr ? entry->vrf : 0;
}

std::uint32_t dpm_ifindex_get_by_vlan(std::uint32_t vlan) {
    const dpm_if_entry *entry = dpm_if_get_by_vlan(vlan);
    if (entry == nullptr)
        entry = dpm_if_get_by_supervlan(vlan);
    if (entry != nullptr)
        return entry->if_index;
    DPM_TRACE("%s %d::vlanid %d, can not find same if_entry!\r\n", vlan);
    return 0;
}

std::uint32_t dpm_if_index_by_network_ip(std::uint32_t vrf, const dpm_prefix *prefix) {
    const dpm_if_entry *entry = find_by_network(&vrf, *prefix);
    return entry != nullptr ? entry->if_index : 0;
}

dpm_if_entry *dpm_if_find_by_network(const dpm_prefix *prefix) {
    return find_by_network(nullptr, *prefix);
}

dpm_if_ip_entry *dpm_if_ip_find(list_head *list, const dpm_prefix *prefix) {
    for (dpm_if_ip_entry &address : address_list(*list))
        if (dpm_prefix_compare(address.ip, *prefix) == 0)
            return &address;
    return nullptr;
}

dpm_if_entry *dpm_if_sub_find(list_head *sub_list, std::uint32_t vlan) {
    if (sub_list == nullptr) {
        DPM_TRACE("%s %d::sub_list is null!\r\n");
        return nullptr;
    }
    for (dpm_if_entry &sub : interface_list(*sub_list))
        if (sub.if_id == vlan)
            return &sub;
    return nullptr;
}

void dpm_network_ipv4_get(std::uint8_t *bytes, std::uint32_t prefix_len) {
    dpm::clear_host_bits(bytes, prefix_len, dpm::address_bytes(DPM_FAMILY_IPV4));
}

void dpm_network_ipv6_get(std::uint8_t *bytes, std::uint32_t prefix_len) {
    dpm::clear_host_bits(bytes, prefix_len, dpm::address_bytes(DPM_FAMILY_IPV6));
}
