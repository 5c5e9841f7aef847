// The steps of mirroring that are the same for every record, outside the templates that are made
// for each.
#include "dpm_mirror.h"

namespace dpm {

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
