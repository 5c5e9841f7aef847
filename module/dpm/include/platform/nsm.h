/*
 * Contract: the routing suite's registry of interfaces and VRFs.
 *
 * The host supplies every function of this header; they may be called from any thread, also with
 * the DPM lock held.
 */
#ifndef DPM_PLATFORM_NSM_H
#define DPM_PLATFORM_NSM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the name of an interface, with its end, into a buffer of 128 bytes; 0, or -1 for an
 * unknown index. */
int nsm_ifp_get_ifnamebyindex(uint32_t ifindex, char *name);

/* The interface index of a name; 0 when there is none. */
uint32_t nsm_ifp_get_ifindexbyname(const char *name);

/* The VLAN id of an interface name; negative when there is none. */
int nsm_get_vlanid_by_ifname(const char *name);

/* The VRF id of an interface index; negative when there is none. */
int nsm_vrf_id_get_by_ifindex(uint32_t ifindex);

/* 1 when a routing process runs OSPF on the network of this interface address, else 0.
 * `address` is four bytes in network order; `prefix_len` in bits. */
int dpm_if_ip_ospf_network_exist(const void *address, uint32_t prefix_len);

#ifdef __cplusplus
}
#endif

#endif
