// What the handlers of commands share.  Every command that is not the client's own has a handler of
// its name, declared here from the list of commands.
#pragma once

#include "chassis/ctl/grammar.h"
#include "chassis/ctl/server/server.h"
#include "chassis/ctl/server/table.h"
#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace ctl::server {

namespace tables = chassis::tables;
using tables::Place;
using tables::Reading;
using tables::to_cpu;

struct Command {
    chassis::Card &card;
    const Parsed &line;
    Server &server;
};

#define CTL_HANDLER_config(name) Reply name(Command &command);
#define CTL_HANDLER_change(name) Reply name(Command &command);
#define CTL_HANDLER_read(name) Reply name(Command &command);
#define CTL_HANDLER_ask(name) Reply name(Command &command);
#define CTL_HANDLER_local(name)
#define CTL_ROW(name, path, arguments, kind, help) CTL_HANDLER_##kind(name)
CTL_COMMANDS(CTL_ROW)
#undef CTL_ROW

inline Reply done(std::string text = {}) {
    return {Status::ok, std::move(text)};
}
inline Reply refused(std::string text) {
    return {Status::failed, std::move(text)};
}
// Of a request function of the library.
inline Reply answer(int result) {
    return result == 0 ? done() : refused("the library refused the request; see the log");
}

Reply unknown_interface(std::string_view name);

inline dpm_prefix record_of(const Prefix &prefix) {
    return tables::prefix_of(prefix.family, prefix.address.data(), prefix.length);
}

// Of a command that the language has checked.
inline Prefix address_argument(const Command &command, std::string_view key = "IP") {
    return *parse_address(command.line.value(key));
}

// A prefix, an address or default, which is of the family given.
inline Prefix destination_argument(const Command &command, std::string_view key,
                                   std::uint32_t family) {
    const std::string_view text = command.line.value(key);
    const auto address = parse_address(text);
    return address ? *address : parse_prefix(text).value_or(Prefix{family, {}, 0});
}
inline std::optional<std::uint64_t> vrf_argument(const Command &command) {
    return parse_number(command.line.value("vrf"));
}

// A route that leads into a tunnel; nothing for another.
std::optional<Reply> change_tunnel_route(Command &command, std::uint32_t oper);

// The first interface with an address in the gateway's network, of a VRF when one is named; empty
// when there is none.
std::string interface_towards(Command &command, const Prefix &gateway,
                              std::optional<std::uint64_t> vrf);

} // namespace ctl::server
