// Point-to-point pseudowires: in the chip exactly while all that they are made of is there, on both
// cards alike, whatever comes or goes in which order, and whatever the chip refuses.

#include "dpm_l2vpn.h"
#include "dpm_locks.h"
#include "dpm_vpws.h"
#include "support/rows.h"

#include <algorithm>
#include <numeric>

namespace {

using chassis::chip::Function;

constexpr const char *peer = "10.9.0.1";

template <class Request, class Entry> Request request_of(const Entry &entry) {
    Request request;
    std::memcpy(request.image, reinterpret_cast<const char *>(&entry) + dpm::image_offset<Entry>(),
                sizeof request.image);
    return request;
}

class Vpws : public rig::Shelf {
protected:
    Vpws() {
        for (rig::Card *card : cards())
            card->suite.set_vlan_port(200, 5);
        for (const char *command :
             {"if add vlanif100", "addr add 10.1.1.1/24 dev vlanif100", "if add vlanif200"})
            expect_ok(command);
    }

    void expect_ok(const std::string &command) {
        EXPECT_EQ(run(command).status, ctl::Status::ok) << command;
    }

    // Requests as the routing suite makes them.
    int circuit(std::uint32_t oper, std::uint32_t vc = 7, const char *name = "vlanif200") {
        const auto interface = master().suite.find(name);
        dpm_vpws_acif acif = {};
        acif.vc_id = vc;
        acif.ifindex = interface ? interface->ifindex : 999;
        std::strcpy(acif.ifname, name);
        const auto request = request_of<dpm_vpws_acif_msg>(acif);
        return post([&] { return dpm_api_set_vpws_acif_proc(&request, oper); });
    }
    static dpm_vpws_vc_fib way_out(std::uint32_t vc = 7, const char *to = peer) {
        dpm_vpws_vc_fib fib = {};
        fib.vc_id = vc;
        fib.out_label = 5000 + vc;
        fib.in_label = 3000 + vc;
        std::memcpy(fib.vc_peer, rig::prefix_of(to).address, sizeof fib.vc_peer);
        std::strcpy(fib.in_ifname, "vlanif200");
        std::strcpy(fib.out_ifname, "vlanif100");
        return fib;
    }
    int tell(std::uint32_t oper, const dpm_vpws_vc_fib &fib) {
        const auto request = request_of<dpm_vpws_vc_fib_msg>(fib);
        return post([&] { return dpm_api_set_vpws_vc_fib_proc(&request, oper); });
    }
    static dpm_vpws_vc_ilm way_in(std::uint32_t vc = 7, const char *from = peer) {
        dpm_vpws_vc_ilm ilm = {};
        ilm.vpn_id = vc;
        ilm.in_label = 3000 + vc;
        std::memcpy(ilm.vc_peer, rig::prefix_of(from).address, sizeof ilm.vc_peer);
        std::strcpy(ilm.in_ifname, "vlanif100");
        std::strcpy(ilm.out_ifname, "vlanif200");
        return ilm;
    }
    int tell(std::uint32_t oper, const dpm_vpws_vc_ilm &ilm) {
        const auto request = request_of<dpm_vpws_vc_ilm_msg>(ilm);
        return post([&] { return dpm_api_set_vpws_vc_ilm_proc(&request, oper); });
    }
    template <class Call> int post(Call call) {
        int result;
        {
            const auto scope = as(master());
            result = call();
        }
        settle();
        return result;
    }

    // All that a pseudowire is made of, but its circuit.
    void provide(const char *to, const char *neighbour, std::uint32_t vc) {
        expect_ok(std::string("neigh add ") + neighbour);
        expect_ok(std::string("ftn add ") + to + "/32 via " + neighbour);
        EXPECT_EQ(tell(DPM_OPER_ADD, way_in(vc, to)), 0);
    }
    std::vector<dpm_vpws_vc_fib> ways_out(rig::Card &card) {
        const auto scope = as(card);
        std::vector<dpm_vpws_vc_fib> all;
        for (const dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs())
            all.push_back(fib);
        return all;
    }
    unsigned asked(Function function) { return unsigned(master().chip.requests(function)); }

    // How many pseudowires the chip was given and not taken; flags of the first on a card.
    unsigned in_chip() { return asked(Function::vpws_entry_add) - asked(Function::vpws_entry_del); }
    std::string flags(rig::Card &card) {
        const auto scope = as(card);
        std::string text;
        for (const dpm_vpws_acif &acif : dpm::vpws_acifs())
            text += " circuit " + std::to_string(acif.flags);
        for (const dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs())
            text += " out " + std::to_string(fib.flags);
        for (const dpm_vpws_vc_ilm &ilm : dpm::vpws_vc_ilms())
            text += " in " + std::to_string(ilm.flags);
        return text;
    }
};

TEST_F(Vpws, IsInTheChipWhileItsFivePartsAreThereInWhateverOrderTheyComeAndGo) {
    keep_log(false);
    const std::function<void(std::uint32_t)> parts[] = {
        [&](std::uint32_t oper) { EXPECT_EQ(circuit(oper), 0); },
        [&](std::uint32_t oper) { EXPECT_EQ(tell(oper, way_out()), 0); },
        [&](std::uint32_t oper) { EXPECT_EQ(tell(oper, way_in()), 0); },
        [&](std::uint32_t oper) {
            expect_ok(oper == DPM_OPER_ADD ? "ftn add 10.9.0.1/32 via 10.1.1.2"
                                           : "ftn del 10.9.0.1/32 via 10.1.1.2");
        },
        [&](std::uint32_t oper) {
            expect_ok(oper == DPM_OPER_ADD ? "neigh add 10.1.1.2" : "neigh del 10.1.1.2");
        }};
    unsigned order[std::size(parts)];
    std::iota(std::begin(order), std::end(order), 0u);
    do {
        for (const std::uint32_t oper : {DPM_OPER_ADD, DPM_OPER_DEL})
            for (unsigned done = 0; done < std::size(parts); ++done) {
                parts[order[done]](oper);
                const bool is_whole = oper == DPM_OPER_ADD && done + 1 == std::size(parts);
                ASSERT_EQ(in_chip(), is_whole)
                    << ::testing::PrintToString(order) << (oper == DPM_OPER_ADD ? " come " : " go ")
                    << done;
                ASSERT_EQ(flags(master()).find('1') != std::string::npos, is_whole);
                ASSERT_EQ(flags(standby()), flags(master()));
            }
    } while (std::next_permutation(std::begin(order), std::end(order)));
}

TEST_F(Vpws, APairOfOneCircuitSharesAGroupThatIsSwitchedAndOutlivesTheMaster) {
    constexpr const char *other_peer = "10.9.0.2";
    auto primary = way_out(7), standby_one = way_out(8, other_peer);
    primary.sibling_vc_id = 8;
    std::memcpy(primary.sibling_vc_peer, standby_one.vc_peer, 4);
    standby_one.vc_role = DPM_VC_STANDBY;
    standby_one.sibling_vc_id = 7;
    std::memcpy(standby_one.sibling_vc_peer, primary.vc_peer, 4);
    EXPECT_EQ(tell(DPM_OPER_ADD, standby_one), 0);
    EXPECT_EQ(tell(DPM_OPER_ADD, primary), 0);
    EXPECT_EQ(circuit(DPM_OPER_ADD), 0);
    provide(peer, "10.1.1.2", 7);
    provide(other_peer, "10.1.1.3", 8);
    ASSERT_EQ(in_chip(), 2u);
    const std::uint32_t group = ways_out(master())[0].aps_id;
    EXPECT_NE(group, 0u);
    const auto switches = [&](std::uint32_t to, std::uint32_t use_standby) {
        const dpm_pw_switch_msg message = {to, use_standby};
        return post([&] { return dpm_api_set_pw_redundancy_switch_proc(&message, DPM_OPER_ADD); });
    };
    const auto expect_group = [&](std::uint32_t switched) {
        for (rig::Card *card : cards())
            for (const dpm_vpws_vc_fib &fib : ways_out(*card)) {
                EXPECT_EQ(+fib.aps_id, group);
                EXPECT_EQ(+fib.switched, switched);
            }
    };
    expect_group(0);
    EXPECT_EQ(switches(group, 1), 0);
    expect_group(1);
    EXPECT_EQ(switches(group + 1000, 1), 0);
    EXPECT_EQ(asked(Function::pw_group_switch), 1u) << "of a group that is there alone";
    EXPECT_EQ(logged(master(), "can not find same entry"), 1u);
    expect_ok("neigh del 10.1.1.2");
    EXPECT_EQ(in_chip(), 1u);
    expect_ok("neigh add 10.1.1.2");
    expect_group(1); // it joins the group as it stands
    switch_over();
    EXPECT_EQ(asked(Function::vpws_entry_add) + asked(Function::vpws_entry_del), 0u);
    expect_group(1);
    standby_connects();
    expect_group(1);
    const unsigned before = asked(Function::pw_group_switch);
    EXPECT_EQ(switches(group, 0), 0);
    expect_group(0);
    EXPECT_EQ(asked(Function::pw_group_switch), before + 1);
}

TEST_F(Vpws, ARefusalLeavesWhatTheChipHasAndIsAskedForAgain) {
    provide(peer, "10.1.1.2", 7);
    refuse(Function::vpws_entry_add, 1, -5);
    EXPECT_EQ(circuit(DPM_OPER_ADD), 0);
    EXPECT_EQ(tell(DPM_OPER_ADD, way_out()), 0);
    EXPECT_EQ(ways_out(master())[0].sdk_result, -5);
    EXPECT_EQ(flags(standby()), " circuit 2 out 2 in 2");
    refuse(Function::vpws_entry_add, 1, -5);
    advance(29);
    EXPECT_EQ(tell(DPM_OPER_ADD, way_out()), 0);
    EXPECT_EQ(flags(standby()), " circuit 2 out 2 in 2");
    advance(1);
    EXPECT_EQ(flags(standby()), " circuit 1 out 1 in 1");
    const auto expect_kept = [&](Function function, auto request) {
        refuse(function, 1, -6);
        EXPECT_EQ(request(), 0);
        EXPECT_EQ(flags(standby()), " circuit 1 out 1 in 1");
        EXPECT_EQ(ways_out(standby())[0].out_label, 5007u);
    };
    auto relabelled = way_out();
    relabelled.out_label = 77;
    expect_kept(Function::vpws_entry_update, [&] { return tell(DPM_OPER_ADD, relabelled); });
    expect_kept(Function::vpws_entry_del, [&] { return circuit(DPM_OPER_DEL); });
    expect_kept(Function::vpws_entry_del, [&] { return tell(DPM_OPER_DEL, way_out()); });
    expect_kept(Function::vpws_entry_del, [&] { return tell(DPM_OPER_DEL, way_in()); });
    const unsigned before = asked(Function::vpws_entry_update);
    EXPECT_EQ(tell(DPM_OPER_ADD, way_out()) + tell(DPM_OPER_ADD, way_in()) + circuit(DPM_OPER_ADD),
              0);
    EXPECT_EQ(asked(Function::vpws_entry_update), before) << "told again";
    EXPECT_EQ(tell(DPM_OPER_ADD, relabelled), 0);
    EXPECT_EQ(ways_out(standby())[0].out_label, 77u);
}

TEST_F(Vpws, CircuitsFollowTheirInterfaceOnEachCard) {
    provide(peer, "10.1.1.2", 7);
    EXPECT_EQ(tell(DPM_OPER_ADD, way_out()), 0);
    EXPECT_EQ(circuit(DPM_OPER_ADD, 7, "vlanif300"), 0); // which is not there yet
    EXPECT_EQ(flags(master()), " circuit 2 out 2 in 2");
    expect_ok("if add vlanif300");
    EXPECT_EQ(flags(standby()), " circuit 2 out 2 in 2");
    for (rig::Card *card : cards())
        card->suite.set_vlan_port(300, 6); // without an event
    advance(30);
    EXPECT_EQ(flags(standby()), " circuit 1 out 1 in 1");
    {
        const auto scope = as(standby());
        EXPECT_EQ(dpm::vpws_acifs().first()->ifindex, standby().suite.find("vlanif300")->ifindex);
        EXPECT_EQ(ways_out(standby())[0].ac_ifindex, standby().suite.find("vlanif200")->ifindex);
    }
    EXPECT_EQ(run_on(standby(), "if del vlanif300").status, ctl::Status::ok);
    switch_over(); // to a card that does not know the interface: the traffic goes on
    EXPECT_EQ(flags(master()), " circuit 1 out 1 in 1");
    expect_ok("if add vlanif300");
    master().suite.set_vlan_port(300, 6);
    EXPECT_EQ(flags(master()), " circuit 1 out 1 in 1");
    expect_ok("if del vlanif300");
    EXPECT_EQ(flags(master()), " circuit 2 out 2 in 2");
    EXPECT_EQ(circuit(DPM_OPER_DEL, 7, "vlanif300"), 0); // by its name
    EXPECT_EQ(flags(master()), " out 2 in 2");
}

TEST_F(Vpws, BadRequestsChangeNothing) {
    auto far_label = way_out();
    far_label.out_label = 1 << 20;
    auto far_way_in = way_in();
    far_way_in.in_label = 1 << 20;
    EXPECT_EQ(tell(DPM_OPER_ADD, way_out(7, "0.0.0.0")), 0);
    EXPECT_EQ(tell(DPM_OPER_ADD, way_in(7, "0.0.0.0")), 0);
    EXPECT_EQ(tell(DPM_OPER_ADD, far_label), 0);
    EXPECT_EQ(tell(DPM_OPER_ADD, far_way_in), 0);
    EXPECT_EQ(logged(master(), "is err!"), 4u);
    EXPECT_EQ(circuit(DPM_OPER_ADD, 7, ""), 0); // no name, and an index that is none
    EXPECT_EQ(circuit(DPM_OPER_DEL), 0);
    EXPECT_EQ(tell(DPM_OPER_DEL, way_out()), 0);
    EXPECT_EQ(tell(DPM_OPER_DEL, way_in()), 0);
    EXPECT_EQ(flags(master()) + flags(standby()), "");
    const dpm_pw_switch_msg message = {1, 1};
    EXPECT_EQ(post([&] { return dpm_api_set_pw_redundancy_switch_proc(&message, DPM_OPER_DEL); }),
              -1);
    rig::expect_all(-1, {dpm_api_set_vpws_acif_proc(nullptr, DPM_OPER_ADD),
                         dpm_api_set_vpws_vc_fib_proc(&message, 3)});
}

TEST_F(Vpws, TheFirstPeerOfAPseudowireAnswersAndAMirroredEntryHasItsPlace) {
    auto far = way_out(7, "10.9.0.2"), near = way_out(7, "10.9.0.1");
    far.pw_index = 2;
    near.pw_index = 1;
    EXPECT_EQ(tell(DPM_OPER_ADD, far) + tell(DPM_OPER_ADD, near), 0);
    const auto scope = as(master());
    const dpm::dpm_lock lock;
    EXPECT_EQ(dpm_vpws_get_pwid_by_vcid(7), 1u);
    EXPECT_EQ(dpm_vpws_get_pwid_by_vcid(8), 0u);
    dpm_vpws_vc_fib *entry = dpm_vpws_vc_fib_lookup(near);
    dpm_vpws_vc_fib other = near;
    other.out_ifname[DPM_IFNAME_BYTES - 1] = 'x';
    rig::expect_all(0, {dpm_vpws_vc_fib_same_or_update_compile(entry, &near)});
    rig::expect_all(1, {dpm_vpws_vc_fib_same_or_update_compile(entry, &other)});
    rig::expect_all(-1, {dpm_vpws_vc_fib_same_or_update_compile(entry, nullptr)});
    // An image of the peer card, with links of its own and the flags of one that waits.
    dpm_vpws_vc_fib image = *entry;
    entry = dpm_vpws_vc_fib_add_for_slave(image);
    EXPECT_EQ(dpm_mpls_pend_vpws_vc_fib_lookup(near), entry);
    EXPECT_EQ(+dpm::vpws_vc_fibs().count(), 2u);
    image.flags = DPM_LABEL_PROGRAMMED;
    entry = dpm_vpws_vc_fib_add_for_slave(image);
    EXPECT_EQ(dpm_mpls_pend_vpws_vc_fib_lookup(near), nullptr);
    EXPECT_EQ(dpm_mpls_pend_vpws_vc_fib_add(entry), 0); // as the master has it
    entry->flags = DPM_LABEL_WAITING;
}

} // namespace
