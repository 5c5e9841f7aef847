// Pseudowires follow label paths and trunks.
#include "dpm_vpn_l2vpn.h"

#include "dpm_bridge.h"
#include "dpm_events.h"
#include "dpm_vpls_service.h"
#include "dpm_vpws_service.h"

namespace {

// The pseudowires to the far end of a path, an IPv4 address; the path over a next hop that leaves
// carries none.
int settle_to(const std::uint8_t *fec, const std::uint8_t *leaving = nullptr) {
    if (fec == nullptr || dpm_bridge_self_is_slave())
        return 0;
    dpm::each_to_peer<dpm::vpws_vc_fib_kind>(fec, [&](const dpm_vpws_vc_fib &fib) {
        dpm::vpws_settle(dpm::circuit_of(fib), {.fec = fec, .nexthop = leaving});
    });
    dpm::each_to_peer<dpm::vpls_vc_fib_kind>(
        fec, [&](dpm_vpls_vc_fib &fib) { (void)dpm::vpls_settle(fib, {.nexthop = leaving}); });
    return 0;
}

} // namespace

int dpm_l2vpn_respond_arp_or_route_or_ftn_add(const std::uint8_t *, const std::uint8_t *fec) {
    return settle_to(fec);
}

int dpm_l2vpn_respond_arp_or_route_or_ftn_del(const std::uint8_t *nhop, const std::uint8_t *fec) {
    return settle_to(fec, nhop);
}

int dpm_mpls_ftn_update_for_l2vpn_del(const std::uint8_t *nhop, const std::uint8_t *fec) {
    return settle_to(fec, nhop);
}

// Circuits on the trunk are told anew; those that had no port may have one now.
int dpm_vpn_trunk_func(std::uint32_t trunk_id) {
    if (dpm_bridge_self_is_slave())
        return 0;
    for (const std::uint32_t port : {std::uint32_t{0}, dpm::trunk_port(trunk_id)})
        dpm::each_on_port<dpm::vpws_acif_kind>(
            port, [](const dpm_vpws_acif &acif) { dpm::vpws_update(acif.vc_id); });
    dpm::each_on_port<dpm::vpls_acif_kind>(
        dpm::trunk_port(trunk_id), [](dpm_vpls_acif &acif) { (void)dpm::vpls_tell_anew(acif); });
    dpm::each_on_port<dpm::vpls_acif_kind>(
        0, [](dpm_vpls_acif &acif) { (void)dpm::vpls_settle(acif); });
    return 0;
}
