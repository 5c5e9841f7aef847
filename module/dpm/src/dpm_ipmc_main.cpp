// Start-up of multicast, from dpm_main_init.
#include "dpm_ipmc_main.h"

#include "dpm_ipmc.h"
#include "dpm_ipmc_pkt.h"

#include <initializer_list>

int dpm_ipmc_main_init() {
    g_ipmc_global = {};
    for (bep_sem *mutex : {&g_ipmc_global.sem, &g_ipmc_global.chip_sem}) {
        *mutex = bep_semMCreateEx(BEP_SEM_Q_PRIORITY | BEP_SEM_DELETE_SAFE | BEP_SEM_INVERSION_SAFE,
                                  __FILE__, __LINE__);
        if (*mutex == nullptr)
            return -1;
    }
    dpm::create_ipmc_trees();
    // Without a timer list nothing is timed, but everything else works.
    g_ipmc_global.timer_list = dpm_timer_list_create();
    g_ipmc_global.ipv4_state = DPM_DISABLE;
    g_ipmc_global.ipv6_state = DPM_DISABLE;
    return dpm_ipmc_register_rx_handler();
}
