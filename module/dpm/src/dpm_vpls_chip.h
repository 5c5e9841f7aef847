// How the chip is told of virtual bridges, their circuits and pseudowires.  For the sources of these
// tables alone.
#pragma once

#include "dpm_vpls_record.h"

namespace dpm {

// What the chip tells bridges apart by.
constexpr bool is_vpls_id(std::uint32_t id) {
    return id != 0 && id <= DPM_VPLS_MAX_ID;
}

// What belongs to an entry: the bridge with a number, the other half of a pseudowire.  Null when
// there is none.
dpm_vpls_vsi *vpls_vsi_of(std::uint32_t vpls_id);
dpm_vpls_vc_fib *vpls_fib_of(const dpm_vpls_vc_ilm &ilm);
dpm_vpls_vc_ilm *vpls_ilm_of(const dpm_vpls_vc_fib &fib);

// Call `visit(entry)` for the circuits of a bridge, by name, and for its ways out, by peer.
template <class Visit> void each_circuit_of(std::uint32_t vpls_id, Visit visit) {
    vpls_acif_record key = {};
    key.entry.vpls_id = vpls_id;
    each_from(
        vpls_acif_kind::by_vsi(), key,
        [&](const dpm_vpls_acif &acif) { return acif.vpls_id == vpls_id; }, visit);
}

template <class Visit> void each_way_out_of(std::uint32_t vpls_id, Visit visit) {
    dpm_vpls_vc_fib key = {};
    key.vpls_id = vpls_id;
    each_from(
        vpls_vc_fibs(), key, [&](const dpm_vpls_vc_fib &fib) { return fib.vpls_id == vpls_id; },
        visit);
}

// Whether a bridge has circuits, ways out or ways in.
bool vpls_is_in_use(const dpm_vpls_vsi &vsi);

// Put an entry into the chip, or take it out.  The driver's answer; on 0 the record says where the
// entry is by then, but for the lists and indexes that go by it.
int vpls_program(dpm_vpls_vsi &vsi);
int vpls_program(dpm_vpls_acif &acif, circuit_place at);
int vpls_program(dpm_vpls_vc_fib &fib, const dpm_vpls_vc_ilm &ilm, const dpm_ftn &path);
int vpls_withdraw(dpm_vpls_vsi &vsi);
int vpls_withdraw(dpm_vpls_acif &acif);
int vpls_withdraw(dpm_vpls_vc_fib &fib);

// Program a slot with an entry that is in the chip.
void vpls_reprogram(const dpm_vpls_vsi &vsi, std::uint32_t slot_bits);
void vpls_reprogram(const dpm_vpls_acif &acif, std::uint32_t slot_bits);
void vpls_reprogram(const dpm_vpls_vc_fib &fib, std::uint32_t slot_bits);

} // namespace dpm
