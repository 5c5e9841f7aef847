// The ports of a card, as far as packets go: a received frame is shown to the hooks that the library
// bound to its port.
#pragma once

#include "platform/uv.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace chassis::ports {

class Ports {
public:
    // A frame comes in on a port: every hook that is bound to the ethertype behind its VLAN tags
    // sees it, on the caller's thread.  The descriptor tells the VLANs of the two outermost tags; a
    // frame without any is of the port's own VLAN.  How many hooks saw it.
    unsigned receive(std::uint32_t port, std::span<const std::uint8_t> frame,
                     std::uint16_t port_vlan) const;

private:
    friend struct Contract;
    struct Binding {
        uv_receive_hook hook;
        std::string name;
    };
    std::map<std::pair<std::uint32_t, std::uint32_t>, Binding> bindings_; // by port and ethertype
};

} // namespace chassis::ports
