/*
 * Contract: the routing suite's registry of interfaces and VRFs, and its settings for labels.
 *
 * The host supplies every function of this header; they may be called from any thread, also with
 * the DPM lock held.  It owns the settings, too: they are read at each request to the chip and never
 * written here.
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

/* The interface index of a VLAN's interface; 0 when there is none. */
uint32_t ns_get_ifindex_by_vlanid(uint32_t vlan);

/* The VRF id of a VRF's name; negative when there is none. */
int nsm_vrf_id_get_by_name(const char *name);

/* 1 when a routing process runs OSPF on the network of this interface address, else 0.
 * `address` is four bytes in network order; `prefix_len` in bits. */
int dpm_if_ip_ospf_network_exist(const void *address, uint32_t prefix_len);

/* The state of a BFD session as the chip reports it: local discriminator, state, diagnostic code,
 * three zeros, and the remote discriminator, 0 when it is not known.  On the worker of the master,
 * under the DPM lock; what it answers is not looked at. */
int bfd_dist_notifier(uint32_t local_disc, uint32_t state, uint32_t diag, uint32_t zero1,
                      uint32_t zero2, uint32_t zero3, uint32_t remote_disc);

/* What a label that is pushed carries.  TTL: 0 is 255, 1 is the packet's own.  EXP: 0 is the
 * packet's own, 1 and 2 are the value (its low 8 bits).  Any other leaves it to the chip. */
extern int g_mpls_ttl_module;
extern int g_mpls_exp_module;
extern int g_mpls_exp_value;

#ifdef __cplusplus
}
#endif

#endif
