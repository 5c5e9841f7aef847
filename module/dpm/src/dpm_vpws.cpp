// The tables of point-to-point pseudowires: attachment circuits, ways out, ways in.
//
// An entry is in the chip (1) or waits (2), ways out and in on their pend lists.  Entries are made
// by the adds below, or from a mirrored image on the standby card, and freed by the deletes, which
// take them off the pend list first.  When they are programmed is told in dpm_vpws_service.cpp.
#include "dpm_vpws_record.h"

#include "dpm_l3vpn.h"
#include "dpm_trace.h"

namespace {

using dpm::vpws_acif_kind;
using dpm::vpws_vc_fib_kind;
using dpm::vpws_vc_ilm_kind;

} // namespace

namespace dpm {

vpws_acif_table vpws_acifs() {
    return vpws_acif_table(g_dpm_vpn.vpws_acif_tree);
}
vpws_vc_fib_table vpws_vc_fibs() {
    return vpws_vc_fib_table(g_dpm_vpn.vpws_vc_fib_tree);
}
vpws_vc_ilm_table vpws_vc_ilms() {
    return vpws_vc_ilm_table(g_dpm_vpn.vpws_vc_ilm_tree);
}
pend_list<dpm_vpws_vc_fib> pend_vpws_vc_fibs() {
    return pend_list<dpm_vpws_vc_fib>(g_dpm_vpn.pend_vpws_vc_fib_list);
}
pend_list<dpm_vpws_vc_ilm> pend_vpws_vc_ilms() {
    return pend_list<dpm_vpws_vc_ilm>(g_dpm_vpn.pend_vpws_vc_ilm_list);
}

} // namespace dpm

// deliberate: of null arguments the first decides
int dpm_vpws_acif_compile(const dpm_vpws_acif *a, const dpm_vpws_acif *b) {
    if (a == nullptr)
        return -1;
    if (b == nullptr)
        return 1;
    return dpm::circuit_order(*a, *b);
}

int dpm_vpws_vc_fib_compile(const dpm_vpws_vc_fib *a, const dpm_vpws_vc_fib *b) {
    if (a != nullptr && b != nullptr)
        return dpm::pseudowire_order(a->vc_id, b->vc_id, *a, *b);
    DPM_PLAIN("dpm_vpws_vc_fib_compile::the input parameter is null!\r\n");
    return -1;
}

int dpm_vpws_vc_ilm_compile(const dpm_vpws_vc_ilm *a, const dpm_vpws_vc_ilm *b) {
    if (a != nullptr && b != nullptr)
        return dpm::pseudowire_order(a->vpn_id, b->vpn_id, *a, *b);
    DPM_PLAIN("dpm_vpws_vc_ilm_compile::the input parameter is null!\r\n");
    return -1;
}

dpm_vpws_acif *dpm_vpws_acif_lookup(dpm_vpws_acif key) {
    return dpm::vpws_acifs().find(key);
}
dpm_vpws_vc_fib *dpm_vpws_vc_fib_lookup(dpm_vpws_vc_fib key) {
    return dpm::vpws_vc_fibs().find(key);
}
dpm_vpws_vc_ilm *dpm_vpws_vc_ilm_lookup(dpm_vpws_vc_ilm key) {
    return dpm::vpws_vc_ilms().find(key);
}

dpm_vpws_acif *dpm_vpws_acif_add(dpm_vpws_acif record) {
    return dpm::vpn_add<vpws_acif_kind>(record);
}
dpm_vpws_vc_fib *dpm_vpws_vc_fib_add(dpm_vpws_vc_fib record) {
    return dpm::vpn_add<vpws_vc_fib_kind>(record);
}
dpm_vpws_vc_ilm *dpm_vpws_vc_ilm_add(dpm_vpws_vc_ilm record) {
    return dpm::vpn_add<vpws_vc_ilm_kind>(record);
}

int dpm_vpws_acif_del(dpm_vpws_acif *entry) {
    return dpm::vpn_del<vpws_acif_kind>(entry);
}
int dpm_vpws_vc_fib_del(dpm_vpws_vc_fib *entry) {
    return dpm::vpn_del<vpws_vc_fib_kind>(entry);
}
int dpm_vpws_vc_ilm_del(dpm_vpws_vc_ilm *entry) {
    return dpm::vpn_del<vpws_vc_ilm_kind>(entry);
}

int dpm_mpls_pend_vpws_vc_fib_add(dpm_vpws_vc_fib *entry) {
    return dpm::vpn_pend_add<vpws_vc_fib_kind>(entry);
}
int dpm_mpls_pend_vpws_vc_ilm_add(dpm_vpws_vc_ilm *entry) {
    return dpm::vpn_pend_add<vpws_vc_ilm_kind>(entry);
}
int dpm_mpls_pend_vpws_vc_fib_del(dpm_vpws_vc_fib *entry) {
    return dpm::vpn_pend_del<vpws_vc_fib_kind>(entry);
}
int dpm_mpls_pend_vpws_vc_ilm_del(dpm_vpws_vc_ilm *entry) {
    return dpm::vpn_pend_del<vpws_vc_ilm_kind>(entry);
}
dpm_vpws_vc_fib *dpm_mpls_pend_vpws_vc_fib_lookup(dpm_vpws_vc_fib key) {
    return dpm::vpn_find_pending(dpm::pend_vpws_vc_fibs(), key, dpm_vpws_vc_fib_compile);
}
dpm_vpws_vc_ilm *dpm_mpls_pend_vpws_vc_ilm_lookup(dpm_vpws_vc_ilm key) {
    return dpm::vpn_find_pending(dpm::pend_vpws_vc_ilms(), key, dpm_vpws_vc_ilm_compile);
}

int dpm_vpws_vc_fib_same_or_update_compile(const dpm_vpws_vc_fib *entry,
                                           const dpm_vpws_vc_fib *image) {
    if (entry == nullptr || image == nullptr)
        return -1;
    const bool is_same =
        entry->pw_index == image->pw_index && entry->out_label == image->out_label &&
        entry->in_label == image->in_label && entry->tunnel_label == image->tunnel_label &&
        dpm_fec_addr_cmp(entry->address, image->address) == 0 &&
        std::memcmp(entry->out_ifname, image->out_ifname, sizeof entry->out_ifname) == 0;
    return is_same ? 0 : 1;
}

std::uint32_t dpm_vpws_get_pwid_by_vcid(std::uint32_t vc_id) {
    dpm_vpws_vc_fib key = {};
    key.vc_id = vc_id;
    const dpm_vpws_vc_fib *first = dpm::vpws_vc_fibs().find_from(key);
    return first != nullptr && first->vc_id == vc_id ? first->pw_index : 0;
}

dpm_vpws_acif *dpm_vpws_acif_add_for_slave(dpm_vpws_acif image) {
    image.ifindex = dpm::circuit_index(image.ifname, dpm::index_of(image.ifname));
    return dpm::vpn_add_mirrored<vpws_acif_kind>(image);
}

dpm_vpws_vc_fib *dpm_vpws_vc_fib_add_for_slave(dpm_vpws_vc_fib image) {
    image.ac_ifindex = dpm::index_of(image.in_ifname);
    image.nw_ifindex = dpm::index_of(image.out_ifname);
    return dpm::vpn_add_mirrored<vpws_vc_fib_kind>(image);
}

dpm_vpws_vc_ilm *dpm_vpws_vc_ilm_add_for_slave(dpm_vpws_vc_ilm image) {
    image.in_ifindex = dpm::index_of(image.in_ifname);
    image.out_ifindex = dpm::index_of(image.out_ifname);
    return dpm::vpn_add_mirrored<vpws_vc_ilm_kind>(image);
}
