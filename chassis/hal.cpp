// Link and trunk events of a card, and the port bounds.  The trap rules of the same contract are
// the chip's.

#include "chassis/chassis.h"

namespace chassis::hal {

int Hal::port_link(std::uint32_t port, bool up) const {
    return port_handler_ ? port_handler_(port, up) : -1;
}

int Hal::trunk_link(std::uint32_t trunk, bool up) const {
    return trunk_link_handler_ ? trunk_link_handler_(trunk_base + trunk, up) : -1;
}

int Hal::trunk_member(std::uint32_t type, std::uint32_t trunk, std::uint32_t port,
                      std::uint32_t action) const {
    return trunk_handler_ ? trunk_handler_(type, trunk_base + trunk, port, action) : -1;
}

struct Contract {
    static Hal &hal() { return card().hal; }
    static int set_port(hal_link_handler handler) { return hal().port_handler_ = handler, 0; }
    static int set_trunk_link(hal_link_handler handler) {
        return hal().trunk_link_handler_ = handler, 0;
    }
    static int set_trunk(hal_trunk_handler handler) { return hal().trunk_handler_ = handler, 0; }
};

} // namespace chassis::hal

using chassis::hal::Contract;

extern "C" {

int hal_register_link_handler(hal_link_handler handler) {
    return Contract::set_port(handler);
}
int hal_register_trunk_link_handler(hal_link_handler handler) {
    return Contract::set_trunk_link(handler);
}
int hal_register_trunk_handler(hal_trunk_handler handler) {
    return Contract::set_trunk(handler);
}
uint32_t hal_get_min_server_logic_slot() {
    return chassis::hal::min_port;
}
uint32_t hal_get_max_uplink_portid() {
    return chassis::hal::max_port;
}

} // extern "C"
