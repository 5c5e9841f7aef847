// What this card sends to the other.
//
// A frame is written straight to the socket while that takes it, so that it survives the death of
// this process; what does not fit waits here, and a thread writes it as room comes.  So a sender
// never waits for the other card.
//
// When the room here is used up, frames are refused until all that waits is gone: what comes behind
// a hole is of no use until the tables travel anew, which `after_hole` sees to (on the writer's
// thread).
#pragma once

#include "chassis/os/state.h"
#include "chassis/peer/socket.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <span>
#include <thread>
#include <vector>

namespace chassis::peer {

class Outbox {
public:
    explicit Outbox(std::function<void()> after_hole);
    ~Outbox();
    Outbox(const Outbox &) = delete;
    Outbox &operator=(const Outbox &) = delete;

    void open(std::shared_ptr<const Descriptor> socket);
    void close(); // what waits is lost
    // False when no socket is open or there is no room.
    bool send(std::vector<std::byte> frame);
    bool is_empty() const; // nothing waits: what was sent survives this process

private:
    void keep_writing();
    bool write(std::span<const std::byte> &bytes);
    void write_waiting();
    void drop_all();

    const std::function<void()> after_hole_;
    mutable os::Monitor monitor_; // guards what follows
    std::shared_ptr<const Descriptor> socket_;
    std::deque<std::vector<std::byte>> waiting_;
    std::size_t written_ = 0; // bytes of the first
    std::size_t waiting_bytes_ = 0;
    bool has_hole_ = false, is_ending_ = false;
    std::thread writer_;
};

} // namespace chassis::peer
