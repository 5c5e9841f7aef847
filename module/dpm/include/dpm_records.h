/*
 * Records of libdpm: the entries of its tables as they are kept and mirrored, the requests that carry
 * them, and the constants in their members.  A part of dpm_api.h, which includes it and tells the
 * rules that hold for all of the surface.
 */
#ifndef DPM_RECORDS_H
#define DPM_RECORDS_H

#include "platform/norix.h"

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* ---- constants ------------------------------------------------------------------------------- */

#define DPM_FAMILY_NONE 0
#define DPM_FAMILY_IPV4 1
#define DPM_FAMILY_IPV6 2

#define DPM_OPER_ADD 1
#define DPM_OPER_DEL 2

#define DPM_ENABLE 1
#define DPM_DISABLE 2

#define DPM_IF_VLANIF 0    /* an interface on a VLAN */
#define DPM_IF_SUPERVLAN 2 /* an interface shared by several sub-VLANs */
#define DPM_IF_SUBVLAN 3   /* a member of a super-VLAN (kept in its list) */

#define DPM_PORT_LOGICAL 1  /* a trunk */
#define DPM_PORT_PHYSICAL 2 /* a port; 0 means the same in host requests */

#define DPM_IFNAME_BYTES 64
#define DPM_MAC_BYTES 6

/* ---- records --------------------------------------------------------------------------------- */

/* Node of a circular doubly linked list; a head is one that holds no entry. */
struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

/* Header of a tree entry, its first member. */
struct dpm_avl_node {
    struct dpm_avl_node *child[2]; /* smaller, greater */
    struct dpm_avl_node *parent;
    uint16_t child_index; /* which child of its parent this is */
    int16_t balance;      /* height(right) - height(left) */
};

/* An address with a prefix length. */
struct dpm_prefix {
    uint16_t family;     /* DPM_FAMILY_* */
    uint16_t prefix_len; /* bits */
    uint8_t address[16]; /* network order; IPv4 in the first four, the rest zero */
};

/* Node of a timer list. */
struct dpm_timer_node {
    struct list_head link;
    int32_t expiry_sec; /* monotonic clock; 0 when not armed */
    int32_t expiry_nsec;
    int (*callback)(uintptr_t arg1, uintptr_t arg2, uintptr_t arg3);
    uintptr_t arg1, arg2, arg3;
};

/* A layer-3 interface.  The list it stands on has the newest entry first. */
struct dpm_if_entry {
    struct list_head link;
    char ifname[DPM_IFNAME_BYTES]; /* terminated */
    uint16_t vrf;
    uint16_t if_id;    /* VLAN id */
    uint32_t if_index; /* the routing suite's index */
    uint32_t if_type;  /* DPM_IF_* */
    uint16_t status;   /* 1 */
    uint8_t mac[DPM_MAC_BYTES];
    uint32_t mtu;       /* bytes */
    uint32_t bandwidth; /* bits a second */
    uint32_t metric;
    uint32_t flags;              /* up, broadcast, multicast */
    uint32_t l3_intf_id;         /* the chip's id */
    uint16_t l3_programmed;      /* 1: the chip has the L3 interface */
    uint16_t arp_programmed;     /* 1: the chip traps ARP on the VLAN */
    struct list_head ipv4_list;  /* dpm_if_ip_entry */
    struct list_head ipv6_list;  /* dpm_if_ip_entry */
    struct list_head sub_list;   /* dpm_if_entry of the sub-VLANs, in a super-VLAN */
    struct dpm_if_entry *parent; /* the super-VLAN, in a sub-VLAN */
};

/* An address of an interface. */
struct dpm_if_ip_entry {
    struct list_head link;
    uint32_t vrf;
    struct dpm_prefix ip;
};

/* A resolved neighbour. */
struct dpm_host_entry {
    struct dpm_avl_node node;
    uint32_t vrf;
    uint32_t ifindex;              /* card-local: another on the peer card */
    char ifname[DPM_IFNAME_BYTES]; /* terminated */
    struct dpm_prefix ip;
    uint8_t mac[DPM_MAC_BYTES];
    uint8_t reserved[2];  /* zero */
    uint32_t svlan;       /* outer VLAN */
    uint32_t cvlan;       /* inner VLAN */
    uint32_t supervlan;   /* VLAN of the interface, when no index was given */
    uint32_t port_type;   /* DPM_PORT_LOGICAL; 0 and DPM_PORT_PHYSICAL: physical */
    uint32_t log_port_id; /* trunk id, or the port of type 0 */
    uint32_t phy_port_id;
    uint32_t sdk_index;     /* the chip's next hop */
    uint8_t card_local[32]; /* zero; never mirrored in */
};

/* A next hop of the chip, shared by the hosts behind it. */
struct dpm_nexthop_entry {
    struct dpm_avl_node node;
    uint8_t mac[DPM_MAC_BYTES];
    uint16_t cnt; /* hosts that use it */
    uint32_t svlan;
    uint32_t cvlan;
    uint32_t port_type; /* DPM_PORT_* */
    uint32_t port_id;
    uint32_t sdk_index; /* the chip's index */
};

/* An address that something waits for; it is probed every 30 seconds. */
struct dpm_unreachable_entry {
    struct list_head link;
    uint32_t vrf;
    uint32_t ifindex; /* where to probe */
    struct dpm_prefix ip;
    struct dpm_timer_node timer; /* next probe */
    uint32_t probe_cnt;          /* probes left */
};

/* A neighbour whose port went down; it is probed when the port comes up. */
struct dpm_hold_entry {
    struct list_head link;
    uint32_t vrf;
    uint32_t ifindex;
    struct dpm_prefix ip;
    uint8_t mac[DPM_MAC_BYTES];
    uint8_t reserved[2];
    uint32_t svlan;
    uint32_t cvlan;
    uint32_t supervlan;
    uint32_t port_type;
    uint32_t log_port_id;
    uint32_t phy_port_id;
    struct dpm_timer_node timer; /* end of the hold */
};

/* What the routing suite or the IP stack tells about a neighbour (60 bytes, shared with the IP
 * stack). */
struct dpm_host_info {
    uint8_t oper; /* DPM_OPER_*; read by dpm_api_notify_ipstack_host only */
    uint8_t reserved0[3];
    uint32_t vrf;     /* not used: the VRF is that of the VLAN's interface */
    uint32_t ifindex; /* 0: the interface of `supervlan` */
    uint8_t family;   /* DPM_FAMILY_* */
    uint8_t address[16];
    uint8_t mac[DPM_MAC_BYTES];
    uint8_t reserved1;
    uint32_t svlan;
    uint32_t cvlan;
    uint32_t supervlan;
    uint32_t port_type;
    uint32_t log_port_id;
    uint32_t phy_port_id;
};

/* A group of next hops in the chip, up to eight of them recorded. */
struct dpm_ecmp_entry {
    struct dpm_avl_node node;
    uint32_t ecmp_type;   /* DPM_FAMILY_* */
    int32_t sdk_index;    /* the chip's index */
    uint32_t host_sdk[8]; /* next hops of the members; 0: a free slot */
    uint32_t host_cnt;    /* members recorded */
};

#define DPM_ROUTE_GATEWAYS 8

#define DPM_ROUTE_SINGLE 2 /* ecmp_enable: one next hop */
#define DPM_ROUTE_ECMP 1   /* ecmp_enable: a group */

/* A unicast route. */
struct dpm_route_entry {
    struct dpm_avl_node node;
    uint32_t vrf;
    uint32_t route_type;                      /* origin, as the routing suite numbers it */
    struct dpm_prefix destination;            /* as given, host bits included */
    struct dpm_prefix np[DPM_ROUTE_GATEWAYS]; /* gateways; family 0: no address */
    uint32_t np_ifindex[DPM_ROUTE_GATEWAYS];  /* card-local: others on the peer card */
    char np_ifname[DPM_ROUTE_GATEWAYS][DPM_IFNAME_BYTES];
    uint32_t np_num;                        /* gateways in use */
    int32_t sdk_index;                      /* next hop or group; 0: not programmed */
    int32_t host_index[DPM_ROUTE_GATEWAYS]; /* next hop a gateway; -1 unresolved, 2 no address */
    uint32_t ecmp_enable;                   /* DPM_ROUTE_SINGLE or DPM_ROUTE_ECMP */
    struct dpm_timer_node delete_timer;     /* end of a route that nobody renews */
};

/* What the routing suite tells about a route (224 bytes). */
struct dpm_route_msg {
    uint32_t vrf;
    uint32_t route_type;
    struct dpm_prefix destination;
    struct dpm_prefix np[DPM_ROUTE_GATEWAYS];
    uint32_t np_ifindex[DPM_ROUTE_GATEWAYS];
    uint32_t np_num; /* 8 at most */
};

#define DPM_MPLS_IF_ENABLED 1 /* flags of an MPLS interface: the chip takes its labels */
#define DPM_MPLS_IF_REFUSED 2 /* the chip would not */

/* What the routing suite tells about an MPLS interface. */
struct dpm_mpls_if_msg {
    uint32_t ifindex;
    char ifname[DPM_IFNAME_BYTES]; /* terminated */
    uint32_t label_space;
    uint32_t unused;
};

/* An interface that takes packets with labels. */
struct dpm_mpls_if {
    struct dpm_avl_node node;
    uint32_t ifindex; /* card-local: another on the peer card; all ones where there is none */
    char ifname[DPM_IFNAME_BYTES]; /* terminated */
    uint32_t label_space;          /* the suite's number */
    uint32_t word;
    uint16_t vlan_id; /* of the interface */
    uint8_t flags;    /* DPM_MPLS_IF_* */
    uint8_t reserved;
    int32_t sdk_result; /* of the refusal */
};

#define DPM_LABEL_NEW 0        /* flags of a label entry: not tried yet */
#define DPM_LABEL_PROGRAMMED 1 /* in the chip */
#define DPM_LABEL_WAITING 2    /* on the pend list */

#define DPM_LABEL_CAPACITY 4096 /* label entries of all kinds together */

#define DPM_FTN_MSG_BYTES 114 /* struct dpm_ftn_msg */
#define DPM_ILM_MSG_BYTES 165 /* struct dpm_ilm_msg */

/* What the routing suite tells about a prefix and its labels.  Addresses are as long as their
 * families say. */
struct dpm_ftn_msg {
    uint32_t vrf_id;
    uint32_t family; /* of the FEC */
    uint8_t fec_prefix[16];
    uint8_t pro_type;
    uint8_t prefixlen;
    uint8_t unused1[2];
    uint32_t tunnel_label; /* of a VPN route: not used, the tunnel has its own */
    uint8_t unused2[8];
    uint8_t tunnel_ip_type;
    uint8_t tunnel_nhop[16];
    uint32_t ifindex; /* where the next hop is */
    uint32_t vpn_label;
    uint8_t vpn_nhop_af;
    uint8_t vpn_nhop[16]; /* the FEC of the tunnel that carries a VPN route */
    uint8_t unused3[16];
    uint32_t ftn_ix;
    uint8_t unused4;
    uint8_t ftn_type;
    uint8_t owner;
    uint8_t unused5[9];
} __attribute__((packed));

/* What the routing suite tells about an incoming label. */
struct dpm_ilm_msg {
    uint32_t ilm_ix;
    uint32_t in_label;
    uint32_t in_ifindex;
    uint8_t unused1;
    uint8_t opcode;
    uint8_t is_egress;
    uint8_t unused2;
    uint8_t tunnel_ip_type;
    uint8_t tunnel_nhop[16]; /* where the packet goes; not used at an egress */
    uint32_t out_ifindex;
    uint8_t unused3[64];
    uint32_t swap_label;
    uint32_t word;
    uint32_t tunnel_label;
    uint32_t family; /* of the FEC */
    uint8_t fec_prefix[16];
    uint8_t prefixlen;
    uint8_t protocol;
    uint8_t unused4[2];
    uint32_t tnl_ix;
    uint32_t vrf_id;
    uint8_t unused5[20];
} __attribute__((packed));

/* FEC to label: to reach this prefix, push these labels and send to this neighbour.  Addresses are
 * 16 bytes, IPv4 in the first four with the rest zero. */
struct dpm_ftn {
    struct dpm_avl_node node;
    struct list_head pend; /* place on the pend list; linked to itself when on none */
    uint32_t ftn_ix;       /* the routing suite's index */
    uint8_t owner;         /* owning protocol, the suite's number */
    uint8_t ip_type;       /* DPM_FAMILY_* of the FEC */
    uint8_t prefixlen;     /* bits of the FEC */
    uint8_t reserved;
    uint8_t fec_prefix[16];
    uint32_t tunnel_label;   /* outer label */
    uint8_t tunnel_ip_type;  /* family of the next hop */
    uint8_t tunnel_nhop[16]; /* the neighbour */
    uint32_t vrf_id;         /* 0: a tunnel; other: a VPN route */
    uint32_t vpn_label;      /* inner label; 0 for a tunnel */
    uint8_t vpn_nhop_af;
    uint8_t vpn_nhop[16]; /* the remote PE */
    uint8_t vpn_prefixlen;
    uint8_t ftn_type;   /* the suite's number */
    uint8_t pro_type;   /* the suite's number */
    uint8_t flags;      /* DPM_LABEL_* */
    int32_t sdk_result; /* last failure of the driver; 0: none */
    uint8_t mac[DPM_MAC_BYTES];
    uint32_t svlan;
    uint32_t out_port;
    uint32_t host_word;
    uint32_t fec_route_deleted; /* 1: the FEC's route left the chip for this entry */
    uint32_t nhid;              /* the chip's next hop; 0: not programmed */
    uint32_t tunnel_id;         /* the chip's tunnel; 0: not programmed */
    uint32_t port_type;         /* DPM_PORT_* */
    uint32_t stale;             /* card-local: out of the chip since its tunnel went */
} __attribute__((packed));

/* Incoming label: swap, pop or terminate. */
struct dpm_ilm {
    struct dpm_avl_node node;
    struct list_head pend;
    uint32_t ilm_ix;
    uint32_t in_label; /* the key */
    uint32_t vrf_id;
    uint8_t ip_type;
    uint8_t prefixlen;
    uint8_t protocol; /* the suite's number */
    uint8_t opcode;   /* the suite's number */
    uint8_t fec_prefix[16];
    uint8_t tunnel_ip_type;
    uint8_t tunnel_nhop[16];
    uint32_t in_ifindex;
    uint32_t out_ifindex; /* card-local: another on the peer card */
    char out_ifname[DPM_IFNAME_BYTES];
    uint32_t swap_label;
    uint32_t word; /* the suite's, kept as it is */
    uint32_t tunnel_label;
    uint32_t tnl_ix;
    int32_t sdk_result;
    uint8_t is_egress; /* 1: this router pops the label */
    uint8_t owner;
    uint16_t flags; /* DPM_LABEL_* */
    uint8_t mac[DPM_MAC_BYTES];
    uint32_t svlan;
    uint32_t out_port;
    uint32_t host_word;
    uint32_t nhid;
    uint32_t tunnel_id;
    uint32_t port_type;
} __attribute__((packed));

/* A policy route: traffic that matches a rule on a set of ports goes to a next hop. */
struct dpm_policy_route_entry {
    struct dpm_avl_node node;
    uint32_t vsid;        /* rule set of the chip */
    uint8_t *rule_buffer; /* rule records (dpm_hw_fill_rule) */
    uint32_t rule_buffer_len;
    uint8_t *port_buffer; /* a port record (dpm_hw_fill_port) */
    uint32_t port_buffer_len;
    uint32_t vrf;               /* of the next hop */
    struct dpm_prefix next_hop; /* with the host's length */
    uint32_t if_index;          /* whose network has it; 0: none */
    int32_t nexthop;            /* the chip's index; -1: unresolved, the chip has no item */
    uint32_t acl_index;         /* 0 */
};

#define DPM_BFD_ADMIN_DOWN 0 /* states of a BFD session */
#define DPM_BFD_DOWN 1
#define DPM_BFD_INIT 2
#define DPM_BFD_UP 3

/* Flags of a request for a session that is there: it goes down (without: it leaves admin down), and
 * its remote discriminator and timers are new. */
#define DPM_BFD_FLAG_ADMIN_DOWN 0x2
#define DPM_BFD_FLAG_PARAMETERS 0x200

#define DPM_BFD_UPDATE_REMOTE_DISC 1 /* kinds of an update; value 1: the discriminator, 0 none */
#define DPM_BFD_UPDATE_STATE 2       /* value 1: DPM_BFD_* */
#define DPM_BFD_UPDATE_CC 3          /* value 1: continuity is checked (1) or not (0) */
#define DPM_BFD_UPDATE_TIMERS 4      /* values 1 to 3: the timer values 1 to 3 */

#define DPM_BFD_UNRESOLVED 1 /* arp_state: the next hop is not there */
#define DPM_BFD_RESOLVED 2
#define DPM_BFD_INSTALLED 1 /* hw_state: the chip has both end points */
#define DPM_BFD_NOT_INSTALLED 2

#define DPM_BFD_REQUEST_BYTES 212 /* struct dpm_bfd_request */

/* A BFD session in the suite's words.  What is named `word`, `byte` or `half` is the suite's own and
 * kept as it is.  Timer values are in the chip's units. */
struct dpm_bfd_told {
    uint32_t ifindex; /* card-local: another on the peer card; all ones where there is none */
    uint32_t flags;   /* DPM_BFD_FLAG_* */
    uint32_t word0;
    uint32_t type;   /* 1 to 4 */
    uint32_t family; /* DPM_FAMILY_* of its local and peer addresses */
    uint16_t option;
    uint16_t state;            /* DPM_BFD_* */
    uint32_t local_disc;       /* local discriminator: the key */
    uint32_t remote_disc;      /* remote discriminator; 0: not learnt yet */
    struct dpm_prefix address; /* of type 3 */
    uint32_t word1;
    uint8_t byte0;
    uint8_t sub_type; /* of type 4: 3 to 6 */
    uint16_t half0;
    uint32_t identifier; /* of type 4 */
    uint32_t word2[2];
    struct dpm_prefix local;
    struct dpm_prefix peer;
    struct dpm_prefix next_hop; /* the neighbour; its family and bytes count */
    uint16_t chip_half[2];      /* go to the chip */
    uint32_t timer[3];          /* timer values 1 to 3 */
    uint32_t word3[7];
};

/* What the routing suite tells about a BFD session (212 bytes). */
struct dpm_bfd_request {
    struct dpm_bfd_told told;
    uint16_t cc_hold; /* 1: continuity checking is not switched on with the remote discriminator */
    uint16_t half1;
    uint8_t bytes[20];    /* the suite's, kept as they are */
    uint32_t byte_option; /* its low byte goes to the chip */
    uint8_t unused[8];
};

/* A BFD session, whose two end points the chip runs while its next hop is resolved. */
struct dpm_bfd_sess {
    struct dpm_avl_node node;
    struct dpm_bfd_told told;
    uint8_t bytes[20];
    uint32_t byte_option;
    uint32_t arp_state; /* DPM_BFD_UNRESOLVED or DPM_BFD_RESOLVED */
    uint32_t cc_state;  /* 1: the chip checks continuity */
    uint16_t cc_hold;
    uint16_t hw_state;   /* DPM_BFD_INSTALLED or DPM_BFD_NOT_INSTALLED */
    uint32_t out_port;   /* physical port of the next hop */
    uint32_t local_mep;  /* the chip's index of the local end point, 2 to 2001; 0: none */
    uint32_t remote_mep; /* of the remote end point; as above, counted apart */
    uint8_t mac[DPM_MAC_BYTES];
    uint16_t vlan;               /* outer VLAN of the next hop */
    uint32_t port_type;          /* DPM_PORT_* of the next hop */
    uint32_t port_id;            /* trunk or port */
    uint32_t debounce;           /* 1: the chip hears of remote_disc when the timer is due */
    struct dpm_timer_node timer; /* card-local */
};

/* A change of a session (24 bytes). */
struct dpm_bfd_update {
    uint32_t local_disc;
    uint32_t kind;     /* DPM_BFD_UPDATE_* */
    uint32_t value[4]; /* the fourth is not used */
};

/* A GRE tunnel over IPv4, and what its destination is reached by at present. */
struct dpm_tunnel_entry {
    struct dpm_avl_node node;
    uint32_t tunnel_id;
    char name[DPM_IFNAME_BYTES]; /* "tunnel%d" of the id, terminated */
    uint32_t ip_vrfid;           /* VRF of the tunnel's own address, and of the routes over it */
    struct dpm_prefix ip;        /* own address; family 0: none */
    uint32_t mode;               /* the suite's number */
    uint32_t tunnel_vrf;         /* VRF of source and destination */
    struct dpm_prefix source;    /* IPv4, 32 bits; family 0: none */
    struct dpm_prefix destination;
    uint32_t checksum;
    uint32_t key_enable; /* 0: without key */
    uint32_t key;
    uint32_t route_flag;            /* 1: a best route leads to the destination */
    struct dpm_prefix route_prefix; /* of that route */
    int32_t host_index[8];          /* the route's next hops; none: 0 or less */
    uint32_t ecmp_enable;           /* the route's: DPM_ROUTE_SINGLE or DPM_ROUTE_ECMP; 0: no route */
    int32_t sdk_index;              /* GRE next hop, or the group of them; above 0: it is up */
    int32_t nexthop_index[8];       /* GRE next hops in the chip, one a next hop of the route; 0: none */
};

/* A port on which the chip looks for GRE packets. */
struct dpm_tunnel_port_entry {
    struct dpm_avl_node node;
    uint32_t port_type; /* DPM_PORT_* */
    uint32_t port;
    uint32_t subport; /* 0 */
    uint32_t cnt;     /* GRE next hops on it; 0: the chip would not look there */
};

/* A log file of the routing suite.  All zero: closed. */
struct norix_vlog_file {
    FILE *file;
    const char *path; /* the caller's string, needed until the record is closed */
    uint32_t reserved;
    uint32_t max_size; /* bytes at which the file becomes the old generation */
    uint32_t size;     /* bytes written, without the ends of the lines */
};

#define DPM_IPMC_OUT_VLANS 64 /* outgoing VLANs of a source */
#define DPM_IPMC_SOURCES 8    /* sources of a port's filter */

struct dpm_ipmc_source;

/* A multicast group that the routing suite forwards in a VRF.  It lives as long as it has sources. */
struct dpm_ipmc_group {
    struct dpm_avl_node node;
    uint32_t vrf;
    struct dpm_prefix group;
    struct list_head sources; /* dpm_ipmc_source, newest first */
    uint32_t src_cnt;
};

/* Ports of an outgoing VLAN that get the packets of a source. */
struct dpm_ipmc_out_vlan {
    uint16_t out_vlan;
    uint16_t member_cnt;
    struct list_head members; /* dpm_ipmc_member, newest first */
};

/* A source of a group. */
struct dpm_ipmc_source {
    struct list_head link;
    struct dpm_prefix source; /* all zero: any source */
    uint16_t in_vlan;
    uint16_t out_cnt;                                  /* slots in use */
    struct dpm_ipmc_out_vlan *out[DPM_IPMC_OUT_VLANS]; /* null: a free slot */
    uint32_t gid;                                      /* the chip's group */
};

/* A port that gets the packets of a source on an outgoing VLAN. */
struct dpm_ipmc_member {
    struct list_head link;
    struct dpm_ipmc_group *group;
    struct dpm_ipmc_source *source;
    struct dpm_ipmc_out_vlan *out;
    struct dpm_timer_node timer; /* after a switch-over: its end, unless it is reported again */
    uint16_t out_vlan;
    uint16_t inner_vlan;
    uint32_t phy; /* physical port */
};

/* A group that ports of a VLAN have reported.  It lives as long as it has ports. */
struct dpm_ipmc_rx_group {
    struct dpm_avl_node node;
    uint32_t vlan;
    struct dpm_prefix group;
    struct list_head ports; /* dpm_ipmc_rx_port, newest first */
    uint32_t port_cnt;
};

#define DPM_IPMC_NO_FILTER 0 /* mode of a port: every source is wanted */
#define DPM_IPMC_INCLUDE 1   /* these sources alone are wanted */
#define DPM_IPMC_EXCLUDE 2   /* every source but these is wanted */

/* A port that has reported a group, with its source filter. */
struct dpm_ipmc_rx_port {
    struct list_head link;
    struct dpm_ipmc_rx_group *group;
    struct dpm_prefix sources[DPM_IPMC_SOURCES]; /* the first src_cnt of them */
    uint16_t src_cnt;
    uint16_t mode; /* DPM_IPMC_* */
    uint16_t outer_vlan;
    uint16_t inner_vlan;
    uint32_t phy;                /* physical port */
    struct dpm_timer_node timer; /* end of a port that reports no more */
};

/* What the routing suite tells about a source of a group (308 bytes). */
struct dpm_ipmc_request {
    uint32_t vrf;
    struct dpm_prefix group;
    struct dpm_prefix source; /* all zero: any source */
    uint32_t iif;             /* index of the incoming interface */
    uint32_t oif_num;         /* 64 at most */
    uint32_t oif[DPM_IPMC_OUT_VLANS];
};

#endif
