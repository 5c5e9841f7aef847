// The link between two cards: connecting, roles, frames, heartbeat, loss.

#include "chassis/peer/link.h"

#include "chassis/chassis.h"
#include "chassis/peer/state.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace chassis::peer {

namespace {

constexpr std::int64_t msec = 1'000'000;
constexpr std::int64_t retry_nsec = 50 * msec;
constexpr std::int64_t heartbeat_nsec = 200 * msec;
constexpr std::int64_t silence_nsec = 1500 * msec;
constexpr std::int64_t alone_nsec = 1000 * msec;
constexpr std::int64_t hello_nsec = 2000 * msec;
constexpr std::int64_t send_nsec = 2000 * msec;

constexpr std::uint32_t hello_magic = 0x53484c46;
constexpr std::uint32_t hello_version = 1;
constexpr std::string_view hello_name = "hello"; // neither is a receiver's name
constexpr std::string_view heartbeat_name = "heartbeat";

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int new_socket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

} // namespace

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    reset();
    number_ = std::exchange(other.number_, -1);
    return *this;
}

void Descriptor::reset() {
    if (number_ >= 0)
        close(std::exchange(number_, -1));
}

Link::Link(Card &card, std::string path)
    : card_(card), path_(std::move(path)), wake_(eventfd(0, EFD_CLOEXEC)),
      alone_deadline_nsec_(os::raw_nsec() + alone_nsec) {}

Link::~Link() {
    stop();
}

void Link::start() {
    keeper_ = std::thread([this] { keep(); });
    pulse_ = std::thread([this] { pulse(); });
}

void Link::stop() {
    if (stopping_.exchange(true))
        return;
    eventfd_write(wake_.get(), 1);
    cut();
    keeper_.join();
    pulse_.join();
    // Whoever can have the lock is the last one here and clears away.
    if (!lock_)
        lock_ = try_lock();
    if (lock_) {
        unlink(path_.c_str());
        unlink((path_ + ".lock").c_str());
    }
}

// --- keeping a connection
// -----------------------------------------------------------------------------------------

void Link::keep() {
    while (!stopping_) {
        const Descriptor socket = connect_or_accept();
        if (!socket)
            continue;
        {
            std::lock_guard lock(writing_);
            socket_ = socket.get();
        }
        if (!stopping_)
            serve(socket.get());
        std::lock_guard lock(writing_);
        socket_ = -1;
    }
}

// One try: a connection, or nothing after a short wait.
Descriptor Link::connect_or_accept() {
    alone_too_long();
    if (!listener_) {
        if (Descriptor socket = try_connect())
            return socket;
        if (!try_listen())
            return static_cast<void>(wait_readable(-1, retry_nsec)), Descriptor();
    }
    if (wait_readable(listener_.get(), retry_nsec) != Wait::ready)
        return Descriptor();
    return Descriptor(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

Descriptor Link::try_connect() const {
    Descriptor socket(new_socket());
    const sockaddr_un address = address_of(path_);
    const auto *const generic = reinterpret_cast<const sockaddr *>(&address);
    if (connect(socket.get(), generic, sizeof address) != 0)
        socket.reset();
    return socket;
}

// The lock file may have been removed by a card that closed while this one waited: the lock counts
// only while the file still stands under its name.
Descriptor Link::try_lock() const {
    const std::string lock_path = path_ + ".lock";
    Descriptor lock(::open(lock_path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    struct stat mine {
    }, named{};
    if (lock && (flock(lock.get(), LOCK_EX | LOCK_NB) != 0 || fstat(lock.get(), &mine) != 0 ||
                 ::stat(lock_path.c_str(), &named) != 0 || mine.st_ino != named.st_ino))
        lock.reset();
    return lock;
}

bool Link::try_listen() {
    Descriptor lock = try_lock();
    if (!lock)
        return false;
    unlink(path_.c_str());
    Descriptor socket(new_socket());
    const sockaddr_un address = address_of(path_);
    const mode_t mask = umask(0177);
    const int bound =
        bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    umask(mask);
    if (bound != 0 || listen(socket.get(), 4) != 0)
        return false;
    lock_ = std::move(lock);
    listener_ = std::move(socket);
    return true;
}

void Link::alone_too_long() {
    if (os::raw_nsec() >= alone_deadline_nsec_)
        card_.peer.become_master();
}

Link::Wait Link::wait_readable(int descriptor, std::int64_t timeout_nsec) const {
    std::array<pollfd, 2> polled{{{wake_.get(), POLLIN, 0}, {descriptor, POLLIN, 0}}};
    const int ready = poll(polled.data(), polled.size(), int(timeout_nsec / msec));
    if (polled[0].revents)
        return Wait::stopped;
    return ready > 0 ? Wait::ready : Wait::timeout;
}

// --- a connection
// -------------------------------------------------------------------------------------------------

void Link::serve(int socket) {
    FrameBuffer buffer;
    if (!say_hello(socket, buffer))
        return static_cast<void>(wait_readable(-1, retry_nsec));
    up();
    std::int64_t heard = os::raw_nsec();
    while (handle(buffer)) {
        const std::int64_t left = heard + silence_nsec - os::raw_nsec();
        // What waits to be read is heard as well, however long the last call took.
        if (wait_readable(socket, std::max<std::int64_t>(left, 0)) != Wait::ready)
            break;
        if (!read_some(socket, buffer))
            break;
        heard = os::raw_nsec();
    }
    down();
}

bool Link::say_hello(int socket, FrameBuffer &buffer) {
    const Hello own{hello_magic, hello_version, card_.slot(), card_.peer.role() == Role::master};
    {
        std::lock_guard lock(writing_);
        if (!write_all(encode_frame(hello_name, std::as_bytes(std::span(&own, 1)))))
            return false;
    }
    const std::int64_t deadline = os::raw_nsec() + hello_nsec;
    Frame frame;
    for (;;) {
        const FrameBuffer::Next next = buffer.next(frame);
        if (next == FrameBuffer::Next::frame)
            break;
        const std::int64_t left = deadline - os::raw_nsec();
        if (next == FrameBuffer::Next::malformed || left <= 0 ||
            wait_readable(socket, left) != Wait::ready || !read_some(socket, buffer))
            return false;
    }
    Hello other{};
    if (frame.name != hello_name || frame.payload.size() != sizeof other)
        return false;
    std::memcpy(&other, frame.payload.data(), sizeof other);
    return accept_hello(other);
}

// Both cards decide from the same two answers.  A master stays master; of two, and of none, it is
// the lower slot.
bool Link::accept_hello(const Hello &other) {
    if (other.magic != hello_magic || other.version != hello_version ||
        other.slot != card_.peer.peer_slot()) {
        std::fprintf(stderr, "chassis: slot %u refuses a peer that says it is slot %u\n",
                     card_.slot(), unsigned(other.slot));
        return false;
    }
    const bool was_master = card_.peer.role() == Role::master;
    const bool lower = card_.slot() < other.slot;
    const bool is_master = was_master == bool(other.master) ? lower : was_master;
    if (is_master)
        card_.peer.become_master();
    else
        card_.peer.set_role(Role::standby);
    return true;
}

void Link::up() {
    {
        std::lock_guard lock(writing_);
        up_ = true;
    }
    card_.peer.state().exists = true;
    if (card_.peer.role() == Role::master)
        card_.peer.connected();
}

void Link::down() {
    {
        std::lock_guard lock(writing_);
        up_ = false;
    }
    card_.peer.state().exists = false;
    if (stopping_)
        return;
    alone_deadline_nsec_ = os::raw_nsec();
    card_.peer.become_master();
}

bool Link::handle(FrameBuffer &buffer) {
    Frame frame;
    for (;;) {
        switch (buffer.next(frame)) {
        case FrameBuffer::Next::incomplete:
            return true;
        case FrameBuffer::Next::malformed:
            std::fprintf(stderr, "chassis: slot %u got a malformed frame\n", card_.slot());
            return false;
        case FrameBuffer::Next::frame:
            if (frame.name != heartbeat_name && card_.peer.deliver(frame.name, frame.payload) != 0)
                std::fprintf(stderr, "chassis: slot %u refused a call of %zu bytes\n", card_.slot(),
                             frame.payload.size());
        }
    }
}

bool Link::read_some(int socket, FrameBuffer &buffer) {
    std::array<std::byte, 65536> bytes;
    const ssize_t count = recv(socket, bytes.data(), bytes.size(), 0);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR;
    buffer.append({bytes.data(), std::size_t(count)});
    return count > 0;
}

// --- sending
// ------------------------------------------------------------------------------------------------------

bool Link::send(std::string_view name, std::span<const std::byte> payload) {
    const std::vector<std::byte> frame = encode_frame(name, payload);
    std::lock_guard lock(writing_);
    return up_ && write_all(frame);
}

// With `writing_` held.  A frame that cannot be written whole ends the connection, since its rest
// would be misread.
bool Link::write_all(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count > 0) {
            bytes = bytes.subspan(std::size_t(count));
            continue;
        }
        pollfd polled{socket_, POLLOUT, 0};
        if ((errno != EAGAIN && errno != EINTR) || poll(&polled, 1, int(send_nsec / msec)) <= 0) {
            up_ = false;
            shutdown(socket_, SHUT_RDWR);
            return false;
        }
    }
    return true;
}

void Link::cut() {
    std::lock_guard lock(writing_);
    up_ = false;
    if (socket_ >= 0)
        shutdown(socket_, SHUT_RDWR);
}

void Link::pulse() {
    const std::vector<std::byte> frame = encode_frame(heartbeat_name, {});
    while (wait_readable(-1, heartbeat_nsec) != Wait::stopped) {
        std::lock_guard lock(writing_);
        if (up_)
            static_cast<void>(write_all(frame));
    }
}

} // namespace chassis::peer
