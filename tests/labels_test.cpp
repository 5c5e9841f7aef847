// Label entries: what they answer, their mirroring, and the routes that give way to them.

#include "dpm_l3vpn.h"
#include "dpm_list.h"
#include "dpm_vpn.h"
#include "support/rows.h"

#include <arpa/inet.h>
#include <cstring>

namespace {

std::uint32_t word(const std::string &address) {
    return inet_addr(address.c_str());
}
std::string text(std::uint32_t word) {
    return inet_ntoa({word});
}
std::string label_of(const dpm_ftn *ftn) {
    return ftn ? std::to_string(ftn->tunnel_label) : "-";
}
std::uint32_t number(const rig::Words &words, std::size_t at) {
    return at < words.size() ? std::uint32_t(std::stoul(words[at])) : 0;
}

// "labels IP [VRF]": tunnel label, VPN label and next hop towards an address.
void tell_labels(rig::RowShelf &shelf, const rig::Words &words) {
    std::uint32_t tunnel = 0, vpn = 0, nhop = 0;
    const int result =
        dpm_get_mpls_ftn_info(number(words, 2), word(words[1]), &tunnel, &vpn, &nhop);
    shelf.answer(result != 0
                     ? "none"
                     : std::to_string(tunnel) + " " + std::to_string(vpn) + " " + text(nhop));
}

// "tunnels PREFIX [VRF]": the label of the tunnel to a remote, of that to a FEC, and what a tunnel
// of exactly this length says.
void tell_tunnels(rig::RowShelf &shelf, const rig::Words &words) {
    const dpm_prefix ip = rig::prefix_of(words[1]);
    std::uint32_t nhop = 0, label = 0;
    const int result = dpm_mpls_ftn_tnl_nexthop_get(
        number(words, 2), ntohl(dpm::address_word(ip.address)), ip.prefix_len, &nhop, &label);
    shelf.answer(label_of(dpm_mpls_ftn_get_by_vpn_nhop(ip.address)) + " " +
                 label_of(dpm_mpls_ftn_get_by_fec(ip.address)) + " " +
                 (result != 0 ? "-" : std::to_string(label) + " over " + text(nhop)));
}

// "leads LABEL": where an incoming label leads.
void tell_ilm(rig::RowShelf &shelf, const rig::Words &words) {
    std::uint32_t vrf = 9, ifindex = 9, nhop = 9, swap = 9;
    dpm_ilm_info_get_by_lbl(number(words, 1), &ifindex, &nhop, &swap, &vrf);
    shelf.answer(std::to_string(vrf) + " " + std::to_string(ifindex) + " " + std::to_string(swap));
}

const rig::Verb verbs[] = {{"labels", tell_labels}, {"tunnels", tell_tunnels}, {"leads", tell_ilm}};

} // namespace

ROWS(Labels, TheLongestPrefixAnswersAndTheFirstOfItsPaths, rig::once()){
    {"ftn add 10.9.0.0/16 via {b} label 16"},
    {"ftn add 10.9.1.0/24 via {c} label 25"},
    {"ftn add 10.9.1.0/24 via {b} label 24"},
    {"labels 10.9.1.7", "= 24 0 {b}"},
    {"labels 10.9.2.7", "= 16 0 {b}"},
    {"labels 10.8.2.7", "= none"},
    {"labels 10.9.1.7 5", "= none"}, // another VRF
    {"ftn del 10.9.1.0/24 via {b}"},
    {"labels 10.9.1.7", "= 25 0 {c}"},
    // A length past 32 covers everything; an exact key goes before it.
    {"ftn add 1.2.3.4/33 via {b} label 33"},
    {"ftn add 10.9.0.1/32 via 0.0.0.0 vrf 5 remote 10.9.1.0 label 100"},
    {"ftn add 10.9.0.1/32 via 0.0.0.0 label 50"},
    {"labels 10.9.1.7", "= 33 0 {b}"},
    {"labels 10.9.0.1 5", "= 25 101 0.0.0.0"},
    {"labels 10.9.0.1", "= 50 0 0.0.0.0"},
};

ROWS(Labels, OnlyATunnelCarriesAVpnEntry, rig::once()){
    {"ftn add 10.9.0.1/32 via {b} vrf 5"},
    {"show ftn --count", "= 0"},
    {"tunnels 10.9.0.1", "= - - -"},
    {"ftn add 10.9.0.1/32 via {c} label 2"},
    {"ftn add 10.9.0.1/24 via {c} label 1"},
    {"ftn add 2001:db8::1/128 via fe80::2 label 6"},
    {"ftn add 10.8.0.0/16 via {b} label 16"},
    {"tunnels 10.9.0.1", "= 1 1 2 over {c}"}, // in table order
    {"tunnels 2001:db8::1", "= 6 6 -"},
    {"tunnels 10.8.3.4/16", "= - - 16 over {b}"},
    {"tunnels 10.8.3.4/17", "= - - -"},
    {"tunnels 10.8.3.4/16 1", "= - - -"},
    {"ilm add 77"},
    {"leads 77", "= 0 900 2001"},
    {"leads 78", "= 9 9 9"},
};

// Which of them wait is a law on both cards.
ROWS(Labels, TravelWithWhatIsLocalLookedUpAgain, .roles = rig::mirroring, .see = "mirror"){
    {"ftn add {net} via {a}", "mirror ftn+ {net} waits"},
    {"ftn add {net} via {b}", "mirror ftn+ {net} waits"},
    {"ftn add {net} via {b}", "mirror ftn+ {net} waits"}, // the present one
    {"ilm add 7 via {a} fec {net}", "mirror ilm+ 7 waits"},
    {"ilm add 8 dev vlanif200 egress", "mirror ilm+ 8"},
    {"ilm add 9 via {a} fec {net} dev nosuch", "mirror ilm+ 9 waits"},
    {"neigh add {b}", "mirror nexthop+ n1; mirror host+ {b}; 4: mirror ftn+ {net}"},
    {"standby show ftn --count", "= 2"}, // it replaced the one that waited
    {"standby fault alloc 2"},           // behind the message's own: it stays as it is
    {"allow standby-differs"},
    {"ftn add {net} via {b}", "mirror ftn+ {net}"},
    {"standby goes"},
    {"allow standby-differs 0"},
    {"standby comes", "mirror ...; mirror nexthop* 1; mirror host* 1; mirror ftn* 2; "
                      "mirror ilm* 3; mirror settings 1; mirror settings 2; mirror ...; "
                      "standby: mirror ..."},
    {"ftn del {net} via {a}", "mirror ftn- {net} waits"},
    {"ilm del 7", "mirror ilm- 7 waits"},
    {"fault alloc 1"},
    {"ftn add {net1}", "refused"},
    {"fault alloc 2"}, // behind the message's own
    {"ilm add 10", ""},
};

ROWS(Labels, ARouteGivesWayToTunnelsOfItsPrefixAndFollowsItsHostsOutsideTheChip, .see = "chip"){
    {"each {a} {b} do neigh add *"},
    {"route add {net} via {a}", "entry+ {net} n1"},
    {"ftn add {net} via {b} vrf 5", ""}, // nothing carries it
    {"ftn add {net1} via {c}", ""},      // another prefix
    {"ftn add {net} via {a}", "entry- {net} n1; ftn+ {net} push 1000 port 1 {m1}"},
    {"ftn add {net} via {b}", "ftn+ {net} push 1000 port 1 {m2}"},
    {"ftn del {net} via {a}", "ftn- {net} push 1000 port 1 {m1}"}, // the other one stands
    {"neigh del {a}", "entry- {a} n1; nexthop- n1"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n3; entry+ {a} n3"},
    {"route del {net}", ""},
    {"route add {net} via {a} via {b}", "group+ g1; member+ g1 n3; member+ g1 n2"},
    {"neigh del {a}", "member- g1 n3; entry- {a} n3; nexthop- n3"},
    {"neigh del {b}",
     "member- g1 n2; group- g1; 4: ftn- {net} push 1000 port 1 {m2}; entry- {b} n2; nexthop- n2"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n4; entry+ {b} n4; group+ g2; member+ g2 n4; 4: ftn+ {net} push 1000 port 1 {m2}"},
    {"ftn del {net} via {b}", "ftn- {net} push 1000 port 1 {m2}; entry+ {net} g2"},
    {"ftn add {net} via {b}", "entry- {net} g2; ftn+ {net} push 1000 port 1 {m2}"},
    // A default keeps the CPU out while it counts.
    {"ftn add {any} via {b}", "ftn+ {any} push 1000 port 1 {m2}"},
    {"route add {any} via {b}", "default {ip} drop"},
    {"neigh del {b}",
     "default {ip} to-cpu; member- g2 n4; group- g2; 4: ftn- {any} push 1000 port 1 {m2}; 4: ftn- {net} push 1000 port 1 {m2}; entry- {b} n4; nexthop- n4"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n5; entry+ {b} n5; default {ip} drop; group+ g3; member+ g3 n5; 4: ftn+ {net} push 1000 port 1 {m2}; 4: ftn+ {any} push 1000 port 1 {m2}"},
    {"route del {any}", "default {ip} to-cpu"},
};

using LabelRecords = rig::Shelf;

TEST_F(LabelRecords, RequestsAndQuestionsWithoutTheirBlocksAreRefused) {
    const std::vector<std::uint8_t> bytes(DPM_ILM_MSG_BYTES, 7);
    for (const auto request : {dpm_api_set_mpls_ftn_proc, dpm_api_set_mpls_ilm_proc}) {
        EXPECT_EQ(request(nullptr, DPM_OPER_ADD), -1);
        fail(chassis::os::Fault::allocation);
        EXPECT_EQ(request(bytes.data(), 3), -1) << "no block is asked for";
        EXPECT_EQ(request(bytes.data(), DPM_OPER_ADD), -1);
        fail(chassis::os::Fault::send, 1, 4);
        EXPECT_EQ(request(bytes.data(), DPM_OPER_DEL), -1);
    }
    EXPECT_EQ(logged(master(), "]send msg err!") + logged(master(), "::send msg err!"), 2u);
    dpm_ftn loose{};
    INIT_LIST_HEAD(dpm::pend_link(loose));
    std::uint32_t output = 9;
    rig::expect_all(-1, {dpm_get_mpls_ftn_info(5, 0, nullptr, &output, &output),
                         dpm_get_mpls_ftn_info(5, 0, &output, nullptr, &output),
                         dpm_get_mpls_ftn_info(5, 0, &output, &output, nullptr),
                         dpm_mpls_pend_ftn_del(&loose), // an empty list
                         dpm_mpls_pend_ftn_add(nullptr), dpm_mpls_pend_ilm_del(nullptr),
                         dpm_mpls_ftn_del(nullptr), dpm_mpls_ilm_del(nullptr)});
    dpm_ilm_info_get_by_lbl(77, nullptr, &output, &output, &output);
    EXPECT_EQ(output, 9u);
    EXPECT_EQ(dpm_get_netmask_addr(0), 0u);
    EXPECT_EQ(dpm_get_netmask_addr(32), ~0u);
    EXPECT_EQ(dpm_get_netmask_addr(9), word("255.128.0.0"));
    EXPECT_EQ(dpm_masklen2ip(33, &output), -1);
    EXPECT_EQ(dpm_masklen2ip(~0u, &output), -1);
    EXPECT_EQ(dpm_masklen2ip(32, nullptr), -1);
    EXPECT_EQ(output, 9u);
    for (const auto &[length, mask] : {std::pair(0u, 0u), {32u, ~0u}, {9u, word("255.128.0.0")}}) {
        EXPECT_EQ(dpm_masklen2ip(length, &output), 0);
        EXPECT_EQ(output, mask);
    }
}

TEST_F(LabelRecords, OfOtherFamiliesAreRefused) {
    constexpr unsigned families[][3] = {{0, 1, 1}, {3, 1, 1}, {0x101, 1, 1}, {1, 0, 1},
                                        {1, 3, 1}, {2, 2, 0}, {2, 2, 3}};
    for (const auto &[fec, nexthop, remote] : families) {
        dpm_ftn_msg ftn{};
        dpm_ilm_msg ilm{};
        ftn.vrf_id = remote != 1 ? 5 : 0;
        ftn.family = ilm.family = fec, ftn.vpn_nhop_af = std::uint8_t(remote);
        ftn.tunnel_ip_type = ilm.tunnel_ip_type = std::uint8_t(nexthop);
        rig::expect_all(-1, {dpm_mpls_ftn_add_msg(&ftn), dpm_mpls_ftn_del_msg(&ftn),
                             dpm_mpls_ilm_del_msg(&ilm)});
        if (remote == 1) { // an ILM has none
            EXPECT_EQ(dpm_mpls_ilm_add_msg(&ilm), -1);
        }
    }
    EXPECT_EQ(logged(master(), "iptype = "), std::size(families) * 2 - 2);
    EXPECT_TRUE(ftns(master()).empty() && ilms(master()).empty());
}

TEST_F(LabelRecords, OfIpv4CountWithFourBytesOfTheirAddresses) {
    dpm_ftn ftn{};
    dpm_ilm ilm{};
    ilm.flags = DPM_LABEL_WAITING, ilm.is_egress = 1; // waits for nobody
    ftn.prefixlen = 16;
    for (std::uint8_t *family :
         {&ftn.ip_type, &ftn.tunnel_ip_type, &ilm.ip_type, &ilm.tunnel_ip_type})
        *family = DPM_FAMILY_IPV4;
    for (std::uint8_t *address : {ftn.fec_prefix, ftn.tunnel_nhop, ilm.fec_prefix, ilm.tunnel_nhop})
        std::memcpy(address, "\12\2\0\0ZZZZZZZZZZZZ", 16);
    EXPECT_EQ(dpm_mpls_ftn_get_by_vpn_nhop(ftn.fec_prefix), nullptr);
    EXPECT_EQ(dpm_mpls_ftn_add_sync_process(&ftn), 0);
    EXPECT_EQ(dpm_mpls_ilm_add_sync_process(&ilm), 0);
    EXPECT_EQ(dpm_mpls_pend_ilm_lookup(ilm), nullptr);
    const auto kept_ftns = ftns(master());
    const auto kept_ilms = ilms(master());
    for (const std::uint8_t *kept : {kept_ftns.at(0).fec_prefix, kept_ilms.at(0).fec_prefix})
        EXPECT_EQ(std::count(kept + 4, kept + 16, 0), 12);
    EXPECT_TRUE(dpm_mpls_ftn_get_by_vpn_nhop(ftn.fec_prefix)) << "of a remote four count";
    EXPECT_FALSE(dpm_mpls_ftn_get_by_fec(ftn.fec_prefix)) << "of a FEC all";
    EXPECT_TRUE(dpm_mpls_ftn_table_get(0, ftn.fec_prefix, 16, ftn.tunnel_nhop));
    EXPECT_FALSE(dpm_mpls_ftn_table_get(0, ftn.fec_prefix, 24, ftn.tunnel_nhop));
    EXPECT_EQ(logged(master(), "fec_prefix = 10.2.0.0"), 2u);
    for (int round = 0; round < 2; ++round) { // gone
        EXPECT_EQ(dpm_mpls_ftn_del_sync_process(&ftn), 0);
        EXPECT_EQ(dpm_mpls_ilm_del_sync_process(&ilm), 0);
    }
    EXPECT_TRUE(ftns(master()).empty() && ilms(master()).empty());
}
