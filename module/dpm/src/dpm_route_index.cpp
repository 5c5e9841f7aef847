// The route trees with their card-local indexes: by gateway, so that a host event costs what its
// routes cost, and by network, so that the longest match is looked for length by length.
//
// Both indexes yield equal keys in the table's own order.  The places of a gateway are sorted when
// they are asked for, not when a route comes: routes come far more often than hosts.  A destination
// may be stored with host bits set; the index by network holds it without them.
#include "dpm_route_record.h"

#include "dpm_destination.h"
#include "dpm_trace.h"

#include <initializer_list>
#include <sys/random.h>
#include <utility>

namespace {

dpm_route_index &index_of(std::uint32_t family) {
    return family == DPM_FAMILY_IPV4 ? g_dpm_index.ipv4_routes : g_dpm_index.ipv6_routes;
}

// --- by gateway ---

int gateway_order(const route_gateway &a, const route_gateway &b) {
    if (a.vrf != b.vrf)
        return dpm::three_way(a.vrf, b.vrf);
    return dpm_prefix_compare(a.address, b.address);
}

using gateway_index = dpm::avl_table<route_gateway, gateway_order>;

gateway_index by_gateway(std::uint32_t family) {
    return gateway_index(index_of(family).by_gateway);
}

// The table's order among routes of one VRF, that of the gateway's own family before the other's;
// of a route's own places the first comes first.
bool comes_before(const gateway_place &a, const gateway_place &b) {
    const std::uint32_t family = a.route->entry.destination.family;
    if (family != b.route->entry.destination.family)
        return family == a.gateway->address.family;
    if (const int order =
            dpm_prefix_compare(a.route->entry.destination, b.route->entry.destination))
        return order < 0;
    return a.position < b.position;
}

// The gateway with one more user, made for the first; null when memory had run out.
route_gateway *take_gateway(std::uint32_t vrf, const dpm_prefix &address) {
    const gateway_index index = by_gateway(address.family);
    route_gateway key;
    key.vrf = vrf;
    key.address = address;
    dpm_avl_where where;
    route_gateway *present = index.find(key, where);
    if (present == nullptr) {
        dpm::block<route_gateway> made;
        if (!made)
            return nullptr;
        made->vrf = vrf;
        made->address = address;
        made->is_sorted = true;
        INIT_LIST_HEAD(&made->places);
        present = made.release();
        index.insert(*present, where);
    }
    present->users++;
    return present;
}

void give_back(route_gateway *gateway) {
    if (gateway == nullptr || --gateway->users != 0)
        return;
    by_gateway(gateway->address.family).remove(*gateway);
    dpm::free_zeroed(gateway);
}

void give_back_gateways(route_record &record, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; i++)
        give_back(record.gateways()[i].gateway);
}

// All or none.
bool take_gateways(route_record &record) {
    const dpm_route_entry &route = record.entry;
    for (std::uint32_t i = 0; i < route.np_num; i++) {
        gateway_place &place = record.gateways()[i];
        place = {{}, nullptr, &record, i};
        if (!dpm::is_known_family(route.np[i].family))
            continue;
        place.gateway = take_gateway(route.vrf, route.np[i]);
        if (place.gateway == nullptr) {
            give_back_gateways(record, i);
            return false;
        }
    }
    return true;
}

void link_place(gateway_place &place) {
    if (place.gateway == nullptr)
        return;
    route_gateway &gateway = *place.gateway;
    gateway.is_sorted = list_empty(&gateway.places) ||
                        (gateway.is_sorted &&
                         comes_before(dpm::gateway_places::entry_of(gateway.places.prev), place));
    list_add_tail(&place.link, &gateway.places);
}

void unlink_place(gateway_place &place) {
    if (place.gateway != nullptr)
        list_del(&place.link);
}

// --- by network ---

// As many chains as there may be routes, so that they stay short.
constexpr std::uint32_t chain_count = DPM_ROUTE_CAPACITY;

bool has_chains(dpm_route_index &index) {
    if (index.by_network == nullptr)
        index.by_network =
            static_cast<route_record **>(dpm_calloc(chain_count, sizeof *index.by_network));
    return index.by_network != nullptr;
}

// The start of the chain for a network.  The hash has a seed: what is announced to the device comes
// from strangers, who must not be able to fill one chain.
route_record **chain_of(std::uint32_t family, const route_network &network) {
    std::uint32_t hash = g_dpm_index.hash_seed;
    const auto mix = [&](std::uint32_t word) {
        hash = (hash ^ word) * 0x9E3779B1u;
        hash ^= hash >> 15;
    };
    mix(network.vrf << 8 | network.prefix_len);
    for (std::size_t i = 0; i < dpm::address_bytes(family) / sizeof network.address[0]; i++)
        mix(network.address[i]);
    return &index_of(family).by_network[hash % chain_count];
}

route_network network_of(std::uint32_t vrf, const dpm_prefix &address, std::uint32_t prefix_len) {
    route_network network = {vrf, prefix_len, {}};
    std::memcpy(network.address, address.address, sizeof network.address);
    dpm::clear_host_bits(network.address, prefix_len, sizeof network.address);
    return network;
}

// Routes of one network differ in host bits.  The one without any stands in the hash, the others,
// which are rare, in a tree: by network, then in the table's order.
int unmasked_order(const route_record &a, const route_record &b) {
    if (const int order = dpm::bytes_order(&a.network, &b.network, sizeof a.network))
        return order;
    return dpm_prefix_compare(a.entry.destination, b.entry.destination);
}

using unmasked_index =
    dpm::avl_table<route_record, unmasked_order, offsetof(route_record, unmasked)>;

unmasked_index unmasked(std::uint32_t family) {
    return unmasked_index(index_of(family).unmasked);
}

bool has_host_bits(const route_record &record) {
    const dpm_prefix &destination = record.entry.destination;
    return std::memcmp(record.network.address, destination.address,
                       dpm::address_bytes(destination.family)) != 0;
}

void link_network(route_record &record) {
    const dpm_prefix &destination = record.entry.destination;
    record.network = network_of(record.entry.vrf, destination, destination.prefix_len);
    if (has_host_bits(record)) {
        (void)unmasked(destination.family).add(record);
        return;
    }
    route_record *&first = *chain_of(destination.family, record.network);
    record.next = std::exchange(first, &record);
}

void unlink_network(route_record &record) {
    const std::uint32_t family = record.entry.destination.family;
    if (has_host_bits(record)) {
        unmasked(family).remove(record);
        return;
    }
    route_record **slot = chain_of(family, record.network);
    while (*slot != &record)
        slot = &(*slot)->next;
    *slot = record.next;
}

// The first route of a network, in table order, that is wanted; null when there is none.
template <class Wanted>
route_record *first_of_network(std::uint32_t family, const route_network &network, Wanted wanted) {
    for (route_record *masked = *chain_of(family, network); masked != nullptr;
         masked = masked->next)
        if (masked->network == network && wanted(*masked))
            return masked; // host bits only make a destination greater
    if (unmasked(family).empty())
        return nullptr;
    route_record key; // only what the compare reads is set
    key.network = network;
    key.entry.destination = {
        static_cast<std::uint16_t>(family), static_cast<std::uint16_t>(network.prefix_len), {}};
    for (route_record *record = unmasked(family).find_from(key);
         record != nullptr && record->network == network; record = unmasked(family).next(*record))
        if (wanted(*record))
            return record;
    return nullptr;
}

bool is_candidate(const route_record &record) {
    const dpm_route_entry &route = record.entry;
    return !record.is_over_tunnel && route.sdk_index > 0 &&
           route.sdk_index != DPM_ROUTE_NO_ADDRESS &&
           !dpm::is_claimed_by(dpm::destination_rank::label, route.vrf, route.destination);
}

// --- by tunnel ---

// No other route has a gateway with neither address nor next hop.
bool is_tunnels_own(const route_record &record) {
    const dpm_route_entry &route = record.entry;
    return record.is_over_tunnel && route.np_num == 1 && route.ecmp_enable == DPM_ROUTE_SINGLE &&
           route.np[0].family == DPM_FAMILY_NONE && route.host_index[0] == 0;
}

} // namespace

namespace dpm {

void route_indexes_create() {
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        by_gateway(family).create(), unmasked(family).create();
    routes_of_tunnels().create();
    (void)getrandom(&g_dpm_index.hash_seed, sizeof g_dpm_index.hash_seed, GRND_NONBLOCK);
}

route_block::route_block(const dpm_route_entry &route) : record_(nullptr) {
    if (!has_chains(index_of(route.destination.family)))
        return;
    auto *record = static_cast<route_record *>(dpm_malloc(route_record::size_bytes(route.np_num)));
    if (record == nullptr)
        return;
    std::memset(static_cast<void *>(record), 0, sizeof *record);
    record->entry = route;
    (void)dpm_timer_node_init(&record->entry.delete_timer); // a node off every list is its own
    record->is_over_tunnel = is_over_tunnel(route);
    if (take_gateways(*record))
        record_ = record;
    else
        free_zeroed(record);
}

route_block::~route_block() {
    if (record_ != nullptr)
        free_route(*record_);
}

void free_route(route_record &record) {
    give_back_gateways(record, record.entry.np_num);
    free_zeroed(&record, route_record::size_bytes(record.entry.np_num));
}

void link_route(route_record &record) {
    const dpm_prefix &destination = record.entry.destination;
    (void)routes_of(destination.family).add(record.entry);
    link_network(record);
    index_of(destination.family).of_length[destination.prefix_len]++;
    for (std::uint32_t i = 0; i < record.entry.np_num; i++)
        link_place(record.gateways()[i]);
    record.is_tunnels = is_tunnels_own(record);
    if (record.is_tunnels)
        (void)routes_of_tunnels().add(record);
}

void unlink_route(route_record &record) {
    const dpm_prefix &destination = record.entry.destination;
    if (record.is_tunnels)
        routes_of_tunnels().remove(record);
    for (std::uint32_t i = 0; i < record.entry.np_num; i++)
        unlink_place(record.gateways()[i]);
    index_of(destination.family).of_length[destination.prefix_len]--;
    unlink_network(record);
    routes_of(destination.family).remove(record.entry);
}

int tunnel_route_order(const route_record &a, const route_record &b) {
    if (a.entry.vrf != b.entry.vrf)
        return three_way(a.entry.vrf, b.entry.vrf);
    const int order = std::strncmp(a.entry.np_ifname[0], b.entry.np_ifname[0], DPM_IFNAME_BYTES);
    if (order != 0)
        return three_way(order, 0);
    if (a.entry.destination.family != b.entry.destination.family)
        return three_way(a.entry.destination.family, b.entry.destination.family);
    return dpm_prefix_compare(a.entry.destination, b.entry.destination);
}

tunnel_route_index routes_of_tunnels() {
    return tunnel_route_index(g_dpm_index.route_by_tunnel);
}

bool is_best_route_candidate(const dpm_route_entry &route) {
    return is_candidate(record_of(route));
}

bool has_default(std::uint32_t vrf, std::uint32_t family, const route_record *but) {
    if (index_of(family).of_length[0] == 0)
        return false;
    const auto is_other = [&](const route_record &each) {
        return &each != but && each.entry.sdk_index > 0;
    };
    const dpm_prefix destination = {static_cast<std::uint16_t>(family), 0, {}};
    return first_of_network(family, network_of(vrf, destination, 0), is_other) != nullptr;
}

dpm_route_entry *find_route(std::uint32_t vrf, const dpm_prefix &destination) {
    if (destination.prefix_len > host_bits(destination.family) ||
        index_of(destination.family).of_length[destination.prefix_len] == 0)
        return nullptr;
    route_record key; // only what the compare reads is set
    key.entry.vrf = vrf;
    key.entry.destination = destination;
    return routes_of(destination.family).find(key.entry);
}

route_gateway *find_gateway(std::uint32_t vrf, const dpm_prefix &address) {
    route_gateway key;
    key.vrf = vrf;
    key.address = address;
    route_gateway *const gateway = by_gateway(address.family).find(key);
    if (gateway != nullptr && !gateway->is_sorted) {
        gateway_places(gateway->places).sort(comes_before);
        gateway->is_sorted = true;
    }
    return gateway;
}

} // namespace dpm

dpm_route_entry *dpm_route_find_best_route(std::uint32_t vrf, const dpm_prefix *address) {
    if (address == nullptr) {
        (void)dpm::null_parameter();
        return nullptr;
    }
    DPM_TRACE(
        "%s %d::vrfid %d type %d ipaddr %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x masklen %d\r\n",
        vrf, address->family, DPM_IPV6_BYTES(*address), address->prefix_len);
    if (!dpm::is_iptype(address->family, DPM_CALL_SITE))
        return nullptr;
    const dpm_route_index &index = index_of(address->family);
    for (int prefix_len = dpm::host_bits(address->family); prefix_len >= 0; prefix_len--) {
        if (index.of_length[prefix_len] == 0)
            continue;
        const auto length = static_cast<std::uint32_t>(prefix_len);
        if (route_record *record =
                first_of_network(address->family, network_of(vrf, *address, length), is_candidate))
            return &record->entry;
    }
    return nullptr;
}
