// Pseudowires when interfaces change.
#include "dpm_vpws_service.h"

#include "dpm_bridge.h"
#include "dpm_l2vpn.h"
#include "dpm_vrf.h"

namespace {

using dpm::vpws_acif_kind;

// A circuit leaves the chip in front of its interface.
void leave(const dpm_if_entry &entry, std::uint32_t vrf) {
    dpm_vpws_acif key = {};
    key.ifindex = entry.if_index;
    dpm_vpws_acif *acif = dpm::vpws_acifs().find(key);
    if (acif == nullptr || vrf != DPM_VRF_NONE || std::strcmp(acif->ifname, entry.ifname) != 0)
        return;
    dpm::vpws_settle(acif->vc_id, {.unplugged = acif});
    if (!dpm::is_in_chip(*acif))
        return;
    acif->is_gone = 1;
    (void)dpm_vpws_acif_add_sync_send(acif);
}

void renumber(const char *ifname, std::uint32_t ifindex) {
    dpm::renumber_circuit<vpws_acif_kind>(ifname, ifindex, [](const dpm_vpws_acif &acif) {
        if (!dpm_bridge_self_is_slave())
            dpm::vpws_settle(acif.vc_id);
    });
    for (dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs()) {
        fib.ac_ifindex = dpm::renumbered(fib.ac_ifindex, fib.in_ifname, ifname, ifindex);
        fib.nw_ifindex = dpm::renumbered(fib.nw_ifindex, fib.out_ifname, ifname, ifindex);
    }
    for (dpm_vpws_vc_ilm &ilm : dpm::vpws_vc_ilms()) {
        ilm.in_ifindex = dpm::renumbered(ilm.in_ifindex, ilm.in_ifname, ifname, ifindex);
        ilm.out_ifindex = dpm::renumbered(ilm.out_ifindex, ilm.out_ifname, ifname, ifindex);
    }
}

} // namespace

constexpr dpm::if_follower dpm::vpws_on_interfaces = {.leave = leave, .renumber = renumber};
