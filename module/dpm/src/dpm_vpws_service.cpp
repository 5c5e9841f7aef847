// When a pseudowire is in the chip.
//
// It is while all that it is made of is there (dpm_vpws_chip.h), whatever came or went last: each
// event ends in vpws_settle.  Flags say where a pseudowire is: 1 in the chip, 2 waiting; of a circuit
// whether one of its pseudowires is in the chip, on the port that its record tells.  They are changed
// together and mirrored, here.
#include "dpm_vpws_service.h"

#include "dpm_retry.h"
#include "dpm_vpn_l2vpn.h"

namespace {

using dpm::circuit_place;
using dpm::vpws_acif_kind;
using dpm::vpws_leaving;
using dpm::vpws_vc_fib_kind;
using dpm::vpws_vc_ilm_kind;

// What the chip has answered is in the records, and goes to the standby card.
void keep(dpm_vpws_vc_fib &fib, const dpm_vpws_vc_fib &before, bool is_there) {
    const std::uint8_t flags = is_there ? DPM_LABEL_PROGRAMMED : DPM_LABEL_WAITING;
    (void)dpm::mark<vpws_vc_fib_kind>(fib, flags);
    if (dpm::is_another(fib, before))
        (void)dpm_vpws_vc_fib_add_sync_send(&fib);
    dpm_vpws_vc_ilm *ilm = dpm::vpws_ilm_of(fib);
    if (ilm != nullptr && dpm::mark<vpws_vc_ilm_kind>(*ilm, flags))
        (void)dpm_vpws_vc_ilm_add_sync_send(ilm);
}

void stand_on(dpm_vpws_acif &acif, circuit_place at) {
    const std::uint8_t flags = at.port != 0 ? DPM_LABEL_PROGRAMMED : DPM_LABEL_WAITING;
    if (acif.flags == flags && acif.port == at.port && acif.port_vlan == at.vlan &&
        acif.is_gone == 0)
        return;
    auto &record = dpm::record_of<vpws_acif_kind>(acif);
    vpws_acif_kind::unindex(record);
    acif.flags = flags;
    acif.port = at.port;
    acif.port_vlan = at.vlan;
    acif.is_gone = 0;
    vpws_acif_kind::index(record);
    (void)dpm_vpws_acif_add_sync_send(&acif);
}

// A circuit stands on the port on which the chip has one of its pseudowires.  One that the chip would
// not let go, or change, stands where it stood.
void mark_circuits(std::uint32_t circuit, const vpws_leaving &leaving) {
    const dpm_vpws_vc_fib *in_chip = nullptr;
    bool is_settled = true;
    dpm::each_of_circuit(circuit, [&](const dpm_vpws_vc_fib &fib) {
        if (!dpm::is_in_chip(fib))
            return;
        in_chip = &fib;
        is_settled = is_settled && fib.sdk_result == 0;
    });
    if (in_chip != nullptr && !is_settled)
        return;
    const dpm::vpws_parts now =
        in_chip != nullptr ? dpm::vpws_parts_of(*in_chip, leaving) : dpm::vpws_parts{};
    dpm::each_acif(circuit, [&](dpm_vpws_acif &acif) {
        const bool is_it = in_chip != nullptr && &acif == now.acif;
        stand_on(acif, is_it ? now.at : circuit_place{});
    });
}

void withdraw(dpm_vpws_vc_fib &fib) {
    const dpm_vpws_vc_fib before = fib;
    fib.sdk_result = dpm::vpws_withdraw(fib);
    keep(fib, before, fib.sdk_result != 0);
}

bool is_over(const dpm_vpws_vc_fib &fib, const dpm_ftn &path) {
    return fib.path_nhid == path.nhid && fib.path_id == path.tunnel_id;
}

// True when the pseudowire is in the chip behind it.  It does not stay over a path that may be gone.
bool tell_anew(dpm_vpws_vc_fib &fib, const dpm::vpws_parts &now) {
    fib.sdk_result = dpm::vpws_program_anew(fib, now);
    return fib.sdk_result == 0 || is_over(fib, *now.path) || dpm::vpws_withdraw(fib) != 0;
}

// One that stays in the chip, or comes there.  Its circuit travels before it, so that a new master
// knows the port of each that is in the chip.
void bring(dpm_vpws_vc_fib &fib, const dpm::vpws_parts &now, bool tells_anew) {
    const dpm_vpws_vc_fib before = fib;
    bool is_there = dpm::is_in_chip(fib);
    if (!is_there)
        is_there = (fib.sdk_result = dpm::vpws_program(fib, now)) == 0;
    else if (tells_anew || fib.sdk_result != 0 || !is_over(fib, *now.path))
        is_there = tell_anew(fib, now);
    if (dpm::is_standby(fib) && now.sibling != nullptr && now.sibling->aps_id == fib.aps_id)
        fib.switched = now.sibling->switched; // the primary one tells, when a switch was cut short
    if (is_there && fib.sdk_result == 0)
        stand_on(*now.acif, now.at);
    keep(fib, before, is_there);
}

void rest(dpm_vpws_vc_fib &fib) {
    const dpm_vpws_vc_fib before = fib;
    fib.sdk_result = 0;
    keep(fib, before, false);
}

void ask_again() {
    dpm::each_on_port<vpws_acif_kind>(
        0, [](const dpm_vpws_acif &acif) { dpm::vpws_settle(acif.vc_id); });
    for (const dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs())
        if (fib.sdk_result != 0)
            dpm::vpws_settle(dpm::circuit_of(fib));
}

bool may_stay(const dpm_vpws_vc_fib &fib, const dpm::vpws_parts &now, const vpws_leaving &leaving) {
    return now.are_complete() && !dpm::vpws_is_another(fib, now, leaving);
}

// What leaves the circuit makes room first.
void settle(std::uint32_t circuit, const vpws_leaving &leaving, bool tells_anew) {
    dpm::each_of_circuit(circuit, [&](dpm_vpws_vc_fib &fib) {
        const dpm::vpws_parts now = dpm::vpws_parts_of(fib, leaving);
        if (dpm::is_in_chip(fib) && !may_stay(fib, now, leaving))
            withdraw(fib);
        else if (dpm::is_in_chip(fib))
            tells_anew = tells_anew || now.have_moved();
    });
    dpm::each_of_circuit(circuit, [&](dpm_vpws_vc_fib &fib) {
        const dpm::vpws_parts now = dpm::vpws_parts_of(fib, leaving);
        if (dpm::is_in_chip(fib) && !may_stay(fib, now, leaving))
            return; // the chip would not let it go
        now.are_complete() ? bring(fib, now, tells_anew) : rest(fib);
    });
    mark_circuits(circuit, leaving);
    dpm::each_of_circuit(circuit, [&](const dpm_vpws_vc_fib &fib) {
        if (fib.sdk_result != 0 || dpm::vpws_parts_of(fib, leaving).lack_port())
            dpm::ask_later(g_dpm_index.vpws_timer, ask_again);
    });
}

} // namespace

namespace dpm {

void vpws_settle(std::uint32_t circuit, const vpws_leaving &leaving) {
    settle(circuit, leaving, false);
}

void vpws_update(std::uint32_t circuit) {
    settle(circuit, {}, true);
}

void vpws_ask() {
    for (const dpm_vpws_vc_fib &fib : vpws_vc_fibs())
        vpws_settle(circuit_of(fib));
    for (const dpm_vpws_acif &acif : vpws_acifs()) // of those without pseudowires the flags
        vpws_settle(acif.vc_id);
    for (dpm_vpws_vc_ilm &ilm : vpws_vc_ilms())
        if (vpws_fib_of(ilm) == nullptr && mark<vpws_vc_ilm_kind>(ilm, DPM_LABEL_WAITING))
            (void)dpm_vpws_vc_ilm_add_sync_send(&ilm);
}

} // namespace dpm
