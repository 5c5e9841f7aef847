/*
 * Contract: port and VLAN services, and the bitmap helper that reads VLAN lists.
 *
 * The host supplies every function of this header.
 */
#ifndef DPM_PLATFORM_UV_H
#define DPM_PLATFORM_UV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A member port of a VLAN. */
struct uv_vlan_port {
    uint16_t logical_port; /* 0: none */
    uint16_t tagged;       /* 1: the port is a tagged member */
};

/* The VLAN configuration's lock.  Taken around uv_get_fst_vlan_port_cfg only; not recursive. */
void uv_lock_outside(void);
void uv_unlock_outside(void);

/* Writes the first member port of a VLAN; 0, or -1 when it has none.  Call with the lock held. */
int uv_get_fst_vlan_port_cfg(uint32_t vlan, struct uv_vlan_port *port);

/* 1 when bit `position` of the bitmap is set, else 0.  Bit 0 is the lowest bit of byte 0.  The
 * caller sees to it that the bitmap reaches that far. */
int rcal_bit_is_set(const void *bitmap, uint32_t position);

#ifdef __cplusplus
}
#endif

#endif
