// Interfaces that go, or move to another VRF: what ports of their VLAN have reported goes first, and
// the members of the VLAN with it.
#include "dpm_ipmc.h"

namespace {

// Filters that took their members with them leave those of a switch-over, which have none.
void leave(const dpm_if_entry &entry, std::uint32_t) {
    dpm::ipmc_filters_end_on(entry.if_id);
    dpm::each_ipmc_source([&](dpm_ipmc_group &, dpm_ipmc_source &source) {
        if (dpm_ipmc_out_vlan *out = dpm_ipmc_gourp_outvlan_find(&source, entry.if_id))
            for (dpm_ipmc_member &member : dpm::ipmc_members(out->members).erasable())
                dpm::withdraw_member(member);
    });
}

void renumber(const char *, std::uint32_t) {} // records name VLANs

} // namespace

constexpr dpm::if_follower dpm::multicast_on_interfaces = {leave, nullptr, renumber};
