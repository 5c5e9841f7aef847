// Interface requests of the routing suite, and the queries that it makes.
//
// Requests run on the callers' threads: they check, tell the platform, and post; both cards take
// them, for the standby needs its interfaces to resolve names.  They take no DPM lock: what they
// ask of an interface is what was announced (dpm_if_announced.h).  Queries take it around one
// lookup.
#include "dpm_if_announced.h"

#include "dpm_address.h"
#include "dpm_events.h"
#include "dpm_locks.h"
#include "dpm_msg.h"
#include "dpm_trace.h"
#include "platform/hal.h"
#include "platform/nsm.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr dpm::oper_codes if_codes = {DPM_MSG_ADD_IF, DPM_MSG_DEL_IF};
constexpr dpm::oper_codes if_ip_codes = {DPM_MSG_ADD_IF_IP, DPM_MSG_DEL_IF_IP};
constexpr dpm::oper_codes sub_codes = {DPM_MSG_SUPER_ADD_SUB, DPM_MSG_SUPER_DEL_SUB};

// What the requests behind this one ask for; false when memory has run out.
bool announce(const dpm_if_msg &body, std::uint32_t oper, bool &is_new) {
    is_new = false;
    if (oper == DPM_OPER_DEL)
        return dpm::if_withdrawn(body.ifname), true;
    dpm::block<dpm::announced_if> entry;
    if (!entry)
        return false;
    entry->ifindex = body.if_index;
    entry->if_type = body.if_type;
    entry->vlan = body.vlan;
    std::memcpy(entry->ifname, body.ifname, sizeof entry->ifname);
    is_new = dpm::if_announced(entry);
    return true;
}

void show_interface(dpm_if_entry &entry) {
    using address_list = dpm::list_view<dpm_if_ip_entry, &dpm_if_ip_entry::link>;
    using sub_list = dpm::list_view<dpm_if_entry, &dpm_if_entry::link>;
    std::printf("\n\r ifname %s vrf %d if_id %d if_index %d if_type %d", entry.ifname, entry.vrf,
                entry.if_id, entry.if_index, entry.if_type);
    for (const dpm_if_ip_entry &address : address_list(entry.ipv4_list))
        std::printf("\n\r ipv4 address %s/%d ", dpm::address_text(address.ip).c_str(),
                    address.ip.prefix_len);
    for (const dpm_if_ip_entry &address : address_list(entry.ipv6_list))
        std::printf("\n\r ipv6 address %s/%d ", dpm::address_text(address.ip).c_str(),
                    address.ip.prefix_len);
    for (const dpm_if_entry &sub : sub_list(entry.sub_list))
        std::printf("\n\r   subvlan%d if_type %d", sub.if_id, sub.if_type);
}

} // namespace

int dpm_api_set_if_proc(const char *ifname, std::uint32_t if_type, std::uint32_t ifindex,
                        std::uint32_t vlan, std::uint32_t oper) {
    if (ifname == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_oper(oper, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_if_msg> body;
    if (!body)
        return -1;
    body->vlan = static_cast<std::uint16_t>(vlan);
    body->if_index = ifindex;
    body->if_type = if_type;
    std::memcpy(body->ifname, ifname, strnlen(ifname, sizeof body->ifname - 1));
    bool is_new;
    if (!announce(*body, oper, is_new))
        return -1;
    if (if_type == DPM_IF_VLANIF)
        (void)hal_ns_vlanif_proc(vlan, oper);
    const int result = body.post(if_codes.of(oper), DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
    if (result != 0 && is_new)
        dpm::if_withdrawn(dpm::bounded_name(ifname).c_str());
    return result;
}

int dpm_api_set_if_ip_proc(std::uint16_t vrf, std::uint32_t ifindex, std::uint8_t family,
                           const void *address, std::uint16_t prefix_len, std::uint32_t oper) {
    if (address == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_oper(oper, DPM_CALL_SITE))
        return -1;
    if (!dpm::is_known_family(family) || prefix_len > dpm::host_bits(family)) {
        DPM_TRACE("%s %d::iptype %d prefix_len %d is err!\r\n", family, prefix_len);
        return -1;
    }
    dpm::request<if_ip_msg> body;
    if (!body)
        return -1;
    body->if_index = ifindex;
    body->vrf = vrf;
    body->ip = dpm::host_prefix(family, address);
    body->ip.prefix_len = prefix_len;
    if (const std::uint32_t vlan = dpm::announced_vlan(ifindex))
        (void)hal_ns_vlanif_ip_proc(vlan, family, address, prefix_len, oper);
    return body.post(if_ip_codes.of(oper), DPM_SEND_ERROR("%s %d::send msg is err!\r\n"));
}

int dpm_api_set_if_vrf_proc(std::uint32_t ifindex, std::uint32_t vrf) {
    dpm::request<dpm_if_vrf_msg> body;
    if (!body)
        return -1;
    body->if_index = ifindex;
    body->vrf = static_cast<std::uint16_t>(vrf);
    if (const std::uint32_t vlan = dpm::announced_vlan(ifindex))
        (void)hal_ns_vlanif_vrf_proc(vlan, vrf, DPM_OPER_ADD);
    return body.post(DPM_MSG_IF_VRF, DPM_SEND_ERROR("%s %d::the msg send err!\r\n"));
}

int dpm_api_super_sub_proc(std::uint32_t super_vlan, std::uint32_t sub_vlan, std::uint32_t oper) {
    const bool is_known = dpm::is_known_oper(oper);
    if (!is_known) // deliberate: the message goes out without a type, and the worker drops it
        DPM_TRACE("%s %d::oper %d,is err!\r\n", oper);
    dpm::request<dpm_super_sub_msg> body;
    if (!body)
        return -1;
    body->super_vlan = super_vlan;
    body->sub_vlan = sub_vlan;
    return body.post(is_known ? sub_codes.of(oper) : 0,
                     DPM_SEND_ERROR("%s %d::the msg send err!\r\n"));
}

int dpm_api_set_super_add(std::uint32_t vlan) {
    const dpm::vlanif_name name(vlan);
    (void)dpm_api_set_if_proc(name.c_str(), DPM_IF_SUPERVLAN,
                              nsm_ifp_get_ifindexbyname(name.c_str()), vlan, DPM_OPER_ADD);
    return 0;
}

int dpm_api_set_super_del(std::uint32_t vlan) {
    (void)dpm_api_set_if_proc(dpm::vlanif_name(vlan).c_str(), DPM_IF_SUPERVLAN, 0, vlan,
                              DPM_OPER_DEL);
    return 0;
}

int dpm_trunk_member_change_func(std::uint32_t type, std::uint32_t trunk_index, std::uint32_t port,
                                 std::uint32_t action) {
    DPM_TRACE("[%s::%d] type %d trunkindex %d port %d action %d\r\n", type, trunk_index, port,
              action);
    if (!dpm::is_trunk(trunk_index)) {
        DPM_TRACE("[%s::%d] trunkindex %d err.\r\n", trunk_index);
        return -1;
    }
    dpm::request<dpm_trunk_member_msg> body;
    if (!body)
        return -1;
    body->type = type;
    body->trunk_id = dpm::trunk_id(trunk_index);
    body->port = port;
    return body.post(DPM_MSG_TRUNK_MEMBER_CHANGE,
                     DPM_SEND_ERROR("%s %d::send msg err!\r\n", DPM_LEVEL_ERROR), action);
}

std::uint32_t dpm_api_get_vrf_by_vlan(std::uint32_t vlan) {
    const dpm::dpm_lock lock;
    return dpm_if_get_vrf_by_vlan(static_cast<std::uint16_t>(vlan));
}

int dpm_api_is_ipv6_empty_by_ifname(const char *ifname) {
    if (ifname == nullptr)
        return -1;
    const dpm::dpm_lock lock;
    const dpm_if_entry *entry = dpm_if_find_by_ifname(ifname);
    return entry == nullptr || list_empty(&entry->ipv6_list);
}

int dpm_api_is_supervlan_by_vlanid(std::uint32_t vlan) {
    const dpm::vlanif_name name(vlan);
    const dpm::dpm_lock lock;
    const dpm_if_entry *entry = dpm_if_find_by_ifname(name.c_str());
    if (entry == nullptr) {
        DPM_TRACE("%s %d:: can not find %s\r\n", name.c_str());
        return -2;
    }
    if (entry->if_type != DPM_IF_SUPERVLAN) {
        DPM_TRACE("%s %d:: type is %d, not supervlan!\r\n", entry->if_type);
        return -1;
    }
    return 0;
}

int dpm_api_get_sub_by_super(std::uint32_t vlan, std::uint32_t *ids, std::uint32_t *count) {
    if (ids == nullptr || count == nullptr)
        return dpm::null_parameter();
    const dpm::dpm_lock lock;
    dpm_if_entry *super = dpm_if_find_by_ifname(dpm::vlanif_name(vlan).c_str());
    if (super == nullptr || super->if_type != DPM_IF_SUPERVLAN) {
        DPM_TRACE("%s %d::can not find supervlan %d or type is err!\r\n", vlan);
        return -1;
    }
    *count = 0;
    for (const dpm_if_entry &sub :
         dpm::list_view<dpm_if_entry, &dpm_if_entry::link>(super->sub_list))
        ids[(*count)++] = sub.if_id;
    return 0;
}

const dpm_if_entry *dpm_api_get_if_entry_first() {
    return dpm::interfaces().first();
}

const dpm_if_entry *dpm_api_get_if_entry_next(const dpm_if_entry *entry) {
    return entry != nullptr ? dpm::interfaces().next(*entry) : nullptr;
}

void dpm_if_show() {
    const dpm::dpm_lock lock;
    for (dpm_if_entry &entry : dpm::interfaces())
        show_interface(entry);
    std::printf("\n\r");
}
