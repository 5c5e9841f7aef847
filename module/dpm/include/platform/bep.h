/*
 * Contract: operating system (memory, queues, semaphores, tasks, clock rate).
 *
 * The host supplies every function of this header.  `file` and `line` name the caller's source
 * place; they serve the platform's accounting only and may be ignored.  All of them may be called
 * from any thread, before and after dpm_main_init, unless a function says otherwise.  Results are 0
 * for success unless told differently.
 */
#ifndef DPM_PLATFORM_BEP_H
#define DPM_PLATFORM_BEP_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void *bep_sem;  /* a semaphore; null: none */
typedef void *bep_msgq; /* a message queue; null: none */

#define BEP_WAIT_FOREVER (-1) /* a timeout: wait without limit */
#define BEP_NO_WAIT 0         /* a timeout: answer at once */

#define BEP_SEM_Q_PRIORITY 0x1     /* waiters are served by task priority */
#define BEP_SEM_DELETE_SAFE 0x4    /* a holder cannot be deleted */
#define BEP_SEM_INVERSION_SAFE 0x8 /* a holder inherits the priority of its highest waiter */
#define BEP_SEM_EMPTY 0            /* a binary semaphore's first state: the first take waits */

/* Memory.  Blocks are aligned for any object; null when memory runs out.  A block from any of the
 * first three is returned with bep_freeEx, on any thread; a null block is ignored there.
 * bep_reallocEx keeps the old block when it answers null. */
void *bep_mallocEx(size_t size_bytes, const char *file, int line);
void *bep_callocEx(size_t count, size_t size_bytes, const char *file, int line);
void *bep_reallocEx(void *block, size_t size_bytes, const char *file, int line);
void bep_freeEx(void *block, const char *file, int line);

/* Semaphores.  A mutex semaphore is recursive: its holder may take it again and gives it as often
 * as it took it. Creation answers null on failure.  A take waits at most `timeout_ticks` and
 * answers 0 when it got the semaphore. */
bep_sem bep_semMCreateEx(uint32_t options, const char *file, int line);
bep_sem bep_semBCreateEx(uint32_t options, int initial_state, const char *file, int line);
int bep_semTakeEx(bep_sem sem, int timeout_ticks, const char *file, int line);
int bep_semGiveEx(bep_sem sem, const char *file, int line);
int bep_semDeleteEx(bep_sem sem, const char *file, int line);

/* Message queues hold copies of messages in the order sent.  Creation answers null on failure.
 * A send waits at most `timeout_ticks` for room; `priority` is passed as it stands and is the
 * platform's to interpret, but messages of equal priority must keep their order. A receive waits at
 * most `timeout_ticks` and answers the number of bytes received, or -1 for a timeout or an error.
 */
bep_msgq bep_msgQCreateEx(uint32_t max_messages, uint32_t max_message_bytes, uint32_t options,
                          const char *file, int line);
int bep_msgQSendEx(bep_msgq queue, const void *message, uint32_t length_bytes, int timeout_ticks,
                   int priority, const char *file, int line);
int bep_msgQReceiveEx(bep_msgq queue, void *buffer, uint32_t size_bytes, int timeout_ticks,
                      const char *file, int line);
int bep_msgQDeleteEx(bep_msgq queue, const char *file, int line);

/* Puts the calling task to sleep for that many clock ticks. */
int bep_taskDelayEx(int ticks);

/* Clock ticks a second; constant for the life of the process. */
int bep_sysClkRateGetEx(void);

#ifdef __cplusplus
}
#endif

#endif
