// What stands beside each route, card-locally: what the chip holds of it, and its places in the
// indexes.  For the sources of the route table alone.
#pragma once

#include "dpm.h"
#include "dpm_memory.h"
#include "dpm_route.h"

struct route_record;

// The place of one gateway of a route in the index by gateway.
struct gateway_place {
    dpm_avl_node node; // first
    route_record *route;
    std::uint32_t position; // of the gateway in its route
};

// The place of a route in the index by network, with the key in it.
struct network_place {
    dpm_avl_node node; // first
    std::uint32_t vrf;
    std::uint32_t prefix_len;
    std::uint32_t network[4]; // the destination without its host bits, bytes in network order
    route_record *route;
};

// A route's places in the indexes: a small block of their own, so that a search or a walk stays
// among few pages.  There are as many gateways as the route has.
struct route_places {
    network_place network;
    gateway_place gateways[DPM_ROUTE_GATEWAYS];

    static constexpr std::size_t size_bytes(std::uint32_t gateway_count) {
        return sizeof(network_place) + gateway_count * sizeof(gateway_place);
    }
};
static_assert(sizeof(route_places) == route_places::size_bytes(DPM_ROUTE_GATEWAYS));

struct route_record {
    dpm_route_entry entry;   // first: the tables see this alone
    std::int32_t chip_index; // what the chip's entry points to; 0: the chip has none
    bool is_mirrored;        // another card has programmed it: chip_index is what that card left
    route_places *places;    // owned
};

inline route_record &record_of(dpm_route_entry &route) {
    return reinterpret_cast<route_record &>(route);
}
inline const route_record &record_of(const dpm_route_entry &route) {
    return reinterpret_cast<const route_record &>(route);
}

namespace dpm {

// A route's blocks before the table takes them.  False when memory had run out.
class route_block {
public:
    explicit route_block(std::uint32_t gateway_count)
        : places_(
              static_cast<route_places *>(dpm_malloc(route_places::size_bytes(gateway_count)))) {}
    ~route_block() { dpm_free(places_); }
    route_block(const route_block &) = delete;
    route_block &operator=(const route_block &) = delete;

    explicit operator bool() const { return record_ && places_ != nullptr; }
    route_record *operator->() const { return record_.get(); }
    route_record &operator*() const { return *record_; }
    route_record *release() {
        record_->places = places_;
        places_ = nullptr;
        return record_.release();
    }

private:
    block<route_record> record_;
    route_places *places_;
};

inline void free_route(route_record &record) {
    dpm_free(record.places);
    free_zeroed(&record);
}

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
