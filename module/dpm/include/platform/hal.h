/*
 * Contract: hardware abstraction (link and trunk events, packets trapped to the CPU, VLAN-interface
 * notices).
 *
 * The host supplies every function of this header.  Results are 0 for success, otherwise an error
 * code.
 */
#ifndef DPM_PLATFORM_HAL_H
#define DPM_PLATFORM_HAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A link changed: `port` is a port number, or 91 to 106 for trunk 1 to 16; `state` 0 down, 1 up. */
typedef int (*hal_link_handler)(uint32_t port, uint32_t state);

/* `port` joined or left the trunk with index 91 to 106; `action` tells which and is only logged. */
typedef int (*hal_trunk_handler)(uint32_t type, uint32_t trunk_index, uint32_t port,
                                 uint32_t action);

/* The destination-MAC match of a neighbour-discovery rule: (first 16 bits of the MAC & mask) ==
 * value. */
struct hal_mac_match {
    uint16_t value;
    uint16_t mask;
};

/* Called once each, from dpm_main_init.  The handlers may be called on any thread but the worker,
 * and only post. */
int hal_register_link_handler(hal_link_handler handler);
int hal_register_trunk_link_handler(hal_link_handler handler);
int hal_register_trunk_handler(hal_trunk_handler handler);

/* The lowest service port and the highest uplink port (both inclusive) whose link events matter.
 * Any thread. */
uint32_t hal_get_min_server_logic_slot(void);
uint32_t hal_get_max_uplink_portid(void);

/* Notices about a VLAN interface, on the requester's thread.  `oper` 1 add, 2 delete; `family` 1
 * IPv4, 2 IPv6; `address` 4 or 16 bytes in network order, valid during the call; `prefix_len` in
 * bits. */
int hal_ns_vlanif_proc(uint32_t vlan, uint32_t oper);
int hal_ns_vlanif_ip_proc(uint32_t vlan, uint32_t family, const void *address, uint32_t prefix_len,
                          uint32_t oper);
int hal_ns_vlanif_vrf_proc(uint32_t vlan, uint32_t vrf, uint32_t oper);

/* Trap rules, on the worker.  `on` 1 sets a rule, 0 removes it.  ARP: by VLAN, `port` 0 for all.
 * OSPF: by VLAN. Neighbour discovery: by VLAN and destination MAC; `match` is valid during the
 * call. */
int hal_set_arp_to_cpu(uint16_t vlan, uint32_t port, uint32_t on);
int hal_set_ospf_to_cpu_ex(uint32_t vlan, uint32_t on);
int hal_set_ipv6_ns_rule(uint32_t on, uint16_t vlan, const struct hal_mac_match *match);

/* Trap rules of multicast, on the thread of a setting.  IGMP of every VLAN, by whether and a word
 * that is 0; MLD of every VLAN; and each of a VLAN. */
int hal_set_igmp_to_cpu(uint32_t on, uint32_t reserved);
int hal_set_mld_to_cpu(uint32_t on);
int hal_set_igmp_vlan_to_cpu(uint32_t vlan, uint32_t on);
int hal_set_mld_vlan_to_cpu(uint32_t vlan, uint32_t on);

/* A static route that the IP stack keeps of its own over one gateway goes; on the worker.  `origin`
 * 15 is this library's. IPv4 addresses are words in network order, IPv6 addresses 16 bytes. */
int hal_ipstack_static_route_process(uint32_t origin, uint32_t destination, uint32_t prefix_len,
                                     uint32_t gateway, uint32_t reserved);
int hal_ipstack_ipv6_static_route_process(uint32_t origin, const void *destination,
                                          uint32_t prefix_len, const void *gateway,
                                          uint32_t reserved);

#ifdef __cplusplus
}
#endif

#endif
