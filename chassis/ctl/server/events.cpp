// Events of the platform: links, the other card, the clock, faults; and the state of the card.

#include "chassis/ctl/server/request.h"

namespace ctl::server {

namespace {

using chassis::os::Fault;

std::string role_text(const chassis::Card &card) {
    return card.peer.role() == chassis::peer::Role::master ? "master" : "standby";
}

Reply link(Request &request, std::string_view key, bool up) {
    const std::uint32_t number = std::uint32_t(request.line.number(key));
    const auto &hal = request.card.hal;
    return answer(key == "PORT" ? hal.port_link(number, up) : hal.trunk_link(number, up));
}

Reply member(Request &request, std::uint32_t action) {
    return answer(request.card.hal.trunk_member(0, std::uint32_t(request.line.number("TRUNK")),
                                                std::uint32_t(request.line.number("port")),
                                                action));
}

std::string seconds_text(std::int64_t nsec) {
    const std::string msec = std::to_string(nsec / 1'000'000 % 1000);
    return std::to_string(nsec / 1'000'000'000) + "." + std::string(3 - msec.size(), '0') + msec;
}

} // namespace

Reply port_up(Request &request) {
    return link(request, "PORT", true);
}
Reply port_down(Request &request) {
    return link(request, "PORT", false);
}
Reply trunk_up(Request &request) {
    return link(request, "TRUNK", true);
}
Reply trunk_down(Request &request) {
    return link(request, "TRUNK", false);
}
Reply trunk_join(Request &request) {
    return member(request, 1);
}
Reply trunk_leave(Request &request) {
    return member(request, 2);
}

Reply card_status(Request &request) {
    const chassis::Card &card = request.card;
    const auto yes = [](bool is) { return std::string(is ? "yes" : "no"); };
    Table table(
        {"slot", "role", "peer", "peer_slot", "standby_usable", "queued", "hash", "chip_mistakes"});
    table.row({std::int64_t(card.slot()), role_text(card), yes(card.peer.exists()),
               std::int64_t(card.peer.peer_slot()), yes(card.peer.standby_usable()),
               std::int64_t(card.os.queued()), std::int64_t(dpm_api_get_ecmp_hash()),
               std::int64_t(card.chip.mistakes())});
    return done(request.line.has("--json") ? table.json() : table.text());
}

Reply card_role(Request &request) {
    return done(role_text(request.card) + "\n");
}

Reply card_master(Request &request) {
    if (request.card.peer.exists() && role_text(request.card) == "standby")
        return refused("the other card is master and must go first");
    request.card.peer.become_master();
    return done();
}

Reply card_standby_lost(Request &request) {
    request.card.peer.set_standby_usable(false);
    return done();
}

Reply card_standby_usable(Request &request) {
    request.card.peer.set_standby_usable(true);
    return done();
}

Reply card_slot_up(Request &request) {
    return answer(dpm_bridge_slot_up(std::uint32_t(request.line.number("SLOT"))));
}

Reply card_quit(Request &request) {
    request.server.ask_to_quit();
    return done();
}

Reply clock_show(Request &request) {
    return done(seconds_text(request.card.os.now_nsec()) + " s\n");
}

Reply clock_advance(Request &request) {
    request.card.os.advance(*parse_duration(request.line.value("DURATION")));
    return done();
}

Reply log_level(Request &request) {
    request.card.os.log_level(int(request.line.number("NUMBER")));
    return done();
}

Reply show_log(Request &request) {
    std::string text;
    for (const std::string &line : request.server.log_lines(request.line.number("last", 20)))
        text += line + "\n";
    return done(text);
}

Reply fault(Request &request) {
    const std::string_view kind = request.line.value("FAULT");
    const Fault fault = kind == "alloc"   ? Fault::allocation
                        : kind == "sem"   ? Fault::semaphore
                        : kind == "queue" ? Fault::queue
                                          : Fault::send;
    request.card.os.fail(fault, unsigned(request.line.number("COUNT")),
                         unsigned(request.line.number("times", 1)));
    return done();
}

Reply settle(Request &) {
    return done(); // every reading command has waited before its handler runs
}

} // namespace ctl::server
