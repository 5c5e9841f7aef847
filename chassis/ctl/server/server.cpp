// From a line to its handler.

#include "chassis/ctl/server/server.h"

#include "chassis/ctl/server/command.h"

#include <thread>

namespace ctl {

namespace {

constexpr std::size_t log_lines_kept = 10'000;
constexpr std::int64_t settle_nsec = 20'000'000'000;

using Handler = Reply (*)(server::Command &command);

// In the order of the commands; null for the client's own.
#define CTL_HANDLER_OF_config(name) server::name
#define CTL_HANDLER_OF_change(name) server::name
#define CTL_HANDLER_OF_read(name) server::name
#define CTL_HANDLER_OF_ask(name) server::name
#define CTL_HANDLER_OF_local(name) nullptr
#define CTL_ROW(name, path, arguments, kind, help) CTL_HANDLER_OF_##kind(name),
constexpr Handler handlers[] = {CTL_COMMANDS(CTL_ROW)};
#undef CTL_ROW

bool wait_until(const auto &condition) {
    const auto started = std::chrono::steady_clock::now();
    auto pause = std::chrono::microseconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() - started > std::chrono::nanoseconds(settle_nsec))
            return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(2 * pause, std::chrono::microseconds(5000));
    }
    return true;
}

} // namespace

// What ports received is posted by then.  The queue keeps its order, so a message of the platform's
// own that comes back has everything before it done.
bool Server::settle() {
    if (card_.os.mode() == chassis::os::Mode::pumped) {
        card_.pump();
        return card_.os.queued() == 0;
    }
    if (!wait_until([this] { return card_.ports.is_idle(); }))
        return false;
    const unsigned before = card_.suite.proxy_counts().ticks;
    return dpm_api_proxy_arp_timer_send() == 0 &&
           wait_until([&] { return card_.suite.proxy_counts().ticks != before; });
}

bool Server::wait_until_sent() {
    return wait_until([this] { return card_.peer.has_sent_all(); });
}

Reply Server::execute(std::string_view line) {
    const chassis::CardScope scope(card_);
    const Parsed parsed = parse(line);
    if (parsed.error)
        return server::refused("column " + std::to_string(parsed.error->column) + ": " +
                               parsed.error->text);
    if (!parsed.command)
        return {};
    const Handler handler = handlers[std::size_t(parsed.command->verb)];
    if (!handler)
        return server::refused("this is the client's own command");
    if (parsed.command->kind == Kind::change && card_.peer.is_replaced())
        return server::refused("the card is no longer master");
    if (parsed.command->kind == Kind::read && !settle())
        return server::refused("the worker does not come to rest");
    server::Command command{card_, parsed, *this};
    Reply reply = handler(command);
    if (parsed.command->kind == Kind::config && reply.status == Status::ok)
        settings_.keep(parsed, line);
    return reply;
}

void Server::keep_log_line(const std::string &line) {
    const std::lock_guard guard(log_mutex_);
    if (log_lines_.size() == log_lines_kept)
        log_lines_.pop_front();
    log_lines_.push_back(line);
}

std::vector<std::string> Server::log_lines(std::size_t count) const {
    const std::lock_guard guard(log_mutex_);
    count = std::min(count, log_lines_.size());
    return {log_lines_.end() - std::ptrdiff_t(count), log_lines_.end()};
}

} // namespace ctl
