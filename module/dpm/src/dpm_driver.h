// Requests to the chip: arguments are narrowed to the driver's widths, the slot restriction is
// added, and the driver's answer comes back unchanged (0 success).  Nothing is checked or tried
// again here.
//
// Under the DPM lock: on the worker, and on a requester's thread for the card's settings; also from
// dpm_main_init before there is a worker.  Tables pass slot bits -1 in normal operation, settings
// 0. MACs are 6 bytes, addresses as long as their family says, in network order.
#pragma once

#include "dpm_api.h"
#include "dpm_slot.h"

#include <cstdint>

// The slot bits in force: those given while the tables are mirrored, else none.
std::uint32_t dpm_slot_obj_bit_check(std::uint32_t slot_bits);

int dpm_driver_add_l3_intf(const std::uint8_t *mac, std::uint32_t vlan, std::uint32_t *id);
int dpm_driver_delete_l3_intf(const std::uint8_t *mac, std::uint32_t vlan);
int dpm_driver_interface_vrf_set(std::uint32_t vlan, std::uint32_t vrf, std::uint32_t slot_bits);
int dpm_driver_interface_mpls_enable(std::uint32_t vlan, std::uint32_t enable,
                                     std::uint32_t slot_bits);
int dpm_driver_add_intf_ip(std::uint32_t vrf, std::uint32_t family, const void *address,
                           std::uint32_t prefix_len);
int dpm_driver_delete_intf_ip(std::uint32_t vrf, std::uint32_t family, const void *address,
                              std::uint32_t prefix_len);

int dpm_driver_add_nexthop(std::uint32_t port_type, std::uint32_t port_id, const std::uint8_t *mac,
                           std::uint32_t svlan, std::uint32_t cvlan, std::uint32_t *sdk_index,
                           std::uint32_t slot_bits);
int dpm_driver_del_nexthop(std::uint32_t sdk_index, std::uint32_t slot_bits);
int dpm_driver_route_add(std::uint32_t vrf, std::uint32_t family, const void *address,
                         std::uint32_t prefix_len, std::uint32_t nexthop_id,
                         std::uint32_t slot_bits);
int dpm_driver_route_del(std::uint32_t vrf, std::uint32_t family, const void *address,
                         std::uint32_t prefix_len, std::uint32_t nexthop_id,
                         std::uint32_t slot_bits);
int dpm_driver_default_route_set(std::uint32_t vrf, std::uint32_t family, std::uint32_t mode,
                                 std::uint32_t slot_bits);
int dpm_driver_set_ecmp_hash_ctl(std::uint32_t hash_mode, std::uint32_t slot_bits);

int dpm_driver_ecmp_creat(std::uint32_t ecmp_type, std::int32_t *group, std::uint32_t slot_bits);
int dpm_driver_ecmp_destory(std::uint32_t ecmp_type, std::int32_t group, std::uint32_t slot_bits);
int dpm_driver_ecmp_add(std::uint32_t ecmp_type, std::int32_t group, std::uint32_t member,
                        std::uint32_t slot_bits);
int dpm_driver_ecmp_del(std::uint32_t ecmp_type, std::int32_t group, std::uint32_t member,
                        std::uint32_t slot_bits);

int dpm_driver_add_arp_rule(const std::uint8_t *mac, std::uint32_t vlan);
int dpm_driver_delete_arp_rule(const std::uint8_t *mac, std::uint32_t vlan);
int dpm_driver_add_ospf_rule(std::uint32_t vlan);
int dpm_driver_del_ospf_rule(std::uint32_t vlan);
int dpm_driver_add_ndp_rule(std::uint32_t vlan);
int dpm_driver_delete_ndp_rule(std::uint32_t vlan);
int dpm_driver_set_ndp_rule(std::uint32_t vlan, std::uint32_t mode);

int dpm_driver_mpls_ftn_add(const void *request, std::uint32_t *nhid, std::uint32_t *tunnel_id,
                            std::uint32_t slot_bits);
int dpm_driver_mpls_ftn_del(const void *request, std::uint32_t slot_bits);
int dpm_driver_mpls_ilm_add(const void *request, std::uint32_t *nhid, std::uint32_t *tunnel_id,
                            std::uint32_t slot_bits);
int dpm_driver_mpls_ilm_del(const void *request, std::uint32_t slot_bits);

int dpm_driver_vpws_entry_add(const void *ac, const void *pw, std::uint32_t *ac_nhid,
                              std::uint32_t *pw_nhid, std::uint32_t *aps_id, std::uint32_t value,
                              std::uint32_t slot_bits);
int dpm_driver_vpws_entry_del(const void *request, std::uint32_t value, std::uint32_t slot_bits);
int dpm_driver_vpws_entry_update(const void *ac, const void *pw, std::uint32_t *pw_nhid,
                                 std::uint32_t *aps_id, std::uint32_t value,
                                 std::uint32_t slot_bits);
// The bitmap has a bit for each of 4094 VLANs, the lowest for VLAN 1; the first 512 that are set
// are programmed.
int dpm_driver_vpws_entry_add_vlanlist(const void *ac, const void *pw, std::uint32_t *ac_nhid,
                                       std::uint32_t *pw_nhid, std::uint32_t *aps_id,
                                       std::uint32_t value, std::uint32_t slot_bits,
                                       const void *vlan_bitmap);
int dpm_driver_vpws_entry_del_vlanlist(const void *request, std::uint32_t value,
                                       std::uint32_t slot_bits, const void *vlan_bitmap);
int dpm_driver_pw_group_switch(std::uint32_t group, std::uint32_t protect, std::uint32_t slot_bits);

int dpm_driver_vpls_add(std::uint32_t vpls_id, std::uint32_t fid, std::uint32_t slot_bits);
int dpm_driver_vpls_del(std::uint32_t vpls_id, std::uint32_t slot_bits);
int dpm_driver_mpls_ac_entry_add(const void *request, std::uint32_t *nhid,
                                 std::uint32_t *logic_port, std::uint32_t slot_bits);
int dpm_driver_mpls_ac_entry_del(const void *request, std::uint32_t slot_bits);
int dpm_driver_mpls_pw_entry_add(const void *request, std::uint32_t *nhid,
                                 std::uint32_t *logic_port, std::uint32_t slot_bits);
int dpm_driver_mpls_pw_entry_del(const void *request, std::uint32_t slot_bits);

int dpm_driver_port_scl_key_type_set(std::uint32_t port_type, std::uint32_t port,
                                     std::uint32_t subport, std::uint32_t direction,
                                     std::uint32_t key_type, std::uint32_t slot_bits);

int dpm_driver_add_gre_tunnel(std::uint32_t vrf, const std::uint8_t *source,
                              const std::uint8_t *destination, std::uint32_t key_enable,
                              std::uint32_t key, std::uint32_t checksum, std::uint32_t slot_bits);
int dpm_driver_del_gre_tunnel(std::uint32_t vrf, const std::uint8_t *source,
                              const std::uint8_t *destination, std::uint32_t key_enable,
                              std::uint32_t key, std::uint32_t checksum, std::uint32_t slot_bits);
int dpm_driver_add_gre_nexthop(std::uint32_t port_type, std::uint32_t port_tgid,
                               const std::uint8_t *mac, std::uint32_t vid, std::uint32_t ivid,
                               std::uint32_t vrf, const std::uint8_t *source,
                               const std::uint8_t *destination, std::uint32_t key_enable,
                               std::uint32_t key, std::uint32_t checksum, std::uint32_t *id,
                               std::uint32_t slot_bits);
int dpm_driver_update_gre_nexthop(std::uint32_t port_type, std::uint32_t port_tgid,
                                  const std::uint8_t *mac, std::uint32_t vid, std::uint32_t ivid,
                                  std::uint32_t vrf, const std::uint8_t *source,
                                  const std::uint8_t *destination, std::uint32_t key_enable,
                                  std::uint32_t key, std::uint32_t checksum, std::uint32_t *id,
                                  std::uint32_t slot_bits);
int dpm_driver_del_gre_nexthop(std::uint32_t id, std::uint32_t slot_bits);

// The chip's logical port behind an interface: the first port of its VLAN.  0, or -1 when there is
// none.
int dpm_driver_ifindex_to_logical(std::uint32_t ifindex, std::uint32_t *logical_port, int *vlan);
