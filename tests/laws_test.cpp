// The laws must be able to fail: each is broken behind the library's back, and must tell.

#include "chassis/tables/law.h"
#include "chassis/tables/tables.h"
#include "dpm.h"
#include "dpm_route_record.h"
#include "support/laws.h"
#include "support/shelf.h"
#include "support/soundness.h"

#include <algorithm>
#include <gtest/gtest-spi.h>
#include <utility>

namespace {

using namespace chassis;
using rig::laws::Lines;

// Something stands in every table, and in the chip of every kind that the library asks for.
class Laws : public rig::Shelf {
protected:
    void SetUp() override {
        for (const char *command :
             {"vrf enable 7", "vrf disable 8", "if add vlanif200", "if add vlanif100",
              "addr add 10.1.1.1/24 dev vlanif100", "neigh add 10.1.1.2 port 1",
              "neigh add 10.1.1.3 port 2", "neigh add 10.1.1.4 port 3", "neigh add fd00::2 port 1",
              "route add 10.2.0.0/16 via 10.1.1.2 via 10.1.1.3 via 10.1.1.9",
              "route add 10.4.0.0/16 via 10.1.1.4", "route add default dev vlanif100",
              "ftn add 10.3.0.0/16 via 10.1.1.2", "ilm add 2000 via 10.1.1.2", "ilm add 2001",
              "mpls add vlanif100",
              "tunnel add tunnel1 addr 10.7.0.1/24 local 10.1.1.1 remote 10.2.0.9",
              "route add 10.6.0.0/16 dev tunnel1", "bfd add 100 via 10.1.1.2 remote 200",
              "vlan port 100 5", "l2vpn vpws bind vlanif100 vc-id 7",
              "l2vpn vpws out add vc-id 7 peer 10.9.0.1 label 500 dev vlanif100 ac vlanif100",
              "l2vpn vpws in add vc-id 7 peer 10.9.0.1 label 600 dev vlanif100 ac vlanif100",
              "l2vpn vpws out add vc-id 8 peer 10.9.0.1 label 501 sibling 7 10.9.0.1 standby",
              "mpls ftn add 10.9.0.1/32 encap mpls 100 via 10.1.1.2",
              "vlan port 200 6", "l2vpn vpls add 7", "l2vpn vpls bind vlanif200 vpls 7",
              "l2vpn vpls out add vpls 7 peer 10.9.0.1 label 700 dev vlanif100",
              "l2vpn vpls in add vpls 7 peer 10.9.0.1 label 800 dev vlanif100"})
            EXPECT_EQ(run(command).text, "") << command;
    }

    Lines chip_law() { return tables::chip_equals_tables(master()).all(); }
    Lines standby_law() { return tables::standby_equals_master(master(), standby()); }

    static bool names(const Lines &lines, std::string_view what) {
        return std::ranges::any_of(
            lines, [&](const std::string &line) { return line.find(what) != line.npos; });
    }

    // How many lines a law says while a field has another value.
    template <class Law, class Field, class Value>
    std::size_t broken(Law law, Field &field, Value value) {
        const Field kept = std::exchange(field, Field(value));
        const std::size_t lines = law().size();
        field = kept;
        return lines;
    }
};

template <class Entry> Entry &changeable(const Entry *entry) {
    return const_cast<Entry &>(*entry);
}

// What is changed in one byte.
template <class Value> Value other_than(Value value) {
    if constexpr (std::is_same_v<Value, chip::Members>)
        value.push_back(1);
    else
        reinterpret_cast<unsigned char &>(value) ^= 1;
    return value;
}

} // namespace

TEST_F(Laws, CompareEveryByteOfAMirroredRecordButWhatIsTheCardsOwn) {
    EXPECT_EQ(standby_law(), Lines());
    const std::map<std::string_view, std::size_t> own{
        {"hosts", sizeof(dpm_host_entry::card_local)},
        {"nexthops", 0},
        {"ecmp", 0},
        // a default route over one interface: indexes of gateways that it has not
        {"routes", sizeof(dpm_timer_node) + 7 * sizeof(std::uint32_t)},
        {"tunnels", 0},
        {"tunnel-ports", 0},
        {"mpls-if", 0},
        {"bfd", sizeof(dpm_timer_node) + sizeof(dpm_bfd_told::ifindex)},
        {"ftn", sizeof(list_head) + sizeof(dpm_ftn::stale) + sizeof(dpm_ftn::sdk_result)},
        {"ilm", sizeof(list_head) + sizeof(dpm_ilm::sdk_result)},
        {"vpws-ac", 0},
        {"vpws-out", sizeof(list_head)},
        {"vpws-in", sizeof(list_head)},
        {"vpls", 0},
        {"vpls-ac", 0},
        {"vpls-out", sizeof(list_head)},
        {"vpls-in", sizeof(list_head)}};
    for (const tables::Table &table : tables::all()) {
        if (!table.is_mirrored || table.name.starts_with("mroute")) // made while they are read
            continue;
        std::span<unsigned char> bytes;
        {
            const tables::Reading reading(standby());
            table.each(reading, [&](const tables::Row &row) {
                if (bytes.empty())
                    bytes = {static_cast<unsigned char *>(const_cast<void *>(row.record())),
                             row.bytes().size()};
            });
        }
        ASSERT_FALSE(bytes.empty()) << table.name;
        std::size_t silent = 0;
        for (unsigned char &byte : bytes.subspan(sizeof(dpm_avl_node))) { // which the walk needs
            byte ^= 1;
            const Lines lines = standby_law();
            byte ^= 1;
            silent += lines.empty();
            EXPECT_TRUE(lines.empty() || names(lines, std::string(table.name) + ": ")) << lines[0];
        }
        EXPECT_EQ(silent, own.at(table.name)) << table.name;
    }
    run("route del 10.4.0.0/16");
    hold(true);
    run("route add 10.4.0.0/16 via 10.1.1.2");
    master().pump(); // and the standby does not work
    EXPECT_TRUE(names(standby_law(), "routes: vrf 0 10.4.0.0/16: on the master only"));
    hold(false);
}

TEST_F(Laws, TellWhatTheChipLacksHoldsOtherwiseOrHoldsForNobody) {
    EXPECT_EQ(chip_law(), Lines());
    chip::each_kind([&](auto kind) {
        using Kind = decltype(kind);
        using Key = typename Kind::Key;
        using Value = typename Kind::Value;
        auto &held = master().chip.tamper<Kind>();
        const auto kept = held;
        const auto expect_told = [&](const char *what) {
            EXPECT_TRUE(names(chip_law(), Kind::name)) << what << " of kind " << Kind::name;
            held = kept;
        };
        if (!held.empty()) {
            held.erase(held.begin());
            expect_told("one less");
        }
        if constexpr (!std::is_same_v<Value, chip::Nothing>)
            if (!held.empty()) {
                held.begin()->second = other_than(held.begin()->second);
                expect_told("another one");
            }
        // What is left behind is nobody's.
        if constexpr (!std::is_same_v<Key, chip::Nothing> &&
                      !Kind::is_left_behind) {
            Key key = held.empty() ? Key() : held.begin()->first;
            while (!held.emplace(key, Value()).second)
                ++reinterpret_cast<unsigned char &>(key);
            expect_told("one too many");
        }
    });
}

TEST_F(Laws, TellRecordsThatTheChipOrEachOtherContradict) {
    dpm_if_entry &interface = changeable(dpm_api_get_if_entry_first());
    dpm_host_entry &host = changeable(dpm_api_get_host_entry_first(DPM_FAMILY_IPV4));
    dpm_nexthop_entry &nexthop = changeable(dpm_api_get_nexthop_entry_first());
    dpm_ecmp_entry &group = changeable(dpm_api_get_ecmp_entry_first(DPM_FAMILY_IPV4));
    dpm_route_entry &many = *route(master(), "10.2.0.0/16"), &one = *route(master(), "10.4.0.0/16"),
                    &standard = *route(master(), "0.0.0.0/0");
    const auto law = [this] { return chip_law(); };
    EXPECT_GE(broken(law, interface.l3_intf_id, 1), 1u);
    EXPECT_GE(broken(law, interface.vrf, 1), 1u);
    EXPECT_GE(broken(law, interface.mac[5], 1), 1u);
    EXPECT_GE(broken(law, interface.arp_programmed, 0), 1u);
    EXPECT_GE(broken(law, host.sdk_index, 4711), 2u) << "its entry, and the count";
    EXPECT_GE(broken(law, host.vrf, 3), 2u);
    EXPECT_GE(broken(law, nexthop.sdk_index, 4711), 2u);
    EXPECT_GE(broken(law, nexthop.cnt, 0), 1u);
    EXPECT_GE(broken(law, nexthop.cnt, 9), 1u);
    EXPECT_GE(broken(law, nexthop.svlan, 9), 1u);
    EXPECT_GE(broken(law, group.sdk_index, 4711), 3u) << "the group, the chip's, the route's";
    EXPECT_GE(broken(law, group.host_sdk[0], 4711), 2u) << "the chip's, the route's";
    EXPECT_GE(broken(law, group.host_cnt, 7), 1u);
    EXPECT_GE(broken(law, many.host_index[1], -1), 1u);
    EXPECT_GE(broken(law, many.sdk_index, 0), 2u) << "its entry, and a group without route";
    EXPECT_GE(broken(law, one.host_index[0], -1), 1u);
    EXPECT_GE(broken(law, one.sdk_index, int(host.sdk_index)), 2u);
    EXPECT_GE(broken(law, standard.sdk_index, 0), 1u) << "outside, and the CPU has not its place";
    EXPECT_GE(broken(law, changeable(dpm_api_get_vpws_acif_first()).flags, 2), 1u);
    EXPECT_GE(broken(law, changeable(dpm_api_get_vpls_vsi_first()).flags, 2), 3u) << "all of it";
    EXPECT_GE(broken(law, changeable(dpm_api_get_vpls_acif_first()).flags, 2), 2u);
    EXPECT_GE(broken(law, changeable(dpm_api_get_vpls_vc_ilm_first()).vc_peer[3], 9), 1u);
    auto &way = changeable(dpm_api_get_vpws_vc_fib_first());
    auto &way_in = changeable(dpm_api_get_vpws_vc_ilm_first());
    EXPECT_GE(broken(law, way.vc_peer[3], 9), 1u) << "no label path";
    EXPECT_GE(broken(law, way_in.flags, 2), 2u) << "and not on its list";
    const auto &users = master().chip.users<chip::kinds::nexthop>();
    EXPECT_EQ(broken(law, changeable(&users.begin()->second), 9), 1u);

    const auto inside = [this] { return rig::laws::routes_follow_hosts(master(), false); };
    EXPECT_EQ(inside(), Lines());
    EXPECT_EQ(broken(inside, many.host_index[1], -1), 1u);
    EXPECT_EQ(broken(inside, one.host_index[0], int(host.sdk_index)), 1u);
    EXPECT_EQ(broken(inside, record_of(one).chip_index, 0), 1u);
    const auto with_leaks = [this] { return rig::laws::chip_equals_tables(master(), allow()); };
    EXPECT_EQ(broken(with_leaks, allow().nexthop_leaks, 1), 1u) << "one that is not there";
    EXPECT_EQ(broken(with_leaks, allow().group_leaks, 1), 1u);
    allow().nexthop_leaks = 1;
    EXPECT_EQ(broken(with_leaks, nexthop.cnt, nexthop.cnt + 1), 0u);
    allow() = {};
}

TEST_F(Laws, TellUnsoundTreesListsAndAnUnexplainedHeap) {
    const auto law = [this] { return rig::laws::tables_are_sound(master()); };
    EXPECT_EQ(law(), Lines());
    dpm_avl_node &root = *g_dpm_global.host_ipv4_tree.root;
    EXPECT_EQ(broken(law, root.balance, 1), 1u);
    EXPECT_EQ(broken(law, root.child[0]->parent, root.child[1]), 1u);
    EXPECT_EQ(broken(law, root.child[0]->child_index, 1), 1u);
    EXPECT_EQ(broken(law, g_dpm_global.host_ipv4_tree.numnodes, 4), 1u);
    auto &first = changeable(dpm_api_get_host_entry_first(DPM_FAMILY_IPV4));
    EXPECT_EQ(broken(law, first.ip.address[3], 200), 1u) << "order";
    EXPECT_EQ(broken(law, g_dpm_global.if_list.prev, &g_dpm_global.if_list), 2u) << "and its count";
    EXPECT_EQ(broken(law, g_dpm_global.hold_count, 1), 1u);
    EXPECT_EQ(broken(law, g_dpm_index.ipv4_routes.of_length[16], 7), 1u);
    EXPECT_EQ(broken(law, route(master(), "10.4.0.0/16")->np[0].address[3], 200), 1u);
    const dpm_ilm *const waiting = dpm_api_ilm_entry_next(dpm_api_ilm_entry_first());
    EXPECT_EQ(broken(law, changeable(waiting).is_egress, 1), 1u);

    void *const block = bep_mallocEx(8, __FILE__, __LINE__);
    EXPECT_FALSE(rig::laws::heap_is_explained(master(), 0, 0).empty());
    ::testing::TestPartResultArray failures;
    {
        ::testing::ScopedFakeTestPartResultReporter reporter(&failures);
        check_laws();
    }
    EXPECT_EQ(failures.size(), 1) << "the block alone is not explained";
    bep_freeEx(block, __FILE__, __LINE__);
}
