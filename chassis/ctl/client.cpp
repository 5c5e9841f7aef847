// Asking cards, and printing what they answer.

#include "chassis/ctl/client.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <poll.h>
#include <sys/socket.h>

namespace ctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int reply_msec = 60'000; // a read waits for the worker, and the worker for the chip
constexpr int role_msec = 2'000;
constexpr std::size_t head_bytes = 40;

// Waits for bytes and appends them to `text`; false when none come in time, or the card hung up.
bool receive(int socket, std::string &text, Clock::time_point deadline) {
    char bytes[65536];
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd polled{socket, POLLIN, 0};
        const int ready = poll(&polled, 1, int(std::max<std::int64_t>(left.count(), 0)));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        const ssize_t count = recv(socket, bytes, sizeof bytes, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        text.append(bytes, std::size_t(count));
        return true;
    }
}

std::optional<Reply> receive_reply(int socket, int timeout_msec) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_msec);
    std::string text;
    std::size_t end;
    while ((end = text.find('\n')) == text.npos)
        if (text.size() > head_bytes || !receive(socket, text, deadline))
            return std::nullopt;
    const auto head = decode_reply_head(std::string_view(text).substr(0, end));
    if (!head)
        return std::nullopt;
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

bool send_line(int socket, std::string_view line) {
    std::string bytes(line);
    bytes += '\n';
    for (std::string_view left = bytes; !left.empty();) {
        const ssize_t count = send(socket, left.data(), left.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        left.remove_prefix(std::size_t(count));
    }
    return true;
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

std::size_t width_of(const std::vector<std::string> &lines) {
    std::size_t width = 0;
    for (const std::string &line : lines)
        width = std::max(width, line.size());
    return width;
}

std::string side_by_side(const std::vector<std::string> &left,
                         const std::vector<std::string> &right) {
    const std::size_t width = width_of(left);
    std::string text;
    for (std::size_t i = 0; i < std::max(left.size(), right.size()); i++) {
        const std::string first = i < left.size() ? left[i] : "";
        const std::string second = i < right.size() ? right[i] : "";
        text += first + std::string(width - first.size(), ' ') + " | " + second + "\n";
    }
    return text;
}

struct Answer {
    std::string heading;
    std::string text;
};

// The answers of two cards stand side by side where there is room.
void print_answers(const std::vector<Answer> &answers) {
    std::vector<std::vector<std::string>> blocks;
    for (const Answer &answer : answers) {
        if (answer.text.empty())
            continue;
        blocks.push_back(lines_of(answer.text));
        if (answers.size() > 1)
            blocks.back().insert(blocks.back().begin(), answer.heading);
    }
    if (blocks.size() == 2 && width_of(blocks[0]) + 3 + width_of(blocks[1]) <= terminal_columns())
        return print_paged(side_by_side(blocks[0], blocks[1]));
    std::string text;
    for (const auto &block : blocks)
        for (const std::string &line : block)
            text += line + "\n";
    print_paged(text);
}

bool complain(const std::string &origin, const std::string &text) {
    std::fflush(stdout);
    const bool ended = text.ends_with('\n');
    std::fprintf(stderr, "%s: %s%s", origin.c_str(), text.c_str(), ended ? "" : "\n");
    return false;
}

} // namespace

std::optional<Reply> Shelf::ask_once(unsigned slot, std::string_view line, int timeout_msec) {
    Descriptor &socket = connections_[slot];
    if (socket && has_ended(socket.get()))
        socket.reset();
    if (!socket)
        socket = connect_to(control_path(directory_, slot));
    if (!socket)
        return std::nullopt;
    std::optional<Reply> reply;
    if (send_line(socket.get(), line))
        reply = receive_reply(socket.get(), timeout_msec);
    if (!reply)
        socket.reset();
    return reply;
}

std::optional<Reply> Shelf::ask(unsigned slot, std::string_view line) {
    return ask_once(slot, line, reply_msec);
}

std::string Shelf::role(unsigned slot) {
    const std::optional<Reply> reply = ask_once(slot, "card role", role_msec);
    return reply && reply->status == Status::ok ? reply->text.substr(0, reply->text.find('\n'))
                                                : "";
}

std::vector<unsigned> Shelf::present() {
    std::vector<unsigned> found;
    for (const unsigned slot : slots)
        if (!role(slot).empty())
            found.push_back(slot);
    return found;
}

std::optional<unsigned> Shelf::master() {
    for (const unsigned slot : slots)
        if (role(slot) == "master")
            return slot;
    return std::nullopt;
}

std::vector<unsigned> Session::cards_for(const Command &command) {
    if (target_.slot)
        return {*target_.slot};
    if (target_.both || command.kind == Kind::config)
        return shelf_.present();
    const auto master = shelf_.master();
    return master ? std::vector{*master} : std::vector<unsigned>{};
}

bool Session::run_on_cards(const Command &command, std::string_view line,
                           const std::string &origin) {
    const std::vector<unsigned> cards = cards_for(command);
    if (cards.empty())
        return complain(origin, shelf_.present().empty()
                                    ? "no card runs in " + shelf_.directory()
                                    : "no card is master; choose one with --card");
    if (cards.size() > 1 && command.kind == Kind::read)
        if (const auto master = shelf_.master()) // what it still has to do reaches the other card
            shelf_.ask(*master, "settle");
    bool good = true;
    std::vector<Answer> answers;
    for (const unsigned slot : cards) {
        const std::string name = "slot " + std::to_string(slot);
        const auto reply = shelf_.ask(slot, line);
        if (!reply)
            good = complain(origin, "the card in " + name + " does not answer");
        else if (reply->status != Status::ok)
            good = complain(origin, (cards.size() > 1 ? name + ": " : "") + reply->text);
        else
            answers.push_back({name + " (" + shelf_.role(slot) + ")", reply->text});
    }
    print_answers(answers);
    return good;
}

bool Session::run_local(const Parsed &parsed, const std::string &origin) {
    switch (parsed.command->verb) {
    case Verb::verify:
        return verify_shelf(shelf_);
    case Verb::import:
        return import_lines(shelf_, parsed);
    case Verb::quit:
        return quit_ = true;
    default:
        break;
    }
    std::string topic;
    for (const std::string_view word : parsed.values("TOPIC"))
        topic += (topic.empty() ? "" : " ") + std::string(word);
    const std::string text = help(topic);
    print_paged(text);
    return !text.empty() || complain(origin, "no command begins with '" + topic + "'");
}

bool Session::run(std::string_view line, const std::string &origin) {
    const Parsed parsed = parse(line);
    if (parsed.error)
        return complain(origin, "column " + std::to_string(parsed.error->column) + ": " +
                                    parsed.error->text);
    if (!parsed.command)
        return true;
    if (line.find('\n') != line.npos)
        return complain(origin, "a command is one line");
    return parsed.command->kind == Kind::local ? run_local(parsed, origin)
                                               : run_on_cards(*parsed.command, line, origin);
}

std::vector<std::string> Session::values_of(std::string_view type) {
    const auto master = type == "NAME" ? shelf_.master() : std::nullopt;
    const auto reply = master ? shelf_.ask(*master, "if list") : std::nullopt;
    return reply ? lines_of(reply->text) : std::vector<std::string>{};
}

} // namespace ctl
