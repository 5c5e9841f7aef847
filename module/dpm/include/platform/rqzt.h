/*
 * Contract: tasks, module registration and the module log.
 *
 * The host supplies every function of this header.
 */
#ifndef DPM_PLATFORM_RQZT_H
#define DPM_PLATFORM_RQZT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The entry of a task; it is called with the ten arguments of the spawn, of which dpm_task uses
 * none. */
typedef int (*rqzt_task_entry)(void);

/* Starts a task.  `priority` 0 is the highest, 255 the lowest; `options` 8 asks for floating-point
 * context to be saved; `name` is copied.  Called once, from dpm_main_init.  Answers the task's
 * handle, or -1; the caller does not look. */
int rqzt_task_spawn(const char *name, int priority, int options, int stack_bytes,
                    rqzt_task_entry entry, int arg1, int arg2, int arg3, int arg4, int arg5,
                    int arg6, int arg7, int arg8, int arg9, int arg10);

/* Registers a module and answers its handle, the first argument of every ulogPrintf.  `name` must
 * stay valid. The further arguments (configuration hooks) are 0 for this library. */
uint32_t modInitRegister(const char *name, void *init, void *save, void *show);

/* Tells the version of a module: `kind` 1 is "built at", `version` the date and time of the build
 * (copied). */
int setModVersion(uint32_t module_id, int kind, const char *version);

/* One log line, printf-style; the format carries its own line end.  Any thread, with any lock held:
 * it must not block on the library's locks.  Levels used: 10 for trace and most errors, 13 for some
 * errors.  Module id 0 is in use until the module is registered. */
int ulogPrintf(uint32_t module_id, int level, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif
