// The lines of `ip neigh`, `ip route` and `ip monitor`, read one by one.
//
//   10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 REACHABLE
//   Deleted 10.1.1.3 dev vlanif100 lladdr 02:00:00:00:01:03 STALE
//   10.1.1.4 dev vlanif100 FAILED
//   10.2.0.0/16 via 10.1.1.2 dev vlanif100 proto bird metric 32
//   10.3.0.0/16 proto bird metric 32 \	nexthop via 10.1.1.2 dev vlanif100 weight 1 \	nexthop ...
//   10.4.0.0/16 encap mpls 100 via 10.1.1.2 dev vlanif100
//   100 as to 200 via inet 10.1.1.2 dev vlanif100 proto static
//
// A label or a time stamp in front ("[ROUTE]") is passed over.  Of one device alone ip names no
// device: it is given along then, as `device`.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

struct NeighbourLine {
    enum class Event { learnt, lost, none, not_understood } event = Event::not_understood;
    std::string address, device, mac;
};

NeighbourLine read_neighbour(std::string_view line, std::string_view device = {});

struct RouteLine {
    struct Gateway {
        std::string address, device; // no address: directly connected
        std::string labels;          // that lead there: "100"; empty: none
        bool operator==(const Gateway &) const = default;
    };
    enum class Event { added, gone, not_understood } event = Event::not_understood;
    std::string why_skipped; // what kind of routes is not for the chip; empty: this one is
    // As printed; a default with its length: 0.0.0.0/0, ::/0.  Empty: it takes no other route's
    // place, since it stands in another table, or is for some packets only.  A number: packets with
    // this label.
    std::string destination;
    std::string swap; // for that label; empty: it is popped
    std::vector<Gateway> gateways;
    std::uint64_t metric = 0; // of several to one destination the kernel uses the lowest
    unsigned type = 0;        // of the route, by who installed it
    // The destination alone: its next hops may follow, and without them it is no route.
    bool goes_on() const;
    bool is_of_label() const;
};

RouteLine read_route(std::string_view line, std::string_view device = {});

// What the lines so far have told of the routes to each destination, those included that are not for
// the chip.  The kernel reports the end of one of an IPv6 route's next hops as if the route were
// deleted: what is left of it is known here.
class KnownRoutes {
public:
    // The route that counts for the line's destination from now on, as added, or the line itself
    // when its end leaves none; nothing when another route counted before and still does.
    std::optional<RouteLine> after(const RouteLine &line);

private:
    std::map<std::string, std::map<std::uint64_t, RouteLine>> routes_; // by destination and metric
};

} // namespace ctl
