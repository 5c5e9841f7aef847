// Pseudowire requests of the routing suite, and readers of the tables.
#include "dpm_vpws.h"

#include "dpm_l2vpn.h"
#include "dpm_msg.h"
#include "dpm_trace.h"

int dpm_api_set_vpws_acif_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_VPWS_ACIF_MSG_BYTES>(
        request, oper, {DPM_MSG_VPWS_ACIF_BIND, DPM_MSG_VPWS_ACIF_UNBIND},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_vpws_vc_fib_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_VPWS_VC_FIB_MSG_BYTES>(
        request, oper, {DPM_MSG_VPWS_VCFIB_ADD, DPM_MSG_VPWS_VCFIB_DEL},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_vpws_vc_ilm_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_VPWS_VC_ILM_MSG_BYTES>(
        request, oper, {DPM_MSG_VPWS_VCILM_ADD, DPM_MSG_VPWS_VCILM_DEL},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_pw_redundancy_switch_proc(const void *request, std::uint32_t oper) {
    if (oper != DPM_OPER_ADD)
        return -1;
    return dpm::post_request<sizeof(dpm_pw_switch_msg)>(
        request, oper, {DPM_MSG_PW_REDUNDANCY_GROUP_SWITCH, DPM_MSG_PW_REDUNDANCY_GROUP_SWITCH},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

DPM_WALKERS(vpws_acif, dpm::vpws_acifs())
DPM_WALKERS(vpws_vc_fib, dpm::vpws_vc_fibs())
DPM_WALKERS(vpws_vc_ilm, dpm::vpws_vc_ilms())
