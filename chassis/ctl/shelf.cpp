// Asking cards: connections, limits of time, and what is said of a card that does not answer.

#include "chassis/ctl/client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

namespace ctl {

namespace {

constexpr std::chrono::milliseconds role_limit{3000};
// Where one card is master already, one of a lower slot may still say that it is.
constexpr std::chrono::milliseconds rival_limit{200};
constexpr std::chrono::milliseconds master_retry{50}, master_wait{20'000};
constexpr std::size_t head_bytes = 40;
constexpr std::string_view does_not_run = "does not run";

int left_msec(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return int(std::max<std::int64_t>(left.count(), 0));
}

// Waits for bytes and appends them to `text`; false when the card hung up, or none come in time
// (errno is ETIMEDOUT then).
bool receive(int socket, std::string &text, Clock::time_point deadline) {
    char bytes[65536];
    for (;;) {
        pollfd polled{socket, POLLIN, 0};
        const int ready = poll(&polled, 1, left_msec(deadline));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return errno = ETIMEDOUT, false;
        const ssize_t count = recv(socket, bytes, sizeof bytes, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return errno = ECONNRESET, false;
        text.append(bytes, std::size_t(count));
        return true;
    }
}

std::optional<Reply> receive_reply(int socket, Clock::time_point deadline) {
    std::string text;
    std::size_t end;
    while ((end = text.find('\n')) == text.npos)
        if (text.size() > head_bytes || !receive(socket, text, deadline))
            return std::nullopt;
    const auto head = decode_reply_head(std::string_view(text).substr(0, end));
    if (!head)
        return errno = EPROTO, std::nullopt;
    text.erase(0, end + 1);
    while (text.size() < head->length)
        if (!receive(socket, text, deadline))
            return std::nullopt;
    return Reply{head->status, text};
}

// A card says nothing unasked: what can be read now is its end.
bool has_ended(int socket) {
    pollfd polled{socket, POLLIN, 0};
    return poll(&polled, 1, 0) != 0;
}

// A card that turns the client away may have hung up already: its words are still to be read.
void send_line(int socket, std::string_view line) {
    std::string bytes(line);
    bytes += '\n';
    for (std::string_view left = bytes; !left.empty();) {
        const ssize_t count = send(socket, left.data(), left.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        left.remove_prefix(std::size_t(count));
    }
}

// Whose process listens at the other end.
std::string process_of(int socket) {
    ucred owner{};
    socklen_t length = sizeof owner;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &owner, &length) != 0 || owner.pid <= 0)
        return "";
    return " (process " + std::to_string(owner.pid) + ")";
}

std::string trouble_connecting(const std::string &path) {
    switch (errno) {
    case ENOENT:
    case ECONNREFUSED:
        return std::string(does_not_run);
    case EAGAIN:
        return "does not answer";
    default:
        return "cannot be reached: " + path + ": " + std::strerror(errno);
    }
}

} // namespace

bool Shelf::begin(unsigned slot, std::string_view line) {
    Descriptor &socket = connections_[slot];
    trouble_[slot].clear();
    if (socket && has_ended(socket.get()))
        socket.reset();
    const std::string path = control_path(directory_, slot);
    if (!socket)
        socket = connect_to(path);
    if (!socket)
        return trouble_[slot] = trouble_connecting(path), false;
    send_line(socket.get(), line);
    return true;
}

// A connection whose reply did not come is given up: it might come instead of the next one.
std::optional<Reply> Shelf::finish(unsigned slot, Clock::time_point deadline) {
    Descriptor &socket = connections_[slot];
    std::optional<Reply> reply = receive_reply(socket.get(), deadline);
    if (!reply) {
        const char *const what = errno == ETIMEDOUT ? "does not answer" : "hangs up";
        trouble_[slot] = what + process_of(socket.get());
        socket.reset();
    }
    return reply;
}

std::optional<Reply> Shelf::ask(unsigned slot, std::string_view line,
                                std::chrono::milliseconds limit) {
    return begin(slot, line) ? finish(slot, Clock::now() + limit) : std::nullopt;
}

std::string Shelf::role_from(const std::optional<Reply> &reply, unsigned slot) {
    if (!reply)
        return "";
    const std::string text = reply->text.substr(0, reply->text.find('\n'));
    if (reply->status == Status::ok)
        return text;
    trouble_[slot] = "refuses: " + text;
    return "";
}

std::string Shelf::role(unsigned slot) {
    return role_from(ask(slot, "card role", role_limit), slot);
}

std::vector<Seen> Shelf::look(bool for_master) {
    std::vector<Seen> seen;
    std::vector<pollfd> waiting; // of the same slots; -1: no reply is awaited
    for (const unsigned slot : slots) {
        const bool begun = begin(slot, "card role");
        if (!begun && trouble_[slot] == does_not_run)
            continue;
        seen.push_back({slot, ""});
        waiting.push_back({begun ? connections_[slot].get() : -1, POLLIN, 0});
    }
    Clock::time_point deadline = Clock::now() + role_limit;
    const auto is_awaited = [](const pollfd &each) { return each.fd >= 0; };
    while (std::ranges::any_of(waiting, is_awaited)) {
        const bool is_late = poll(waiting.data(), waiting.size(), left_msec(deadline)) == 0;
        for (std::size_t i = 0; i < seen.size(); i++) {
            if (waiting[i].fd < 0 || (!is_late && waiting[i].revents == 0))
                continue;
            waiting[i].fd = -1;
            seen[i].role = role_from(finish(seen[i].slot, deadline), seen[i].slot);
            if (for_master && seen[i].role == "master")
                deadline = std::min(deadline, Clock::now() + rival_limit);
        }
    }
    return seen;
}

std::optional<unsigned> Shelf::master() {
    for (const Seen &card : look(true))
        if (card.role == "master")
            return card.slot;
    return std::nullopt;
}

std::optional<Reply> Shelf::ask_master(std::string_view line) {
    const Clock::time_point deadline = Clock::now() + master_wait;
    while (!interrupted) {
        if (!followed_)
            followed_ = master();
        const auto reply = followed_ ? ask(*followed_, line, change_limit) : std::nullopt;
        if (reply && role(*followed_) == "master")
            return reply;
        followed_.reset();
        if (Clock::now() > deadline)
            break;
        std::this_thread::sleep_for(master_retry);
    }
    return std::nullopt;
}

volatile std::sig_atomic_t interrupted = 0;

void catch_interrupts() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

} // namespace ctl
