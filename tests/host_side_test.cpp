// The lists beside the host table: addresses that are waited for, neighbours held after their port
// went down, and what a new master asks.

#include "dpm_host.h"
#include "support/rows.h"

#include <cerrno>

using rig::alone;
using rig::with_standby;

namespace {

std::uint32_t ifindex_of(rig::Shelf &shelf) {
    return shelf.master().suite.find("vlanif100")->ifindex;
}

// "resolve IP": a table asks for the next hop behind an address.
void resolve(rig::RowShelf &shelf, const rig::Words &words) {
    const dpm_prefix ip = rig::prefix_of(words[1]);
    const auto index = dpm_host_get_index_by_ip(0, ifindex_of(shelf), &ip);
    shelf.answer(index == ~0u ? "unresolved" : shelf.journal.name_of(index));
}

// "wait IP COUNT": it is probed so often, whatever the host table says.
void wait(rig::RowShelf &shelf, const rig::Words &words) {
    const dpm_prefix ip = rig::prefix_of(words[1]);
    EXPECT_EQ(dpm_host_unreachable_add(0, ifindex_of(shelf), &ip, unsigned(std::stoul(words[2]))),
              0);
}

// "role master" and "role standby": the card's own role, as the platform tells it.
void take_role(rig::RowShelf &shelf, const rig::Words &words) {
    using chassis::peer::Role;
    shelf.master().peer.set_role(words[1] == "master" ? Role::master : Role::standby);
}

// "stack-fails NUMBER": that request of its next ones, to the socket and for its option.
void fail_stack(rig::RowShelf &shelf, const rig::Words &words) {
    shelf.master().stack.fail_next(unsigned(std::stoul(words[1])), EMFILE);
}

const rig::Verb verbs[] = {
    {"resolve", resolve}, {"wait", wait}, {"role", take_role}, {"stack-fails", fail_stack}};

} // namespace

ROWS(Waiting, AnAddressIsProbedAtOnceAndOnceMoreForEveryCount){
    {"resolve {a}", "probe {a}; = unresolved"},
    {"resolve {a}", "= unresolved"},
    {"clock advance 29s", ""},
    {"clock advance 1s", "probe {a}"},
    {"clock advance 2969s"},
    {"show probes --count", "= 100"},
    {"clock advance 1s", "probe {a}"},
    {"show unreachable --count", "= 0"},
    {"clock advance 86400s", ""},
};

ROWS(Waiting, EndsWithAnAnswerAndWithAReportOfTheSameHostToo){
    {"resolve {a}", "probe {a}; = unresolved"},
    {"clock advance 45s", "probe {a}"},
    {"neigh reachable {a} port 3", ""},
    {"clock advance 15s",
     "probe {a}; nexthop+ port 3 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}; "
     "6: probe {l1}; notice {a} came"},
    {"resolve {a}", "= n1"},
    {"clock advance 86400s", ""},
    {"wait {a} 5", "probe {a}"},
    {"neigh add {a} port 3", ""},
    {"show unreachable --count", "= 0"},
};

ROWS(Waiting, OfALinkLocalAddressIsForOneInterface, .families = {6}, .see = "stack"){
    {"route add {net} via fe80::7 dev vlanif100 via fe80::7 dev vlanif200",
     "probe fe80::7; probe fe80::7"},
    {"neigh add fe80::7", ""},
    {"show unreachable --count", "= 1"},
    {"neigh add fe80::7 dev vlanif200", ""},
    {"show unreachable --count", "= 0"},
};

ROWS(Waiting, GoesOnWhenTheStackFails, .roles = alone, .see = "log stack"){
    {"stack-fails 1"},
    {"wait {a} 3", ""},
    {"stack-fails 2"},
    {"clock advance 30s", ""},
    {"stack-fails 0"},
    {"clock advance 30s", "probe {a}"},
    {"show unreachable --json",
     "= [; =  {\"vrf\": 0, \"address\": \"{a}\", \"interface\": \"vlanif100\", \"waited_sec\": 60, "
     "\"probes_left\": 1, \"next_probe_in_sec\": 30, ...; 1 probes ...; = ]"},
    {"neigh add {b} port 3"},
    {"port down 3"},
    {"see log"},
    {"port down 3", // the stack does not know it any more
     "6: log10 ...; 4: log10 dpm_arp_ipstack_delete #::set ipstack errno 6 errstring No such "
     "device or address\r\n; 6: log10 dpm_ndp_ipstack_delete #::set ipstack errno 6 errstring ..."},
};

ROWS(Holding, AHostOfALostPortStaysAndIsHeldForADay, .see = "chip stack platform"){
    {"neigh add {a} port 3"},
    {"port down 3", "forget {a}; 4: proxy route goes"},
    {"port down 3", "forget {a}"}, // it bounces
    {"show hold --count", "= 1"},
    {"standby show hold --count", "= 0"},
    {"port up 4", ""},
    {"port up 3", "probe {a}"},
    {"clock advance 86399s"},
    {"show hold --count", "= 1"},
    {"clock advance 1s", ""},
    {"show hold --count", "= 0"},
    {"show hosts --count", "= 1"},
    // A report ends it, even of a host that is the same.
    {"neigh reachable {a} port 3"},
    {"port down 3"},
    {"port up 3", "probe {a}"},
    {"show hold --count", "= 0"},
    // A trunk and a port of one number are two.
    {"neigh add {b} trunk 5"},
    {"neigh add {c} port 5"},
    {"port down 5", "forget {c}; 4: proxy route goes"},
    {"show hold --json",
     "= [; =  {\"vrf\": 0, \"address\": \"{c}\", \"mac\": \"{m3}\", \"port\": \"5\", "
     "\"vlan\": 100, \"interface\": \"vlanif100\", \"forgotten_in_sec\": 86400, ...; = ]"},
    {"trunk down 5", "forget {b}; 4: proxy route goes"},
    {"port up 5", "probe {c}"},
    {"trunk up 5", "probe {b}"},
    {"trunk up 5", "probe {b}"}, // each time
};

ROWS(Holding, TakesTheFirstHundredOfTheTable, .families = {6}, .roles = alone){
    {"many 60 neigh add 10.1.# port 3"},
    {"many 90 neigh add 2001:db8::0.1.# port 3"},
    {"port down 3"},
    {"show deletions --count", "= 150"},
    {"show hold --count", "= 100"},
    {"show hold 10.1.0.0/16 --count", "= 60"},
    {"show hold 2001:db8::1:27/128 --count", "= 1"},
    {"show hold 2001:db8::1:28/128 --count", "= 0"},
    {"neigh del 10.1.0.0"},
    {"show hold --count", "= 100"}, // a hold outlives its host
    {"neigh add 10.1.0.0 port 4"},
    {"show hold --count", "= 99"},
};

ROWS(Holding, OfAnEmptyTableIsTold, rig::once("log")){
    {"port down 3", "log10 dpm_host_port_down #::ipv4 host table is null!\r\n"},
};

ROWS(NewMaster, ProbesThreeTimesOverAMinuteAndKeepsWhoIsSilent, .roles = with_standby){
    {"neigh add {a} port 3"},
    {"neigh add {b} port 4"},
    {"neigh reachable {b} port 4"},
    {"switch-over", "forget {a}; probe {a}; forget {b}; probe {b}"},
    {"clock advance 29s", ""},
    {"clock advance 1s", "probe {a}"},
    {"clock advance 30s", "probe {a}"},
    {"clock advance 86400s", ""},
    {"show hosts --count", "= 2"},
    {"show unreachable --count", "= 0"},
};

ROWS(NewMaster, ACardThatTurnedStandbyWaitsForNobody, .roles = alone){
    {"wait {a} 20", "probe {a}"},
    {"route add {net} via {c}", "probe {c}"},
    {"neigh add {b} port 3"},
    {"port down 3"},
    {"role standby"},
    {"clock advance 172800s", ""},
    {"port up 3", ""},
    {"show hold --count", "= 0"}, // a day is a day
    {"show unreachable --count", "= 0"},
    {"role master"},
    {"clock advance 60s", ""},
};

// The chip has what the old master did last, the tables do not: line cards are made what they say.
ROWS(NewMaster, MendsWhatWasNotMirrored, .roles = rig::mirroring, .see = ""){
    {"neigh add {a}"},
    {"neigh add {b} port 2"},
    {"neigh add {c} port 3"},
    {"route add {net} via {a} via {b}"},
    {"route add {net1} via {c}"},
    {"card standby-lost"},
    {"clock advance 60s"},
    {"route del {net}"},
    {"neigh del {b}"},
    {"route add {net1} via {a} via {c}"},
    {"route add {net2} via {c}"},
    {"neigh add {d} port 4"},
    {"allow chip-differs"},
    {"switch-over"},
    {"allow chip-differs 0"},
    {"forwards {in}", "= {net} -> {a} {b}"},
    {"neigh del {b}"},
};

// Neighbours that answer are reported again, gateways that are missing are looked for anew.
ROWS(NewMaster, AsksForItsNeighboursAndForTheGatewaysThatAreMissing, .roles = rig::mirroring){
    {"neigh add {a}"},
    {"route add {net} via {a} via {b}"},
    {"switch-over", "forget {a}; probe {a}; probe {b}"},
    {"clock advance 30s", "probe {a}; probe {b}"},
};

// Whom it could not ask for want of an interface it asks when that comes.
ROWS(NewMaster, AsksAgainWhereAnInterfaceComes, .roles = rig::mirroring, .see = "stack"){
    {"neigh add {a}"},
    {"route add {net} via {a} via {b}"},
    {"allow standby-differs"},
    {"allow adrift"},
    {"standby if del vlanif100"},
    {"switch-over", "forget {a}; probe {a}; probe {b}"},
    {"if add vlanif100", "probe {a}; probe {b}"},
};

using HostLists = rig::LoneShelf;

TEST_F(HostLists, TakeNothingWithoutFamilyOrRecord) {
    const dpm_prefix unknown{}, ip = rig::prefix_of("10.1.1.1");
    rig::expect_all(
        -1, {dpm_host_unreachable_add(0, 900, &unknown, 2),
             int(dpm_host_get_index_by_ip(0, 900, &unknown)), dpm_host_hold_entry_del(nullptr),
             dpm_host_unreachable_send(nullptr), dpm_ndp_req_send(0, 900, nullptr),
             dpm_ndp_ipstack_delete(0, 900, nullptr), int(dpm_api_get_unreachable_since(nullptr)),
             int(dpm_api_ftn_waits_since(nullptr)), int(dpm_api_ilm_waits_since(nullptr))});
    EXPECT_EQ(dpm_host_unreachable_add(0, 900, &ip, 2), 0);
    for (int round = 0; round < 2; ++round) // gone
        EXPECT_EQ(dpm_host_unreachable_del(0, 900, &ip), 0);
    EXPECT_TRUE(unreachables(master()).empty());
}
