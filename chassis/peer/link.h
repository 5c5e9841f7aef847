// The link between two cards over a Unix socket.
//
// One of the cards listens, the other connects; which of them is of no further meaning.  The
// listener is the card that holds a lock beside the socket's path, so that a listener that was
// killed leaves no doubt: the lock went with it, and the card that is left takes over.  After the
// connection both say who they are, decide the roles alike, and then carry calls, with a heartbeat
// in between.
//
// Threads: "keeper" makes the connection, reads it and calls the receivers; "pulse" sends the
// heartbeat; anyone sends. A send waits at most two seconds for room, then the link is cut.
#pragma once

#include "chassis/os/state.h"
#include "chassis/peer/frame.h"
#include "chassis/peer/peer.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace chassis::peer {

class Descriptor { // closes what it holds
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept;
    ~Descriptor() { reset(); }
    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    void reset();

private:
    int number_;
};

class Link {
public:
    Link(Card &card, std::string path);
    ~Link();

    void start();
    void stop(); // joins the threads; the peer sees the connection end
    bool send(std::string_view name, std::span<const std::byte> payload);

private:
    struct Hello {
        std::uint32_t magic, version, slot, master;
    };
    enum class Wait { ready, timeout, stopped };

    void keep();
    void pulse();
    Descriptor connect_or_accept();
    Descriptor try_connect() const;
    Descriptor try_lock() const;
    bool try_listen();
    void alone_too_long();
    void serve(int socket);
    bool say_hello(int socket, FrameBuffer &buffer);
    bool accept_hello(const Hello &other);
    bool handle(FrameBuffer &buffer);
    void up();
    void down();
    Wait wait_readable(int descriptor, std::int64_t timeout_nsec) const;
    bool read_some(int socket, FrameBuffer &buffer);
    bool write_all(std::span<const std::byte> bytes);
    void cut();

    Card &card_;
    const std::string path_;
    Descriptor wake_; // readable once the link stops
    Descriptor lock_, listener_;
    std::int64_t alone_deadline_nsec_;
    std::atomic<bool> stopping_{false};

    os::Monitor writing_; // guards the two below, and the order of frames
    int socket_ = -1;     // while the link is up or coming up
    bool up_ = false;

    std::thread keeper_, pulse_;
};

} // namespace chassis::peer
