/*
 * Contract: port and VLAN services, packets received on ports, and the bitmap helper that reads
 * VLAN lists.
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

/* What the platform tells about a received frame; it is passed on whole. */
struct uv_rx_descriptor {
    uint16_t word;
    uint16_t vlan;       /* outer */
    uint16_t inner_vlan; /* 0: none */
    uint16_t words[7];
    uint32_t port; /* physical port that the frame came in on */
    uint32_t more[2];
};

#define UV_NOT_TAKEN (-1) /* a hook's answer: the frame goes on to the host's stack */

/* A frame came in, from its destination MAC on.  On the platform's receive thread; frame and
 * descriptor are the platform's and valid during the call. */
typedef int (*uv_receive_hook)(const uint8_t *frame, uint32_t length_bytes,
                               const struct uv_rx_descriptor *descriptor);

#define UV_BIND_MASK 0xFFFFFFFFu
#define UV_BIND_LEVEL 32

/* The hook sees every frame of a port whose ethertype, behind its VLAN tags, is this one; `name` is
 * for the platform's own lists.  Called from dpm_main_init. */
int uv_portBindStack(uint32_t port, uint32_t ethertype, uint32_t mask, uint32_t level,
                     uv_receive_hook hook, uint32_t reserved, const char *name);

/* 1 when bit `position` of the bitmap is set, else 0.  Bit 0 is the lowest bit of byte 0.  The
 * caller sees to it that the bitmap reaches that far. */
int rcal_bit_is_set(const void *bitmap, uint32_t position);

#ifdef __cplusplus
}
#endif

#endif
