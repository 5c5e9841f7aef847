// When a pseudowire is in the chip.
//
// It is while all that it is made of is there (dpm_vpws_chip.h), whatever came or went last: each
// event ends in vpws_settle.  Flags say where a pseudowire is: 1 in the chip, 2 waiting; of a circuit
// whether one of its pseudowires is in the chip, on the port that its record tells.  They are changed
// together and mirrored, here.
#include "dpm_vpws_service.h"

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
    if (acif.flags == flags && acif.port == at.port && acif.port_vlan == at.vlan)
        return;
    auto &record = dpm::record_of<vpws_acif_kind>(acif);
    vpws_acif_kind::unindex(record);
    acif.flags = flags;
    acif.port = at.port;
    acif.port_vlan = at.vlan;
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

int withdraw(dpm_vpws_vc_fib &fib) {
    const dpm_vpws_vc_fib before = fib;
    fib.sdk_result = dpm::vpws_withdraw(fib);
    keep(fib, before, fib.sdk_result != 0);
    return fib.sdk_result;
}

// One that stays in the chip, or comes there.
int bring(dpm_vpws_vc_fib &fib, const dpm::vpws_parts &now, bool tells_anew) {
    const dpm_vpws_vc_fib before = fib;
    const bool is_changed = tells_anew || fib.sdk_result != 0 || now.have_moved() ||
                            now.path->nhid != fib.path_nhid || now.path->tunnel_id != fib.path_id;
    if (!dpm::is_in_chip(fib))
        fib.sdk_result = dpm::vpws_program(fib, now);
    else if (is_changed)
        fib.sdk_result = dpm::vpws_program_anew(fib, now);
    if (dpm::is_standby(fib) && now.sibling != nullptr && now.sibling->aps_id == fib.aps_id)
        fib.switched = now.sibling->switched; // the primary one tells, when a switch was cut short
    keep(fib, before, dpm::is_in_chip(before) || fib.sdk_result == 0);
    return fib.sdk_result;
}

void rest(dpm_vpws_vc_fib &fib) {
    const dpm_vpws_vc_fib before = fib;
    fib.sdk_result = 0;
    keep(fib, before, false);
}

// What leaves the circuit makes room first.
int settle(std::uint32_t circuit, const vpws_leaving &leaving, bool tells_anew) {
    int refusal = 0;
    dpm::each_of_circuit(circuit, [&](dpm_vpws_vc_fib &fib) {
        const dpm::vpws_parts now = dpm::vpws_parts_of(fib, leaving);
        int result = 0;
        if (dpm::is_in_chip(fib) && (!now.are_complete() || dpm::vpws_is_another(fib, now)))
            result = withdraw(fib);
        refusal = refusal != 0 ? refusal : result;
    });
    dpm::each_of_circuit(circuit, [&](dpm_vpws_vc_fib &fib) {
        const dpm::vpws_parts now = dpm::vpws_parts_of(fib, leaving);
        const int result = now.are_complete()     ? bring(fib, now, tells_anew)
                           : dpm::is_in_chip(fib) ? 0 // the chip would not let it go
                                                  : (rest(fib), 0);
        refusal = refusal != 0 ? refusal : result;
    });
    mark_circuits(circuit, leaving);
    return refusal;
}

} // namespace

namespace dpm {

int vpws_settle(std::uint32_t circuit, const vpws_leaving &leaving) {
    return settle(circuit, leaving, false);
}

int vpws_update(std::uint32_t circuit) {
    return settle(circuit, {}, true);
}

void vpws_ask() {
    for (const dpm_vpws_vc_fib &fib : vpws_vc_fibs())
        (void)vpws_settle(circuit_of(fib));
    for (const dpm_vpws_acif &acif : vpws_acifs()) // of those without pseudowires the flags
        (void)vpws_settle(acif.vc_id);
}

} // namespace dpm
