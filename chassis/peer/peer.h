// The hot-standby service of a card: its role, the other card's presence, the callbacks, and the
// remote call by name.
//
// A link joins two cards: in one process (pumped: the call is made at once on the other card) or
// through a Unix socket (threaded: length-prefixed frames in order, a heartbeat, and switch-over
// when the peer is lost).  Only exported receivers can be called, and only with a bounded length.
#pragma once

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

    // In one process: joins two cards; either may be cut off again.
    void join(Peer &other);
    void cut(); // the other card is gone (both sides see it)

    // Over a socket: the card that finds no listener at `path` listens there; the other connects.
    // The lower slot becomes master when both start; losing the connection or the heartbeat makes a
    // standby master.
    void open(const std::string &path);
    void close();

    bool exists() const;         // hss_IsPeerExist
    bool standby_usable() const; // get_standby_corecard_can_be_use
    void set_standby_usable(bool usable);
    unsigned peer_slot() const;

    // The events of the service.  connected() calls the callback registered with
    // hss_backupConnectedRegister: in threaded mode on a thread of its own, which blocks until the
    // slave confirms; in pumped mode at once, with the slot-up take answered without waiting.
    void connected();
    void become_master();
    // Is called before a card becomes master, on the thread that makes it one.
    void before_master(std::function<void()> hook);

    // Sends a call to the other card: 0 when it was accepted.  What hss_TellBackToExcuteSpe does.
    int call(std::string_view name, std::span<const std::byte> payload);

    // Calls a receiver by name on this card, as the service would: -1 for a name that is not
    // exported or a length that is out of bounds.
    int deliver(std::string_view name, std::span<const std::byte> payload);

    // Calls sent by this card since the last clear, when recording is on.
    void record(bool on);
    const std::vector<Call> &calls() const;
    void clear_calls();
    void drop_calls(bool on); // the peer takes nothing: calls answer -1
    // Is told of every call that this card makes, and whether the peer takes it, on the caller's
    // thread.  For the rig: in one process the peer takes it at once, and later than the watcher.
    using Watcher = std::function<void(std::string_view name, std::span<const std::byte>, bool)>;
    void watch(Watcher watcher);

    struct State;
    State &state() { return *state_; }

private:
    Card &card_;
    std::unique_ptr<State> state_;
};

// Whether the peer card may call a function of this name: the exported receivers.
bool is_receiver(std::string_view name);

} // namespace chassis::peer
