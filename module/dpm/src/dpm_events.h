// Callbacks that the platform calls when ports and trunks change, on threads of its own; they only
// post.
#pragma once

#include <cstdint>

// A link changed: a port, or a trunk by its index; `state` 0 down, 1 up.  Always 0.
int dpm_port_link_func(std::uint32_t port, std::uint32_t state);

// Post one event; 0, or -1 when the post failed.
int dpm_port_down_func(std::uint32_t port);
int dpm_port_up_func(std::uint32_t port);
int dpm_trunk_down_func(std::uint32_t trunk);
int dpm_trunk_up_func(std::uint32_t trunk);

namespace dpm {

// Trunks are numbered 1 to 16; among the ports they stand at 91 to 106.
constexpr bool is_trunk(std::uint32_t port) {
    return port >= 91 && port <= 106;
}
constexpr std::uint32_t trunk_id(std::uint32_t port) {
    return port - 90;
}
constexpr std::uint32_t trunk_port(std::uint32_t trunk_id) {
    return trunk_id + 90;
}

} // namespace dpm
