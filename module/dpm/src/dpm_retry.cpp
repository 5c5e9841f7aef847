#include "dpm_retry.h"

#include "dpm.h"
#include "dpm_bridge.h"

namespace {

int run(std::uintptr_t work, std::uintptr_t, std::uintptr_t) {
    if (!dpm_bridge_self_is_slave())
        reinterpret_cast<void (*)()>(work)();
    return 0;
}

} // namespace

namespace dpm {

void retry_later(dpm_timer_node &timer, void (*work)(), std::uint32_t delay_sec) {
    if (timer.link.next == nullptr)
        (void)dpm_timer_node_init(&timer);
    (void)dpm_timer_start(g_dpm_global.timer_list, &timer, delay_sec, run,
                          reinterpret_cast<std::uintptr_t>(work), 0, 0);
}

} // namespace dpm
