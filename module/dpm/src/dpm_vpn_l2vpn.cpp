// Pseudowires over label paths and trunks.  There are none yet: nothing has to follow.
#include "dpm_vpn_l2vpn.h"

int dpm_l2vpn_respond_arp_or_route_or_ftn_add(const std::uint8_t *, const std::uint8_t *) {
    return 0;
}

int dpm_l2vpn_respond_arp_or_route_or_ftn_del(const std::uint8_t *, const std::uint8_t *) {
    return 0;
}

int dpm_mpls_ftn_update_for_l2vpn_del(const std::uint8_t *, const std::uint8_t *) {
    return 0;
}

int dpm_vpn_trunk_func(std::uint32_t) {
    return 0;
}
