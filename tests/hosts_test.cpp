// Hosts: what becomes of a report on both cards and in the chip, in which order, and what each
// failing step leaves.

#include "dpm_bridge.h"
#include "dpm_host.h"
#include "dpm_nexthop.h"
#include "support/rows.h"

#include <cstring>

namespace {

using chassis::chip::Function;
using chassis::os::Fault;
using rig::Neighbour;
using Lines = std::vector<std::string>;

Lines told_so_far; // of chip calls and of what the dependant below is told

// A dependant: it writes down what it is told behind the chip calls made so far.
int dependant(const dpm_host_entry *host, std::uint32_t event) {
    auto &chip = chassis::card().chip;
    for (const std::string &call : chip.journal())
        told_so_far.push_back(call.substr(0, call.find(' ')));
    chip.clear_journal();
    told_so_far.push_back((event == DPM_HOST_ADDED ? "added " : "deleted ") +
                          rig::text_of(host->ip));
    return -1; // nobody looks
}

class Hosts : public rig::Shelf, public ::testing::WithParamInterface<const char *> {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        add_interface("vlanif4089", 4089);
        told_so_far.clear();
        dpm_host_notify_register(dependant);
        allow().blocks = 1;
        clear_journal();
    }
    Neighbour own() const { return {.ip = GetParam(), .port = 3}; }
    // The told_so_far since the last call of this.
    Lines told() {
        for (const std::string &call : chip_calls(master()))
            told_so_far.push_back(call.substr(0, call.find(' ')));
        clear_journal();
        return std::exchange(told_so_far, {});
    }
    dpm_host_info info(const Neighbour &neighbour = {}) {
        return rig::info_of(master(), neighbour);
    }
    int report(const dpm_host_info &info) {
        const int result = dpm_api_host_pro(&info, DPM_OPER_ADD);
        settle();
        return result;
    }
};
INSTANTIATE_TEST_SUITE_P(Families, Hosts, ::testing::Values("10.1.1.2", "2001:db8::2"));

class HostPorts : public Hosts {};
INSTANTIATE_TEST_SUITE_P(Ipv4, HostPorts, ::testing::Values("10.1.1.2"));

class FullTable : public rig::LoneShelf {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        keep_log(false);
    }
    void fill(unsigned ipv4, unsigned ipv6) {
        const auto text = [](unsigned i) {
            return std::to_string(i >> 8) + "." + std::to_string(i & 255);
        };
        for (unsigned i = 0; i < ipv4; ++i)
            learn_host({.ip = "10.1." + text(i)});
        for (unsigned i = 0; i < ipv6; ++i)
            learn_host({.ip = "2001:db8::0.1." + text(i)});
        ASSERT_EQ(hosts(master()).size(), ipv4 + ipv6);
    }
};

} // namespace

TEST_P(Hosts, DependantsHearOfANewHostBehindTheChipAndOfADeleteBeforeIt) {
    learn_host(own());
    EXPECT_EQ(logged(master(), "::host_entry vrf 0 port_type 0 port 3/0x3 svlan 100 ip " +
                                   own().ip + " mac 2.0.0.0.1.2 sdk_index "),
              1u);
    EXPECT_EQ(told(), (Lines{"add_ip_nexthop", "add_ip_entry", "added " + own().ip}));
    EXPECT_EQ(host_texts(standby()),
              Lines{own().ip + " 02:00:00:00:01:02 vlanif100 vlan 100 port 3"});
    const dpm_host_entry host = hosts(master()).at(0);
    EXPECT_EQ(host.ip.prefix_len, dpm::host_bits(host.ip.family));
    EXPECT_EQ(master().stack.probes().size(), host.ip.family == DPM_FAMILY_IPV6 ? 1u : 0u)
        << "the link-local neighbour is asked for";
    forget_host(own());
    EXPECT_EQ(told(), (Lines{"deleted " + own().ip, "del_ip_entry", "del_ip_nexthop"}));
    EXPECT_TRUE(hosts(standby()).empty());
    forget_host(own());
    EXPECT_EQ(told(), Lines{}) << "an unknown host";
}

TEST_P(Hosts, ReaddingTheSameHostChangesNothingAndEndsItsProbing) {
    learn_host(own());
    told();
    const dpm_prefix ip = rig::prefix_of(own().ip);
    dpm_host_unreachable_add(0, 1, &ip, 5);
    auto same = info(own());
    same.supervlan = 77; // not compared
    EXPECT_EQ(report(same), 0);
    EXPECT_EQ(told(), Lines{});
    EXPECT_TRUE(unreachables(master()).empty());
}

namespace {

ROWS(HostRows, AReportThatDiffersDeletesTheOldHostFirst){
    {"neigh add {a}"},
    {"neigh add {a} lladdr {m2}",
     "notice {a} goes; entry- {a} n1; nexthop- n1; mirror nexthop- n1; mirror host- {a}; "
     "nexthop+ port 1 {m2} n2; mirror nexthop+ n2; entry+ {a} n2; mirror host+ {a}; "
     "6: probe {l2}; notice {a} came"},
    {"neigh add {a} lladdr {m2} cvlan 5",
     "notice {a} goes; entry- {a} n2; nexthop- n2; mirror nexthop- n2; mirror host- {a}; "
     "nexthop+ port 1 cvlan 5 {m2} n3; mirror nexthop+ n3; entry+ {a} n3; mirror host+ {a}; "
     "6: probe {l2}; notice {a} came"},
    {"neigh add {a} lladdr {m2} cvlan 5 port 4",
     "notice {a} goes; entry- {a} n3; nexthop- n3; mirror nexthop- n3; mirror host- {a}; "
     "nexthop+ port 4 cvlan 5 {m2} n4; mirror nexthop+ n4; entry+ {a} n4; mirror host+ {a}; "
     "6: probe {l2}; notice {a} came"},
};

} // namespace

TEST_P(Hosts, ARefusedEntryKeepsItsNextHopReference) {
    refuse(Function::add_ip_entry, 1, 3);
    learn_host(own());
    EXPECT_EQ(logged(master(), "::host_entry add driver failed!"), 1u);
    EXPECT_TRUE(hosts(master()).empty());
    EXPECT_EQ(nexthops(master()).at(0).cnt, 1u);
    learn_host(own());
    EXPECT_EQ(nexthops(standby()).at(0).cnt, 2u);
    allow().nexthop_leaks = 1;
}

TEST_P(Hosts, WithoutMemoryOrNextHopNothingIsKept) {
    fail(Fault::allocation, 3); // the request, the next hop, the host
    learn_host(own());
    EXPECT_EQ(told(), (Lines{"add_ip_nexthop", "add_ip_entry", "del_ip_entry", "del_ip_nexthop"}));
    refuse(Function::add_ip_nexthop, 1, -7);
    learn_host(own());
    EXPECT_EQ(logged(master(), "::host_entry add nexthop failed!"), 1u);
    EXPECT_TRUE(hosts(standby()).empty() && nexthops(standby()).empty());
}

TEST_P(Hosts, AHostWhoseDeleteStoppedHalfWayIsDeletedFromThereOn) {
    learn_host(own());
    refuse(Function::del_ip_entry);
    forget_host(own());
    EXPECT_EQ(logged(master(), "::host_entry del driver failed!"), 1u);
    check_laws();
    refuse(Function::del_ip_nexthop);
    forget_host(own());
    EXPECT_EQ(logged(master(), "::host_entry del nexthop failed!"), 1u);
    EXPECT_EQ(hosts(master()).size(), 1u);
    told();
    dpm_bridge_slot_up(3);
    settle();
    EXPECT_EQ(told(), Lines{"add_ip_nexthop"}) << "the entry is not in the chip";
    learn_host(own());
    EXPECT_EQ(told(), (Lines{"deleted " + own().ip, "del_ip_nexthop", "add_ip_nexthop",
                             "add_ip_entry", "added " + own().ip}))
        << "put back";
    refuse(Function::del_ip_nexthop);
    forget_host(own());
    told();
    forget_host(own());
    EXPECT_EQ(told(), (Lines{"deleted " + own().ip, "del_ip_nexthop"}));
    EXPECT_TRUE(hosts(standby()).empty());
    advance(60);
}

TEST_P(Hosts, OnTheStandbyReportsAreDropped) {
    const auto scope = as(standby());
    const dpm_host_info report = rig::info_of(standby(), own());
    EXPECT_EQ(dpm_api_host_pro(&report, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_api_host_pro(&report, DPM_OPER_DEL), 0);
    settle();
    EXPECT_EQ(logged(standby(), "::it is slave."), 2u);
    EXPECT_TRUE(hosts(standby()).empty());
}

TEST_P(Hosts, TheVrfIsThatOfTheVlansInterface) {
    set_vrf("vlanif100", 7);
    auto told_otherwise = info(own());
    told_otherwise.vrf = 3;
    report(told_otherwise);
    EXPECT_EQ(hosts(standby()).at(0).vrf, 7u);
}

TEST_P(Hosts, WithoutAnIfindexTheSuperVlanTellsTheInterface) {
    add_interface("vlanif200", 200, DPM_IF_SUPERVLAN);
    auto own_info = info(own());
    own_info.ifindex = 0;
    own_info.supervlan = 200;
    EXPECT_EQ(report(own_info), 0);
    EXPECT_STREQ(hosts(master()).at(0).ifname, "vlanif200");
    own_info.supervlan = 999;
    own_info.address[3] = 99;
    EXPECT_EQ(report(own_info), 0);
    EXPECT_EQ(logged(master(), "::ifindex is err!"), 1u);
    own_info.ifindex = master().suite.find("vlanif4089")->ifindex;
    EXPECT_EQ(report(own_info), 0);
    EXPECT_EQ(logged(master(), "::ifname vlanif4089"), 1u) << "a management VLAN";
    EXPECT_EQ(hosts(master()).size(), 1u);
    own_info.ifindex = 4711; // no interface: the name stays empty
    EXPECT_EQ(report(own_info), 0);
    const auto nameless = [](const dpm_host_entry &host) { return host.ifname[0] == '\0'; };
    const auto both = hosts(standby());
    EXPECT_EQ(std::count_if(both.begin(), both.end(), nameless), 1);
    EXPECT_EQ(both.size(), 2u);
}

TEST_P(HostPorts, ATrunkNeedsANumberAndAPortHasItsPhysicalOne) {
    struct Case {
        std::uint32_t type, logical, physical;
        std::uint32_t port; // of the chip's next hop
        bool refused = false;
    };
    const Case cases[] = {
        {0, 9, 3, 3},
        {DPM_PORT_PHYSICAL, 9, 4, 4},
        {0, 0, 0, 0},
        {DPM_PORT_LOGICAL, 5, 3, 5},
        {DPM_PORT_LOGICAL, 0, 3, 5, true},
        {3, 1, 1, 5, true},
        {~0u, 1, 1, 5, true},
    };
    for (const Case &port : cases) {
        auto own_info = info();
        own_info.port_type = port.type;
        own_info.log_port_id = port.logical;
        own_info.phy_port_id = port.physical;
        clear_journal();
        EXPECT_EQ(report(own_info), 0) << "accepted as a request";
        ASSERT_EQ(master().chip.nexthops.size(), 1u) << "a refused report leaves the old one";
        const auto &nexthop = master().chip.nexthops.begin()->second;
        EXPECT_EQ(nexthop.port_id, port.port);
        EXPECT_EQ(nexthop.port_type, port.port == 5 ? DPM_PORT_LOGICAL : DPM_PORT_PHYSICAL);
        EXPECT_EQ(logged(master(), "::host_info paramter is err! port_type "), port.refused);
    }
}

TEST_P(HostPorts, ALinkLocalHostHasANextHopAndNoEntryInTheChip) {
    const Neighbour linklocal{.ip = "fe80::7", .port = 3};
    learn_host(linklocal);
    EXPECT_EQ(told(), (Lines{"add_ip_nexthop", "added fe80::7"}));
    EXPECT_TRUE(master().stack.probes().empty());
    EXPECT_EQ(hosts(standby()).size(), 1u);
    forget_host(linklocal);
    EXPECT_EQ(told(), (Lines{"deleted fe80::7", "del_ip_nexthop"}));
}

TEST_P(HostPorts, DependantsHearInTheOrderOfTheirRegistration) {
    dpm_host_notify_register(nullptr);
    EXPECT_EQ(logged(master(), "dpm_host_notify_register"), 1u);
    fail(Fault::allocation);
    dpm_host_notify_register(dependant); // silent without memory
    dpm_host_notify_register([](const dpm_host_entry *, std::uint32_t) {
        told_so_far.push_back("second");
        return 0;
    });
    allow().blocks = 2;
    learn_host({.ip = "10.1.1.2"});
    EXPECT_EQ(told(), (Lines{"add_ip_nexthop", "add_ip_entry", "added 10.1.1.2", "second"}));
    dpm_host_notify(nullptr, DPM_HOST_ADDED);
    EXPECT_EQ(logged(master(), "::input parameter is null,err!"), 1u);
    rig::expect_all(-1, {dpm_host_entry_add(nullptr), dpm_host_entry_del(nullptr),
                         dpm_host_add_msg(nullptr), dpm_host_del_msg(nullptr)});
}

TEST_P(HostPorts, TheTablesAreShownInTheirOwnForm) {
    learn_host({.ip = "10.1.1.2", .port = 3});
    learn_host({.ip = "2001:db8::2", .port = 3});
    testing::internal::CaptureStdout();
    dpm_ipv4_host_show();
    dpm_ipv6_host_show();
    const std::string shown = testing::internal::GetCapturedStdout();
    const std::string head =
        "\n\r host entry vrf 0 port type 0 port 3/0x3 svlan 100                ip ";
    EXPECT_EQ(shown.find(head + "a.1.1.2 mac 2.0.0.0.1.2 sdk_index "), 0u) << shown;
    EXPECT_NE(shown.find(head + "20.1.d.b8.0.0.0.0.0.0.0.0.0.0.0.2 mac 2.0.0.0.1.2 "), shown.npos);
    EXPECT_TRUE(shown.ends_with(" ifname vlanif100\n\r"));
}

TEST_F(FullTable, TakesItsLastIpv4HostAndKeepsThoseThatAreThere) {
    fill(18431, 0);
    const Neighbour last{.ip = "10.2.0.1"}, beyond{.ip = "10.2.0.2"};
    learn_host(last);
    EXPECT_EQ(hosts(master()).size(), 18432u);
    clear_journal();
    keep_log(true);
    learn_host(beyond);
    learn_host({.ip = "2001:db8::1"});
    EXPECT_EQ(logged(master(), "::host entry is full!!!"), 2u);
    EXPECT_EQ(chip_calls(master()).size(), 0u);
    Neighbour moved = last;
    moved.mac = "02:00:00:00:09:09"; // a re-add does not count itself
    learn_host(moved);
    EXPECT_EQ(host(master(), last.ip)->mac[5], 9u);
    forget_host(last);
    learn_host(beyond);
    EXPECT_EQ(hosts(master()).size(), 18432u);
}

TEST_F(FullTable, AnIpv6HostCountsTwice) {
    fill(0, 9216);
    learn_host({.ip = "10.1.1.2"});
    learn_host({.ip = "2001:db8::1"});
    EXPECT_EQ(hosts(master()).size(), 9216u);
    Neighbour moved{.ip = "2001:db8::0.1.0.0", .mac = "02:00:00:00:09:09"};
    learn_host(moved);
    EXPECT_EQ(host(master(), moved.ip)->mac[5], 9u);
    forget_host(moved);
    learn_host({.ip = "10.1.1.2"});
    learn_host({.ip = "2001:db8::1"}); // one place is left, and an IPv6 host may take it
    EXPECT_EQ(hosts(master()).size(), 9217u);
    moved.ip = "2001:db8::1"; // and it gives back both when it is re-added
    learn_host(moved);
    EXPECT_EQ(host(master(), moved.ip)->mac[5], 9u);
}
