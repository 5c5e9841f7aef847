// Who is told when an interface changes under the entries of a table: rows registered at start-up,
// so that the interfaces know none of the tables.
#include "dpm_if.h"

#include "dpm_bridge.h"
#include "dpm_state.h"

#include <span>

namespace {

constexpr std::size_t max_followers = 12;

struct follower_list {
    const dpm::if_follower *rows[max_followers];
    std::size_t count;
};
DPM_STATE follower_list g_dpm_if_followers;

std::span<const dpm::if_follower *const> followers() {
    return {g_dpm_if_followers.rows, g_dpm_if_followers.count};
}

} // namespace

namespace dpm {

void if_follower_register(const if_follower &follower) {
    for (const if_follower *present : followers())
        if (present == &follower)
            return;
    if (g_dpm_if_followers.count < max_followers)
        g_dpm_if_followers.rows[g_dpm_if_followers.count++] = &follower;
}

void if_followers_leave(const dpm_if_entry &entry, std::uint32_t vrf) {
    if (!dpm_bridge_self_is_master()) // mirroring takes them from a standby
        return;
    for (const if_follower *follower : followers())
        if (follower->leave != nullptr)
            follower->leave(entry, vrf);
}

void if_followers_arrive(const dpm_if_entry &entry) {
    if (!dpm_bridge_self_is_master())
        return;
    for (const if_follower *follower : followers())
        if (follower->arrive != nullptr)
            follower->arrive(entry);
}

void if_followers_renumber(const char *ifname, std::uint32_t ifindex) {
    for (const if_follower *follower : followers())
        follower->renumber(ifname, ifindex);
}

void if_followers_gain() {
    for (const if_follower *follower : followers())
        if (follower->gain != nullptr)
            follower->gain();
}

} // namespace dpm
