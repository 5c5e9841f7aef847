// L3 interfaces, as the routing suite announces them.
//
// They are one list, newest first, not a tree: a device has few, and the order is seen by lookups.
// A VLAN interface outside the management VLANs has an L3 interface in the chip from its creation,
// and an ARP trap rule from its first IPv4 address to its last; a super-VLAN keeps its sub-VLANs in
// a list of its own.  Interfaces are not mirrored: the suite configures both cards, each with its
// own indexes.  Records of other tables that name an interface follow it (if_follower).
//
// The driver's answers are not looked at here: the flags tell what was asked for, and each slot's
// failure is logged when the driver reports it.
#include "dpm_if.h"

#include "dpm.h"
#include "dpm_address.h"
#include "dpm_bridge.h"
#include "dpm_driver.h"
#include "dpm_memory.h"
#include "dpm_trace.h"
#include "dpm_vpn_l2vpn.h"

#include <cstring>

namespace {

using address_list = dpm::list_view<dpm_if_ip_entry, &dpm_if_ip_entry::link>;

constexpr std::uint16_t status_up = 1;
constexpr std::uint32_t default_mtu_bytes = 1500;
constexpr std::uint32_t default_bandwidth = 1000000000;
constexpr std::uint32_t default_metric = 1;
constexpr std::uint32_t default_flags = 0x1003; // up, broadcast, multicast

bool is_chip_interface(const dpm_if_entry &entry) {
    return entry.if_type == DPM_IF_VLANIF && !dpm_if_is_manage_vlan(entry.ifname);
}

void init_lists(dpm_if_entry &entry) {
    INIT_LIST_HEAD(&entry.ipv4_list);
    INIT_LIST_HEAD(&entry.ipv6_list);
    INIT_LIST_HEAD(&entry.sub_list);
}

void fill_interface(dpm_if_entry &entry, const dpm_if_msg &body) {
    entry.vrf = body.vrf;
    entry.if_id = body.vlan;
    entry.if_index = body.if_index;
    entry.if_type = body.if_type;
    std::memcpy(entry.ifname, dpm::bounded_name(body.ifname).c_str(), sizeof entry.ifname);
    std::memcpy(entry.mac, dpm_bridge_virtual_mac_get(), sizeof entry.mac);
    entry.status = status_up;
    entry.mtu = default_mtu_bytes;
    entry.bandwidth = default_bandwidth;
    entry.metric = default_metric;
    entry.flags = default_flags;
    init_lists(entry);
}

// The chip may hold an address twice: as the interface's network and as the interface's own host
// entry.
void delete_addresses(list_head &list) {
    for (dpm_if_ip_entry &address : address_list(list).erasable()) {
        const dpm_prefix &ip = address.ip;
        (void)dpm_driver_delete_intf_ip(address.vrf, ip.family, ip.address, ip.prefix_len);
        (void)dpm_driver_delete_intf_ip(address.vrf, ip.family, ip.address,
                                        dpm::host_bits(ip.family));
        list_del(&address.link);
        dpm::free_zeroed(&address);
    }
}

void delete_from_chip(dpm_if_entry &entry) {
    if (entry.if_type != DPM_IF_VLANIF)
        return;
    if (entry.l3_programmed == 1)
        (void)dpm_driver_delete_l3_intf(entry.mac, entry.if_id);
    if (entry.arp_programmed == 1)
        (void)dpm_driver_delete_arp_rule(entry.mac, entry.if_id);
    entry.l3_programmed = 0;
    entry.arp_programmed = 0;
}

list_head &addresses_of(dpm_if_entry &entry, std::uint16_t family) {
    return family == DPM_FAMILY_IPV4 ? entry.ipv4_list : entry.ipv6_list;
}

// The interface of an address request; null when it is unknown or in another VRF, which
// `absent_text` tells, or when there is nothing to do for the address.
dpm_if_entry *owner_of(const if_ip_msg *body, const char *absent_text,
                       const dpm::call_site &caller) {
    if (body == nullptr) {
        (void)dpm::null_parameter(caller.function, caller.line);
        return nullptr;
    }
    if (dpm::is_linklocal(body->ip))
        return nullptr;
    dpm_if_entry *entry = dpm_if_find_by_ifindex(body->if_index);
    if (entry != nullptr && entry->vrf == body->vrf)
        return entry;
    DPM_LOG_FROM(caller, absent_text, body->if_index, body->vrf);
    return nullptr;
}

// The first IPv4 address brings the ARP trap rule.  The interface address itself is programmed by
// the platform.
void arp_rule_with_first_address(dpm_if_entry &entry, std::uint16_t family) {
    if (family != DPM_FAMILY_IPV4 || !list_empty(&entry.ipv4_list) || entry.arp_programmed != 0 ||
        !is_chip_interface(entry))
        return;
    (void)dpm_driver_add_arp_rule(entry.mac, entry.if_id);
    entry.arp_programmed = 1;
}

void arp_rule_with_last_address(dpm_if_entry &entry, std::uint16_t family) {
    if (family != DPM_FAMILY_IPV4 || !list_empty(&entry.ipv4_list) ||
        entry.if_type != DPM_IF_VLANIF || entry.arp_programmed != 1)
        return;
    (void)dpm_driver_delete_arp_rule(entry.mac, entry.if_id);
    entry.arp_programmed = 0;
}

} // namespace

int dpm_if_add(const dpm_if_msg *body) {
    if (body == nullptr)
        return dpm::null_parameter();
    if (dpm_if_find_by_ifname(dpm::bounded_name(body->ifname).c_str()) != nullptr) {
        DPM_TRACE("%s %d::if_index %d, find same if_entry!\r\n", body->if_index);
        return 0;
    }
    if (dpm::is_sub_vlan(dpm::bounded_name(body->ifname).c_str())) {
        DPM_TRACE("%s %d::vlan %d is a subvlan!\r\n", body->vlan);
        return -1;
    }
    dpm::block<dpm_if_entry> entry;
    if (!entry)
        return -1;
    fill_interface(*entry, *body);
    if (is_chip_interface(*entry)) {
        (void)dpm_driver_add_l3_intf(entry->mac, entry->if_id, &entry->l3_intf_id);
        entry->l3_programmed = 1;
    }
    list_add(&entry->link, &g_dpm_global.if_list);
    g_dpm_global.if_count++;
    const dpm_if_entry &added = *entry.release();
    dpm::if_followers_renumber(added.ifname, added.if_index);
    return 0;
}

int dpm_if_del(const dpm_if_msg *body) {
    if (body == nullptr)
        return dpm::null_parameter();
    dpm_if_entry *entry = dpm_if_find_by_ifname(dpm::bounded_name(body->ifname).c_str());
    if (entry == nullptr) {
        DPM_TRACE("%s %d::if_index %d, can not find same if_entry!\r\n", body->if_index);
        return -1;
    }
    dpm::if_followers_leave(*entry, DPM_VRF_NONE);
    dpm::sub_vlans_end(*entry);
    delete_addresses(entry->ipv4_list);
    delete_addresses(entry->ipv6_list);
    delete_from_chip(*entry);
    list_del(&entry->link);
    if (g_dpm_global.if_count != 0)
        g_dpm_global.if_count--;
    dpm::if_followers_renumber(entry->ifname, DPM_IFINDEX_NONE);
    dpm::free_zeroed(entry);
    return 0;
}

int dpm_if_add_ip(const if_ip_msg *body) {
    dpm_if_entry *entry = owner_of(
        body, "%s %d::if_index %d ,if_ip_msg->vrf %d .can not find pt_if, or vrf_id unequal!\r\n",
        DPM_CALL_SITE);
    if (entry == nullptr)
        return -1;
    list_head &list = addresses_of(*entry, body->ip.family);
    if (dpm_if_ip_find(&list, &body->ip) != nullptr) {
        DPM_TRACE("%s %d::ip conflict!\r\n");
        return 0;
    }
    dpm::block<dpm_if_ip_entry> address;
    if (!address)
        return -1;
    address->vrf = body->vrf;
    address->ip = body->ip;
    arp_rule_with_first_address(*entry, body->ip.family);
    dpm::sub_vlans_gain(*entry, body->ip);
    list_add(&address.release()->link, &list);
    dpm::if_followers_gain();
    return 0;
}

// deliberate: the chip's address entries stay here and go with the interface; the platform removes
// them itself
int dpm_if_del_ip(const if_ip_msg *body) {
    dpm_if_entry *entry = owner_of(
        body, "%s %d::if_index %d if_ip_msg->vrf %d .can not find pt_if, or vrf_id unequal!\r\n",
        DPM_CALL_SITE);
    if (entry == nullptr)
        return -1;
    dpm_if_ip_entry *address = dpm_if_ip_find(&addresses_of(*entry, body->ip.family), &body->ip);
    if (address == nullptr) {
        DPM_TRACE("%s %d::can not find ip_addr!\r\n");
        return -1;
    }
    list_del(&address->link);
    dpm::free_zeroed(address);
    arp_rule_with_last_address(*entry, body->ip.family);
    dpm::sub_vlans_lose(*entry, body->ip);
    return 0;
}

int dpm_if_vrf_pro(const dpm_if_vrf_msg *body) {
    if (body == nullptr)
        return dpm::null_parameter();
    dpm_if_entry *entry = dpm_if_find_by_ifindex(body->if_index);
    if (entry == nullptr) {
        DPM_TRACE("%s %d::if_index %d, can not find same if_entry\r\n", body->if_index);
        return -1;
    }
    if (entry->vrf == body->vrf) {
        DPM_TRACE("%s %d::vrf = %d, same vrf.\r\n", body->vrf);
        return 0;
    }
    const auto vrf = static_cast<std::uint16_t>(body->vrf);
    dpm::if_followers_leave(*entry, vrf);
    if (entry->if_type == DPM_IF_VLANIF)
        (void)dpm_driver_interface_vrf_set(entry->if_id, vrf, 0);
    entry->vrf = vrf;
    dpm::if_followers_arrive(*entry);
    return 0;
}

// Pseudowires whose circuits ride on the trunk are programmed anew.
int dpm_trunk_member_change_notify(const dpm_trunk_member_msg *body, std::uint32_t oper) {
    if (body == nullptr)
        return dpm::null_parameter();
    DPM_TRACE("[%s:%d] type %d trunkid %d port %d oper %d\r\n", body->type, body->trunk_id,
              body->port, oper);
    (void)dpm_vpn_trunk_func(body->trunk_id);
    return 0;
}
