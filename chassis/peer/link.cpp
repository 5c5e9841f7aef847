// The link between two cards: meeting, calls, loss, take-over.

#include "chassis/peer/link.h"

#include "chassis/chassis.h"
#include "chassis/peer/state.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace chassis::peer {

namespace {

constexpr std::int64_t msec = 1'000'000;
constexpr std::int64_t room_nsec = msec;           // a worker takes hundreds of messages meanwhile
constexpr std::int64_t look_nsec = 50 * msec;      // who else is there
constexpr std::int64_t hello_nsec = 2000 * msec;   // then a guest has nothing to say
constexpr std::int64_t sure_nsec = 2000 * msec;    // a card is by then
constexpr std::int64_t start_nsec = 1000 * msec;   // for the other card to start as well
constexpr std::int64_t stall_nsec = 10'000 * msec; // then even a card without tables takes over

constexpr std::size_t max_guests = 16;
constexpr int sent_bytes = 4 << 20; // on their way outlive the sender; as far as the system allows

std::string directory_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? "." : path.substr(0, slash);
}

bool say_hello(int socket, const Claim &claim) {
    const auto frame = encode_hello(claim);
    return ::send(socket, frame.data(), frame.size(), MSG_NOSIGNAL) == ssize_t(frame.size());
}

} // namespace

std::string slot_lock_path(const std::string &directory, unsigned slot) {
    return directory + "/card-" + std::to_string(slot) + ".lock";
}

Link::Link(Card &card, std::string path)
    : card_(card), path_(std::move(path)),
      peer_lock_path_(slot_lock_path(directory_of(path_), card.peer.peer_slot())),
      wake_(eventfd(0, EFD_CLOEXEC)), complaints_(card.slot()), alone_since_nsec_(os::raw_nsec()),
      outbox_([this] { card_.peer.connected(); }),
      pulse_(
          path_, card.slot(), card.peer.peer_slot(),
          {[this] { return card_.peer.claim(); }, [this](const Claim &other) { heard(other); }}) {}

Link::~Link() {
    stop();
}

void Link::start() {
    pulse_.start();
    keeper_ = std::thread([this] { keep(); });
}

void Link::stop() {
    if (stopping_.exchange(true))
        return;
    eventfd_write(wake_.get(), 1);
    if (keeper_.joinable())
        keeper_.join();
    pulse_.stop();
    // Whoever can have the lock is the last one here and clears away.
    if (!lock_)
        lock_ = LockFile::take(path_ + ".lock");
    if (lock_)
        unlink(path_.c_str());
    lock_.release();
}

bool Link::send(std::string_view name, std::span<const std::byte> payload) {
    return outbox_.send(encode_frame(name, payload));
}

// --- meeting the other card --------------------------------------------------------------------

void Link::keep() {
    while (!stopping_) {
        take_over_when_due();
        invite();
        if (std::optional<Guest> guest = wait_for_hello())
            serve(std::move(*guest));
    }
}

// Listens, where nobody else does, or calls on who listens.
void Link::invite() {
    if (listener_ && inode_of(path_) != listener_inode_)
        listener_.reset(); // somebody took the socket away, or put one of his own in its place
    if (!lock_)
        lock_ = LockFile::take(path_ + ".lock");
    if (lock_ && !listener_) {
        listener_ = listen_stream(path_);
        listener_inode_ = inode_of(path_);
    }
    if (lock_ || os::raw_nsec() < next_try_nsec_ ||
        std::ranges::any_of(guests_, [](const Guest &guest) { return guest.told.has_value(); }))
        return;
    next_try_nsec_ = os::raw_nsec() + look_nsec;
    const Claim own = card_.peer.claim();
    Descriptor socket = connect_stream(path_);
    if (socket && say_hello(socket.get(), own))
        welcome(std::move(socket), own);
}

void Link::welcome(Descriptor socket, std::optional<Claim> told) {
    if (guests_.size() == max_guests)
        guests_.pop_front();
    guests_.push_back({std::move(socket), told, os::raw_nsec() + hello_nsec, {}});
}

// A look at all who may say hello, for a moment.
std::optional<Link::Guest> Link::wait_for_hello() {
    std::vector<pollfd> polled{{wake_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    for (const Guest &guest : guests_)
        polled.push_back({guest.socket.get(), POLLIN, 0});
    if (poll(polled.data(), polled.size(), int(look_nsec / msec)) < 0 || polled[0].revents)
        return std::nullopt;
    std::size_t at = 2;
    for (auto guest = guests_.begin(); guest != guests_.end();) {
        const bool has_spoken = polled[at++].revents != 0;
        const Hello hello = has_spoken ? hello_of(*guest) : Hello::awaited;
        if (hello == Hello::said) {
            std::optional<Guest> peer(std::move(*guest));
            guests_.clear();
            return peer;
        }
        const bool stays = hello == Hello::awaited && os::raw_nsec() < guest->deadline_nsec;
        guest = stays ? std::next(guest) : guests_.erase(guest);
    }
    if (polled[1].revents) {
        Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket)
            welcome(std::move(socket), std::nullopt);
        else if (!guests_.empty()) // no descriptor is free
            guests_.pop_front();
        else
            static_cast<void>(wait_readable(-1, look_nsec));
    }
    return std::nullopt;
}

Link::Hello Link::hello_of(Guest &guest) {
    Frame frame;
    if (!read_some(guest.socket.get(), guest.heard))
        return Hello::refused;
    const FrameBuffer::Next next = guest.heard.next(frame);
    if (next == FrameBuffer::Next::incomplete)
        return Hello::awaited;
    const auto other =
        next == FrameBuffer::Next::frame ? read_hello(frame, card_.peer.peer_slot()) : std::nullopt;
    if (!other)
        return complaints_.say("turns somebody away who is not its peer"), Hello::refused;
    return settle_roles(guest, *other) ? Hello::said : Hello::refused;
}

// By the claim that the other card has been told; if it does not hold any more, both meet again.
bool Link::settle_roles(Guest &guest, const Claim &other) {
    const Claim own = guest.told.value_or(card_.peer.claim());
    if (!guest.told && !say_hello(guest.socket.get(), own))
        return false;
    if (!card_.peer.settle(own, other))
        return false;
    pulse_.beat();
    return true;
}

Link::Wait Link::wait_readable(int descriptor, std::int64_t timeout_nsec) const {
    std::array<pollfd, 2> polled{{{wake_.get(), POLLIN, 0}, {descriptor, POLLIN, 0}}};
    const int ready = poll(polled.data(), polled.size(), int(timeout_nsec / msec));
    if (polled[0].revents)
        return Wait::stopped;
    return ready > 0 ? Wait::ready : Wait::timeout;
}

// --- a connection ------------------------------------------------------------------------------

// Ends when the other card hangs up, or is silent and all that it sent has been read.
void Link::serve(Guest peer) {
    const auto socket = std::make_shared<const Descriptor>(std::move(peer.socket));
    up(socket);
    while (deliver_all(peer.heard)) {
        const Wait wait = wait_readable(socket->get(), look_nsec);
        if (wait == Wait::stopped || (wait == Wait::timeout && pulse_.is_silent()))
            break;
        if (wait == Wait::ready && !read_some(socket->get(), peer.heard))
            break;
        if (wait == Wait::ready)
            pulse_.hear();
    }
    down();
    shutdown(socket->get(), SHUT_RDWR);
}

void Link::up(std::shared_ptr<const Descriptor> socket) {
    setsockopt(socket->get(), SOL_SOCKET, SO_SNDBUF, &sent_bytes, sizeof sent_bytes);
    pulse_.hear();
    outbox_.open(std::move(socket));
    was_connected_ = true;
    card_.peer.state().has_tables = false;
    card_.peer.state().exists = true;
    if (card_.peer.role() == Role::master)
        card_.peer.connected();
}

void Link::down() {
    card_.peer.state().exists = false;
    outbox_.close();
    card_.peer.end_connected();
    arrived_ = card_.os.posted();
    alone_since_nsec_ = os::raw_nsec();
}

bool Link::deliver_all(FrameBuffer &buffer) {
    Frame frame;
    for (;;) {
        switch (buffer.next(frame)) {
        case FrameBuffer::Next::incomplete:
            return true;
        case FrameBuffer::Next::malformed:
            return complaints_.say("got a malformed frame"), false;
        case FrameBuffer::Next::frame:
            if (!deliver(frame))
                return false;
        }
    }
}

bool Link::deliver(const Frame &frame) {
    while (!card_.peer.has_room_for(frame.name, frame.payload.size()))
        if (wait_readable(-1, room_nsec) == Wait::stopped)
            return false;
    if (card_.peer.deliver(frame.name, frame.payload) != 0)
        complaints_.say("refused a call of %zu bytes", frame.payload.size());
    return true;
}

bool Link::read_some(int socket, FrameBuffer &buffer) {
    std::array<std::byte, 65536> bytes;
    const ssize_t count = recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR;
    buffer.append({bytes.data(), std::size_t(count)});
    return count > 0;
}

// --- roles -------------------------------------------------------------------------------------

// Two masters may hear of each other before they meet.
void Link::heard(const Claim &other) {
    const Claim own = card_.peer.claim();
    if (own.is_master() && other.is_master()) {
        static_cast<void>(card_.peer.settle(own, other));
        if (is_master_of(own, other))
            pulse_.beat();
    } else if (other.is_master()) {
        card_.peer.know_term(other.term);
    }
}

void Link::make_sure() const {
    const std::int64_t deadline = os::raw_nsec() + sure_nsec;
    while (!pulse_.is_sure() && os::raw_nsec() < deadline)
        std::this_thread::sleep_for(std::chrono::nanoseconds(room_nsec));
}

// The worker carries out what arrived as the standby's that it was sent to.
void Link::take_over_when_due() {
    while (!stopping_ && card_.peer.role() != Role::master && is_due()) {
        if (card_.os.has_finished(arrived_)) {
            card_.peer.become_master();
            pulse_.beat();
        } else {
            static_cast<void>(wait_readable(-1, room_nsec));
        }
    }
}

bool Link::is_due() const {
    const std::int64_t alone_nsec = os::raw_nsec() - alone_since_nsec_;
    const Claim other = pulse_.last();
    if (other.standing == Standing::leaving || !LockFile::is_held(peer_lock_path_))
        return was_connected_ || alone_nsec >= start_nsec;
    if (pulse_.is_silent())
        return card_.peer.state().has_tables || alone_nsec >= stall_nsec;
    return !other.is_master() && is_master_of(card_.peer.claim(), other) &&
           alone_nsec >= start_nsec;
}

} // namespace chassis::peer
