/*
 * Contract: further requests of the chip driver: stream items, which classify packets and redirect
 * them, and multicast.
 *
 * The host supplies every function of this header.  Buffers are valid during the call only.
 */
#ifndef DPM_PLATFORM_HW_H
#define DPM_PLATFORM_HW_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- stream items, on the worker under the DPM lock ---- */

/* Sets, or takes away, what becomes of the packets that match a rule on a set of ports.
 *
 *   vsid   the rule set
 *   rule   rule records of 88 bytes (dpm_hw_fill_rule)
 *   oper   a 16-bit count of operations, and behind it the operations (dpm_hw_fill_op): 0x7F with
 *          the index of a next hop redirects to it, 0x71 with 0 ends the chain
 *   ports  a port record (dpm_hw_fill_port)
 *
 * Lengths in bytes; the second and the last argument are 0.  0 or more, or a negative error. */
int hw_driver_set_stream_qos_item(uint32_t vsid, uint32_t zero, const void *rule, uint32_t rule_len,
                                  const void *oper, uint32_t oper_len, const void *ports,
                                  uint32_t port_len, uint32_t end);
int hw_driver_delete_qos_item_by_stream(uint32_t vsid, uint32_t zero, const void *rule,
                                        uint32_t rule_len, const void *oper, uint32_t oper_len,
                                        const void *ports, uint32_t port_len, uint32_t end);

/* How many logical ports the chip has; any thread. */
int ddGetSwitchChipLogicPortAmount(void);

/* ---- multicast ----
 *
 * On the worker or the thread of a setting under the DPM lock, and on the standby card on the
 * hot-standby service's thread: each control card has a chip of its own here.  `unit` is 0.  Each answers 0, or an error
 * code; a request that is refused must leave no trace.  What is there may be set again, and what is
 * not there may be taken away: the standby card is told whole tables more than once. */

#define HW_IPMC_GROUP 0
#define HW_IPMC_MEMBER 1
#define HW_IPMC_PHYSICAL_PORT 2

/* A source of a group, or a member port of it.  Addresses are in network order, an IPv4 address in
 * the first four bytes. */
struct hw_ipmc_record {
    uint8_t family;     /* 1 IPv4, 2 IPv6 */
    uint8_t kind;       /* HW_IPMC_* */
    uint8_t source_len; /* bits; 0: any source */
    uint8_t group_len;  /* bits */
    uint32_t vrf;
    uint8_t source[16];
    uint8_t group[16];
    uint32_t port_type; /* of a member: HW_IPMC_PHYSICAL_PORT */
    uint32_t port;
    uint16_t vlan; /* that the member gets the packets on */
    uint16_t reserved0;
    uint32_t gid; /* the chip's group */
    uint32_t reserved1;
};

/* Makes (1) a source of a group or ends it (0).  A create with gid 0 is given one, above 0; any
 * other is the gid that it is to have.  A group that ends takes its members with it. */
int hw_driver_ipmc_group_set(uint32_t unit, struct hw_ipmc_record *record, uint32_t on);

/* Adds (1) a member port to a source of a group or takes it away (0). */
int hw_driver_ipmc_member_set(uint32_t unit, const struct hw_ipmc_record *record, uint32_t on);

/* Multicast routing of `type` on a VLAN's interface. */
int hw_driver_interface_ipmc_enable(uint32_t unit, uint16_t vlan, uint32_t type, uint32_t enable);

/* Multicast of a family that no group knows goes to the CPU (state 1) or not (2).  The group that
 * carries it there is written through `gid`; one that is not 0 already is the one to take. */
int hw_driver_unknown_ipmc_to_cpu_set(uint32_t unit, uint32_t family, uint32_t state,
                                      uint32_t cpu_queue, uint32_t cpu_rate, uint32_t *gid);

#ifdef __cplusplus
}
#endif

#endif
