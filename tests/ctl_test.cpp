// The command language, and its handlers on cards of the rig: what people type is understood or
// refused with its place, and what the cards answer is what the tables and the chip hold.
#include "chassis/ctl/grammar.h"
#include "support/rows.h"

#include <algorithm>
#include <gtest/gtest.h>

using ctl::parse;
using rig::alone, rig::mirroring;

namespace {

std::string error_of(std::string_view line) {
    const ctl::Parsed parsed = parse(line);
    return parsed.error ? std::to_string(parsed.error->column) + ": " + parsed.error->text : "";
}

std::vector<std::string> words(std::initializer_list<const char *> list) {
    return {list.begin(), list.end()};
}

TEST(CommandLanguage, TakesAttributesInAnyOrderAndSkipsWhatIpPrintsBesides) {
    for (const char *line :
         {"neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3 vlan 100",
          "neigh add vlan 100 port 3 dev vlanif100 lladdr 02:00:00:00:01:02 10.1.1.2",
          "  neigh add 10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 router proto zebra ref 2 "
          "used 1/2/3 port 3 vlan 100 extern_learn REACHABLE # as printed"}) {
        const ctl::Parsed parsed = parse(line);
        ASSERT_FALSE(parsed.error) << line << "\n" << parsed.error->text;
        EXPECT_EQ(parsed.command->verb, ctl::Verb::neigh_add);
        EXPECT_EQ(parsed.value("IP"), "10.1.1.2");
        EXPECT_EQ(parsed.value("dev"), "vlanif100");
        EXPECT_EQ(parsed.number("port"), 3u);
        EXPECT_EQ(parsed.number("cvlan", 7), 7u) << "not given";
    }
}

TEST(CommandLanguage, GivesRepeatedAttributesInTheirOrder) {
    const ctl::Parsed parsed = parse("import --dev-map eth0=vlanif1 --dev-map eth1=vlanif2");
    ASSERT_FALSE(parsed.error);
    EXPECT_EQ(parsed.values("--dev-map"),
              (std::vector<std::string_view>{"eth0=vlanif1", "eth1=vlanif2"}));
}

TEST(CommandLanguage, RefusesWithTheColumnAndWhatWasExpected) {
    EXPECT_EQ(error_of("shwo hosts").substr(0, 31), "1: unknown word 'shwo'; expecte");
    EXPECT_EQ(error_of("port  down 65"), "12: unknown word '65'; expected a port (1 to 64)");
    EXPECT_EQ(error_of("port down"), "11: the command is not complete; expected a port (1 to 64)");
    EXPECT_EQ(error_of("digest mpls-if"), "") << "as show and verify name it";
    EXPECT_EQ(error_of("quit now"), "6: unknown word 'now'; nothing more was expected");
    EXPECT_EQ(error_of("addr add 10.1.1.1/24 dev"),
              "26: the command is not complete; expected the name of an interface (at most 63 "
              "characters)");
    EXPECT_EQ(error_of("neigh add 10.1.1.2 dev vlanif100"),
              "34: the command is not complete; expected lladdr");
    EXPECT_EQ(error_of("show hosts vrf 1 --vrf 2").substr(0, 25), "18: unknown word '--vrf';");
}

TEST(CommandLanguage, RefusesValuesOutOfBounds) {
    for (const char *line :
         {"addr add 10.1.1.1/33 dev x",
          "addr add fd00::1/129 dev x",
          "addr add 10.1.1/24 dev x",
          "if add vlanif0 vlan 0",
          "if add vlanif1 vlan 4095",
          "vrf enable 256",
          "vrf enable -1",
          "trunk up 17",
          "port up 99999999999999999999",
          "clock advance 3",
          "clock advance -3s",
          "clock advance 99999999999d",
          "neigh add 1.2.3.4 lladdr 02:00:00:00:01 dev x",
          "neigh add 1.2.3.4 lladdr 02:00:00:00:01:0g dev x",
          "neigh add 1.2.3.4 lladdr 02:00-00:00:01:02 dev x",
          "chip refuse everything 1",
          "mpls ilm add 1048576",
          "mpls ilm add 7 via inet4 1.2.3.4",
          "mpls ilm add 7 as 1/2",
          "mpls ftn add 1.2.3.0/33 encap mpls 7 via 1.2.3.4",
          "mpls ftn add fd00::/16 via fd00::1",
          "mpls ftn add 1.2.3.0/24 encap mpls 7/1048576 via 1.2.3.4",
          "mpls if add",
          "mpls ftn add 1.2.3.0/24 encap mpls 7/8/9 via 1.2.3.4",
          "mpls ilm del x",
          "mpls if del",
          "mpls ftn add 1.2.3.0/24 encap mpls / via 1.2.3.4 vrf 7 remote 1.2.3.4",
          "mpls ftn add 1.2.3.0/24 encap mpls 7 via 1.2.3.4 vrf 7",
          "mpls ilm add 7 vrf 256",
          "if del aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"})
        EXPECT_NE(error_of(line), "") << line;
    EXPECT_NE(error_of("quit #" + std::string(ctl::max_line_bytes, 'x')), "");
}

TEST(CommandLanguage, OffersTheWordsThatFit) {
    EXPECT_EQ(ctl::complete("chi"), words({"chip"}));
    EXPECT_EQ(ctl::complete("trunk "), words({"up", "down", "join", "leave"}));
    EXPECT_EQ(ctl::complete("chip trace f"), words({"frame", "from"}));
    EXPECT_EQ(ctl::complete("neigh del 10.1.1.2 l"), words({"lladdr"}));
    EXPECT_EQ(ctl::complete("chip refuse nexthop"), words({"nexthop", "nexthop-del"}));
    EXPECT_EQ(ctl::complete("nonsense "), words({}));
    const auto names = [](std::string_view type) {
        return type == "NAME" ? words({"vlanif100", "vlanif200"}) : words({});
    };
    EXPECT_EQ(ctl::complete("if del vlanif2", names), words({"vlanif200"}));
}

TEST(CommandLanguage, ExplainsEveryCommand) {
    const std::string all = ctl::help();
    for (const ctl::Command &command : ctl::commands()) {
        EXPECT_NE(all.find(ctl::command_line_of(command)), all.npos);
        EXPECT_NE(ctl::help(command.path), "");
    }
    EXPECT_EQ(ctl::help("no such thing"), "");
    EXPECT_NE(ctl::help("port down").find("a port (1 to 64)"), all.npos);
}

class Answers : public rig::LoneShelf {};

// The chip loses its first route or group behind the library's back; "again" gives all back.
const rig::Verb lose("lose", [](rig::RowShelf &shelf, const rig::Words &words) {
    namespace kinds = chassis::chip::kinds;
    static std::map<chassis::chip::Address, std::uint32_t> entries;
    static std::map<std::uint32_t, chassis::chip::Members> groups;
    auto &own_entries = shelf.master().chip.tamper<kinds::entry>();
    auto &own_groups = shelf.master().chip.tamper<kinds::group>();
    if (words[1] == "entry")
        entries.insert(own_entries.extract(std::ranges::find_if(
            own_entries, [](auto &entry) { return entry.first.prefix_len == 16; })));
    else if (words[1] == "group")
        groups.insert(own_groups.extract(own_groups.begin()));
    else
        own_entries.merge(entries), own_groups.merge(groups);
});

// --- what the commands answer ----------------------------------------------------------------

ROWS(Commands, LeadANeighbourIntoTablesAndChip, .roles = mirroring, .see = ""){
    {"neigh add {a} port 3"},
    {"neigh add {b} trunk 2 cvlan 7"},
    {"4: show hosts",
     "= VRF  ADDRESS   MAC                PORT     VLAN  CVLAN  NEXTHOP  INTERFACE  IFINDEX; "
     "= 0    {a}  {m1}  3        100   0      18       vlanif100  900; "
     "= 0    {b}  {m2}  trunk 2  100   7      19       vlanif100  900"},
    {"standby show hosts --count", "= 2"},
    {"chip lookup {a}", "= {a}: vrf 0 {a}/{bits} -> next hop 18: port 3..."},
    {"chip lookup {c}", "= {c}: no entry, by default to the CPU"},
    {"4: chip check",
     "= chip and tables agree: arp rules 1, defaults 2, entries 3, interfaces 2, next hops 2"},
    {"why {b}", "= {b}: in the chip, next hop 19: {m2} port trunk 2 vlan 100 on vlanif100"},
    {"why {c}", "= {c}: not a neighbour, and nothing waits for it"},
    {"why {gw}", "= {gw}: an address of vlanif100"},
    {"4: show hosts 10.1.1.2/31 --count", "= 1"},
    {"6: show hosts 2001:db8:1::2/127 --count", "= 1"},
    {"show hosts {net} --count", "= 0"},
    {"show hosts {a} vrf 0 count", "= 1"},
    {"show hosts --vrf 1 count", "= 0"},
    {"show hosts default --count", "= 0"},
    {"show nexthops {b} --count", "= 1"},
    {"show nexthops --vrf 7 --count", "= 0"},
    {"show interfaces {gw} --count", "= 1"},
    {"show interfaces {a} --count", "= 0"},
    {"show interfaces --count", "= 2"},
    {"show vrfs", "= VRF  STATE; = 0    enabled"},
    {"4: show interfaces {gw} json",
     R"(= [; =  {"interface": "vlanif100", "vrf": 0, "vlan": 100, "type": "vlan"...; = ])"},
    {"show hosts --json {a}",
     R"(= [; =  {"vrf": 0, "address": "{a}", "mac": "{m1}", "port": "3", "vlan": 100...; = ])"},
    {"neigh del {a}"},
    {"show neighbours --count", "= 1"},
    {"show hosts {a} --count", "= 0"},
};

ROWS(Commands, LeadAGroupToThePortsThatReportIt, .roles = mirroring, .see = ""){
    {"mcast snoop on"},
    {"rx 3 hex 0", "error column..."},
    {"4: rx 3 vlan 100 hex 00000000000000000000000008004500001c0000000001020000"
     "0a646401e001010116000000e0010101"},
    {"6: rx 3 hex 0000000000000000000000008100006486dd6000000000183afffe8000000000000000000000"
     "00000001ff0500000000000000000000000000018300000000000000ff050000000000000000000000000001"},
    {"rx 3 somewhere.pcap", "error captures are read by the client"},
    {"why {g1}", "= {g1}: no source of the group is forwarded; reported by port 3 of vlan 100"},
    {"why {g2}", "= {g2}: no source of the group is forwarded; no port has reported it"},
    {"chip lookup {g1}", "= {g1}: no group, to the CPU"},
    {"mroute add any {g1} vlanif200 vlanif100"},
    {"mroute add {s1} {g1} vlanif200 vlanif100"},
    {"mroute add {s2} {g1} vlanif200"},
    {"chip lookup {g1} from {s1}", "= {g1}: vrf 0 ({s1}, {g1}) gid 21; =     port 3 vlan 100"},
    {"chip lookup {g1} from {s2}", "= {g1}: vrf 0 ({s2}, {g1}) gid 22; =     no port"},
    {"chip lookup {g1} from {s3}", "= {g1}: vrf 0 (*, {g1}) gid 20; =     port 3 vlan 100"},
    {"chip lookup {g1}", "= {g1}: vrf 0 (*, {g1}) gid 20; =     port 3 vlan 100"},
    {"chip lookup {a} from {s1}", "error only of a group does the sender count"},
    {"4: chip lookup {g1} from ff05::1", "error group and sender are of two families"},
    {"show mgroups --count", "= 1"},
    {"mroute add {s3} {g1} vlanif9", "error unknown interface 'vlanif9'"},
    {"4: mroute add {s3} ff05::1 vlanif100", "error source and group are of two families"},
    {"mroute add {s3} {a} vlanif100", "error column..."},
    {"switch-over"},
    {"clock advance 20s"},
    {"why {g1}",
     "= {g1}: vrf 0 ({s2}, {g1}): in the chip, gid 22; = vrf 0 ({s1}, {g1}): in the chip...; = ...; "
     "= vrf 0 ({s1}, {g1}) vlan 100 port 3: in the chip, waits for a report; gone in 240 s; = ...; gone in 240 s"},
    {"mroute del {s1} {g1} vlanif200 vlanif100"},
    {"mroute del {s2} {g1}"},
    {"mroute del * {g1} vlanif9"},
    {"mcast snoop off inet6"},
    {"4: chip lookup {g1}", "= {g1}: no group, to the CPU"},
    {"6: chip lookup {g1}", "= {g1}: no group, dropped"},
    {"show mroutes --count", "= 0"},
};

ROWS(Commands, TellWhatANeighbourWaitsForAndSinceWhen, .roles = mirroring, .see = ""){
    {"neigh add {a} port 3"},
    {"switch-over"},
    {"clock advance 12s"},
    {"why {a}",
     "= {a}: in the chip...; = waits for the neighbour to answer since 12 s; 2 probes left, the "
     "next in 18 s"},
    {"4: show unreachable",
     "= VRF  ADDRESS   INTERFACE  WAITED SEC  PROBES LEFT  NEXT PROBE IN SEC; "
     "= 0    {a}  vlanif100  12          2            18"},
    {"show probes {a} --count", "= 1"},
    {"show deletions {a} --count", "= 1"},
    {"port down 3"},
    {"why {a}", "= {a}: in the chip...; = waits for the neighbour...; 2 probes left...; "
                "= held since port 3 went down; forgotten in 86400 s"},
    {"4: show timers {a}",
     "= TIMER  VRF  ADDRESS   DUE IN SEC; = probe  0    {a}  18; = hold   0    {a}  86400"},
    {"show probes clear --count", "= 1"},
    {"show deletions --count", "= 0"},
};

ROWS(Commands, AreRefusedWithAReason, .families = {4}, .roles = alone, .see = ""){
    {"neigh add {a} dev vlanif9", "error unknown interface 'vlanif9'"},
    {"neigh add {a} port 1 trunk 1", "error a neighbour is behind a port or a trunk, not both"},
    {"neigh add {a} incomplete", "error a neighbour in state incomplete is not learnt"},
    {"if add uplink", "error which VLAN is 'uplink' on? say vlan N"},
    {"ospf fd00::/64", "error OSPF is told by IPv4 networks"},
    {"verify", "error this is the client's own command"},
    {"no such command", "error column 1: unknown word 'no'..."},
    {"route add {net} via {a} via {a} via {a} via {a} via {a} via {a} via {a} via {a} via {a}",
     "error a route has at most 8 gateways"},
    {"route add {net} via 10.77.1.2", "error which dev is gateway 1 on?"},
    {"route add {net} via {a} dev wlan0", "error unknown interface 'wlan0'"},
    {"route del {net} dev wlan0", "error unknown interface 'wlan0'"},
    {"route add 10.2.0.0/33 dev vlanif100", "error column 11: unknown word..."},
    {"route add {net} via vlanif100", "error column 27: unknown word..."},
    {"route add {net} dev vlanif100 vrf 256", "error column 41: unknown word..."},
    {"route add {net} encap mpls", "error column 23: unknown word..."},
    {"route add", "error column 11: the command is not complete..."},
    {"why vlanif100", "error column 5: unknown word..."},
    {"show hosts --count", "= 0"},
    {"show routes --count", "= 0"},
    {"if list", "= vlanif100; = vlanif200"},
};

ROWS(RouteCommands, LeadOverOneGatewayOrAGroup, .roles = mirroring, .see = ""){
    {"neigh add {a} port 2"},
    {"neigh add {b} dev vlanif200 port 3"},
    {"route add {net} via {a} proto bird metric 32"},
    {"route replace {net1} proto bird nexthop via {a} dev vlanif100 weight 1 "
     "nexthop via {b} dev vlanif200 weight 1"},
    {"chip lookup {in}", "= {in}: vrf 0 {net} -> next hop 18: port 2..."},
    {"4: chip lookup 10.9.1.7",
     "= 10.9.1.7: vrf 0 {net1} -> group 20: members 18 19; =     next hop 18: port 2...; "
     "=     next hop 19: port 3..."},
    {"4: show ecmp", "= GROUP  FAMILY  MEMBERS  NEXTHOPS  VRF  ROUTE; "
                     "= 20     IPv4    2        18, 19    0    {net1}"},
    {"4: show ecmp --json", R"(= [; =  {"group": 20, "family": "IPv4", "members": 2, "nexthops": )"
                            R"([18, 19], "vrf": 0, "route": "{net1}"}; = ])"},
    {"4: show routes {net1} --json",
     R"(= [; =  {"vrf": 0, "destination": "{net1}", "state": "chip", "index": 20, "gateways": )"
     R"([{"address": "{a}", "interface": "vlanif100", "nexthop": 18}, {"address": "{b}"...; = ])"},
    {"ecmp show {net1} vrf 0 --count", "= 1"},
    {"show ecmp {net} --count", "= 0"},
    {"show ecmp --vrf 7 --count", "= 0"},
    {"neigh del {b} dev vlanif200"},
    {"why {net1}", "= {net1}: route {net1}: in the chip, by group 20 of next hops 18; "
                   "=     gateway {a} on vlanif100: in the chip, next hop 18...; "
                   "=     gateway {b} on vlanif200: not a neighbour, and nothing waits for it"},
    {"route del {net1}"},
    {"show ecmp --count", "= 0"},
    {"show routes --count", "= 1"},
};

ROWS(RouteCommands, TakeADefaultRouteOfTheGatewaysFamily, .roles = alone, .see = ""){
    {"neigh add {a}"},
    {"route add default via {a}"},
    {"route add {net} via {a}"},
    {"show routes {any} --count", "= 2"},
    {"route show default --count", "= 1"},
    {"show routes default vrf 7 --count", "= 0"},
    {"why default", "= default: route {any}: in the chip...; =     gateway {a}..."},
    {"why default vrf 7", "= default: no route"},
    {"why {net1}",
     "= {net1}: no route; what covers it is; = route {any}: in the chip...; =     gateway..."},
    {"4: chip lookup 192.0.2.1", "= 192.0.2.1: vrf 0 {any} -> next hop..."},
    {"6: chip lookup fd00::1", "= fd00::1: vrf 0 {any} -> next hop..."},
    {"route del default via {a} dev vlanif100"},
    {"4: chip lookup 192.0.2.1", "= 192.0.2.1: no entry, by default to the CPU"},
    {"show routes --count", "= 1"},
};

ROWS(RouteCommands, ShowTheRoutesOfAVrfOrInsideANetwork, .families = {4}, .roles = alone,
     .see = ""){
    {"vrf enable 7"},
    {"if vrf vlanif200 7"},
    {"addr add 10.1.2.1/24 dev vlanif200"},
    {"neigh add {a}"},
    {"route add 10.2.0.0/16 via {a}"},
    {"route replace 10.2.3.0/24 via 10.1.1.8 mtu lock 1400"},
    {"route add 10.2.3.0/24 via 10.1.2.9"}, // whose network is vlanif200's
    {"route add 10.9.0.0/16 dev vlanif100"},
    {"route add 10.8.0.0/16"},
    {"route add default via {a}"},
    {"show routes", "= VRF  DESTINATION  STATE  INDEX  GATEWAYS                       TYPE; "
                    "= 0    0.0.0.0/0    chip   18     {a} vlanif100 18          9; "
                    "= 0    10.2.0.0/16  chip   18     {a} vlanif100 18          9; "
                    "= 0    10.8.0.0/16  waits  0      -                              9; "
                    "= 0    10.9.0.0/16  chip   2      - vlanif100 2                  9; "
                    "= 0    10.2.3.0/24  waits  0      10.1.1.8 vlanif100 unresolved  9; "
                    "= 7    10.2.3.0/24  waits  0      10.1.2.9 vlanif200 unresolved  9"},
    {"show routes vrf 7 --count", "= 1"},
    {"show routes 10.2.0.0/16 --count", "= 3"},
    {"show routes 10.2.0.0/17 vrf 0 --count", "= 1"}, // the wider one is outside
    {"route show 0.0.0.0/8 --count", "= 0"},          // and so is the default
    {"why 10.9.0.0/16", "= 10.9.0.0/16: route 10.9.0.0/16: in the chip, to the CPU; "
                        "=     directly connected on vlanif100, to the CPU"},
    {"why 10.8.0.0/16", "= 10.8.0.0/16: route 10.8.0.0/16: not in the chip: waits for a gateway"},
    {"why 10.9.1.1",
     "= 10.9.1.1: not a neighbour; what covers it is; = route 10.9.0.0/16: in the chip, to the "
     "CPU; =     directly connected..."},
    {"why 10.4.0.0/16 vrf 7", "= 10.4.0.0/16: no route"},
};

ROWS(LabelCommands, AskForWhatTheirWordsSay, .families = {4}, .roles = alone, .see = "chip"){
    {"mpls if add vlanif300", "error unknown interface 'vlanif300'"},
    {"mpls if add vlanif100 space 7", "mpls vlan 100 on"},
    {"mpls ftn add {net} encap mpls 100/200 via {a}", "error a tunnel has one label..."},
    {"mpls ftn add {net} encap mpls 100 via 10.7.7.7", "error which dev is the next hop on?"},
    {"mpls ftn add {net} encap mpls 100 via {a} vrf 0 remote {b}", "error vrf 0 has tunnels..."},
    {"mpls ilm add 100 as 200 dev vlanif100", "error a label that is swapped needs a next hop..."},
    {"mpls ilm add 100 via inet6 {a}", "error {a} is no inet6 address"},
    {"mpls ilm add 100 via inet {a} dev vlanif300", "error unknown interface 'vlanif300'"},
    {"neigh add {a}"},
    {"mpls ftn add {b} encap mpls 100 via {a} proto static", "ftn+ {b} push 100 port 1 {m1}"},
    {"mpls ftn add {net} encap mpls 200 via {a} vrf 5 remote {b}",
     "ftn+ vrf 5 {net} push 200 over {b} push 100"},
    {"mpls ilm add 100 as 200 via inet {a}", "ilm+ label 100 swap 200 port 1 {m1}"},
    {"mpls ilm add 101 via inet {a} fec {net}", "ilm+ label 101 pop port 1 {m1} ttl 0 exp 0"},
    {"mpls ilm add 102 vrf 5", "ilm+ label 102 pop lookup vrf 5"},
    {"mpls ilm del 101", "ilm- label 101"},
    {"mpls ftn del {net} via {a} vrf 5", "ftn- vrf 5 {net} push 200 over {b} push 100"},
    {"mpls if del vlanif100", ""},
};

ROWS(LabelCommands, TraceAPacketToItsPort, .families = {4}, .roles = alone, .see = ""){
    {"each {a} {b} do neigh add *"},
    {"mpls ftn add 10.9.0.1/32 encap mpls 100 via {a}"},
    {"mpls ftn add {net} encap mpls 200 via {a} vrf 5 remote 10.9.0.1"},
    {"mpls ilm add 300 as 301 via inet {a}"},
    {"mpls ilm add 302 via inet {b}"},
    {"mpls ilm add 303 vrf 5"},
    {"mpls ilm add 304"},
    {"route add 10.9.0.0/24 via {a} via {b}"},
    {"chip trace", "error a packet has an address or a label"},
    {"chip trace 10.9.0.1 ttl 9 exp 3",
     "= label entry vrf 0 10.9.0.1/32: push 100 ttl 255 exp 3; "
     "= out of port 1 vlan 100 to {m1} with label 100 ttl 255 exp 3, ip ttl 8 exp 3"},
    {"chip trace 10.9.0.1 ttl 1", "= its ttl runs out: to the CPU"},
    {"chip trace 10.9.0.2", "= entry vrf 0 10.9.0.0/24; = group ...; "
                            "=     out of port 1 vlan 100 to {m1}; "
                            "=     out of port 1 vlan 100 to {m2}; "
                            "= on its way with ip ttl 63 exp 0"},
    {"chip trace {b} exp 1",
     "= entry vrf 0 {b}/32; = out of port 1 vlan 100 to {m2} with ip ttl 63 exp 1"},
    {"chip trace {in}", "= no entry, by default to the CPU"},
    {"chip trace label 300/7 ttl 9",
     "= incoming label 300: swap for 301 ttl 8 exp 0; = out of port 1 vlan 100 to {m1} with "
     "label 301 ttl 8 exp 0, label 7 ttl 9 exp 0, what is behind"},
    {"chip trace label 300 ttl 1",
     "= incoming label 300: swap for 301 ttl 0 exp 0; = its ttl runs out: to the CPU"},
    {"chip trace label 302 {in} exp 2",
     "= incoming label 302: pop; = out of port 1 vlan 100 to {m2} with ip ttl 64 exp 2"},
    {"chip trace label 304/303 {in} ttl 9",
     "= incoming label 304: pop, look up in vrf 0; = incoming label 303: pop, look up in vrf 5; "
     "= label entry vrf 5 {net}: push 200 ttl 255 exp 0; "
     "= label entry vrf 0 10.9.0.1/32: push 100 ttl 255 exp 0; = out of port 1 vlan 100 to {m1} "
     "with label 100 ttl 255 exp 0, label 200 ttl 255 exp 0, ip ttl 8 exp 0"},
    {"chip trace label 304",
     "= incoming label 304: pop, look up in vrf 0; = what stands behind is looked up..."},
    {"chip trace label 999", "= incoming label 999: no entry, dropped"},
    {"chip trace frame from {m1} to {m2}", "error a frame comes in on a port or behind a label"},
    {"chip trace frame port 3 vlan 100 from {m1} to {m2}", "= no circuit takes it"},
    {"chip trace frame label 300 from {m1} to {m2}",
     "= incoming label 300: swap for 301 ttl 63 exp 0; = out of port 1 vlan 100 to {m1} with "
     "label 301 ttl 63 exp 0, frame from {m1} to {m2}"},
    {"neigh del {a}"},
    {"clock advance 7s"},
    {"why 10.9.0.1", "= 10.9.0.1: label 100 leads to 10.9.0.1/32 by neighbour {a}: waits for its "
                     "neighbour {a} since 7 s"},
    {"why {net} vrf 5", "= {net}: label 100/200 leads to {net} by neighbour {a}: waits for the "
                        "label entry to 10.9.0.1 since 7 s"},
    {"chip refuse ftn 1 code 5"},
    {"neigh add {a}"},
    {"why 10.9.0.1", "= 10.9.0.1: label 100 leads to 10.9.0.1/32 by neighbour {a}: waits for the "
                     "chip, which refused it with 5 since 7 s"},
    {"chip refuse ilm 1 code 7"},
    {"mpls ilm add 305 vrf 5 fec {net1}"},
    {"why {net1} vrf 5", "= {net1}: incoming label 305 of {net1}: waits for the chip, which "
                         "refused it with 7"},
    {"neigh del {a}"},
    {"why 10.9.0.1", "= 10.9.0.1: label 100 leads to 10.9.0.1/32 by neighbour {a}: waits for its "
                     "neighbour {a} since 7 s"}, // not for the chip any more
    {"route add 10.8.0.0/15 via {a}"},
    {"mpls ftn add 10.9.0.0/16 via {a} encap mpls 105"},
    {"why 10.9.9.2", "= 10.9.9.2: not a neighbour; what covers it is; = label 105 leads to "
                     "10.9.0.0/16 by neighbour {a}: waits for its neighbour {a} since 0 s"},
};

ROWS(PseudowireCommands, AskForWhatTheirWordsSayAndTellWhatIsMissing, .families = {4},
     .roles = mirroring, .see = "mirror"){
    {"l2vpn vpws bind vlanif300 vc-id 100", "error unknown interface 'vlanif300'"},
    {"l2vpn vpws out add vc-id 100 peer 10.9.0.1 label 500 standby",
     "error a standby pseudowire has a sibling"},
    {"l2vpn vpws out add vc-id 100 peer fd00::1 label 500", "error column 35: unknown word..."},
    {"why vpws 100", "= no table has it"},
    {"l2vpn vpws out add vc-id 100 peer 10.9.0.1 label 500 control-word dev vlanif100 sibling 101 "
     "10.9.0.2",
     "mirror vpws-out+ 100 10.9.0.1 waits"},
    {"why vpws 100", "= pseudowire 100 to 10.9.0.1 sends label 500: waits for an attachment "
                     "circuit, its way in, a label path to 10.9.0.1"},
    {"l2vpn vpws in add vc-id 100 peer 10.9.0.1 label 600", "mirror vpws-in+ 100 10.9.0.1 waits"},
    {"l2vpn vpws bind vlanif200 vc-id 100 svlan 7 tpid 0x88a8", "mirror vpws-ac+ vlanif200 waits"},
    {"why vpws 100 peer 10.9.0.2", "= vlanif200 is the circuit of pseudowire 100: waits for a port "
                                   "of its circuit vlanif200, a label path to 10.9.0.1"},
    {"vlan port 200 5"},
    {"mpls ftn add 10.9.0.1/32 encap mpls 100 via {a}"},
    {"clock advance 7s"},
    {"why 10.9.0.1",
     "= 10.9.0.1: label 100 leads to ...; = pseudowire 100 to 10.9.0.1 sends label 500: waits for "
     "the label path to 10.9.0.1, which waits for its neighbour {a} since 7 s; "
     "= pseudowire 100 from 10.9.0.1 comes with label 600: waits for the label path..."},
    {"show vpws-ac", "= INTERFACE  VC ID  STATE  PORT  SVLAN  CVLAN; "
                     "= vlanif200  100    waits  0     7      0"},
    {"show vpws-out 10.9.0.1",
     "= VC ID  PEER      STATE  LABEL  ROLE     SIBLING       GROUP  IN USE; "
     "= 100    10.9.0.1  waits  500    primary  101 10.9.0.2  0      -"},
    {"show vpws-in", "= VC ID  PEER      STATE  LABEL  INTERFACE; "
                     "= 100    10.9.0.1  waits  600    -"},
    {"show vpws-in 10.9.0.2 --count", "= 0"},
    {"neigh add {a}",
     "mirror nexthop+ n1; mirror host+ {a}; mirror ftn+ 10.9.0.1; mirror vpws-ac+ vlanif200; "
     "mirror vpws-out+ 100 10.9.0.1; mirror vpws-in+ 100 10.9.0.1"},
    {"l2vpn vpws out add vc-id 101 peer 10.9.0.2 label 501 sibling 100 10.9.0.1 standby"},
    {"l2vpn vpws in add vc-id 101 peer 10.9.0.2 label 601"},
    {"mpls ftn add 10.9.0.2/32 encap mpls 101 via {a}"},
    {"show vpws-ac", "= ...; = vlanif200  100    chip   5     7      0"},
    {"chip check", "= chip and tables agree: arp rules 1, defaults 2, entries 2, ftns 2, "
                   "interfaces 2, next hops 1, pw groups 1, vpws 2"},
    {"l2vpn switch 23 standby",
     "mirror vpws-out+ 100 10.9.0.1 uses standby; mirror vpws-out+ 101 10.9.0.2 uses standby"},
    {"show vpws-out", "= ...; = 100    10.9.0.1  chip   500    primary  101 10.9.0.2  23     no; "
                      "= 101    10.9.0.2  chip   501    standby  100 10.9.0.1  23     yes"},
    {"chip trace frame port 5 vlan 7 from {m1} to {m2}",
     "= group 23 uses its standby; = vc 101 peer 10.9.0.2: push 501 ttl 255 exp 0; "
     "= label entry vrf 0 10.9.0.2/32: push 101 ttl 255 exp 0; = out of port 1 vlan 100 to {m1} "
     "with label 101 ttl 255 exp 0, label 501 ttl 255 exp 0, frame from {m1} to {m2} vlan 7"},
    {"chip trace frame label 600 from {m2} to {m1}",
     "= incoming label 600: pop, of vc 100 peer 10.9.0.1; "
     "= out of port 5 with frame from {m2} to {m1} vlan 7"},
    {"l2vpn vpws out add vc-id 102 peer 10.9.0.2 label 502 sibling 100 10.9.0.1 standby"},
    {"why vpws 102", "= pseudowire 102 to 10.9.0.2 sends label 502: waits for the place that "
                     "pseudowire 101 to 10.9.0.2 has, its way in"},
    {"vlan port 200 4 trunk 2", "error a port or a trunk, not both"},
    {"why vpws 100", "= vlanif200 is the circuit of pseudowire 100: in the chip; = ...; = ..."},
    {"neigh del {a}"},
    {"chip refuse vpws 9 code 5"},
    {"neigh add {a}"},
    {"show vpws-out", "= ...; = 100    10.9.0.1  refused 5  500    primary...; = ...; = ..."},
    {"why vpws 101",
     "= pseudowire 101 to 10.9.0.2 sends label 501: waits for the chip, which refused it with 5; "
     "= ..."},
    {"l2vpn switch 99 standby", ""},
    {"l2vpn vpws unbind vlanif200",
     "mirror vpws-out+ 100 10.9.0.1 waits uses standby; "
     "mirror vpws-out+ 101 10.9.0.2 waits uses standby; mirror vpws-ac- vlanif200 waits"},
    {"l2vpn vpws in del vc-id 100 peer 10.9.0.1", "mirror vpws-in- 100 10.9.0.1 waits"},
    {"why vpws 100", "= pseudowire 100 to 10.9.0.1 sends label 500: waits for an attachment "
                     "circuit, its way in"},
    {"l2vpn vpws out del vc-id 100 peer 10.9.0.1",
     "mirror vpws-out- 100 10.9.0.1 waits uses standby"},
};

ROWS(PseudowireCommands, MakeAVirtualBridgeAndTellWhatIsMissing, .families = {4},
     .roles = mirroring, .see = "mirror"){
    {"l2vpn vpls bind vlanif300 vpls 7", "error unknown interface 'vlanif300'"},
    {"l2vpn vpls add 65536", "error column..."},
    {"l2vpn vpls bind vlanif200 vpls 7 svlan 9", "mirror vpls-ac+ vlanif200 waits"},
    {"l2vpn vpls out add vpls 7 peer 10.9.0.1 label 700 spoke vc-id 3 dev vlanif100",
     "mirror vpls-out+ 7 10.9.0.1 waits"},
    {"why vpls 7", "= vlanif200 is a circuit of vpls 7: waits for vpls 7, a port of vlanif200; "
                   "= pseudowire of vpls 7 to 10.9.0.1 sends label 700: waits for vpls 7, its way "
                   "in, a label path to 10.9.0.1"},
    {"chip refuse vpls 1 code 5"},
    {"l2vpn vpls add 7", "mirror vpls+ 7 waits; mirror vpls+ 7 waits"},
    {"show vpls", "= VPLS  STATE      FID; = 7     refused 5  7"},
    {"why vpls 7 peer 10.9.0.2",
     "= vpls 7: waits for the chip, which refused it with 5; = vlanif200 is a circuit of vpls 7: "
     "waits for vpls 7, which waits for the chip, which refused it with 5, a port of vlanif200"},
    {"l2vpn vpls add 7", "mirror vpls+ 7"},
    {"vlan port 200 trunk 5", "mirror vpls-ac+ vlanif200"},
    {"l2vpn vpls in add vpls 7 peer 10.9.0.1 label 800", "mirror vpls-in+ 7 10.9.0.1 waits"},
    {"mpls ftn add 10.9.0.1/32 encap mpls 100 via {a}"},
    {"why vpls 7 peer 10.9.0.1",
     "= vpls 7: in the chip; = vlanif200 is a circuit of vpls 7: in the chip; = pseudowire of vpls "
     "7 to 10.9.0.1 sends label 700: waits for the label path to 10.9.0.1, which...; = ..."},
    {"neigh add {a}", "mirror nexthop+ n1; mirror host+ {a}; mirror ftn+ 10.9.0.1; "
                      "mirror vpls-out+ 7 10.9.0.1; mirror vpls-in+ 7 10.9.0.1"},
    {"show vpls-ac", "= INTERFACE  VPLS  STATE  PORT  SVLAN  CVLAN; "
                     "= vlanif200  7     chip   95    9      0"},
    {"show vpls-out", "= VPLS  PEER      STATE  LABEL  SPOKE; = 7     10.9.0.1  chip   700    yes"},
    {"show vpls-in", "= VPLS  PEER      STATE  LABEL  INTERFACE; "
                     "= 7     10.9.0.1  chip   800    -"},
    {"chip check", "= chip and tables agree: arp rules 1, defaults 2, entries 2, ftns 1, "
                   "interfaces 2, next hops 1, vpls 1, vpls circuits 1, vpls pws 1"},
    {"l2vpn vpls del 7", ""},
    {"l2vpn vpls unbind vlanif200"},
    {"l2vpn vpls out del vpls 7 peer 10.9.0.1"},
    {"l2vpn vpls in del vpls 7 peer 10.9.0.1"},
    {"l2vpn vpls del 7", "mirror vpls- 7 waits"},
};

ROWS(RouteCommands, SayWhatStandsInARoutesPlace, .roles = alone, .see = ""){
    {"neigh add {a}"},
    {"route add {net} via {a}"},
    {"ftn add {net} via {a}"},
    {"4: show routes", "= VRF  DESTINATION  STATE  INDEX  GATEWAYS               TYPE; "
                       "= 0    {net}  label  18     {a} vlanif100 18  9"},
    {"why {net}", "= {net}: route {net}: a label entry for the same prefix stands in its place; "
                  "= label 1000 leads to {net} by neighbour {a}: in the chip"},
    {"4: show ftn", "= VRF  FEC          STATE  TUNNEL LABEL  VPN LABEL  NEXTHOP; "
                    "= 0    {net}  chip   1000          0          {a}"},
    {"show ftn {net1} --count", "= 0"},
    {"ftn del {net}"},
    {"ilm add 2000 via 10.1.1.9"},
    {"show ilm", "= LABEL  VRF  FEC          STATE  SWAP  NEXTHOP   INTERFACE; "
                 "= 2000   0    10.2.0.0/16  waits  2001  10.1.1.9  vlanif100"},
    {"show ilm --vrf 7 --count", "= 0"},
};

ROWS(RouteCommands, FollowARouteToWhatIsMissing, .families = {4}, .roles = alone, .see = ""){
    {"neigh add {a} port 2"},
    {"route add {net} via {a} via {b} via fd77::1 dev vlanif100"},
    {"why {net}",
     "= {net}: route {net}: in the chip, by group 19 of next hops 18; "
     "=     gateway {a} on vlanif100: in the chip, next hop 18...; "
     "=     gateway {b} on vlanif100: waits for the neighbour to answer since 0 s; 100 probes "
     "left, the next in 30 s; "
     "=     gateway fd77::1 on vlanif100: waits...; 100 probes left..."},
    {"why {in}",
     "= {in}: not a neighbour; what covers it is; = route {net}: in the chip...; "
     "=     gateway {a}...; =     gateway {b}...; 100 probes left...; =     gateway fd77::1...; "
     "100 probes left..."},
    {"route add {net} via {a} via {b}"},
    {"allow chip-differs"},
    {"lose entry"},
    {"why {net}", "= {net}: route {net}: not in the chip, which should have it by group 20 of "
                  "next hops 18; =     gateway {a}...; =     gateway {b}...; 100 probes left..."},
    {"lose again"},
    {"lose group"},
    {"why {net}", "= {net}: route {net}: in the chip, by group 20, which the chip does not have; "
                  "=     gateway {a}...; =     gateway {b}...; 100 probes left..."},
    {"lose again"},
    {"allow chip-differs 0"},
    {"neigh del {a}"},
    {"why {net}", "= {net}: route {net}: not in the chip: waits for one of its gateways; "
                  "=     gateway {a} on vlanif100: not a neighbour, and nothing waits for it; "
                  "=     gateway {b}...; 100 probes left..."},
    {"allow adrift"},
    {"chip refuse route 1 skip 1"}, // behind the host's own entry
    {"neigh add {a} port 2"},
    {"why {net}",
     "= {net}: route {net}: not in the chip: waits for one of its gateways; "
     "=     gateway {a} on vlanif100: in the chip...; "
     "=         not used: the chip refused it, or the neighbour is on another interface; "
     "=     gateway {b}...; 100 probes left..."},
    {"chip refuse group 1"},
    {"route add {net1} via {a} via {b}"},
    {"why {net1}", "= {net1}: route {net1}: not in the chip: waits for a group (0 of 1024 in use); "
                   "=     gateway {a}...; =     gateway {b}...; 100 probes left..."},
};

ROWS(RouteCommands, TellWhichRoutesAgeAfterASwitchOver, .roles = mirroring, .see = ""){
    {"neigh add {a}"},
    {"route add {net} via {a}"},
    {"route add {net1} via {a} type 3"},
    {"show timers --count", "= 0"},
    {"switch-over"},
    {"4: show timers {net}",
     "= TIMER         VRF  ADDRESS      DUE IN SEC; = route-delete  0    {net}  600"},
    {"show timers {net1} --count", "= 0"}, // static
    {"route add {net} via {a}"},
    {"show timers {net} --count", "= 0"},
};

TEST_F(Answers, GiveTheSettingsAgain) {
    for (const char *command :
         {"if add vlanif100", "if add vlanif200 super", "sub add 200 7", "vrf enable 7",
          "addr add 10.1.1.9/24 dev vlanif100 # the first", "addr add 10.2.1.9/24 dev vlanif200",
          "if vrf vlanif100 7", "hash 3", "vrf disable 7", "vrf enable 9", "hash 5",
          "neigh reachable 10.1.1.2", "neigh silent 10.1.1.2", "if del vlanif200"})
        EXPECT_EQ(run(command).text, "") << command;
    EXPECT_NE(run("if del vlanif300").text, "") << "what is refused is no setting";
    EXPECT_EQ(run("config").text, "if add vlanif100\nvrf disable 7\n"
                                  "addr add 10.1.1.9/24 dev vlanif100\nif vrf vlanif100 7\n"
                                  "hash 5\nvrf enable 9\n");
}

TEST_F(Answers, TellWhatLeftTheLibraryInItsOrder) {
    const std::pair<const char *, const char *> commands[] = {
        {"if add vlanif100", ""},
        {"neigh add 10.1.1.2 port 3", ""},
        {"journal chip last 2", "1000.000 nexthop+ port 3 02:00:00:00:01:02 n1\n"
                                "1000.000 entry+ 10.1.1.2 n1\n"},
        {"journal off", ""},
        {"neigh add 10.1.1.3", ""},
        {"journal on", ""},
        {"clock advance 2s", ""},
        {"journal clear", ""},
        {"neigh del 10.1.1.2", ""},
        {"journal stack chip", "1002.000 entry- 10.1.1.2 n1\n1002.000 nexthop- n1\n"},
    };
    for (const auto &[command, text] : commands)
        EXPECT_EQ(run(command).text, text) << command;
}

} // namespace
