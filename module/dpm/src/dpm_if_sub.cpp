// Sub-VLANs: members of a super-VLAN, which share its interface and addresses.
#include "dpm_if.h"

#include "dpm.h"
#include "dpm_driver.h"
#include "dpm_memory.h"
#include "dpm_trace.h"
#include "platform/nsm.h"

#include <cstring>

namespace {

using address_list = dpm::list_view<dpm_if_ip_entry, &dpm_if_ip_entry::link>;

using sub_vlan_list = dpm::list_view<dpm_if_entry, &dpm_if_entry::link>;

enum class ospf_change { add, remove };

constexpr std::uint32_t vlan_max = 4094;

sub_vlan_list sub_vlans(const dpm_if_entry &super) {
    return sub_vlan_list(const_cast<list_head &>(super.sub_list));
}

dpm_if_entry *super_vlan(std::uint32_t vlan) {
    dpm_if_entry *entry = dpm_if_find_by_ifname(dpm::vlanif_name(vlan).c_str());
    return entry != nullptr && entry->if_type == DPM_IF_SUPERVLAN ? entry : nullptr;
}

bool runs_ospf(const dpm_prefix &address) {
    return address.family == DPM_FAMILY_IPV4 &&
           dpm_if_ip_ospf_network_exist(address.address, address.prefix_len) == 1;
}

bool has_ospf_network(const dpm_if_entry &super) {
    for (const dpm_if_ip_entry &address : address_list(const_cast<list_head &>(super.ipv4_list)))
        if (runs_ospf(address.ip))
            return true;
    return false;
}

void set_ospf_rule(std::uint32_t sub_vlan, ospf_change change) {
    if (change == ospf_change::add)
        (void)dpm_driver_add_ospf_rule(sub_vlan);
    else
        (void)dpm_driver_del_ospf_rule(sub_vlan);
}

// OSPF packets of a sub-VLAN are trapped while OSPF runs on one of the super-VLAN's networks.
int dpm_super_sub_ospf_notice(const dpm_if_entry *super, std::uint32_t sub_vlan,
                              ospf_change change) {
    if (super == nullptr)
        return dpm::null_parameter();
    if (has_ospf_network(*super))
        set_ospf_rule(sub_vlan, change);
    return 0;
}

// An address comes or has gone: it decides where OSPF runs on none of the others' networks.
void ospf_network_changed(const dpm_if_entry &super, const dpm_prefix &address,
                          ospf_change change) {
    if (list_empty(&super.sub_list) || !runs_ospf(address) || has_ospf_network(super))
        return;
    for (const dpm_if_entry &sub : sub_vlans(super))
        set_ospf_rule(sub.if_id, change);
}

} // namespace

namespace dpm {

void sub_vlans_gain(const dpm_if_entry &super, const dpm_prefix &address) {
    ospf_network_changed(super, address, ospf_change::add);
}

void sub_vlans_lose(const dpm_if_entry &super, const dpm_prefix &address) {
    ospf_network_changed(super, address, ospf_change::remove);
}

void sub_vlans_end(dpm_if_entry &super) {
    for (dpm_if_entry &sub : sub_vlans(super).erasable()) {
        (void)dpm_super_sub_ospf_notice(&super, sub.if_id, ospf_change::remove);
        list_del(&sub.link);
        free_zeroed(&sub);
    }
}

bool is_sub_vlan(const char *ifname) {
    for (const dpm_if_entry &super : interfaces())
        for (const dpm_if_entry &sub : sub_vlans(super))
            if (std::strcmp(vlanif_name(sub.if_id).c_str(), ifname) == 0)
                return true;
    return false;
}

} // namespace dpm

int dpm_super_add_sub(const dpm_super_sub_msg *body) {
    if (body == nullptr) {
        DPM_TRACE("%s %d::msg is null!\r\n");
        return -1;
    }
    if (body->sub_vlan == 0 || body->sub_vlan > vlan_max) { // readers have room for these
        DPM_TRACE("%s %d::subvlan%d is err!\r\n", body->sub_vlan);
        return -1;
    }
    if (dpm_if_find_by_ifname(dpm::vlanif_name(body->sub_vlan).c_str()) != nullptr) {
        DPM_TRACE("%s %d::can not set this vlan to subvlan!\r\n");
        return -1;
    }
    dpm_if_entry *super = super_vlan(body->super_vlan);
    if (super == nullptr) {
        DPM_TRACE("%s %d::can not find or type is err!\r\n");
        return -1;
    }
    if (dpm_if_sub_find(&super->sub_list, body->sub_vlan) != nullptr) {
        DPM_TRACE("%s %d::exist subvlan%d!\r\n", body->sub_vlan);
        return 0;
    }
    dpm::block<dpm_if_entry> sub;
    if (!sub)
        return -1;
    sub->if_id = static_cast<std::uint16_t>(body->sub_vlan);
    sub->if_type = DPM_IF_SUBVLAN;
    sub->parent = super;
    list_add(&sub.release()->link, &super->sub_list);
    return dpm_super_sub_ospf_notice(super, body->sub_vlan, ospf_change::add);
}

int dpm_super_del_sub(const dpm_super_sub_msg *body) {
    if (body == nullptr) {
        DPM_TRACE("%s %d::msg is null!\r\n");
        return -1;
    }
    dpm_if_entry *super = super_vlan(body->super_vlan);
    if (super == nullptr) {
        DPM_TRACE("%s %d::can not find or type is err!\r\n");
        return -1;
    }
    dpm_if_entry *sub = dpm_if_sub_find(&super->sub_list, body->sub_vlan);
    if (sub == nullptr) {
        DPM_TRACE("%s %d::can not exist subvlan!\r\n");
        return 0;
    }
    (void)dpm_super_sub_ospf_notice(super, body->sub_vlan, ospf_change::remove);
    list_del(&sub->link);
    dpm::free_zeroed(sub);
    return 0;
}
