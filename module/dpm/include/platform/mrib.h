/*
 * Contract: the routing suite's IGMP and MLD.
 *
 * The host supplies every function of this header; they are called on the worker, with the DPM lock
 * held.
 */
#ifndef DPM_PLATFORM_MRIB_H
#define DPM_PLATFORM_MRIB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The group membership interval of a VLAN's interface in seconds; 0 or less: at once. */
int mrib4_igmp_api_if_gmi_get(uint32_t vlan);
int mrib6_mld_api_if_gmi_get(uint32_t vlan);

#ifdef __cplusplus
}
#endif

#endif
