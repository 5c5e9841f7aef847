// Policy routes: their buffers, and items in the chip that come and go with their next hops, on
// either card by itself.

#include "dpm_policy_route.h"
#include "support/rows.h"

using rig::alone;

namespace {

class Buffers : public rig::LoneShelf {};

} // namespace

ROWS(PolicyRoutes, FollowTheirNextHopOnEitherCard, .families = {4}, .roles = rig::mirroring,
     .see = "chip stack"){
    {"neigh add {a}"},
    {"pbr add from {net1} port 3 via {a}",
     "stream+ set 1 from {net1} on port 3 n1; standby: stream+ set 1 from {net1} on port 3 n1"},
    {"pbr add from {net1} port 3 via {a}", ""}, // the same again
    {"pbr add from {net1} port 3 port 4 via {b}", "probe {b}; standby: probe {b}"},
    {"pbr add set 2 from {net1} to {net2} via {a}",
     "stream+ set 2 from {net1} to {net2} on 56 ports n1; "
     "standby: stream+ set 2 from {net1} to {net2} on 56 ports n1"},
    {"show pbr --count", "= 3"},
    {"chip trace 10.7.7.7 port 3 from 10.9.1.7",
     "= redirected by set 1 from {net1} on port 3; "
     "= out of port 1 vlan 100 to {m1} with ip ttl 63 exp 0"},
    {"chip trace 10.7.7.7 port 4 from 10.9.1.7", "= no entry, by default to the CPU"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n2; entry+ {b} n2; stream+ set 1 from {net1} on port 3,4 n2; "
     "standby: stream+ set 1 from {net1} on port 3,4 n2"},
    {"neigh del {a}",
     "stream- set 1 from {net1} on port 3 n1; "
     "stream- set 2 from {net1} to {net2} on 56 ports n1; entry- {a} n1; nexthop- n1; "
     "standby: stream- set 1 from {net1} on port 3 n1; "
     "standby: stream- set 2 from {net1} to {net2} on 56 ports n1"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n3; entry+ {a} n3; stream+ set 1 from {net1} on port 3 n3; "
     "stream+ set 2 from {net1} to {net2} on 56 ports n3; "
     "standby: stream+ set 1 from {net1} on port 3 n3; "
     "standby: stream+ set 2 from {net1} to {net2} on 56 ports n3"},
    {"neigh add {a} lladdr {m3}",
     "stream- set 1 from {net1} on port 3 n3; "
     "stream- set 2 from {net1} to {net2} on 56 ports n3; entry- {a} n3; nexthop- n3; "
     "nexthop+ port 1 {m3} n4; entry+ {a} n4; stream+ set 1 from {net1} on port 3 n4; "
     "stream+ set 2 from {net1} to {net2} on 56 ports n4; "
     "standby: stream- set 1 from {net1} on port 3 n3; "
     "standby: stream- set 2 from {net1} to {net2} on 56 ports n3; "
     "standby: stream+ set 1 from {net1} on port 3 n4; "
     "standby: stream+ set 2 from {net1} to {net2} on 56 ports n4"},
    {"switch-over", "forget {a}; probe {a}; forget {b}; probe {b}"},
    // Another next hop, and another set of rules: the key is the same.
    {"pbr add from {net1} port 3 via {b}",
     "stream- set 1 from {net1} on port 3 n4; stream+ set 1 from {net1} on port 3 n2"},
    {"pbr add set 2 from {net1} port 3 via {b}",
     "stream- set 1 from {net1} on port 3 n2; stream+ set 2 from {net1} on port 3 n2"},
    {"pbr del from {net1} port 3", "stream- set 2 from {net1} on port 3 n2"},
    {"pbr del from {net1} port 3", ""},
    {"if del vlanif100",
     "stream- set 2 from {net1} to {net2} on 56 ports n4; entry- {a} n4; nexthop- n4; "
     "forget {a}; stream- set 1 from {net1} on port 3,4 n2; entry- {b} n2; nexthop- n2; "
     "forget {b}; entry- 10.1.1.99/24 cpu -> -1; entry- {gw} cpu -> -1; "
     "interface- vlan 100 02:00:00:00:00:0a; arp vlan 100 off"},
};

ROWS(PolicyRoutes, ThatTheChipRefusesAreNotKeptOrWait, .families = {4}, .roles = alone,
     .see = "chip stack"){
    {"neigh add {a}"},
    {"chip refuse stream 2"},
    {"pbr add from {net1} via {a}", "stream+ set 1 from {net1} on 56 ports n1 -> -1"},
    {"show pbr --count", "= 0"},
    {"pbr add from {net1} via {b}", "probe {b}"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n2; entry+ {b} n2; stream+ set 1 from {net1} on 56 ports n2 -> -1"},
    {"show pbr --count", "= 1"},
    {"pbr add from {net1} via {b}", "stream+ set 1 from {net1} on 56 ports n2"}, // asks again
    {"pbr add from {net2} via 6.6.6.6 vrf 5", "error no such VRF"},
    {"vrf enable 5"},
    {"fault alloc 3"},
    {"pbr add from {net2} via {a}", "refused"},
};

// An IPv6 next hop is looked for on the interface whose network has it, when there is one.
ROWS(PolicyRoutes, FindTheInterfaceOfTheirNextHopWhenItComes, .families = {6}, .roles = alone,
     .see = "chip stack"){
    {"if add vlanif7 vlan 7"},
    {"pbr add from {net1} via 2001:db8:7::2", "probe 2001:db8:7::2"},
    {"neigh add 2001:db8:7::2 dev vlanif7 lladdr {m1} port 3 vlan 7",
     "nexthop+ port 3 svlan 7 {m1} n1; entry+ 2001:db8:7::2 n1; probe {l1}"},
    {"addr add 2001:db8:7::1/64 dev vlanif7", "stream+ set 1 from {net1} on 56 ports n1"},
    {"if del vlanif7",
     "stream- set 1 from {net1} on 56 ports n1; entry- 2001:db8:7::2 n1; nexthop- n1; "
     "forget 2001:db8:7::2; entry- 2001:db8:7::1/64 cpu -> -1; entry- 2001:db8:7::1 cpu -> -1; "
     "interface- vlan 7 {mac}"},
    {"if add vlanif7 vlan 7"},
    {"addr add 2001:db8:7::1/64 dev vlanif7", "probe 2001:db8:7::2"},
    {"neigh add 2001:db8:7::2 dev vlanif7 lladdr {m1} port 3 vlan 7",
     "nexthop+ port 3 svlan 7 {m1} n2; entry+ 2001:db8:7::2 n2; probe {l1}; "
     "stream+ set 1 from {net1} on 56 ports n2"},
};

TEST_F(Buffers, HoldRecordsOneBehindTheOther) {
    using Bytes = std::vector<std::uint8_t>;
    Bytes buffer(200, 0xEE);
    std::uint32_t length = 0;
    const auto written = [&] { return Bytes(buffer.begin(), buffer.begin() + length); };
    const Bytes key = {1, 2, 3}, mask = {7, 8}, long_key(33), long_mask(49);
    EXPECT_EQ(dpm_hw_fill_rule(buffer.data(), &length, 0x0102, key.data(), 3, mask.data(), 2, 9),
              0);
    Bytes record(88);
    record[0] = 2, record[1] = 1, record[2] = 9, record[4] = 3, record[6] = 2;
    std::ranges::copy(key, record.begin() + 8);
    std::ranges::copy(mask, record.begin() + 40);
    EXPECT_EQ(written(), record);
    EXPECT_EQ(dpm_hw_fill_rule(buffer.data(), &length, 1, long_key.data(), 33, mask.data(), 2, 0),
              -1);
    EXPECT_EQ(dpm_hw_fill_rule(buffer.data(), &length, 1, key.data(), 3, long_mask.data(), 49, 0),
              -1);
    const std::uint16_t ports[] = {3, 0x104};
    EXPECT_EQ(dpm_hw_fill_port(buffer.data(), &length, ports, 0, 5), -1);
    EXPECT_EQ(dpm_hw_fill_port(buffer.data(), &length, ports, 2, 5), 0);
    record.insert(record.end(), {5, 0, 2, 0, 3, 0, 4, 1});
    EXPECT_EQ(written(), record) << "behind the rule; what was refused wrote nothing";
    length = 0;
    EXPECT_EQ(dpm_hw_fill_port_all(buffer.data(), &length, 5), 0);
    EXPECT_EQ(std::tuple(length, buffer[2], buffer[4], buffer[114]), std::tuple(116u, 56, 1, 56));
    length = 2;
    const std::uint32_t value = 0x11121314, lengths[] = {4, 17};
    const void *const values[] = {&value, &value}, *const absent[] = {&value, nullptr};
    EXPECT_EQ(dpm_hw_fill_op(buffer.data(), &length, 0x7F, 2, values, lengths), -1);
    EXPECT_EQ(dpm_hw_fill_op(buffer.data(), &length, 0x7F, 2, absent, lengths), -1);
    EXPECT_EQ(dpm_hw_fill_op(buffer.data(), &length, 0x7F, 1, values, lengths), 0);
    EXPECT_EQ(Bytes(buffer.begin() + 2, buffer.begin() + 12),
              (Bytes{0x7F, 0, 1, 0, 4, 0, 0x14, 0x13, 0x12, 0x11}));
    EXPECT_EQ(length, 24u);
}

TEST_F(Buffers, ThatAreEmptyOrTooLongAndUnknownVrfsAreRefused) {
    const std::vector<std::uint8_t> bytes(65536);
    const auto add = [&](std::uint32_t rule, std::uint32_t ports, const char *vrf,
                         std::uint32_t vrf_length, std::uint32_t family = DPM_FAMILY_IPV4) {
        return dpm_api_policy_route_add(1, bytes.data(), rule, bytes.data(), ports, vrf, vrf_length,
                                        family, bytes.data());
    };
    EXPECT_EQ(add(65535, 65535, "vrf0", 4), 0);
    for (const std::uint32_t length : {0u, 65536u, 1u << 31})
        EXPECT_EQ(std::pair(add(length, 1, "", 0), add(1, length, "", 0)), std::pair(-1, -1));
    EXPECT_EQ(add(1, 1, "twelve_bytes", 12), -2) << "no such VRF";
    EXPECT_EQ(add(1, 1, "vrf0000000000", 13), -2) << "a name of 13 bytes, and not looked up";
    EXPECT_EQ(add(1, 1, nullptr, 4), -2);
    EXPECT_EQ(add(1, 1, "", 0, 3), -1);
    EXPECT_EQ(dpm_api_policy_route_process(1, bytes.data(), 1, bytes.data(), 1, 0, 1, nullptr, 1),
              -1);
    EXPECT_EQ(
        dpm_api_policy_route_process(1, bytes.data(), 1, bytes.data(), 1, 0, 1, bytes.data(), 3),
        -1);
    EXPECT_EQ(run("settle").text, "");
    EXPECT_EQ(dpm::policy_routes().count(), 1u);
}
