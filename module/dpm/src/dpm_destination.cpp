// The owners of destinations by rank: one asks the others here, so that none knows their sources.
#include "dpm_destination.h"

#include "dpm_state.h"

namespace {

constexpr int rank_count = static_cast<int>(dpm::destination_rank::label) + 1;

DPM_STATE const dpm::destination_owner *g_dpm_destination_owners[rank_count];

// The owner of a rank; one that does nothing while none is registered.
const dpm::destination_owner &owner_of(int rank) {
    static constexpr dpm::destination_owner nobody = {};
    const dpm::destination_owner *owner = g_dpm_destination_owners[rank];
    return owner != nullptr ? *owner : nobody;
}

bool is_held(int rank, std::uint32_t vrf, const dpm_prefix &destination) {
    const dpm::destination_owner &owner = owner_of(rank);
    return owner.holds != nullptr && owner.holds(vrf, destination);
}

} // namespace

namespace dpm {

void destination_register(destination_rank rank, const destination_owner &owner) {
    g_dpm_destination_owners[static_cast<int>(rank)] = &owner;
}

bool is_held_by(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination) {
    return is_held(static_cast<int>(rank), vrf, destination);
}

bool is_claimed_by(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination) {
    const destination_owner &owner = owner_of(static_cast<int>(rank));
    return owner.claims != nullptr && owner.claims(vrf, destination);
}

bool taken_above(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination) {
    for (int above = rank_count - 1; above > static_cast<int>(rank); above--) {
        const destination_owner &owner = owner_of(above);
        if (owner.claims == nullptr || !owner.claims(vrf, destination))
            continue;
        if (owner.take_over != nullptr)
            owner.take_over(vrf, destination);
        return true;
    }
    return false;
}

bool is_held_above(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination) {
    for (int above = rank_count - 1; above > static_cast<int>(rank); above--)
        if (is_held(above, vrf, destination))
            return true;
    return false;
}

int give_way_below(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination, way how,
                   const call_site &caller) {
    int result = 0;
    for (int below = static_cast<int>(rank) - 1; below >= 0; below--)
        if (const auto give_way = owner_of(below).give_way)
            if (const int answer = give_way(vrf, destination, how, caller))
                result = answer;
    return result;
}

void claim_changed(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination) {
    const bool is_claimed = is_claimed_by(rank, vrf, destination);
    for (int below = static_cast<int>(rank) - 1; below >= 0; below--)
        if (const auto claimed = owner_of(below).claimed)
            claimed(vrf, destination, is_claimed);
}

void take_back_below(destination_rank rank, std::uint32_t vrf, const dpm_prefix &destination) {
    for (int below = static_cast<int>(rank) - 1; below >= 0; below--)
        if (const auto take_back = owner_of(below).take_back)
            take_back(vrf, destination);
}

} // namespace dpm
