// The chip model: what it calls a mistake, whose slots answer, and changes that are none.

#include "chassis/chassis.h"
#include "chassis/chip/changes_file.h"
#include "chassis/chip/objects.h"
#include "chassis/chip/trace.h"
#include "platform/dal.h"
#include "platform/hal.h"

#include <functional>
#include <gtest/gtest.h>

using namespace chassis;
using namespace chassis::chip;

namespace {

constexpr std::uint8_t mac[6] = {2, 0, 0, 0, 1, 2};
constexpr std::uint32_t slot_3 = 1u << 3;

Address entry(std::uint8_t last, std::uint32_t prefix_len = 32) {
    return {0, 1, {10, 1, 1, last}, prefix_len};
}

NextHop nexthop(std::uint8_t last) {
    return {2, 3, 100, 0, {2, 0, 0, 0, 0, last}};
}

int add(std::uint8_t last, unsigned length, std::uint32_t nexthop, std::uint32_t slots = 0) {
    return dal_driver_add_ip_entry(0, 1, entry(last).bytes.data(), length, nexthop, slots);
}

int del(std::uint8_t last, unsigned length, std::uint32_t nexthop) {
    return dal_driver_del_ip_entry(0, 1, entry(last).bytes.data(), length, nexthop, 0);
}

std::uint32_t new_nexthop(std::uint32_t port, std::uint32_t slots = 0) {
    std::uint32_t id = 0;
    return dal_driver_add_ip_nexthop(2, port, &id, 100, 0, mac, slots) == 0 ? id : 0;
}

int new_interface(std::uint16_t vlan) {
    std::uint32_t id = 0;
    return dal_driver_add_l3_intf(mac, vlan, &id, 0);
}

int change_group(std::int32_t group, std::uint32_t operation, std::uint32_t member,
                 std::uint32_t slots = 0) {
    const std::uint32_t members[8] = {member};
    return dal_driver_update_ecmp_nexthop(group, operation, 1, members, slots);
}

std::int32_t new_group() {
    const std::uint32_t none[8] = {};
    std::int32_t group = 0;
    return dal_driver_add_ecmp_nexthop(&group, 0, 0, none, 0) == 0 ? group : 0;
}

class ChipTest : public testing::Test {
protected:
    Card card{{.slot = 9, .mode = os::Mode::pumped}};
    Chip &chip = card.chip;
};

} // namespace

TEST_F(ChipTest, AMistakeIsCountedAndChangesNothing) {
    const std::uint32_t used = new_nexthop(1), member = new_nexthop(2), spare = new_nexthop(3);
    const std::int32_t group = new_group();
    ASSERT_EQ(change_group(group, 1, member), 0);
    ASSERT_EQ(add(2, 32, used), 0);
    ASSERT_EQ(new_interface(100), 0);
    ASSERT_EQ(hal_set_arp_to_cpu(100, 0, 1), 0);
    ASSERT_EQ(dal_driver_add_gre_tunnel(0, mac, mac, 5, 0, 0), 0);
    const auto before = chip.forwarding();
    const struct {
        const char *what;
        std::function<int()> make;
    } mistakes[] = {
        {"adding what is there", [&] { return add(2, 32, used); }},
        {"naming no next hop", [&] { return add(3, 32, 99); }},
        {"a prefix length past the address", [&] { return add(3, 33, used); }},
        {"no such entry", [&] { return del(3, 32, used); }},
        {"the entry has another next hop", [&] { return del(2, 32, spare); }},
        {"a next hop in use by an entry", [&] { return dal_driver_del_ip_nexthop(used, 0); }},
        {"a next hop in use by a group", [&] { return dal_driver_del_ip_nexthop(member, 0); }},
        {"no such next hop", [&] { return dal_driver_del_ip_nexthop(99, 0); }},
        {"no such group", [&] { return change_group(99, 1, member); }},
        {"a member that is no next hop", [&] { return change_group(group, 1, 99); }},
        {"an interface that is there", [&] { return new_interface(100); }},
        {"no such interface", [&] { return dal_driver_delete_l3_intf(mac, 101, 0); }},
        {"a rule that is there", [&] { return hal_set_arp_to_cpu(100, 0, 1); }},
        {"no such rule", [&] { return hal_set_arp_to_cpu(101, 0, 0); }},
        {"a tunnel that is there", [&] { return dal_driver_add_gre_tunnel(0, mac, mac, 5, 0, 0); }},
        {"no such tunnel", [&] { return dal_driver_del_gre_tunnel(0, mac, mac, 6, 0, 0); }},
        {"a slot's entry that is not there", [&] { return add(3, 32, used, slot_3); }},
        {"a slot's next hop that is not there", [&] { return new_nexthop(9, slot_3) ? 0 : -1; }},
        {"a slot's member that is not there", [&] { return change_group(group, 1, used, slot_3); }},
    };
    EXPECT_EQ(change_group(group, 2, spare), -1) << "no member: refused, and no mistake";
    std::uint64_t count = 0;
    for (const auto &mistake : mistakes) {
        EXPECT_EQ(mistake.make(), -1) << mistake.what;
        EXPECT_EQ(chip.mistakes(), ++count) << mistake.what;
    }
    EXPECT_EQ(chip.mistake_lines().size(), count);
    EXPECT_EQ(chip.forwarding(), before);
}

TEST_F(ChipTest, AnEntryOfAGroupThatHasGoneForwardsNowhere) {
    const std::int32_t group = new_group();
    ASSERT_EQ(add(0, 24, std::uint32_t(group)), 0);
    ASSERT_EQ(dal_driver_del_ecmp_nexthop(group, 0), 0);
    const auto answer = chip.lookup(0, 1, entry(9).bytes.data());
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->members.empty());
    EXPECT_EQ(del(0, 24, std::uint32_t(group)), 0);
    EXPECT_EQ(chip.mistakes(), 0u);
}

TEST_F(ChipTest, SlotsThatARequestReachesReportTheirOwnAnswers) {
    std::string logged;
    card.os.log_to([&](const os::LogLine &line) { logged += line.text; });
    chip.answer_slots({2, 3});
    chip.fail_slot(Function::add_ip_entry, 3, -5);
    const std::uint32_t nexthop = new_nexthop(1);
    EXPECT_EQ(add(2, 32, nexthop), 0);
    EXPECT_TRUE(logged.starts_with("dpm_driver_add_ip_entry_result obj_bit 8 result -5 "));
    logged.clear();
    EXPECT_EQ(add(2, 32, nexthop, slot_3), 0) << "a slot fails once";
    chip.fail_slot(Function::add_ip_entry, 2, -5);
    EXPECT_EQ(add(2, 32, nexthop, slot_3), 0) << "the other slot is not asked";
    EXPECT_EQ(logged, "");
}

TEST_F(ChipTest, ANullChipTakesEverythingAndKeepsNothing) {
    chip.set_null(true);
    EXPECT_NE(new_nexthop(4), 0u);
    EXPECT_EQ(add(9, 32, 99), 0);
    EXPECT_TRUE(chip.forwarding().empty());
    EXPECT_EQ(chip.mistakes(), 0u);
}

namespace {

// A path, services over it, and requests that are made of them with something changed.
class ChipL2vpn : public ChipTest {
protected:
    ChipL2vpn() {
        ftn.flag = 1;
        ftn.tunnel_family = 1, ftn.tunnel_prefix_len = 32, ftn.tunnel_address[0] = 9;
        ftn.labels[DAL_FTN_TUNNEL].label = 100, ftn.labels[DAL_FTN_VPN].label = DAL_NO_LABEL;
        ftn.port_type = 2, ftn.port_id = 1, ftn.vlan = 10;
        EXPECT_EQ(dal_driver_mpls_ftn_add(&ftn, &path.nhid, &path.tunnel_id, 0), 0);
        ilm.lookup = 1, ilm.labels[DAL_ILM_TUNNEL_IN].label = 720;
        ilm.labels[DAL_ILM_VPN_IN].label = ilm.labels[DAL_ILM_VPN_OUT].label = DAL_NO_LABEL;
        EXPECT_EQ(add_ilm(720), 0);
        EXPECT_EQ(add_vpws(1, 700, on(3, 100, 7)), 0);
        EXPECT_EQ(add_vpws(2, 701, on(4, 0, 0), {10, 20}, DAL_PW_PRIMARY, &group), 0);
        EXPECT_EQ(add_vpws(3, 702, on(4, 0, 0), {10, 20}, DAL_PW_STANDBY, &group), 0);
        EXPECT_EQ(dal_driver_vpls_add(5, 5, 0), 0);
        EXPECT_EQ(add_ac(3, 200), 0);
        EXPECT_EQ(add_ac(5, 200), 0);
        EXPECT_EQ(add_vpls_pw(1, 710), 0);
        EXPECT_EQ(add_vpls_pw(2, 711), 0);
        EXPECT_EQ(add_vpls_pw(3, 712, true), 0);
    }
    static dal_vpws_ac on(std::uint32_t port, std::uint32_t vlan, std::uint16_t inner) {
        return {.port = port,
                .vlan = vlan,
                .svlan = 0,
                .svlan_tpid = 0,
                .cvlan = inner,
                .action_vlan = 0,
                .vlan_action = 0,
                .match_rule = 0};
    }
    dal_vpws_pw vpws(std::uint32_t vc_id, std::uint32_t label) const {
        return {vc_id, {9}, label, label + 100, path.nhid, path.tunnel_id, 0, 0, 0};
    }
    int add_vpws(std::uint32_t vc_id, std::uint32_t label, const dal_vpws_ac &ac,
                 const std::vector<std::uint16_t> &vlans = {}, std::uint32_t role = 0,
                 Index *aps_id = nullptr, std::uint32_t slots = 0) {
        dal_vpws_pw pw = vpws(vc_id, label);
        Index none = 0;
        pw.is_protected = aps_id != nullptr;
        if (aps_id == nullptr)
            aps_id = &none;
        return dal_driver_vpws_entry_add_test(&ac, &pw, &index, &index, aps_id, role, vlans.data(),
                                              std::uint32_t(vlans.size()), slots);
    }
    int update_vpws(std::uint32_t vc_id, std::uint32_t label, const dal_vpws_ac &ac) {
        const dal_vpws_pw pw = vpws(vc_id, label);
        return dal_driver_vpws_entry_update(&ac, &pw, &index, &index, 0, 0);
    }
    int del_vpws(std::uint32_t vc_id) {
        const dal_vpws_pw pw = vpws(vc_id, 0);
        return dal_driver_vpws_entry_del(&pw, 0, 0);
    }
    int add_ilm(std::uint32_t label) {
        ilm.labels[DAL_ILM_TUNNEL_IN].label = label;
        return dal_driver_mpls_ilm_add(&ilm, &index, &index, 0);
    }
    int add_ac(std::uint32_t port, std::uint32_t vlan, std::uint32_t vpls_id = 5) {
        const dal_vpls_ac ac{vpls_id, port, vlan, 0, 0, 0, 0, 0};
        return dal_driver_vpls_ac_entry_add(&ac, &index, &index, 0);
    }
    int del_ac(std::uint32_t port, std::uint32_t vlan, std::uint32_t vpls_id = 5) {
        const dal_vpls_ac ac{vpls_id, port, vlan, 0, 0, 0, 0, 0};
        return dal_driver_vpls_ac_entry_del(&ac, 0);
    }
    dal_vpls_pw vpls_pw(std::uint8_t peer, std::uint32_t label, bool is_spoke) const {
        return {5, {peer}, label, label + 100, path.nhid, path.tunnel_id, 0, 0, is_spoke};
    }
    int add_vpls_pw(std::uint8_t peer, std::uint32_t label, bool is_spoke = false) {
        const dal_vpls_pw pw = vpls_pw(peer, label, is_spoke);
        return dal_driver_vpls_pw_entry_add(&pw, &index, &index, 0);
    }
    int del_vpls_pw(std::uint8_t peer) {
        const dal_vpls_pw pw = vpls_pw(peer, 0, false);
        return dal_driver_vpls_pw_entry_del(&pw, 0);
    }

    dal_ftn_request ftn{};
    dal_ilm_request ilm{};
    LabelPath path{};
    Index group = 0, index = 0;
};

} // namespace

TEST_F(ChipL2vpn, WhatMustNotBeIsAMistakeAndWhatIsTakenIsRefused) {
    const auto before = chip.forwarding();
    const LabelPath right = path;
    Index no_group = 99;
    const struct {
        const char *what;
        int code; // -1: a mistake
        std::function<int()> make;
    } requests[] = {
        {"a pseudowire that is there", -1, [&] { return add_vpws(1, 709, on(9, 1, 0)); }},
        {"update of none", -1, [&] { return update_vpws(9, 709, on(9, 1, 0)); }},
        {"delete of none", -1, [&] { return del_vpws(9); }},
        {"no such path", -1, [&] { return path.tunnel_id = 9, add_vpws(9, 709, on(9, 1, 0)); }},
        {"a path in use", -1, [&] { return dal_driver_mpls_ftn_del(&ftn, 0); }},
        {"no such group", -1, [&] { return add_vpws(9, 709, on(9, 1, 0), {}, 0, &no_group); }},
        {"switch of none", -1, [&] { return dal_driver_pw_group_switch(99, 1, 0); }},
        {"a slot's that is another", -1,
         [&] { return add_vpws(1, 700, on(3, 100, 8), {}, 0, nullptr, slot_3); }},
        {"no such vpls", -1, [&] { return add_ac(9, 1, 6); }},
        {"a vpls in use", -1, [&] { return dal_driver_vpls_del(5, 0); }},
        {"a vpls pseudowire that is there", -1, [&] { return add_vpls_pw(1, 719); }},
        {"another vpls' circuit", -1, [&] { return del_ac(3, 200, 6); }},
        {"a long label", -22, [&] { return add_vpws(9, 1 << 20, on(9, 1, 0)); }},
        {"a VLAN that is none", -22, [&] { return add_vpws(9, 709, on(9, 1, 0), {4096}); }},
        {"a third in the group", -17,
         [&] { return add_vpws(9, 709, on(4, 0, 0), {10}, DAL_PW_STANDBY, &group); }},
        {"a label of labels", -17, [&] { return add_vpws(9, 720, on(9, 1, 0)); }},
        {"a label of a pseudowire", -17, [&] { return add_vpls_pw(9, 700); }},
        {"a label of a vpls", -17, [&] { return update_vpws(1, 710, on(3, 100, 7)); }},
        {"a label of either", -17, [&] { return add_ilm(701); }},
        {"frames with this inner tag", -17, [&] { return add_vpws(9, 709, on(3, 100, 0)); }},
        {"frames of a list", -17, [&] { return update_vpws(1, 700, on(4, 20, 7)); }},
        {"a list with such frames", -17,
         [&] {
             return add_vpws(9, 709, on(3, 0, 0), {5, 200});
         }},
        {"frames of a circuit", -17, [&] { return add_ac(4, 10); }},
        {"the same circuit", -17, [&] { return add_ac(3, 200); }},
    };
    std::uint64_t mistakes = 0;
    for (const auto &[what, code, make] : requests) {
        EXPECT_EQ(make(), code) << what;
        EXPECT_EQ(chip.mistakes(), mistakes += code == -1) << what;
        EXPECT_EQ(chip.forwarding(), before) << what;
        path = right;
    }
}

TEST_F(ChipL2vpn, LineCardsHaveAllThatChangesUntilItIsGone) {
    Chip line_cards;
    for (const Change &change : chip.forwarding())
        EXPECT_TRUE(line_cards.apply(change));
    EXPECT_EQ(line_cards.new_index(), chip.new_index()) << "none is handed out twice";
    chip.observe([&](const Change &change) { EXPECT_TRUE(line_cards.apply(change)); });
    const Vpws old = chip.held<kinds::vpws>().at({2, {9}});
    EXPECT_EQ(update_vpws(2, 703, on(6, 0, 0)), 0);
    const Vpws now = chip.held<kinds::vpws>().at({2, {9}});
    EXPECT_EQ(now.wire.in_label, 703u);
    EXPECT_EQ(std::tie(now.pw_nhid, now.aps_id, now.vlans),
              std::tie(old.pw_nhid, old.aps_id, old.vlans));
    EXPECT_EQ(add_vpws(2, 703, on(6, 0, 0), {10, 20}, 0, &group, slot_3), 0);
    EXPECT_EQ(dal_driver_pw_group_switch(group, 1, 0), 0);
    EXPECT_EQ(line_cards.forwarding(), chip.forwarding());
    EXPECT_EQ(del_vpws(1) | del_vpws(2), 0);
    EXPECT_EQ(chip.held<kinds::pw_group>().at(group), 1u) << "of the one that is left";
    EXPECT_EQ(del_vpws(3), 0);
    EXPECT_TRUE(chip.held<kinds::pw_group>().empty());
    EXPECT_EQ(del_vpls_pw(1) | del_vpls_pw(2) | del_vpls_pw(3), 0);
    EXPECT_EQ(del_ac(3, 200) | del_ac(5, 200) | dal_driver_vpls_del(5, 0), 0);
    EXPECT_EQ(dal_driver_mpls_ftn_del(&ftn, 0), 0);
    EXPECT_EQ(add_ilm(700), 0) << "its label is free";
    EXPECT_EQ(line_cards.forwarding(), chip.forwarding());
    EXPECT_EQ(chip.mistakes(), 0u);
}

namespace {

using Lines = std::vector<std::string>;

constexpr MacBytes a{2, 0, 0, 0, 0, 10}, b{2, 0, 0, 0, 0, 11}, c{2, 0, 0, 0, 0, 12},
    all{255, 255, 255, 255, 255, 255};

class ChipFrames : public ChipL2vpn {
protected:
    Lines on_port(std::uint32_t port, std::uint32_t outer, std::uint32_t inner,
                  const MacBytes &from = a, const MacBytes &to = b) {
        Packet packet{0, std::nullopt, {64, 0}, {}, port};
        packet.frame = {from, to, outer, inner};
        return trace(chip, packet);
    }
    Lines behind(std::vector<Label> labels, const MacBytes &from = a, const MacBytes &to = b) {
        Packet packet{0, std::nullopt, {64, 0}, std::move(labels)};
        packet.frame = {from, to, 0, 0};
        return trace(chip, packet);
    }
    static Label label(std::uint32_t number) { return {{255, 0}, number}; }
};

std::ptrdiff_t copies(const Lines &lines) {
    return std::ranges::count_if(
        lines, [](const std::string &line) { return line.find("out of port") != line.npos; });
}

} // namespace

TEST_F(ChipFrames, GoOverThePseudowireOfTheirCircuitAndComeBack) {
    EXPECT_EQ(on_port(3, 100, 7),
              (Lines{"vc 1 peer 9.0.0.0: push 800 ttl 255 exp 0",
                     "label entry vrf 0 9.0.0.0/32: push 100 ttl 0 exp 0",
                     "out of port 1 vlan 10 to 00:00:00:00:00:00 with label 100 ttl 0 exp 0, label "
                     "800 ttl 255 exp 0, frame from 02:00:00:00:00:0a to 02:00:00:00:00:0b vlan "
                     "100 inner 7"}));
    EXPECT_EQ(on_port(3, 100, 8), Lines{"no circuit takes it"});
    EXPECT_EQ(on_port(4, 20, 9)[1], "vc 2 peer 9.0.0.0: push 801 ttl 255 exp 0");
    EXPECT_EQ(dal_driver_pw_group_switch(group, 1, 0), 0);
    EXPECT_EQ(on_port(4, 20, 9)[1], "vc 3 peer 9.0.0.0: push 802 ttl 255 exp 0");
    EXPECT_EQ(del_vpws(3), 0);
    EXPECT_EQ(on_port(4, 20, 9).size(), 1u) << "dropped";
    EXPECT_EQ(behind({label(700), label(720)}),
              (Lines{"incoming label 720: pop, look up in vrf 0",
                     "incoming label 700: pop, of vc 1 peer 9.0.0.0",
                     "out of port 3 with frame from 02:00:00:00:00:0a to 02:00:00:00:00:0b vlan "
                     "100 inner 7"}));
    EXPECT_EQ(behind({label(720)}).size(), 2u) << "dropped";
    EXPECT_EQ(trace(chip, {0, std::nullopt, {64, 0}, {label(701)}}).back(),
              "out of port 4 with what is behind");
}

TEST_F(ChipFrames, AreFloodedUntilTheirAddressIsLearntButNotBackIntoTheMesh) {
    EXPECT_EQ(copies(on_port(3, 200, 0, a, b)), 4) << "but where it came from";
    EXPECT_EQ(behind({label(711)}, b, a),
              (Lines{"incoming label 711: pop, of vpls 5 peer 2.0.0.0",
                     "vpls 5: 02:00:00:00:00:0b is behind pseudowire to 2.0.0.0",
                     "vpls 5: 02:00:00:00:00:0a is behind circuit port 3 vlan 200",
                     "out of port 3 with frame from 02:00:00:00:00:0b to 02:00:00:00:00:0a vlan "
                     "200"}));
    EXPECT_EQ(on_port(5, 200, 0, a, b)[2], "pseudowire to 2.0.0.0: push 811 ttl 255 exp 0");
    EXPECT_EQ(behind({label(710)}, c, a).back().substr(0, 13), "out of port 5") << "it moved";
    EXPECT_EQ(copies(behind({label(710)}, c, b)), 0) << "b is behind the mesh, too";
    EXPECT_EQ(copies(behind({label(710)}, c, all)), 3) << "circuits and the spoke";
    EXPECT_EQ(copies(behind({label(712)}, c, all)), 4) << "circuits and the mesh";
    EXPECT_EQ(on_port(3, 200, 0, a, c)[2], "pseudowire to 3.0.0.0: push 812 ttl 255 exp 0");
    EXPECT_EQ(chip.learning.all().size(), 3u);
    EXPECT_EQ(del_vpls_pw(2) | del_ac(3, 200), 0);
    EXPECT_EQ(chip.learning.all().size(), 1u) << "c is left";
    EXPECT_EQ(copies(on_port(5, 200, 0, a, b)), 2);
    for (std::uint32_t number = 0; number < Learning::max_addresses; number++)
        chip.learning.learn({6, {2, 1, 0, 0, std::uint8_t(number >> 8), std::uint8_t(number)}}, 1);
    EXPECT_EQ(chip.learning.all().size(), Learning::max_addresses);
    EXPECT_EQ(copies(on_port(5, 200, 0, c, a)), 0) << "what is known moves all the same";
}

// That changes make another chip forward alike is seen at every switch-over of the rig.
TEST(Forwarding, TakesNoHarmFromChangesThatRepeatComeLateOrAreNone) {
    Chip chip;
    const Index index = 40;
    const NextHop what = nexthop(1);
    const Members members{index};
    for (const bool there : {true, true, false, false}) {
        chip.apply(change_of<kinds::nexthop>(index, there ? &what : nullptr));
        chip.apply(change_of<kinds::group>(41, there ? &members : nullptr));
        chip.apply(change_of<kinds::entry>(entry(1), there ? &index : nullptr));
    }
    Change change = change_of<kinds::nexthop>(index, &what);
    for (const unsigned size : {0u, 3u, change.size - 1, change.size + 1, ~0u}) {
        change.size = size;
        EXPECT_FALSE(chip.apply(change)) << size;
    }
    EXPECT_FALSE(chip.apply(change_of<kinds::entry>(entry(1, 65535), &index)));
    change.kind = ~0u;
    EXPECT_FALSE(chip.apply(change));
    EXPECT_TRUE(chip.forwarding().empty());
    chip.apply(change_of<kinds::entry>(entry(1), &index)); // leads nowhere, and stays harmless
    EXPECT_EQ(chip.lookup(0, 1, entry(1).bytes.data())->index, index);
}

TEST(ChangesFile, IsReadWholeOrNotAtAllButForACutLastRecord) {
    const NextHop value = nexthop(2);
    FileBytes file = file_header(7);
    const auto append = [&](const FileBytes &part) {
        file.insert(file.end(), part.begin(), part.end());
    };
    append(file_record(change_of<kinds::nexthop>(16, &value), 1));
    EXPECT_NE(read_changes(file).fault, "") << "the snapshot does not end";
    append(file_end_mark(2));
    const std::size_t snapshot = file.size();
    append(file_record(change_of<kinds::nexthop>(16, nullptr), 3));
    EXPECT_EQ(read_changes(file).term, 7u);
    EXPECT_EQ(read_changes(file).changes.size(), 2u);
    for (std::size_t size = snapshot; size < file.size(); ++size)
        EXPECT_EQ(read_changes(std::span(file).first(size)).changes.size(), 1u) << size;
    for (std::byte &byte : file) {
        byte ^= std::byte{4};
        EXPECT_LE(read_changes(file).changes.size(), 1u) << &byte - file.data();
        EXPECT_TRUE(&byte >= &file[snapshot] || !read_changes(file).fault.empty());
        byte ^= std::byte{4};
    }
}
