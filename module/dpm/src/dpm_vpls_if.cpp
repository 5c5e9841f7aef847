// Virtual bridges when interfaces change.
#include "dpm_vpls_service.h"

#include "dpm_bridge.h"
#include "dpm_vrf.h"

namespace {

using dpm::vpls_acif_kind;

// A circuit leaves the chip in front of its interface.
void leave(const dpm_if_entry &entry, std::uint32_t vrf) {
    dpm_vpls_acif key = {};
    key.ifindex = entry.if_index;
    dpm_vpls_acif *acif = dpm::vpls_acifs().find(key);
    if (acif == nullptr || vrf != DPM_VRF_NONE || std::strcmp(acif->ifname, entry.ifname) != 0)
        return;
    if (dpm::vpls_settle(*acif, {.entry = acif}) == 0)
        return;
    acif->is_gone = 1;
    (void)dpm_vpls_acif_add_sync_send(acif);
}

void renumber(const char *ifname, std::uint32_t ifindex) {
    dpm::renumber_circuit<vpls_acif_kind>(ifname, ifindex, [](dpm_vpls_acif &acif) {
        if (!dpm_bridge_self_is_slave())
            (void)dpm::vpls_settle(acif);
    });
    for (dpm_vpls_vc_fib &fib : dpm::vpls_vc_fibs())
        fib.nw_ifindex = dpm::renumbered(fib.nw_ifindex, fib.out_ifname, ifname, ifindex);
    for (dpm_vpls_vc_ilm &ilm : dpm::vpls_vc_ilms())
        ilm.in_ifindex = dpm::renumbered(ilm.in_ifindex, ilm.in_ifname, ifname, ifindex);
}

} // namespace

constexpr dpm::if_follower dpm::vpls_on_interfaces = {.leave = leave, .renumber = renumber};
