// Posting messages to the worker's queue: without ever waiting for room, for a poster may hold
// locks that the worker needs.
#include "dpm_msg.h"

namespace {

constexpr int send_retries = 3;
// A bulk sender rests a tick, so that it does not starve the worker.
constexpr std::uint32_t sends_per_rest = 256;
constexpr int send_priority = 1;

// Successful sends of the process.  Shared by all posting threads without a lock: a lost count only
// shifts the pacing.
DPM_STATE std::uint32_t g_dpm_send_count;

int post(const dpm_msg &msg, const dpm::send_error &error) {
    if (dpm_msg_send(&msg) == 0)
        return 0;
    ulogPrintf(g_dpm_global.module_id, error.level, error.format, error.function, error.line);
    return -1;
}

} // namespace

int dpm_msg_send_direct(const dpm_msg *msg) {
    return bep_msgQSendEx(g_dpm_global.queue, msg, sizeof *msg, BEP_NO_WAIT, send_priority,
                          __FILE__, __LINE__);
}

int dpm_msg_send(const dpm_msg *msg) {
    int result;
    int tries = 0;
    do {
        result = dpm_msg_send_direct(msg);
        if (result == 0) {
            const std::uint32_t sent = __atomic_load_n(&g_dpm_send_count, __ATOMIC_RELAXED) + 1;
            __atomic_store_n(&g_dpm_send_count, sent, __ATOMIC_RELAXED);
            if (sent % sends_per_rest == 0)
                (void)bep_taskDelayEx(1);
            return 0;
        }
        tries++;
        (void)bep_taskDelayEx(1);
    } while (tries <= send_retries);
    return result;
}

namespace dpm {

int post_words(std::uint32_t code, std::uint32_t len, std::uint32_t data, const send_error &error) {
    return post({code, len, data, 0}, error);
}

int post_block(std::uint32_t code, std::uint32_t len, const void *block, const send_error &error) {
    const auto word = reinterpret_cast<std::uint32_t>(block);
    if (has_block_in_arg(code))
        return post({code, len, 0, word}, error);
    return post({code, len, word, 0}, error);
}

bool is_known_oper(std::uint32_t oper, const call_site &caller) {
    if (!is_known_oper(oper))
        DPM_LOG_FROM(caller, "%s %d::unkown oper %d!\r\n", oper);
    return is_known_oper(oper);
}

} // namespace dpm
