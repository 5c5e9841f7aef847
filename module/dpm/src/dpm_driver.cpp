// Requests to the chip: plain forwards, in which the narrowing of each argument is the content.
#include "dpm_driver.h"

#include "dpm_trace.h"
#include "platform/dal.h"
#include "platform/hal.h"
#include "platform/uv.h"

using std::int16_t;
using std::int32_t;
using std::uint16_t;
using std::uint32_t;
using std::uint8_t;

namespace {

constexpr uint16_t low16(uint32_t value) {
    return static_cast<uint16_t>(value);
}
constexpr uint8_t low8(uint32_t value) {
    return static_cast<uint8_t>(value);
}
constexpr int32_t sign16(uint32_t value) {
    return static_cast<int16_t>(value);
}

constexpr uint32_t default_route_cpu_queue = 10;
constexpr uint32_t default_route_cpu_rate = 64;

// Operations on a group.
constexpr uint32_t ecmp_create = 0;
constexpr uint32_t ecmp_add_member = 1;
constexpr uint32_t ecmp_remove_member = 2;

struct ecmp_members {
    uint32_t nexthop[8];
};
static_assert(sizeof(ecmp_members) == DAL_ECMP_MEMBER_BYTES);

int update_ecmp(int32_t group, uint32_t operation, uint32_t member, uint32_t slot_bits) {
    const ecmp_members members = {{member}};
    return dal_driver_update_ecmp_nexthop(group, operation, 1, &members,
                                          dpm_slot_obj_bit_check(slot_bits));
}

constexpr hal_mac_match ipv6_multicast = {0x3333,
                                          0xFFFF}; // destination MACs of neighbour solicitations

constexpr uint32_t vlan_bitmap_bits = 4094; // bit 0 is VLAN 1
constexpr uint32_t vlan_list_max = 512;

struct vlan_list {
    uint16_t ids[vlan_list_max];
    uint32_t count;
};

void read_vlans(const void *bitmap, vlan_list &list) {
    list.count = 0;
    for (uint32_t position = 0; position < vlan_bitmap_bits && list.count < vlan_list_max;
         position++)
        if (rcal_bit_is_set(bitmap, position))
            list.ids[list.count++] = low16(position + 1);
}

uint32_t gre_key(uint32_t key_enable, uint32_t key) {
    return key_enable != 0 ? key : DAL_GRE_NO_KEY;
}

} // namespace

// The line about a tunnel, under the name of the request that it belongs to.
#define TRACE_GRE_TUNNEL()                                                                         \
    DPM_TRACE(                                                                                     \
        "%s %d::vrf_id %d sip %x.%x.%x.%x dip %x.%x.%x.%x keyenable %d key %u checksum %d\r\n",    \
        vrf, source[0], source[1], source[2], source[3], destination[0], destination[1],           \
        destination[2], destination[3], key_enable, key, checksum)
#define TRACE_GRE_NEXTHOP()                                                                        \
    DPM_TRACE("%s %d::porttype %d port_tgid %d mac %x-%x-%x-%x-%x-%x vid %d ivid %d\r\n",          \
              port_type, port_tgid, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5], vid, ivid)

uint32_t dpm_slot_obj_bit_check(uint32_t slot_bits) {
    return g_dpm_global.slave_up == 1 ? slot_bits : 0;
}

int dpm_driver_add_l3_intf(const uint8_t *mac, uint32_t vlan, uint32_t *id) {
    return dal_driver_add_l3_intf(mac, low16(vlan), id, 0);
}

int dpm_driver_delete_l3_intf(const uint8_t *mac, uint32_t vlan) {
    return dal_driver_delete_l3_intf(mac, low16(vlan), 0);
}

int dpm_driver_interface_vrf_set(uint32_t vlan, uint32_t vrf, uint32_t slot_bits) {
    return dal_driver_interface_vrf_set(sign16(vlan), low16(vrf),
                                        dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_interface_mpls_enable(uint32_t vlan, uint32_t enable, uint32_t slot_bits) {
    return dal_driver_interface_mpls_enable(low16(vlan), low8(enable),
                                            dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_add_intf_ip(uint32_t vrf, uint32_t family, const void *address,
                           uint32_t prefix_len) {
    return dal_driver_add_ip_entry(sign16(vrf), family, address, prefix_len, DAL_NEXTHOP_TO_CPU, 0);
}

int dpm_driver_delete_intf_ip(uint32_t vrf, uint32_t family, const void *address,
                              uint32_t prefix_len) {
    return dal_driver_del_ip_entry(sign16(vrf), family, address, prefix_len, DAL_NEXTHOP_TO_CPU, 0);
}

int dpm_driver_add_nexthop(uint32_t port_type, uint32_t port_id, const uint8_t *mac, uint32_t svlan,
                           uint32_t cvlan, uint32_t *sdk_index, uint32_t slot_bits) {
    return dal_driver_add_ip_nexthop(port_type, port_id, sdk_index, low16(svlan), low16(cvlan), mac,
                                     dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_del_nexthop(uint32_t sdk_index, uint32_t slot_bits) {
    return dal_driver_del_ip_nexthop(sdk_index, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_route_add(uint32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                         uint32_t nexthop_id, uint32_t slot_bits) {
    return dal_driver_add_ip_entry(static_cast<int32_t>(vrf), family, address, prefix_len,
                                   nexthop_id, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_route_del(uint32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                         uint32_t nexthop_id, uint32_t slot_bits) {
    return dal_driver_del_ip_entry(static_cast<int32_t>(vrf), family, address, prefix_len,
                                   nexthop_id, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_default_route_set(uint32_t vrf, uint32_t family, uint32_t mode, uint32_t slot_bits) {
    return dal_driver_default_route_set(family, low16(vrf), mode == DPM_ENABLE ? 1 : 0,
                                        default_route_cpu_queue, default_route_cpu_rate,
                                        dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_set_ecmp_hash_ctl(uint32_t hash_mode, uint32_t slot_bits) {
    return dal_driver_set_ecmp_hash_ctl(hash_mode, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_ecmp_creat(uint32_t, int32_t *group, uint32_t slot_bits) {
    const ecmp_members none = {};
    return dal_driver_add_ecmp_nexthop(group, ecmp_create, 0, &none,
                                       dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_ecmp_destory(uint32_t, int32_t group, uint32_t slot_bits) {
    return dal_driver_del_ecmp_nexthop(group, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_ecmp_add(uint32_t, int32_t group, uint32_t member, uint32_t slot_bits) {
    return update_ecmp(group, ecmp_add_member, member, slot_bits);
}

int dpm_driver_ecmp_del(uint32_t, int32_t group, uint32_t member, uint32_t slot_bits) {
    return update_ecmp(group, ecmp_remove_member, member, slot_bits);
}

int dpm_driver_add_arp_rule(const uint8_t *, uint32_t vlan) {
    return hal_set_arp_to_cpu(low16(vlan), 0, 1);
}

int dpm_driver_delete_arp_rule(const uint8_t *, uint32_t vlan) {
    return hal_set_arp_to_cpu(low16(vlan), 0, 0);
}

int dpm_driver_add_ospf_rule(uint32_t vlan) {
    return hal_set_ospf_to_cpu_ex(vlan, 1);
}

int dpm_driver_del_ospf_rule(uint32_t vlan) {
    return hal_set_ospf_to_cpu_ex(vlan, 0);
}

int dpm_driver_add_ndp_rule(uint32_t vlan) {
    return hal_set_ipv6_ns_rule(1, low16(vlan), &ipv6_multicast);
}

int dpm_driver_delete_ndp_rule(uint32_t vlan) {
    return hal_set_ipv6_ns_rule(0, low16(vlan), &ipv6_multicast);
}

int dpm_driver_set_ndp_rule(uint32_t vlan, uint32_t mode) {
    return mode == DPM_ENABLE ? dpm_driver_add_ndp_rule(vlan) : dpm_driver_delete_ndp_rule(vlan);
}

int dpm_driver_mpls_ftn_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits) {
    return dal_driver_mpls_ftn_add(request, nhid, tunnel_id, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_mpls_ftn_del(const void *request, uint32_t slot_bits) {
    return dal_driver_mpls_ftn_del(request, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_mpls_ilm_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits) {
    return dal_driver_mpls_ilm_add(request, nhid, tunnel_id, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_mpls_ilm_del(const void *request, uint32_t slot_bits) {
    return dal_driver_mpls_ilm_del(request, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_vpws_entry_add(const void *ac, const void *pw, uint32_t *ac_nhid, uint32_t *pw_nhid,
                              uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return dal_driver_vpws_entry_add(ac, pw, ac_nhid, pw_nhid, aps_id, value,
                                     dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_vpws_entry_del(const void *request, uint32_t value, uint32_t slot_bits) {
    return dal_driver_vpws_entry_del(request, value, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_vpws_entry_update(const void *ac, const void *pw, uint32_t *pw_nhid,
                                 uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return dal_driver_vpws_entry_update(ac, pw, pw_nhid, aps_id, value,
                                        dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_vpws_entry_add_vlanlist(const void *ac, const void *pw, uint32_t *ac_nhid,
                                       uint32_t *pw_nhid, uint32_t *aps_id, uint32_t value,
                                       uint32_t slot_bits, const void *vlan_bitmap) {
    vlan_list vlans;
    read_vlans(vlan_bitmap, vlans);
    return dal_driver_vpws_entry_add_test(ac, pw, ac_nhid, pw_nhid, aps_id, value, vlans.ids,
                                          vlans.count, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_vpws_entry_del_vlanlist(const void *request, uint32_t value, uint32_t slot_bits,
                                       const void *vlan_bitmap) {
    vlan_list vlans;
    read_vlans(vlan_bitmap, vlans);
    return dal_driver_vpws_entry_del_test(request, value, vlans.ids, vlans.count,
                                          dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_pw_group_switch(uint32_t group, uint32_t protect, uint32_t slot_bits) {
    return dal_driver_pw_group_switch(group, protect, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_vpls_add(uint32_t vpls_id, uint32_t fid, uint32_t slot_bits) {
    return dal_driver_vpls_add(low16(vpls_id), fid, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_vpls_del(uint32_t vpls_id, uint32_t slot_bits) {
    return dal_driver_vpls_del(low16(vpls_id), dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_mpls_ac_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return dal_driver_vpls_ac_entry_add(request, nhid, logic_port,
                                        dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_mpls_ac_entry_del(const void *request, uint32_t slot_bits) {
    return dal_driver_vpls_ac_entry_del(request, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_mpls_pw_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return dal_driver_vpls_pw_entry_add(request, nhid, logic_port,
                                        dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_mpls_pw_entry_del(const void *request, uint32_t slot_bits) {
    return dal_driver_vpls_pw_entry_del(request, dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_port_scl_key_type_set(uint32_t port_type, uint32_t port, uint32_t subport,
                                     uint32_t direction, uint32_t key_type, uint32_t slot_bits) {
    return dal_driver_port_scl_key_type_set(port_type, low16(port), low16(subport), low8(direction),
                                            low8(key_type), dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_add_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key_enable, uint32_t key, uint32_t checksum,
                              uint32_t slot_bits) {
    TRACE_GRE_TUNNEL();
    return dal_driver_add_gre_tunnel(vrf, source, destination, gre_key(key_enable, key), checksum,
                                     dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_del_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key_enable, uint32_t key, uint32_t checksum,
                              uint32_t slot_bits) {
    TRACE_GRE_TUNNEL();
    return dal_driver_del_gre_tunnel(vrf, source, destination, gre_key(key_enable, key), checksum,
                                     dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_add_gre_nexthop(uint32_t port_type, uint32_t port_tgid, const uint8_t *mac,
                               uint32_t vid, uint32_t ivid, uint32_t vrf, const uint8_t *source,
                               const uint8_t *destination, uint32_t key_enable, uint32_t key,
                               uint32_t checksum, uint32_t *id, uint32_t slot_bits) {
    TRACE_GRE_NEXTHOP();
    TRACE_GRE_TUNNEL();
    return dal_driver_add_gre_nexthop(port_type, port_tgid, mac, vid, ivid, vrf, source,
                                      destination, gre_key(key_enable, key), checksum, id,
                                      dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_update_gre_nexthop(uint32_t port_type, uint32_t port_tgid, const uint8_t *mac,
                                  uint32_t vid, uint32_t ivid, uint32_t vrf, const uint8_t *source,
                                  const uint8_t *destination, uint32_t key_enable, uint32_t key,
                                  uint32_t checksum, uint32_t *id, uint32_t slot_bits) {
    TRACE_GRE_NEXTHOP();
    TRACE_GRE_TUNNEL();
    return dal_driver_update_gre_nexthop(port_type, port_tgid, mac, vid, ivid, vrf, source,
                                         destination, gre_key(key_enable, key), checksum, id,
                                         dpm_slot_obj_bit_check(slot_bits));
}

int dpm_driver_del_gre_nexthop(uint32_t id, uint32_t slot_bits) {
    return dal_driver_del_gre_nexthop(id, dpm_slot_obj_bit_check(slot_bits));
}
