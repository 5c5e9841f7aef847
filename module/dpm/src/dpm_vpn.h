// The VPN context: the label, MPLS-interface and pseudowire tables, with the lists of entries that
// wait to be programmed.  Changed by the worker alone, under the DPM lock.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_state.h"

struct dpm_vpn {
    std::uint32_t reserved[4];
    dpm_avl_tree ftn_tree;
    list_head pend_ftn_list; // dpm_ftn whose flags are DPM_LABEL_WAITING, newest first
    dpm_avl_tree ilm_tree;
    list_head pend_ilm_list; // dpm_ilm whose flags are DPM_LABEL_WAITING, newest first
    dpm_avl_tree mpls_if_tree;
    dpm_avl_tree vpws_acif_tree;
    dpm_avl_tree vpls_vsi_tree;
    dpm_avl_tree vpls_acif_tree;
    dpm_avl_tree vpws_vc_fib_tree;
    list_head pend_vpws_vc_fib_list;
    dpm_avl_tree vpws_vc_ilm_tree;
    list_head pend_vpws_vc_ilm_list;
    dpm_avl_tree vpls_vc_fib_tree;
    list_head pend_vpls_vc_fib_list;
    dpm_avl_tree vpls_vc_ilm_tree;
    list_head pend_vpls_vc_ilm_list;
};
static_assert(sizeof(dpm_vpn) == 264);
static_assert(offsetof(dpm_vpn, ftn_tree) == 16);
static_assert(offsetof(dpm_vpn, ilm_tree) == 44);
static_assert(offsetof(dpm_vpn, mpls_if_tree) == 72);

extern DPM_STATE dpm_vpn g_dpm_vpn;

// An IPv4 address of four bytes as a word, and back, unchanged.  0 for null; 0 or -1 for null.
std::uint32_t dpm_mpls_ip_str2int(const std::uint8_t *address);
int dpm_mpls_ip_int2str(std::uint32_t word, std::uint8_t *address);

// The mask of a prefix length in network order.  0, or -1 for a length above 32 or null.
int dpm_masklen2ip(std::uint32_t length, std::uint32_t *mask);

// Empties the context; at start-up, before the tables are made.
void dpm_vpn_main_init();
