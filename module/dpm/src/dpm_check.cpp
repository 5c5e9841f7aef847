// Internal checks that print and carry on: a device that forwards is not stopped for a fault in one
// operation, but a test finds the fault in the count.
#include "dpm_check.h"

#include <cstdio>

DPM_STATE std::uint32_t g_dpm_failed_checks;

void dpm_check_failed(const char *source, int line) {
    g_dpm_failed_checks++;
    std::printf("Assertion failed: file \"%s\", line %d\n", source, line);
}
