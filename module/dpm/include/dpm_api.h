/*
 * libdpm: the exported surface of the data-plane manager.
 *
 * The one header that a routing suite, a platform or a management reader needs; C11 and C++20.
 *
 * Requests (`dpm_api_*`) may be called from any thread.  They check and copy what they are given,
 * post it to the worker and return; whatever a pointer names stays the caller's and is needed
 * during the call only.  0 means that the request was accepted (the worker applies it later, in the
 * order posted), -1 that it was refused, with a line in the log.
 *
 * Walkers return pointers into the tables.  They take no lock: hold the DPM lock
 * (norix_dpm_sem_take/_give) from the first call to the last use of an entry.  Entries are
 * read-only and belong to the tables.
 *
 * Shows print a table to standard output under the DPM lock.  Receivers are called on the
 * hot-standby service's thread by name, with a buffer that stays the service's.  Result callbacks
 * are called by the chip driver on any thread.
 *
 * Addresses are in network order, everything else in host order.
 */
#ifndef DPM_API_H
#define DPM_API_H

#include "dpm_records.h"
#include "platform/norix.h"

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DPM_API __attribute__((visibility("default")))

/* ---- start-up and locks ---------------------------------------------------------------------- */

/* Builds the library's state, registers its callbacks with the platform and starts the worker. Call
 * once, on the start-up thread, before anything else here; 0, or -1 when a lock or the queue could
 * not be had. */
DPM_API int dpm_main_init(void);

/* The worker: takes messages and runs timers until the queue is gone.  The platform's task calls
 * it; 0. */
DPM_API int dpm_task(void);

/* The DPM lock guards every table.  Recursive, waits without limit; any thread. */
DPM_API void norix_dpm_sem_take(void);
DPM_API void norix_dpm_sem_give(void);

/* Lock of the routing suite's network services module, kept here for it.  As the DPM lock. */
DPM_API void norix_nsm_sem_take(void);
DPM_API void norix_nsm_sem_give(void);

/* Lock of BFD.  As the DPM lock. */
DPM_API void norix_bfd_sem_take(void);
DPM_API void norix_bfd_sem_give(void);

/* Lock of the routing suite's multicast, kept here for it.  As the DPM lock. */
DPM_API void norix_ipmc_sem_take(void);
DPM_API void norix_ipmc_sem_give(void);

/* Waits for the standby card to confirm that it has every table, at most 600 seconds; the give
 * confirms it. */
DPM_API void dpm_slot_up_sem_take(void);
DPM_API void dpm_slot_up_sem_give(void);

/* A line card or the peer card came up in `slot`: its chip is re-programmed and, if it is the
 * peer's slot, the tables are sent.  Any thread; 0, or -1 when the post failed.  0 without effect
 * on the standby. */
DPM_API int dpm_bridge_slot_up(uint32_t slot);

/* ---- tasks and log files of the routing suite ------------------------------------------------ */

/* Start the task of a protocol and register its module, norix_NAME_init for every NAME of
 * NORIX_TASKS.  `counter` becomes the task's index and is one more afterwards.  A protocol that was
 * started before gets a second task, no second module, and leaves the counter.  Answers what the
 * platform said of the module's version, or of the second task.  One thread at a time. */
#define DPM_LAUNCHER(name, port) DPM_API int norix_##name##_init(uint32_t *counter);
NORIX_TASKS(DPM_LAUNCHER)
#undef DPM_LAUNCHER

/* The modules of these tasks, for their log lines; 0 until they are registered. */
#define DPM_MODULE_ID(name, port) DPM_API extern uint32_t g_##name##_mod_id;
NORIX_TASKS(DPM_MODULE_ID)
#undef DPM_MODULE_ID

/* Start every protocol, from index 2 on; 0.  The command line, with index 1; as its launcher. */
DPM_API int norix_protocol_init(void);
DPM_API int norix_imi_cli_init(void);

/* Log files that keep one old generation, PATH.1.  A record belongs to one thread at a time.
 *
 * Open makes the directories of the path (mode 0750) and appends to what is there; a record that is
 * open is closed first.  0, or -1 when a directory or the file cannot be had; the record is closed
 * then.
 * Write appends `length` bytes and the end of the line and flushes them; at `max_size` the file
 * becomes the old generation.  A file that is lost is opened anew at the next line, and the line
 * dropped when that fails.  Shift makes the file the old generation now; one whose old name would
 * have 256 bytes or more is emptied.  Both, and close, answer 0. */
DPM_API int norix_vlog_open_file(struct norix_vlog_file *record, const char *path,
                                 uint32_t max_size);
DPM_API int norix_vlog_write_file(struct norix_vlog_file *record, const char *line,
                                  uint32_t length);
DPM_API int norix_vlog_shift_files(struct norix_vlog_file *record);
DPM_API int norix_vlog_close_file(struct norix_vlog_file *record);

/* ---- interfaces ------------------------------------------------------------------------------ */

/* Adds or deletes an interface.  `ifname` is copied up to 63 bytes.  Any thread, both cards; 0 or
 * -1. */
DPM_API int dpm_api_set_if_proc(const char *ifname, uint32_t if_type, uint32_t ifindex,
                                uint32_t vlan, uint32_t oper);

/* Adds or deletes an interface address.  `address` is 4 or 16 bytes in network order.  Any thread;
 * 0 or -1. */
DPM_API int dpm_api_set_if_ip_proc(uint16_t vrf, uint32_t ifindex, uint8_t family,
                                   const void *address, uint16_t prefix_len, uint32_t oper);

/* Moves an interface to a VRF (its low 16 bits; the platform is told all of them).  Any thread; 0
 * or -1. */
DPM_API int dpm_api_set_if_vrf_proc(uint32_t ifindex, uint32_t vrf);

/* Adds or deletes a sub-VLAN (1 to 4094) of a super-VLAN.  Any thread; 0 or -1.  An unknown oper is
 * logged and posted all the same; the worker drops it. */
DPM_API int dpm_api_super_sub_proc(uint32_t super_vlan, uint32_t sub_vlan, uint32_t oper);

/* Adds or deletes the super-VLAN interface of a VLAN.  Any thread; always 0. */
DPM_API int dpm_api_set_super_add(uint32_t vlan);
DPM_API int dpm_api_set_super_del(uint32_t vlan);

/* A port joined (or left, as `action` says) the trunk with index 91 to 106; the platform's
 * callback. Any thread; 0 or -1. */
DPM_API int dpm_trunk_member_change_func(uint32_t type, uint32_t trunk_index, uint32_t port,
                                         uint32_t action);

/* The VRF of a VLAN's interface (the VLAN's low 16 bits), 0 if there is none.  Takes the DPM lock.
 */
DPM_API uint32_t dpm_api_get_vrf_by_vlan(uint32_t vlan);

/* 1 when the interface is unknown or has no IPv6 address, 0 when it has one, -1 for null.  Takes
 * the DPM lock. */
DPM_API int dpm_api_is_ipv6_empty_by_ifname(const char *ifname);

/* 0 when the VLAN's interface is a super-VLAN, -1 when it is another, -2 when there is none.  Takes
 * the DPM lock. */
DPM_API int dpm_api_is_supervlan_by_vlanid(uint32_t vlan);

/* Writes the sub-VLAN ids of a super-VLAN, newest first, and their number; the array must hold them
 * all (4094 at most).  0, or -1 when there is no such super-VLAN.  Takes the DPM lock. */
DPM_API int dpm_api_get_sub_by_super(uint32_t vlan, uint32_t *ids, uint32_t *count);

/* First interface, and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_if_entry *dpm_api_get_if_entry_first(void);
DPM_API const struct dpm_if_entry *dpm_api_get_if_entry_next(const struct dpm_if_entry *entry);

DPM_API void dpm_if_show(void);

/* Enables (1) or disables (any other value) a VRF, 0 to 255.  Acts at once on the caller's thread,
 * under the DPM lock; 0 or -1. */
DPM_API int dpm_api_set_vrf_enable(uint32_t vrf, uint32_t enable);

/* Sets the chip's ECMP hash mode, at once on the caller's thread; 0, or -1 when the chip refused.
 * The mode in force. */
DPM_API int dpm_api_set_ecmp_hash(uint32_t mode);
DPM_API uint32_t dpm_api_get_ecmp_hash(void);

/* ---- hosts ----------------------------------------------------------------------------------- */

/* Reports a neighbour, oper DPM_OPER_ADD or DPM_OPER_DEL.  Any thread; 0 or -1. */
DPM_API int dpm_api_host_pro(const struct dpm_host_info *info, uint32_t oper);

/* The same with the operation inside the record; the IP stack's neighbour callback. */
DPM_API int dpm_api_notify_ipstack_host(const struct dpm_host_info *info);

/* The same with a host entry, of which the key and the port fields are read. */
DPM_API int dpm_api_host_msg_send(const struct dpm_host_entry *entry, uint32_t oper);

/* First host of a family (1 or 2), and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_host_entry *dpm_api_get_host_entry_first(uint32_t family);
DPM_API const struct dpm_host_entry *
dpm_api_get_host_entry_next(const struct dpm_host_entry *entry);

/* Addresses that something waits for, newest first.  Walkers. */
DPM_API const struct dpm_unreachable_entry *dpm_api_get_unreachable_entry_first(void);
DPM_API const struct dpm_unreachable_entry *
dpm_api_get_unreachable_entry_next(const struct dpm_unreachable_entry *entry);

/* Monotonic second since which an address is waited for; -1 for null.  Walkers. */
DPM_API int32_t dpm_api_get_unreachable_since(const struct dpm_unreachable_entry *entry);

/* Neighbours held after their port went down, newest first.  Walkers. */
DPM_API const struct dpm_hold_entry *dpm_api_get_hold_entry_first(void);
DPM_API const struct dpm_hold_entry *
dpm_api_get_hold_entry_next(const struct dpm_hold_entry *entry);

DPM_API void dpm_ipv4_host_show(void);
DPM_API void dpm_ipv6_host_show(void);

/* Posts the host process's proxy-ARP work to the worker; `packet` and `data` are copied.  Any
 * thread; 0 or -1. dpm_api_proxy_arp_slave_sync does nothing on the master. */
DPM_API int dpm_api_proxy_arp_packet_send(const void *packet, uint32_t length_bytes);
DPM_API int dpm_api_proxy_arp_timer_send(void);
DPM_API int dpm_api_proxy_arp_slave_sync(const void *data, uint32_t length_bytes);

/* Read the IP stack's neighbour entry.  `mac` takes 6 bytes; the IPv4 address is in host order, the
 * IPv6 address 16 bytes.  The further results are fields of the stack's entry.  Any thread; 0, or
 * -1 when there is none. */
DPM_API int dpm_get_arp_info_by_vrf_ip(uint32_t vrf, uint32_t address, uint8_t *mac,
                                       uint16_t *first, uint16_t *second);
DPM_API int dpm_get_ndp_entry_by_ip(const void *address, uint8_t *mac, uint32_t ifindex,
                                    uint16_t *first, uint16_t *second, uint32_t *third);

/* Diagnostics: post a test IPv4 host (address in network order) of VRF 0 with a fixed MAC.  Any
 * thread; 0 or -1. */
DPM_API int dpm_host_test_add(uint32_t address, uint32_t ifindex, uint32_t svlan,
                              uint32_t port_type, uint32_t log_port_id, uint32_t phy_port_id);
DPM_API int dpm_host_test_del(uint32_t address, uint32_t ifindex, uint32_t svlan,
                              uint32_t port_type, uint32_t log_port_id, uint32_t phy_port_id);

/* Diagnostics: drops every neighbour from the IP stack and probes it, as after a switch-over. Takes
 * the DPM lock. */
DPM_API int dpm_host_start_delete_time_test(void);

/* Diagnostics: while the switch is on, host and route requests are dropped with success, so that an
 * IPv6 conformance test can run against the IP stack alone.  Any thread; the state is 1 while on.
 */
DPM_API int dpm_ipv6_ready_test_switch_open(void);
DPM_API int dpm_ipv6_ready_test_switch_close(void);
DPM_API uint32_t dpm_get_ipv6_ready_test_switch_state(void);

/* ---- next hops ------------------------------------------------------------------------------- */

/* First next hop, and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_nexthop_entry *dpm_api_get_nexthop_entry_first(void);
DPM_API const struct dpm_nexthop_entry *
dpm_api_get_nexthop_entry_next(const struct dpm_nexthop_entry *entry);

DPM_API void dpm_nexthop_show(void);

/* ---- ECMP groups ----------------------------------------------------------------------------- */

/* First group of a family (1 or 2), and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_ecmp_entry *dpm_api_get_ecmp_entry_first(uint32_t family);
DPM_API const struct dpm_ecmp_entry *
dpm_api_get_ecmp_entry_next(const struct dpm_ecmp_entry *entry);

DPM_API void dpm_ipv4_ecmp_show(void);

/* ---- routes ---------------------------------------------------------------------------------- */

/* Installs or withdraws a route.  Any thread; 0 or -1. */
DPM_API int dpm_api_route_pro(const struct dpm_route_msg *route, uint32_t oper);

/* First route of a family (1 or 2), and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_route_entry *dpm_api_get_route_entry_first(uint32_t family);
DPM_API const struct dpm_route_entry *
dpm_api_get_route_entry_next(const struct dpm_route_entry *entry);

/* Writes the IPv4 routes of VRF 0 over VLAN interfaces into a new block, `record_bytes` apart (52
 * or more): thirteen words each, the rest zero.  The caller gives the block back with the
 * platform's free.  The number of records (0: no block), or -1.  Takes the DPM lock. */
DPM_API int dpm_snmp_get_route_table(void **out, uint32_t record_bytes);

DPM_API void dpm_ipv4_route_show(void);
DPM_API void dpm_ipv6_route_show(void);

/* Number of routes of a family.  Take the DPM lock. */
DPM_API int dpm_ipv4_route_cnt_show(void);
DPM_API int dpm_ipv6_route_cnt_show(void);

/* ---- policy routes --------------------------------------------------------------------------- */

/* Adds or deletes a policy route, on both cards: the table is not mirrored.
 *
 *   vsid           rule set of the chip
 *   rule, ports    buffers of 1 to 65,535 bytes, copied; rule, ports without their first two bytes,
 *                  and the lengths are the key
 *   vrf_name       of the next hop; `vrf_name_len` bytes, at most 12, 0 for VRF 0
 *   family         DPM_FAMILY_IPV4 or _IPV6; `address` has 4 or 16 bytes in network order
 *
 * Any thread; 0, -1, or -2 when there is no such VRF. */
DPM_API int dpm_api_policy_route_add(uint32_t vsid, const void *rule, uint32_t rule_len,
                                     const void *ports, uint32_t port_len, const char *vrf_name,
                                     uint32_t vrf_name_len, uint32_t family, const void *address);
DPM_API int dpm_api_policy_route_del(uint32_t vsid, const void *rule, uint32_t rule_len,
                                     const void *ports, uint32_t port_len, const char *vrf_name,
                                     uint32_t vrf_name_len, uint32_t family, const void *address);

/* The same with the number of the VRF; `oper` is DPM_OPER_ADD or DPM_OPER_DEL. */
DPM_API int dpm_api_policy_route_process(uint32_t vsid, const void *rule, uint32_t rule_len,
                                         const void *ports, uint32_t port_len, uint32_t vrf,
                                         uint32_t family, const void *address, uint32_t oper);

/* Walk the table in its order; null at the end. */
DPM_API const struct dpm_policy_route_entry *dpm_api_get_policy_route_entry_first(void);
DPM_API const struct dpm_policy_route_entry *
dpm_api_get_policy_route_entry_next(const struct dpm_policy_route_entry *entry);

DPM_API void dpm_policy_route_show(void);

/* Write a record of the chip's buffers at `buffer` + *length and add its bytes to *length; the
 * caller sees to the room.  Any thread; 0, or -1, and nothing is written, for null or what does not
 * fit the record.
 *
 *   rule      88 bytes: a field's key (at most 32 bytes) and mask (at most 48)
 *   port      4 bytes and 2 for each of `count` ports, at least one
 *   port_all  the same for ports 1 to the chip's last, at most 56
 *   op        4 bytes and 18 for each of `count` values of at most 16 bytes; how many operations
 *             there are stands in front of the first, and is the caller's to write */
DPM_API int dpm_hw_fill_rule(void *buffer, uint32_t *length, uint32_t field, const void *key,
                             uint32_t key_len, const void *mask, uint32_t mask_len,
                             uint32_t second);
DPM_API int dpm_hw_fill_port(void *buffer, uint32_t *length, const uint16_t *ports, int32_t count,
                             uint32_t id);
DPM_API int dpm_hw_fill_port_all(void *buffer, uint32_t *length, uint32_t id);
DPM_API int dpm_hw_fill_op(void *buffer, uint32_t *length, uint32_t code, uint32_t count,
                           const void *const *values, const uint32_t *lengths);

/* ---- labels ---------------------------------------------------------------------------------- */

/* Enables (DPM_OPER_ADD) or disables label switching on an interface: a struct dpm_mpls_if_msg.  Any
 * thread; 0 or -1. */
DPM_API int dpm_api_set_mpls_if_proc(const void *request, uint32_t oper);

/* First MPLS interface, and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_mpls_if *dpm_api_mpls_if_first(void);
DPM_API const struct dpm_mpls_if *dpm_api_mpls_if_next(const struct dpm_mpls_if *entry);

DPM_API void dpm_mpls_if_table_show(void);

/* Adds or deletes a label entry: a struct dpm_ftn_msg or dpm_ilm_msg; a delete needs what makes its
 * key.  Any thread; 0 or -1. */
DPM_API int dpm_api_set_mpls_ftn_proc(const void *request, uint32_t oper);
DPM_API int dpm_api_set_mpls_ilm_proc(const void *request, uint32_t oper);

/* First label entry, and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_ftn *dpm_api_ftn_entry_first(void);
DPM_API const struct dpm_ftn *dpm_api_ftn_entry_next(const struct dpm_ftn *entry);
DPM_API const struct dpm_ilm *dpm_api_ilm_entry_first(void);
DPM_API const struct dpm_ilm *dpm_api_ilm_entry_next(const struct dpm_ilm *entry);
/* Monotonic second since which a label entry is on its pend list; -1 when it is on none.  Walkers. */
DPM_API int32_t dpm_api_ftn_waits_since(const struct dpm_ftn *entry);
DPM_API int32_t dpm_api_ilm_waits_since(const struct dpm_ilm *entry);

/* Tables and single entries; an IPv4 address in host order. */
DPM_API void dpm_mpls_ftn_table_show(void);
DPM_API void dpm_mpls_ftn_table_detail_show(uint32_t vrf_id, uint32_t address, uint32_t prefix_len);
DPM_API void dpm_mpls_ilm_table_show(void);
DPM_API void dpm_mpls_ilm_table_detail_show(uint32_t in_label);

/* ---- tunnels --------------------------------------------------------------------------------- */

/* Settings of a GRE tunnel.  All take DPM_OPER_ADD or DPM_OPER_DEL and the tunnel's number first;
 * IPv4 addresses are words in network order.  Any thread; 0 or -1.  A tunnel must be there before it
 * is set; what does not fit it is refused by the worker, with a line in the log.
 *
 *   proc         makes the tunnel "tunnel%d", or ends it
 *   ipvrf        VRF of its own address and of the routes over it (either oper)
 *   ip           own address, 4 or 16 bytes by `family`, `prefix_len` bits, in VRF `ip_vrfid`, which
 *                must be the tunnel's
 *   mode         the suite's number (either oper); ends source, destination, checksum and key
 *   tunnelvrf    VRF of source and destination, both of which it ends (either oper)
 *   source       where packets are sent from; `tunnel_vrf` must be the tunnel's
 *   destination  where they are sent to
 *   checksum     whether packets carry one (either oper)
 *   key          the key that they carry, when `key_enable` is not 0 (either oper) */
DPM_API int dpm_api_set_tunnel_proc(uint32_t oper, uint32_t tunnel_id);
DPM_API int dpm_api_set_tunnel_ipvrf_proc(uint32_t oper, uint32_t tunnel_id, uint32_t ip_vrfid);
DPM_API int dpm_api_set_tunnel_ip_proc(uint32_t oper, uint32_t tunnel_id, uint32_t ip_vrfid,
                                       uint32_t family, const void *address, uint32_t prefix_len);
DPM_API int dpm_api_set_tunnel_mode_proc(uint32_t oper, uint32_t tunnel_id, uint32_t mode);
DPM_API int dpm_api_set_tunnel_tunnelvrf_proc(uint32_t oper, uint32_t tunnel_id,
                                              uint32_t tunnel_vrf);
DPM_API int dpm_api_set_tunnel_source_proc(uint32_t oper, uint32_t tunnel_id, uint32_t tunnel_vrf,
                                           uint32_t source);
DPM_API int dpm_api_set_tunnel_destination_proc(uint32_t oper, uint32_t tunnel_id,
                                                uint32_t tunnel_vrf, uint32_t destination);
DPM_API int dpm_api_set_tunnel_checksum_proc(uint32_t oper, uint32_t tunnel_id, uint32_t checksum);
DPM_API int dpm_api_set_tunnel_key_proc(uint32_t oper, uint32_t tunnel_id, uint32_t key_enable,
                                        uint32_t key);

/* Installs (DPM_OPER_ADD) or withdraws an IPv4 route of a VRF that leads into a tunnel, whose own VRF
 * that must be.  `address` is a word in network order.  It takes the place of another route to the
 * prefix, and is in the chip while the tunnel is up.  Any thread; 0 or -1. */
DPM_API int dpm_api_route_tunnel_pro(uint32_t oper, uint32_t vrf, uint32_t address,
                                     uint32_t prefix_len, uint32_t tunnel_id);

/* First tunnel, or port of tunnels, and the one after `entry`; null at the end.  Walkers. */
DPM_API const struct dpm_tunnel_entry *dpm_api_get_tunnel_entry_first(void);
DPM_API const struct dpm_tunnel_entry *
dpm_api_get_tunnel_entry_next(const struct dpm_tunnel_entry *entry);
DPM_API const struct dpm_tunnel_port_entry *dpm_api_get_tunnel_port_entry_first(void);
DPM_API const struct dpm_tunnel_port_entry *
dpm_api_get_tunnel_port_entry_next(const struct dpm_tunnel_port_entry *entry);

DPM_API void dpm_tunnel_show(void);
DPM_API void dpm_tunnel_port_show(void);

#include "dpm_l2vpn_api.h"

/* ---- multicast ------------------------------------------------------------------------------- */

/* Adds (oper DPM_OPER_ADD) or deletes (any other) a source of a group; an add replaces the outgoing
 * interfaces of one that is there.  Any thread; 0 or -1. */
DPM_API int dpm_api_set_ipmc_proc(const struct dpm_ipmc_request *request, uint32_t oper);

/* Whether IGMP (family 1) or MLD (2) is listened to, 1 or 0; of another family, whether either is.
 */
DPM_API int dpm_api_get_ipmc_global_enable(uint32_t family);

/* Multicast routing of `type` on a VLAN's interface; the chip's answer.  These settings act at once
 * on the caller's thread. */
DPM_API int dpm_api_set_ipmc_enable(uint32_t type, uint32_t vlan, uint32_t enable);

/* Multicast that no group knows goes to the CPU (state 1) or not (2), and the family's reports are
 * listened to or not.  Always 0.  Takes the DPM lock. */
DPM_API int dpm_api_set_unknown_ipmc_to_cpu(uint32_t family, uint32_t state);

/* IGMP or MLD of a VLAN (1 to 4085) goes to the CPU (enable 1) or not; 0, or -1 for another VLAN. */
DPM_API int dpm_api_set_igmp_to_cpu(uint32_t vlan, uint32_t enable);
DPM_API int dpm_api_set_mld_to_cpu(uint32_t vlan, uint32_t enable);

/* First group of a family (1 or 2), and the one after `entry`; null at the end: those that are
 * forwarded, and those that ports have reported.  Walkers. */
DPM_API const struct dpm_ipmc_group *dpm_api_get_ipmc_group_first(uint32_t family);
DPM_API const struct dpm_ipmc_group *
dpm_api_get_ipmc_group_next(const struct dpm_ipmc_group *entry);
DPM_API const struct dpm_ipmc_rx_group *dpm_api_get_ipmc_rx_group_first(uint32_t family);
DPM_API const struct dpm_ipmc_rx_group *
dpm_api_get_ipmc_rx_group_next(const struct dpm_ipmc_rx_group *entry);

DPM_API void dpm_ipmc_group_show(void);
DPM_API void dpm_ipmc_rx_group_show(void);

/* ---- BFD sessions ---------------------------------------------------------------------------- */

/* Adds (enable 1) or deletes (2) a session, by its local discriminator; an add of one that is there
 * changes what its flags say.  A session whose next hop is not resolved waits for it.  The request
 * is in host order but for its addresses, and is copied.  Any thread; 0, or -1 for another enable,
 * null, or when the post failed.  0 without effect on the standby card, as of the two below. */
DPM_API int dpm_api_bfd_proc(const struct dpm_bfd_request *request, uint32_t enable);

/* Changes a session: `kind` is DPM_BFD_UPDATE_*.  An unknown key or kind is posted, and has no
 * effect.  Any thread; 0, or -1 when the post failed. */
DPM_API int dpm_api_bfd_session_update(uint32_t local_disc, uint32_t kind, uint32_t value1,
                                       uint32_t value2, uint32_t value3, uint32_t value4);

/* The chip reports a session's state (DPM_BFD_*) with a diagnostic code, which goes on to the suite
 * (bfd_dist_notifier) once the session has followed it.  The chip's callback; any thread, no lock
 * held that the worker takes.  0, or -1 when the post failed. */
DPM_API int dpm_api_bfd_notifier(uint32_t local_disc, uint32_t state, uint32_t diag);

/* The session with the lowest local discriminator, and the one after `entry`; null at the end.
 * Walkers. */
DPM_API const struct dpm_bfd_sess *dpm_bfd_sess_first(void);
DPM_API const struct dpm_bfd_sess *dpm_bfd_sess_next(const struct dpm_bfd_sess *entry);

DPM_API void dpm_bfd_sess_show_avl_tree(void);

/* ---- receivers of the peer card -------------------------------------------------------------- */

/* What the master has done to a source of a group, or to a member of it. */
struct dpm_ipmc_group_image {
    struct dpm_ipmc_group group;
    struct dpm_ipmc_source source;
};
struct dpm_ipmc_member_image {
    struct dpm_ipmc_group group;
    struct dpm_ipmc_source source;
    struct dpm_ipmc_member member;
};

/* A request to the master's chip, to be made to this card's too. */
struct dpm_ipmc_echo {
    uint8_t op;         /* 1 create or add, 0 destroy or delete */
    uint8_t record[60]; /* the chip's (hw_ipmc_record) */
    uint8_t zero[67];
};

/* Where multicast that no group knows goes. */
struct dpm_ipmc_settings {
    uint8_t family;
    uint8_t state;  /* DPM_ENABLE or DPM_DISABLE */
    uint8_t gid[4]; /* the chip's group, network order */
    uint8_t zero[58];
};

/* Called by name on the hot-standby service's thread.  `buffer` stays the service's; `length_bytes`
 * is checked. 0 when the message was posted or dropped by role, -1 when it was refused.
 *
 * One row per receiver:
 *   name    the exported function
 *   record  what it is given
 *   kind    ENTRY   one record, which is posted
 *           TABLE   records end to end, up to a batch, which are posted one by one
 *           CARD    one record, which is taken over at once
 *           SIGNAL  a word that nobody reads */
/* clang-format off */
#define DPM_RECEIVERS(ROW)                                                              \
    ROW(dpm_main_entry_sync_all_receive,          uint8_t[DPM_MAC_BYTES],       CARD)   \
    ROW(dpm_slave_up_pro_over_sync_receive,       uint32_t,                     SIGNAL) \
    ROW(dpm_slave_up_pro_over_peercard_callback,  uint32_t,                     SIGNAL) \
    ROW(dpm_nexthop_entry_add_sync_receive,       struct dpm_nexthop_entry,     ENTRY)  \
    ROW(dpm_nexthop_entry_del_sync_receive,       struct dpm_nexthop_entry,     ENTRY)  \
    ROW(dpm_nexthop_entry_sync_all_receive,       struct dpm_nexthop_entry,     TABLE)  \
    ROW(dpm_host_entry_add_sync_receive,          struct dpm_host_entry,        ENTRY)  \
    ROW(dpm_host_entry_del_sync_receive,          struct dpm_host_entry,        ENTRY)  \
    ROW(dpm_host_entry_sync_all_receive,          struct dpm_host_entry,        TABLE)  \
    ROW(dpm_tunnel_port_entry_add_sync_receive,   struct dpm_tunnel_port_entry, ENTRY)  \
    ROW(dpm_tunnel_port_entry_del_sync_receive,   struct dpm_tunnel_port_entry, ENTRY)  \
    ROW(dpm_tunnel_port_entry_sync_all_receive,   struct dpm_tunnel_port_entry, TABLE)  \
    ROW(dpm_tunnel_entry_add_sync_receive,        struct dpm_tunnel_entry,      ENTRY)  \
    ROW(dpm_tunnel_entry_del_sync_receive,        struct dpm_tunnel_entry,      ENTRY)  \
    ROW(dpm_tunnel_entry_sync_all_receive,        struct dpm_tunnel_entry,      TABLE)  \
    ROW(dpm_ecmp_entry_add_sync_receive,          struct dpm_ecmp_entry,        ENTRY)  \
    ROW(dpm_ecmp_entry_del_sync_receive,          struct dpm_ecmp_entry,        ENTRY)  \
    ROW(dpm_ecmp_entry_sync_all_receive,          struct dpm_ecmp_entry,        TABLE)  \
    ROW(dpm_route_entry_add_sync_receive,         struct dpm_route_entry,       ENTRY)  \
    ROW(dpm_route_entry_del_sync_receive,         struct dpm_route_entry,       ENTRY)  \
    ROW(dpm_route_entry_sync_all_receive,         struct dpm_route_entry,       TABLE)  \
    ROW(dpm_mpls_if_add_sync_receive,             struct dpm_mpls_if,           ENTRY)  \
    ROW(dpm_mpls_if_del_sync_receive,             struct dpm_mpls_if,           ENTRY)  \
    ROW(dpm_mpls_if_sync_all_receive,             struct dpm_mpls_if,           TABLE)  \
    ROW(dpm_mpls_ftn_add_sync_receive,            struct dpm_ftn,               ENTRY)  \
    ROW(dpm_mpls_ftn_del_sync_receive,            struct dpm_ftn,               ENTRY)  \
    ROW(dpm_mpls_ftn_sync_all_receive,            struct dpm_ftn,               TABLE)  \
    ROW(dpm_mpls_ilm_add_sync_receive,            struct dpm_ilm,               ENTRY)  \
    ROW(dpm_mpls_ilm_del_sync_receive,            struct dpm_ilm,               ENTRY)  \
    ROW(dpm_mpls_ilm_sync_all_receive,            struct dpm_ilm,               TABLE)  \
    ROW(dpm_vpws_acif_add_sync_receive,           struct dpm_vpws_acif,         ENTRY)  \
    ROW(dpm_vpws_acif_del_sync_receive,           struct dpm_vpws_acif,         ENTRY)  \
    ROW(dpm_vpws_acif_sync_all_receive,           struct dpm_vpws_acif,         TABLE)  \
    ROW(dpm_vpws_vc_fib_add_sync_receive,         struct dpm_vpws_vc_fib,       ENTRY)  \
    ROW(dpm_vpws_vc_fib_del_sync_receive,         struct dpm_vpws_vc_fib,       ENTRY)  \
    ROW(dpm_vpws_vc_fib_sync_all_receive,         struct dpm_vpws_vc_fib,       TABLE)  \
    ROW(dpm_vpws_vc_ilm_add_sync_receive,         struct dpm_vpws_vc_ilm,       ENTRY)  \
    ROW(dpm_vpws_vc_ilm_del_sync_receive,         struct dpm_vpws_vc_ilm,       ENTRY)  \
    ROW(dpm_vpws_vc_ilm_sync_all_receive,         struct dpm_vpws_vc_ilm,       TABLE)  \
    ROW(dpm_vpls_vsi_add_sync_receive,            struct dpm_vpls_vsi,          ENTRY)  \
    ROW(dpm_vpls_vsi_del_sync_receive,            struct dpm_vpls_vsi,          ENTRY)  \
    ROW(dpm_vpls_vsi_sync_all_receive,            struct dpm_vpls_vsi,          TABLE)  \
    ROW(dpm_vpls_acif_add_sync_receive,           struct dpm_vpls_acif,         ENTRY)  \
    ROW(dpm_vpls_acif_del_sync_receive,           struct dpm_vpls_acif,         ENTRY)  \
    ROW(dpm_vpls_acif_sync_all_receive,           struct dpm_vpls_acif,         TABLE)  \
    ROW(dpm_vpls_vc_fib_add_sync_receive,         struct dpm_vpls_vc_fib,       ENTRY)  \
    ROW(dpm_vpls_vc_fib_del_sync_receive,         struct dpm_vpls_vc_fib,       ENTRY)  \
    ROW(dpm_vpls_vc_fib_sync_all_receive,         struct dpm_vpls_vc_fib,       TABLE)  \
    ROW(dpm_vpls_vc_ilm_add_sync_receive,         struct dpm_vpls_vc_ilm,       ENTRY)  \
    ROW(dpm_vpls_vc_ilm_del_sync_receive,         struct dpm_vpls_vc_ilm,       ENTRY)  \
    ROW(dpm_vpls_vc_ilm_sync_all_receive,         struct dpm_vpls_vc_ilm,       TABLE)  \
    ROW(dpm_ipmc_api_slave_group_create,          struct dpm_ipmc_group_image,  ENTRY)  \
    ROW(dpm_ipmc_api_slave_group_destroy,         struct dpm_ipmc_group_image,  ENTRY)  \
    ROW(dpm_ipmc_api_slave_group_member_add,      struct dpm_ipmc_member_image, ENTRY)  \
    ROW(dpm_ipmc_api_slave_group_member_del,      struct dpm_ipmc_member_image, ENTRY)  \
    ROW(dpm_driver_group_create_or_destroy_slave, struct dpm_ipmc_echo,         CARD)   \
    ROW(dpm_driver_group_member_add_or_del_slave, struct dpm_ipmc_echo,         CARD)   \
    ROW(dpm_api_set_unknown_ipmc_to_cpu_slave,    struct dpm_ipmc_settings,     CARD)   \
    ROW(dpm_bfd_entry_add_sync_receive,           struct dpm_bfd_sess,          ENTRY)  \
    ROW(dpm_bfd_entry_del_sync_receive,           struct dpm_bfd_sess,          ENTRY)  \
    ROW(dpm_bfd_entry_update_sync_receive,        struct dpm_bfd_update,        ENTRY)  \
    ROW(dpm_bfd_sync_all_receive,                 struct dpm_bfd_sess,          TABLE)
/* clang-format on */
#define DPM_RECEIVER(name, record, kind)                                                           \
    DPM_API int name(const void *buffer, uint32_t length_bytes);
DPM_RECEIVERS(DPM_RECEIVER)
#undef DPM_RECEIVER

/* ---- result callbacks of the chip driver ----------------------------------------------------- */

/* A slot's answer to the request of the same name without "_result": the request's own arguments,
 * the bit of the slot that answered and its result.  Any thread, no lock; a result other than 0 is
 * logged.  Always 0. */
DPM_API int dpm_driver_add_ip_nexthop_result(uint32_t port_type, uint32_t port_id,
                                             const uint32_t *id, uint32_t svlan, uint32_t cvlan,
                                             const uint8_t *mac, uint32_t obj_bit, int result);
DPM_API int dpm_driver_del_ip_nexthop_result(uint32_t id, uint32_t obj_bit, int result);
DPM_API int dpm_driver_update_ip_nexthop_result(uint32_t port_type, uint32_t port_id,
                                                const uint32_t *id, uint32_t svlan, uint32_t cvlan,
                                                const uint8_t *mac, uint32_t obj_bit, int result);
DPM_API int dpm_driver_add_ip_entry_result(int32_t vrf, uint32_t family, const void *address,
                                           uint32_t prefix_len, uint32_t nexthop_id,
                                           uint32_t obj_bit, int result);
DPM_API int dpm_driver_del_ip_entry_result(int32_t vrf, uint32_t family, const void *address,
                                           uint32_t prefix_len, uint32_t nexthop_id,
                                           uint32_t obj_bit, int result);
DPM_API int dpm_driver_add_ecmp_nexthop_result(const int32_t *group, uint32_t operation,
                                               uint32_t count, const void *members,
                                               uint32_t obj_bit, int result);
DPM_API int dpm_driver_del_ecmp_nexthop_result(int32_t group, uint32_t obj_bit, int result);
DPM_API int dpm_driver_update_ecmp_nexthop_result(int32_t group, uint32_t operation, uint32_t count,
                                                  const void *members, uint32_t obj_bit,
                                                  int result);
DPM_API int dpm_driver_add_l3_intf_result(const uint8_t *mac, uint32_t vlan, const uint32_t *id,
                                          uint32_t obj_bit, int result);
DPM_API int dpm_driver_delete_l3_intf_result(const uint8_t *mac, uint32_t vlan, uint32_t obj_bit,
                                             int result);
DPM_API int dpm_driver_interface_vrf_set_result(int32_t vlan, uint32_t vrf, uint32_t obj_bit,
                                                int result);
DPM_API int dpm_driver_interface_ipmc_enable_result(uint32_t vlan, uint32_t type, uint32_t enable,
                                                    uint32_t obj_bit, int result);
DPM_API int dpm_driver_default_route_set_result(uint32_t family, uint32_t vrf, uint32_t to_cpu,
                                                uint32_t cpu_queue, uint32_t cpu_rate,
                                                uint32_t obj_bit, int result);
DPM_API int dpm_driver_mpls_ftn_add_result(const void *request, const uint32_t *nhid,
                                           const uint32_t *tunnel_id, uint32_t obj_bit, int result);
DPM_API int dpm_driver_mpls_ftn_del_result(const void *request, uint32_t obj_bit, int result);
DPM_API int dpm_driver_mpls_ilm_add_result(const void *request, const uint32_t *nhid,
                                           const uint32_t *tunnel_id, uint32_t obj_bit, int result);
DPM_API int dpm_driver_mpls_ilm_del_result(const void *request, uint32_t obj_bit, int result);
DPM_API int dpm_driver_vpls_add_result(uint32_t vpls_id, uint32_t fid, uint32_t obj_bit,
                                       int result);
DPM_API int dpm_driver_vpls_del_result(uint32_t vpls_id, uint32_t obj_bit, int result);
DPM_API int dpm_driver_vpls_ac_entry_add_result(const void *request, const uint32_t *nhid,
                                                const uint32_t *logic_port, uint32_t obj_bit,
                                                int result);
DPM_API int dpm_driver_vpls_ac_entry_del_result(const void *request, uint32_t obj_bit, int result);
DPM_API int dpm_driver_vpls_pw_entry_add_result(const void *request, const uint32_t *nhid,
                                                const uint32_t *logic_port, uint32_t obj_bit,
                                                int result);
DPM_API int dpm_driver_vpls_pw_entry_del_result(const void *request, uint32_t obj_bit, int result);
DPM_API int dpm_driver_vpws_entry_add_result(const void *ac, const void *pw,
                                             const uint32_t *ac_nhid, const uint32_t *pw_nhid,
                                             const uint32_t *aps_id, uint32_t value,
                                             uint32_t obj_bit, int result);
DPM_API int dpm_driver_vpws_entry_del_result(const void *request, uint32_t value, uint32_t obj_bit,
                                             int result);
DPM_API int dpm_driver_vpws_entry_add_result_test(const void *ac, const void *pw,
                                                  const uint32_t *ac_nhid, const uint32_t *pw_nhid,
                                                  const uint32_t *aps_id, uint32_t value,
                                                  const uint16_t *vlans, uint32_t vlan_count,
                                                  uint32_t obj_bit, int result);
DPM_API int dpm_driver_vpws_entry_del_result_test(const void *request, uint32_t value,
                                                  const uint16_t *vlans, uint32_t vlan_count,
                                                  uint32_t obj_bit, int result);
DPM_API int dpm_driver_vpws_entry_update_result(const void *ac, const void *pw,
                                                const uint32_t *pw_nhid, const uint32_t *aps_id,
                                                uint32_t value, uint32_t obj_bit, int result);
DPM_API int dpm_driver_interface_mpls_enable_result(uint32_t vlan, uint32_t enable,
                                                    uint32_t obj_bit, int result);
DPM_API int dpm_driver_pw_group_switch_result(uint32_t group, uint32_t protect, uint32_t obj_bit,
                                              int result);
DPM_API int dpm_driver_port_scl_key_type_set_result(uint32_t port_type, uint32_t port,
                                                    uint32_t subport, uint32_t direction,
                                                    uint32_t key_type, uint32_t obj_bit,
                                                    int result);
DPM_API int dpm_driver_set_ecmp_hash_ctl_result(uint32_t hash_mode, uint32_t obj_bit, int result);
DPM_API int dpm_driver_add_gre_tunnel_result(uint32_t vrf, const uint8_t *source,
                                             const uint8_t *destination, uint32_t key,
                                             uint32_t checksum, uint32_t obj_bit, int result);
DPM_API int dpm_driver_del_gre_tunnel_result(uint32_t vrf, const uint8_t *source,
                                             const uint8_t *destination, uint32_t key,
                                             uint32_t checksum, uint32_t obj_bit, int result);
DPM_API int dpm_driver_add_gre_nexthop_result(uint32_t port_type, uint32_t port_id,
                                              const uint8_t *mac, uint32_t vid, uint32_t ivid,
                                              uint32_t vrf, const uint8_t *source,
                                              const uint8_t *destination, uint32_t key,
                                              uint32_t checksum, const uint32_t *id,
                                              uint32_t obj_bit, int result);
DPM_API int dpm_driver_update_gre_nexthop_result(uint32_t port_type, uint32_t port_id,
                                                 const uint8_t *mac, uint32_t vid, uint32_t ivid,
                                                 uint32_t vrf, const uint8_t *source,
                                                 const uint8_t *destination, uint32_t key,
                                                 uint32_t checksum, const uint32_t *id,
                                                 uint32_t obj_bit, int result);
DPM_API int dpm_driver_del_gre_nexthop_result(uint32_t id, uint32_t obj_bit, int result);

#ifdef __cplusplus
}
#endif

#endif
