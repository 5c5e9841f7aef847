/*
 * Contract: the chip driver abstraction.
 *
 * The host supplies every function of this header.  They are called on the worker under the DPM
 * lock (and by dpm_main_init before the worker exists).  Each answers 0 when every slot took the
 * request, otherwise an error code; a request that is refused must leave no trace.  The driver
 * reports each slot's own answer through the callback named after the request with "_result" behind
 * it (dpm_api.h), on any thread.
 *
 * `slot_bits`: 0 for no restriction, otherwise bit N restricts the request to slot N.
 * `mac`: 6 bytes in wire order.  `address`: 4 (family 1) or 16 (family 2) bytes in network order.
 * Both, like every other pointer, are valid during the call only.  Indexes written through pointers
 * are above 0; 2 is reserved.
 */
#ifndef DPM_PLATFORM_DAL_H
#define DPM_PLATFORM_DAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DAL_NEXTHOP_TO_CPU 2     /* the next hop of interface addresses: the CPU */
#define DAL_ECMP_MEMBER_BYTES 32 /* eight 32-bit next-hop indexes */
#define DAL_GRE_NO_KEY 0xFFFFFFFFu

/* A label of a request, and what becomes of TTL and EXP where it is written. */
struct dal_label {
    uint32_t label; /* 20 bits; DAL_NO_LABEL */
    uint8_t ttl_mode;
    uint8_t ttl;
    uint8_t exp_type;
    uint8_t exp;
    uint32_t zero;
};

#define DAL_NO_LABEL 0xFFFFFFu
#define DAL_TTL_SET 0  /* ttl_mode: `ttl` is written */
#define DAL_TTL_LESS 1 /* ttl_mode: the packet's, less `ttl` */
#define DAL_EXP_SET 0  /* exp_type: `exp` is written */
#define DAL_EXP_COPY 2 /* exp_type: the packet's own */

/* Prefix to labels.  With a VPN label: the prefix of a VRF behind a remote end, whose own labels
 * the chip knows by the tunnel prefix.  Without: the tunnel prefix itself, over a neighbour. */
struct dal_ftn_request {
    uint32_t flag;      /* 1 */
    uint32_t port_type; /* of the neighbour: 1 trunk, 2 physical port */
    uint32_t port_id;
    uint8_t mac[6];
    uint16_t vlan;
    uint16_t vrf;
    uint8_t tunnel_family;
    uint8_t tunnel_prefix_len;
    uint8_t tunnel_address[16];
    uint8_t vpn_family;
    uint8_t vpn_prefix_len;
    uint8_t zero1[2];
    uint8_t vpn_address[16];
    uint8_t zero2[4];
    struct dal_label labels[2]; /* DAL_FTN_* */
};

enum { DAL_FTN_TUNNEL, DAL_FTN_VPN };

/* Incoming label to what becomes of it. */
struct dal_ilm_request {
    uint32_t lookup;     /* 1: what stands behind the label is looked up */
    uint32_t label_type; /* DAL_ILM_TUNNEL_LABEL, DAL_ILM_VPN_LABEL */
    uint32_t action;     /* DAL_ILM_POP, DAL_ILM_SWAP */
    uint32_t zero1;
    uint32_t port_type; /* of the neighbour */
    uint32_t port_id;
    uint8_t mac[6];
    uint16_t vlan;
    uint16_t vrf;
    uint8_t family; /* of the neighbour; the address is as long as it says */
    uint8_t prefix_len;
    uint8_t address[16];
    uint8_t address_family;
    uint8_t zero2[23];
    struct dal_label labels[4]; /* DAL_ILM_* */
};

enum { DAL_ILM_TUNNEL_IN, DAL_ILM_TUNNEL_OUT, DAL_ILM_VPN_IN, DAL_ILM_VPN_OUT };

#define DAL_ILM_TUNNEL_LABEL 0
#define DAL_ILM_VPN_LABEL 4
#define DAL_ILM_POP 0
#define DAL_ILM_SWAP 2

/* Layer-3 interfaces: a router MAC on a VLAN.  The interface id is written through `id`. */
int dal_driver_add_l3_intf(const uint8_t *mac, uint16_t vlan, uint32_t *id, uint32_t reserved);
int dal_driver_delete_l3_intf(const uint8_t *mac, uint16_t vlan, uint32_t reserved);
int dal_driver_interface_vrf_set(int32_t vlan, uint16_t vrf, uint32_t slot_bits);
int dal_driver_interface_mpls_enable(uint16_t vlan, uint8_t enable, uint32_t slot_bits);

/* Address entries: host routes, prefixes and interface addresses are one table, keyed by VRF,
 * family and prefix. An add of what is there with another next hop replaces it. */
int dal_driver_add_ip_entry(int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                            uint32_t nexthop_id, uint32_t slot_bits);
#define DAL_NOT_THERE (-31993) /* a delete: the chip has no such entry */
int dal_driver_del_ip_entry(int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                            uint32_t nexthop_id, uint32_t slot_bits);

/* What happens to packets of a VRF that no entry matches: `to_cpu` 1 sends them to the CPU, 0 drops
 * them. */
int dal_driver_default_route_set(uint32_t family, uint16_t vrf, uint32_t to_cpu, uint32_t cpu_queue,
                                 uint32_t cpu_rate, uint32_t slot_bits);

/* Next hops: a neighbour behind a port.  `port_type` 1 trunk, 2 physical port.  The index is
 * written through `id`. */
int dal_driver_add_ip_nexthop(uint32_t port_type, uint32_t port_id, uint32_t *id, uint16_t svlan,
                              uint16_t cvlan, const uint8_t *mac, uint32_t slot_bits);
int dal_driver_del_ip_nexthop(uint32_t id, uint32_t slot_bits);

/* Groups of up to eight next hops.  `operation` 0 create, 1 add members, 2 remove members;
 * `members` is DAL_ECMP_MEMBER_BYTES, of which the first `count` words are in use. */
int dal_driver_add_ecmp_nexthop(int32_t *group, uint32_t operation, uint32_t count,
                                const void *members, uint32_t slot_bits);
int dal_driver_update_ecmp_nexthop(int32_t group, uint32_t operation, uint32_t count,
                                   const void *members, uint32_t slot_bits);
int dal_driver_del_ecmp_nexthop(int32_t group, uint32_t slot_bits);
int dal_driver_set_ecmp_hash_ctl(uint32_t hash_mode, uint32_t slot_bits);

/* Labels.  `request` is a struct dal_ftn_request or dal_ilm_request (below), each key and value at
 * once: an add of what is there replaces it, a delete carries what the add did but for TTL and EXP.
 * Next-hop id and tunnel id are written through the two pointers. */
int dal_driver_mpls_ftn_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits);
int dal_driver_mpls_ftn_del(const void *request, uint32_t slot_bits);
int dal_driver_mpls_ilm_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits);
int dal_driver_mpls_ilm_del(const void *request, uint32_t slot_bits);

/* Point-to-point pseudowires: frames of a circuit go to a peer with a label over the label path to
 * it, and frames with the other label come back to the circuit. */
struct dal_vpws_ac {
    uint32_t port;  /* logical; 91 to 106 are trunks 1 to 16 */
    uint32_t vlan;  /* of the circuit's interface */
    uint16_t svlan; /* tags of the circuit, as the routing suite tells them */
    uint16_t svlan_tpid;
    uint16_t cvlan;
    uint16_t action_vlan;
    uint32_t vlan_action;
    uint32_t match_rule;
};

struct dal_vpws_pw {
    uint32_t vc_id; /* key, with the peer */
    uint8_t peer[16];
    uint32_t in_label;
    uint32_t out_label;
    uint32_t nhid; /* the label path's, as dal_driver_mpls_ftn_add wrote them */
    uint32_t tunnel_id;
    uint16_t control_word;
    uint16_t mode;
    uint32_t is_protected; /* 1: the circuit has another pseudowire, in a group with this one */
};

#define DAL_PW_PRIMARY 0 /* `value`: which one of its circuit a pseudowire is */
#define DAL_PW_STANDBY 1

/* `ac` and `pw` are the two structs, `request` is the second.  The next hops towards circuit and peer
 * are written; a protected pseudowire joins the group in `aps_id`, which is made and written when it
 * is 0.  An update puts other values, of the circuit too, in the place of those of the key; next hops
 * and group stay.  `vlans` are `vlan_count` VLAN ids, outer tags of the circuit in the place of its
 * own.  A switch sends a group's frames over its standby pseudowire (`protect` 1) or its primary one
 * (0, as a new group does). */
int dal_driver_vpws_entry_add(const void *ac, const void *pw, uint32_t *ac_nhid, uint32_t *pw_nhid,
                              uint32_t *aps_id, uint32_t value, uint32_t slot_bits);
int dal_driver_vpws_entry_del(const void *request, uint32_t value, uint32_t slot_bits);
int dal_driver_vpws_entry_update(const void *ac, const void *pw, uint32_t *pw_nhid,
                                 uint32_t *aps_id, uint32_t value, uint32_t slot_bits);
int dal_driver_vpws_entry_add_test(const void *ac, const void *pw, uint32_t *ac_nhid,
                                   uint32_t *pw_nhid, uint32_t *aps_id, uint32_t value,
                                   const uint16_t *vlans, uint32_t vlan_count, uint32_t slot_bits);
int dal_driver_vpws_entry_del_test(const void *request, uint32_t value, const uint16_t *vlans,
                                   uint32_t vlan_count, uint32_t slot_bits);
int dal_driver_pw_group_switch(uint32_t group, uint32_t protect, uint32_t slot_bits);

/* Multipoint pseudowires: a virtual bridge, whose circuits and pseudowires learn the addresses that
 * frames come from, send frames to where their destination was learnt, and flood the others. */
struct dal_vpls_ac {
    uint32_t vpls_id;
    uint32_t port;  /* logical; 91 to 106 are trunks 1 to 16 */
    uint32_t vlan;  /* of the circuit's interface */
    uint16_t svlan; /* outer tag; 0: `vlan` */
    uint16_t svlan_tpid;
    uint16_t cvlan; /* inner tag; 0: any */
    uint16_t zero;
    uint32_t vlan_action;
};

struct dal_vpls_pw {
    uint32_t vpls_id; /* key, with the peer */
    uint8_t peer[16];
    uint32_t in_label;
    uint32_t out_label;
    uint32_t nhid; /* the label path's, as dal_driver_mpls_ftn_add wrote them */
    uint32_t tunnel_id;
    uint16_t control_word;
    uint16_t mode;
    uint32_t is_spoke; /* 0: a frame from one such pseudowire does not leave over another */
};

/* An instance is made with the forwarding id `fid`.  `request` is one of the structs; a delete names
 * the same circuit, or the key of the pseudowire.  Next hop and logical port are written. */
int dal_driver_vpls_add(uint16_t vpls_id, uint32_t fid, uint32_t slot_bits);
int dal_driver_vpls_del(uint16_t vpls_id, uint32_t slot_bits);
int dal_driver_vpls_ac_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits);
int dal_driver_vpls_ac_entry_del(const void *request, uint32_t slot_bits);
int dal_driver_vpls_pw_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits);
int dal_driver_vpls_pw_entry_del(const void *request, uint32_t slot_bits);

/* The fields that classify packets of a port.  `direction` 0 ingress, 1 egress. */
int dal_driver_port_scl_key_type_set(uint32_t port_type, uint16_t port, uint16_t subport,
                                     uint8_t direction, uint8_t key_type, uint32_t slot_bits);

/* GRE.  `source` and `destination` are IPv4 addresses in network order; a key of DAL_GRE_NO_KEY
 * means none. */
int dal_driver_add_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key, uint32_t checksum, uint32_t slot_bits);
int dal_driver_del_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key, uint32_t checksum, uint32_t slot_bits);
int dal_driver_add_gre_nexthop(uint32_t port_type, uint32_t port_id, const uint8_t *mac,
                               uint32_t vid, uint32_t ivid, uint32_t vrf, const uint8_t *source,
                               const uint8_t *destination, uint32_t key, uint32_t checksum,
                               uint32_t *id, uint32_t slot_bits);
int dal_driver_update_gre_nexthop(uint32_t port_type, uint32_t port_id, const uint8_t *mac,
                                  uint32_t vid, uint32_t ivid, uint32_t vrf, const uint8_t *source,
                                  const uint8_t *destination, uint32_t key, uint32_t checksum,
                                  uint32_t *id, uint32_t slot_bits);
int dal_driver_del_gre_nexthop(uint32_t id, uint32_t slot_bits);

#ifdef __cplusplus
}
#endif

#endif
