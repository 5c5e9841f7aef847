// What stands beside each route, card-locally: what the chip holds of it, and its places in the
// indexes.  For the sources of the route table alone.
#pragma once

#include "dpm.h"
#include "dpm_list.h"
#include "dpm_memory.h"
#include "dpm_route.h"

#include <utility>

struct route_record;

// A gateway that routes of a VRF have; their destinations may be of the other family.
struct route_gateway {
    dpm_avl_node node; // first
    std::uint32_t vrf;
    dpm_prefix address;
    list_head places;    // of the routes that are in the table
    bool is_sorted;      // the places stand in the table's order
    std::uint32_t users; // places that refer to it; it goes with the last
};

// The place of one gateway of a route among those of the same gateway.
struct gateway_place {
    list_head link;
    route_gateway *gateway; // null when no host can ever resolve it
    route_record *route;
    std::uint32_t position; // of the gateway in its route
};

// What the index by network compares: a destination without its host bits.
struct route_network {
    std::uint32_t vrf;
    std::uint32_t prefix_len;
    std::uint32_t address[4]; // bytes in network order
    bool operator==(const route_network &) const = default;
};

// Behind the record stand its places in the index by gateway, one for each gateway.
struct route_record {
    dpm_route_entry entry;   // first: the tables see this alone
    std::int32_t chip_index; // what the chip's entry points to; 0: the chip has none
    std::uint32_t sync;      // that brought it
    bool is_mirrored;        // another card has programmed it: chip_index is what that card left
    bool is_over_tunnel;
    bool is_tunnels;       // made by a tunnel's request: it leads where the tunnel does
    route_network network; // set while it is linked
    route_record *next;    // in its chain of the index by network, or
    dpm_avl_node unmasked; // among those with host bits set
    dpm_avl_node of_tunnel; // among those of its tunnel

    gateway_place *gateways() { return reinterpret_cast<gateway_place *>(this + 1); }
    static constexpr std::size_t size_bytes(std::uint32_t gateway_count) {
        return sizeof(route_record) + gateway_count * sizeof(gateway_place);
    }
};
static_assert(sizeof(route_record) % alignof(gateway_place) == 0);

inline route_record &record_of(dpm_route_entry &route) {
    return reinterpret_cast<route_record &>(route);
}
inline const route_record &record_of(const dpm_route_entry &route) {
    return reinterpret_cast<const route_record &>(route);
}

namespace dpm {

// A copy of a route with all that the table and its indexes need for it, before the table takes it:
// linking cannot fail.  False when memory had run out.
class route_block {
public:
    explicit route_block(const dpm_route_entry &route);
    ~route_block();
    route_block(const route_block &) = delete;
    route_block &operator=(const route_block &) = delete;

    explicit operator bool() const { return record_ != nullptr; }
    route_record *operator->() const { return record_; }
    route_record &operator*() const { return *record_; }
    route_record *release() { return std::exchange(record_, nullptr); }

private:
    route_record *record_;
};

// Frees a record that is not, or no longer, linked.
void free_route(route_record &record);

// Whether a default route of a VRF and family, other than the one that is given, points somewhere:
// destinations may differ in host bits alone.
bool has_default(std::uint32_t vrf, std::uint32_t family, const route_record *but = nullptr);

// Put a route's record into the table and its indexes, or take it out.  No index is changed
// elsewhere.
void link_route(route_record &record);
void unlink_route(route_record &record);

// Routes that tunnels' requests made, by VRF, name of the tunnel, and destination.
int tunnel_route_order(const route_record &a, const route_record &b);
using tunnel_route_index =
    avl_table<route_record, tunnel_route_order, offsetof(route_record, of_tunnel)>;
tunnel_route_index routes_of_tunnels();

// Whether a route may lead to a tunnel's destination: the longest of those that may does.
bool is_best_route_candidate(const dpm_route_entry &route);

// The places of a VRF's routes over a gateway, in the table's order; null when there are none.
using gateway_places = list_view<gateway_place, &gateway_place::link>;
route_gateway *find_gateway(std::uint32_t vrf, const dpm_prefix &address);

void route_indexes_create();

} // namespace dpm
