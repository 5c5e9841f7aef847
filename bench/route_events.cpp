// What a host event and a lookup cost at a full table of routes.
//
// What reads every record is compared with the same work on the same records, so that a figure does
// not tell how large a machine's caches are: a walk over them in the same order that makes the same
// requests, and a find in a hash map of another maker over the same keys.
#include "bench/routes.h"

#include "dpm_address.h"
#include "dpm_driver.h"
#include "dpm_route.h"
#include "dpm_slot.h"
#include "dpm_trace.h"

#include <algorithm>
#include <boost/functional/hash.hpp>
#include <boost/unordered_map.hpp>
#include <cstring>
#include <numeric>
#include <random>
#include <utility>

namespace bench {

namespace {

constexpr double event_limit = 1.6;
constexpr double walk_limit = 1.5;
constexpr double lookup_limit = 1.5;

std::vector<dpm_route_entry *> all_routes() { // in table order
    std::vector<dpm_route_entry *> routes;
    for (const dpm_route_entry *route = dpm_api_get_route_entry_first(DPM_FAMILY_IPV4);
         route != nullptr; route = dpm_api_get_route_entry_next(route))
        routes.push_back(const_cast<dpm_route_entry *>(route));
    return routes;
}

// The network that a route leads to, and the records by it.
struct Network {
    std::uint32_t vrf, prefix_len, address;
    bool operator==(const Network &) const = default;
    friend std::size_t hash_value(const Network &network) {
        std::size_t seed = 0;
        boost::hash_combine(seed, network.vrf);
        boost::hash_combine(seed, network.prefix_len);
        boost::hash_combine(seed, network.address);
        return seed;
    }
};
using Networks = boost::unordered_map<Network, const dpm_route_entry *>;

Network network_of(std::uint32_t vrf, const dpm_prefix &address, std::uint32_t prefix_len) {
    std::uint32_t word;
    std::memcpy(&word, address.address, sizeof word);
    const std::uint32_t mask = prefix_len == 0 ? 0 : ~0u << (32 - prefix_len);
    return {vrf, prefix_len, word & __builtin_bswap32(mask)};
}

// A card with `count` routes over one host, the last of them over another.
class EventCard {
public:
    EventCard(unsigned slot, unsigned count) : card_(slot, 2), order_(count) {
        const chassis::CardScope scope(card_.card());
        for (unsigned i = 0; i + 1 < count; i++)
            card_.route(i, DPM_OPER_ADD, 0);
        card_.route(count - 1, DPM_OPER_ADD, 1);
        card_.check(count);
        routes_ = all_routes();
        for (const dpm_route_entry *route : routes_)
            networks_.emplace(network_of(0, route->destination, route->destination.prefix_len),
                              route);
        std::iota(order_.begin(), order_.end(), 0);
    }

    // Nanoseconds for a host that goes and comes.
    double used_by_one() { return go_and_come(1, 256); }
    double used_by_all() { return go_and_come(0, passes) / double(routes_.size()); }

    // By who has nothing to look for: the same changes in the same records, and what leaves the
    // library for each of them, a request of the chip, a log line, a record for the peer.
    double walk() {
        const chassis::CardScope scope(card_.card());
        std::vector<dpm_route_entry *> followers;
        for (dpm_route_entry *route : routes_)
            if (std::memcmp(route->np[0].address, host_address(0).address, 4) == 0)
                followers.push_back(route);
        const std::int32_t host_index = followers.front()->sdk_index;
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < passes; i++)
                for (const std::int32_t index : {-1, host_index})
                    for (dpm_route_entry *route : followers)
                        follow(*route, index);
        });
        return nsec / passes / double(routes_.size());
    }

    // Nanoseconds a lookup of the longest match, each route once in an order that is new.
    double look_up() {
        return look_up([](const dpm_prefix &address) {
            return dpm_route_find_best_route(0, &address) != nullptr;
        });
    }
    double look_up_in_map() {
        return look_up([this](const dpm_prefix &address) {
            const auto found = networks_.find(network_of(0, address, 24));
            return found != networks_.end() && found->second->sdk_index > 0;
        });
    }

private:
    static constexpr unsigned passes = 2;

    double go_and_come(unsigned host, unsigned times) {
        const chassis::CardScope scope(card_.card());
        return time_of([&] {
                   for (unsigned i = 0; i < times; i++) {
                       card_.host(host, DPM_OPER_DEL);
                       card_.host(host, DPM_OPER_ADD);
                   }
               }) /
               times;
    }

    static void follow(dpm_route_entry &route, std::int32_t index) {
        const dpm_prefix &to = route.destination;
        const std::int32_t old_index = std::exchange(route.sdk_index, index > 0 ? index : 0);
        route.host_index[0] = index;
        (void)ulogPrintf(g_dpm_global.module_id, DPM_LEVEL_TRACE,
                         "%s/%d over %s: %d %d, was %d\r\n", dpm::address_text(to).c_str(),
                         to.prefix_len, dpm::address_text(route.np[0]).c_str(), route.route_type,
                         route.sdk_index, old_index);
        if (index > 0)
            (void)dpm_driver_route_add(route.vrf, to.family, to.address, to.prefix_len, index,
                                       DPM_SLOT_ALL_BITS);
        else
            (void)dpm_driver_route_del(route.vrf, to.family, to.address, to.prefix_len, old_index,
                                       DPM_SLOT_ALL_BITS);
        (void)dpm_route_entry_add_sync_send(&route);
    }

    template <class Find> double look_up(Find find) {
        const chassis::CardScope scope(card_.card());
        std::shuffle(order_.begin(), order_.end(), random_);
        const double nsec = time_of([&] {
            for (const unsigned i : order_) {
                dpm_prefix address = destination(i);
                address.prefix_len = 32;
                address.address[3] = std::uint8_t(1 + i % 250);
                if (!find(address))
                    fail("a route is not found");
            }
        });
        return nsec / double(order_.size());
    }

    RouteCard card_;
    std::vector<unsigned> order_;
    std::vector<dpm_route_entry *> routes_;
    Networks networks_;
    std::mt19937 random_{1};
};

} // namespace

void measure_route_events(const Options &options, const Report &report) {
    EventCard large(9, full), small(10, sixteenth);
    Comparison one, all, lookup;
    for (unsigned round = 0; round < options.rounds; round++) {
        one.round([&] { return large.used_by_one(); }, [&] { return small.used_by_one(); });
        all.round([&] { return large.used_by_all(); }, [&] { return large.walk(); });
        lookup.round([&] { return large.look_up(); }, [&] { return large.look_up_in_map(); });
    }
    report({"a host of one route goes and comes, 16k / 1k routes", one.time(), "ns", one.ratio(),
            event_limit});
    report({"a host of 16k routes, a route / in a plain walk", all.time(), "ns", all.ratio(),
            walk_limit});
    report({"best route, 16k routes / in a hash map", lookup.time(), "ns", lookup.ratio(),
            lookup_limit});
}

} // namespace bench
