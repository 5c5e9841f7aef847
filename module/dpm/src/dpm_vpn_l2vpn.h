// What pseudowires make of label paths and trunks that come and go.  On the worker, under the DPM
// lock.
#pragma once

#include <cstdint>

// A label path became usable, or is about to go: addresses of 16 bytes, its neighbour and its FEC.
// 0 or -1.
int dpm_l2vpn_respond_arp_or_route_or_ftn_add(const std::uint8_t *nhop, const std::uint8_t *fec);
int dpm_l2vpn_respond_arp_or_route_or_ftn_del(const std::uint8_t *nhop, const std::uint8_t *fec);

// A label path is about to be told anew.
int dpm_mpls_ftn_update_for_l2vpn_del(const std::uint8_t *nhop, const std::uint8_t *fec);

// The members of a trunk changed.
int dpm_vpn_trunk_func(std::uint32_t trunk_id);

namespace dpm {

// On a card that becomes master: pseudowires come to where the tables want them.
void vpws_ask();

} // namespace dpm
