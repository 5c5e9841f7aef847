/*
 * Contract: the host process's proxy ARP, which does its work on the library's worker.
 *
 * The host supplies every function of this header.  The first three are called on the worker, under
 * the DPM lock.
 */
#ifndef DPM_PLATFORM_HOST_H
#define DPM_PLATFORM_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A packet posted with dpm_api_proxy_arp_packet_send; the block now belongs to the callee, who
 * frees it with bep_freeEx. It may be null when memory had run out. */
void dpm_proxy_msg_packet_recv(void *packet);

/* A tick posted with dpm_api_proxy_arp_timer_send. */
void dpm_proxy_msg_timer(void);

/* Data posted with dpm_api_proxy_arp_slave_sync; owned and freed as for a packet. */
void dpm_proxy_msg_slave_sync(void *data);

/* Removes the proxy-ARP route of an IPv4 address (network order) of a VRF, if there is one.  On the
 * worker. */
int proxy_arp_route_del_by_vrf_ip(uint32_t vrf, uint32_t address);

#ifdef __cplusplus
}
#endif

#endif
