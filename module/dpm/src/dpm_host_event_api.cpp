// Link and trunk events of the platform, on its threads: each becomes one message without a block.
#include "dpm_events.h"

#include "dpm_msg.h"
#include "dpm_trace.h"
#include "platform/hal.h"

namespace {

enum port_kind : std::uint32_t { kind_port = 0, kind_trunk = 1 };
enum link_state : std::uint32_t { link_down = 0, link_up = 1 };

} // namespace

int dpm_port_down_func(std::uint32_t port) {
    return dpm::post_words(DPM_MSG_PORT_DOWN, kind_port, port,
                           DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_port_up_func(std::uint32_t port) {
    return dpm::post_words(DPM_MSG_PORT_UP, kind_port, port,
                           DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_trunk_down_func(std::uint32_t trunk) {
    return dpm::post_words(DPM_MSG_PORT_DOWN, kind_trunk, trunk,
                           DPM_SEND_ERROR("%s %d::send msg err!\r\n", DPM_LEVEL_ERROR));
}

int dpm_trunk_up_func(std::uint32_t trunk) {
    return dpm::post_words(DPM_MSG_PORT_UP, kind_trunk, trunk,
                           DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_port_link_func(std::uint32_t port, std::uint32_t state) {
    if (dpm::is_trunk(port)) {
        if (state == link_down)
            (void)dpm_trunk_down_func(dpm::trunk_id(port));
        else if (state == link_up)
            (void)dpm_trunk_up_func(dpm::trunk_id(port));
    } else if (port >= hal_get_min_server_logic_slot() && port <= hal_get_max_uplink_portid()) {
        if (state == link_down)
            (void)dpm_port_down_func(port);
        else if (state == link_up)
            (void)dpm_port_up_func(port);
    }
    return 0;
}
