// Multipoint pseudowires (VPLS): virtual bridges, their attachment circuits, the ways out (vc_fib)
// and in (vc_ilm) of their pseudowires.  On the worker, under the DPM lock.
//
// The records are packed as the routing suite lays them out: their members are copied, never
// referred to.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_if.h"
#include "dpm_msg.h" // the owners of the messages
#include "dpm_pend.h"
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_vpls_vsi) == 29);
static_assert(offsetof(dpm_vpls_vsi, flags) == 16 + DPM_VPLS_VSI_MSG_BYTES);
static_assert(sizeof(dpm_vpls_acif) == 121);
static_assert(offsetof(dpm_vpls_acif, ifname) == 16 + 8);
static_assert(offsetof(dpm_vpls_acif, flags) == 16 + 84);
static_assert(offsetof(dpm_vpls_acif, sdk_result) == 16 + DPM_VPLS_ACIF_MSG_BYTES);
static_assert(sizeof(dpm_vpls_vc_fib) == 294);
static_assert(offsetof(dpm_vpls_vc_fib, vc_peer) == 24 + 32);
static_assert(offsetof(dpm_vpls_vc_fib, flags) == 24 + 144);
static_assert(offsetof(dpm_vpls_vc_fib, sdk_result) == 24 + DPM_VPLS_VC_FIB_MSG_BYTES);
static_assert(sizeof(dpm_vpls_vc_ilm) == 24 + DPM_VPLS_VC_ILM_MSG_BYTES);
static_assert(offsetof(dpm_vpls_vc_ilm, vc_peer) == 24 + 96);
static_assert(offsetof(dpm_vpls_vc_ilm, flags) == 24 + 129);

// Requests for virtual bridges, whose blocks these owners free; 0 or -1, or the driver's refusal.
int dpm_mpls_vpls_vsi_add(void *request);
int dpm_mpls_vpls_vsi_del(void *request);

// On a card that becomes master: bridges, circuits and pseudowires come to where the tables want
// them; 0.
int dpm_vpls_acif_slave_to_master_process();

namespace dpm {

// Bridges by their number, circuits by interface, ways out and in by bridge and peer.
int vpls_vsi_order(const dpm_vpls_vsi &a, const dpm_vpls_vsi &b);
int vpls_acif_order(const dpm_vpls_acif &a, const dpm_vpls_acif &b);
int vpls_vc_fib_order(const dpm_vpls_vc_fib &a, const dpm_vpls_vc_fib &b);
int vpls_vc_ilm_order(const dpm_vpls_vc_ilm &a, const dpm_vpls_vc_ilm &b);

using vpls_vsi_table = avl_table<dpm_vpls_vsi, vpls_vsi_order>;
using vpls_acif_table = avl_table<dpm_vpls_acif, vpls_acif_order>;
using vpls_vc_fib_table = avl_table<dpm_vpls_vc_fib, vpls_vc_fib_order>;
using vpls_vc_ilm_table = avl_table<dpm_vpls_vc_ilm, vpls_vc_ilm_order>;

vpls_vsi_table vpls_vsis();
vpls_acif_table vpls_acifs();
vpls_vc_fib_table vpls_vc_fibs();
vpls_vc_ilm_table vpls_vc_ilms();
pend_list<dpm_vpls_vc_fib> pend_vpls_vc_fibs(); // those that wait to be programmed
pend_list<dpm_vpls_vc_ilm> pend_vpls_vc_ilms();

// What virtual bridges do when interfaces change.
extern const if_follower vpls_on_interfaces;

} // namespace dpm
