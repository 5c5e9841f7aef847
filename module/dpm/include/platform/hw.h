/*
 * Contract: further requests of the chip driver: stream items, which classify packets and redirect
 * them, multicast, and BFD.
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

/* ---- BFD ----
 *
 * On the worker under the DPM lock.  A session has a local and a remote maintenance end point, each
 * under an index of its own from 2 to 2001.  `unit` is 0.  Each answers 0, or an error code; a
 * request that is refused must leave no trace. */

#define HW_BFD_IP 3   /* type of an end point: of session types 1 and 2 */
#define HW_BFD_PATH 4 /* of session types 3 and 4 */

/* An end point, in host order but for its addresses: those of IPv4 in the first four bytes. */
struct hw_bfd_mep {
    uint32_t type;      /* HW_BFD_* */
    uint32_t direction; /* of session type 4: 1 or 2; else 0 */
    uint32_t port_type; /* where the next hop is: 1 trunk, 2 port */
    uint32_t port_id;
    uint16_t zero;
    uint16_t vlan;
    uint32_t family; /* 1 IPv4, 2 IPv6 */
    uint8_t local[16];
    uint8_t peer[16];
    uint32_t local_disc;
    uint32_t remote_disc; /* 0: not learnt yet */
    uint32_t timer2;
    uint32_t timer1;
    uint8_t flag; /* 1 unless the session's 16-bit option is 1 */
    uint8_t option;
    uint8_t state; /* 0 admin down, 1 down, 2 init, 3 up */
    uint8_t timer3;
    uint16_t half[2];  /* the routing suite's */
    uint32_t out_port; /* physical; 0 where a remote end point is added */
    uint32_t index;
    uint8_t address_family; /* of the address of session type 3; 1 for type 4, else 0 */
    uint8_t address_len;    /* bits */
    uint8_t address[16];
    uint8_t zero2[2];
    uint32_t kind; /* 3 for session type 3, the identifier for type 4, else 0 */
    uint8_t mac[6];
    uint8_t zero3[6];
};

#define HW_BFD_UPDATE_REMOTE 0  /* of a remote end point, sub-kind 7: the remote discriminator */
#define HW_BFD_UPDATE_CC 2      /* of a local one: continuity is checked (1) or not (0) */
#define HW_BFD_UPDATE_STATE 16  /* of a local one */
#define HW_BFD_UPDATE_TIMERS 22 /* of a local one: timer values 1, 3, 2 and 3 */
#define HW_BFD_SUB_REMOTE_DISC 7

/* A change of an end point, which is named by its type and its local discriminator. */
struct hw_bfd_update {
    uint32_t type;
    uint32_t local_disc;
    uint32_t kind;
    uint32_t sub_kind; /* 0 but for HW_BFD_UPDATE_REMOTE */
    uint32_t value;
    uint32_t more[3]; /* of the timers */
};

/* Add and delete name an end point by its index; a delete carries the whole record too. */
int hw_driver_bfd_lmep_add(uint32_t unit, const struct hw_bfd_mep *record);
int hw_driver_bfd_lmep_del(uint32_t unit, const struct hw_bfd_mep *record);
int hw_driver_bfd_lmep_update(uint32_t unit, const struct hw_bfd_update *record);
int hw_driver_bfd_rmep_add(uint32_t unit, const struct hw_bfd_mep *record);
int hw_driver_bfd_rmep_del(uint32_t unit, const struct hw_bfd_mep *record);
int hw_driver_bfd_rmep_update(uint32_t unit, const struct hw_bfd_update *record);

/* Writes the remote discriminator that the peer's last packet carried, 0 when there was none. */
int hw_driver_bfd_get_remote_disc(uint32_t unit, uint32_t type, uint32_t local_disc,
                                  uint32_t *remote_disc);

/* At start-up: where state changes of sessions are reported, by local discriminator, on any thread
 * and without waiting for the worker; 0 or an error code. */
int hw_driver_register_bfd_handler(uint32_t unit, int (*handler)(uint32_t local_disc,
                                                                 uint32_t state, uint32_t diag));

#ifdef __cplusplus
}
#endif

#endif
