// What a pseudowire is made of, and how the chip is told of it.  For the sources of the pseudowire
// tables alone.
#pragma once

#include "dpm_vpws_record.h"

namespace dpm {

// What is about to go, and counts as gone already.
struct vpws_leaving {
    const std::uint8_t *fec = nullptr;     // a label path to this peer, four bytes,
    const std::uint8_t *nexthop = nullptr; // over this next hop, 16 bytes
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
    circuit_place at;
    bool has_circuit; // it is the one of its role

    bool are_complete() const {
        return has_circuit && acif != nullptr && ilm != nullptr && path != nullptr && at.port != 0;
    }
    // Nothing but the port, of whose coming no event tells.
    bool lack_port() const {
        return has_circuit && acif != nullptr && ilm != nullptr && path != nullptr &&
               at.port == 0 && acif->ifindex != DPM_IFINDEX_NONE;
    }
    // The chip does not have the circuit so.
    bool have_moved() const {
        return acif->flags != DPM_LABEL_PROGRAMMED || acif->port != at.port ||
               acif->port_vlan != at.vlan;
    }
};

vpws_parts vpws_parts_of(const dpm_vpws_vc_fib &fib, const vpws_leaving &leaving);

inline bool is_standby(const dpm_vpws_vc_fib &fib) {
    return fib.vc_role == DPM_VC_STANDBY;
}

// The other half of a pseudowire; null when there is none.
dpm_vpws_vc_fib *vpws_fib_of(const dpm_vpws_vc_ilm &ilm);
dpm_vpws_vc_ilm *vpws_ilm_of(const dpm_vpws_vc_fib &fib);

// What an update cannot tell the chip: a group that it was not in, circuits with VLAN lists.
bool vpws_is_another(const dpm_vpws_vc_fib &fib, const vpws_parts &now,
                     const vpws_leaving &leaving);

// Put a pseudowire into the chip, tell it anew of one that is there, take it out.  The driver's
// answer; what the chip gave is in the record, and goes from it when it is out.
int vpws_program(dpm_vpws_vc_fib &fib, const vpws_parts &with);
int vpws_program_anew(dpm_vpws_vc_fib &fib, const vpws_parts &with);
int vpws_withdraw(dpm_vpws_vc_fib &fib);

// Programs a slot with a pseudowire as the chip has it.
void vpws_reprogram(const dpm_vpws_vc_fib &entry, std::uint32_t slot_bits);

// Calls `visit(fib)` for the pseudowires of a circuit.
template <class Visit> void each_of_circuit(std::uint32_t circuit, Visit visit) {
    vpws_vc_fib_record key = {}; // no pseudowire of the circuit has a smaller number
    key.entry.vc_role = DPM_VC_STANDBY;
    key.entry.sibling_vc_id = circuit;
    each_from(
        vpws_vc_fib_kind::by_circuit(), key,
        [&](const dpm_vpws_vc_fib &fib) { return circuit_of(fib) == circuit; }, visit);
}

// Calls `visit(acif)` for the circuits of a number, by name.
template <class Visit> void each_acif(std::uint32_t circuit, Visit visit) {
    vpws_acif_record key = {};
    key.entry.vc_id = circuit;
    each_from(
        vpws_acif_kind::by_vc(), key,
        [&](const dpm_vpws_acif &acif) { return acif.vc_id == circuit; }, visit);
}

} // namespace dpm
