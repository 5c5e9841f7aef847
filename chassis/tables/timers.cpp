// Timers that run, by what they wait for.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace chassis::tables {

namespace {

void each_timer(const TableOf<Timer>::Visit &visit) {
    unreachable.each([&](const dpm_unreachable_entry &entry) {
        visit({"probe", entry.vrf, host_of(entry.ip.family, entry.ip.address), text_of(entry.ip),
               &entry.timer});
    });
    hold.each([&](const dpm_hold_entry &entry) {
        visit({"hold", entry.vrf, entry.ip, text_of(entry.ip), &entry.timer});
    });
    routes.each([&](const dpm_route_entry &route) {
        if (route.delete_timer.expiry_sec != 0)
            visit({"route-delete", route.vrf, route.destination, prefix_text(route.destination),
                   &route.delete_timer});
    });
    bfd.each([&](const dpm_bfd_sess &session) {
        if (session.timer.expiry_sec != 0)
            visit({"bfd-debounce", 0, session.told.next_hop,
                   std::to_string(session.told.local_disc), &session.timer});
    });
}

} // namespace

const TableOf<Timer> timers{
    .each = each_timer,
    .places =
        [](auto &timer) {
            return std::vector<Place>{{timer.vrf, timer.prefix}};
        },
    .columns = {{"timer", TABLE_MEMBER(name)},
                {"vrf", TABLE_MEMBER(vrf)},
                {"address", TABLE_MEMBER(about)},
                {"due_in_sec", [](auto &timer) { return seconds_until(*timer.node); }}},
};

} // namespace chassis::tables
