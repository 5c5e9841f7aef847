// The ports of a card, as far as packets go: a received frame is shown to the hooks that the library
// bound to its port.
#pragma once

#include "platform/uv.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace chassis {
class Card;
}

namespace chassis::ports {

struct Frame {
    std::uint32_t port;
    std::uint16_t port_vlan; // of a frame without any tag
    std::vector<std::uint8_t> bytes;
};

struct Counts {
    std::uint64_t received, seen; // frames that came in, those that a hook saw
};

class Ports {
public:
    explicit Ports(Card &card) : card_(card) {}
    ~Ports() { stop(); }

    // A frame comes in on a port: every hook that is bound to the ethertype behind its VLAN tags
    // sees it, on the caller's thread.  The descriptor tells the VLANs of the two outermost tags; a
    // frame without any is of the port's own VLAN.  How many hooks saw it.
    unsigned receive(std::uint32_t port, std::span<const std::uint8_t> frame,
                     std::uint16_t port_vlan) const;

    // The same on the receive thread, behind the frames that wait there; while too many do, the
    // caller waits.  In pumped mode at once.
    void feed(Frame frame);
    // The hooks have seen all that was fed.
    bool is_idle() const;
    Counts counts() const;
    // The receive thread ends; what waits is not seen.
    void stop();

private:
    friend struct Contract;
    struct Binding {
        uv_receive_hook hook;
        std::string name;
    };
    void see(const Frame &frame);
    void run();

    Card &card_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, Binding> bindings_; // by port and ethertype

    mutable std::mutex mutex_; // guards what follows
    mutable std::condition_variable changed_;
    std::deque<Frame> waiting_;
    Counts counts_{};
    bool sees_ = false; // the thread shows a frame to the hooks
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace chassis::ports
