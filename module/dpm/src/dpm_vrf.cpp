// Settings of the whole card: which VRFs are enabled, and the chip's ECMP hash mode.
//
// An enabled VRF sends what no entry matches to the CPU and answers to the link-local address of
// the device's MAC. They act at once: at start-up, on the thread of a management request, and when
// the peer card's MAC is taken over.
#include "dpm_vrf.h"

#include "dpm.h"
#include "dpm_address.h"
#include "dpm_driver.h"

namespace {

struct linklocal {
    std::uint8_t bytes[16];
    explicit linklocal(const std::uint8_t *mac) { (void)dpm_get_linklocal(bytes, mac); }
};

void set_default_routes(std::uint32_t vrf_id, std::uint32_t mode) {
    (void)dpm_driver_default_route_set(vrf_id, DPM_FAMILY_IPV4, mode, 0);
    (void)dpm_driver_default_route_set(vrf_id, DPM_FAMILY_IPV6, mode, 0);
}

// The driver's answers are not looked at here: each slot's own answer is logged when it comes.
void add_linklocal(std::uint32_t vrf_id, const linklocal &address) {
    (void)dpm_driver_add_intf_ip(vrf_id, DPM_FAMILY_IPV6, address.bytes, DPM_IPV6_BITS);
}

void delete_linklocal(std::uint32_t vrf_id, const linklocal &address) {
    (void)dpm_driver_delete_intf_ip(vrf_id, DPM_FAMILY_IPV6, address.bytes, DPM_IPV6_BITS);
}

} // namespace

int dpm_vrf_enable(std::uint32_t vrf_id, std::uint32_t mode) {
    if (vrf_id >= DPM_VRF_COUNT)
        return -1;
    if (g_dpm_global.vrf_state[vrf_id] == mode)
        return 0;
    if (mode != DPM_ENABLE && mode != DPM_DISABLE)
        return -1;
    const linklocal address(g_dpm_global.device_mac);
    set_default_routes(vrf_id, mode);
    if (mode == DPM_ENABLE)
        add_linklocal(vrf_id, address);
    else
        delete_linklocal(vrf_id, address);
    g_dpm_global.vrf_state[vrf_id] = static_cast<std::uint8_t>(mode);
    return 0;
}

void dpm_vrf_follow_mac(const std::uint8_t *mac) {
    const linklocal old_address(g_dpm_global.device_mac);
    const linklocal new_address(mac);
    for (std::uint32_t vrf_id = 0; vrf_id < DPM_VRF_COUNT; vrf_id++) {
        if (g_dpm_global.vrf_state[vrf_id] != DPM_ENABLE)
            continue;
        delete_linklocal(vrf_id, old_address); // one that fails does not keep the new address away
        add_linklocal(vrf_id, new_address);
    }
    std::memcpy(g_dpm_global.device_mac, mac, DPM_MAC_BYTES);
}

int dpm_ecmp_hash_set(std::uint32_t mode) {
    if (mode == g_dpm_global.ecmp_hash)
        return 0;
    if (dpm_driver_set_ecmp_hash_ctl(mode, 0) != 0)
        return -1;
    g_dpm_global.ecmp_hash = mode;
    return 0;
}

std::uint32_t dpm_ecmp_hash_get() {
    return g_dpm_global.ecmp_hash;
}
