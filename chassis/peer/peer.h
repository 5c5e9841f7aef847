// The hot-standby service of a card: its role, the other card's presence, the callbacks, and the
// remote call by name.
//
// A link joins two cards: in one process (pumped: the call is made on the other card as soon as its
// queue has room, mostly at once) or through Unix sockets (threaded: link.h).  Only exported
// receivers can be called, and only with a bounded length.
//
// Each take-over has a term, one above the last that was heard of; of two masters the higher term
// stays (claim.h).
#pragma once

#include "chassis/peer/claim.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace chassis {
class Card;
}

namespace chassis::peer {

enum class Role { standby, master };

inline constexpr std::uint32_t max_call_bytes = 1u << 20; // a longer buffer is refused
inline constexpr std::size_t max_waiting_bytes = 64u
                                                 << 20; // of calls that the peer has no room for

struct Call { // one remote call, kept by the journal
    std::string name;
    std::vector<std::byte> payload;
};

class Peer {
public:
    explicit Peer(Card &card);
    ~Peer();

    Role role() const;
    void set_role(Role role); // tells nobody; become_master() is the switch-over

    // Whether another card took over a moment ago, perhaps while this process was stopped: then what
    // is asked of the master is not for this card.  It may have to listen for a moment to know.
    bool is_replaced() const;

    std::uint64_t term() const;         // of the last take-over that this card has heard of
    void know_term(std::uint64_t term); // one that a standby hears of elsewhere
    Claim claim() const;
    // Settles with the other card who is master; false when this card's claim was another by then.
    bool settle(const Claim &own, const Claim &other);

    // In one process: joins two cards; either may be cut off again.
    void join(Peer &other);
    void cut(); // the other card is gone (both sides see it); what arrived before is delivered
    // Delivers what waits, while there is room; whether nothing is left.
    bool deliver_arrived();

    // Over a socket: the card that finds no listener at `path` listens there; the other connects.
    // The lower slot becomes master when both start; when the peer is lost, a standby does.
    void open(const std::string &path);
    void close();

    bool exists() const;         // hss_IsPeerExist
    bool standby_usable() const; // get_standby_corecard_can_be_use
    void set_standby_usable(bool usable);
    unsigned peer_slot() const;
    // The MAC that both cards answer with: this card's own until a master told its own.
    std::array<std::uint8_t, 6> device_mac() const;

    // The events of the service.  connected() calls the callback registered with
    // hss_backupConnectedRegister: in threaded mode on a thread of its own, which blocks until the
    // slave confirms or is lost; in pumped mode at once, with the slot-up take answered without
    // waiting.
    void connected();
    void end_connected(); // the callback need not wait any longer
    // Takes over.  In one process the card first carries out what arrived.
    void become_master();
    // Is called before a card becomes master, on the thread that makes it one.  It may let the card
    // know of a later term; the term of the take-over will be term() + 1.
    void before_master(std::function<void()> hook);
    // Is called on the worker of a card that has become master: in front of the library's switch-over
    // process, which makes requests of its own, and behind it, before any request that comes later.
    void around_master(std::function<void()> hook);

    // Sends a call to the other card: 0 when it was accepted.  What hss_TellBackToExcuteSpe does.
    int call(std::string_view name, std::span<const std::byte> payload);

    // Whether the other card will have all calls that were accepted, also when this process ends now.
    bool has_sent_all() const;

    // Calls a receiver by name on this card, as the service would: -1 for a name that is not
    // exported or a length that is out of bounds.
    int deliver(std::string_view name, std::span<const std::byte> payload);
    // Whether the queue has room for all that this receiver may post.
    bool has_room_for(std::string_view name, std::size_t length_bytes) const;

    // Calls sent by this card since the last clear, when recording is on.
    void record(bool on);
    const std::vector<Call> &calls() const;
    void clear_calls();
    // Is asked for each call whether the peer takes it; one that is not taken answers -1.
    void take_calls(std::function<bool()> whether);
    // Is told of every call that this card makes, and whether the peer takes it, on the caller's
    // thread.  For the rig: in one process the peer takes it at once, and later than the watcher.
    using Watcher = std::function<void(std::string_view name, std::span<const std::byte>, bool)>;
    void watch(Watcher watcher);

    struct State;
    State &state() { return *state_; }

private:
    void make_master(std::uint64_t term);
    void make_standby(std::uint64_t term);
    int arrive(std::string_view name, std::span<const std::byte> payload);
    void call_connected();
    void keep_connected();

    Card &card_;
    std::unique_ptr<State> state_;
};

// Whether the peer card may call a function of this name: the exported receivers.
bool is_receiver(std::string_view name);

} // namespace chassis::peer
