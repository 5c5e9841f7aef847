// The lines in which ip(8) tells of routes and neighbours.
#include "chassis/ctl/import_lines.h"

#include <gtest/gtest.h>
#include <map>

namespace {

using Event = ctl::RouteLine::Event;

std::string told(const ctl::RouteLine &route) {
    std::string text = route.destination;
    for (const auto &gateway : route.gateways)
        text += (gateway.labels.empty() ? " " : " " + gateway.labels + ">") +
                (gateway.address.empty() ? "-" : gateway.address) + "@" + gateway.device;
    text += route.swap.empty() ? "" : " as " + route.swap;
    return text + " type " + std::to_string(route.type);
}

TEST(LinesOfIp, TellRoutes) {
    const struct {
        const char *line, *told;
    } cases[] = {
        {"10.2.0.0/16 via 10.1.1.2 dev vlanif100 proto bird metric 32 ",
         "10.2.0.0/16 10.1.1.2@vlanif100 type 9"},
        {"10.3.0.0/16 proto bird metric 32 \\\tnexthop via 10.1.1.2 dev a weight 1 \\\tnexthop via "
         "10.1.2.2 dev b weight 1 dead linkdown ",
         "10.3.0.0/16 10.1.1.2@a 10.1.2.2@b type 9"},
        {"10.1.0.0/24 dev v1 proto kernel scope link src 10.1.0.1 ", "10.1.0.0/24 -@v1 type 2"},
        {"10.7.0.0/16 tos 0 via 10.1.1.2 dev v1 mtu lock 1400 rtt 10ms table main",
         "10.7.0.0/16 10.1.1.2@v1 type 3"},
        {"default via 172.30.1.1 dev eth0 proto dhcp src 172.30.1.112 metric 100 ",
         "0.0.0.0/0 172.30.1.1@eth0 type 9"},
        {"default dev wlan0 scope link", "0.0.0.0/0 -@wlan0 type 3"},
        {"default dev v1 metric 1024 pref medium", "::/0 -@v1 type 3"},
        {"default proto ra metric 1024 expires 1798sec mtu 1500 hoplimit 64 pref high \\\tnexthop "
         "via fe80::1 dev eth0 weight 1 ",
         "::/0 fe80::1@eth0 type 9"},
        {"default via inet6 fe80::1 dev eth0 ", "0.0.0.0/0 fe80::1@eth0 type 3"},
        {"[2024-11-21T10:00:00.1] [nsid 0][ROUTE]unicast 10.2.0.0/16 nhid 12 via 10.1.1.2 dev v1",
         "10.2.0.0/16 10.1.1.2@v1 type 3"},
        {"10.1.1.9 dev v1 scope link", "10.1.1.9 -@v1 type 3"},
        {"10.3.0.0/16 proto bird metric 32 ", "10.3.0.0/16 type 9"},
        {"10.2.0.0/16  encap mpls  100/200 via 10.1.1.2 dev v1 proto static ",
         "10.2.0.0/16 100/200>10.1.1.2@v1 type 3"},
        {"10.2.0.0/16 \\\tnexthop  encap mpls  100 via 10.1.1.2 dev a weight 1 \\\tnexthop  encap "
         "mpls  200 via 10.1.2.2 dev b weight 1 ",
         "10.2.0.0/16 100>10.1.1.2@a 200>10.1.2.2@b type 3"},
        {"100 as to 200 via inet 10.1.1.2 dev v1 proto static ", "100 10.1.1.2@v1 as 200 type 3"},
        {"100 via inet6 fe80::1 dev v1 ", "100 fe80::1@v1 type 3"},
        {"100 dev lo ", "100 -@lo type 3"},
    };
    for (const auto &[line, expected] : cases) {
        const ctl::RouteLine route = ctl::read_route(line);
        EXPECT_EQ(route.event, Event::added) << line;
        EXPECT_EQ(told(route), expected) << line;
        std::string deleted(line);
        deleted.insert(deleted.rfind(']') + 1, "Deleted ");
        const ctl::RouteLine gone = ctl::read_route(deleted);
        EXPECT_EQ(gone.event, Event::gone) << line;
    }
}

TEST(LinesOfIp, TellWhatIsNoRouteForAChip) {
    for (const auto &[line, destination] : std::multimap<const char *, const char *>{
             {"unreachable default metric 4278198272 encap mpls", "0.0.0.0/0"},
             {"unreachable default dev lo metric 77 pref medium", "::/0"},
             {"blackhole 10.8.0.0/16 proto static", "10.8.0.0/16"},
             {"10.2.0.0/16  encap ip id 7 dst 10.9.9.9 ttl 0 tos 0 dev v1", "10.2.0.0/16"},
             {"10.2.0.0/16 encap mpls 100 ttl 20 via 10.1.1.2 dev v1", "10.2.0.0/16"},
             {"10.2.0.0/16 encap mpls 100 dev v1 nexthop via 10.1.1.2 dev v1", "10.2.0.0/16"},
             {"10.2.0.0/16 encap mpls 100 dev v1", "10.2.0.0/16"},
             {"100 as to 200/300 via inet 10.1.1.2 dev v1", "100"},
             {"100 nexthop as to 200 via inet 10.1.1.2 dev v1 nexthop dev v2", "100"},
             {"10.2.0.0/16 tos 0x10 via 10.1.1.2 dev v1", ""},
             {"10.2.0.0/16 via 10.1.1.2 dev v1 table 100", ""},
             {"broadcast 10.0.0.0 dev brblue proto kernel scope link src 10.0.0.1", "10.0.0.0"},
             {"local fe80::1 dev v1 table local proto kernel metric 0 pref medium", ""},
             {"Deleted multicast ff00::/8 dev v1 table local proto kernel metric 256", ""},
             {"[ROUTE]fe80::/64 dev v1 proto kernel metric 256 pref medium", "fe80::/64"}}) {
        EXPECT_NE(ctl::read_route(line).why_skipped, "") << line;
        EXPECT_EQ(ctl::read_route(line).destination, destination) << line;
    }
    for (const char *line :
         {"", "[", "[]", "Deleted", "10.2.0.0/16 via", "10.2.0.0/16 via v1", "10.2.0.0/33 dev v1",
          "10.2.0.0/16 sideways 100 via 10.1.1.2 dev v1", "2: v1: <BROADCAST,UP> mtu 1500",
          "\tnexthop via 10.1.1.2 dev v1 weight 1"})
        EXPECT_EQ(ctl::read_route(line).event, Event::not_understood) << line;
    EXPECT_EQ(
        ctl::read_neighbour("[NEIGH]Deleted 10.1.1.3 dev v1 lladdr 02:00:00:00:01:03 STALE").event,
        ctl::NeighbourLine::Event::lost);
    EXPECT_EQ(ctl::read_neighbour("10.1.1.9 dev v1 scope link").event,
              ctl::NeighbourLine::Event::not_understood)
        << "a route to a host";
}

TEST(LinesOfIp, LeaveTheRouteThatCounts) {
    const struct {
        const char *line, *counts; // "=": the same route as before, and nothing is to be done
    } cases[] = {
        {"fd01::/48 metric 1024 \\\tnexthop via fd00:1::2 dev a \\\tnexthop via fd00:2::2 dev b",
         "fd01::/48 fd00:1::2@a fd00:2::2@b type 3"},
        {"Deleted fd01::/48 via fd00:2::2 dev b metric 1024 pref medium",
         "fd01::/48 fd00:1::2@a type 3"},
        {"Deleted fd01::/48 via fd00:1::2 dev a metric 1024", "gone"},
        {"fd01::/48 nexthop via fd00:1::2 dev a nexthop via fd00:2::2 dev b",
         "fd01::/48 fd00:1::2@a fd00:2::2@b type 3"},
        {"fd01::/48 via fd00:1::3 dev a", "fd01::/48 fd00:1::3@a type 3"}, // in their place
        {"Deleted fd01::/48 via fd00:1::3 dev a", "gone"},
        {"10.3.0.0/16 nexthop via 10.1.1.2 dev a nexthop via 10.1.2.2 dev b",
         "10.3.0.0/16 10.1.1.2@a 10.1.2.2@b type 3"},
        {"Deleted 10.3.0.0/16 via 10.1.1.2 dev a", "gone"}, // of IPv4 the whole route is told
        {"10.4.0.0/16 via 10.1.1.2 dev a metric 10", "10.4.0.0/16 10.1.1.2@a type 3"},
        {"10.4.0.0/16 via 10.1.1.3 dev a metric 20", "="},
        {"Deleted 10.4.0.0/16 via 10.1.1.3 dev a metric 20", "="},
        {"10.4.0.0/16 via 10.1.1.4 dev a metric 30", "="},
        {"blackhole 10.4.0.0/16", "blackhole routes"},
        {"Deleted blackhole 10.4.0.0/16", "10.4.0.0/16 10.1.1.2@a type 3"},
        {"Deleted 10.4.0.0/16 via 10.1.1.2 dev a metric 10", "10.4.0.0/16 10.1.1.4@a type 3"},
        {"Deleted 10.4.0.0/16 via 10.1.1.4 dev a metric 30", "gone"},
    };
    ctl::KnownRoutes known;
    for (const auto &[line, counts] : cases) {
        const auto route = known.after(ctl::read_route(line));
        EXPECT_EQ(!route                        ? "="
                  : route->event == Event::gone ? "gone"
                  : !route->why_skipped.empty() ? route->why_skipped
                                                : told(*route),
                  counts)
            << line;
    }
}

} // namespace
