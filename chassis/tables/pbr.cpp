// Policy routes.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

namespace chassis::tables {

namespace {

chip::StreamKey stream_of(const dpm_policy_route_entry &route) {
    const auto bytes = [](const std::uint8_t *buffer, std::uint32_t length) {
        return std::vector<std::uint8_t>(buffer, buffer + length);
    };
    return {route.vsid, bytes(route.rule_buffer, route.rule_buffer_len),
            bytes(route.port_buffer, route.port_buffer_len)};
}

std::string rule_of(const dpm_policy_route_entry &route) {
    return kinds::stream::key_text(stream_of(route));
}

std::string missing(const dpm_policy_route_entry &route) {
    return route.nexthop > 0 ? "" : "its next hop " + text_of(route.next_hop);
}

} // namespace

const TableOf<dpm_policy_route_entry> pbr{
    .each = walk<dpm_api_get_policy_route_entry_first, dpm_api_get_policy_route_entry_next>,
    .key = rule_of,
    .places =
        [](auto &route) {
            return std::vector<Place>{{route.vrf, route.next_hop}};
        },
    .columns = {{"rule", rule_of},
                {"vrf", TABLE_MEMBER(vrf)},
                {"via", [](auto &route) { return text_of(route.next_hop); }},
                {"interface", [](auto &route) { return interface_name(route.if_index); }},
                {"nexthop", TABLE_MEMBER(nexthop)},
                {"+set", TABLE_MEMBER(vsid)}},
    .in_chip =
        [](auto &route, Wanted &wanted) {
            if (route.nexthop > 0)
                wanted.want<kinds::stream>(stream_of(route), chip::Index(route.nexthop));
        },
    .waits_for = missing,
    .why =
        [](auto &route) {
            return "policy route, " + rule_of(route) +
                   (route.nexthop > 0 ? ": next hop " + std::to_string(route.nexthop)
                                      : ": waits for " + missing(route)) +
                   "\n";
        },
};

} // namespace chassis::tables
