// What the sources of the laws share.
#pragma once

#include "dpm_route.h"
#include "support/laws.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace rig::laws {

// Records as bytes without what is card-local, in an order of their own, since a card-local part
// may order the table.
using Records = std::multimap<std::string, std::string>; // bytes to name

template <class Entry> std::string bytes_of(Entry entry) {
    entry.node = {};
    return {reinterpret_cast<const char *>(&entry), sizeof entry};
}

template <class Visitor> void each_route(Visitor visit) {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (const dpm_route_entry &route : dpm::routes_of(family))
            visit(route);
}

inline chassis::chip::Address chip_key(std::uint32_t vrf, const dpm_prefix &ip) {
    chassis::chip::Address key{std::int32_t(vrf), ip.family, {}, ip.prefix_len};
    std::copy_n(ip.address, ip.family == DPM_FAMILY_IPV4 ? 4 : 16, key.bytes.begin());
    return key;
}

inline void expect_equal(const char *what, unsigned left, unsigned right, Lines &lines) {
    if (left != right)
        lines.push_back(std::string(what) + ": " + std::to_string(left) + " and " +
                        std::to_string(right));
}

// The routes' share of the laws (laws_routes.cpp).  The card in question is current, but for those
// that take one.
void want_routes(std::map<chassis::chip::Address, std::uint32_t> &wanted, Lines &lines);
Records route_records(chassis::Card &card); // and groups
Records label_records(chassis::Card &card);
void check_routes_ifindexes(chassis::Card &standby, Lines &lines);
void check_route_indexes(Lines &lines); // and those of label entries
unsigned route_timers();                // armed
std::size_t blocks_of_routes();         // and of groups and label entries

} // namespace rig::laws
