// Start-up of multicast.
#pragma once

// The context with its lock, trees and timers; then every port is listened to.  0, or -1 when the
// lock could not be had.
int dpm_ipmc_main_init();
