// ECMP groups: the record, the chip's group and the standby's copy through every change and
// refusal.  The groups here are the test's own: no route points to them.

#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "support/rows.h"

namespace {

// "group add|del|end IP [INDEX]": the host's next hop into the one group that there is, or into
// that of the index; out of it; or the whole group goes.  Answers the caller's index behind it, and
// the record's slots, "-" for a free one.
int change_group(const std::string &deed, const dpm_prefix &ip, std::uint32_t nexthop,
                 std::int32_t &index) {
    return deed == "add"   ? dpm_ecmp_add(ip.family, &index, nexthop)
           : deed == "del" ? dpm_ecmp_del(ip.family, &index, nexthop)
                           : dpm_ecmp_del_all(ip.family, &index);
}
void group(rig::RowShelf &shelf, const rig::Words &words) {
    auto groups = shelf.groups(shelf.master());
    std::int32_t index = groups.empty() ? 0 : groups[0].sdk_index;
    if (words.size() > 3)
        index = std::stoi(words[3]);
    const dpm_prefix ip = rig::prefix_of(words[2]);
    const auto ifindex = shelf.master().suite.find("vlanif100")->ifindex;
    const auto nexthop = dpm_host_get_index_by_ip(0, ifindex, &ip);
    std::string text = change_group(words[1], ip, nexthop, index) == 0 ? "" : "refused ";
    text += shelf.journal.name_of(std::uint32_t(index));
    groups = shelf.groups(shelf.master());
    for (std::size_t slot = 0; !groups.empty() && slot < 8; ++slot) {
        const std::uint32_t member = groups[0].host_sdk[slot];
        text += member ? " " + shelf.journal.name_of(member) : " -";
    }
    shelf.answer(text.substr(0, text.find_last_not_of(" -") + 1));
    shelf.allow().group_leaks = unsigned(groups.size());
}
const rig::Verb verb{"group", group};

} // namespace

ROWS(Groups, TheFirstMemberMakesOneAndTheLastEndsIt, .see = "chip mirror"){
    {"each {a} {b} {c} {d} {e} do neigh add *"},
    {"group add {a}", "group+ g1; member+ g1 n1; mirror ecmp+ g1; = g1 n1"},
    {"group add {b}", "member+ g1 n2; mirror ecmp+ g1; = g1 n1 n2"},
    {"group add {c}", "member+ g1 n3; mirror ecmp+ g1; = g1 n1 n2 n3"},
    {"group del {b}", "member- g1 n2; mirror ecmp+ g1; = g1 n1 - n3"},
    {"group add {d}", "member+ g1 n4; mirror ecmp+ g1; = g1 n1 n4 n3"}, // the first free slot
    {"group del {e}",
     "member- g1 n5 -> -1; mirror ecmp+ g1; = g1 n1 n4 n3"}, // that is not recorded
    {"group del {a}", "member- g1 n1; mirror ecmp+ g1; = g1 - n4 n3"},
    {"group del {d}", "member- g1 n4; mirror ecmp+ g1; = g1 - - n3"},
    {"group del {c}", "member- g1 n3; group- g1; mirror ecmp- g1; = 0"},
};

ROWS(Groups, ANinthMemberIsInTheChipAloneAndGoesWithItsGroup, .see = "chip"){
    {"each {a} {b} {c} {d} {e} {f} {g} {h} {i} do neigh add *"},
    {"each {a} {b} {c} {d} {e} {f} {g} do group add *"},
    {"group add {h}", "member+ g1 n8; = g1 n1 n2 n3 n4 n5 n6 n7 n8"},
    {"allow chip-differs"},
    {"group add {i}", "member+ g1 n9; = g1 n1 n2 n3 n4 n5 n6 n7 n8"},
    {"group end {a}",
     "member- g1 n1; member- g1 n2; member- g1 n3; member- g1 n4; member- g1 n5; member- g1 n6; "
     "member- g1 n7; member- g1 n8; group- g1; = 0"},
    {"allow chip-differs 0"},
};

ROWS(Groups, WhatTheChipRefusesLeavesTheRecordAsItWas, .roles = rig::with_standby,
     .see = "chip mirror log/dpm_ecmp_"){
    {"each {a} {b} {c} do neigh add *"},
    {"chip refuse group 1"}, // the caller waits
    {"group add {a}", "group+ 0 -> -1; log10 dpm_ecmp_add #::driver create ecmp failed!\r\n; = 0"},
    {"fault alloc 1"},
    {"group add {a}", "group+ g1; group- g1; = refused 0"},
    {"chip refuse group-member 1"}, // a group without member
    {"group add {a}", "group+ g2; member+ g2 n1 -> -1; "
                      "log10 dpm_ecmp_add #::sdk_index g2 host_cnt 0 ...; mirror ecmp+ g2; = g2"},
    {"group add {b}", "member+ g2 n2; log10 dpm_ecmp_add #::sdk_index g2 host_cnt 1 ...; "
                      "mirror ecmp+ g2; = g2 n2"},
    {"chip refuse group-member 1"},
    {"group add {c}", "member+ g2 n3 -> -1; log10 dpm_ecmp_add #::sdk_index g2 host_cnt 1 ...; "
                      "mirror ecmp+ g2; = g2 n2"},
    {"chip refuse group-member 1"},
    {"group del {b}", "log10 dpm_ecmp_del #::...; member- g2 n2 -> -1; mirror ecmp+ g2; = g2 n2"},
    {"chip refuse group-member 1"},
    {"group end {b}",
     "log10 dpm_ecmp_del_all #::ecmp_type ...; member- g2 n2 -> -1; "
     "log13 dpm_ecmp_del_all #:: driver_ecmp_del failed! ...; group- g2; mirror ecmp- g2; = 0"},
    {"group add {a} 4711",
     "log10 dpm_ecmp_add #::sdk_index = 4711, can not find same ecmp_entry!\r\n; = refused 4711"},
    {"group del {a} 4711", "log10 dpm_ecmp_del #::sdk_index = 4711, can not find same ecmp_entry "
                           "in ecmp_tree!\r\n; = refused 4711"},
    {"group end {a} 4711", "log10 dpm_ecmp_del_all #::sdk_index = 4711, can not find same "
                           "ecmp_entry.\r\n; = refused 4711"},
};

namespace {

class GroupRecords : public rig::Shelf {
protected:
    void SetUp() override {
        run("if add vlanif100");
        run("neigh add 10.1.1.2");
        nexthop = hosts(master())[0].sdk_index;
        clear_journal();
    }
    std::uint32_t nexthop = 0;
};

} // namespace

TEST_F(GroupRecords, OfBothFamiliesTogetherThereAre1024) {
    std::vector<std::int32_t> indexes(1024);
    for (unsigned i = 0; i < 1024; ++i)
        ASSERT_EQ(dpm_ecmp_add(1 + i % 2, &indexes[i], nexthop), 0);
    for (const std::uint32_t family : {1u, 2u}) {
        std::int32_t one_more = 0;
        EXPECT_EQ(dpm_ecmp_add(family, &one_more, nexthop), -1);
        EXPECT_EQ(one_more, 0);
        EXPECT_EQ(dpm_ecmp_add(family, &indexes[family - 1], 2), 0)
            << "a present one takes members";
    }
    EXPECT_EQ(logged(master(), "ecmp entry is full!!!"), 2u);
    settle();
    EXPECT_EQ(groups(standby()).size(), 1024u);
    for (unsigned i = 0; i < 1024; ++i)
        ASSERT_EQ(dpm_ecmp_del_all(1 + i % 2, &indexes[i]), 0);
}

TEST_F(GroupRecords, OfAnUnknownFamilyChangeNothing) {
    for (const std::uint32_t family : {0u, 3u}) {
        std::int32_t index = 0;
        const dpm_ecmp_entry key{};
        rig::expect_all(0, {dpm_ecmp_add(family, &index, nexthop),
                            dpm_ecmp_del(family, &index, nexthop), dpm_ecmp_del_all(family, &index),
                            index, dpm_ecmp_find_by_entry(family, &key) != nullptr,
                            dpm_api_get_ecmp_entry_first(family) != nullptr});
    }
    EXPECT_EQ(logged(master(), "::ecmp_type = "), 6u) << "del_all in silence";
    EXPECT_EQ(logged(master(), "::iptype = "), 2u);
    EXPECT_EQ(dpm_ecmp_compare(nullptr, nullptr), -1);
    EXPECT_TRUE(chip_calls(master()).empty());
}
