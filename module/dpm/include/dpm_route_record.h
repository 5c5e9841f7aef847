// What stands beside each route, card-locally: what the chip holds of it, and its places in the
// indexes.  For the sources of the route table alone.
#pragma once

#include "dpm.h"
#include "dpm_route.h"

struct route_record;

// The place of one gateway of a route in the index by gateway.
struct gateway_place {
    dpm_avl_node node; // first
    route_record *route;
    std::uint32_t position; // of the gateway in its route
};

// The place of a route in the index by network.  The key stands beside the node, so that a search
// touches one line of the cache a level.
struct network_place {
    dpm_avl_node node; // first
    std::uint32_t vrf;
    std::uint32_t prefix_len;
    std::uint32_t network[4]; // the destination without its host bits, bytes in network order
    route_record *route;
};

struct route_record {
    dpm_route_entry entry;   // first: the tables see this alone
    std::int32_t chip_index; // what the chip's entry points to; 0: the chip has none
    network_place network;
    gateway_place gateways[DPM_ROUTE_GATEWAYS];
};

inline route_record &record_of(dpm_route_entry &route)
{
    return reinterpret_cast<route_record &>(route);
}
inline const route_record &record_of(const dpm_route_entry &route)
{
    return reinterpret_cast<const route_record &>(route);
}

namespace dpm {

// Put a route's record into the table and its indexes, or take it out.  No index is changed
// elsewhere.
void link_route(route_record &record);
void unlink_route(route_record &record);

// The first gateway place of a tree's routes in a VRF with this address, and the one behind it;
// null at the end.  Places of one address come in the table's order.
gateway_place *first_by_gateway(std::uint32_t family, std::uint32_t vrf, const dpm_prefix &gateway);
gateway_place *next_by_gateway(std::uint32_t family, const gateway_place &place);

void route_indexes_create();

} // namespace dpm
