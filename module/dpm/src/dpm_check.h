// Internal checks: a failed one prints its line and the operation carries on as if it had passed;
// it never stops the process.  The number of failed checks is kept, and every test ends by looking
// at it.
#pragma once

#include "dpm_state.h"

#include <cstdint>

extern "C" DPM_STATE std::uint32_t g_dpm_failed_checks;

// Prints the line of a failed check to standard output; `source` is the source path without its
// ending.
void dpm_check_failed(const char *source, int line);

// False when the check failed.  DPM_SOURCE is defined by the source file that checks.
#define DPM_CHECK(condition) ((condition) ? true : (dpm_check_failed(DPM_SOURCE, __LINE__), false))
