// What the handlers of commands share.  Every command that is not the client's own has a handler of
// its name, declared here from the list of commands.
#pragma once

#include "chassis/chassis.h"
#include "chassis/ctl/grammar.h"
#include "chassis/ctl/server/server.h"
#include "chassis/ctl/server/table.h"
#include "dpm_api.h"

#include <map>
#include <string_view>

namespace ctl::server {

inline constexpr std::uint32_t to_cpu = 2; // the chip's index for "to the CPU"

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
Prefix address_argument(const Command &command, std::string_view key = "IP");
Prefix prefix_of(const dpm_prefix &record);
std::string text_of(const dpm_prefix &prefix); // without its length
std::vector<const dpm_if_ip_entry *> addresses_of(const dpm_if_entry &interface);
chassis::chip::Address chip_key(std::uint32_t vrf, const dpm_prefix &prefix);
bool is_link_local(const dpm_prefix &ip); // such hosts have a next hop in the chip, and no entry
std::string port_text(std::uint32_t port_type, std::uint32_t logical, std::uint32_t physical);

// Holds the DPM lock, which guards every table.
class TableLock {
public:
    TableLock() { norix_dpm_sem_take(); }
    ~TableLock() { norix_dpm_sem_give(); }
    TableLock(const TableLock &) = delete;
    TableLock &operator=(const TableLock &) = delete;
};

// The library's walkers; hold the DPM lock.
template <class Visit> void each_host(Visit visit) {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (const dpm_host_entry *host = dpm_api_get_host_entry_first(family); host;
             host = dpm_api_get_host_entry_next(host))
            visit(*host);
}
template <class Visit> void each_group(Visit visit) {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (const dpm_ecmp_entry *group = dpm_api_get_ecmp_entry_first(family); group;
             group = dpm_api_get_ecmp_entry_next(group))
            visit(*group);
}
template <class Visit> void each_route(Visit visit) {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (const dpm_route_entry *route = dpm_api_get_route_entry_first(family); route;
             route = dpm_api_get_route_entry_next(route))
            visit(*route);
}
#define CTL_WALKER(name, entry, first, next)                                                       \
    template <class Visit> void name(Visit visit) {                                                \
        for (const entry *each = first(); each; each = next(each))                                 \
            visit(*each);                                                                          \
    }
CTL_WALKER(each_interface, dpm_if_entry, dpm_api_get_if_entry_first, dpm_api_get_if_entry_next)
CTL_WALKER(each_nexthop, dpm_nexthop_entry, dpm_api_get_nexthop_entry_first,
           dpm_api_get_nexthop_entry_next)
CTL_WALKER(each_unreachable, dpm_unreachable_entry, dpm_api_get_unreachable_entry_first,
           dpm_api_get_unreachable_entry_next)
CTL_WALKER(each_hold, dpm_hold_entry, dpm_api_get_hold_entry_first, dpm_api_get_hold_entry_next)
CTL_WALKER(each_ftn, dpm_ftn, dpm_api_ftn_entry_first, dpm_api_ftn_entry_next)
CTL_WALKER(each_ilm, dpm_ilm, dpm_api_ilm_entry_first, dpm_api_ilm_entry_next)
#undef CTL_WALKER

// What holds routes' places in the chip: tunnel label entries for the same prefix, and hosts with
// the very address.  Made under the DPM lock, for as long as that is held.
class StandIns {
public:
    StandIns();
    // "label" or "host"; empty when the place is the route's own.
    std::string_view of(const dpm_route_entry &route) const;

private:
    std::map<chassis::chip::Address, std::string_view> held_;
};

} // namespace ctl::server
