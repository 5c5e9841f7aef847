// The route trees with their card-local indexes: by gateway, so that a host event costs what its
// routes cost, and by network, so that the longest match is looked for length by length.
//
// Both indexes yield equal keys in the table's own order.  A destination may be stored with host
// bits set; the index by network holds it without them.
#include "dpm_route_record.h"

#include "dpm_if.h"
#include "dpm_l3vpn.h"
#include "dpm_trace.h"

#include <initializer_list>

namespace {

// By family first, so that only addresses of one kind are compared as such.
int address_order(const dpm_prefix &a, const dpm_prefix &b) {
    if (a.family != b.family)
        return dpm::three_way(a.family, b.family);
    return dpm::is_known_family(a.family) ? dpm_prefix_compare(a, b)
                                          : dpm::bytes_order(&a, &b, sizeof a);
}

int gateway_order(const gateway_place &a, const gateway_place &b) {
    const dpm_route_entry &route_a = a.route->entry;
    const dpm_route_entry &route_b = b.route->entry;
    if (route_a.vrf != route_b.vrf)
        return dpm::three_way(route_a.vrf, route_b.vrf);
    if (const int order = address_order(route_a.np[a.position], route_b.np[b.position]))
        return order;
    if (const int order = dpm_prefix_compare(route_a.destination, route_b.destination))
        return order;
    return dpm::three_way(a.position, b.position);
}

int network_order(const network_place &a, const network_place &b) {
    if (a.vrf != b.vrf)
        return dpm::three_way(a.vrf, b.vrf);
    if (a.prefix_len != b.prefix_len)
        return dpm::three_way(a.prefix_len, b.prefix_len);
    if (const int order = dpm::bytes_order(a.network, b.network, sizeof a.network))
        return order;
    if (a.route == nullptr || b.route == nullptr) // a key: before every route of its network
        return a.route == b.route ? 0 : a.route == nullptr ? -1 : 1;
    return dpm_prefix_compare(a.route->entry.destination, b.route->entry.destination);
}

using gateway_index = dpm::avl_table<gateway_place, gateway_order>;
using network_index = dpm::avl_table<network_place, network_order>;

dpm_route_index &index_of(std::uint32_t family) {
    return family == DPM_FAMILY_IPV4 ? g_dpm_index.ipv4_routes : g_dpm_index.ipv6_routes;
}

gateway_index by_gateway(std::uint32_t family) {
    return gateway_index(index_of(family).by_gateway);
}
network_index by_network(std::uint32_t family) {
    return network_index(index_of(family).by_network);
}

network_place place_of(std::uint32_t vrf, const dpm_prefix &address, std::uint32_t prefix_len) {
    network_place place = {{}, vrf, prefix_len, {}, nullptr};
    std::memcpy(place.network, address.address, sizeof place.network);
    dpm_network_ipv6_get(reinterpret_cast<std::uint8_t *>(place.network), prefix_len);
    return place;
}

void index_gateways(route_record &record) {
    for (std::uint32_t i = 0; i < record.entry.np_num; i++) {
        gateway_place &place = record.places->gateways[i];
        place.route = &record;
        place.position = i;
        (void)by_gateway(record.entry.destination.family).add(place);
    }
}

bool is_candidate(const dpm_route_entry &route) {
    return !dpm::is_over_tunnel(route) && route.sdk_index > 0 &&
           route.sdk_index != DPM_ROUTE_NO_ADDRESS && !dpm::has_tunnel_ftn(route.destination);
}

bool is_same_network(const network_place &a, const network_place &b) {
    return a.vrf == b.vrf && a.prefix_len == b.prefix_len &&
           std::memcmp(a.network, b.network, sizeof a.network) == 0;
}

// The first candidate, in table order, of the network of this length that holds the address.
dpm_route_entry *match_of_length(std::uint32_t vrf, const dpm_prefix &address,
                                 std::uint32_t prefix_len) {
    const network_index index = by_network(address.family);
    const network_place key = place_of(vrf, address, prefix_len);
    for (network_place *place = index.find_from(key);
         place != nullptr && is_same_network(*place, key); place = index.next(*place)) {
        const dpm_route_entry &route = place->route->entry;
        __builtin_prefetch(&route.destination); // three lines of the cache, asked for at once
        __builtin_prefetch(&route.np_ifname);
        __builtin_prefetch(&route.sdk_index);
        if (is_candidate(route))
            return &place->route->entry;
    }
    return nullptr;
}

} // namespace

namespace dpm {

void route_indexes_create() {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6}) {
        by_gateway(family).create();
        by_network(family).create();
    }
}

void link_route(route_record &record) {
    const dpm_prefix &destination = record.entry.destination;
    (void)routes_of(destination.family).add(record.entry);
    network_place &place = record.places->network;
    place = place_of(record.entry.vrf, destination, destination.prefix_len);
    place.route = &record;
    (void)by_network(destination.family).add(place);
    index_of(destination.family).of_length[destination.prefix_len]++;
    index_gateways(record);
}

void unlink_route(route_record &record) {
    const dpm_prefix &destination = record.entry.destination;
    for (std::uint32_t i = 0; i < record.entry.np_num; i++)
        by_gateway(destination.family).remove(record.places->gateways[i]);
    index_of(destination.family).of_length[destination.prefix_len]--;
    by_network(destination.family).remove(record.places->network);
    routes_of(destination.family).remove(record.entry);
}

gateway_place *first_by_gateway(std::uint32_t family, std::uint32_t vrf,
                                const dpm_prefix &gateway) {
    route_record key_route;
    key_route.entry.vrf = vrf;
    key_route.entry.destination = {static_cast<std::uint16_t>(family), 0, {}};
    key_route.entry.np[0] = gateway;
    const gateway_place key = {{}, &key_route, 0};
    return by_gateway(family).find_from(key);
}

gateway_place *next_by_gateway(std::uint32_t family, const gateway_place &place) {
    return by_gateway(family).next(place);
}

} // namespace dpm

dpm_route_entry *dpm_route_find_best_route(std::uint32_t vrf, const dpm_prefix *address) {
    if (address == nullptr) {
        (void)dpm::null_parameter();
        return nullptr;
    }
    const std::uint8_t *ip = address->address;
    DPM_TRACE("%s %d::vrfid %d type %d ipaddr "
              "%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x masklen %d\r\n",
              vrf, address->family, ip[0], ip[1], ip[2], ip[3], ip[4], ip[5], ip[6], ip[7], ip[8],
              ip[9], ip[10], ip[11], ip[12], ip[13], ip[14], ip[15], address->prefix_len);
    if (!dpm::is_known_family(address->family)) {
        DPM_TRACE("%s %d::iptype = %d is err!\r\n", address->family);
        return nullptr;
    }
    const dpm_route_index &index = index_of(address->family);
    for (int prefix_len = dpm::host_bits(address->family); prefix_len >= 0; prefix_len--) {
        if (index.of_length[prefix_len] == 0)
            continue;
        if (dpm_route_entry *route =
                match_of_length(vrf, *address, static_cast<std::uint32_t>(prefix_len)))
            return route;
    }
    return nullptr;
}
