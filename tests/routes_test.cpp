// Routes: how they follow their gateways, what they give way to, and what each failing step leaves.
// One body over both families where the table is symmetric.

#include "dpm_bridge.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_l3vpn.h"
#include "dpm_memory.h"
#include "dpm_route.h"
#include "support/shelf.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace {

using chassis::Card;
using chassis::chip::Function;
using chassis::os::Fault;
using rig::Gateway;
using rig::Neighbour;
using rig::Route;
using Lines = std::vector<std::string>;

class Routes : public rig::Shelf {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        add_interface("vlanif200", 200);
        add_address("vlanif100", "10.1.1.1/24");
        clear_journal();
    }
    static Neighbour neighbour(const std::string &ip) {
        return {.ip = ip, .mac = "02:00:00:00:01:0" + std::string(1, ip.back())};
    }
    void learn(const std::string &ip) { learn_host(neighbour(ip)); }
    void forget(const std::string &ip) { forget_host(neighbour(ip)); }
    dpm_route_entry &entry(const std::string &prefix) { return *route(master(), prefix); }
    bool to_cpu(std::uint32_t family) { return master().chip.cpu_default.at({family, 0}); }
    int request(const dpm_route_msg &msg, std::uint32_t oper = DPM_OPER_ADD) {
        const int result = dpm_api_route_pro(&msg, oper);
        settle();
        return result;
    }
    dpm_route_entry *best(const std::string &address, unsigned vrf = 0) {
        const dpm_prefix ip = rig::prefix_of(address);
        return dpm_route_find_best_route(vrf, &ip);
    }
    std::string best_text(const std::string &address, unsigned vrf = 0) {
        const dpm_route_entry *const found = best(address, vrf);
        return found ? rig::text_of(found->destination) : "";
    }
};

struct Family {
    std::uint32_t number;
    std::string net, inside, a, b, c, host, any, other_nets; // the last without the end of a prefix
};
void PrintTo(const Family &family, std::ostream *out) {
    *out << "IPv" << (family.number == 1 ? 4 : 6);
}
// clang-format off
const Family ipv4{1, "10.2.0.0/16", "10.2.3.4", "10.1.1.2", "10.1.1.3", "10.1.1.4", "10.1.1.9",
                  "0.0.0.0/0", "10.9."};
const Family ipv6{2, "2001:db8:2::/48", "2001:db8:2::4", "2001:db8:1::2", "2001:db8:1::3",
                  "2001:db8:1::4", "2001:db8:1::9", "::/0", "2001:db8:9:"};
// clang-format on

class EitherFamily : public Routes, public ::testing::WithParamInterface<Family> {
protected:
    const Family &f = GetParam();
    Route single() const { return {.prefix = f.net, .via = {{f.a}}}; }
    Route both() const { return {.prefix = f.net, .via = {{f.a}, {f.b}}}; }
    std::string to(const std::string &gateways) const {
        return gateways.empty() ? "" : f.net + " -> " + gateways;
    }
    std::string programmed() { return forwards(f.inside); }
    // Another net, /24 or /64.
    std::string net(unsigned i) const {
        return f.other_nets + std::to_string(i) + (f.number == 1 ? ".0/24" : "::/64");
    }
    // Hosts come ("+a") and go ("-b"); behind each, where the route leads ("ab"), and every law.
    void follow(const std::vector<std::pair<std::string, std::string>> &steps) {
        const std::map<char, std::string> hosts{{'a', f.a}, {'b', f.b}, {'c', f.c}};
        for (const auto &[event, gateways] : steps) {
            event[0] == '+' ? learn(hosts.at(event[1])) : forget(hosts.at(event[1]));
            std::string wanted;
            for (const char gateway : gateways)
                wanted += (wanted.empty() ? "" : " ") + hosts.at(gateway);
            EXPECT_EQ(programmed(), to(wanted)) << "behind " << event;
            check_laws();
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Families, EitherFamily, ::testing::Values(ipv4, ipv6),
                         [](const auto &info) { return info.index ? "Ipv6" : "Ipv4"; });

} // namespace

TEST_P(EitherFamily, ASingleRouteStandsInTheChipWhileItsGatewayIsAHost) {
    add_route(single());
    EXPECT_EQ(entry(f.net).ecmp_enable, unsigned(DPM_ROUTE_SINGLE));
    ASSERT_EQ(unreachables(master()).size(), 1u) << "the gateway is asked for";
    EXPECT_EQ(rig::text_of(unreachables(master())[0].ip), f.a);
    follow({{"+b", ""}, {"+a", "a"}, {"-a", ""}, {"+a", "a"}});
    EXPECT_EQ(entry(f.net).sdk_index, std::int32_t(host(master(), f.a)->sdk_index));
    learn_host({.ip = f.a, .mac = "02:00:00:00:02:02", .port = 7}); // moved
    EXPECT_EQ(programmed(), to(f.a));
    del_route(single());
    EXPECT_EQ(programmed(), "");
}

TEST_P(EitherFamily, ResolvedGatewaysMakeTheGroupInTheOrderOfTheirArrival) {
    learn(f.a);
    add_route(both());
    EXPECT_EQ(programmed(), to(f.a)) << "a group of one";
    EXPECT_EQ(groups(standby()).size(), 1u);
    follow({{"+b", "ab"}, {"-a", "b"}, {"-b", ""}, {"+b", "b"}, {"+a", "ba"}});
    del_route(both());
    EXPECT_TRUE(groups(standby()).empty());
}

TEST_P(EitherFamily, EightGatewaysAndOneWithoutAddress) {
    Route route{.prefix = f.net, .via = {}};
    for (unsigned last = 2; last < 9; ++last) {
        route.via.push_back({f.a.substr(0, f.a.size() - 1) + std::to_string(last)});
        learn(route.via.back().ip);
    }
    route.via.push_back({""});
    add_route(route);
    EXPECT_EQ(entry(f.net).host_index[7], DPM_ROUTE_NO_ADDRESS);
    EXPECT_EQ(groups(master()).at(0).host_cnt, 8u);
    check_laws();
    for (const Gateway &gateway : route.via)
        if (!gateway.ip.empty())
            forget(gateway.ip);
    EXPECT_EQ(programmed(), to("cpu"));
    del_route(route);
    add_route({.prefix = f.net, .via = {{""}}});
    EXPECT_EQ(programmed(), to("cpu"));
    EXPECT_EQ(entry(f.net).sdk_index, DPM_ROUTE_NO_ADDRESS);
}

TEST_P(EitherFamily, ADefaultRouteTakesTheCpusPlaceWhileItIsProgrammed) {
    for (const Lines &gateways : {Lines{f.a}, Lines{f.a, f.b}}) {
        Route route{.prefix = f.any, .via = {}};
        for (const std::string &gateway : gateways)
            route.via.push_back({gateway});
        add_route(route);
        EXPECT_TRUE(to_cpu(f.number));
        learn(f.a);
        EXPECT_FALSE(to_cpu(f.number));
        EXPECT_TRUE(to_cpu(3 - f.number)) << "the other family's";
        EXPECT_EQ(programmed(), f.any + " -> " + f.a);
        const auto calls = chip_calls(master());
        const auto call = [&](const char *name) {
            return std::find_if(calls.begin(), calls.end(), [&](const std::string &line) {
                return line.starts_with(name) &&
                       (line.find("/0 ") != line.npos || line.starts_with("default"));
            });
        };
        EXPECT_LT(call("default_route_set"), call("add_ip_entry")) << "the switch stands first";
        Route twin = route; // another destination, of the same length
        twin.prefix = f.number == 1 ? "0.0.0.1/0" : "::1/0";
        add_route(twin);
        del_route(twin);
        EXPECT_FALSE(to_cpu(f.number)) << "the other one stands";
        forget(f.a);
        EXPECT_TRUE(to_cpu(f.number));
        learn(f.a);
        del_route(route);
        EXPECT_TRUE(to_cpu(f.number));
        refuse(Function::add_ip_entry);
        add_route(route);
        EXPECT_TRUE(to_cpu(f.number)) << "the chip refused the route";
        del_route(route);
        forget(f.a);
        clear_journal();
    }
}

TEST_P(EitherFamily, AHostWinsOverARouteToItsAddress) {
    learn(f.a);
    const Route route{.prefix = f.host, .via = {{f.a}}};
    add_route(route);
    EXPECT_EQ(forwards(f.host), f.host + " -> " + f.a);
    learn(f.host);
    EXPECT_EQ(forwards(f.host), f.host + " -> " + f.host);
    EXPECT_EQ(logged(master(), "::prefix " + f.host + " exist in fib route, del!"), 1u);
    add_route(route);
    EXPECT_EQ(logged(master(), "::ip_str " + f.host + " exist in fib host"), 1u);
    EXPECT_TRUE(routes(master()).empty());
    EXPECT_TRUE(routes(standby()).empty());
    forget(f.host);
    add_route(route);
    EXPECT_EQ(forwards(f.host), f.host + " -> " + f.a);
}

TEST_P(EitherFamily, ARouteThatDidNotGoStandsBehindItsHostUntilThatGoes) {
    learn(f.a);
    const Route route{.prefix = f.host, .via = {{f.a}}};
    add_route(route);
    refuse(Function::del_ip_entry);
    learn(f.host);
    EXPECT_EQ(forwards(f.host), f.host + " -> " + f.host);
    check_laws();
    forget(f.a);
    learn(f.a);
    EXPECT_EQ(forwards(f.host), f.host + " -> " + f.host) << "the gateway's events leave it there";
    forget(f.host);
    EXPECT_EQ(forwards(f.host), f.host + " -> " + f.a);
    check_laws();
    refuse(Function::del_ip_entry);
    learn(f.host);
    refuse(Function::add_ip_entry);
    forget(f.host);
    EXPECT_EQ(entry(f.host).sdk_index, 0) << "its place is refused: it waits";
    allow().routes_adrift = true;
    check_laws();
    forget(f.a);
    learn(f.a);
    allow().routes_adrift = false;
    refuse(Function::del_ip_entry);
    fail(Fault::allocation, 3); // after request and next hop: the host's record
    learn(f.host);
    EXPECT_EQ(forwards(f.host), f.host + " -> " + f.a) << "the host did not come";
}

TEST_P(EitherFamily, AnotherGatewayReplacesTheRouteAndTheIpStackIsTold) {
    learn(f.a);
    learn(f.b);
    add_route(both());
    const Route other{.prefix = f.net, .via = {{f.b}}};
    add_route(other);
    EXPECT_EQ(programmed(), to(f.b));
    EXPECT_TRUE(groups(master()).empty());
    std::string told;
    for (const auto &notice : master().suite.hal_notices())
        if (notice.text.starts_with("static route"))
            told += notice.text + "\n";
    EXPECT_EQ(told, "static route origin 15 " + f.net + " via " + f.a + " goes\n" +
                        "static route origin 15 " + f.net + " via " + f.b + " goes\n");
    clear_journal();
    Route again = other;
    again.via[0].ifname = "vlanif200"; // the same: neither interface nor origin counts
    again.type = 3;
    add_route(again);
    EXPECT_TRUE(chip_calls(master()).empty());
    EXPECT_EQ(entry(f.net).route_type, 1u);

    hold(true);
    add_route(single());
    fail(Fault::allocation); // the new record's
    settle();
    hold(false);
    EXPECT_EQ(programmed(), to(f.b)) << "nothing is half done";
    refuse(Function::del_ip_entry);
    add_route(single());
    EXPECT_EQ(programmed(), to(f.b)) << "the chip would not let the old one go";
    add_route(single());
    EXPECT_EQ(programmed(), to(f.a));
}

TEST_P(EitherFamily, WhatIsNotRenewedAfterASwitchOverIsDeletedInTenMinutes) {
    answers_probes(neighbour(f.a));
    learn(f.a);
    for (unsigned type = 0; type < 14; ++type)
        add_route({.prefix = net(type), .via = {{f.a}}, .type = type});
    const std::uint64_t before = standby().chip.requests(Function::del_ip_entry);
    switch_over();
    add_route({.prefix = net(1), .via = {{f.a}}, .type = 1});
    add_route({.prefix = net(4), .via = {{f.b}}, .type = 4});
    standby_connects();
    EXPECT_EQ(master().chip.requests(Function::del_ip_entry), before + 1) << "the replaced route's";
    refuse(Function::del_ip_entry);
    advance(599);
    EXPECT_EQ(routes(master()).size(), 14u);
    check_laws();
    advance(1);
    const auto left = routes(master());
    std::vector<unsigned> types;
    for (const dpm_route_entry &route : left) {
        types.push_back(route.route_type);
        EXPECT_EQ(route.delete_timer.expiry_sec, 0) << "none is armed";
    }
    EXPECT_EQ(types, (std::vector<unsigned>{0, 1, 2, 3, 4, 13})) << "the first one was refused";
    advance(2000);
    EXPECT_EQ(routes(master()).size(), 6u);
}

TEST_P(EitherFamily, ARefusedRouteWaitsInTheTableForItsGatewayToComeAgain) {
    learn(f.a);
    for (const Route &route : {single(), both()}) {
        refuse(Function::add_ip_entry);
        add_route(route);
        EXPECT_EQ(entry(f.net).sdk_index, 0);
        EXPECT_TRUE(groups(master()).empty());
        allow().routes_adrift = true;
        check_laws();
        forget(f.a);
        allow().routes_adrift = false;
        follow({{"+a", "a"}, {"-a", ""}});
        refuse(Function::add_ip_entry, 1, -1, 1); // behind the host's own
        learn(f.a);
        EXPECT_EQ(programmed(), "");
        EXPECT_EQ(entry(f.net).host_index[0], DPM_ROUTE_UNRESOLVED);
        EXPECT_TRUE(groups(master()).empty());
        del_route(route);
    }
}

// The member and then the route are refused: the group must not stay behind.
TEST_P(EitherFamily, AGroupWithoutMemberGoesWithItsRefusedRoute) {
    add_route(both());
    refuse(Function::update_ecmp_nexthop);
    refuse(Function::add_ip_entry, 1, -1, 1);
    learn(f.a);
    EXPECT_EQ(entry(f.net).sdk_index, 0);
    EXPECT_TRUE(groups(master()).empty());
    follow({{"-a", ""}, {"+a", "a"}});
}

// Routes come in any order, and go, between the events of their host.
TEST_P(EitherFamily, RoutesOfAHostAreHandledInTableOrder) {
    const auto prefix = [this](unsigned number) {
        const std::string third = std::to_string(number * 29 % 64);
        const unsigned length = number % 3;
        return f.number == 1 ? "10.7." + third + ".0/" + std::to_string(22 + length)
                             : "2001:7:" + third + "::/" + std::to_string(46 + length);
    };
    for (unsigned round = 0; round < 3; ++round) {
        for (unsigned i = round * 20; i < round * 20 + 20; ++i)
            add_route({.prefix = prefix(i), .via = {{f.a}}});
        for (unsigned i = round * 20; i < round * 20 + 20; i += 7)
            del_route({.prefix = prefix(i), .via = {{f.a}}});
        Lines order;
        for (const dpm_route_entry &route : routes(master()))
            order.push_back(rig::text_of(route.destination));
        clear_journal();
        learn(f.a);
        Lines programmed;
        for (const std::string &call : chip_calls(master()))
            if (call.starts_with("add_ip_entry") && call.find("/128 ") == call.npos &&
                call.find("/32 ") == call.npos)
                programmed.push_back(call.substr(19, call.find(" nexthop") - 19));
        EXPECT_EQ(programmed, order);
        EXPECT_EQ(programmed.size(), 17u * (round + 1));
        forget(f.a);
    }
}

TEST_P(EitherFamily, ASlotIsProgrammedWithWhatTheChipHoldsOfThem) {
    learn(f.a);
    add_route({.prefix = f.any, .via = {{f.a}, {f.b}}});
    add_route(single());
    add_route({.prefix = net(3), .via = {{f.c}}});
    add_route({.prefix = net(4), .via = {{f.a}}});
    add_ftn({.prefix = net(4)});
    clear_journal();
    dpm_bridge_slot_up(3);
    settle();
    Lines names;
    for (const std::string &call : chip_calls(master()))
        names.push_back(call.substr(0, call.find(' ')));
    EXPECT_EQ(names,
              (Lines{"add_ip_nexthop", "add_ip_entry", "add_ecmp_nexthop", "update_ecmp_nexthop",
                     "default_route_set", "add_ip_entry", "add_ip_entry"}));
    advance(60);
}

TEST_P(EitherFamily, TheTableHoldsSixteenThousandWeightedRoutes) {
    keep_log(false);
    learn(f.a);
    const unsigned capacity = f.number == 1 ? 16384 : 8192;
    const auto route = [&](unsigned i) {
        dpm_route_msg msg = rig::msg_of(master(), single());
        msg.destination.address[f.number == 1 ? 1 : 6] = std::uint8_t(i >> 8);
        msg.destination.address[f.number == 1 ? 2 : 7] = std::uint8_t(i);
        msg.destination.prefix_len = f.number == 1 ? 24 : 64;
        return msg;
    };
    for (unsigned i = 0; i < capacity - 1; ++i)
        ASSERT_EQ(request(route(i)), 0);
    keep_log(true);
    const auto weight = [&] { return dpm_ipv4_route_cnt_show() + 2 * dpm_ipv6_route_cnt_show(); };
    request(rig::msg_of(master(), {.prefix = f.number == 1 ? "2001:db8:9::/48" : "10.9.0.0/16"}));
    EXPECT_EQ(weight(), f.number == 1 ? 16385 : 16383) << "one that begins below the limit fits";
    request(route(capacity - 1));
    EXPECT_EQ(weight(), 16385);
    request(route(capacity));
    EXPECT_EQ(weight(), 16385);
    EXPECT_GE(logged(master(), "::route entry is full!!!"), 1u);
    request(route(7)); // present: renewed, not added
    request(route(7), DPM_OPER_DEL);
    forget(f.a);
    EXPECT_EQ(forwards(f.inside), "") << "sixteen thousand withdrawn";
    learn(f.a);
}

TEST_F(Routes, Ipv6GatewaysAreScopedByInterfaceAndIpv4OnesAreNot) {
    add_route({.prefix = "2001:db8:2::/48", .via = {{"fe80::2", "vlanif200"}}});
    add_route({.prefix = "10.2.0.0/16", .via = {{"10.1.1.2", "vlanif200"}}});
    learn("fe80::2"); // on vlanif100
    learn("10.1.1.2");
    EXPECT_EQ(forwards("2001:db8:2::4"), "");
    EXPECT_EQ(forwards("10.2.0.4"), "10.2.0.0/16 -> 10.1.1.2");
    Neighbour other = neighbour("fe80::2");
    other.vlan = 200;
    learn_host(other);
    EXPECT_EQ(entry("2001:db8:2::/48").sdk_index, std::int32_t(hosts(master())[2].sdk_index));
    forget("fe80::2");
    EXPECT_NE(forwards("2001:db8:2::4"), "");
    switch_over(); // this card counts its interfaces differently
    other.mac = "02:00:00:00:07:07";
    learn_host(other);
    EXPECT_NE(forwards("2001:db8:2::4"), "");
    forget_host(other);
    EXPECT_EQ(forwards("2001:db8:2::4"), "");
}

TEST_F(Routes, AHostOnAnotherInterfaceKeepsItsPlaceFromARouteToItsAddress) {
    learn("2001:db8:1::9"); // on vlanif100
    Neighbour gateway = neighbour("2001:db8:3::2");
    gateway.vlan = 200;
    learn_host(gateway);
    add_route({.prefix = "2001:db8:1::9", .via = {{gateway.ip, "vlanif200"}}});
    EXPECT_EQ(forwards("2001:db8:1::9"), "2001:db8:1::9 -> 2001:db8:1::9");
    check_laws();
    forget("2001:db8:1::9");
    EXPECT_EQ(forwards("2001:db8:1::9"), "2001:db8:1::9 -> 2001:db8:3::2");
}

TEST_F(Routes, VrfsAreApart) {
    set_vrf("vlanif200", 5);
    Neighbour other = neighbour("10.1.1.2");
    other.vlan = 200;
    add_route({.prefix = "0.0.0.0/0", .via = {{"10.1.1.2", "vlanif200"}}, .vrf = 5});
    learn("10.1.1.2");
    EXPECT_EQ(forwards("8.8.8.8", 5), "");
    learn_host(other);
    EXPECT_NE(forwards("8.8.8.8", 5), "");
    EXPECT_EQ(forwards("8.8.8.8"), "");
    EXPECT_TRUE(to_cpu(DPM_FAMILY_IPV4));
    EXPECT_EQ(best_text("8.8.8.8", 5), "0.0.0.0/0");
    EXPECT_EQ(best("8.8.8.8"), nullptr);
    add_route({.prefix = "10.2.0.0/16", .via = {{"10.1.1.2", "vlanif200"}}, .vrf = 5});
    add_ftn({.prefix = "10.2.0.0/16"}); // a tunnel of VRF 0
    EXPECT_NE(forwards("10.2.3.4", 5), "");
    EXPECT_EQ(best_text("10.2.3.4", 5), "10.2.0.0/16");
    del_ftn({.prefix = "10.2.0.0/16"});
}

TEST_F(Routes, AGatewayOnAManagementInterfaceIsExcluded) {
    add_interface("vlanif4089", 4089);
    learn("10.1.1.2");
    add_route({.via = {{"10.1.1.2", "vlanif4089"}}});
    EXPECT_EQ(entry("10.2.0.0/16").host_index[0], DPM_ROUTE_UNRESOLVED);
    EXPECT_EQ(unreachables(master()).size(), 0u);
}

TEST_F(Routes, ARouteOverATunnelIsNeitherReplacedNorDeletedByRequest) {
    add_interface("tunnel7", 700);
    learn("10.1.1.2");
    learn("10.1.1.3");
    add_route({.via = {{"10.1.1.2", "tunnel7"}}});
    add_route({.via = {{"10.1.1.3"}}});
    EXPECT_EQ(logged(master(), "exist route nexthop is tunnel!"), 1u);
    EXPECT_EQ(log(master()).back(), "exist route nexthop is tunnel!") << "without line";
    del_route({});
    EXPECT_EQ(log(master()).back(), "route nexthop is tunnel, not delelte!");
    EXPECT_EQ(forwards("10.2.0.1"), "10.2.0.0/16 -> 10.1.1.2");
}

TEST_F(Routes, TheBestRouteIsTheLongestThatForwards) {
    add_interface("tunnel7", 700);
    learn("10.1.1.2");
    const Gateway good{"10.1.1.2"}, waiting{"10.1.1.8"};
    EXPECT_EQ(best("10.1.1.1"), nullptr);
    add_route({.prefix = "10.0.0.0/8", .via = {good}});
    add_route({.prefix = "10.1.0.0/16", .via = {good, waiting}});
    EXPECT_EQ(best_text("10.1.1.1"), "10.1.0.0/16");
    EXPECT_EQ(best_text("10.2.1.1"), "10.0.0.0/8");
    EXPECT_EQ(best_text("11.2.1.1"), "");
    add_route({.prefix = "10.1.1.0/24", .via = {waiting}});
    add_route({.prefix = "10.1.1.0/25", .via = {{"10.1.1.2", "tunnel7"}}});
    add_route({.prefix = "10.1.1.0/26", .via = {{""}}});
    add_route({.prefix = "10.1.1.0/27", .via = {good}});
    add_ftn({.prefix = "10.1.1.0/27"});
    EXPECT_EQ(best_text("10.1.1.1"), "10.1.0.0/16");
    del_ftn({.prefix = "10.1.1.0/27"});
    EXPECT_EQ(best_text("10.1.1.1"), "10.1.1.0/27");
    // Host bits are stored, and do not count.
    add_route({.prefix = "10.1.2.3/28", .via = {good}});
    add_route({.prefix = "10.1.2.1/28", .via = {waiting}});
    add_route({.prefix = "10.1.2.2/28", .via = {good}});
    EXPECT_EQ(best_text("10.1.2.9"), "10.1.2.2/28") << "the first that forwards, in table order";
    EXPECT_EQ(forwards("10.1.2.9"), "10.1.2.2/28 -> 10.1.1.2");
    add_route({.prefix = "10.1.2.0/28", .via = {waiting}});
    EXPECT_EQ(best_text("10.1.2.9"), "10.1.2.2/28");
    learn("10.1.1.8");
    EXPECT_EQ(best_text("10.1.2.9"), "10.1.2.0/28");
    forget("10.1.1.8");
    del_route({.prefix = "10.1.2.2/28"});
    EXPECT_EQ(best_text("10.1.2.9"), "10.1.2.3/28");
    add_route({.prefix = "2001:db8::1/32", .via = {{"2001:db8::2"}}});
    EXPECT_EQ(best_text("2001:db8::7"), "");
    learn("2001:db8::2");
    EXPECT_EQ(best_text("2001:db8::7"), "2001:db8::1/32");
    dpm_prefix unknown = rig::prefix_of("10.1.1.1");
    unknown.family = 3;
    EXPECT_EQ(dpm_route_find_best_route(0, &unknown), nullptr);
    EXPECT_EQ(logged(master(), "::iptype = 3 is err!"), 1u);
}

TEST_F(Routes, BadRequestsChangeNothing) {
    const dpm_route_msg good = rig::msg_of(master(), {});
    EXPECT_EQ(dpm_api_route_pro(nullptr, DPM_OPER_ADD), -1);
    EXPECT_EQ(request(good, 3), -1);
    EXPECT_EQ(logged(master(), "::rev msg from norix, unkown oper 3 !"), 1u);
    fail(Fault::allocation);
    EXPECT_EQ(request(good), -1);
    fail(Fault::send, 1, 4);
    EXPECT_EQ(request(good), -1);
    dpm_ipv6_ready_test_switch_open();
    EXPECT_EQ(request(good), 0);
    dpm_ipv6_ready_test_switch_close();
    for (const std::uint32_t np_num : {9u, ~0u}) {
        dpm_route_msg msg = good;
        msg.np_num = np_num;
        EXPECT_EQ(dpm_route_add_msg(&msg), -1);
    }
    EXPECT_EQ(logged(master(), "::np_num 9 is err!"), 1u);
    for (const std::uint16_t length : {33, 129, 65535}) {
        dpm_route_msg msg = good;
        msg.destination.prefix_len = length;
        EXPECT_EQ(dpm_route_add_msg(&msg), -1);
        EXPECT_EQ(dpm_route_del_msg(&msg), 0) << "there is none";
    }
    for (const std::uint16_t family : {0, 3}) {
        dpm_route_msg msg = good;
        msg.destination.family = family;
        EXPECT_EQ(dpm_route_add_msg(&msg), 0);
        EXPECT_EQ(dpm_route_del_msg(&msg), 0);
    }
    rig::expect_all(
        -1, {dpm_route_add_msg(nullptr), dpm_route_del_msg(nullptr), dpm_route_add(nullptr)});
    EXPECT_EQ(dpm_route_del(nullptr), 0);
    EXPECT_EQ(dpm_api_get_route_entry_first(3), nullptr);
    const auto scope = as(standby());
    EXPECT_EQ(dpm_route_add_msg(&good), 0);
    EXPECT_EQ(dpm_route_del_msg(&good), 0);
    EXPECT_EQ(logged(standby(), "::it is slave."), 2u);
    EXPECT_TRUE(routes(master()).empty());
    EXPECT_TRUE(routes(standby()).empty());
}

TEST_F(Routes, OddGatewaysAreKeptAndNeverProgrammed) {
    add_route({.prefix = "10.3.0.0/16", .np_num = 0});
    EXPECT_EQ(entry("10.3.0.0/16").sdk_index, 0);
    EXPECT_EQ(entry("10.3.0.0/16").ecmp_enable, unsigned(DPM_ROUTE_ECMP));
    add_route({.prefix = "10.4.0.0/16", .via = {{"2001:db8::2"}}});
    add_route({.prefix = "2001:db8:4::/48", .via = {{"10.1.1.2"}, {"10.1.1.3"}}});
    dpm_route_msg msg = rig::msg_of(master(), {.prefix = "10.5.0.0/16"});
    msg.np[0].family = 3;
    request(msg);
    msg = rig::msg_of(master(), {.prefix = "10.6.0.0/16"});
    msg.np[0].prefix_len = 65535;
    request(msg);
    for (int round = 0; round < 2; ++round) {
        for (const char *ip : {"10.1.1.2", "10.1.1.3", "2001:db8::2"})
            learn(ip);
        for (const dpm_route_entry &route : routes(master()))
            EXPECT_LE(route.sdk_index, 0) << rig::text_of(route.destination);
        // Installed again with the hosts there.
        del_route({.prefix = "10.4.0.0/16"});
        add_route({.prefix = "10.4.0.0/16", .via = {{"2001:db8::2"}}});
        for (const char *ip : {"10.1.1.2", "10.1.1.3", "2001:db8::2"})
            forget(ip);
        EXPECT_TRUE(hosts(master()).empty());
    }
    EXPECT_EQ(routes(standby()).size(), 5u);
}

TEST_F(Routes, AWholeTableBufferIsReadInWholeRecordsAndHostileOnesAreDropped) {
    std::vector<dpm_route_entry> records(3);
    for (unsigned i = 0; i < 3; ++i) {
        std::memset(&records[i].node, 0x5A, sizeof records[i].node);
        std::memset(&records[i].delete_timer, 0x5A, sizeof records[i].delete_timer);
        records[i].destination = rig::prefix_of("10." + std::to_string(i) + ".0.0/16");
        records[i].np_num = 1;
        std::memset(records[i].np_ifname, 'x', sizeof records[i].np_ifname);
    }
    const auto scope = as(standby());
    EXPECT_EQ(dpm_route_entry_sync_all_receive(records.data(), 2 * 824 + 823), 0);
    EXPECT_EQ(standby().os.queued(), 2u);
    settle();
    ASSERT_EQ(routes(standby()).size(), 2u);
    EXPECT_EQ(std::strlen(routes(standby())[0].np_ifname[7]), 63u);
    const auto drop = [&](auto &field, auto value) {
        dpm_route_entry bad = records[2];
        std::memcpy(reinterpret_cast<char *>(&bad) +
                        (reinterpret_cast<char *>(&field) - reinterpret_cast<char *>(&records[2])),
                    &value, sizeof field);
        EXPECT_EQ(dpm_route_entry_add_sync_receive(&bad, sizeof bad), 0);
        EXPECT_EQ(dpm_route_entry_del_sync_receive(&bad, sizeof bad), 0);
        settle();
    };
    drop(records[2].np_num, ~0u);
    drop(records[2].np_num, 9u);
    drop(records[2].destination.prefix_len, std::uint16_t(65535));
    drop(records[2].destination.family, std::uint16_t(3));
    dpm_ecmp_entry group{};
    group.ecmp_type = 3;
    EXPECT_EQ(dpm_ecmp_entry_add_sync_receive(&group, sizeof group), 0);
    EXPECT_EQ(dpm_ecmp_entry_del_sync_receive(&group, sizeof group), 0);
    settle();
    EXPECT_EQ(routes(standby()).size(), 2u);
    for (const dpm_route_entry &record : records)
        dpm_route_entry_del_sync_receive(&record, sizeof record);
    settle();
    EXPECT_TRUE(routes(standby()).empty());
}

TEST_F(Routes, TheManagementExportTellsRoutesOverVlanInterfaces) {
    void *out = nullptr;
    EXPECT_EQ(dpm_snmp_get_route_table(nullptr, 52), -1);
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 52), 0) << "none";
    learn("10.1.1.2");
    add_interface("tunnel7", 700);
    set_vrf("vlanif200", 5);
    add_route({.prefix = "10.2.0.0/16"});
    add_route({.prefix = "10.3.3.0/24", .via = {{"10.1.1.9", "vlanif200"}, {}}});
    add_route({.prefix = "10.4.0.0/16", .via = {{"10.1.1.2", "tunnel7"}}});
    add_route({.prefix = "10.5.0.0/16", .via = {{"10.1.1.2", "vlanif200"}}, .vrf = 5});
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 51), -1);
    fail(Fault::allocation);
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 52), -1);
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 60), 2);
    struct {
        std::uint32_t words[15];
    } records[2];
    std::memcpy(records, out, sizeof records);
    bep_freeEx(out, __FILE__, __LINE__);
    const auto word = [](const char *address) {
        std::uint32_t value;
        std::memcpy(&value, rig::prefix_of(address).address, 4);
        return value;
    };
    const std::uint32_t wanted[2][15] = {
        {1, 4, word("10.2.0.0"), 16, 0, 0, 1, 4, word("10.1.1.2"), 0, 0, 0, 100, 0, 0},
        {1, 4, word("10.3.3.0"), 24, 0, 0, 1, 4, word("10.1.1.9"), 0, 2, 0, 200, 0, 0}};
    EXPECT_EQ(std::memcmp(records, wanted, sizeof records), 0);
}
