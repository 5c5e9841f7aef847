// Start-up of the VPN context.  Its trees are made with their tables.
#include "dpm_vpn.h"

#include "dpm_list.h"

#include <initializer_list>

void dpm_vpn_main_init() {
    g_dpm_vpn = {};
    for (list_head *pend : {&g_dpm_vpn.pend_ftn_list, &g_dpm_vpn.pend_ilm_list,
                            &g_dpm_vpn.pend_vpws_vc_fib_list, &g_dpm_vpn.pend_vpws_vc_ilm_list,
                            &g_dpm_vpn.pend_vpls_vc_fib_list, &g_dpm_vpn.pend_vpls_vc_ilm_list})
        INIT_LIST_HEAD(pend);
}
