/*
 * Contract: stream items of the chip, which classify packets and redirect them.
 *
 * The host supplies every function of this header.  The first two are called on the worker under
 * the DPM lock; buffers are valid during the call only.
 */
#ifndef DPM_PLATFORM_HW_H
#define DPM_PLATFORM_HW_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

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

#ifdef __cplusplus
}
#endif

#endif
