// What left the library, as it happened.

#include "chassis/ctl/server/command.h"

#include <algorithm>
#include <cstdio>

namespace ctl::server {

namespace {

using chassis::journal::Event;

std::string line_of(const Event &event) {
    char time[24];
    std::snprintf(time, sizeof time, "%.3f ", double(event.at_nsec) / 1e9);
    return time + event.text.substr(0, event.text.find_last_not_of("\r\n") + 1) + "\n";
}

} // namespace

// Of several cards with one journal, the events of this one.
Reply journal(Command &command) {
    chassis::journal::Journal &journal = command.server.journal();
    const std::string_view state = command.line.value("STATE");
    if (state == "clear")
        journal.clear();
    else if (!state.empty())
        journal.keep(command.card, state == "on");
    if (!state.empty())
        return done();
    const auto channels = command.line.values("CHANNEL");
    std::deque<Event> events = journal.events();
    std::erase_if(events, [&](const Event &event) {
        const char *const channel = chassis::journal::channel_words[unsigned(event.channel)];
        return event.slot != command.card.slot() ||
               (!channels.empty() && std::ranges::find(channels, channel) == channels.end());
    });
    const auto count =
        std::min<std::size_t>(command.line.number("last", events.size()), events.size());
    std::string text;
    for (auto event = events.end() - std::ptrdiff_t(count); event != events.end(); ++event)
        text += line_of(*event);
    return done(text);
}

} // namespace ctl::server
