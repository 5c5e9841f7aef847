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

// "resolve IP [VRF]": a table asks for the next hop behind an address.
const rig::Verb resolve{"resolve", [](rig::RowShelf &shelf, const rig::Words &words) {
                            const dpm_prefix ip = rig::prefix_of(words[1]);
                            const auto index = dpm_host_get_index_by_ip(0, ifindex_of(shelf), &ip);
                            shelf.answer(index == ~0u ? "unresolved"
                                                      : shelf.journal.name_of(index));
                        }};

// "wait IP COUNT": it is probed so often, whatever the host table says.
const rig::Verb wait{
    "wait", [](rig::RowShelf &shelf, const rig::Words &words) {
        const dpm_prefix ip = rig::prefix_of(words[1]);
        const unsigned count = unsigned(std::stoul(words[2]));
        shelf.answer(std::to_string(dpm_host_unreachable_add(0, ifindex_of(shelf), &ip, count)));
    }};

// "role master" and "role standby": the card's own role, as the platform tells it.
const rig::Verb role{"role", [](rig::RowShelf &shelf, const rig::Words &words) {
                         using chassis::peer::Role;
                         shelf.master().peer.set_role(words[1] == "master" ? Role::master
                                                                           : Role::standby);
                     }};

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
    {"show unreachable --count", "= 0"},
};

ROWS(Waiting, AnAnswerEndsTheProbing){
    {"resolve {a}", "probe {a}; = unresolved"},
    {"clock advance 45s", "probe {a}"},
    {"neigh reachable {a} port 3", ""},
    {"clock advance 15s",
     "probe {a}; nexthop+ port 3 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}; "
     "6: probe {l1}; notice {a} came"},
    {"resolve {a}", "= n1"},
    {"show unreachable --count", "= 0"},
    {"clock advance 86400s", ""},
};

ROWS(Waiting, EndsWithAReportOfTheSameHostToo){
    {"neigh add {a}"},
    {"wait {a} 5", "probe {a}; = 0"},
    {"neigh add {a}", ""},
    {"show unreachable --count", "= 0"},
};

ROWS(Holding, AHostOfALostPortStaysAndIsHeldForADay){
    {"neigh add {a} port 3"},
    {"port down 3", "forget {a}"},
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
};

ROWS(Holding, EndsWithAReportEvenOfAHostThatIsTheSame){
    {"neigh add {a} port 3"},   {"neigh reachable {a} port 3"}, {"port down 3", "forget {a}"},
    {"port up 3", "probe {a}"}, {"show hold --count", "= 0"},
};

ROWS(Holding, ATrunkAndAPortOfOneNumberAreTwo){
    {"neigh add {a} trunk 5"},      {"neigh add {b} port 5"},   {"port down 5", "forget {b}"},
    {"trunk down 5", "forget {a}"}, {"port up 5", "probe {b}"}, {"trunk up 5", "probe {a}"},
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

ROWS(Holding, TheProxyArpRouteGoesWithTheNeighbour, .see = "platform stack"){
    {"neigh add {a} port 3"},
    {"port down 3", "forget {a}; 4: proxy route goes"},
    {"port down 3", "forget {a}"}, // the stack does not know it any more
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
    {"wait {a} 20", "probe {a}; = 0"},
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
    {"card standby-usable"},
    {"allow chip-differs"},
    {"switch-over"},
    {"allow chip-differs 0"},
    {"forwards {in}", "= {net} -> {a} {b}"},
    {"neigh del {b}"},
    {"neigh add {d} port 4"},
};

// Neighbours that answer are reported again, gateways that are missing are looked for anew.
ROWS(NewMaster, AsksForItsNeighboursAndForTheGatewaysThatAreMissing, .roles = rig::mirroring){
    {"neigh add {a}"},
    {"route add {net} via {a} via {b}"},
    {"switch-over", "forget {a}; probe {a}; probe {b}"},
    {"clock advance 30s", "probe {a}; probe {b}"},
};

namespace {

class StackRequests : public rig::LoneShelf, public ::testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(Families, StackRequests, ::testing::Values("10.1.1.2", "2001:db8::2"));

} // namespace

TEST_P(StackRequests, AStackThatFailsDoesNotStopTheWork) {
    run("if add vlanif100");
    const std::uint32_t ifindex = ifindex_of(*this);
    const dpm_prefix ip = rig::prefix_of(GetParam());
    const bool ipv4 = ip.family == DPM_FAMILY_IPV4;
    for (const unsigned failing : {1u, 2u}) { // the socket, its option
        master().stack.fail_next(failing, EMFILE);
        EXPECT_EQ(ipv4 ? dpm_arp_req_send(0, ifindex, dpm::address_word(ip.address))
                       : dpm_ndp_req_send(0, ifindex, ip.address),
                  -EMFILE);
        master().stack.fail_next(0, 0);
    }
    clear_journal();
    EXPECT_EQ(ipv4 ? dpm_arp_ipstack_delete(0, ifindex, dpm::address_word(ip.address))
                   : dpm_ndp_ipstack_delete(0, ifindex, ip.address),
              -ENXIO)
        << "no such neighbour";
    EXPECT_EQ(logged(master(), "::set ipstack errno " + std::to_string(ENXIO) + " errstring "), 1u);
    master().stack.fail_next(1, EMFILE);
    EXPECT_EQ(dpm_host_unreachable_add(0, ifindex, &ip, 2), 0);
    EXPECT_EQ(unreachables(master()).size(), 1u) << "the next probe may get through";
    EXPECT_EQ(dpm_api_get_unreachable_since(0, &ip),
              master().os.now_nsec() / chassis::os::nsec_per_sec);
    EXPECT_EQ(dpm_api_get_unreachable_since(1, &ip), -1) << "another VRF";
    EXPECT_EQ(dpm_host_unreachable_del(0, &ip), 0);
    EXPECT_EQ(dpm_host_unreachable_del(0, &ip), 0);
    const dpm_prefix unknown{};
    rig::expect_all(-1, {dpm_host_unreachable_add(0, ifindex, &unknown, 2),
                         int(dpm_host_get_index_by_ip(0, ifindex, &unknown)),
                         dpm_host_hold_entry_del(nullptr), dpm_host_unreachable_send(nullptr),
                         dpm_ndp_req_send(0, ifindex, nullptr),
                         dpm_api_get_unreachable_since(0, nullptr),
                         dpm_ndp_ipstack_delete(0, ifindex, nullptr)});
    EXPECT_TRUE(unreachables(master()).empty());
}
