// Scoped guards over the exported lock pairs: inside the library no lock is given by hand.
#pragma once

#include "dpm_api.h"

namespace dpm {

template <void (*Take)(), void (*Give)()> class lock_guard {
public:
    lock_guard() { Take(); }
    ~lock_guard() { Give(); }
    lock_guard(const lock_guard &) = delete;
    lock_guard &operator=(const lock_guard &) = delete;
};

using dpm_lock = lock_guard<norix_dpm_sem_take, norix_dpm_sem_give>;

// The standby's multicast chip, which echoes and the worker ask; never waited for with a reader.
void ipmc_chip_take();
void ipmc_chip_give();
using ipmc_chip_lock = lock_guard<ipmc_chip_take, ipmc_chip_give>;

// Takes back what was given to the slot-up semaphore for a wait that is over.  Any thread.
void empty_slot_up_sem();

} // namespace dpm
