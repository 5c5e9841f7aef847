#include "chassis/peer/pulse.h"

#include "chassis/os/state.h"

#include <array>
#include <cstdio>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace chassis::peer {

namespace {

constexpr std::int64_t msec = 1'000'000;
constexpr std::int64_t beat_nsec = 150 * msec;

constexpr std::int64_t stop_nsec = 1000 * msec; // less than a silence: nobody took over by then

std::string path_of(const std::string &shelf_path, unsigned slot) {
    return shelf_path + "." + std::to_string(slot);
}

} // namespace

Pulse::Pulse(const std::string &shelf_path, unsigned slot, unsigned peer_slot, Owner owner)
    : own_path_(path_of(shelf_path, slot)), peer_path_(path_of(shelf_path, peer_slot)),
      peer_slot_(peer_slot), owner_(std::move(owner)), wake_(eventfd(0, EFD_CLOEXEC)) {}

void Pulse::start() {
    socket_ = bind_datagram(own_path_);
    if (!socket_)
        std::perror(own_path_.c_str());
    beat_at_nsec_ = os::raw_nsec();
    thread_ = std::thread([this] { keep_beating(); });
}

void Pulse::stop() {
    if (!thread_.joinable())
        return;
    eventfd_write(wake_.get(), 1);
    thread_.join();
    Claim farewell = owner_.claim();
    farewell.standing = Standing::leaving;
    send(farewell);
    unlink(own_path_.c_str());
}

void Pulse::beat() const {
    send(owner_.claim());
}

Claim Pulse::last() const {
    const std::lock_guard lock(mutex_);
    return last_;
}

void Pulse::send(const Claim &claim) const {
    send_datagram(socket_.get(), peer_path_, &claim, sizeof claim);
}

bool Pulse::is_sure() const {
    const std::int64_t now = os::raw_nsec();
    return now - beat_at_nsec_ < stop_nsec && now >= sure_from_nsec_;
}

void Pulse::keep_beating() {
    do {
        if (!is_sure() && os::raw_nsec() >= sure_from_nsec_)
            sure_from_nsec_ = os::raw_nsec() + beat_nsec; // who took over answers this beat
        beat_at_nsec_ = os::raw_nsec();
        beat();
        if (silent_beats_ < max_silent_beats)
            ++silent_beats_; // until it is heard
    } while (listen_until(os::raw_nsec() + beat_nsec));
}

bool Pulse::listen_until(std::int64_t deadline_nsec) {
    for (std::int64_t left; (left = deadline_nsec - os::raw_nsec()) > 0;) {
        std::array<pollfd, 2> polled{{{wake_.get(), POLLIN, 0}, {socket_.get(), POLLIN, 0}}};
        const int ready = poll(polled.data(), polled.size(), int(left / msec) + 1);
        if (polled[0].revents)
            return false;
        if (ready > 0)
            receive();
    }
    return true;
}

// One datagram: whoever sends many does not keep the card from its own beat.
void Pulse::receive() {
    std::array<std::byte, sizeof(Claim) + 1> bytes; // a longer one is cut, and no claim
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    const auto claim =
        read_claim(std::span(bytes).first(std::size_t(std::max<ssize_t>(count, 0))), peer_slot_);
    if (!claim)
        return;
    {
        const std::lock_guard lock(mutex_);
        last_ = *claim;
    }
    silent_beats_ = claim->standing == Standing::leaving ? max_silent_beats : 0;
    owner_.heard(*claim);
}

} // namespace chassis::peer
