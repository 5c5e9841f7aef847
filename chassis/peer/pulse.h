// The heartbeat of a card: its claim, sent to the other card several times a second, and what is
// heard of the other's.
//
// It has a thread and a datagram socket of its own, named like the shelf's with the slot behind it,
// and takes no lock that anyone holds for long: neither tables that travel nor a card that is busy
// makes it falter.
//
// Silence is counted in this card's own beats, not by the clock: a card that was stopped itself has
// to listen first.  For the same reason a master that was stopped is not sure of its role before it
// has listened for a beat.
#pragma once

#include "chassis/peer/claim.h"
#include "chassis/peer/socket.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace chassis::peer {

class Pulse {
public:
    struct Owner {
        std::function<Claim()> claim;             // of this card; any thread
        std::function<void(const Claim &)> heard; // the other's; on the pulse's thread
    };
    Pulse(const std::string &shelf_path, unsigned slot, unsigned peer_slot, Owner owner);
    ~Pulse() { stop(); }
    Pulse(const Pulse &) = delete;
    Pulse &operator=(const Pulse &) = delete;

    void start();
    void stop();       // and says that the card leaves
    void beat() const; // now: there is news.  Any thread

    bool is_silent() const { return silent_beats_ >= max_silent_beats; } // for 1.5 seconds
    void hear() { silent_beats_ = 0; }                                   // by other means
    Claim last() const;                                                  // heard of the other card
    bool is_sure() const; // that nobody took over while this card was stopped

private:
    static constexpr unsigned max_silent_beats = 11;

    void keep_beating();
    bool listen_until(std::int64_t deadline_nsec); // false once it stops
    void receive();
    void send(const Claim &claim) const;

    const std::string own_path_, peer_path_;
    const unsigned peer_slot_;
    const Owner owner_;
    const Descriptor wake_; // readable once it stops
    Descriptor socket_;
    std::atomic<unsigned> silent_beats_{max_silent_beats};
    std::atomic<std::int64_t> beat_at_nsec_{0}, sure_from_nsec_{0};
    mutable std::mutex mutex_; // guards the claim
    Claim last_{};
    std::thread thread_;
};

} // namespace chassis::peer
