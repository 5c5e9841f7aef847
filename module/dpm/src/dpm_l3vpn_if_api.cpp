// MPLS interface requests of the routing suite, and readers of the table.
#include "dpm_l3vpn_if.h"

#include "dpm_locks.h"
#include "dpm_trace.h"

#include <cstdio>

int dpm_api_set_mpls_if_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<sizeof(dpm_mpls_if_msg)>(
        request, oper, {DPM_MSG_ENABLE_MPLS_IF, DPM_MSG_DISABLE_MPLS_IF},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

const dpm_mpls_if *dpm_api_mpls_if_first() {
    return dpm::mpls_ifs().first();
}

const dpm_mpls_if *dpm_api_mpls_if_next(const dpm_mpls_if *entry) {
    if (entry != nullptr)
        return dpm::mpls_ifs().next(*entry);
    (void)dpm::null_parameter();
    return nullptr;
}

void dpm_mpls_if_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global mpls_if table: total count %d", dpm::mpls_ifs().count());
    for (const dpm_mpls_if &entry : dpm::mpls_ifs())
        std::printf("\n\r ifindex=%x flags=%d label_space=%d ifname=%s\n\r", entry.ifindex,
                    entry.flags, entry.label_space, entry.ifname);
    std::printf("\n\r mpls_if table info end!");
}
