// What a pseudowire is made of, and how the chip is told of it.
//
// The tables alone decide what belongs together: a way out, the way in of the same pseudowire and
// peer, a circuit on a port, and a label path to the peer that is in the chip.  A circuit has one
// primary pseudowire, the first in table order, and one standby: the first that names the primary, or
// without a primary the first.
#include "dpm_vpws_chip.h"

#include "dpm_driver.h"
#include "dpm_l3vpn.h"
#include "dpm_slot.h"
#include "dpm_trace.h"
#include "platform/dal.h"

#include <algorithm>

namespace {

using dpm::vpws_leaving;
using parts = dpm::vpws_parts;

// --- what belongs together -------------------------------------------------------------------

// Of several the first by name.
dpm_vpws_acif *acif_of(std::uint32_t circuit, const dpm_vpws_acif *leaving) {
    dpm_vpws_acif *first = nullptr;
    dpm::each_acif(circuit, [&](dpm_vpws_acif &acif) {
        if (first == nullptr && &acif != leaving)
            first = &acif;
    });
    return first;
}

dpm_vpws_acif *programmed_acif_of(std::uint32_t circuit) {
    dpm_vpws_acif *found = nullptr;
    dpm::each_acif(circuit, [&](dpm_vpws_acif &acif) {
        if (acif.flags == DPM_LABEL_PROGRAMMED)
            found = &acif;
    });
    return found;
}

template <class Entry> const Entry *but(const Entry *entry, const Entry *leaving) {
    return entry != leaving ? entry : nullptr;
}

// The pseudowires that have a circuit.
struct pair {
    const dpm_vpws_vc_fib *primary = nullptr, *standby = nullptr;
};

pair pair_of(std::uint32_t circuit, const dpm_vpws_vc_fib *leaving) {
    pair found;
    dpm::each_of_circuit(circuit, [&](const dpm_vpws_vc_fib &fib) {
        if (found.primary == nullptr && &fib != leaving && !dpm::is_standby(fib))
            found.primary = &fib;
    });
    dpm::each_of_circuit(circuit, [&](const dpm_vpws_vc_fib &fib) {
        const bool is_named =
            found.primary == nullptr || std::memcmp(fib.sibling_vc_peer, found.primary->vc_peer,
                                                    sizeof fib.sibling_vc_peer) == 0;
        if (found.standby == nullptr && &fib != leaving && dpm::is_standby(fib) &&
            fib.sibling_vc_id != 0 && is_named)
            found.standby = &fib;
    });
    return found;
}

bool is_protected(const dpm_vpws_vc_fib &fib, const parts &with) {
    return fib.sibling_vc_id != 0 || with.sibling != nullptr;
}

// --- the chip --------------------------------------------------------------------------------

std::uint32_t role_of(const dpm_vpws_vc_fib &fib) {
    return dpm::is_standby(fib) ? DAL_PW_STANDBY : DAL_PW_PRIMARY;
}

dal_vpws_ac ac_request(const parts &with) {
    return {.port = with.at.port,
            .vlan = with.at.vlan,
            .svlan = with.acif->svlan_id,
            .svlan_tpid = with.acif->svlan_tpid,
            .cvlan = with.acif->cvlan_id,
            .action_vlan = with.acif->action_vlan,
            .vlan_action = with.acif->vlan_action,
            .match_rule = with.acif->matchRule};
}

dal_vpws_pw pw_request(const dpm_vpws_vc_fib &fib, const parts &with, bool is_protected) {
    dal_vpws_pw request = {.vc_id = fib.vc_id,
                           .peer = {},
                           .in_label = with.ilm != nullptr ? +with.ilm->in_label : 0,
                           .out_label = fib.out_label,
                           .nhid = fib.path_nhid,
                           .tunnel_id = fib.path_id,
                           .control_word = fib.c_word,
                           .mode = fib.pw_mode,
                           .is_protected = is_protected};
    std::memcpy(request.peer, fib.vc_peer, sizeof request.peer);
    return request;
}

// Of 4,094 VLANs: the last two bits are none.
bool has_vlan_list(const dpm_vpws_acif &acif) {
    const std::uint8_t *last = acif.vlans + sizeof acif.vlans - 1;
    return (*last & 0x3F) != 0 ||
           std::any_of(acif.vlans, last, [](std::uint8_t byte) { return byte != 0; });
}

int chip_add(dpm_vpws_vc_fib &fib, const parts &with, bool is_protected, std::uint32_t slot_bits) {
    const dal_vpws_ac ac = ac_request(with);
    const dal_vpws_pw pw = pw_request(fib, with, is_protected);
    std::uint32_t ac_nhid = fib.ac_nhid, pw_nhid = fib.pw_nhid, aps_id = fib.aps_id;
    const int result =
        has_vlan_list(*with.acif)
            ? dpm_driver_vpws_entry_add_vlanlist(&ac, &pw, &ac_nhid, &pw_nhid, &aps_id,
                                                 role_of(fib), slot_bits, with.acif->vlans)
            : dpm_driver_vpws_entry_add(&ac, &pw, &ac_nhid, &pw_nhid, &aps_id, role_of(fib),
                                        slot_bits);
    if (result != 0)
        return result;
    fib.ac_nhid = ac_nhid;
    fib.pw_nhid = pw_nhid;
    fib.aps_id = aps_id;
    return 0;
}

int chip_del(const dpm_vpws_vc_fib &fib) {
    const dal_vpws_pw pw = pw_request(fib, {}, fib.aps_id != 0);
    const dpm_vpws_acif *acif = programmed_acif_of(dpm::circuit_of(fib));
    if (acif != nullptr && has_vlan_list(*acif))
        return dpm_driver_vpws_entry_del_vlanlist(&pw, role_of(fib), DPM_SLOT_ALL_BITS,
                                                  acif->vlans);
    return dpm_driver_vpws_entry_del(&pw, role_of(fib), DPM_SLOT_ALL_BITS);
}

void take_path(dpm_vpws_vc_fib &fib, const dpm_ftn &path) {
    fib.path_nhid = path.nhid;
    fib.path_id = path.tunnel_id;
}

void clear_ids(dpm_vpws_vc_fib &fib) {
    fib.ac_nhid = fib.pw_nhid = fib.aps_id = 0;
    fib.path_nhid = fib.path_id = 0;
}

} // namespace

namespace dpm {

dpm_vpws_vc_fib *vpws_fib_of(const dpm_vpws_vc_ilm &ilm) {
    dpm_vpws_vc_fib key = {};
    key.vc_id = ilm.vpn_id;
    std::memcpy(key.vc_peer, ilm.vc_peer, sizeof key.vc_peer);
    return vpws_vc_fibs().find(key);
}

dpm_vpws_vc_ilm *vpws_ilm_of(const dpm_vpws_vc_fib &fib) {
    dpm_vpws_vc_ilm key = {};
    key.vpn_id = fib.vc_id;
    std::memcpy(key.vc_peer, fib.vc_peer, sizeof key.vc_peer);
    return vpws_vc_ilms().find(key);
}

vpws_parts vpws_parts_of(const dpm_vpws_vc_fib &fib, const vpws_leaving &leaving) {
    const std::uint32_t circuit = circuit_of(fib);
    const pair pair = pair_of(circuit, leaving.fib);
    const bool leaves = leaving.fec != nullptr && std::memcmp(leaving.fec, fib.vc_peer, 4) == 0;
    vpws_parts found = {
        .acif = acif_of(circuit, leaving.acif),
        .ilm = but(vpws_ilm_of(fib), leaving.ilm),
        .path = label_path_to(fib.vc_peer, leaves ? leaving.nexthop : nullptr, fib.path_nhid),
        .sibling = is_standby(fib) ? pair.primary : pair.standby,
        .at = {},
        .has_circuit = &fib == (is_standby(fib) ? pair.standby : pair.primary)};
    if (found.acif != nullptr && found.acif != leaving.unplugged)
        found.at = place_of(*found.acif);
    return found;
}

bool vpws_is_another(const dpm_vpws_vc_fib &fib, const vpws_parts &now,
                     const vpws_leaving &leaving) {
    const bool comes_to_be_protected =
        fib.aps_id == 0 &&
        (fib.sibling_vc_id != 0 ||
         (now.sibling != nullptr && vpws_parts_of(*now.sibling, leaving).are_complete()));
    if (comes_to_be_protected)
        return true;
    const dpm_vpws_acif *before = programmed_acif_of(circuit_of(fib));
    const bool has_list = has_vlan_list(*now.acif) || (before != nullptr && has_vlan_list(*before));
    return has_list && now.have_moved();
}

// A pseudowire joins the group of the other one.  A new group uses its primary pseudowire: one that
// was switched is switched again.
int vpws_program(dpm_vpws_vc_fib &fib, const vpws_parts &with) {
    clear_ids(fib);
    take_path(fib, *with.path);
    if (with.sibling != nullptr && (is_in_chip(*with.sibling) || is_standby(fib)))
        fib.switched = with.sibling->switched;
    if (with.sibling != nullptr && is_in_chip(*with.sibling))
        fib.aps_id = with.sibling->aps_id;
    const bool makes_group = fib.aps_id == 0;
    if (const int result = chip_add(fib, with, is_protected(fib, with), DPM_SLOT_ALL_BITS)) {
        clear_ids(fib);
        return result;
    }
    const bool is_switched =
        fib.switched != 0 && fib.aps_id != 0 &&
        (!makes_group || dpm_driver_pw_group_switch(fib.aps_id, 1, DPM_SLOT_ALL_BITS) == 0);
    fib.switched = is_switched;
    return 0;
}

int vpws_program_anew(dpm_vpws_vc_fib &fib, const vpws_parts &with) {
    const std::uint32_t path_nhid = fib.path_nhid, path_id = fib.path_id;
    take_path(fib, *with.path);
    const dal_vpws_ac ac = ac_request(with);
    const dal_vpws_pw pw = pw_request(fib, with, fib.aps_id != 0);
    std::uint32_t pw_nhid = fib.pw_nhid, aps_id = fib.aps_id;
    const int result =
        dpm_driver_vpws_entry_update(&ac, &pw, &pw_nhid, &aps_id, role_of(fib), DPM_SLOT_ALL_BITS);
    if (result != 0) {
        fib.path_nhid = path_nhid;
        fib.path_id = path_id;
        return result;
    }
    fib.pw_nhid = pw_nhid;
    fib.aps_id = aps_id;
    return 0;
}

int vpws_withdraw(dpm_vpws_vc_fib &fib) {
    const int result = chip_del(fib);
    if (result == 0)
        clear_ids(fib);
    return result;
}

void vpws_reprogram(const dpm_vpws_vc_fib &entry, std::uint32_t slot_bits) {
    dpm_vpws_acif *acif = programmed_acif_of(circuit_of(entry));
    if (!is_in_chip(entry) || acif == nullptr)
        return;
    vpws_parts told = vpws_parts_of(entry, {});
    if (told.ilm == nullptr)
        return;
    told.acif = acif;
    told.at = {acif->port, acif->port_vlan};
    dpm_vpws_vc_fib fib = entry; // what one slot answers is not kept
    (void)chip_add(fib, told, fib.aps_id != 0, slot_bits);
    if (fib.switched != 0)
        (void)dpm_driver_pw_group_switch(fib.aps_id, fib.switched, slot_bits);
}

} // namespace dpm
