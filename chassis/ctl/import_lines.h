// The lines of `ip neigh`, `ip route` and `ip monitor`, read one by one.
//
//   10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 REACHABLE
//   Deleted 10.1.1.3 dev vlanif100 lladdr 02:00:00:00:01:03 STALE
//   10.1.1.4 dev vlanif100 FAILED
//   10.2.0.0/16 via 10.1.1.2 dev vlanif100 proto bird metric 32
//   10.3.0.0/16 proto bird metric 32 \	nexthop via 10.1.1.2 dev vlanif100 weight 1 \	nexthop ...
//
// A label or a time stamp in front ("[ROUTE]") is passed over.
#pragma once

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

NeighbourLine read_neighbour(std::string_view line);

struct RouteLine {
    struct Gateway {
        std::string address, device; // no address: directly connected
        bool operator==(const Gateway &) const = default;
    };
    enum class Event { added, gone, skipped, not_understood } event = Event::not_understood;
    std::string why_skipped;
    std::string destination; // as printed; a default with its length: 0.0.0.0/0, ::/0
    std::vector<Gateway> gateways;
    unsigned type = 0; // of the route, by who installed it
    // The destination alone: its next hops may follow.
    bool goes_on() const;
};

RouteLine read_route(std::string_view line);

// The kernel reports the end of one of an IPv6 route's next hops as if the route were deleted.
// This remembers the IPv6 routes that were reported with several, and tells what is left.
class SeveralGateways {
public:
    // `route` as it is to be carried out: a deletion that leaves gateways becomes what is left.
    RouteLine whole(RouteLine route);

private:
    std::map<std::string, std::vector<RouteLine::Gateway>> routes_; // by destination
};

} // namespace ctl
