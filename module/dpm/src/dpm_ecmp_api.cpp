// ECMP groups for management readers, who walk and print them from threads of their own.
#include "dpm_ecmp.h"

#include "dpm_locks.h"

#include <cstdio>

const dpm_ecmp_entry *dpm_api_get_ecmp_entry_first(std::uint32_t family) {
    return dpm::is_iptype(family, DPM_CALL_SITE) ? dpm::ecmp_groups(family).first() : nullptr;
}

const dpm_ecmp_entry *dpm_api_get_ecmp_entry_next(const dpm_ecmp_entry *entry) {
    if (entry == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    if (!dpm::is_iptype(entry->ecmp_type, DPM_CALL_SITE))
        return nullptr;
    return dpm::ecmp_groups(entry->ecmp_type).next(*entry);
}

void dpm_ipv4_ecmp_show() {
    const dpm::dpm_lock lock;
    for (const dpm_ecmp_entry &group : dpm::ecmp_groups(DPM_FAMILY_IPV4)) {
        const std::uint32_t *host = group.host_sdk;
        std::printf("\n\r ecmp entry sdk_index %d hostcnt %d host %d/%d/%d/%d/%d/%d/%d/%d \n\r",
                    group.sdk_index, group.host_cnt, host[0], host[1], host[2], host[3], host[4],
                    host[5], host[6], host[7]);
    }
}
