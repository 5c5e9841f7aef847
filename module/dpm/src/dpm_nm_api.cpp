// Network-management settings: they act at once, on the caller's thread, under the DPM lock.
#include "dpm_api.h"

#include "dpm_locks.h"
#include "dpm_vrf.h"

int dpm_api_set_vrf_enable(std::uint32_t vrf, std::uint32_t enable) {
    const dpm::dpm_lock lock;
    return dpm_vrf_enable(vrf, enable == DPM_ENABLE ? DPM_ENABLE : DPM_DISABLE);
}

int dpm_api_set_ecmp_hash(std::uint32_t mode) {
    const dpm::dpm_lock lock;
    return dpm_ecmp_hash_set(mode);
}

std::uint32_t dpm_api_get_ecmp_hash() {
    const dpm::dpm_lock lock;
    return dpm_ecmp_hash_get();
}
