// What the steps of a trace share.
#pragma once

#include "chassis/chip/trace.h"

#include <utility>

namespace chassis::chip::tracing {

struct Trace {
    Chip &chip;
    Packet packet;
    std::optional<Index> target = {}; // what an entry leads to
    std::vector<std::string> lines = {};
    bool is_coming_in = true;
    bool has_ended = false;

    void tell(std::string line) { lines.push_back(std::move(line)); }
    bool end(std::string line) {
        tell(std::move(line));
        return has_ended = true;
    }
};

// A packet as it leaves: " with label 100 ttl 255 exp 0, ip ttl 63 exp 0".
std::string packet_text(const Packet &packet);

// Pushes a label by a rule; `entry` is what asks for it.
void push(Trace &trace, const std::string &entry, std::uint32_t number, const LabelRule &rule);
// Over a label entry to its neighbour.
bool leave_by(Trace &trace, const FtnKey &key, const Ftn &value);

// Steps of frames (trace_frames.cpp).
bool by_circuit(Trace &trace);
bool by_pseudowire(Trace &trace);

} // namespace chassis::chip::tracing
