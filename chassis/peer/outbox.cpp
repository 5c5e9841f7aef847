#include "chassis/peer/outbox.h"

#include "chassis/peer/peer.h"

#include <cerrno>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>

namespace chassis::peer {

namespace {

constexpr int frames_of_a_turn = 64; // then a sender that waits for the lock has its turn
constexpr int writable_msec = 100;   // a closed socket is noticed at once, an end after this

} // namespace

Outbox::Outbox(std::function<void()> after_hole)
    : after_hole_(std::move(after_hole)), writer_([this] { keep_writing(); }) {}

Outbox::~Outbox() {
    {
        std::lock_guard lock(monitor_);
        is_ending_ = true;
        monitor_.signal();
    }
    writer_.join();
}

void Outbox::open(std::shared_ptr<const Descriptor> socket) {
    std::lock_guard lock(monitor_);
    drop_all();
    socket_ = std::move(socket);
}

void Outbox::close() {
    std::lock_guard lock(monitor_);
    drop_all();
}

bool Outbox::send(std::vector<std::byte> frame) {
    std::lock_guard lock(monitor_);
    std::span<const std::byte> rest = frame;
    if (!socket_ || has_hole_ || (waiting_.empty() && !write(rest)))
        return false;
    if (rest.empty())
        return true;
    if (waiting_bytes_ + rest.size() > max_waiting_bytes)
        return has_hole_ = true, false; // of a frame that was begun, there is always room
    if (waiting_.empty())
        written_ = frame.size() - rest.size();
    waiting_bytes_ += rest.size();
    waiting_.push_back(std::move(frame));
    monitor_.signal();
    return true;
}

bool Outbox::is_empty() const {
    std::lock_guard lock(monitor_);
    return waiting_.empty();
}

// Takes from `bytes` what the socket takes; false once it is broken.
bool Outbox::write(std::span<const std::byte> &bytes) {
    while (!bytes.empty()) {
        const ssize_t count =
            ::send(socket_->get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EAGAIN)
            return true;
        if (count < 0)
            return drop_all(), false;
        bytes = bytes.subspan(std::size_t(count));
    }
    return true;
}

void Outbox::drop_all() {
    socket_.reset();
    waiting_.clear();
    written_ = waiting_bytes_ = 0;
    has_hole_ = false;
}

void Outbox::keep_writing() {
    std::unique_lock lock(monitor_);
    while (!is_ending_) {
        if (waiting_.empty() && std::exchange(has_hole_, false)) {
            lock.unlock();
            after_hole_();
            lock.lock();
        } else if (waiting_.empty()) {
            monitor_.wait();
        } else {
            const std::shared_ptr<const Descriptor> socket = socket_;
            lock.unlock();
            pollfd polled{socket->get(), POLLOUT, 0};
            poll(&polled, 1, writable_msec);
            lock.lock();
            if (socket == socket_)
                write_waiting();
        }
    }
}

void Outbox::write_waiting() {
    for (int turn = 0; turn < frames_of_a_turn && !waiting_.empty(); ++turn) {
        const std::span<const std::byte> frame = waiting_.front();
        std::span<const std::byte> rest = frame.subspan(written_);
        const std::size_t before = rest.size();
        if (!write(rest))
            return;
        waiting_bytes_ -= before - rest.size();
        written_ = frame.size() - rest.size();
        if (!rest.empty())
            return;
        waiting_.pop_front();
        written_ = 0;
    }
}

} // namespace chassis::peer
