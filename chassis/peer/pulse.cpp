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

std::string path_of(const std::string &directory, unsigned slot) {
    return directory + "/pulse-" + std::to_string(slot) + ".sock";
}

} // namespace

Pulse::Pulse(std::string directory, unsigned slot, unsigned peer_slot, Card card)
    : own_path_(path_of(directory, slot)), peer_path_(path_of(directory, peer_slot)),
      peer_slot_(peer_slot), card_(std::move(card)), wake_(eventfd(0, EFD_CLOEXEC)) {}

void Pulse::start() {
    socket_ = bind_datagram(own_path_);
    if (!socket_)
        std::perror(own_path_.c_str());
    thread_ = std::thread([this] { keep_beating(); });
}

void Pulse::stop() {
    if (!thread_.joinable())
        return;
    eventfd_write(wake_.get(), 1);
    thread_.join();
    Claim farewell = card_.claim();
    farewell.standing = Standing::leaving;
    send(farewell);
    unlink(own_path_.c_str());
}

void Pulse::beat() const {
    send(card_.claim());
}

Claim Pulse::last() const {
    const std::lock_guard lock(mutex_);
    return last_;
}

void Pulse::send(const Claim &claim) const {
    send_datagram(socket_.get(), peer_path_, &claim, sizeof claim);
}

void Pulse::keep_beating() {
    do {
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
    card_.heard(*claim);
}

} // namespace chassis::peer
