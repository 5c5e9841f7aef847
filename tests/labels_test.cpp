// Label entries: their tables, their questions, their mirroring, and routes that give way to them.

#include "dpm_l3vpn.h"
#include "dpm_list.h"
#include "support/shelf.h"

#include <arpa/inet.h>
#include <cstring>

namespace {

using chassis::chip::Function;
using chassis::os::Fault;
using rig::Ftn;
using rig::Ilm;
using rig::Route;

std::uint32_t word(const char *address) {
    return inet_addr(address);
}
std::uint32_t host_word(const char *address) {
    return ntohl(inet_addr(address));
}

struct Info {
    int result;
    std::uint32_t tunnel_label, vpn_label, nhop;
    bool operator==(const Info &) const = default;
};
constexpr Info none{-1, 0, 0, 0};

Info info(unsigned vrf, const char *address) {
    Info answer = none;
    answer.result = dpm_get_mpls_ftn_info(vrf, word(address), &answer.tunnel_label,
                                          &answer.vpn_label, &answer.nhop);
    return answer;
}

class Labels : public rig::Shelf {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        add_interface("vlanif200", 200);
        learn_host({.ip = "10.1.1.2", .mac = "02:00:00:00:01:02"});
        learn_host({.ip = "10.1.1.3", .mac = "02:00:00:00:01:03"});
        clear_journal();
    }
    std::size_t pending(chassis::Card &card) {
        const auto scope = as(card);
        std::size_t count = 0;
        for (const dpm_ftn &ftn : ftns(card))
            count += dpm_mpls_pend_ftn_lookup(ftn) != nullptr;
        for (const dpm_ilm &ilm : ilms(card))
            count += dpm_mpls_pend_ilm_lookup(ilm) != nullptr;
        return count;
    }
};

} // namespace

TEST_F(Labels, OnePrefixOverTwoPathsIsTwoEntriesAndTheFirstAnswers) {
    add_ftn({.prefix = "10.9.0.1/32", .nhop = "10.1.1.3", .vrf = 5, .label = 300});
    add_ftn({.prefix = "10.9.0.1/32", .nhop = "10.1.1.2", .vrf = 5, .label = 200});
    EXPECT_EQ(ftns(master()).size(), 2u);
    EXPECT_EQ(info(5, "10.9.0.1"), (Info{0, 200, 201, word("10.1.1.2")}));
    EXPECT_EQ(info(0, "10.9.0.1"), none);
    add_ftn({.prefix = "10.9.0.1/32", .nhop = "0.0.0.0", .vrf = 5, .label = 100});
    EXPECT_EQ(info(5, "10.9.0.1").tunnel_label, 100u) << "the exact key";
    del_ftn({.prefix = "10.9.0.1/32", .nhop = "0.0.0.0", .vrf = 5});
    del_ftn({.prefix = "10.9.0.1/32", .nhop = "10.1.1.2", .vrf = 5});
    EXPECT_EQ(info(5, "10.9.0.1").tunnel_label, 300u);
}

TEST_F(Labels, TheLongestPrefixAnswersAndALengthPast32MatchesEverything) {
    add_ftn({.prefix = "10.9.0.0/16", .vrf = 5, .label = 16});
    add_ftn({.prefix = "10.9.1.0/24", .nhop = "10.1.1.3", .vrf = 5, .label = 25});
    add_ftn({.prefix = "10.9.1.0/24", .nhop = "10.1.1.2", .vrf = 5, .label = 24});
    EXPECT_EQ(info(5, "10.9.1.7").tunnel_label, 24u);
    EXPECT_EQ(info(5, "10.9.2.7").tunnel_label, 16u);
    EXPECT_EQ(info(5, "10.8.2.7"), none);
    add_ftn({.prefix = "1.2.3.4/33", .vrf = 5, .label = 33});
    EXPECT_EQ(info(5, "10.9.1.7").tunnel_label, 33u);
    EXPECT_EQ(info(5, "8.8.8.8").tunnel_label, 33u);
    std::uint32_t output;
    rig::expect_all(-1, {dpm_get_mpls_ftn_info(5, 0, nullptr, &output, &output),
                         dpm_get_mpls_ftn_info(5, 0, &output, nullptr, &output),
                         dpm_get_mpls_ftn_info(5, 0, &output, &output, nullptr)});
    EXPECT_EQ(dpm_get_netmask_addr(0), 0u);
    EXPECT_EQ(dpm_get_netmask_addr(32), ~0u);
    EXPECT_EQ(dpm_get_netmask_addr(9), word("255.128.0.0"));
}

TEST_F(Labels, OnlyATunnelCarriesAVpnEntry) {
    const dpm_prefix remote = rig::prefix_of("10.9.0.1"), v6 = rig::prefix_of("2001:db8::1");
    add_ftn({.prefix = "10.9.0.1/32", .vrf = 5});
    EXPECT_EQ(dpm_mpls_ftn_get_by_vpn_nhop(remote.address), nullptr);
    EXPECT_EQ(dpm_mpls_ftn_get_by_fec(remote.address), nullptr);
    add_ftn({.prefix = "10.9.0.1/32", .nhop = "10.1.1.3", .label = 2});
    add_ftn({.prefix = "10.9.0.1/24", .nhop = "10.1.1.3", .label = 1});
    add_ftn({.prefix = "2001:db8::1/128", .nhop = "fe80::2", .label = 6});
    ASSERT_TRUE(dpm_mpls_ftn_get_by_vpn_nhop(remote.address));
    EXPECT_EQ(dpm_mpls_ftn_get_by_vpn_nhop(remote.address)->tunnel_label, 1u) << "table order";
    EXPECT_EQ(dpm_mpls_ftn_get_by_fec(remote.address)->tunnel_label, 1u);
    EXPECT_EQ(dpm_mpls_ftn_get_by_vpn_nhop(v6.address)->tunnel_label, 6u);
    EXPECT_EQ(dpm_mpls_ftn_get_by_fec(v6.address)->tunnel_label, 6u);
    std::uint8_t unpadded[16];
    std::memcpy(unpadded, remote.address, 16);
    unpadded[9] = 1;
    EXPECT_TRUE(dpm_mpls_ftn_get_by_vpn_nhop(unpadded)) << "four bytes count";
    EXPECT_FALSE(dpm_mpls_ftn_get_by_fec(unpadded)) << "sixteen count";
}

TEST_F(Labels, QuestionsFillTheirOutputsOnlyWithAnAnswer) {
    add_ftn({.prefix = "10.9.0.0/16", .label = 16});
    add_ilm({.label = 77});
    std::uint32_t nhop = 0, label = 0, vrf = 9, ifindex = 9, swap = 9;
    EXPECT_EQ(dpm_mpls_ftn_tnl_nexthop_get(0, host_word("10.9.3.4"), 16, &nhop, &label), 0);
    EXPECT_EQ(nhop, word("10.1.1.2"));
    EXPECT_EQ(label, 16u);
    EXPECT_NE(dpm_mpls_ftn_tnl_nexthop_get(0, host_word("10.9.3.4"), 17, &nhop, &label), 0);
    EXPECT_NE(dpm_mpls_ftn_tnl_nexthop_get(1, host_word("10.9.3.4"), 16, &nhop, &label), 0);
    dpm_ilm_info_get_by_lbl(78, &ifindex, &nhop, &swap, &vrf);
    dpm_ilm_info_get_by_lbl(77, nullptr, &nhop, &swap, &vrf);
    EXPECT_EQ(swap, 9u);
    dpm_ilm_info_get_by_lbl(77, &ifindex, &nhop, &swap, &vrf);
    EXPECT_EQ(swap, 78u);
    EXPECT_EQ(vrf, 0u);
    EXPECT_EQ(ifindex, master().suite.find("vlanif100")->ifindex);
    const auto fec = rig::prefix_of("10.9.0.0"), by = rig::prefix_of("10.1.1.2");
    EXPECT_TRUE(dpm_mpls_ftn_table_get(0, fec.address, 16, by.address));
    EXPECT_FALSE(dpm_mpls_ftn_table_get(0, fec.address, 24, by.address));
    EXPECT_EQ(logged(master(), "fec_prefix = 10.9.0.0"), 2u);
}

TEST_F(Labels, RequestsAreCopiedAndPostedOrRefused) {
    const std::vector<std::uint8_t> bytes(DPM_ILM_MSG_BYTES, 7);
    using Request = int (*)(const void *, std::uint32_t);
    for (const Request request : {Request(dpm_api_set_mpls_ftn_proc), dpm_api_set_mpls_ilm_proc}) {
        EXPECT_EQ(request(nullptr, DPM_OPER_ADD), -1);
        fail(Fault::allocation);
        EXPECT_EQ(request(bytes.data(), 3), -1) << "no block is asked for";
        EXPECT_EQ(request(bytes.data(), DPM_OPER_ADD), -1);
        fail(Fault::send, 1, 4);
        EXPECT_EQ(request(bytes.data(), DPM_OPER_DEL), -1);
    }
    EXPECT_EQ(logged(master(), "]send msg err!") + logged(master(), "::send msg err!"), 2u);
    EXPECT_EQ(master().os.queued(), 0u);
}

TEST_F(Labels, WaitingEntriesStandOnThePendListNewestFirst) {
    dpm_ftn loose{};
    INIT_LIST_HEAD(dpm::pend_link(loose));
    rig::expect_all(-1, {dpm_mpls_pend_ftn_del(&loose), // an empty list
                         dpm_mpls_pend_ftn_add(nullptr), dpm_mpls_pend_ilm_del(nullptr),
                         dpm_mpls_ftn_del(nullptr), dpm_mpls_ilm_del(nullptr)});
    const Ftn first{.prefix = "10.9.0.0/16", .flags = DPM_LABEL_WAITING};
    const Ftn second{.prefix = "10.9.0.0/16", .nhop = "10.1.1.3", .flags = DPM_LABEL_WAITING};
    add_ftn(first);
    add_ftn(second);
    add_ilm({.label = 7, .flags = DPM_LABEL_WAITING});
    add_ilm({.label = 8, .egress = true});
    EXPECT_EQ(pending(master()), 3u);
    EXPECT_EQ(pending(standby()), 3u);
    dpm_ftn *const entry = dpm_mpls_ftn_lookup(rig::record_of(second));
    EXPECT_EQ(dpm_mpls_ftn_add(rig::record_of(second)), entry) << "the present one";
    EXPECT_EQ(dpm_mpls_pend_ftn_lookup(rig::record_of(second)), entry);
    EXPECT_EQ(dpm_mpls_pend_ftn_del(entry), 0);
    EXPECT_EQ(dpm_mpls_pend_ftn_lookup(rig::record_of(second)), nullptr);
    entry->flags = DPM_LABEL_PROGRAMMED;
    dpm_mpls_ftn_add_sync_send(entry);
    settle();
    EXPECT_EQ(pending(standby()), 2u) << "the mirrored entry replaces the waiting one";
    standby().os.fail(Fault::allocation, 2); // behind the message's own
    dpm_mpls_ftn_add_sync_send(entry);
    settle();
    EXPECT_EQ(ftns(standby()).size(), ftns(master()).size()) << "or leaves it, without memory";
    del_ftn(first);
    del_ilm({.label = 7});
    EXPECT_EQ(pending(master()) + pending(standby()), 0u);
    fail(Fault::allocation, 1, 2);
    EXPECT_EQ(add_ftn(first), -1);
    EXPECT_EQ(add_ilm({.label = 9}), -1);
}

TEST_F(Labels, TheTablesTravelWithWhatIsLocalLookedUpAgain) {
    standby_lost();
    for (unsigned i = 0; i < 150; ++i) {
        add_ftn({.prefix = "10.9." + std::to_string(i) + ".0/24",
                 .label = i,
                 .flags = i % 3 ? 1u : 2u});
        add_ilm({.label = 100 + i,
                 .ifname = i % 2 ? "vlanif100" : "vlanif200",
                 .flags = i % 3 ? 1u : 2u});
    }
    add_ilm({.label = 5, .ifname = "no such"});
    standby_connects();
    EXPECT_EQ(ftns(standby()).size(), 150u);
    EXPECT_EQ(pending(standby()), 100u);
    for (const dpm_ilm &ilm : ilms(standby())) {
        const auto own = standby().suite.find(ilm.in_label % 2 ? "vlanif100" : "vlanif200");
        EXPECT_EQ(ilm.out_ifindex, ilm.in_label == 5 ? 0 : own->ifindex);
    }
    check_laws();
    dpm_ilm egress = rig::record_of(master(), {.label = 900, .flags = DPM_LABEL_WAITING});
    egress.is_egress = 1;
    const auto scope = as(standby());
    EXPECT_EQ(dpm_mpls_ilm_add_sync_process(&egress), 0);
    EXPECT_EQ(dpm_mpls_pend_ilm_lookup(egress), nullptr) << "an egress waits for nobody";
    EXPECT_EQ(dpm_mpls_ilm_del_sync_process(&egress), 0);
    EXPECT_EQ(dpm_mpls_ilm_del_sync_process(&egress), 0) << "gone";
}

// One body over both families.
class LabelsAndRoutes : public Labels, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override {
        Labels::SetUp();
        learn_host(neighbour_a());
        learn_host({.ip = "2001:db8::3", .mac = "02:00:00:00:06:03"});
    }
    bool v6() const { return GetParam(); }
    std::string prefix() const { return v6() ? "2001:db8:2::/48" : "10.2.0.0/16"; }
    std::string inside() const { return v6() ? "2001:db8:2::9" : "10.2.3.4"; }
    std::string a() const { return v6() ? "2001:db8::2" : "10.1.1.2"; }
    std::string b() const { return v6() ? "2001:db8::3" : "10.1.1.3"; }
    Ftn over(const std::string &nhop) const { return {.prefix = prefix(), .nhop = nhop}; }
    rig::Neighbour neighbour_a() const { return {.ip = a(), .mac = "02:00:00:00:04:02"}; }
    Route single() const { return {.prefix = prefix(), .via = {{a()}}}; }
    Route both() const { return {.prefix = prefix(), .via = {{a()}, {b()}}}; }
    std::string programmed() { return forwards(inside()); }
};
INSTANTIATE_TEST_SUITE_P(Families, LabelsAndRoutes, ::testing::Bool());

TEST_P(LabelsAndRoutes, ARouteGivesWayToATunnelAndComesBackBehindTheLastOne) {
    for (const Route &route : {single(), both()}) {
        add_route(route);
        const std::string before = programmed();
        EXPECT_NE(before, "");
        add_ftn(over(a()));
        EXPECT_EQ(programmed(), "");
        EXPECT_GT(this->route(master(), prefix())->sdk_index, 0) << "still counts as programmed";
        add_ftn(over(b()));
        del_ftn(over(a()));
        EXPECT_EQ(programmed(), "") << "the other one stands";
        del_ftn(over(b()));
        EXPECT_EQ(programmed(), before);
        check_laws();
        del_route(route);
    }
}

TEST_P(LabelsAndRoutes, WhileTheTunnelStandsTheRouteFollowsItsHostsOutsideTheChip) {
    add_ftn(over(b()));
    for (const Route &route : {single(), both()}) {
        add_route(route);
        EXPECT_EQ(programmed(), "");
        EXPECT_GT(this->route(master(), prefix())->sdk_index, 0);
        forget_host(neighbour_a());
        EXPECT_EQ(this->route(master(), prefix())->sdk_index > 0, route.via.size() > 1);
        learn_host(neighbour_a());
        EXPECT_EQ(programmed(), "");
        check_laws();
        if (route.via.size() == 1)
            del_route(route);
        EXPECT_EQ(master().chip.mistakes(), 0u) << "nothing is deleted that is not there";
    }
    del_ftn(over(b()));
    EXPECT_NE(programmed(), "");
}

TEST_P(LabelsAndRoutes, OnlyATunnelOfTheSamePrefixCounts) {
    add_route(single());
    const std::string before = programmed();
    add_ftn({.prefix = prefix(), .nhop = b(), .vrf = 5});
    add_ftn({.prefix = v6() ? "2001:db8:2::/49" : "10.2.0.0/17", .nhop = b()});
    add_ftn({.prefix = v6() ? "2001:db8:3::/48" : "10.3.0.0/16", .nhop = b()});
    del_route(single());
    add_route(single());
    EXPECT_EQ(programmed(), before);
}

TEST_P(LabelsAndRoutes, ADefaultRouteLeftToATunnelKeepsTheCpuOut) {
    const std::string any = v6() ? "::/0" : "0.0.0.0/0";
    const chassis::chip::DefaultKey key{v6() ? 2u : 1u, 0};
    const auto &to_cpu = master().chip.cpu_default;
    add_ftn({.prefix = any, .nhop = b()});
    EXPECT_TRUE(to_cpu.at(key));
    add_route({.prefix = any, .via = {{a()}}});
    EXPECT_FALSE(to_cpu.at(key));
    EXPECT_EQ(programmed(), "");
    forget_host(neighbour_a());
    EXPECT_TRUE(to_cpu.at(key));
    learn_host(neighbour_a());
    EXPECT_FALSE(to_cpu.at(key));
    del_route({.prefix = any});
    EXPECT_TRUE(to_cpu.at(key));
}
