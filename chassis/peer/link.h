// The link between two cards over Unix sockets in one directory.
//
// One of the cards listens at DIR/shelf.sock, the other connects; which of them is of no further
// meaning.  The listener is the card that holds the lock beside the socket.  Whoever connects says
// hello with its claim and is answered with the other's: from the two both settle who is master
// (claim.h).  Then the stream carries calls in both directions, and nothing else.  Who connects and
// says nothing keeps nobody else waiting.
//
// A call is delivered when the queue of this card has room for all that it may post; until then it
// waits, in the stream or with its sender (outbox.h).
//
// A standby becomes master when the other card has gone or is silent (pulse.h), after it has
// delivered all that arrived and its worker has carried that out.  What it may then miss is what
// the other card never told: so one whose tables have not come whole takes over from a card that is
// merely silent only after a long time.  Whether the other card's process lives is told by the lock
// that each card holds for its slot.
//
// Threads: the keeper connects, reads, calls the receivers and takes over; the outbox' and the
// pulse's; anyone sends.
#pragma once

#include "chassis/peer/complaints.h"
#include "chassis/peer/frame.h"
#include "chassis/peer/outbox.h"
#include "chassis/peer/peer.h"
#include "chassis/peer/pulse.h"

#include <atomic>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace chassis::peer {

// Held by the process of the card in a slot as long as it lives.
std::string slot_lock_path(const std::string &directory, unsigned slot);

class Link {
public:
    Link(Card &card, std::string path);
    ~Link();

    void start();
    void stop(); // joins the threads; the peer sees the connection end
    bool send(std::string_view name, std::span<const std::byte> payload);
    bool has_sent_all() const { return outbox_.is_empty(); }
    void make_sure() const; // of the role: listens for a beat if this card was stopped

private:
    struct Guest { // that has not said hello yet
        Descriptor socket;
        std::optional<Claim> told; // where this card connected: what it said of itself
        std::int64_t deadline_nsec;
        FrameBuffer heard;
    };
    enum class Wait { ready, timeout, stopped };
    enum class Hello { said, awaited, refused };

    void keep();
    void invite();
    void welcome(Descriptor socket, std::optional<Claim> told);
    std::optional<Guest> wait_for_hello();
    Hello hello_of(Guest &guest);
    bool settle_roles(Guest &guest, const Claim &other);

    void serve(Guest guest);
    bool deliver_all(FrameBuffer &buffer);
    bool deliver(const Frame &frame);
    bool read_some(int socket, FrameBuffer &buffer);
    void up(std::shared_ptr<const Descriptor> socket);
    void down();

    void take_over_when_due();
    bool is_due() const;
    void heard(const Claim &other);
    Wait wait_readable(int descriptor, std::int64_t timeout_nsec) const;

    Card &card_;
    const std::string path_;
    const std::string peer_lock_path_;
    const Descriptor wake_; // readable once the link stops
    std::atomic<bool> stopping_{false};

    // The keeper's own.
    Complaints complaints_;
    LockFile lock_; // of the listener
    Descriptor listener_;
    std::uint64_t listener_inode_ = 0;
    std::list<Guest> guests_;
    std::int64_t next_try_nsec_ = 0; // to connect
    std::int64_t alone_since_nsec_;
    std::uint32_t arrived_ = 0; // the queue's count when the connection ended
    bool was_connected_ = false;

    Outbox outbox_;
    Pulse pulse_;
    std::thread keeper_;
};

} // namespace chassis::peer
