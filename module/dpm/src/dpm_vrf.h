// Settings of the whole card, which no table owns: VRFs, ECMP hash mode.
#pragma once

#include <cstdint>

// Mode DPM_ENABLE or DPM_DISABLE.  0, or -1 for a VRF above 255 or another mode.
int dpm_vrf_enable(std::uint32_t vrf_id, std::uint32_t mode);

// 0, or -1 when the chip refused; the mode in force is then unchanged.
int dpm_ecmp_hash_set(std::uint32_t mode);
std::uint32_t dpm_ecmp_hash_get();

// The peer card's MAC takes the place of this card's: the link-local address of every enabled VRF
// follows.
void dpm_vrf_follow_mac(const std::uint8_t *mac);
