// Pseudowires follow label paths and trunks.
#include "dpm_vpn_l2vpn.h"

#include "dpm_bridge.h"
#include "dpm_vpws_service.h"

namespace {

// The pseudowires to the far end of a path, an IPv4 address; a neighbour that leaves carries none.
int settle_to(const std::uint8_t *fec, const dpm::vpws_leaving &leaving) {
    if (fec == nullptr || dpm_bridge_self_is_slave())
        return 0;
    return dpm::each_to_peer(
        fec, [&](dpm_vpws_vc_fib &fib) { return (void)dpm::vpws_settle(fib, leaving), 0; });
}

} // namespace

int dpm_l2vpn_respond_arp_or_route_or_ftn_add(const std::uint8_t *, const std::uint8_t *fec) {
    return settle_to(fec, {});
}

int dpm_l2vpn_respond_arp_or_route_or_ftn_del(const std::uint8_t *nhop, const std::uint8_t *fec) {
    return settle_to(fec, {.neighbour = nhop});
}

int dpm_mpls_ftn_update_for_l2vpn_del(const std::uint8_t *nhop, const std::uint8_t *fec) {
    return settle_to(fec, {.neighbour = nhop});
}

// Circuits on the trunk are told anew; those that had no port may have one now.
int dpm_vpn_trunk_func(std::uint32_t trunk_id) {
    if (dpm_bridge_self_is_slave())
        return 0;
    dpm::vpws_update_on_port(trunk_id);
    return 0;
}
