// Interfaces: what the chip is asked for in an interface's life, addresses and their ARP rule,
// super-VLANs, and the lookups that other tables rely on.

#include "dpm_events.h"
#include "dpm_if.h"
#include "dpm_msg.h"
#include "support/shelf.h"

#include <cstring>

namespace {

using chassis::chip::Function;
using Lines = std::vector<std::string>;

class Interfaces : public rig::LoneShelf {
protected:
    void SetUp() override {
        EXPECT_EQ(add_interface("vlanif100", 100), 0);
        clear_journal();
        EXPECT_EQ(add_interface("vlanif200", 200, DPM_IF_SUPERVLAN), 0);
    }
    std::uint32_t ifindex(const std::string &name) { return master().suite.find(name)->ifindex; }
    // The chip's journal without slots and results.
    Lines calls() {
        Lines calls;
        for (const std::string &call : chip_calls(master()))
            calls.push_back(call.substr(0, call.find(" slots")));
        clear_journal();
        return calls;
    }
    const dpm_if_entry &entry(const std::string &name) {
        return *dpm_if_find_by_ifname(name.c_str());
    }
};

} // namespace

TEST_F(Interfaces, ANewOneStandsFirstWithItsDefaultsAndAnL3InterfaceInTheChip) {
    EXPECT_EQ(add_interface("vlanif4090", 4090), 0);
    EXPECT_EQ(interfaces(master())[0].if_id, 4090u) << "newest first";
    const dpm_if_entry &own = entry("vlanif100");
    EXPECT_EQ(own.if_index, ifindex("vlanif100"));
    EXPECT_EQ(own.status, 1u);
    EXPECT_EQ(own.mtu, 1500u);
    EXPECT_EQ(own.bandwidth, 1000000000u);
    EXPECT_EQ(own.metric, 1u);
    EXPECT_EQ(own.flags, 0x1003u);
    EXPECT_EQ(own.mac[5], 9u) << "the device's MAC";
    EXPECT_EQ(own.l3_intf_id, master().chip.interfaces.at(100).id);
    EXPECT_EQ(own.l3_programmed, 1u);
    EXPECT_TRUE(master().chip.interfaces.contains(4090));
}

TEST_F(Interfaces, ManagementVlansAndOtherTypesStayOutOfTheChip) {
    for (const char *name : {"vlanif4089", "vlanif4091", "vlanif4092", "vlanif4093", "vlanif40891"})
        EXPECT_EQ(add_interface(name, 4089), 0);
    EXPECT_EQ(add_address("vlanif4089", "10.9.0.1/24"), 0);
    EXPECT_EQ(add_address("vlanif200", "10.8.0.1/24"), 0);
    EXPECT_EQ(calls(), Lines{});
    EXPECT_EQ(del_interface("vlanif4089"), 0);
    EXPECT_EQ(del_interface("vlanif200"), 0);
    for (const std::string &call : calls())
        EXPECT_TRUE(call.starts_with("del_ip_entry ")) << call;
    EXPECT_EQ(interfaces(master()).size(), 5u);
}

TEST_F(Interfaces, ARepeatedAddChangesNothingAndAnUnknownDeleteIsTold) {
    EXPECT_EQ(dpm_api_set_if_proc("vlanif100", DPM_IF_SUPERVLAN, 4711, 300, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_api_set_if_proc("vlanif7", 0, 4711, 7, DPM_OPER_DEL), 0);
    settle();
    ASSERT_EQ(interfaces(master()).size(), 2u);
    EXPECT_EQ(entry("vlanif100").if_id, 100u);
    EXPECT_EQ(logged(master(), "::if_index 4711, find same if_entry!"), 1u);
    EXPECT_EQ(logged(master(), "::if_index 4711, can not find same if_entry!"), 1u);
}

TEST_F(Interfaces, ALongNameIsCutAndEndsWithinItsField) {
    const std::string longest(200, 'x');
    EXPECT_EQ(dpm_api_set_if_proc(longest.c_str(), 1, 55, 5, DPM_OPER_ADD), 0);
    settle();
    EXPECT_EQ(std::strlen(interfaces(master())[0].ifname), 63u);
    dpm_if_msg body{};
    std::memset(body.ifname, 'y', sizeof body.ifname); // another program posts by number
    EXPECT_EQ(dpm_if_add(&body), 0);
    EXPECT_EQ(dpm_if_add(&body), 0) << "the same name";
    ASSERT_EQ(interfaces(master()).size(), 4u);
    EXPECT_EQ(std::strlen(interfaces(master())[0].ifname), 63u);
    EXPECT_EQ(dpm_if_del(&body), 0);
    EXPECT_EQ(interfaces(master()).size(), 3u);
}

TEST_F(Interfaces, DeletingOneTakesEverythingOfItOutOfTheChip) {
    add_address("vlanif100", "10.1.1.1/24");
    add_address("vlanif100", "2001:db8::1/64");
    calls();
    EXPECT_EQ(del_interface("vlanif100"), 0);
    EXPECT_EQ(calls(), (Lines{"del_ip_entry vrf 0 10.1.1.1/24 nexthop 2",
                              "del_ip_entry vrf 0 10.1.1.1/32 nexthop 2",
                              "del_ip_entry vrf 0 2001:db8::1/64 nexthop 2",
                              "del_ip_entry vrf 0 2001:db8::1/128 nexthop 2",
                              "delete_l3_intf vlan 100 mac 02:00:00:00:00:09",
                              "set_arp_to_cpu vlan 100 off"}));
    EXPECT_EQ(interfaces(master()).size(), 1u);
}

TEST_F(Interfaces, TheArpRuleComesWithTheFirstIpv4AddressAndGoesWithTheLast) {
    calls();
    add_address("vlanif100", "2001:db8::1/64");
    EXPECT_EQ(calls(), Lines{});
    add_address("vlanif100", "10.1.1.1/24");
    EXPECT_EQ(calls(), Lines{"set_arp_to_cpu vlan 100 on"});
    add_address("vlanif100", "10.1.2.1/24");
    add_address("vlanif100", "10.1.1.1/24"); // a conflict
    EXPECT_EQ(logged(master(), "::ip conflict!"), 1u);
    del_address("vlanif100", "10.1.1.1/24");
    EXPECT_EQ(calls(), Lines{});
    del_address("vlanif100", "10.1.2.1/24");
    EXPECT_EQ(calls(), Lines{"set_arp_to_cpu vlan 100 off"})
        << "address entries are the platform's";
    del_address("vlanif100", "10.1.2.1/24");
    EXPECT_EQ(logged(master(), "::can not find ip_addr!"), 1u);
    del_address("vlanif100", "2001:db8::1/64");
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(Interfaces, LinkLocalAndForeignAddressesAreNotKept) {
    add_address("vlanif100", "fe80::1/64");
    del_address("vlanif100", "fe80::1/64");
    EXPECT_EQ(logged(master(), "dpm_if_add_ip"), 0u) << "refused without a line";
    const std::uint8_t ip[16] = {10, 1, 1, 1};
    EXPECT_EQ(dpm_api_set_if_ip_proc(5, ifindex("vlanif100"), 1, ip, 24, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_api_set_if_ip_proc(0, 4711, 1, ip, 24, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_api_set_if_ip_proc(0, 4711, 1, ip, 24, DPM_OPER_DEL), 0);
    settle();
    EXPECT_EQ(logged(master(), "can not find pt_if, or vrf_id unequal!"), 3u);
    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname("vlanif100"), 1);
    EXPECT_TRUE(list_empty(&entry("vlanif100").ipv4_list));
}

TEST_F(Interfaces, TheChipsRefusalsDoNotChangeWhatIsKept) {
    for (const auto request :
         {Function::add_l3_intf, Function::set_arp_to_cpu, Function::interface_vrf_set})
        refuse(request);
    add_interface("vlanif300", 300);
    add_address("vlanif300", "10.1.1.1/24");
    set_vrf("vlanif300", 3);
    EXPECT_EQ(entry("vlanif300").l3_programmed, 1u);
    EXPECT_EQ(entry("vlanif300").arp_programmed, 1u);
    EXPECT_EQ(entry("vlanif300").vrf, 3u);
    refuse(Function::delete_l3_intf);
    del_interface("vlanif300");
    EXPECT_EQ(interfaces(master()).size(), 2u);
    add_interface("vlanif300", 300); // what stayed in the chip takes no harm
}

TEST_F(Interfaces, AVrfIsSetInTheChipForVlanInterfacesAndStoredForAll) {
    calls();
    set_vrf("vlanif100", 0x10007); // its low 16 bits
    set_vrf("vlanif100", 0x10007);
    set_vrf("vlanif200", 8);
    EXPECT_EQ(calls(), Lines{"interface_vrf_set vlan 100 vrf 7"});
    EXPECT_EQ(dpm_api_get_vrf_by_vlan(0x10064), 7u);
    EXPECT_EQ(dpm_if_get_vrf(ifindex("vlanif200")), 8u);
    EXPECT_EQ(dpm_api_get_vrf_by_vlan(200), 0u) << "no VLAN interface";
    EXPECT_EQ(dpm_api_set_if_vrf_proc(4711, 1), 0);
    settle();
    EXPECT_EQ(logged(master(), "::if_index 4711, can not find same if_entry"), 2u)
        << "for the VLAN and for the interface";
}

TEST_F(Interfaces, ThePlatformIsToldBeforeARequestIsPosted) {
    add_address("vlanif100", "10.1.1.1/24");
    set_vrf("vlanif200", 4);
    std::vector<std::string> notices;
    for (const auto &notice : master().suite.hal_notices())
        notices.push_back(notice.text);
    EXPECT_EQ(notices, (Lines{"vlan 100 oper 1", "vlan 100 address 10.1.1.1/24 oper 1",
                              "vlan 200 vrf 4 oper 1"}));
}

TEST_F(Interfaces, BadRequestsAreRefusedAndPostNothing) {
    const std::uint8_t ip[16] = {10, 1, 1, 1};
    clear_journal();
    const auto set_ip = [&ip](std::uint8_t family, std::uint16_t length, std::uint32_t oper = 1) {
        return dpm_api_set_if_ip_proc(0, 1, family, ip, length, oper);
    };
    rig::expect_all(-1, {dpm_api_set_if_proc(nullptr, 0, 1, 1, DPM_OPER_ADD),
                         dpm_api_set_if_proc("vlanif1", 0, 1, 1, 3), set_ip(1, 24, 0),
                         dpm_api_set_if_ip_proc(0, 1, 1, nullptr, 24, 1), set_ip(0, 8),
                         set_ip(3, 8), set_ip(1, 33), set_ip(2, 129),
                         // 90 and 107 among the ports
                         master().hal.trunk_member(0, 0, 3, 1),
                         master().hal.trunk_member(0, 17, 3, 1)});
    EXPECT_EQ(logged(master(), "::unkown oper "), 2u);
    EXPECT_EQ(logged(master(), "] trunkindex 107 err."), 1u);
    EXPECT_EQ(master().os.queued(), 0u);
    EXPECT_EQ(master().os.live_blocks(), 4u) << "the interfaces, the host table's dependants";
}

TEST_F(Interfaces, ATrunkMemberChangeReachesTheWorkerWithItsAction) {
    EXPECT_EQ(master().hal.trunk_member(2, 1, 3, 9), 0);
    settle();
    EXPECT_EQ(logged(master(), "] type 2 trunkid 1 port 3 oper 9"), 1u);
}

// A deliberate hole of this call: its block goes with the message that nobody handles.
TEST_F(Interfaces, ASubVlanRequestWithAnUnknownOperationIsPostedWithoutAType) {
    EXPECT_EQ(dpm_api_super_sub_proc(200, 201, 3), 0);
    EXPECT_EQ(master().os.queued(), 1u);
    settle();
    EXPECT_EQ(logged(master(), "::oper 3,is err!"), 1u);
    allow().blocks = 1;
}

TEST_F(Interfaces, SubVlansLiveInTheirSuperVlansList) {
    std::uint32_t ids[8] = {}, count = 99;
    add_interface("vlanif300", 300);
    add_sub_vlan(200, 300); // has an interface of its own
    add_sub_vlan(300, 301); // under no super-VLAN
    add_sub_vlan(400, 401);
    add_sub_vlan(200, 4095);
    EXPECT_EQ(logged(master(), "::subvlan4095 is err!"), 1u);
    EXPECT_EQ(logged(master(), "::can not set this vlan to subvlan!"), 1u);
    EXPECT_EQ(logged(master(), "::can not find or type is err!"), 2u);
    for (const unsigned vlan : {201u, 202u, 203u, 202u})
        add_sub_vlan(200, vlan);
    EXPECT_EQ(logged(master(), "::exist subvlan202!"), 1u);
    EXPECT_EQ(dpm_api_get_sub_by_super(200, ids, &count), 0);
    EXPECT_EQ(std::vector<std::uint32_t>(ids, ids + count),
              (std::vector<std::uint32_t>{203, 202, 201}));
    del_sub_vlan(200, 202);
    del_sub_vlan(200, 202);
    EXPECT_EQ(logged(master(), "::can not exist subvlan!"), 1u);
    EXPECT_EQ(dpm_api_get_sub_by_super(200, ids, &count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(dpm_api_get_sub_by_super(300, ids, &count), -1);
    EXPECT_EQ(dpm_api_get_sub_by_super(200, nullptr, &count), -1);
    EXPECT_EQ(dpm_api_is_supervlan_by_vlanid(200), 0);
    EXPECT_EQ(dpm_api_is_supervlan_by_vlanid(300), -1);
    EXPECT_EQ(dpm_api_is_supervlan_by_vlanid(999), -2);
    del_interface("vlanif200"); // with what is left in it
}

TEST_F(Interfaces, OspfOfASubVlanIsTrappedWhileItRunsOnTheSuperVlansNetwork) {
    add_address("vlanif200", "10.8.0.1/24");
    add_sub_vlan(200, 201);
    EXPECT_TRUE(master().chip.ospf_rules.empty());
    const dpm_prefix network = rig::prefix_of("10.8.0.0/16");
    std::uint32_t word;
    std::memcpy(&word, network.address, sizeof word);
    master().suite.run_ospf_on(word, 16);
    add_address("vlanif200", "10.8.1.1/24"); // a second that qualifies asks once
    calls();
    add_sub_vlan(200, 202);
    EXPECT_EQ(calls(), Lines{"set_ospf_to_cpu_ex vlan 202 on"});
    del_sub_vlan(200, 202);
    EXPECT_EQ(calls(), Lines{"set_ospf_to_cpu_ex vlan 202 off"});
}

TEST_F(Interfaces, AreFoundByNameIndexVlanAndNetwork) {
    add_interface("vlanif10", 10);
    set_vrf("vlanif10", 5);
    add_address("vlanif100", "10.1.2.1/20");
    add_address("vlanif10", "2001:db8::1/60");
    char name[DPM_IFNAME_BYTES] = "kept";
    EXPECT_EQ(dpm_if_get_ifnamebyindex(4711, name), -1);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(dpm_if_get_ifnamebyindex(ifindex("vlanif10"), name), 0);
    EXPECT_STREQ(name, "vlanif10");
    EXPECT_EQ(dpm_if_find_by_ifname("vlanif1"), nullptr) << "the whole name";
    EXPECT_EQ(dpm_if_find_by_ifname(nullptr), nullptr);
    EXPECT_EQ(dpm_if_get_ifindexbyname("vlanif1"), ~0u);
    EXPECT_EQ(dpm_if_get_vlanid(ifindex("vlanif200")), 200u);
    EXPECT_EQ(dpm_if_get_vlanid(4711), 0u);
    EXPECT_EQ(dpm_ifindex_get_by_vlan(100), ifindex("vlanif100"));
    EXPECT_EQ(dpm_ifindex_get_by_vlan(200), ifindex("vlanif200"));
    EXPECT_EQ(dpm_ifindex_get_by_vlan(999), 0u);

    const auto found = [](unsigned vrf, const char *ip) {
        const dpm_prefix prefix = rig::prefix_of(ip);
        return dpm_if_index_by_network_ip(vrf, &prefix);
    };
    EXPECT_EQ(found(0, "10.1.15.255"), ifindex("vlanif100"));
    EXPECT_EQ(found(0, "10.1.16.0"), 0u);
    EXPECT_EQ(found(5, "10.1.2.1"), 0u) << "another VRF";
    EXPECT_EQ(found(5, "2001:db8:0:f::7"), ifindex("vlanif10"));
    EXPECT_EQ(found(5, "2001:db8:0:10::7"), 0u);
    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname("vlanif10"), 0);
    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname("vlanif999"), 1);
    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname(nullptr), -1);

    testing::internal::CaptureStdout();
    dpm_if_show();
    const std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_NE(shown.find("\n\r ifname vlanif10 vrf 5 if_id 10 if_index"), shown.npos);
    EXPECT_NE(shown.find("\n\r ipv6 address 2001:db8::1/60 "), shown.npos);
}

TEST_F(Interfaces, WithoutMemoryNothingIsChanged) {
    const auto starve = [this](auto request) { // the request's block is there, the record's is not
        fail(chassis::os::Fault::allocation, 2);
        EXPECT_EQ(request(), 0);
    };
    clear_journal();
    starve([this] { return add_interface("vlanif300", 300); });
    EXPECT_EQ(interfaces(master()).size(), 2u);
    EXPECT_TRUE(chip_calls(master()).empty());
    starve([this] { return add_sub_vlan(200, 201); });
    starve([this] { return add_address("vlanif200", "10.8.0.1/24"); });
    EXPECT_TRUE(list_empty(&entry("vlanif200").sub_list));
    EXPECT_TRUE(list_empty(&entry("vlanif200").ipv4_list));
}
