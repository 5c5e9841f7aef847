// Multicast: the filter of a port and the members that follow from it, requests, bounds, the
// standby, and what time and interfaces take away.

#include "dpm_ipmc.h"
#include "support/multicast.h"
#include "support/rows.h"

#include <set>

namespace {

using chassis::chip::Function;
using chassis::os::Fault;
namespace kinds = chassis::chip::kinds;

// A state of a port, what comes in, which of the sources * 1 2 3 it then gets, its filter, and whether
// its time begins anew.
constexpr struct Cell {
    const char *state, *event, *members, *filter;
    bool restarts = false;
} cells[] = {
    {"", "join", "*123", "any", true},
    {"", "leave", "", ""},
    {"", "is-in 2 3", "", ""},
    {"", "is-ex 2 3", "", ""},
    {"", "to-in 2 3", "", ""},
    {"", "to-in", "", ""},
    {"", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"", "to-ex", "*123", "exclude", true},
    {"", "allow 2 3", "23", "include 2 3", true},
    {"", "block 2 3", "", ""},
    {"join", "join", "*123", "any", true},
    {"join", "leave", "", ""},
    {"join", "is-in 2 3", "*123", "any"},
    {"join", "is-ex 2 3", "*123", "any"},
    {"join", "to-in 2 3", "23", "include 2 3", true},
    {"join", "to-in", "", ""},
    {"join", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"join", "allow 2 3", "*123", "any", true},
    {"join", "block 2 3", "*123", "any"},
    {"join", "", "", ""},
    {"allow 1 2", "join", "12", "include 1 2", true},
    {"allow 1 2", "leave", "", ""},
    {"allow 1 2", "is-in 2 3", "23", "include 2 3", true},
    {"allow 1 2", "is-ex 2 3", "12", "include 1 2"},
    {"allow 1 2", "to-in 2 3", "12", "include 1 2"},
    {"allow 1 2", "to-in", "12", "include 1 2"},
    {"allow 1 2", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"allow 1 2", "allow 2 3", "123", "include 1 2 3", true},
    {"allow 1 2", "block 2 3", "1", "include 1"},
    {"allow 1 2", "block 1 2 3", "", ""},
    {"allow 1 1 2", "block 1", "2", "include 2"}, // a source that was told twice
    {"allow 1 2", "", "", ""},
    {"to-ex 1 2", "join", "*3", "exclude 1 2", true},
    {"to-ex 1 2", "leave", "", ""},
    {"to-ex 1 2", "is-in 2 3", "*3", "exclude 1 2"},
    {"to-ex 1 2", "is-ex 2 3", "*1", "exclude 2 3", true},
    {"to-ex 1 2", "to-in 2 3", "23", "include 2 3", true},
    {"to-ex 1 2", "to-in", "", ""},
    {"to-ex 1 2", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"to-ex 1 2", "allow 2 3", "*23", "exclude 1", true},
    {"to-ex 1 2", "block 2 3", "*", "exclude 1 2 3", true},
    {"to-ex 1 2", "", "", ""},
};

class Membership : public rig::RowShelf {
public:
    explicit Membership(unsigned family) : RowShelf(family, rig::Role::mirroring, {}) {
        (void)run("mcast snoop on");
        for (const char *source : {"*", "{s1}", "{s2}", "{s3}"})
            (void)act(expanded(std::string("mroute add ") + source + " {g1} vlanif200 vlanif100"));
    }
    void report(const std::string &event) {
        std::string command = "hear 3 100 ";
        for (const std::string &word : rig::words_of(event))
            command += std::isdigit(word[0]) ? " {s" + word + "}" : word + " {g1}";
        event.empty() ? advance(261) : void(act(expanded(command)));
    }
    std::string members() { // of the master's chip
        std::set<char> sources;
        for (const auto &[key, value] : master().chip.held<kinds::mcast_member>())
            sources.insert(key.of.source_len == 0
                               ? '*'
                               : char('0' + key.of.source[key.of.family == 1 ? 3 : 15]));
        return {sources.begin(), sources.end()};
    }
    std::string filter(std::int64_t &seconds_left) {
        std::string text;
        for (const dpm_ipmc_rx_port &port : all(master(), chassis::tables::mgroups)) {
            text = port.mode == 0 ? "any" : port.mode == 1 ? "include" : "exclude";
            for (unsigned i = 0; i < port.src_cnt; ++i)
                text += " " +
                        std::to_string(port.sources[i].address[port.sources[i].prefix_len / 8 - 1]);
            seconds_left =
                port.timer.expiry_sec - master().os.now_nsec() / chassis::os::nsec_per_sec;
        }
        return text;
    }
};

class MulticastBounds : public rig::LoneShelf {
    void SetUp() override { (void)run("mcast snoop on"); }
};

} // namespace

TEST(Membership, FollowsTheTableCellByCell) {
    for (const unsigned family : {4u, 6u})
        for (const auto &[state, event, members, filter, restarts] : cells) {
            SCOPED_TRACE(testing::Message()
                         << "family " << family << ": " << state << ", " << event);
            Membership shelf(family);
            if (*state)
                shelf.report(state);
            shelf.advance(*event ? 100 : 0);
            shelf.report(event);
            std::int64_t seconds_left = 0;
            EXPECT_EQ(shelf.filter(seconds_left), filter);
            EXPECT_EQ(shelf.members(), members);
            EXPECT_EQ(seconds_left, !*filter ? 0 : restarts ? 260 : 160);
            shelf.check_laws();
        }
}

// --- requests ---

ROWS(Mroutes, ComeWithTheMembersThatPortsReportedAndGoWithThem, .roles = rig::mirroring,
     .see = "chip"){
    {"hear 3 100 to-in {g1} {s1}", ""}, // nobody listens
    {"mcast snoop on"},
    {"hear 3 100 to-in {g1} {s1}", ""},
    {"hear 4 100 to-ex {g1} {s1}", ""},
    {"mroute add {s1} {g1} vlanif200 vlanif100",
     "mroute+ ({s1}, {g1}) gid 20; standby: mroute+ ({s1}, {g1}) gid 20"},
    {"mroute add {s1} {g1} vlanif200 vlanif100 vlanif200", ""},
    {"mroute add {s2} {g1} vlanif200 vlanif100",
     "mroute+ ({s2}, {g1}) gid 21; standby: mroute+ ({s2}, {g1}) gid 21; "
     "mport+ ({s2}, {g1}) vlan 100 port 4 on; standby: mport+ ({s2}, {g1}) vlan 100 port 4 on"},
    {"hear 3 100 allow {g1} {s2}",
     "mport+ ({s2}, {g1}) vlan 100 port 3 on; standby: mport+ ({s2}, {g1}) vlan 100 port 3 on"},
    {"hear 4 100 leave {g1}",
     "mport- ({s2}, {g1}) vlan 100 port 4; standby: mport- ({s2}, {g1}) vlan 100 port 4"},
    {"mroute add {s1} {g1} vlanif200 vlanif200", ""}, // another set of VLANs
    {"mroute del {s3} {g1} vlanif200", ""},
    {"mroute del {s1} {g1} vlanif200", "mroute- ({s1}, {g1}); standby: mroute- ({s1}, {g1})"},
    {"mroute del {s2} {g1} vlanif200",
     "mport- ({s2}, {g1}) vlan 100 port 3; standby: mport- ({s2}, {g1}) vlan 100 port 3; "
     "mroute- ({s2}, {g1}); standby: mroute- ({s2}, {g1})"},
    {"show mroutes --count", "= 0"},
    {"show mgroups --count", "= 1"},
};

ROWS(Mroutes, LeaveNothingBehindWhenTheyAreRefused, .roles = rig::mirroring, .see = "chip"){
    {"mcast snoop on"},
    {"hear 3 100 join {g1}"},
    {"chip refuse mcast-group 1"},
    {"mroute add {s1} {g1} vlanif200 vlanif100", "mroute+ ({s1}, {g1}) gid 0 -> -1"},
    {"show mroutes --count", "= 0"},
    {"fault alloc 2"}, // the group
    {"mroute add {s1} {g1} vlanif200 vlanif100", ""},
    {"fault alloc 3"}, // the source
    {"mroute add {s1} {g1} vlanif200 vlanif100", ""},
    {"show mroutes --count", "= 0"},
    {"allow mcast-adrift"},
    {"fault alloc 5"}, // the member
    {"mroute add {s1} {g1} vlanif200 vlanif100",
     "mroute+ ({s1}, {g1}) gid 20; standby: mroute+ ({s1}, {g1}) gid 20"},
    {"chip refuse mcast-member 1"},
    {"mroute add {s1} {g1} vlanif200 vlanif200", ""},
    {"mroute add {s1} {g1} vlanif200 vlanif100", "mport+ ({s1}, {g1}) vlan 100 port 3 on -> -1"},
    {"hear 3 100 leave {g1}", ""},
    {"hear 3 100 join {g1}",
     "mport+ ({s1}, {g1}) vlan 100 port 3 on; standby: mport+ ({s1}, {g1}) vlan 100 port 3 on"},
    {"allow mcast-adrift 0"},
    {"chip refuse mcast-member-del 1"},
    {"hear 3 100 leave {g1}", "mport- ({s1}, {g1}) vlan 100 port 3 -> -1"}, // it goes all the same
    {"show mroute-members --count", "= 0"},
    {"chip refuse mcast-group-del 1"},
    {"mroute del {s1} {g1} vlanif200", "mroute- ({s1}, {g1}) -> -1"},
    {"show mroutes --count", "= 1"}, // a source stays
    {"mroute del {s1} {g1} vlanif200", "mroute- ({s1}, {g1}); standby: mroute- ({s1}, {g1})"},
};

// --- the standby, and time ---

ROWS(Mroutes, TravelWithEchoesAndWaitForReportsBehindASwitchOver, .families = {4},
     .roles = rig::mirroring, .see = "chip"){
    {"mcast snoop on"},
    {"mroute add * {g1} vlanif200 vlanif100"},
    {"hear 3 100 join {g1}"},
    {"hear 4 100 join {g1}"},
    {"hear 5 100 to-ex {g1} {s1}"},
    {"standby goes"},
    {"standby comes",
     "standby: ...; standby: ...; standby: ...; standby: ...; standby: ...; "
     "standby: mroute+ (*, {g1}) gid 20; standby: mport+ (*, {g1}) vlan 100 port 5 on; "
     "standby: mport+ (*, {g1}) vlan 100 port 4 on; "
     "standby: mport+ (*, {g1}) vlan 100 port 3 on; standby: unknown_ipmc_set {ip} on gid 18; "
     "standby: unknown_ipmc_set ipv6 on gid 19"},
    {"switch-over", ""},
    {"show mgroups --count", "= 0"},
    {"show mroute-members --count", "= 3"},
    {"clock advance 200s", ""},
    {"hear 3 100 join {g1}", ""},
    {"clock advance 59s", ""},
    {"clock advance 1s", "mport- (*, {g1}) vlan 100 port 4; mport- (*, {g1}) vlan 100 port 5"},
    {"show mroute-members --count", "= 1"},
    {"chip refuse mcast-member-del 1"},
    {"clock advance 200s",
     "mport- (*, {g1}) vlan 100 port 3 -> -1"}, // its filter's time, not its own
    {"show mroutes --count", "= 1"},            // the suite's, though nobody is there
};

ROWS(Mroutes, EndWithTheLastMemberThatNobodyReportsAgain, .roles = rig::mirroring, .see = "chip"){
    {"mcast snoop on"},
    {"mroute add {s1} {g1} vlanif200 vlanif100"},
    {"mroute add {s2} {g1} vlanif200 vlanif100 vlanif200"},
    {"hear 3 100 join {g1}"},
    {"hear 3 200 join {g1}"},
    {"switch-over"},
    {"allow mcast-adrift"},
    {"chip refuse mcast-member-del 1"},
    {"clock advance 260s",
     "mport- ({s2}, {g1}) vlan 100 port 3 -> -1; mport- ({s2}, {g1}) vlan 200 port 3; "
     "mport- ({s1}, {g1}) vlan 100 port 3; mroute- ({s1}, {g1})"},
    {"show mroutes --count", "= 1"}, // one that the chip kept
};

ROWS(Mroutes, AreThoseOfTheMasterOnAStandbyThatComesBack, .roles = rig::mirroring, .see = "chip"){
    {"mcast snoop on"},
    {"mroute add * {g1} vlanif200 vlanif100"},
    {"mroute add * {g2} vlanif200 vlanif100"},
    {"hear 3 100 join {g1}"},
    {"hear 4 100 join {g1}"},
    {"hear 3 100 join {g2}"},
    {"card standby-lost"},
    {"clock advance 60s"},
    {"mroute del * {g2} vlanif200"},
    {"hear 4 100 leave {g1}"},
    {"hear 5 100 join {g1}"},
    {"card standby-usable"},
    {"standby comes",
     "standby: mroute+ (*, {g1}) gid 20; standby: mport+ (*, {g1}) vlan 100 port 5 on; "
     "standby: mport+ (*, {g1}) vlan 100 port 3 on; standby: unknown_ipmc_set ipv4 on gid 18; "
     "standby: unknown_ipmc_set ipv6 on gid 19; standby: mport- (*, {g1}) vlan 100 port 4; "
     "standby: mport- (*, {g2}) vlan 100 port 3; standby: mroute- (*, {g2})"},
};

ROWS(Mroutes, LoseTheMembersOfAVlanWhoseInterfaceGoes, .roles = rig::mirroring, .see = "chip"){
    {"mcast snoop on"},
    {"mroute add * {g1} vlanif200 vlanif100 vlanif200"},
    {"hear 3 100 join {g1}"},
    {"hear 4 200 join {g1}"},
    {"if vrf vlanif200 5",
     "mport- (*, {g1}) vlan 200 port 4; standby: mport- (*, {g1}) vlan 200 port 4; "
     "if-vrf vlan 200 vrf 5; standby: if-vrf vlan 200 vrf 5"},
    {"hear 4 200 join {g1}", ""}, // the group is of another VRF
    {"if del vlanif100"}, // a VLAN without interface is of VRF 0
    {"hear 3 100 join {g1}",
     "mport+ (*, {g1}) vlan 100 port 3 on; standby: mport+ (*, {g1}) vlan 100 port 3 on"},
    {"hear 3 100 leave {g1}",
     "mport- (*, {g1}) vlan 100 port 3; standby: mport- (*, {g1}) vlan 100 port 3"},
};

// --- settings ---

ROWS(MulticastSettings, ActAtOnce, .families = {4}, .roles = rig::mirroring, .see = "chip log"){
    {"call dpm_api_set_unknown_ipmc_to_cpu 1 1",
     "unknown_ipmc_set {ip} on gid 18; standby: unknown_ipmc_set {ip} on gid 18; = 0"},
    {"call dpm_api_set_unknown_ipmc_to_cpu 1 1", "= 0"},
    {"call dpm_api_get_ipmc_global_enable 1", "= 1"},
    {"call dpm_api_get_ipmc_global_enable 2", "= 0"},
    {"call dpm_api_get_ipmc_global_enable 9", "= 1"},
    {"chip refuse mcast-unknown 1"}, // the state is the suite's, the group the chip's
    {"call dpm_api_set_unknown_ipmc_to_cpu 1 2",
     "set_igmp_to_cpu on 0; unknown_ipmc_set {ip} off gid 18 -> -1; = 0"},
    {"call dpm_api_set_unknown_ipmc_to_cpu 1 2", "= 0"},
    {"call dpm_api_set_unknown_ipmc_to_cpu 1 1",
     "unknown_ipmc_set {ip} on gid 18; standby: unknown_ipmc_set {ip} on gid 18; = 0"},
    {"call dpm_api_set_unknown_ipmc_to_cpu 1 2",
     "set_igmp_to_cpu on 0; unknown_ipmc_set {ip} off gid 18; "
     "standby: unknown_ipmc_set {ip} off gid 18; = 0"},
    {"call dpm_api_set_unknown_ipmc_to_cpu 3 1", "= 0"},
    {"standby call dpm_api_set_unknown_ipmc_to_cpu 2 1", "= 0"},
    {"call dpm_api_set_ipmc_enable 1 70000 2",
     "interface_ipmc_enable vlan 4464 type 1 enable 2; = 0"},
    {"call dpm_api_set_igmp_to_cpu 4085 1", "set_igmp_to_cpu vlan 4085 on 1; = 0"},
    {"call dpm_api_set_mld_to_cpu 1 7", "set_mld_to_cpu vlan 1 on 0; = 0"},
    {"call dpm_api_set_igmp_to_cpu 4086 1", "= -1"},
    {"call dpm_api_set_mld_to_cpu 0 1", "= -1"},
    {"call dpm_api_set_ipmc_proc 0 1",
     "log10 dpm_api_set_ipmc_proc #::the input parameter is null!\r\n; = -1"},
};

// --- bounds ---

TEST_F(MulticastBounds, OfVlansAndInterfacesHold) {
    for (unsigned vlan = 1001; vlan <= 1065; ++vlan)
        (void)run("if add vlanif" + std::to_string(vlan));
    dpm_ipmc_request request = rig::multicast::request_of(master(), "224.1.1.1", 1001, 1064);
    EXPECT_EQ(dpm_api_set_ipmc_proc(&request, DPM_OPER_ADD), 0);
    settle();
    (void)run("hear 3 1065 join 224.1.1.1");
    request = rig::multicast::request_of(master(), "224.1.1.1", 1065, 1065);
    EXPECT_EQ(dpm_api_set_ipmc_proc(&request, DPM_OPER_ADD), 0);
    clear_journal();
    settle();
    const auto calls = chip_calls(master());
    EXPECT_EQ(calls.size(), 2u) << "its member is taken out again";
    const auto left = all(master(), chassis::tables::mroutes);
    EXPECT_EQ(left.at(0).out_count, 0u) << "and those that were there are not asked for";
    request.oif_num = 65;
    EXPECT_EQ(dpm_api_set_ipmc_proc(&request, DPM_OPER_ADD), 0);
    settle();
    EXPECT_EQ(logged(master(), "dpm_ipmc_gourp_add_process"), 1u);
}

TEST_F(MulticastBounds, OfWhatHostsReportHold) {
    keep_log(false);
    uv_rx_descriptor from{0, 100, 0, {}, 1, {}};
    dpm_prefix group = rig::prefix_of("224.0.0.0");
    const auto join = [&](unsigned number, unsigned port) {
        group.address[2] = std::uint8_t(number >> 8), group.address[3] = std::uint8_t(number);
        from.port = port;
        return dpm_ipmc_join_group(&group, &from);
    };
    for (unsigned number = 0; number < DPM_IPMC_RX_GROUPS; ++number)
        for (unsigned port = 1; port <= 4; ++port)
            ASSERT_EQ(join(number, port), 0);
    keep_log(true);
    EXPECT_EQ(join(DPM_IPMC_RX_GROUPS, 1), -1) << "a group too many";
    EXPECT_EQ(join(0, 5), -1) << "a port too many";
    EXPECT_EQ(join(0, 4), 0);
    EXPECT_EQ(logged(master(), "dpm_ipmc_join_group"), 2u);
    EXPECT_EQ(dpm_ipmc_leave_group(&group, &from), 0);
    EXPECT_EQ(join(DPM_IPMC_RX_GROUPS, 4), -1) << "the port's group is there, and full";
    EXPECT_EQ(join(0, 5), 0);
}
