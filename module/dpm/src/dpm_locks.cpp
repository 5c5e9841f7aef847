// The exported lock pairs.  Each take waits forever but that of the slot-up semaphore; any thread
// may call them.
#include "dpm_locks.h"

#include "dpm.h"
#include "dpm_ipmc_global.h"

namespace {

// A slave that never confirms holds the master's callback this long.
constexpr int slot_up_limit_sec = 600;

} // namespace

#define DPM_LOCK_PAIR(take, give, sem, timeout_ticks)                                              \
    void take() {                                                                                  \
        (void)bep_semTakeEx(sem, timeout_ticks, __FILE__, __LINE__);                               \
    }                                                                                              \
    void give() {                                                                                  \
        (void)bep_semGiveEx(sem, __FILE__, __LINE__);                                              \
    }

DPM_LOCK_PAIR(norix_dpm_sem_take, norix_dpm_sem_give, g_dpm_global.dpm_sem, BEP_WAIT_FOREVER)
DPM_LOCK_PAIR(norix_nsm_sem_take, norix_nsm_sem_give, g_dpm_global.nsm_sem, BEP_WAIT_FOREVER)
DPM_LOCK_PAIR(norix_bfd_sem_take, norix_bfd_sem_give, g_dpm_global.bfd_sem, BEP_WAIT_FOREVER)
DPM_LOCK_PAIR(norix_ipmc_sem_take, norix_ipmc_sem_give, g_ipmc_global.sem, BEP_WAIT_FOREVER)
DPM_LOCK_PAIR(dpm_slot_up_sem_take, dpm_slot_up_sem_give, g_dpm_global.slot_up_sem,
              slot_up_limit_sec *bep_sysClkRateGetEx())

namespace dpm {
DPM_LOCK_PAIR(ipmc_chip_take, ipmc_chip_give, g_ipmc_global.chip_sem, BEP_WAIT_FOREVER)
} // namespace dpm

void dpm::empty_slot_up_sem() {
    (void)bep_semTakeEx(g_dpm_global.slot_up_sem, BEP_NO_WAIT, __FILE__, __LINE__);
}
