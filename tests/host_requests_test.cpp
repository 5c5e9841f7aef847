// The edge of the host table: the three ways to report a neighbour, the conformance-test switch,
// link events, and what is read from the IP stack.

#include "dpm_events.h"
#include "dpm_host.h"
#include "support/rows.h"

using rig::alone;

namespace {

int report_entry(const dpm_host_info &info, std::uint32_t oper) {
    dpm_host_entry entry{};
    entry.ifindex = info.ifindex;
    entry.ip = {info.family, 24, {}}; // an odd length: it is a host all the same
    std::copy_n(info.address, 16, entry.ip.address);
    entry.mac[5] = 7;
    entry.svlan = 100;
    entry.phy_port_id = 3;
    return dpm_api_host_msg_send(&entry, oper);
}

// "report pro|stack|entry OPER IP [FAMILY]": by one of the three ways.
void report(rig::RowShelf &shelf, const rig::Words &words) {
    const auto oper = std::uint32_t(std::stoul(words[2]));
    dpm_host_info info = rig::info_of(shelf.master(), {.ip = words[3], .port = 3, .vrf = 6});
    info.oper = std::uint8_t(oper);
    info.family = words.size() > 4 ? 3 : info.family;
    const int result = words[1] == "pro"     ? dpm_api_host_pro(&info, oper)
                       : words[1] == "stack" ? dpm_api_notify_ipstack_host(&info)
                                             : report_entry(info, oper);
    if (result != 0)
        shelf.answer(std::to_string(result));
}

// "read IP VRF|IFINDEX": what the library reads of the IP stack's entry.
void read(rig::RowShelf &shelf, const rig::Words &words) {
    const dpm_prefix ip = rig::prefix_of(words[1]);
    const auto where = std::uint32_t(std::stoul(words[2]));
    std::uint8_t mac[DPM_MAC_BYTES] = {};
    std::uint16_t vlan = 0, port = 0;
    std::uint32_t third = 0;
    const int result = ip.family == DPM_FAMILY_IPV4
                           ? dpm_get_arp_info_by_vrf_ip(where, ntohl(dpm::address_word(ip.address)),
                                                        mac, &vlan, &port)
                           : dpm_get_ndp_entry_by_ip(ip.address, mac, where, &vlan, &port, &third);
    shelf.answer(result != 0 ? "none"
                             : "mac " + std::to_string(mac[5]) + " vlan " + std::to_string(vlan) +
                                   " port " + std::to_string(port + third));
}

// "link PORT STATE": as the chip's library tells it.
void link(rig::RowShelf &, const rig::Words &words) {
    EXPECT_EQ(dpm_port_link_func(unsigned(std::stoul(words[1])), unsigned(std::stoul(words[2]))),
              0);
}

const rig::Verb verbs[] = {{"report", report}, {"read", read}, {"link", link}};

} // namespace

ROWS(HostRequests, OfAllThreeKindsAddAndDeleteTheHost, .roles = alone,
     .see = "chip log/dpm_api_host"){
    {"report pro 1 {a}",
     "log10 dpm_api_host_pro #::host_msg vrf 6 ip {a} mac {M2} ifindex 900 port 3/0x3 port_type "
     "0 \t\tcvlan 0 svlan 100 supervlan 100 \r\n; nexthop+ port 3 {m2} n1; entry+ {a} n1"},
    {"report pro 2 {a}", "log10 dpm_api_host_pro #::host_msg ...; entry- {a} n1; nexthop- n1"},
    {"report stack 1 {a}", "nexthop+ port 3 {m2} n2; entry+ {a} n2"},
    {"report stack 2 {a}", "entry- {a} n2; nexthop- n2"},
    {"report entry 1 {a}", "nexthop+ port 3 00:00:00:00:00:07 n3; entry+ {a} n3"},
    {"see stack"},
    {"call dpm_host_start_delete_time_test", "forget {a}; probe {a}; = 0"},
    {"clock advance 3600s", "probe {a}; probe {a}"},
    {"see chip"},
    {"report entry 2 {a}", "entry- {a} n3; nexthop- n3"},
};

ROWS(HostRequests, WithoutARecordOperationOrFamilyAreRefused, rig::once("log chip")){
    {"report pro 3 {a}", "log10 dpm_api_host_pro #::unkown oper 3!\r\n; = -1"},
    {"report stack 3 {a}", "log10 dpm_api_notify_ipstack_host #::unkown oper 3!\r\n; = -1"},
    {"report entry 0 {a}", "log10 dpm_api_host_msg_send #::unkown oper 0!\r\n; = -1"},
    {"call dpm_api_host_pro 0 1", "log10 dpm_api_host_pro #::the input ...; = -1"},
    {"call dpm_api_notify_ipstack_host 0",
     "log10 dpm_api_notify_ipstack_host #::the input ...; = -1"},
    {"call dpm_api_host_msg_send 0 1", "log10 dpm_api_host_msg_send #::the input ...; = -1"},
    {"report pro 1 {a} 3", "log10 dpm_api_host_pro #::iptype = 3 is err!\r\n; = -1"},
    {"report stack 1 {a} 3", "log10 dpm_api_notify_ipstack_host #::iptype 3 is err!\r\n; = -1"},
    {"report entry 1 {a} 3", "log10 dpm_api_host_msg_send #::iptype = 3 is err!\r\n; = -1"},
};

ROWS(HostRequests, AreDroppedWithSuccessWhileTheConformanceTestRuns, rig::once("log chip")){
    {"call dpm_ipv6_ready_test_switch_open", "= 0"},
    {"call dpm_get_ipv6_ready_test_switch_state", "= 1"},
    {"report pro 1 {a}", ""},
    {"report stack 1 {a}", ""},
    {"report entry 77 {a}", ""},
    {"call dpm_api_host_pro 0 77", "= 0"},
    {"route add {net} via {a}", ""},
    {"see chip"},
    // The test hosts are no reports.
    {"call dpm_host_test_add 0x301010a 900 100 0 3 3",
     "nexthop+ port 3 00:01:02:03:04:05 n1; entry+ {c} n1; = 0"},
    {"call dpm_ipv6_ready_test_switch_close", "= 0"},
    {"call dpm_get_ipv6_ready_test_switch_state", "= 0"},
    {"call dpm_host_test_del 0x301010a 900 100 0 3 3", "entry- {c} n1; nexthop- n1; = 0"},
};

ROWS(HostRequests, ReadTheStacksNeighbourEntries, .roles = alone){
    {"neigh add {a} port 3"},
    {"4: read {a} 0", "= mac 1 vlan 100 port 3"},
    {"4: read {a} 1", "= none"}, // another VRF
    {"6: read {a} 900", "= mac 1 vlan 100 port 3"},
    {"6: read {a} 4711", "= none"},
    {"call dpm_get_arp_info_by_vrf_ip 0 0x0a010101 0 0 0", "= -1"},
    {"call dpm_get_ndp_entry_by_ip 0 0 900 0 0 0", "= -1"},
};

// Where no host is, each that becomes a message is told in the log.
ROWS(HostRequests, OfLinksAreForPortsAndTrunksInRange, rig::once("log/dpm_host_ chip")){
    {"each 1 64 91 106 do link * 0", "log10 dpm_host_port_down #::ipv4 host table is null!\r\n; "
                                     "log10 dpm_host_port_down #::ipv4 host table is null!\r\n; "
                                     "log10 dpm_host_port_down #::ipv4 host table is null!\r\n; "
                                     "log10 dpm_host_port_down #::ipv4 host table is null!\r\n"},
    {"neigh add {a} port 1"},
    {"neigh add {b} trunk 1"},
    {"each 0 65 90 107 4294967295 do link * 0", ""},
    {"each 1 91 do link * 2", ""},
    {"show hold --count", "= 0"},
    {"link 91 0", ""},
    {"show hold {b} --count", "= 1"},
    {"show hold --count", "= 1"},
};
