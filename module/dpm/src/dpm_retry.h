// What the chip refused, and no request asks for again: it is tried again until the chip agrees.
#pragma once

#include "dpm_timer.h"

namespace dpm {

inline constexpr std::uint32_t retry_sec = 30;

// Runs `work` once, later, on the worker of a card that is not standby then; it looks itself what is
// left to do, and asks again when that is refused anew.  The timer is the work's own.
void retry_later(dpm_timer_node &timer, void (*work)(), std::uint32_t delay_sec = retry_sec);

} // namespace dpm
