// The driver layer: what each wrapper passes on, narrowed, and with which slot bits; and what the
// chip's answers leave in the log.

#include "dpm.h"
#include "dpm_driver.h"
#include "platform/dal.h"
#include "support/shelf.h"

#include <cstring>
#include <functional>

namespace {

namespace chip = chassis::chip;
using Lines = std::vector<std::string>;

// The requests below mean nothing to the chip; only how they arrive counts.
class Driver : public ::testing::Test {
protected:
    Driver() {
        card.os.log_to([this](const chassis::os::LogLine &line) { log.push_back(line.text); });
        EXPECT_EQ(card.start(), 0);
        card.chip.record(true);
    }
    Lines logged_by(const std::function<int()> &deed) {
        log.clear();
        EXPECT_EQ(deed(), 0);
        return log;
    }

    chassis::Card card{{.slot = 9, .mode = chassis::os::Mode::pumped, .mac = {2, 0, 0, 0, 0, 9}}};
    Lines log;
    const std::uint8_t mac[6] = {2, 0, 0, 0, 1, 2};
    const std::uint8_t ip[16] = {10, 1, 1, 2};
    const std::uint8_t other_ip[4] = {172, 16, 0, 1};
    const char record[64] = {};
    std::uint32_t out[3] = {31, 32, 33};
    std::int32_t group = 40;
};

} // namespace

TEST(Slots, HaveABitEachAndAnythingElseAllOfThem) {
    EXPECT_EQ(dpm_slot_obj_bit_get(1), 2u);
    EXPECT_EQ(dpm_slot_obj_bit_get(20), 0x100000u);
    for (const std::uint32_t none : {0u, 21u, 32u, ~0u})
        EXPECT_EQ(dpm_slot_obj_bit_get(none), ~0u);
}

// One row a wrapper: its call, and what the chip's journal says of it as far as the outputs.
#define ROW(call, line, restricted)                                                                \
    {                                                                                              \
        [&] { (void)dpm_driver_##call; }, line, restricted                                         \
    }
#define WRAPPER(call, line) ROW(call, line, true)
#define UNSLOTTED(call, line) ROW(call, line, false)

TEST_F(Driver, WrappersNarrowTheirArgumentsRestrictSlotsWhileThePeerIsUpAndAreRefusedByName) {
    const std::uint32_t wide = 0xABC10064; // 100 in 16 bits and in 8
    const auto bits = 8u;
    std::uint8_t vlans[512] = {};
    vlans[0] = 0x81;   // VLANs 1 and 8
    vlans[511] = 0xE0; // VLAN 4094, and two positions that are no VLAN
    const struct {
        std::function<void()> call;
        const char *line;
        bool restricted;
    } wrappers[] = {
        // clang-format off
        UNSLOTTED(add_l3_intf(mac, wide, out), "add_l3_intf vlan 100 mac 02:"),
        UNSLOTTED(delete_l3_intf(mac, wide), "delete_l3_intf vlan 100 mac 02:"),
        UNSLOTTED(add_intf_ip(0xFFFF, 1, ip, 24), "add_ip_entry vrf -1 10.1.1.2/24 nexthop 2"),
        UNSLOTTED(delete_intf_ip(wide, 1, ip, 24), "del_ip_entry vrf 100 10.1.1.2/24 nexthop 2"),
        WRAPPER(interface_vrf_set(0xFFFF, wide, bits), "interface_vrf_set vlan -1 vrf 100"),
        WRAPPER(interface_mpls_enable(wide, 0x101, bits),
                "interface_mpls_enable vlan 100 on"),
        WRAPPER(add_nexthop(1, wide, mac, wide, 0x10007, out, bits),
                "add_ip_nexthop trunk 2881552484 svlan 100 cvlan 7 mac 02:00:00:00:01:02"),
        WRAPPER(del_nexthop(wide, bits), "del_ip_nexthop index 2881552484"),
        WRAPPER(route_add(70000, 1, ip, 32, 99, bits),
                "add_ip_entry vrf 70000 10.1.1.2/32 nexthop 99"),
        WRAPPER(route_del(70000, 1, ip, 32, 99, bits),
                "del_ip_entry vrf 70000 10.1.1.2/32 nexthop 99"),
        WRAPPER(default_route_set(wide, 2, 1, bits),
                "default_route_set vrf 100 family 2 to-cpu queue 10 rate 64"),
        WRAPPER(default_route_set(wide, 1, 2, bits),
                "default_route_set vrf 100 family 1 drop queue 10 rate 64"),
        WRAPPER(set_ecmp_hash_ctl(6, bits), "set_ecmp_hash_ctl mode 6"),
        WRAPPER(ecmp_creat(1, &group, bits), "add_ecmp_nexthop members group"),
        WRAPPER(ecmp_add(1, 40, 17, bits), "update_ecmp_nexthop group 40 add members 17"),
        WRAPPER(ecmp_del(1, 40, 17, bits), "update_ecmp_nexthop group 40 remove members 17"),
        WRAPPER(ecmp_destory(1, 40, bits), "del_ecmp_nexthop group 40"),
        UNSLOTTED(add_arp_rule(mac, wide), "set_arp_to_cpu vlan 100 on"),
        UNSLOTTED(delete_arp_rule(mac, wide), "set_arp_to_cpu vlan 100 off"),
        UNSLOTTED(add_ospf_rule(wide), "set_ospf_to_cpu_ex vlan 2881552484 on"),
        UNSLOTTED(del_ospf_rule(7), "set_ospf_to_cpu_ex vlan 7 off"),
        UNSLOTTED(set_ndp_rule(wide, 1), "set_ipv6_ns_rule vlan 100 on match 0x3333/0xffff"),
        UNSLOTTED(set_ndp_rule(wide, 0), "set_ipv6_ns_rule vlan 100 off match 0x3333/0xffff"),
        WRAPPER(mpls_ftn_add(record, out, out + 1, bits), "mpls_ftn_add nhid"),
        WRAPPER(mpls_ftn_del(record, bits), "mpls_ftn_del slots"),
        WRAPPER(mpls_ilm_add(record, out, out + 1, bits), "mpls_ilm_add nhid"),
        WRAPPER(mpls_ilm_del(record, bits), "mpls_ilm_del slots"),
        WRAPPER(vpws_entry_add(record, record, out, out + 1, out + 2, 5, bits),
                "vpws_entry_add ac"),
        WRAPPER(vpws_entry_del(record, 5, bits), "vpws_entry_del slots"),
        WRAPPER(vpws_entry_update(record, record, out, out + 1, 5, bits),
                "vpws_entry_update pw"),
        WRAPPER(vpws_entry_del_vlanlist(record, 5, bits, vlans),
                "vpws_entry_del_test vlans 3"),
        WRAPPER(pw_group_switch(wide, 1, bits), "pw_group_switch group 2881552484 protect 1"),
        WRAPPER(vpls_add(wide, out, bits), "vpls_add vpls 100 fid"),
        WRAPPER(vpls_del(wide, bits), "vpls_del vpls 100"),
        WRAPPER(mpls_ac_entry_add(record, out, out + 1, bits), "vpls_ac_entry_add nhid"),
        WRAPPER(mpls_ac_entry_del(record, bits), "vpls_ac_entry_del slots"),
        WRAPPER(mpls_pw_entry_add(record, out, out + 1, bits), "vpls_pw_entry_add nhid"),
        WRAPPER(mpls_pw_entry_del(record, bits), "vpls_pw_entry_del slots"),
        WRAPPER(port_scl_key_type_set(wide, wide, 0x10007, 0x101, 0x103, bits),
                "port_scl_key_type_set type 2881552484 port 100 subport 7 direction 1 key 3"),
        WRAPPER(add_gre_tunnel(3, ip, other_ip, 0, 5, 1, bits),
                "add_gre_tunnel vrf 3 source 10.1.1.2 destination 172.16.0.1 key 4294967295 "
                "checksum 1"),
        WRAPPER(del_gre_tunnel(3, ip, other_ip, 7, 5, 1, bits),
                "del_gre_tunnel vrf 3 source 10.1.1.2 destination 172.16.0.1 key 5 checksum 1"),
        WRAPPER(add_gre_nexthop(2, 3, mac, 4, 5, 6, ip, other_ip, 0, 9, 0, out, bits),
                "add_gre_nexthop port 3 vid 4 ivid 5 mac 02:00:00:00:01:02 vrf 6 source "
                "10.1.1.2 destination 172.16.0.1 key 4294967295 checksum 0"),
        WRAPPER(update_gre_nexthop(2, 3, mac, 4, 5, 6, ip, other_ip, 1, 9, 0, out, bits),
                "update_gre_nexthop port 3 vid 4 ivid 5 mac 02:00:00:00:01:02 vrf 6 source "
                "10.1.1.2 destination 172.16.0.1 key 9 checksum 0"),
        WRAPPER(del_gre_nexthop(wide, bits), "del_gre_nexthop index 2881552484"),
        // clang-format on
    };
    for (const std::uint32_t up : {0u, 1u}) {
        g_dpm_global.slave_up = up;
        for (const auto &wrapper : wrappers) {
            card.chip.clear_journal();
            wrapper.call();
            const Lines journal = card.chip.journal();
            ASSERT_EQ(journal.size(), 1u) << wrapper.line;
            EXPECT_TRUE(journal[0].starts_with(wrapper.line)) << journal[0];
            const std::string slots = wrapper.restricted && up ? " slots 0x8 " : " slots 0x0 ";
            EXPECT_NE(journal[0].find(slots), std::string::npos) << journal[0];
            const auto function = chip::request_named(journal[0].substr(0, journal[0].find(' ')));
            ASSERT_TRUE(function) << journal[0];
            card.chip.refuse(*function, 1, -17);
            wrapper.call();
            EXPECT_TRUE(card.chip.journal().at(1).ends_with(" -> -17")) << wrapper.line;
        }
    }
}

TEST_F(Driver, TheChipsOwnCodeComesBackUnchanged) {
    card.chip.refuse(chip::Function::del_ip_nexthop, 1, -17);
    EXPECT_EQ(dpm_driver_del_nexthop(99, 0), -17);
    card.chip.refuse(chip::Function::mpls_ftn_del, 1, 5);
    EXPECT_EQ(dpm_driver_mpls_ftn_del(record, 0), 5);
}

TEST_F(Driver, AVlanListEndsAtItsFirst512Vlans) {
    const auto vlans_of = [this](unsigned first, unsigned count) {
        std::uint8_t bitmap[512] = {};
        for (unsigned position = first; position < first + count; ++position)
            bitmap[position / 8] |= std::uint8_t(1 << position % 8);
        card.chip.clear_journal();
        dpm_driver_vpws_entry_add_vlanlist(record, record, out, out + 1, out + 2, 5, 0, bitmap);
        const std::string line = card.chip.journal().at(0);
        return std::stoi(line.substr(line.find("vlans ") + 6));
    };
    EXPECT_EQ(vlans_of(0, 0), 0);
    EXPECT_EQ(vlans_of(0, 512), 512);
    EXPECT_EQ(vlans_of(0, 600), 512);
    EXPECT_EQ(vlans_of(4000, 96), 94) << "the last is 4094";
}

TEST_F(Driver, TunnelsAreTracedUnderTheNameOfTheirRequest) {
    const auto added = logged_by([this] {
        return dpm_driver_add_gre_nexthop(2, 3, mac, 4, 5, 6, ip, other_ip, 0, 9, 1, out, 0);
    });
    ASSERT_EQ(added.size(), 2u);
    EXPECT_TRUE(added[0].starts_with("dpm_driver_add_gre_nexthop ")) << added[0];
    EXPECT_TRUE(added[0].ends_with("::porttype 2 port_tgid 3 mac 2-0-0-0-1-2 vid 4 ivid 5"));
    EXPECT_TRUE(
        added[1].ends_with("::vrf_id 6 sip a.1.1.2 dip ac.10.0.1 keyenable 0 key 9 checksum 1"))
        << added[1];
}

// One row a callback: its name, the request's arguments, and what it logs behind its first line.
#define CALLBACK(name, arguments, ...)                                                             \
    {                                                                                              \
        "dpm_driver_" #name, [&](int result) { return dpm_driver_##name arguments; }, {            \
            __VA_ARGS__                                                                            \
        }                                                                                          \
    }

TEST_F(Driver, SlotsThatFailAreLoggedWithTheRequestAndOthersAreSilent) {
    const std::string mac_line = "\t mac 02-00-00-00-01-02 ";
    const std::uint32_t *const o = out;
    const std::uint16_t list[1] = {1};
    const struct {
        std::string name;
        std::function<int(int)> report;
        Lines details;
    } callbacks[] = {
        // clang-format off
        CALLBACK(add_ip_nexthop_result, (2, 3, o, 4, 5, mac, 16, result),
                 "\t port_type 2 port_tgid 3 vid 4 ivid 5", mac_line),
        CALLBACK(add_ip_nexthop_result, (2, 3, o, 4, 5, nullptr, 16, result),
                 "\t port_type 2 port_tgid 3 vid 4 ivid 5", "\t mac 00-00-00-00-00-00 "),
        CALLBACK(del_ip_nexthop_result, (2, 16, result)),
        CALLBACK(update_ip_nexthop_result, (2, 3, o, 4, 5, mac, 16, result),
                 "\t port_type 2 port_tgid 3 vid 4 ivid 5 ", mac_line),
        CALLBACK(add_ip_entry_result, (7, 1, ip, 24, 9, 16, result),
                 "\t vrf_id 7 ip_type ipv4 ", "\t ip a.1.1.2 mask_len 24 "),
        CALLBACK(del_ip_entry_result, (7, 2, ip, 64, 9, 16, result),
                 "\t vrf_id 7 ip_type ipv6 ", "\t ip a.1.1.2.0.0.0.0.0.0.0.0.0.0.0.0 mask_len 64 "),
        CALLBACK(del_ip_entry_result, (7, 3, ip, 64, 9, 16, result), "\t vrf_id 7 ip_type ipv6 "),
        CALLBACK(add_ecmp_nexthop_result, (&group, 0, 0, o, 16, result)),
        CALLBACK(del_ecmp_nexthop_result, (1, 16, result)),
        CALLBACK(update_ecmp_nexthop_result, (1, 0, 0, o, 16, result), "\t op_type create "),
        CALLBACK(update_ecmp_nexthop_result, (1, 1, 0, o, 16, result), "\t op_type add "),
        CALLBACK(update_ecmp_nexthop_result, (1, 2, 0, o, 16, result), "\t op_type remove "),
        CALLBACK(add_l3_intf_result, (mac, 100, o, 16, result), "\t vid 100 ifid 31 ", mac_line),
        CALLBACK(add_l3_intf_result, (mac, 100, nullptr, 16, result),
                 "\t vid 100 ifid 0 ", mac_line),
        CALLBACK(delete_l3_intf_result, (mac, 100, 16, result),
                 "\t vid 100 mac 02-00-00-00-01-02 "),
        CALLBACK(interface_vrf_set_result, (100, 7, 16, result), "\t vrf_id 7 vid 100 "),
        CALLBACK(interface_ipmc_enable_result, (100, 1, 1, 16, result),
                 "\t vid 100 type 1 enable 1 "),
        CALLBACK(default_route_set_result, (2, 7, 1, 10, 64, 16, result),
                 "\t vrf_id 7 ip_type 2 state 1 "),
        CALLBACK(mpls_ftn_add_result, (record, o, o + 1, 16, result), "\t nhid 31 tunnel_id 32 "),
        CALLBACK(mpls_ftn_del_result, (record, 16, result)),
        CALLBACK(mpls_ilm_add_result, (record, o, o + 1, 16, result), "\t nhid 31 tunnel_id 32 "),
        CALLBACK(mpls_ilm_del_result, (record, 16, result)),
        CALLBACK(vpls_add_result, (7, o, 16, result), "\t vpls_id 7 fid 31 "),
        CALLBACK(vpls_del_result, (7, 16, result)),
        CALLBACK(vpls_ac_entry_add_result, (record, o, o + 1, 16, result),
                 "\t nhid 31 logic_port 32 "),
        CALLBACK(vpls_ac_entry_del_result, (record, 16, result)),
        CALLBACK(vpls_pw_entry_add_result, (record, o, o + 1, 16, result),
                 "\t nhid 31 logic_port 32 "),
        CALLBACK(vpls_pw_entry_del_result, (record, 16, result)),
        CALLBACK(vpws_entry_add_result, (record, record, o, o + 1, o + 2, 5, 16, result),
                 "\t ac_nhid 31 pw_nhid 32 aps_id 33 "),
        CALLBACK(vpws_entry_del_result, (record, 5, 16, result)),
        CALLBACK(vpws_entry_add_result_test, (record, record, o, o + 1, o + 2, 5, list, 1, 16,
                 result),
                 "\t ac_nhid 31 pw_nhid 32 aps_id 33 "),
        CALLBACK(vpws_entry_del_result_test, (record, 5, list, 1, 16, result)),
        CALLBACK(vpws_entry_update_result, (record, record, o + 1, o + 2, 5, 16, result),
                 "\t pw_nhid 32 aps_id 33 "),
        CALLBACK(interface_mpls_enable_result, (100, 1, 16, result), "\t vid 100 enable enable "),
        CALLBACK(pw_group_switch_result, (7, 0, 16, result), "\t pw_id 7 protect_en disable "),
        CALLBACK(port_scl_key_type_set_result, (1, 2, 3, 4, 5, 16, result),
                 "\t port_type 1 port 2 subport 3 direction 4 key_type 5"),
        // clang-format on
    };
    for (const auto &callback : callbacks) {
        EXPECT_EQ(logged_by([&] { return callback.report(0); }), Lines{}) << callback.name;
        Lines expected{callback.name + " obj_bit 16 result -3 "};
        expected.insert(expected.end(), callback.details.begin(), callback.details.end());
        EXPECT_EQ(logged_by([&] { return callback.report(-3); }), expected);
        EXPECT_EQ(logged_by([&] { return callback.report(3); }).size(), expected.size());
    }
}

TEST_F(Driver, TheCallbacksWithAFormOfTheirOwnLogOneLine) {
    EXPECT_EQ(logged_by([] { return dpm_driver_set_ecmp_hash_ctl_result(6, 4, -1); }),
              Lines{"dpm_driver_set_ecmp_hash_ctl_result psc 6 obj_bit 4 result -1 "});
    const std::string end = "obj_bit 10 result -3",
                      tunnel = "vrf 3 sip a.1.1.2 dip ac.10.0.1 key 5 checksum 1 ",
                      nexthop = ":: porttype 2 port_tgid 3 mac 2-0-0-0-1-2 vid 4 ivid 5 " + tunnel +
                                "sdk_index 31 " + end;
    const struct {
        std::string name;
        std::function<int(int)> report;
        Lines rest;
    } callbacks[] = {
        // clang-format off
        CALLBACK(add_gre_tunnel_result, (3, ip, other_ip, 5, 1, 16, result), ":: " + tunnel + end),
        CALLBACK(del_gre_tunnel_result, (3, ip, other_ip, 5, 1, 16, result), ":: " + tunnel + end),
        CALLBACK(add_gre_nexthop_result, (2, 3, mac, 4, 5, 3, ip, other_ip, 5, 1, out, 16, result),
                 nexthop),
        CALLBACK(update_gre_nexthop_result, (2, 3, mac, 4, 5, 3, ip, other_ip, 5, 1, out, 16,
                 result), nexthop),
        CALLBACK(del_gre_nexthop_result, (31, 16, result), ":: sdk_index 31 " + end),
        // clang-format on
    };
    for (const auto &callback : callbacks) {
        EXPECT_EQ(logged_by([&] { return callback.report(0); }), Lines{}) << callback.name;
        const Lines lines = logged_by([&] { return callback.report(-3); });
        ASSERT_EQ(lines.size(), 1u) << callback.name;
        EXPECT_TRUE(lines[0].starts_with(callback.name + " ")) << lines[0];
        EXPECT_TRUE(lines[0].ends_with(callback.rest[0])) << lines[0];
    }
}

TEST_F(Driver, APortOfTheChipIsTheFirstOfTheInterfacesVlan) {
    EXPECT_EQ(card.suite.add_interface("vlanif100", DPM_IF_VLANIF, 100), 0);
    EXPECT_EQ(card.suite.add_interface("loopback0", DPM_IF_VLANIF, unsigned(-1)), 0);
    const std::uint32_t ifindex = card.suite.find("vlanif100")->ifindex;
    std::uint32_t port = 77;
    int vlan = 0;
    EXPECT_EQ(dpm_driver_ifindex_to_logical(4711, &port, &vlan), -1);
    EXPECT_EQ(dpm_driver_ifindex_to_logical(ifindex, &port, &vlan), -1) << "no member";
    EXPECT_EQ(port, 0u);
    card.suite.set_vlan_port(100, 12);
    EXPECT_EQ(dpm_driver_ifindex_to_logical(ifindex, &port, &vlan), 0);
    EXPECT_EQ(port, 12u);
    EXPECT_EQ(vlan, 100);
    EXPECT_EQ(dpm_driver_ifindex_to_logical(ifindex + 1, &port, &vlan), -1) << "no VLAN";
    card.pump();
}
