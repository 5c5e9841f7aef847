#include "chassis/card/control.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <vector>

namespace card {

namespace {

constexpr std::size_t max_clients = 32;
constexpr rlim_t others_descriptors = 6; // the other card's connections, the line cards' file
constexpr std::int64_t idle_nsec = 60 * chassis::os::nsec_per_sec;
constexpr int rest_msec = 100, turn_msec = 1000;

bool is_later(ssize_t count) {
    return count < 0 && (errno == EAGAIN || errno == EINTR);
}

// The lowest free number is taken first: a high one tells that few are left.
bool is_among_the_last(int descriptor) {
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
           rlim_t(descriptor) + others_descriptors >= limit.rlim_cur;
}

// Without waiting: whoever does not take it at once misses it.
void say_good_bye(int socket, const char *why) {
    const std::string words = ctl::encode_reply({ctl::Status::failed, why});
    static_cast<void>(::send(socket, words.data(), words.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
}

} // namespace

void Control::serve(int stop) {
    while (!stopped_ && !server_.wants_to_quit())
        take_turn(stop);
    for (Client &client : clients_)
        send(client);
}

void Control::take_turn(int stop) {
    std::vector<pollfd> polled{{stop, POLLIN, 0}, {rests_ ? -1 : listener_.get(), POLLIN, 0}};
    int timeout_msec = rests_ ? rest_msec : turn_msec;
    for (const Client &client : clients_) {
        polled.push_back({client.socket.get(), client.awaited(), 0});
        if (client.has_line())
            timeout_msec = 0;
    }
    const int ready = poll(polled.data(), polled.size(), timeout_msec);
    each_turn_();
    rests_ = ready < 0;
    if (rests_)
        return static_cast<void>(poll(nullptr, 0, rest_msec));
    stopped_ = polled[0].revents != 0;
    std::size_t at = 2;
    for (auto client = clients_.begin(); client != clients_.end() && !stopped_;) {
        const bool stays = serve_client(*client, polled[at++].revents);
        client = stays ? std::next(client) : clients_.erase(client);
    }
    if (polled[1].revents && !stopped_)
        accept_client();
}

// A client whose answer is not gone yet is not read from, nor is one whose line waits for its turn:
// neither can pile anything up.
short Control::Client::awaited() const {
    return !out.empty() ? POLLOUT : has_line() ? 0 : POLLIN;
}

bool Control::Client::has_line() const {
    const bool is_there = in.find('\n') != in.npos || in.size() > ctl::max_line_bytes;
    return is_there && out.empty() && !closing;
}

// False when the client goes.
bool Control::serve_client(Client &client, short events) {
    if (events & (POLLHUP | POLLERR))
        return false; // both ways: it waits for no answer
    if ((events & POLLOUT && !send(client)) || (events & POLLIN && !receive(client)))
        return false;
    if (client.has_line())
        execute_line(client);
    return !client.closing || !client.out.empty();
}

bool Control::receive(Client &client) {
    char bytes[4096];
    const ssize_t count = recv(client.socket.get(), bytes, sizeof bytes, 0);
    if (count <= 0)
        return is_later(count);
    client.in.append(bytes, std::size_t(count));
    client.last_nsec = clock_.now_nsec();
    return true;
}

bool Control::send(Client &client) {
    const ssize_t count =
        ::send(client.socket.get(), client.out.data(), client.out.size(), MSG_NOSIGNAL);
    if (count < 0)
        return is_later(count);
    client.out.erase(0, std::size_t(count));
    client.last_nsec = clock_.now_nsec();
    return true;
}

void Control::execute_line(Client &client) {
    const std::size_t end = client.in.find('\n');
    if (end > ctl::max_line_bytes) {
        client.out = ctl::encode_reply({ctl::Status::failed, "the line is too long"});
        client.closing = true;
    } else {
        client.out = ctl::encode_reply(server_.execute(std::string_view(client.in).substr(0, end)));
        client.in.erase(0, end + 1);
    }
    if (!send(client))
        client.closing = true, client.out.clear();
}

void Control::accept_client() {
    ctl::Descriptor socket(
        accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        rests_ = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
        return;
    }
    const char *const lack = clients_.size() >= max_clients ? "the card has too many clients"
                             : is_among_the_last(socket.get())
                                 ? "the card has no file descriptor left for a client"
                                 : nullptr;
    if (lack && !drop_idle_client())
        return say_good_bye(socket.get(), lack);
    clients_.push_back({std::move(socket), clock_.now_nsec(), {}, {}});
}

// The one that has been idle longest; false when none has been for long enough.
bool Control::drop_idle_client() {
    const auto idlest = std::ranges::min_element(clients_, {}, &Client::last_nsec);
    const std::int64_t last = clock_.now_nsec() - idle_nsec;
    if (idlest == clients_.end() || idlest->has_line() || idlest->last_nsec > last)
        return false;
    say_good_bye(idlest->socket.get(), "the place of an idle client was needed");
    clients_.erase(idlest);
    return true;
}

} // namespace card
