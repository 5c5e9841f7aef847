// Label requests of the routing suite, and readers of the label tables.
//
// The request records are the suite's and are taken apart by the worker; here they are copied and
// posted.
#include "dpm_l3vpn.h"

#include "dpm_msg.h"
#include "dpm_trace.h"

int dpm_api_set_mpls_ftn_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_FTN_MSG_BYTES>(request, oper, {DPM_MSG_FTN_ADD, DPM_MSG_FTN_DEL},
                                                DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_mpls_ilm_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_ILM_MSG_BYTES>(request, oper, {DPM_MSG_ILM_ADD, DPM_MSG_ILM_DEL},
                                                DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

const dpm_ftn *dpm_api_ftn_entry_first() {
    return dpm::ftns().first();
}

const dpm_ftn *dpm_api_ftn_entry_next(const dpm_ftn *entry) {
    if (entry != nullptr)
        return dpm::ftns().next(*entry);
    (void)dpm::null_parameter();
    return nullptr;
}

const dpm_ilm *dpm_api_ilm_entry_first() {
    return dpm::ilms().first();
}

const dpm_ilm *dpm_api_ilm_entry_next(const dpm_ilm *entry) {
    if (entry != nullptr)
        return dpm::ilms().next(*entry);
    (void)dpm::null_parameter();
    return nullptr;
}
