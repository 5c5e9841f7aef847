// Who holds a destination in the chip.
//
// Addresses and prefixes of a VRF are one table in the chip, but several tables here may have an
// entry for one destination.  One of them holds it, by rank: a label entry over a host over a
// route.  The others have given way.
//
//   holds       the chip's entry for the destination is this owner's
//   claims      the owner has an entry that would hold the destination if it came now
//   takes over  one below it comes to a destination that the owner claims: it holds it from now on
//   gives way   the owner lets one above it have the chip's entry
//   takes back  the owner puts its entry into the chip again, unless one above it holds the
//               destination
//
// An owner registers its row at start-up and asks by rank; it knows no other owner.  On the worker,
// under the DPM lock.
#pragma once

#include "dpm_api.h"
#include "dpm_trace.h"

#include <cstdint>

namespace dpm {

enum class destination_rank { route, host, label }; // rising

// How far an owner gives way.
enum class way {
    out_of_table, // its entry is deleted
    out_of_chip,  // its entry stays in the table, what the chip holds of it goes
    overwritten,  // its entry stays in the table, what the chip held of it is another's already
};

// What an owner does; null: it never does.
struct destination_owner {
    bool (*holds)(std::uint32_t vrf, const dpm_prefix &destination);
    bool (*claims)(std::uint32_t vrf, const dpm_prefix &destination);
    void (*take_over)(std::uint32_t vrf, const dpm_prefix &destination);
    // 0, or the driver's answer when the chip would not let go.
    int (*give_way)(std::uint32_t vrf, const dpm_prefix &destination, way how,
                    const call_site &caller);
    // What the chip refuses waits, as after any refusal.
    void (*take_back)(std::uint32_t vrf, const dpm_prefix &destination);
    // One above it claims the destination from now on, or no longer does; null: that is nothing to it.
    void (*claimed)(std::uint32_t vrf, const dpm_prefix &destination, bool is_claimed) = nullptr;
};

// The row must live as long as the process.
void destination_register(destination_rank rank, const destination_owner &owner);

bool is_held_by(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination);
bool is_claimed_by(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination);
bool is_held_above(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination);

// An owner comes: whether one above it claims the destination, which that one then holds.
bool taken_above(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination);

// An owner comes: those below it give way.  0, or the last answer that is not.
int give_way_below(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination, way how,
                   const call_site &caller);

// An owner claims a destination that it did not, or claims it no longer: those below it hear of it.
void claim_changed(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination);

// An owner has gone: those below it take back, the highest first.
void take_back_below(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination);

} // namespace dpm
