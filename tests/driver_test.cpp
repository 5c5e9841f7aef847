// The driver layer: what each wrapper passes on, narrowed, and with which slot bits; and what the
// chip's answers leave in the log.

#include "dpm.h"
#include "dpm_driver.h"
#include "platform/dal.h"
#include "support/shelf.h"

#include <cstring>
#include <functional>
#include <regex>

namespace {

namespace chip = chassis::chip;
using Lines = std::vector<std::string>;

bool has(const std::string &line, const std::string &part) {
    return line.find(part) != line.npos;
}

// The requests below mean nothing to the chip; only how they arrive counts.
class Driver : public ::testing::Test {
protected:
    Driver() {
        card.os.log_to([this](const chassis::os::LogLine &line) { log.push_back(line.text); });
        EXPECT_EQ(card.start(), 0);
        card.chip.watch([this](const std::string &line) { asked.push_back(line); });
    }
    // Without traces of requests, and lines of code.
    Lines logged_by(const std::function<void()> &deed) {
        log.clear();
        deed();
        Lines lines;
        for (const std::string &line : log)
            if (!has(line, "::") || has(line, "_result"))
                lines.push_back(std::regex_replace(line, std::regex(" [0-9]+::"), "::"));
        return lines;
    }
    // Of a slot that answers `code`.
    Lines expected_log(chip::Function function, const Lines &details, int code) {
        static constexpr const char *callbacks[] = {
#define CALLBACK(name, word, callback) #callback,
#define SILENT(...) nullptr,
            CHIP_FUNCTIONS(CALLBACK, SILENT)};
        const char *const callback = callbacks[unsigned(function)];
        if (callback == nullptr)
            return {};
        Lines lines{callback + std::string(" obj_bit 16 result {code} ")};
        lines.insert(lines.end(), details.begin(), details.end());
        if (!details.empty() && details[0][0] == '!')
            lines = {details[0].substr(1)};
        const std::pair<std::string, std::string> values[] = {{"{0}", std::to_string(out[0])},
                                                              {"{1}", std::to_string(out[1])},
                                                              {"{2}", std::to_string(out[2])},
                                                              {"{code}", std::to_string(code)}};
        for (std::string &line : lines)
            for (const auto &[name, value] : values)
                if (const std::size_t at = line.find(name); at != line.npos)
                    line.replace(at, name.size(), value);
        return lines;
    }

    chassis::Card card{{.slot = 9, .mode = chassis::os::Mode::pumped, .mac = {2, 0, 0, 0, 0, 9}}};
    Lines log, asked; // of the chip
    const std::uint8_t mac[6] = {2, 0, 0, 0, 1, 2};
    const std::uint8_t ip[16] = {10, 1, 1, 2};
    const std::uint8_t other_ip[4] = {172, 16, 0, 1};
    alignas(4) const char record[124] = {}; // as long as the longest that is looked into
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

// One row a request: the wrapper's call; what the chip says of it, as far as the outputs;
// and what the callback logs of a slot that fails, behind its first line or, when that begins with
// '!', in its place.  {0} to {2} are the outputs, {code} is the slot's answer.
#define ROW(slots, call, line, ...)                                                                \
    {                                                                                              \
        [&] { (void)dpm_driver_##call; }, slots, line, {                                           \
            __VA_ARGS__                                                                            \
        }                                                                                          \
    }
#define REQUEST(...) ROW(" slots 0x10 ", __VA_ARGS__)
#define UNSLOTTED(...) ROW(" slots 0x0 ", __VA_ARGS__)

TEST_F(Driver, RequestsArriveNarrowedAndSlotsThatFailAreLoggedWithThem) {
    const std::uint32_t wide = 0xABC10064, bits = 1 << 4; // 100 in 16 bits and in 8
    std::uint8_t vlans[512] = {}, all_vlans[512];
    std::fill_n(all_vlans, 512, std::uint8_t(0xFF));
    vlans[0] = 0x81;   // VLANs 1 and 8
    vlans[511] = 0xE0; // VLAN 4094, and two positions that are no VLAN
    const std::string vlan_mac = "vlan 100 mac 02:", mac_line = "\t mac 02-00-00-00-01-02 ",
                      ids = "\t nhid {0} tunnel_id {1} ", port = "\t nhid {0} logic_port {1} ",
                      tunnel = "vrf 3 source 10.1.1.2 destination 172.16.0.1 key ",
                      neighbour = " port 3 vid 4 ivid 5 mac 02:00:00:00:01:02 " + tunnel,
                      tunnel_log = ":: vrf 3 sip a.1.1.2 dip ac.10.0.1 key ",
                      neighbour_log = ":: porttype 2 port_tgid 3 mac 2-0-0-0-1-2 vid 4 ivid 5" +
                                      tunnel_log.substr(2),
                      vpws = "vc 0 peer 0.0.0.0 port 0 vlan 0 ", path = "nhid 0 tunnel 0 ",
                      ac = "port 0 vlan 0 ", pw = "vpls 0 peer 0.0.0.0 ",
                      end = "obj_bit 10 result {code}";
    const struct {
        std::function<void()> call;
        std::string slots_while_up, line;
        Lines details;
    } requests[] = {
        // clang-format off
        UNSLOTTED(add_l3_intf(mac, wide, out), "add_l3_intf " + vlan_mac,
                "\t vid 100 ifid {0} ", mac_line),
        UNSLOTTED(delete_l3_intf(mac, wide), "delete_l3_intf " + vlan_mac,
                "\t vid 100 mac 02-00-00-00-01-02 "),
        UNSLOTTED(add_intf_ip(0xFFFF, 1, ip, 24), "add_ip_entry vrf -1 10.1.1.2/24 nexthop 2",
                "\t vrf_id -1 ip_type ipv4 ", "\t ip a.1.1.2 mask_len 24 "),
        UNSLOTTED(delete_intf_ip(wide, 1, ip, 24), "del_ip_entry vrf 100 10.1.1.2/24 nexthop 2",
                "\t vrf_id 100 ip_type ipv4 ", "\t ip a.1.1.2 mask_len 24 "),
        REQUEST(interface_vrf_set(0xFFFF, wide, bits), "interface_vrf_set vlan -1 vrf 100",
                "\t vrf_id 100 vid -1 "),
        REQUEST(interface_mpls_enable(wide, 0x101, bits), "interface_mpls_enable vlan 100 on",
                "\t vid 100 enable enable "),
        REQUEST(add_nexthop(1, wide, mac, wide, 0x10007, out, bits),
                "add_ip_nexthop trunk 2881552484 svlan 100 cvlan 7 mac 02:00:00:00:01:02",
                "\t port_type 1 port_tgid -1413414812 vid 100 ivid 7", mac_line),
        REQUEST(del_nexthop(wide, bits), "del_ip_nexthop index 2881552484"),
        REQUEST(route_add(70000, 1, ip, 32, 99, bits),
                "add_ip_entry vrf 70000 10.1.1.2/32 nexthop 99",
                "\t vrf_id 70000 ip_type ipv4 ", "\t ip a.1.1.2 mask_len 32 "),
        REQUEST(route_del(70000, 2, ip, 64, 99, bits),
                "del_ip_entry vrf 70000 a01:102::/64 nexthop 99", "\t vrf_id 70000 ip_type ipv6 ",
                "\t ip a.1.1.2.0.0.0.0.0.0.0.0.0.0.0.0 mask_len 64 "),
        REQUEST(route_del(7, 3, ip, 64, 9, bits), "del_ip_entry vrf 7 ?/64 nexthop 9",
                "\t vrf_id 7 ip_type ipv6 "),
        REQUEST(default_route_set(wide, 2, 1, bits),
                "default_route_set vrf 100 family 2 to-cpu queue 10 rate 64",
                "\t vrf_id 100 ip_type 2 state 1 "),
        REQUEST(default_route_set(wide, 1, 2, bits),
                "default_route_set vrf 100 family 1 drop queue 10 rate 64",
                "\t vrf_id 100 ip_type 1 state 0 "),
        REQUEST(set_ecmp_hash_ctl(6, bits), "set_ecmp_hash_ctl mode 6",
                "!dpm_driver_set_ecmp_hash_ctl_result psc 6 obj_bit 16 result {code} "),
        REQUEST(ecmp_creat(1, &group, bits), "add_ecmp_nexthop members group"),
        REQUEST(ecmp_add(1, 40, 17, bits), "update_ecmp_nexthop group 40 add members 17",
                "\t op_type add "),
        REQUEST(ecmp_del(1, 40, 17, bits), "update_ecmp_nexthop group 40 remove members 17",
                "\t op_type remove "),
        REQUEST(ecmp_destory(1, 40, bits), "del_ecmp_nexthop group 40"),
        UNSLOTTED(add_arp_rule(mac, wide), "set_arp_to_cpu vlan 100 on"),
        UNSLOTTED(delete_arp_rule(mac, wide), "set_arp_to_cpu vlan 100 off"),
        UNSLOTTED(add_ospf_rule(wide), "set_ospf_to_cpu_ex vlan 2881552484 on"),
        UNSLOTTED(del_ospf_rule(7), "set_ospf_to_cpu_ex vlan 7 off"),
        UNSLOTTED(set_ndp_rule(wide, 1), "set_ipv6_ns_rule vlan 100 on match 0x3333/0xffff"),
        UNSLOTTED(set_ndp_rule(wide, 0), "set_ipv6_ns_rule vlan 100 off match 0x3333/0xffff"),
        REQUEST(mpls_ftn_add(record, out, out + 1, bits), "mpls_ftn_add ?/0", ids),
        REQUEST(mpls_ftn_del(record, bits), "mpls_ftn_del ?/0"),
        REQUEST(mpls_ilm_add(record, out, out + 1, bits), "mpls_ilm_add label 0", ids),
        REQUEST(mpls_ilm_del(record, bits), "mpls_ilm_del label 0"),
        REQUEST(vpws_entry_add(record, record, out, out + 1, out + 2, 5, bits),
                "vpws_entry_add " + vpws + "in 0 out 0 " + path + "standby ac-nhid", "\t ac_nhid {0} pw_nhid {1} aps_id {2} "),
        REQUEST(vpws_entry_del(record, 5, bits), "vpws_entry_del vc 0 peer 0.0.0.0 slots"),
        REQUEST(vpws_entry_update(record, record, out, out + 1, 5, bits),
                "vpws_entry_update " + vpws + "in 0", "\t pw_nhid {0} aps_id {1} "),
        REQUEST(vpws_entry_add_vlanlist(record, record, out, out + 1, out + 2, 5, bits, vlans),
                "vpws_entry_add_test " + vpws + "vlans 1,8,4094 in 0", "\t ac_nhid {0} pw_nhid {1} aps_id {2} "),
        REQUEST(vpws_entry_del_vlanlist(record, 5, bits, vlans), 
                "vpws_entry_del_test vc 0 peer 0.0.0.0 vlans 3"),
        REQUEST(vpws_entry_del_vlanlist(record, 5, bits, all_vlans),
                "vpws_entry_del_test vc 0 peer 0.0.0.0 vlans 512"), // the first of them
        REQUEST(pw_group_switch(wide, 0, bits), "pw_group_switch group 2881552484 primary",
                "\t pw_id -1413414812 protect_en disable "),
        REQUEST(vpls_add(wide, 7, bits), "vpls_add vpls 100 fid 7", "\t vpls_id 100 fid 7 "),
        REQUEST(vpls_del(wide, bits), "vpls_del vpls 100"),
        REQUEST(mpls_ac_entry_add(record, out, out + 1, bits), "vpls_ac_entry_add " + ac + "vpls 0", port),
        REQUEST(mpls_ac_entry_del(record, bits), "vpls_ac_entry_del " + ac + "slots"),
        REQUEST(mpls_pw_entry_add(record, out, out + 1, bits), "vpls_pw_entry_add " + pw + "in 0", port),
        REQUEST(mpls_pw_entry_del(record, bits), "vpls_pw_entry_del " + pw + "slots"),
        REQUEST(port_scl_key_type_set(1, wide, 0x10007, 0x101, 0x103, bits),
                "port_scl_key_type_set type 1 port 100 subport 7 direction 1 key 3",
                "\t port_type 1 port 100 subport 7 direction 1 key_type 3"),
        REQUEST(add_gre_tunnel(3, ip, other_ip, 0, 5, 1, bits),
                "add_gre_tunnel " + tunnel + "4294967295 checksum 1",
                "!dpm_driver_add_gre_tunnel_result" + tunnel_log + "-1 checksum 1 " + end),
        REQUEST(del_gre_tunnel(3, ip, other_ip, 7, 5, 1, bits),
                "del_gre_tunnel " + tunnel + "5 checksum 1",
                "!dpm_driver_del_gre_tunnel_result" + tunnel_log + "5 checksum 1 " + end),
        REQUEST(add_gre_nexthop(2, 3, mac, 4, 5, 3, ip, other_ip, 0, 9, 0, out, bits),
                "add_gre_nexthop" + neighbour + "4294967295 checksum 0",
                "!dpm_driver_add_gre_nexthop_result" + neighbour_log + "-1 checksum 0 sdk_index " +
                "{0} " + end),
        REQUEST(update_gre_nexthop(2, 3, mac, 4, 5, 3, ip, other_ip, 1, 9, 0, out, bits),
                "update_gre_nexthop" + neighbour + "9 checksum 0",
                "!dpm_driver_update_gre_nexthop_result" + neighbour_log + "9 checksum 0 sdk_index " +
                "{0} " + end),
        REQUEST(del_gre_nexthop(31, bits), "del_gre_nexthop index 31",
                "!dpm_driver_del_gre_nexthop_result:: sdk_index 31 " + end),
        // clang-format on
    };
    card.chip.answer_slots({4});
    for (const auto &[up, code] : {std::pair(0u, -3), {1u, 3}, {1u, 0}})
        for (const auto &[call, slots_while_up, line, details] : requests) {
            const auto function = chip::function_named(line.substr(0, line.find(' ')));
            ASSERT_TRUE(function) << line;
            g_dpm_global.slave_up = up;
            card.chip.fail_slot(*function, 4, code);
            asked.clear();
            const Lines logged = logged_by(call);
            EXPECT_EQ(logged, code ? expected_log(*function, details, code) : Lines());
            ASSERT_EQ(asked.size(), 1u) << line;
            EXPECT_TRUE(asked[0].starts_with(line)) << asked[0];
            EXPECT_TRUE(has(asked[0], up ? slots_while_up : " slots 0x0 ")) << asked[0];
            card.chip.refuse(*function, 1, -17);
            call();
            EXPECT_TRUE(asked.at(1).ends_with(" -> -17")) << line;
        }
}

TEST_F(Driver, TunnelsAreTracedUnderTheNameOfTheirRequest) {
    log.clear();
    dpm_driver_add_gre_nexthop(2, 3, mac, 4, 5, 6, ip, other_ip, 0, 9, 1, out, 0);
    ASSERT_EQ(log.size(), 2u);
    EXPECT_TRUE(log[0].starts_with("dpm_driver_add_gre_nexthop ")) << log[0];
    EXPECT_TRUE(log[0].ends_with("::porttype 2 port_tgid 3 mac 2-0-0-0-1-2 vid 4 ivid 5"));
    EXPECT_TRUE(
        log[1].ends_with("::vrf_id 6 sip a.1.1.2 dip ac.10.0.1 keyenable 0 key 9 checksum 1"))
        << log[1];
}

TEST_F(Driver, CallbacksOfOtherFormsLogThemToo) {
    const std::string end = " obj_bit 16 result -3 ";
    EXPECT_EQ(
        logged_by([&] {
            dpm_driver_add_ip_nexthop_result(2, 3, out, 4, 5, nullptr, 16, -3);
            dpm_driver_update_ip_nexthop_result(2, 3, out, 4, 5, mac, 16, -3);
            dpm_driver_update_ecmp_nexthop_result(1, 0, 0, out, 16, -3);
            dpm_driver_add_l3_intf_result(mac, 100, nullptr, 16, -3);
            dpm_driver_interface_ipmc_enable_result(100, 1, 1, 16, -3);
            dpm_driver_interface_ipmc_enable_result(100, 1, 1, 16, 0);
        }),
        (Lines{"dpm_driver_add_ip_nexthop_result" + end, "\t port_type 2 port_tgid 3 vid 4 ivid 5",
               "\t mac 00-00-00-00-00-00 ", "dpm_driver_update_ip_nexthop_result" + end,
               "\t port_type 2 port_tgid 3 vid 4 ivid 5 ", "\t mac 02-00-00-00-01-02 ",
               "dpm_driver_update_ecmp_nexthop_result" + end, "\t op_type create ",
               "dpm_driver_add_l3_intf_result" + end, "\t vid 100 ifid 0 ",
               "\t mac 02-00-00-00-01-02 ", "dpm_driver_interface_ipmc_enable_result" + end,
               "\t vid 100 type 1 enable 1 "}));
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
