/*
 * Layer-2 services of libdpm: point-to-point pseudowires (VPWS) and multipoint ones (VPLS).  A part of
 * dpm_api.h, which includes it and tells the rules that hold for all of the surface.
 *
 * Addresses of these records are 16 bytes, IPv4 in the first four with the rest zero; peers are IPv4.
 * Bytes without a meaning here are the routing suite's own: they travel with the entry.
 */
#ifndef DPM_L2VPN_API_H
#define DPM_L2VPN_API_H

/* ---- point-to-point pseudowires -------------------------------------------------------------- */

#define DPM_VPWS_ACIF_MSG_BYTES 84    /* requests for pseudowires: the first bytes of the images, */
#define DPM_VPWS_VC_FIB_MSG_BYTES 280 /* which stand behind the links of the entries */
#define DPM_VPWS_VC_ILM_MSG_BYTES 218
#define DPM_VPWS_VLAN_BYTES 512

/* The customer's side of a point-to-point pseudowire. */
struct dpm_vpws_acif {
    struct dpm_avl_node node;
    uint32_t vc_id;
    uint32_t ifindex; /* the key; card-local: another on the peer card, all ones where there is none */
    uint16_t vlan_id;  /* the suite's; the chip is told the VLAN of the interface */
    uint16_t svlan_id; /* outer tag of its frames; 0: the VLAN of the interface */
    uint16_t svlan_tpid;
    uint16_t cvlan_id;    /* inner tag; 0: any */
    uint32_t vlan_action; /* the suite's number */
    uint32_t matchRule;   /* the suite's number */
    char ifname[DPM_IFNAME_BYTES]; /* terminated */
    uint8_t flags;                 /* DPM_LABEL_* */
    uint8_t opaque1;
    uint16_t action_vlan;
    uint8_t vlans[DPM_VPWS_VLAN_BYTES]; /* bitmap: bit N is VLAN N + 1; empty: the outer tag above */
    uint16_t port;      /* logical port where the chip has it; 0: not there */
    uint16_t port_vlan; /* VLAN of the interface, as the chip was told */
    uint8_t is_gone;    /* 1: the interface went while the chip kept the circuit */
    uint8_t opaque2[2];
} __attribute__((packed));

/* The way out of a point-to-point pseudowire: to this peer, with this label, over the label path to
 * the peer. */
struct dpm_vpws_vc_fib {
    struct dpm_avl_node node;
    struct list_head pend; /* place on the pend list; linked to itself when on none */
    uint32_t vc_id;        /* key, with the peer */
    uint32_t vc_style;
    uint32_t in_label;
    uint32_t out_label;  /* pushed under the label path's own */
    uint32_t ac_ifindex; /* card-local, of in_ifname */
    uint32_t nw_ifindex; /* card-local, of out_ifname */
    uint32_t opcode;
    uint32_t pw_index;
    uint32_t tunnel_label;
    uint32_t opaque1[2];
    uint16_t c_word; /* the peer wants a control word */
    uint16_t pw_mode;
    uint16_t svlan_id;
    uint16_t svlan_tpid;
    uint32_t vlan_id;
    uint32_t opaque2;
    uint8_t vc_peer[16];
    uint8_t peer_nhop_addr[16];
    uint8_t address[16]; /* a change of it is an update */
    uint8_t fec_prefix[16];
    char in_ifname[DPM_IFNAME_BYTES];  /* terminated */
    char out_ifname[DPM_IFNAME_BYTES]; /* terminated */
    uint32_t flags;                    /* DPM_LABEL_* */
    uint32_t opaque3[2];
    uint32_t vc_role;           /* DPM_VC_* */
    uint32_t sibling_vc_id;     /* of the other pseudowire of the circuit; 0: none */
    uint8_t sibling_vc_peer[4]; /* IPv4 */
    uint32_t opaque4;
    int32_t sdk_result; /* last failure of the driver; 0: none */
    uint32_t switched;  /* 1: its group uses the standby pseudowire */
    uint32_t path_nhid; /* of the label path over which it was programmed */
    uint32_t path_id;
    uint32_t ac_nhid; /* the chip's next hops and redundancy group; 0: not programmed */
    uint32_t pw_nhid;
    uint32_t aps_id;
} __attribute__((packed));

#define DPM_VC_PRIMARY 0 /* vc_role */
#define DPM_VC_STANDBY 1

/* The way in of a point-to-point pseudowire: the label with which its frames come. */
struct dpm_vpws_vc_ilm {
    struct dpm_avl_node node;
    struct list_head pend;
    uint32_t vpn_id; /* key, with the peer: the vc_id of the way out */
    uint32_t opaque1;
    uint32_t in_label;
    uint32_t in_ifindex; /* card-local, of in_ifname */
    char in_ifname[DPM_IFNAME_BYTES];
    uint32_t out_label;
    uint32_t out_ifindex; /* card-local, of out_ifname */
    char out_ifname[DPM_IFNAME_BYTES];
    uint32_t nhlfe_ix;
    uint32_t tunnel_label;
    uint8_t nexthop[16];
    uint8_t vc_peer[16];
    uint8_t fec_prefix[16];
    uint8_t fec_prefixlen;
    uint8_t opaque2[3];
    uint8_t flags; /* DPM_LABEL_* */
    uint8_t opaque3[5];
} __attribute__((packed));

/* Requests for the three. */
struct dpm_vpws_acif_msg {
    uint8_t image[DPM_VPWS_ACIF_MSG_BYTES];
};
struct dpm_vpws_vc_fib_msg {
    uint8_t image[DPM_VPWS_VC_FIB_MSG_BYTES];
};
struct dpm_vpws_vc_ilm_msg {
    uint8_t image[DPM_VPWS_VC_ILM_MSG_BYTES];
};

/* The request that switches a redundancy group to one of its pseudowires. */
struct dpm_pw_switch_msg {
    uint32_t group;       /* aps_id */
    uint32_t use_standby; /* 1: the standby pseudowire, 0: the primary one */
};

/* Adds (DPM_OPER_ADD) or deletes an attachment circuit, a way out, a way in: the first
 * bytes of the image behind the entry's link (DPM_VPWS_*_MSG_BYTES).  The three of one pseudowire
 * come in any order; it is programmed while all are there, the label path to its peer with them.  Any
 * thread; the request is copied, the caller keeps it.  0 when it was posted; -1 for a null pointer,
 * another operation, or without memory or room on the queue. */
DPM_API int dpm_api_set_vpws_acif_proc(const void *request, uint32_t oper);
DPM_API int dpm_api_set_vpws_vc_fib_proc(const void *request, uint32_t oper);
DPM_API int dpm_api_set_vpws_vc_ilm_proc(const void *request, uint32_t oper);
/* Switches a redundancy group: a struct dpm_pw_switch_msg; DPM_OPER_ADD alone.  As above. */
DPM_API int dpm_api_set_pw_redundancy_switch_proc(const void *request, uint32_t oper);

/* Walk the tables in order; null at the end.  Any thread that holds the DPM lock; the entries stay
 * the library's and are good while the lock is held. */
DPM_API const struct dpm_vpws_acif *dpm_api_get_vpws_acif_first(void);
DPM_API const struct dpm_vpws_acif *dpm_api_get_vpws_acif_next(const struct dpm_vpws_acif *entry);
DPM_API const struct dpm_vpws_vc_fib *dpm_api_get_vpws_vc_fib_first(void);
DPM_API const struct dpm_vpws_vc_fib *
dpm_api_get_vpws_vc_fib_next(const struct dpm_vpws_vc_fib *entry);
DPM_API const struct dpm_vpws_vc_ilm *dpm_api_get_vpws_vc_ilm_first(void);
DPM_API const struct dpm_vpws_vc_ilm *
dpm_api_get_vpws_vc_ilm_next(const struct dpm_vpws_vc_ilm *entry);
/* Print the tables on standard output.  Any thread; they take the DPM lock. */
DPM_API void dpm_vpws_acif_table_show(void);
DPM_API void dpm_vpws_vc_fib_table_show(void);
DPM_API void dpm_vpws_vc_ilm_table_show(void);

/* ---- multipoint pseudowires ------------------------------------------------------------------ */

#define DPM_VPLS_VSI_MSG_BYTES 8 /* requests, as above */
#define DPM_VPLS_ACIF_MSG_BYTES 91
#define DPM_VPLS_VC_FIB_MSG_BYTES 250
#define DPM_VPLS_VC_ILM_MSG_BYTES 226

#define DPM_VPLS_MAX_ID 65535 /* what the chip tells instances apart by; 0 is none */

/* A virtual bridge: its circuits and pseudowires learn addresses and forward in common. */
struct dpm_vpls_vsi {
    struct dpm_avl_node node;
    uint32_t vpls_id; /* the key */
    uint32_t fid;     /* forwarding id in the chip: the VPLS id */
    uint8_t flags;    /* DPM_LABEL_*; 2: the chip refused it */
    int32_t sdk_result;
} __attribute__((packed));

/* A port of a virtual bridge towards a customer. */
struct dpm_vpls_acif {
    struct dpm_avl_node node;
    uint32_t vpls_id;
    uint32_t ifindex; /* the key; card-local: another on the peer card, all ones where there is none */
    char ifname[DPM_IFNAME_BYTES]; /* terminated */
    uint16_t vlan_id;
    uint16_t svlan_id; /* outer tag of its frames; 0: the VLAN of the interface */
    uint16_t svlan_tpid;
    uint16_t cvlan_id;    /* inner tag; 0: any */
    uint32_t vlan_action; /* the suite's number */
    uint8_t flags;        /* DPM_LABEL_* */
    uint16_t port_vlan;   /* VLAN of the interface, as the chip was told; 0: not there */
    uint8_t is_gone;      /* 1: the interface went while the chip kept the circuit */
    uint8_t opaque[3];
    int32_t sdk_result;  /* last failure of the driver; 0: none */
    uint32_t nhid;       /* the chip's; 0: not programmed */
    uint32_t logic_port; /* the chip's */
    uint16_t port;       /* logical port where the chip has it; 0: not there */
} __attribute__((packed));

/* The way out of a pseudowire of a virtual bridge: one for each peer of an instance. */
struct dpm_vpls_vc_fib {
    struct dpm_avl_node node;
    struct list_head pend; /* place on the pend list; linked to itself when on none */
    uint32_t vpls_id;      /* key, with the peer */
    uint32_t vc_id;
    uint32_t out_label;  /* pushed under the label path's own */
    uint32_t nw_ifindex; /* card-local, of out_ifname */
    uint32_t pw_index;
    uint32_t tunnel_label;
    uint16_t c_word; /* the peer wants a control word */
    uint16_t pw_mode;
    uint32_t is_spoke; /* 0: frames that came over a pseudowire do not leave over it */
    uint8_t vc_peer[16];
    uint8_t peer_nhop_addr[16];
    uint8_t fec_prefix[16];
    char out_ifname[DPM_IFNAME_BYTES]; /* terminated */
    uint32_t flags;                    /* DPM_LABEL_* */
    uint8_t opaque[102];
    int32_t sdk_result; /* last failure of the driver; 0: none */
    uint32_t path_nhid; /* of the label path over which it was programmed */
    uint32_t path_id;
    uint32_t nhid; /* the chip's; 0: not programmed */
    uint32_t logic_port;
} __attribute__((packed));

/* The way in of a pseudowire of a virtual bridge. */
struct dpm_vpls_vc_ilm {
    struct dpm_avl_node node;
    struct list_head pend;
    uint32_t vpls_id; /* key, with the peer */
    uint32_t vc_id;
    uint32_t in_label;
    uint32_t in_ifindex; /* card-local, of in_ifname */
    char in_ifname[DPM_IFNAME_BYTES];
    uint8_t nexthop[16];
    uint8_t vc_peer[16];
    uint8_t fec_prefix[16];
    uint8_t fec_prefixlen;
    uint8_t flags; /* DPM_LABEL_* */
    uint8_t opaque[96];
} __attribute__((packed));

/* Requests for the four. */
struct dpm_vpls_vsi_msg {
    uint8_t image[DPM_VPLS_VSI_MSG_BYTES];
};
struct dpm_vpls_acif_msg {
    uint8_t image[DPM_VPLS_ACIF_MSG_BYTES];
};
struct dpm_vpls_vc_fib_msg {
    uint8_t image[DPM_VPLS_VC_FIB_MSG_BYTES];
};
struct dpm_vpls_vc_ilm_msg {
    uint8_t image[DPM_VPLS_VC_ILM_MSG_BYTES];
};

/* Adds (DPM_OPER_ADD) or deletes a virtual bridge, a circuit of it, the way out or in of a pseudowire:
 * the first bytes of the image behind the entry's link (DPM_VPLS_*_MSG_BYTES).  They come in any
 * order; a circuit is programmed while its bridge is there and its interface has a port, a pseudowire
 * while bridge, way out, way in and the label path to its peer are.  A bridge that has circuits or
 * pseudowires is not deleted.  Any thread; the request is copied, the caller keeps it.  0 when it was
 * posted; -1 for a null pointer, another operation, or without memory or room on the queue. */
DPM_API int dpm_api_set_vpls_vsi_proc(const void *request, uint32_t oper);
DPM_API int dpm_api_set_vpls_acif_proc(const void *request, uint32_t oper);
DPM_API int dpm_api_set_vpls_vc_fib_proc(const void *request, uint32_t oper);
DPM_API int dpm_api_set_vpls_vc_ilm_proc(const void *request, uint32_t oper);

/* Walk the tables in order; null at the end.  Any thread that holds the DPM lock; the entries stay
 * the library's and are good while the lock is held. */
DPM_API const struct dpm_vpls_vsi *dpm_api_get_vpls_vsi_first(void);
DPM_API const struct dpm_vpls_vsi *dpm_api_get_vpls_vsi_next(const struct dpm_vpls_vsi *entry);
DPM_API const struct dpm_vpls_acif *dpm_api_get_vpls_acif_first(void);
DPM_API const struct dpm_vpls_acif *dpm_api_get_vpls_acif_next(const struct dpm_vpls_acif *entry);
DPM_API const struct dpm_vpls_vc_fib *dpm_api_get_vpls_vc_fib_first(void);
DPM_API const struct dpm_vpls_vc_fib *
dpm_api_get_vpls_vc_fib_next(const struct dpm_vpls_vc_fib *entry);
DPM_API const struct dpm_vpls_vc_ilm *dpm_api_get_vpls_vc_ilm_first(void);
DPM_API const struct dpm_vpls_vc_ilm *
dpm_api_get_vpls_vc_ilm_next(const struct dpm_vpls_vc_ilm *entry);
/* Print the tables on standard output.  Any thread; they take the DPM lock. */
DPM_API void dpm_vpls_vsi_table_show(void);
DPM_API void dpm_vpls_acif_table_show(void);
DPM_API void dpm_vpls_vc_fib_table_show(void);
DPM_API void dpm_vpls_vc_ilm_table_show(void);

#endif
