// When a virtual bridge, a circuit or a pseudowire of one is in the chip.
//
// A bridge is from its request on, unless the chip refuses it.  A circuit is while it has a bridge
// and a port; a pseudowire while all that it is made of is there, whatever came or went last: each
// event ends in vpls_settle of one entry.  Flags say where an entry is: 1 in the chip, 2 waiting.
// They are changed and mirrored here.
#include "dpm_vpls_service.h"

#include "dpm_l3vpn.h"

namespace {

using dpm::vpls_acif_kind;
using dpm::vpls_leaving;
using dpm::vpls_vc_fib_kind;
using dpm::vpls_vc_ilm_kind;

bool has_bridge(std::uint32_t vpls_id) {
    const dpm_vpls_vsi *vsi = dpm::vpls_vsi_of(vpls_id);
    return vsi != nullptr && dpm::is_in_chip(*vsi);
}

// What a pseudowire is made of; null: not there.
struct parts {
    const dpm_vpls_vc_ilm *ilm = nullptr;
    const dpm_ftn *path = nullptr;
    bool are_complete() const { return ilm != nullptr && path != nullptr; }
};

parts parts_of(const dpm_vpls_vc_fib &fib, const vpls_leaving &leaving) {
    if (!has_bridge(fib.vpls_id) || &fib == leaving.entry)
        return {};
    const dpm_vpls_vc_ilm *ilm = dpm::vpls_ilm_of(fib);
    return {.ilm = ilm != leaving.entry ? ilm : nullptr,
            .path = dpm::label_path_to(fib.vc_peer, leaving.nexthop, fib.path_nhid)};
}

bool is_over(const dpm_vpls_vc_fib &fib, const dpm_ftn &path) {
    return fib.path_nhid == path.nhid && fib.path_id == path.tunnel_id;
}

void ask_again();

void again_later() {
    dpm::ask_later(g_dpm_index.vpls_timer, ask_again);
}

int settle(dpm_vpls_acif &acif, const vpls_leaving &leaving, bool tells_anew) {
    const bool is_wanted = has_bridge(acif.vpls_id) && &acif != leaving.entry;
    const dpm::circuit_place at = is_wanted ? dpm::place_of(acif) : dpm::circuit_place{};
    const bool stays = at.port == acif.port && at.vlan == acif.port_vlan && !tells_anew;
    dpm_vpls_acif now = acif; // the indexes go by what changes
    now.sdk_result = 0;
    if (at.port != 0)
        now.is_gone = 0;
    if (dpm::is_in_chip(now) && !stays)
        now.sdk_result = dpm::vpls_withdraw(now);
    if (!dpm::is_in_chip(now) && at.port != 0)
        now.sdk_result = dpm::vpls_program(now, at);
    const int result = now.sdk_result;
    if (!dpm::is_in_chip(now)) { // wherever a mirrored record said that it was
        now.flags = DPM_LABEL_WAITING;
        now.port = now.port_vlan = 0;
        now.nhid = now.logic_port = 0;
        now.is_gone = 0;
    }
    if (dpm::is_another(acif, now)) {
        dpm::put<vpls_acif_kind>(acif, now);
        (void)dpm_vpls_acif_add_sync_send(&acif);
    }
    const bool lacks_port = is_wanted && at.port == 0 && acif.ifindex != DPM_IFINDEX_NONE;
    if (result != 0 || lacks_port)
        again_later();
    return result;
}

void ask_again() {
    for (dpm_vpls_vsi &vsi : dpm::vpls_vsis())
        (void)dpm::vpls_settle(vsi);
    dpm::each_on_port<vpls_acif_kind>(0, [](dpm_vpls_acif &acif) { (void)dpm::vpls_settle(acif); });
    for (dpm_vpls_acif &acif : dpm::vpls_acifs())
        if (acif.sdk_result != 0)
            (void)dpm::vpls_settle(acif);
    for (dpm_vpls_vc_fib &fib : dpm::vpls_vc_fibs())
        if (fib.sdk_result != 0)
            (void)dpm::vpls_settle(fib);
}

} // namespace

namespace dpm {

int vpls_settle(dpm_vpls_vsi &vsi) {
    if (is_in_chip(vsi))
        return 0;
    const dpm_vpls_vsi before = vsi;
    vsi.sdk_result = vpls_program(vsi);
    if (is_another(vsi, before))
        (void)dpm_vpls_vsi_add_sync_send(&vsi);
    if (!is_in_chip(vsi)) {
        again_later();
        return vsi.sdk_result;
    }
    each_circuit_of(vsi.vpls_id, [](dpm_vpls_acif &acif) { (void)vpls_settle(acif); });
    each_way_out_of(vsi.vpls_id, [](dpm_vpls_vc_fib &fib) { (void)vpls_settle(fib); });
    return 0;
}

int vpls_settle(dpm_vpls_acif &acif, const vpls_leaving &leaving) {
    return settle(acif, leaving, false);
}

int vpls_tell_anew(dpm_vpls_acif &acif) {
    return settle(acif, {}, true);
}

int vpls_settle(dpm_vpls_vc_fib &fib, const vpls_leaving &leaving) {
    const dpm_vpls_vc_fib before = fib;
    const parts now = parts_of(fib, leaving);
    fib.sdk_result = 0;
    if (is_in_chip(fib) && !(now.are_complete() && is_over(fib, *now.path)))
        fib.sdk_result = vpls_withdraw(fib);
    if (!is_in_chip(fib) && now.are_complete())
        fib.sdk_result = vpls_program(fib, *now.ilm, *now.path);
    const std::uint8_t flags = is_in_chip(fib) ? DPM_LABEL_PROGRAMMED : DPM_LABEL_WAITING;
    (void)mark<vpls_vc_fib_kind>(fib, flags);
    if (is_another(fib, before))
        (void)dpm_vpls_vc_fib_add_sync_send(&fib);
    dpm_vpls_vc_ilm *ilm = vpls_ilm_of(fib);
    if (ilm != nullptr && mark<vpls_vc_ilm_kind>(*ilm, flags))
        (void)dpm_vpls_vc_ilm_add_sync_send(ilm);
    if (fib.sdk_result != 0)
        again_later();
    return fib.sdk_result;
}

int vpls_settle(dpm_vpls_vc_ilm &ilm, const vpls_leaving &leaving) {
    dpm_vpls_vc_fib *fib = vpls_fib_of(ilm);
    return fib != nullptr ? vpls_settle(*fib, leaving) : 0;
}

} // namespace dpm

int dpm_vpls_acif_slave_to_master_process() {
    for (dpm_vpls_vsi &vsi : dpm::vpls_vsis())
        (void)dpm::vpls_settle(vsi);
    for (dpm_vpls_acif &acif : dpm::vpls_acifs())
        (void)dpm::vpls_settle(acif);
    for (dpm_vpls_vc_fib &fib : dpm::vpls_vc_fibs())
        (void)dpm::vpls_settle(fib);
    for (dpm_vpls_vc_ilm &ilm : dpm::vpls_vc_ilms())
        if (dpm::vpls_fib_of(ilm) == nullptr && dpm::mark<vpls_vc_ilm_kind>(ilm, DPM_LABEL_WAITING))
            (void)dpm_vpls_vc_ilm_add_sync_send(&ilm);
    return 0;
}
