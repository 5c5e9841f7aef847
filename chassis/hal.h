// The hardware abstraction of a card: link and trunk events go through it to the handlers that the
// library registered.
#pragma once

#include "platform/hal.h"

#include <cstdint>

namespace chassis::hal {

inline constexpr std::uint32_t min_port = 1;
inline constexpr std::uint32_t max_port = 64;
inline constexpr std::uint32_t trunk_base = 90; // trunk 1 to 16 is port 91 to 106 in an event

class Hal {
public:
    // Each answers the handler's result, or -1 while none is registered.
    int port_link(std::uint32_t port, bool up) const;
    int trunk_link(std::uint32_t trunk, bool up) const;
    int trunk_member(std::uint32_t type, std::uint32_t trunk, std::uint32_t port,
                     std::uint32_t action) const;

private:
    friend struct Contract;
    hal_link_handler port_handler_ = nullptr;
    hal_link_handler trunk_link_handler_ = nullptr;
    hal_trunk_handler trunk_handler_ = nullptr;
};

} // namespace chassis::hal
