// Routes in the command language: what is asked for arrives in tables, chip and standby, the shows
// tell it, and what is missing is named; and the lines in which ip(8) tells of routes.
#include "chassis/ctl/import_lines.h"
#include "support/commands.h"

#include <algorithm>
#include <map>

namespace {

using rig::has;

class ctl_routes : public rig::Commands {
protected:
    ctl_routes() {
        configure_vlan_100();
        configure("if add vlanif200 vlan 200");
        configure("addr add 10.1.2.1/24 dev vlanif200");
        configure("addr add fd00:100::1/64 dev vlanif100");
    }

    void learn(const std::string &ip, unsigned last, const std::string &dev = "vlanif100") {
        char mac[24];
        std::snprintf(mac, sizeof mac, "02:00:00:00:01:%02x", last);
        text("neigh add " + ip + " lladdr " + mac + " dev " + dev + " port " +
             std::to_string(last));
    }

    std::string refusal(std::string_view line) {
        const ctl::Reply reply = execute(line);
        EXPECT_NE(reply.status, ctl::Status::ok) << line;
        return reply.text;
    }
};

TEST_F(ctl_routes, lead_over_one_gateway_or_a_group_whose_members_a_lookup_names) {
    learn("10.1.1.2", 2);
    learn("10.1.2.3", 3, "vlanif200");
    text("route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100 proto bird metric 32");
    text("route add 10.3.0.0/16 proto bird nexthop via 10.1.1.2 dev vlanif100 weight 1 nexthop via "
         "10.1.2.3 dev vlanif200 weight 1");
    EXPECT_TRUE(has(text("chip lookup 10.2.7.7"), "10.2.0.0/16 -> next hop"));
    const std::string group = text("chip lookup 10.3.7.7");
    EXPECT_TRUE(has(group, "10.3.0.0/16 -> group"));
    EXPECT_TRUE(has(group, "02:00:00:00:01:02 port 2"));
    EXPECT_TRUE(has(group, "02:00:00:00:01:03 port 3"));
    EXPECT_EQ(text("show ecmp --count"), "1\n");
    EXPECT_TRUE(has(text("ecmp show --json"), R"("family": "IPv4", "members": 2)"));
    EXPECT_TRUE(has(text("show ecmp --json"), R"(], "vrf": 0, "route": "10.3.0.0/16")"));
    EXPECT_EQ(text("ecmp show 10.3.0.0/16 vrf 0 --count"), "1\n");
    EXPECT_EQ(text("show ecmp 10.2.0.0/16 --count"), "0\n");
    EXPECT_EQ(text("show nexthops 10.1.2.0/24 --count"), "1\n");
    EXPECT_EQ(text("show nexthops vrf 7 --count"), "0\n");
    EXPECT_TRUE(has(text("chip check"), "entries 4, next hops 2, groups 1"));
    text("neigh del 10.1.2.3 dev vlanif200");
    const std::string alone = text("chip lookup 10.3.7.7");
    EXPECT_TRUE(has(alone, "port 2"));
    EXPECT_FALSE(has(alone, "port 3"));
    settle();
    EXPECT_EQ(text("digest"), on_standby_.execute("digest").text);
    text("route del 10.3.0.0/16");
    EXPECT_EQ(text("show routes --count"), "1\n");
    EXPECT_EQ(text("show ecmp --count"), "0\n");
}

TEST_F(ctl_routes, defaults_are_of_the_family_of_their_gateways) {
    learn("10.1.1.2", 2);
    learn("fd00:100::2", 2);
    text("route add default via 10.1.1.2 dev vlanif100");
    text("route add default dev vlanif100 via fd00:100::2 dev vlanif100");
    text("route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100");
    EXPECT_EQ(text("show routes 0.0.0.0/0 --count"), "2\n") << "all of IPv4";
    EXPECT_EQ(text("show routes ::/0 --count"), "1\n");
    EXPECT_EQ(text("route show default --count"), "2\n");
    EXPECT_EQ(text("show routes default vrf 7 --count"), "0\n");
    EXPECT_TRUE(has(text("why default"), "default: route 0.0.0.0/0: in the chip, by next hop"));
    EXPECT_TRUE(has(text("why default"), "\nroute ::/0: in the chip, by group"));
    EXPECT_EQ(text("why default vrf 7"), "default: no route\n");
    text("route del 10.2.0.0/16");
    EXPECT_TRUE(has(text("chip lookup 192.0.2.1"), "0.0.0.0/0 -> next hop"));
    EXPECT_TRUE(has(text("chip lookup 2001:db8::1"), "::/0 -> group"));
    text("chip check");
    text("route del default via 10.1.1.2 dev vlanif100");
    EXPECT_EQ(text("chip lookup 192.0.2.1"), "192.0.2.1: no entry, by default to the CPU\n");
    EXPECT_EQ(text("show routes --count"), "1\n");
    text("route add default via 10.1.1.2 dev vlanif100");
    settle();
    master().chip.cpu_default[{DPM_FAMILY_IPV4, 0}] = true;
    EXPECT_TRUE(has(refusal("chip check"), "the CPU takes the place of the default route"));
    master().chip.cpu_default[{DPM_FAMILY_IPV4, 0}] = false;
}

TEST_F(ctl_routes, without_an_address_go_to_the_cpu) {
    text("route add 10.9.0.0/16 dev vlanif200");
    EXPECT_TRUE(has(text("show routes"), "- vlanif200 2"));
    EXPECT_TRUE(has(text("chip lookup 10.9.1.1"), "10.9.0.0/16 -> to the CPU"));
    EXPECT_TRUE(has(text("why 10.9.0.0/16"), "in the chip, to the CPU\n"
                                             "    directly connected on vlanif200"));
    text("chip check");
    auto entry = take_entry(16);
    EXPECT_EQ(refusal("chip check"), "the chip lacks entry vrf 0 10.9.0.0/16 to the CPU\n");
    master().chip.entries.insert(std::move(entry));
}

TEST_F(ctl_routes, refuse_what_cannot_be_meant) {
    std::string nine = "route add 10.2.0.0/16";
    for (unsigned last = 2; last < 11; last++)
        nine += " via 10.1.1." + std::to_string(last) + " dev vlanif100";
    EXPECT_EQ(refusal(nine), "a route has at most 8 gateways");
    EXPECT_EQ(refusal("route add 10.2.0.0/16 via 10.77.1.2"), "which dev is gateway 1 on?");
    EXPECT_EQ(refusal("route add 10.2.0.0/16 via 10.1.1.2 dev wlan0"), "unknown interface 'wlan0'");
    EXPECT_EQ(execute("route del 10.2.0.0/16 dev wlan0").status, ctl::Status::no_interface);
    for (const char *line :
         {"route add 10.2.0.0/33 dev vlanif100", "route add fd00::/129 dev vlanif100",
          "route add 10.2.0.0/16 via vlanif100", "route add 10.2.0.0/16 dev vlanif100 vrf 256",
          "route add 10.2.0.0/16 encap mpls", "route add", "why vlanif100"})
        EXPECT_TRUE(has(refusal(line), "column")) << line;
    EXPECT_EQ(text("show routes --count"), "0\n");
    text("route add 10.2.0.0/16");
    EXPECT_TRUE(has(text("why 10.2.0.0/16"), "not in the chip: waits for a gateway"));
}

TEST_F(ctl_routes, are_shown_by_vrf_and_by_the_networks_inside_one) {
    configure("vrf enable 7");
    configure("if vrf vlanif200 7");
    learn("10.1.1.2", 2);
    text("route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100");
    text("route replace 10.2.3.0/24 via 10.1.1.9 dev vlanif100 mtu lock 1400");
    text("route add 10.2.3.0/24 via 10.1.2.9"); // whose network is vlanif200's
    text("route add fd05::/48 via fd00:100::2 dev vlanif100 type 3");
    text("route add default via 10.1.1.2 dev vlanif100");
    EXPECT_EQ(text("show routes --count"), "5\n");
    EXPECT_EQ(text("show routes vrf 7 --count"), "1\n") << "of the interface";
    EXPECT_EQ(text("show routes 10.2.0.0/16 --count"), "3\n");
    EXPECT_EQ(text("show routes 10.2.0.0/17 vrf 0 --count"), "1\n") << "the wider one is outside";
    EXPECT_EQ(text("show routes 0.0.0.0/8 --count"), "0\n") << "and the default is";
    EXPECT_EQ(text("route show fd00::/8 --count"), "1\n");
    const std::string table = text("show routes 10.2.0.0/16 vrf 0");
    EXPECT_TRUE(has(table, "VRF  DESTINATION  STATE  INDEX  GATEWAYS"));
    EXPECT_TRUE(has(table, "10.1.1.9 vlanif100 unresolved"));
    const std::string json = text("show routes fd05::/48 --json");
    EXPECT_TRUE(has(json, R"("destination": "fd05::/48", "state": "waits", "index": 0)"));
    EXPECT_TRUE(has(json, R"("gateways": [{"address": "fd00:100::2", "interface": "vlanif100", )"
                          R"("nexthop": null}], "type": 3)"));
}

TEST_F(ctl_routes, that_a_label_entry_stands_for_say_so) {
    learn("10.1.1.2", 2);
    text("route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100");
    ASSERT_EQ(add_ftn({}), 0);
    EXPECT_TRUE(has(text("show routes"), "10.2.0.0/16  label"));
    EXPECT_TRUE(has(text("why 10.2.0.0/16"), "a label entry for the same prefix stands in its"));
    EXPECT_TRUE(has(text("show ftn"), "10.2.0.0/16  chip"));
    EXPECT_EQ(text("ftn show 10.2.0.0/17 --count"), "0\n");
    text("chip check");
    ASSERT_EQ(del_ftn({}), 0);
    EXPECT_TRUE(has(text("show routes"), "10.2.0.0/16  chip"));
    ASSERT_EQ(add_ilm({}), 0);
    EXPECT_TRUE(has(text("ilm show --json"), R"("label": 2000, "vrf": 0, "fec": )"));
    EXPECT_EQ(text("show ilm --vrf 7 --count"), "0\n");
    ASSERT_EQ(del_ilm({}), 0);
}

TEST_F(ctl_routes, are_followed_to_what_is_missing) {
    learn("10.1.1.2", 2);
    text("route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100 via 10.1.1.9 dev vlanif100 via "
         "fd00:100::9 dev vlanif100");
    const std::string followed = text("why 10.2.0.0/16");
    EXPECT_TRUE(has(followed, "10.2.0.0/16: route 10.2.0.0/16: in the chip, by group"));
    EXPECT_TRUE(has(followed, "    gateway 10.1.1.2 on vlanif100: in the chip, next hop"));
    EXPECT_TRUE(has(followed, "    gateway 10.1.1.9 on vlanif100: waits for the neighbour to"));
    EXPECT_TRUE(has(followed, "    gateway fd00:100::9 on vlanif100: of another family"));
    EXPECT_TRUE(has(text("why 10.2.7.7"), "10.2.7.7: not a neighbour; what covers it is\nroute "
                                          "10.2.0.0/16: in the chip"));
    EXPECT_TRUE(has(text("why 10.4.0.0/16"), "10.4.0.0/16: no route\n"));

    auto entry = take_entry(16);
    EXPECT_TRUE(has(text("why 10.2.0.0/16"), "not in the chip, which should have it by group"));
    master().chip.entries.insert(std::move(entry));
    const auto group = *master().chip.groups.begin();
    master().chip.groups.erase(group.first);
    EXPECT_TRUE(has(text("why 10.2.0.0/16"), ", which the chip does not have"));
    EXPECT_TRUE(has(refusal("chip check"), "the chip lacks group"));
    master().chip.groups.insert(group);

    text("neigh del 10.1.1.2 dev vlanif100");
    EXPECT_TRUE(has(text("why 10.2.0.0/16"), "not in the chip: waits for one of its gateways\n"
                                             "    gateway 10.1.1.2 on vlanif100: not a neighbour"));
    text("chip refuse route 1 skip 1"); // behind the host's own entry
    learn("10.1.1.2", 2);
    EXPECT_TRUE(has(text("why 10.2.0.0/16"), "        not used: the chip refused it"));
    text("chip refuse group 1");
    text("route add 10.4.0.0/16 via 10.1.1.2 dev vlanif100 via 10.1.1.9 dev vlanif100");
    EXPECT_TRUE(has(text("why 10.4.0.0/16"), "not in the chip: waits for a group (0 of 1024 in use)\n"
                                             "    gateway 10.1.1.2 on vlanif100: in the chip"));
    allow().routes_adrift = true;
}

TEST_F(ctl_routes, over_an_interface_that_one_card_lacks_differ) {
    text("if add vlanif300 vlan 300");
    text("addr add 10.1.3.1/24 dev vlanif300");
    text("route add 10.5.0.0/16 via 10.1.3.2 dev vlanif300");
    settle();
    EXPECT_NE(text("digest routes"), on_standby_.execute("digest routes").text);
    text("route del 10.5.0.0/16");
    settle();
    EXPECT_EQ(text("digest"), on_standby_.execute("digest").text);
}

TEST_F(ctl_routes, age_after_a_switch_over_until_they_are_installed_again) {
    learn("10.1.1.2", 2);
    text("route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100");
    text("route add 10.3.0.0/16 via 10.1.1.2 dev vlanif100 type 3");
    EXPECT_FALSE(has(text("show timers"), "route-delete"));
    settle();
    switch_over();
    ctl::Server new_master(master());
    const auto ask = [&](std::string_view line) { return new_master.execute(line).text; };
    EXPECT_TRUE(has(ask("show timers 10.2.0.0/16"), "route-delete  0    10.2.0.0/16  600"));
    EXPECT_FALSE(has(ask("show timers 10.3.0.0/16"), "route-delete")) << "static";
    EXPECT_TRUE(has(ask("why 10.2.0.0/16"), "        waits for the neighbour to answer"));
    EXPECT_EQ(ask("route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100"), "");
    EXPECT_FALSE(has(ask("show timers"), "route-delete"));
}

// --- lines of ip(8) --------------------------------------------------------------------------

using Event = ctl::RouteLine::Event;

std::string told(const ctl::RouteLine &route) {
    std::string text = route.destination;
    for (const auto &gateway : route.gateways)
        text += " " + (gateway.address.empty() ? "-" : gateway.address) + "@" + gateway.device;
    return text + " type " + std::to_string(route.type);
}

TEST(lines_of_ip, tell_routes) {
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
        {"[2024-11-21T10:00:00.1] [nsid 0][ROUTE]unicast 10.2.0.0/16 nhid 12 via 10.1.1.2 dev v1",
         "10.2.0.0/16 10.1.1.2@v1 type 3"},
        {"10.1.1.9 dev v1 scope link", "10.1.1.9 -@v1 type 3"},
        {"10.3.0.0/16 proto bird metric 32 ", "10.3.0.0/16 type 9"},
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

TEST(lines_of_ip, tell_what_is_no_route_for_a_chip) {
    for (const auto &[line, destination] : std::map<const char *, const char *>{
             {"unreachable default metric 4278198272 encap mpls", "0.0.0.0/0"},
             {"unreachable default dev lo metric 77 pref medium", "::/0"},
             {"blackhole 10.8.0.0/16 proto static", "10.8.0.0/16"},
             {"default via inet6 fe80::1 dev eth0", "0.0.0.0/0"},
             {"10.2.0.0/16  encap ip id 7 dst 10.9.9.9 ttl 0 tos 0 dev v1", "10.2.0.0/16"},
             {"10.2.0.0/16 tos 0x10 via 10.1.1.2 dev v1", ""},
             {"10.2.0.0/16 via 10.1.1.2 dev v1 table 100", ""}}) {
        EXPECT_NE(ctl::read_route(line).why_skipped, "") << line;
        EXPECT_EQ(ctl::read_route(line).destination, destination) << line;
    }
    for (const char *line :
         {"broadcast 10.0.0.0 dev brblue proto kernel scope link src 10.0.0.1",
          "local fe80::1 dev v1 table local proto kernel metric 0 pref medium",
          "Deleted multicast ff00::/8 dev v1 table local proto kernel metric 256 pref medium",
          "[ROUTE]fe80::/64 dev v1 proto kernel metric 256 pref medium"})
        EXPECT_NE(ctl::read_route(line).why_skipped, "") << line;
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

TEST(lines_of_ip, leave_the_route_that_counts) {
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
