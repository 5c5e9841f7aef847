// BFD: sessions as the routing suite asks for them, and what their peers do.

#include "chassis/chip/bfd.h"
#include "chassis/ctl/server/command.h"

#include <algorithm>

namespace ctl::server {

namespace {

std::uint32_t discriminator(const Command &command) {
    return std::uint32_t(command.line.number("DISC"));
}

std::uint32_t state_argument(const Parsed &line) {
    const std::vector<std::string_view> &names = type_named("BFDSTATE").values;
    const auto found = std::ranges::find(names, line.value("state"));
    return found == names.end() ? DPM_BFD_DOWN : std::uint32_t(found - names.begin());
}

dpm_prefix address_or(const Parsed &line, std::string_view key, const Prefix &otherwise) {
    return record_of(parse_address(line.value(key)).value_or(otherwise));
}

// Without an address of its own the session talks from none.
void put_addresses(dpm_bfd_told &told, const Parsed &line, const Prefix &next_hop) {
    told.family = next_hop.family;
    told.next_hop = record_of(next_hop);
    told.peer = address_or(line, "peer", next_hop);
    told.local = address_or(line, "local", Prefix{next_hop.family, {}, next_hop.length});
    if (const auto fec = parse_prefix(line.value("fec")))
        told.address = record_of(*fec);
}

Reply update(const Command &command, std::uint32_t kind, Timers values) {
    return answer(dpm_api_bfd_session_update(discriminator(command), kind, values[0], values[1],
                                             values[2], 0));
}

Reply report(const std::string &problem) {
    return problem.empty() ? done() : refused(problem);
}

} // namespace

Reply bfd_add(Command &command) {
    const Parsed &line = command.line;
    const Prefix next_hop = address_argument(command, "via");
    std::string name(line.value("dev"));
    if (name.empty())
        name = interface_towards(command, next_hop, {});
    const auto interface = command.card.suite.find(name);
    if (!interface)
        return name.empty() ? refused("which dev is the next hop on?") : unknown_interface(name);
    dpm_bfd_request request{};
    dpm_bfd_told &told = request.told;
    told.ifindex = interface->ifindex;
    told.flags = (line.has("admin-down") ? DPM_BFD_FLAG_ADMIN_DOWN : 0u) |
                 (line.has("new") ? DPM_BFD_FLAG_PARAMETERS : 0u);
    told.type = std::uint32_t(line.number("type", 1));
    told.sub_type = std::uint8_t(line.number("sub"));
    told.identifier = std::uint32_t(line.number("id"));
    told.state = std::uint16_t(state_argument(line));
    told.local_disc = discriminator(command);
    told.remote_disc = std::uint32_t(line.number("remote"));
    put_addresses(told, line, next_hop);
    std::ranges::copy(parse_timers(line.value("timers")).value_or(Timers{50, 50, 3}), told.timer);
    request.cc_hold = line.has("hold");
    return answer(dpm_api_bfd_proc(&request, DPM_ENABLE));
}

Reply bfd_del(Command &command) {
    dpm_bfd_request request{};
    request.told.local_disc = discriminator(command);
    return answer(dpm_api_bfd_proc(&request, DPM_DISABLE));
}

// What is named is changed, one update each.
Reply bfd_update(Command &command) {
    const Parsed &line = command.line;
    Reply reply = done();
    const auto change = [&](const char *key, std::uint32_t kind, Timers values) {
        if (line.has(key) && reply.status == Status::ok)
            reply = update(command, kind, values);
    };
    change("remote", DPM_BFD_UPDATE_REMOTE_DISC, {std::uint32_t(line.number("remote"))});
    change("state", DPM_BFD_UPDATE_STATE, {state_argument(line)});
    change("cc", DPM_BFD_UPDATE_CC, {line.value("cc") == "on"});
    change("timers", DPM_BFD_UPDATE_TIMERS, parse_timers(line.value("timers")).value_or(Timers{}));
    return reply;
}

Reply chip_bfd_up(Command &command) {
    return report(chassis::chip::bfd_peer_talks(command.card.chip, discriminator(command),
                                                std::uint32_t(command.line.number("remote"))));
}

Reply chip_bfd_lost(Command &command) {
    return report(chassis::chip::bfd_peer_is_lost(command.card.chip, discriminator(command)));
}

} // namespace ctl::server
