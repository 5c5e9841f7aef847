// The steps of mirroring that are the same for every record, outside the templates that are made
// for each.
#include "dpm_mirror.h"

namespace {

// The sync that runs on this card; the worker's.
struct running_sync {
    std::uint32_t number; // 0: none
    std::uint32_t last;   // that was given
    std::uint32_t lost_before;
};
DPM_STATE running_sync g_dpm_sync;

// Mirrored records that did not get into a table since the start.  Any thread.
DPM_STATE std::uint32_t g_dpm_sync_lost;

// A sync began of which the worker was not told.  Any thread.
DPM_STATE bool g_dpm_sync_begin_lost;

} // namespace

namespace dpm {

void sync_init() {
    g_dpm_sync = {};
    g_dpm_sync_lost = 0;
    g_dpm_sync_begin_lost = false;
}

void sync_lost() {
    (void)__atomic_fetch_add(&g_dpm_sync_lost, 1, __ATOMIC_RELAXED);
}

void sync_begin_lost() {
    sync_lost(); // also of one that never ended
    __atomic_store_n(&g_dpm_sync_begin_lost, true, __ATOMIC_RELAXED);
}

std::uint32_t sync_lost_so_far() {
    return __atomic_load_n(&g_dpm_sync_lost, __ATOMIC_RELAXED);
}

void sync_begin(std::uint32_t lost_before) {
    if (++g_dpm_sync.last == 0) // that of entries which no sync brought
        g_dpm_sync.last = 1;
    g_dpm_sync.number = g_dpm_sync.last;
    g_dpm_sync.lost_before = lost_before;
    __atomic_store_n(&g_dpm_sync_begin_lost, false, __ATOMIC_RELAXED);
}

std::uint32_t sync_number() {
    return g_dpm_sync.number;
}

bool sync_is_whole() {
    if (g_dpm_sync.number == 0)
        return !__atomic_load_n(&g_dpm_sync_begin_lost, __ATOMIC_RELAXED);
    return sync_lost_so_far() == g_dpm_sync.lost_before;
}

void sync_end() {
    g_dpm_sync.number = 0;
    __atomic_store_n(&g_dpm_sync_begin_lost, false, __ATOMIC_RELAXED);
}

int mirror_send(const void *entry, std::uint32_t size, const char *receiver,
                const call_site &caller) {
    if (entry == nullptr)
        return null_parameter(caller.function, caller.line);
    if (dpm_bridge_peer_is_exist() == 1 && !dpm_bridge_self_is_slave())
        return dpm_bridge_sync_send(receiver, entry, size);
    DPM_LOG_FROM(caller, "%s %d::peer is not exist, or it is slave\r\n");
    return 0;
}

// A buffer of another length than the record's is no parameter at all.
bool mirror_may_receive(const void *buffer, bool fits, const call_site &caller, int &result) {
    if (buffer == nullptr || !fits) {
        DPM_LOG_FROM(caller, "%s %d::the input paramter is null!\r\n");
        result = -1;
        return false;
    }
    if (!dpm_bridge_self_is_slave()) {
        // deliberate: the text says the opposite of the condition; those who watch the logs know it
        // so
        DPM_LOG_FROM(caller, "%s %d::it is slave.\r\n");
        result = 0;
        return false;
    }
    return true;
}

} // namespace dpm
