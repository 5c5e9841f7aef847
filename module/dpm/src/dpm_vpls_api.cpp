// Requests of the routing suite for virtual bridges, and readers of the tables.
#include "dpm_vpls.h"

#include "dpm_l2vpn.h"
#include "dpm_msg.h"
#include "dpm_trace.h"

int dpm_api_set_vpls_vsi_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_VPLS_VSI_MSG_BYTES>(request, oper,
                                                     {DPM_MSG_VPLS_VSI_ADD, DPM_MSG_VPLS_VSI_DEL},
                                                     DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_vpls_acif_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_VPLS_ACIF_MSG_BYTES>(
        request, oper, {DPM_MSG_VPLS_ACIF_BIND, DPM_MSG_VPLS_ACIF_UNBIND},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_vpls_vc_fib_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_VPLS_VC_FIB_MSG_BYTES>(
        request, oper, {DPM_MSG_VPLS_VCFIB_ADD, DPM_MSG_VPLS_VCFIB_DEL},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_vpls_vc_ilm_proc(const void *request, std::uint32_t oper) {
    return dpm::post_request<DPM_VPLS_VC_ILM_MSG_BYTES>(
        request, oper, {DPM_MSG_VPLS_VCILM_ADD, DPM_MSG_VPLS_VCILM_DEL},
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

DPM_WALKERS(vpls_vsi, dpm::vpls_vsis())
DPM_WALKERS(vpls_acif, dpm::vpls_acifs())
DPM_WALKERS(vpls_vc_fib, dpm::vpls_vc_fibs())
DPM_WALKERS(vpls_vc_ilm, dpm::vpls_vc_ilms())
