// What the chip does with a packet, step by step, by what it holds: the answer to "where does it go,
// and what does it look like then?"
#pragma once

#include "chassis/chip/chip.h"

#include <optional>
#include <string>
#include <vector>

namespace chassis::chip {

struct Header { // what an IP header and a label have in common
    unsigned ttl, exp;
};

struct Label : Header {
    std::uint32_t number;
};

// An Ethernet frame that no address is looked up for.
struct Frame {
    MacBytes source, destination;
    std::uint32_t outer, inner; // VLAN tags; 0: none
};

struct Packet {
    std::int32_t vrf; // where its address is looked up
    // Host length; without it nothing is known of what stands behind the labels.
    std::optional<Address> destination;
    Header ip;
    std::vector<Label> labels; // the outermost last
    // Where it came in, and from whom; without a port no policy route is asked.
    std::optional<std::uint32_t> port = {};
    std::optional<Address> source = {};
    std::optional<Frame> frame = {};
};

// A line a step.  Virtual bridges learn where frames come from.  The caller holds the chip's lock.
std::vector<std::string> trace(Chip &chip, const Packet &packet);

} // namespace chassis::chip
