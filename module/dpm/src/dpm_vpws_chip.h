// What a pseudowire is made of, and how the chip is told of it.  For the sources of the pseudowire
// tables alone.
#pragma once

#include "dpm_vpws_record.h"

namespace dpm {

// What is about to go, and counts as gone already.
struct vpws_leaving {
    const std::uint8_t *neighbour = nullptr; // of a label path, four bytes
    const dpm_vpws_acif *acif = nullptr;
    const dpm_vpws_acif *unplugged = nullptr; // its interface is
    const dpm_vpws_vc_fib *fib = nullptr;
    const dpm_vpws_vc_ilm *ilm = nullptr;
};

// What a pseudowire is made of; null: not there.
struct vpws_parts {
    dpm_vpws_acif *acif;
    const dpm_vpws_vc_ilm *ilm;
    const dpm_ftn *path;
    const dpm_vpws_vc_fib *sibling; // the other pseudowire of the circuit
    std::uint16_t port;             // of the circuit; 0: none
    std::uint16_t vlan;             // of the circuit's interface
    bool has_circuit;               // it is the one of its role

    bool are_complete() const {
        return has_circuit && acif != nullptr && ilm != nullptr && path != nullptr && port != 0;
    }
    // The chip does not have the circuit so.
    bool have_moved() const {
        return acif->flags != DPM_LABEL_PROGRAMMED || acif->port != port || acif->port_vlan != vlan;
    }
};

vpws_parts vpws_parts_of(const dpm_vpws_vc_fib &fib, const vpws_leaving &leaving);

inline bool is_in_chip(const dpm_vpws_vc_fib &fib) {
    return fib.flags == DPM_LABEL_PROGRAMMED;
}
inline bool is_standby(const dpm_vpws_vc_fib &fib) {
    return fib.vc_role == DPM_VC_STANDBY;
}

// The other half of a pseudowire; null when there is none.
dpm_vpws_vc_fib *vpws_fib_of(const dpm_vpws_vc_ilm &ilm);
dpm_vpws_vc_ilm *vpws_ilm_of(const dpm_vpws_vc_fib &fib);

// What an update cannot tell the chip: a group that it was not in, circuits with VLAN lists.
bool vpws_is_another(const dpm_vpws_vc_fib &fib, const vpws_parts &now);

// Put a pseudowire into the chip, tell it anew of one that is there, take it out.  The driver's
// answer; what the chip gave is in the record, and goes from it when it is out.
int vpws_program(dpm_vpws_vc_fib &fib, const vpws_parts &with);
int vpws_program_anew(dpm_vpws_vc_fib &fib, const vpws_parts &with);
int vpws_withdraw(dpm_vpws_vc_fib &fib);

// Programs a slot with a pseudowire that is in the chip.
void vpws_reprogram(dpm_vpws_vc_fib fib, std::uint32_t slot_bits);

// Calls `visit(fib)` for the pseudowires of a circuit, and to a peer (four bytes).
template <class Visit> void each_of_circuit(std::uint32_t circuit, Visit visit) {
    const auto index = vpws_vc_fib_kind::by_circuit();
    vpws_vc_fib_record key = {}; // no pseudowire of the circuit has a smaller number
    key.entry.vc_role = DPM_VC_STANDBY;
    key.entry.sibling_vc_id = circuit;
    for (vpws_vc_fib_record *record = index.find_from(key);
         record != nullptr && circuit_of(record->entry) == circuit; record = index.next(*record))
        visit(record->entry);
}

template <class Visit> void each_to_peer(const std::uint8_t *peer, Visit visit) {
    const auto index = vpws_vc_fib_kind::by_peer();
    vpws_vc_fib_record key = {};
    std::memcpy(key.entry.vc_peer, peer, 4);
    for (vpws_vc_fib_record *record = index.find_from(key);
         record != nullptr && std::memcmp(record->entry.vc_peer, key.entry.vc_peer, 16) == 0;
         record = index.next(*record))
        visit(record->entry);
}

// Calls `visit(acif)` for the circuits of a number, by name.
template <class Visit> void each_acif(std::uint32_t circuit, Visit visit) {
    const auto index = vpws_acif_kind::by_vc();
    vpws_acif_record key = {};
    key.entry.vc_id = circuit;
    for (vpws_acif_record *record = index.find_from(key);
         record != nullptr && record->entry.vc_id == circuit; record = index.next(*record))
        visit(record->entry);
}

// Calls `visit(acif)` for the circuits that the chip has on a port, or that wait for one (port 0).  It
// may change their places.
template <class Visit> void each_on_port(std::uint32_t port, Visit visit) {
    const auto index = vpws_acif_kind::by_port();
    vpws_acif_record place = {};
    place.entry.port = static_cast<std::uint16_t>(port);
    vpws_acif_record *record = index.find_from(place);
    while (record != nullptr && record->entry.port == port) {
        place.entry = record->entry;
        visit(record->entry);
        vpws_acif_record *const next = index.find_from(place);
        record = next == record ? index.next(*record) : next;
    }
}

} // namespace dpm
