// How the chip is told of virtual bridges, their circuits and pseudowires.
//
// A delete names what the add did: of a circuit port and VLAN too, which the record keeps while the
// chip has it.
#include "dpm_vpls_chip.h"

#include "dpm_l3vpn.h"
#include "dpm_slot.h"
#include "platform/dal.h"

namespace {

dal_vpls_ac ac_request(const dpm_vpls_acif &acif) {
    return {.vpls_id = acif.vpls_id,
            .port = acif.port,
            .vlan = acif.port_vlan,
            .svlan = acif.svlan_id,
            .svlan_tpid = acif.svlan_tpid,
            .cvlan = acif.cvlan_id,
            .zero = 0,
            .vlan_action = acif.vlan_action};
}

dal_vpls_pw pw_request(const dpm_vpls_vc_fib &fib, std::uint32_t in_label) {
    dal_vpls_pw request = {.vpls_id = fib.vpls_id,
                           .peer = {},
                           .in_label = in_label,
                           .out_label = fib.out_label,
                           .nhid = fib.path_nhid,
                           .tunnel_id = fib.path_id,
                           .control_word = fib.c_word,
                           .mode = fib.pw_mode,
                           .is_spoke = fib.is_spoke};
    std::memcpy(request.peer, fib.vc_peer, sizeof request.peer);
    return request;
}

int chip_add(dpm_vpls_acif &acif, std::uint32_t slot_bits) {
    const dal_vpls_ac request = ac_request(acif);
    std::uint32_t nhid = acif.nhid, logic_port = acif.logic_port;
    const int result = dpm_driver_mpls_ac_entry_add(&request, &nhid, &logic_port, slot_bits);
    acif.nhid = nhid;
    acif.logic_port = logic_port;
    return result;
}

int chip_add(dpm_vpls_vc_fib &fib, std::uint32_t in_label, std::uint32_t slot_bits) {
    const dal_vpls_pw request = pw_request(fib, in_label);
    std::uint32_t nhid = fib.nhid, logic_port = fib.logic_port;
    const int result = dpm_driver_mpls_pw_entry_add(&request, &nhid, &logic_port, slot_bits);
    fib.nhid = nhid;
    fib.logic_port = logic_port;
    return result;
}

void is_out(dpm_vpls_acif &acif) {
    acif.flags = DPM_LABEL_WAITING;
    acif.nhid = acif.logic_port = 0;
    acif.port = acif.port_vlan = 0;
    acif.is_gone = 0;
}

void is_out(dpm_vpls_vc_fib &fib) {
    fib.flags = DPM_LABEL_WAITING;
    fib.nhid = fib.logic_port = 0;
    fib.path_nhid = fib.path_id = 0;
}

} // namespace

namespace dpm {

dpm_vpls_vsi *vpls_vsi_of(std::uint32_t vpls_id) {
    dpm_vpls_vsi key = {};
    key.vpls_id = vpls_id;
    return vpls_vsis().find(key);
}

dpm_vpls_vc_fib *vpls_fib_of(const dpm_vpls_vc_ilm &ilm) {
    dpm_vpls_vc_fib key = {};
    key.vpls_id = ilm.vpls_id;
    std::memcpy(key.vc_peer, ilm.vc_peer, sizeof key.vc_peer);
    return vpls_vc_fibs().find(key);
}

dpm_vpls_vc_ilm *vpls_ilm_of(const dpm_vpls_vc_fib &fib) {
    dpm_vpls_vc_ilm key = {};
    key.vpls_id = fib.vpls_id;
    std::memcpy(key.vc_peer, fib.vc_peer, sizeof key.vc_peer);
    return vpls_vc_ilms().find(key);
}

bool vpls_is_in_use(const dpm_vpls_vsi &vsi) {
    bool is_used = false;
    each_circuit_of(vsi.vpls_id, [&](const dpm_vpls_acif &) { is_used = true; });
    each_way_out_of(vsi.vpls_id, [&](const dpm_vpls_vc_fib &) { is_used = true; });
    dpm_vpls_vc_ilm key = {};
    key.vpls_id = vsi.vpls_id;
    const dpm_vpls_vc_ilm *first = vpls_vc_ilms().find_from(key);
    return is_used || (first != nullptr && first->vpls_id == vsi.vpls_id);
}

int vpls_program(dpm_vpls_vsi &vsi) {
    const int result = dpm_driver_vpls_add(vsi.vpls_id, vsi.fid, DPM_SLOT_ALL_BITS);
    vsi.flags = result == 0 ? DPM_LABEL_PROGRAMMED : DPM_LABEL_WAITING;
    return result;
}

int vpls_program(dpm_vpls_acif &acif, circuit_place at) {
    is_out(acif);
    acif.port = at.port;
    acif.port_vlan = at.vlan;
    const int result = chip_add(acif, DPM_SLOT_ALL_BITS);
    if (result == 0)
        acif.flags = DPM_LABEL_PROGRAMMED;
    else
        is_out(acif);
    return result;
}

int vpls_program(dpm_vpls_vc_fib &fib, const dpm_vpls_vc_ilm &ilm, const dpm_ftn &path) {
    is_out(fib);
    fib.path_nhid = path.nhid;
    fib.path_id = path.tunnel_id;
    const int result = chip_add(fib, ilm.in_label, DPM_SLOT_ALL_BITS);
    if (result == 0)
        fib.flags = DPM_LABEL_PROGRAMMED;
    else
        is_out(fib);
    return result;
}

int vpls_withdraw(dpm_vpls_vsi &vsi) {
    const int result = dpm_driver_vpls_del(vsi.vpls_id, DPM_SLOT_ALL_BITS);
    if (result == 0)
        vsi.flags = DPM_LABEL_WAITING;
    return result;
}

int vpls_withdraw(dpm_vpls_acif &acif) {
    const dal_vpls_ac request = ac_request(acif);
    const int result = dpm_driver_mpls_ac_entry_del(&request, DPM_SLOT_ALL_BITS);
    if (result == 0)
        is_out(acif);
    return result;
}

int vpls_withdraw(dpm_vpls_vc_fib &fib) {
    const dpm_vpls_vc_ilm *ilm = vpls_ilm_of(fib);
    const dal_vpls_pw request = pw_request(fib, ilm != nullptr ? +ilm->in_label : 0);
    const int result = dpm_driver_mpls_pw_entry_del(&request, DPM_SLOT_ALL_BITS);
    if (result == 0)
        is_out(fib);
    return result;
}

void vpls_reprogram(const dpm_vpls_vsi &vsi, std::uint32_t slot_bits) {
    if (is_in_chip(vsi))
        (void)dpm_driver_vpls_add(vsi.vpls_id, vsi.fid, slot_bits);
}

void vpls_reprogram(const dpm_vpls_acif &acif, std::uint32_t slot_bits) {
    dpm_vpls_acif told = acif;
    if (is_in_chip(acif))
        (void)chip_add(told, slot_bits);
}

void vpls_reprogram(const dpm_vpls_vc_fib &fib, std::uint32_t slot_bits) {
    const dpm_vpls_vc_ilm *ilm = vpls_ilm_of(fib);
    dpm_vpls_vc_fib told = fib;
    if (is_in_chip(fib) && ilm != nullptr)
        (void)chip_add(told, ilm->in_label, slot_bits);
}

} // namespace dpm
