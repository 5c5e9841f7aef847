// Pseudowires in the chip.  For the sources of the pseudowire tables alone.
#pragma once

#include "dpm_vpn_l2vpn.h"
#include "dpm_vpws_record.h"

namespace dpm {

// What is about to go, and counts as gone already.
struct vpws_leaving {
    const std::uint8_t *neighbour = nullptr; // of a label path, four bytes
    const dpm_vpws_acif *acif = nullptr;
    const dpm_vpws_vc_ilm *ilm = nullptr;
};

// Brings a pseudowire to where the tables want it: into the chip while its circuit, its way in, and
// the label path to its peer are there, out of it otherwise; over another path when that has
// changed.  Entries that change are mirrored.  0, or the driver's answer: then it is as it was.
int vpws_settle(dpm_vpws_vc_fib &fib, const vpws_leaving &leaving = {});

// Takes it out of the chip; the same answers.
int vpws_withdraw(dpm_vpws_vc_fib &fib);

// Tells the chip anew of one that is there, since something that it was told of has changed.
int vpws_update(dpm_vpws_vc_fib &fib);

// Programs a slot with a pseudowire that is in the chip.
void vpws_reprogram(dpm_vpws_vc_fib fib, std::uint32_t slot_bits);

// The way out of a way in, and the other one of its circuit; null when there is none.
dpm_vpws_vc_fib *vpws_fib_of(const dpm_vpws_vc_ilm &ilm);
dpm_vpws_vc_fib *vpws_sibling_of(const dpm_vpws_vc_fib &fib);

// Calls `visit(fib)` for the pseudowires of a circuit, of a port, and to a peer (four bytes) until it
// answers other than 0; that answer.
template <class Visit> int each_of_circuit(std::uint32_t vc_id, Visit visit) {
    const auto index = vpws_vc_fib_kind::by_circuit();
    vpws_vc_fib_record key = {};
    key.entry.vc_id = vc_id;
    // the first of the circuit may be a standby pseudowire with a smaller number of its own
    key.entry.vc_role = DPM_VC_STANDBY;
    key.entry.sibling_vc_id = vc_id;
    key.entry.vc_id = 0;
    for (vpws_vc_fib_record *record = index.find_from(key);
         record != nullptr && circuit_of(record->entry) == vc_id; record = index.next(*record))
        if (const int result = visit(record->entry))
            return result;
    return 0;
}

template <class Visit> int each_to_peer(const std::uint8_t *peer, Visit visit) {
    const auto index = vpws_vc_fib_kind::by_peer();
    vpws_vc_fib_record key = {};
    std::memcpy(key.entry.vc_peer, peer, 4);
    for (vpws_vc_fib_record *record = index.find_from(key);
         record != nullptr && std::memcmp(record->entry.vc_peer, key.entry.vc_peer, 16) == 0;
         record = index.next(*record))
        if (const int result = visit(record->entry))
            return result;
    return 0;
}

// The ports of a trunk have changed: the pseudowires on it are told to the chip anew, and those
// whose circuit had no port are settled.
void vpws_update_on_port(std::uint32_t port);

} // namespace dpm
