// When a pseudowire is in the chip, and with what.
//
// The tables alone decide: a way out, the way in of the same pseudowire and peer, a circuit on a
// port, and a label path to the peer that is in the chip.  Whatever happens to one of these ends in
// vpws_settle.  Flags say where the pseudowire is: 1 in the chip, 2 waiting; of a circuit whether one
// of its pseudowires is in the chip.  They are changed together and mirrored, here.
#include "dpm_vpws_service.h"

#include "dpm_driver.h"
#include "dpm_l3vpn.h"
#include "dpm_slot.h"
#include "dpm_trace.h"
#include "platform/dal.h"

#include <algorithm>

namespace {

using dpm::vpws_acif_kind;
using dpm::vpws_leaving;

// What a pseudowire is made of; null: not there.
struct parts {
    dpm_vpws_acif *acif;
    dpm_vpws_vc_ilm *ilm;
    const dpm_ftn *path;
    std::uint32_t port = 0; // of the circuit; 0: none
    int vlan = 0;           // of the circuit's interface

    bool are_complete() const {
        return acif != nullptr && ilm != nullptr && path != nullptr && port != 0;
    }
};

// Of circuits with one pseudowire the first in table order.
dpm_vpws_acif *acif_of(const dpm_vpws_vc_fib &fib) {
    vpws_acif_record key = {};
    key.entry.vc_id = dpm::circuit_of(fib);
    vpws_acif_record *record = vpws_acif_kind::by_vc().find_from(key);
    return record != nullptr && record->entry.vc_id == key.entry.vc_id ? &record->entry : nullptr;
}

dpm_vpws_vc_ilm *ilm_of(const dpm_vpws_vc_fib &fib) {
    dpm_vpws_vc_ilm key = {};
    key.vpn_id = fib.vc_id;
    std::memcpy(key.vc_peer, fib.vc_peer, sizeof key.vc_peer);
    return dpm::vpws_vc_ilms().find(key);
}

template <class Entry> Entry *but(Entry *entry, const Entry *leaving) {
    return entry != leaving ? entry : nullptr;
}

parts parts_of(const dpm_vpws_vc_fib &fib, const vpws_leaving &leaving) {
    parts found = {but(acif_of(fib), leaving.acif), but(ilm_of(fib), leaving.ilm),
                   dpm::label_path_to(fib.vc_peer, leaving.neighbour)};
    if (found.acif == nullptr ||
        dpm_driver_ifindex_to_logical(found.acif->ifindex, &found.port, &found.vlan) != 0)
        found.port = 0;
    return found;
}

bool is_protected(const dpm_vpws_vc_fib &fib) {
    return fib.sibling_vc_id != 0;
}

std::uint32_t role_of(const dpm_vpws_vc_fib &fib) {
    return fib.vc_role == DPM_VC_STANDBY ? DAL_PW_STANDBY : DAL_PW_PRIMARY;
}

dal_vpws_ac ac_request(const parts &with) {
    return {.port = with.port,
            .vlan = static_cast<std::uint32_t>(with.vlan),
            .svlan = with.acif->svlan_id,
            .svlan_tpid = with.acif->svlan_tpid,
            .cvlan = with.acif->cvlan_id,
            .action_vlan = with.acif->action_vlan,
            .vlan_action = with.acif->vlan_action,
            .match_rule = with.acif->matchRule};
}

dal_vpws_pw pw_request(const dpm_vpws_vc_fib &fib, std::uint32_t in_label) {
    dal_vpws_pw request = {.vc_id = fib.vc_id,
                           .peer = {},
                           .in_label = in_label,
                           .out_label = fib.out_label,
                           .nhid = fib.path_nhid,
                           .tunnel_id = fib.path_id,
                           .control_word = fib.c_word,
                           .mode = fib.pw_mode,
                           .is_protected = is_protected(fib)};
    std::memcpy(request.peer, fib.vc_peer, sizeof request.peer);
    return request;
}

bool has_vlan_list(const dpm_vpws_acif &acif) {
    return std::any_of(acif.vlans, acif.vlans + sizeof acif.vlans,
                       [](std::uint8_t byte) { return byte != 0; });
}

int chip_add(dpm_vpws_vc_fib &fib, const parts &with, std::uint32_t slot_bits) {
    const dal_vpws_ac ac = ac_request(with);
    const dal_vpws_pw pw = pw_request(fib, with.ilm->in_label);
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

int chip_del(const dpm_vpws_vc_fib &fib, const dpm_vpws_acif *acif) {
    const dal_vpws_pw pw = pw_request(fib, fib.in_label);
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

// A new group uses its primary pseudowire; one that was switched is switched again.
int program(dpm_vpws_vc_fib &fib, const parts &with) {
    const dpm_vpws_vc_fib *sibling = dpm::vpws_sibling_of(fib);
    clear_ids(fib);
    take_path(fib, *with.path);
    if (is_protected(fib) && sibling != nullptr && sibling->flags == DPM_LABEL_PROGRAMMED)
        fib.aps_id = sibling->aps_id;
    const bool makes_group = is_protected(fib) && fib.aps_id == 0;
    if (const int result = chip_add(fib, with, DPM_SLOT_ALL_BITS)) {
        clear_ids(fib);
        return result;
    }
    if (makes_group && fib.switched != 0)
        (void)dpm_driver_pw_group_switch(fib.aps_id, fib.switched, DPM_SLOT_ALL_BITS);
    return 0;
}

int update(dpm_vpws_vc_fib &fib, const parts &with) {
    const std::uint32_t path_nhid = fib.path_nhid, path_id = fib.path_id;
    take_path(fib, *with.path);
    const dal_vpws_ac ac = ac_request(with);
    const dal_vpws_pw pw = pw_request(fib, with.ilm->in_label);
    std::uint32_t pw_nhid = fib.pw_nhid, aps_id = fib.aps_id;
    const int result = dpm_driver_vpws_entry_update(&ac, &pw, &pw_nhid, &aps_id, role_of(fib),
                                                    DPM_SLOT_ALL_BITS);
    if (result != 0) {
        fib.path_nhid = path_nhid;
        fib.path_id = path_id;
        return result;
    }
    fib.pw_nhid = pw_nhid;
    fib.aps_id = aps_id;
    return 0;
}

// The flags of an entry; true when they were others.
template <class Entry> bool mark(Entry &entry, std::uint8_t flags, int (*pend)(Entry *)) {
    if (flags == DPM_LABEL_WAITING && !dpm::is_pending(entry))
        (void)pend(&entry);
    else if (flags != DPM_LABEL_WAITING && dpm::is_pending(entry))
        list_del_init(dpm::pend_link(entry));
    if (entry.flags == flags)
        return false;
    entry.flags = flags;
    return true;
}

// A circuit stands on the port on which the chip has one of its pseudowires.
bool mark(dpm_vpws_acif &acif, std::uint32_t port) {
    const int in_chip = dpm::each_of_circuit(acif.vc_id, [](const dpm_vpws_vc_fib &fib) {
        return fib.flags == DPM_LABEL_PROGRAMMED;
    });
    const std::uint8_t flags = in_chip != 0 ? DPM_LABEL_PROGRAMMED : DPM_LABEL_WAITING;
    const auto now_on = static_cast<std::uint16_t>(in_chip == 0 ? 0 : port != 0 ? port : acif.port);
    if (acif.flags == flags && acif.port == now_on)
        return false;
    auto &record = dpm::record_of<vpws_acif_kind>(acif);
    vpws_acif_kind::unindex(record);
    acif.flags = flags;
    acif.port = now_on;
    vpws_acif_kind::index(record);
    return true;
}

// What the chip has answered is in the records, and goes to the standby card.
void keep(dpm_vpws_vc_fib &fib, const dpm_vpws_vc_fib &before, bool is_in_chip, std::uint32_t port) {
    const std::uint8_t flags = is_in_chip ? DPM_LABEL_PROGRAMMED : DPM_LABEL_WAITING;
    (void)mark(fib, flags, dpm_mpls_pend_vpws_vc_fib_add);
    dpm_vpws_vc_fib linked = before; // the links are this card's
    linked.node = fib.node;
    linked.pend = fib.pend;
    if (std::memcmp(&linked, &fib, sizeof fib) != 0)
        (void)dpm_vpws_vc_fib_add_sync_send(&fib);
    dpm_vpws_vc_ilm *ilm = ilm_of(fib);
    if (ilm != nullptr && mark(*ilm, flags, dpm_mpls_pend_vpws_vc_ilm_add))
        (void)dpm_vpws_vc_ilm_add_sync_send(ilm);
    dpm_vpws_acif *acif = acif_of(fib);
    if (acif != nullptr && mark(*acif, port))
        (void)dpm_vpws_acif_add_sync_send(acif);
}

} // namespace

namespace dpm {

dpm_vpws_vc_fib *vpws_fib_of(const dpm_vpws_vc_ilm &ilm) {
    dpm_vpws_vc_fib key = {};
    key.vc_id = ilm.vpn_id;
    std::memcpy(key.vc_peer, ilm.vc_peer, sizeof key.vc_peer);
    return vpws_vc_fibs().find(key);
}

dpm_vpws_vc_fib *vpws_sibling_of(const dpm_vpws_vc_fib &fib) {
    dpm_vpws_vc_fib key = {};
    key.vc_id = fib.sibling_vc_id;
    std::memcpy(key.vc_peer, fib.sibling_vc_peer, sizeof fib.sibling_vc_peer);
    return is_protected(fib) ? vpws_vc_fibs().find(key) : nullptr;
}

int vpws_settle(dpm_vpws_vc_fib &fib, const vpws_leaving &leaving) {
    const dpm_vpws_vc_fib before = fib;
    const parts now = parts_of(fib, leaving);
    const bool was_in_chip = fib.flags == DPM_LABEL_PROGRAMMED;
    const bool is_wanted = now.are_complete();
    int result = 0;
    if (was_in_chip && !is_wanted)
        return vpws_withdraw(fib);
    if (is_wanted && !was_in_chip)
        result = program(fib, now);
    else if (is_wanted && (now.path->nhid != fib.path_nhid || now.path->tunnel_id != fib.path_id))
        result = update(fib, now);
    fib.sdk_result = result;
    keep(fib, before, was_in_chip || (is_wanted && result == 0), now.port);
    return result;
}

int vpws_withdraw(dpm_vpws_vc_fib &fib) {
    if (fib.flags != DPM_LABEL_PROGRAMMED)
        return 0;
    const dpm_vpws_vc_fib before = fib;
    fib.sdk_result = chip_del(fib, acif_of(fib));
    if (fib.sdk_result == 0)
        clear_ids(fib);
    keep(fib, before, fib.sdk_result != 0, 0);
    return fib.sdk_result;
}

int vpws_update(dpm_vpws_vc_fib &fib) {
    const parts now = parts_of(fib, {});
    if (fib.flags != DPM_LABEL_PROGRAMMED || !now.are_complete())
        return vpws_settle(fib);
    const dpm_vpws_vc_fib before = fib;
    fib.sdk_result = update(fib, now);
    keep(fib, before, true, now.port);
    return fib.sdk_result;
}

void vpws_reprogram(dpm_vpws_vc_fib fib, std::uint32_t slot_bits) {
    const parts now = parts_of(fib, {});
    if (fib.flags == DPM_LABEL_PROGRAMMED && now.are_complete())
        (void)chip_add(fib, now, slot_bits);
}

// A circuit that is told anew may change its place in the index: the next one is looked up before.
void vpws_update_on_port(std::uint32_t port) {
    for (const std::uint32_t on : {std::uint32_t{0}, port}) {
        vpws_acif_record key = {};
        key.entry.port = static_cast<std::uint16_t>(on);
        const auto index = vpws_acif_kind::by_port();
        for (vpws_acif_record *record = index.find_from(key), *next = record;
             record != nullptr && record->entry.port == key.entry.port; record = next) {
            next = index.next(*record);
            (void)each_of_circuit(record->entry.vc_id,
                                  [](dpm_vpws_vc_fib &fib) { return (void)vpws_update(fib), 0; });
        }
    }
}

void vpws_ask() {
    for (dpm_vpws_vc_fib &fib : vpws_vc_fibs())
        (void)vpws_settle(fib);
}

} // namespace dpm
