// Log lines in the house style: "%s %d::" with function and line in front, "\r\n" behind.
//
// The format stands whole at the call, so that a line in the field can be searched for in the
// sources.
#pragma once

#include "dpm.h"
#include "platform/rqzt.h"

inline constexpr int DPM_LEVEL_TRACE = 10; // trace and most errors
inline constexpr int DPM_LEVEL_ERROR = 13;

// `format` begins with "%s %d::", for which function and line are filled in.
#define DPM_LOG(level, format, ...)                                                                \
    ulogPrintf(g_dpm_global.module_id, level, format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define DPM_TRACE(format, ...) DPM_LOG(DPM_LEVEL_TRACE, format __VA_OPT__(, ) __VA_ARGS__)

// A line without function and line in front.
#define DPM_PLAIN(format, ...)                                                                     \
    ulogPrintf(g_dpm_global.module_id, DPM_LEVEL_TRACE, format __VA_OPT__(, ) __VA_ARGS__)

namespace dpm {

// The function whose name and line stand in a line that a shared body logs for it.
struct call_site {
    const char *function;
    int line;
};
#define DPM_CALL_SITE (dpm::call_site{__func__, __LINE__})
#define DPM_LOG_FROM(caller, format, ...)                                                          \
    ulogPrintf(g_dpm_global.module_id, DPM_LEVEL_TRACE, format, (caller).function,                 \
               (caller).line __VA_OPT__(, ) __VA_ARGS__)

// Logs a null argument under the caller's name; -1.
inline int null_parameter(const char *function = __builtin_FUNCTION(),
                          int line = __builtin_LINE()) {
    ulogPrintf(g_dpm_global.module_id, DPM_LEVEL_TRACE, "%s %d::the input parameter is null!\r\n",
               function, line);
    return -1;
}

} // namespace dpm
