// Events of the platform: links, the other card, the clock, faults; and the state of the card.

#include "chassis/ctl/server/command.h"

namespace ctl::server {

namespace {

using chassis::os::Fault;

std::string role_text(const chassis::Card &card) {
    return card.peer.role() == chassis::peer::Role::master ? "master" : "standby";
}

Reply link(Command &command, std::string_view key, bool up) {
    const std::uint32_t number = std::uint32_t(command.line.number(key));
    const auto &hal = command.card.hal;
    return answer(key == "PORT" ? hal.port_link(number, up) : hal.trunk_link(number, up));
}

Reply member(Command &command, std::uint32_t action) {
    return answer(command.card.hal.trunk_member(0, std::uint32_t(command.line.number("TRUNK")),
                                                std::uint32_t(command.line.number("port")),
                                                action));
}

std::string seconds_text(std::int64_t nsec) {
    const std::string msec = std::to_string(nsec / 1'000'000 % 1000);
    return std::to_string(nsec / 1'000'000'000) + "." + std::string(3 - msec.size(), '0') + msec;
}

} // namespace

Reply port_up(Command &command) {
    return link(command, "PORT", true);
}
Reply port_down(Command &command) {
    return link(command, "PORT", false);
}
Reply trunk_up(Command &command) {
    return link(command, "TRUNK", true);
}
Reply trunk_down(Command &command) {
    return link(command, "TRUNK", false);
}
Reply trunk_join(Command &command) {
    return member(command, 1);
}
Reply trunk_leave(Command &command) {
    return member(command, 2);
}

Reply card_status(Command &command) {
    const chassis::Card &card = command.card;
    const auto yes = [](bool is) { return std::string(is ? "yes" : "no"); };
    Table table({"slot", "role", "term", "peer", "peer_slot", "standby_usable", "queued", "hash",
                 "chip_mistakes", "mended"});
    table.row({std::int64_t(card.slot()), role_text(card), std::int64_t(card.peer.term()),
               yes(card.peer.exists()), std::int64_t(card.peer.peer_slot()),
               yes(card.peer.standby_usable()), std::int64_t(card.os.queued()),
               std::int64_t(dpm_api_get_ecmp_hash()), std::int64_t(card.chip.mistakes()),
               std::int64_t(card.mended)});
    return done(command.line.has("--json") ? table.json() : table.text());
}

Reply card_role(Command &command) {
    static_cast<void>(command.card.peer.is_replaced()); // what it answers is so
    return done(role_text(command.card) + "\n");
}

Reply card_master(Command &command) {
    if (command.card.peer.exists() && role_text(command.card) == "standby")
        return refused("the other card is master and must go first");
    command.card.peer.become_master();
    return done();
}

Reply card_standby_lost(Command &command) {
    command.card.peer.set_standby_usable(false);
    return done();
}

Reply card_standby_usable(Command &command) {
    command.card.peer.set_standby_usable(true);
    return done();
}

Reply card_slot_up(Command &command) {
    return answer(dpm_bridge_slot_up(std::uint32_t(command.line.number("SLOT"))));
}

Reply card_quit(Command &command) {
    command.server.ask_to_quit();
    return done();
}

Reply clock_show(Command &command) {
    return done(seconds_text(command.card.os.now_nsec()) + " s\n");
}

Reply clock_advance(Command &command) {
    if (command.card.os.advance(*parse_duration(command.line.value("DURATION"))))
        return done();
    return refused("the clock goes to " + std::to_string(chassis::os::latest_clock_sec) +
                   " s at most");
}

Reply log_level(Command &command) {
    command.card.os.log_level(int(command.line.number("NUMBER")));
    return done();
}

Reply show_log(Command &command) {
    std::string text;
    for (const std::string &line : command.server.log_lines(command.line.number("last", 20)))
        text += line + "\n";
    return done(text);
}

Reply fault(Command &command) {
    const std::string_view kind = command.line.value("FAULT");
    const Fault fault = kind == "alloc"   ? Fault::allocation
                        : kind == "sem"   ? Fault::semaphore
                        : kind == "queue" ? Fault::queue
                                          : Fault::send;
    command.card.os.fail(fault, unsigned(command.line.number("COUNT")),
                         unsigned(command.line.number("times", 1)));
    return done();
}

// Every reading command has waited for the worker before its handler runs.  What was asked of a
// master that was replaced meanwhile is not carried out where it counts.
Reply settle(Command &command) {
    if (!command.server.wait_until_sent())
        return refused("the standby does not take its tables");
    return command.card.peer.is_replaced() ? refused("the card is no longer master") : done();
}

} // namespace ctl::server
