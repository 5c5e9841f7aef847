// Virtual bridges: circuits and pseudowires are in the chip exactly while all that they stand on is
// there, on both cards alike, whatever comes or goes in which order and whatever the chip refuses.

#include "chassis/chip/objects.h"
#include "dpm_l2vpn.h"
#include "dpm_vpls.h"
#include "support/rows.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace {

using chassis::chip::Function;
namespace kinds = chassis::chip::kinds;

constexpr std::uint32_t come = DPM_OPER_ADD, go = DPM_OPER_DEL;

class Vpls : public rig::Shelf {
protected:
    using Change = std::function<void(std::uint32_t oper)>;

    Vpls() {
        provide_ports();
        do_command("if add vlanif100 vlan 100");
        do_command("if add vlanif200 vlan 200");
    }
    void provide_ports() {
        for (rig::Card *card : cards())
            card->suite.set_vlan_port(200, 91); // the first trunk
    }
    void do_command(const std::string &command) {
        const ctl::Reply reply = run(command);
        EXPECT_EQ(reply.status, ctl::Status::ok) << command << ": " << reply.text;
    }
    Change command(const std::string &words, const std::string &what) {
        return [=, this](std::uint32_t oper) {
            do_command(words + (oper == come ? " add " : " del ") + what);
        };
    }

    // Requests as the routing suite makes them.
    template <class Message, class Entry>
    int post(int (*ask)(const void *, std::uint32_t), const Entry &entry, std::uint32_t oper) {
        Message message;
        std::memcpy(message.image,
                    reinterpret_cast<const char *>(&entry) + dpm::image_offset<Entry>(),
                    sizeof message.image);
        int result;
        {
            const auto scope = as(master());
            result = ask(&message, oper);
        }
        settle();
        return result;
    }
    int tell(const dpm_vpls_vsi &vsi, std::uint32_t oper) {
        return post<dpm_vpls_vsi_msg>(dpm_api_set_vpls_vsi_proc, vsi, oper);
    }
    int tell(const dpm_vpls_acif &acif, std::uint32_t oper) {
        return post<dpm_vpls_acif_msg>(dpm_api_set_vpls_acif_proc, acif, oper);
    }
    int tell(const dpm_vpls_vc_fib &fib, std::uint32_t oper) {
        return post<dpm_vpls_vc_fib_msg>(dpm_api_set_vpls_vc_fib_proc, fib, oper);
    }
    int tell(const dpm_vpls_vc_ilm &ilm, std::uint32_t oper) {
        return post<dpm_vpls_vc_ilm_msg>(dpm_api_set_vpls_vc_ilm_proc, ilm, oper);
    }
    template <class Entry> Change request(Entry Vpls::*entry) {
        return [=, this](std::uint32_t oper) { EXPECT_EQ(tell(this->*entry, oper), 0); };
    }
    Change bridge() { return request(&Vpls::vsi); }
    Change circuit() { return request(&Vpls::acif); }
    Change way_out() { return request(&Vpls::fib); }
    Change way_in() { return request(&Vpls::ilm); }

    static dpm_vpls_vsi a_bridge(std::uint32_t id = 7) {
        dpm_vpls_vsi vsi = {};
        vsi.vpls_id = id;
        return vsi;
    }
    static dpm_vpls_acif a_circuit() {
        dpm_vpls_acif acif = {};
        acif.vpls_id = 7;
        acif.ifindex = 999; // the name counts
        std::strcpy(acif.ifname, "vlanif200");
        return acif;
    }
    static dpm_vpls_vc_fib a_way_out() {
        dpm_vpls_vc_fib fib = {};
        fib.vpls_id = 7;
        fib.out_label = 5000;
        std::memcpy(fib.vc_peer, "\12\11\0\1", 4); // 10.9.0.1
        std::strcpy(fib.out_ifname, "vlanif100");
        return fib;
    }
    static dpm_vpls_vc_ilm a_way_in() {
        dpm_vpls_vc_ilm ilm = {};
        ilm.vpls_id = 7;
        ilm.in_label = 3000;
        std::memcpy(ilm.vc_peer, "\12\11\0\1", 4);
        std::strcpy(ilm.in_ifname, "vlanif100");
        return ilm;
    }
    dpm_vpls_vsi vsi = a_bridge();
    dpm_vpls_acif acif = a_circuit();
    dpm_vpls_vc_fib fib = a_way_out();
    dpm_vpls_vc_ilm ilm = a_way_in();

    template <class Kind> const auto &chip() { return master().chip.held<Kind>(); }
    unsigned asked(Function function) { return unsigned(master().chip.requests(function)); }
    // Flags of a card's entries, and their results when they are refused.
    std::string state(rig::Card &card) {
        const auto scope = as(card);
        std::string text;
        const auto add = [&](const char *what, std::uint32_t flags, int result, bool waits) {
            text += std::string(text.empty() ? "" : " ") + what + std::to_string(flags) +
                    (result ? "!" : "") + (waits ? "w" : "");
        };
        for (const dpm_vpls_vsi &one : dpm::vpls_vsis())
            add("bridge ", one.flags, one.sdk_result, false);
        for (const dpm_vpls_acif &one : dpm::vpls_acifs())
            add("circuit ", one.flags, one.sdk_result, false);
        for (dpm_vpls_vc_fib &one : dpm::vpls_vc_fibs())
            add("out ", one.flags, one.sdk_result, dpm::is_pending(one));
        for (dpm_vpls_vc_ilm &one : dpm::vpls_vc_ilms())
            add("in ", one.flags, 0, dpm::is_pending(one));
        return text;
    }
    void expect_state(const std::string &wanted) {
        EXPECT_EQ(state(master()), wanted);
        EXPECT_EQ(state(standby()), wanted);
    }
    void tell_all(std::uint32_t oper) {
        for (const Change &part : {way_out(), way_in(), circuit(), bridge()})
            part(oper);
    }
    void all(std::uint32_t oper) {
        command("neigh", "10.1.1.2")(oper);
        command("ftn", "10.9.0.1/32 via 10.1.1.2")(oper);
        tell_all(oper);
    }

    // The first part is the bridge, which does not go while there is something of it: then it goes
    // behind the others.
    void expect_in_chip_while_whole(const std::vector<Change> &parts,
                                    const std::function<std::size_t()> &held) {
        std::vector<unsigned> order(parts.size());
        std::iota(order.begin(), order.end(), 0u);
        do {
            for (const std::uint32_t oper : {come, go})
                for (unsigned done = 0; done < parts.size(); ++done) {
                    parts[order[done]](oper);
                    const bool is_whole =
                        oper == come ? done + 1 == parts.size() : done == 0 && order[0] == 0;
                    ASSERT_EQ(held(), is_whole) << ::testing::PrintToString(order)
                                                << (oper == come ? " come " : " go ") << done;
                    ASSERT_EQ(state(standby()), state(master()));
                }
            parts[0](go);
            ASSERT_EQ(chip<kinds::vpls>().size(), 0u);
        } while (std::next_permutation(order.begin(), order.end()));
        EXPECT_EQ(state(master()), "");
    }
};

} // namespace

TEST_F(Vpls, APseudowireIsInTheChipWhileItsPartsAreThereInWhateverOrderTheyComeAndGo) {
    keep_log(false);
    expect_in_chip_while_whole({bridge(), way_out(), way_in(),
                                command("ftn", "10.9.0.1/32 via 10.1.1.2"),
                                command("neigh", "10.1.1.2")},
                               [&] { return chip<kinds::vpls_pw>().size(); });
}

TEST_F(Vpls, ACircuitIsInTheChipWhileItsPartsAreThereInWhateverOrderTheyComeAndGo) {
    keep_log(false);
    do_command("if del vlanif200");
    expect_in_chip_while_whole({bridge(), circuit(),
                                [&](std::uint32_t oper) {
                                    do_command(oper == come ? "if add vlanif200 vlan 200"
                                                            : "if del vlanif200");
                                }},
                               [&] { return chip<kinds::vpls_ac>().size(); });
}

TEST_F(Vpls, WhatIsToldAnewLeavesTheChipInBetweenAndWhatIsRepeatedDoesNot) {
    all(come);
    expect_state("bridge 1 circuit 1 out 1 in 1");
    tell_all(come);
    EXPECT_EQ(asked(Function::vpls_add), 1u);
    EXPECT_EQ(asked(Function::vpls_ac_entry_add) + asked(Function::vpls_pw_entry_add), 2u);
    fib.out_label = 5001;
    fib.is_spoke = 1;
    way_out()(come);
    ilm.in_label = 3001;
    way_in()(come);
    do_command("neigh add 10.1.1.3 port 3");
    do_command("ftn add 10.9.0.1/32 via 10.1.1.3");
    do_command("neigh del 10.1.1.2"); // over the other path
    const auto [peer, pw] = *chip<kinds::vpls_pw>().begin();
    EXPECT_EQ(pw.wire.out_label, 5001u);
    EXPECT_EQ(pw.wire.in_label, 3001u);
    EXPECT_EQ(pw.is_spoke, 1u);
    EXPECT_EQ(asked(Function::vpls_pw_entry_add), 4u);
    EXPECT_EQ(tell(a_bridge(8), come), 0);
    acif.vpls_id = 8;
    acif.svlan_id = 20;
    circuit()(come);
    EXPECT_EQ(chip<kinds::vpls_ac>().begin()->second.vpls_id, 8u);
    EXPECT_EQ(chip<kinds::vpls_ac>().begin()->first.svlan, 20u);
    for (rig::Card *card : cards())
        card->suite.set_vlan_port(200, 5);
    EXPECT_EQ(master().hal.trunk_member(0, 1, 3, 0), 0);
    settle();
    EXPECT_EQ(chip<kinds::vpls_ac>().begin()->first.port, 5u);
    EXPECT_EQ(asked(Function::vpls_ac_entry_del), 2u);
    do_command("card slot-up 3"); // programmed again: what the chip has
    EXPECT_EQ(asked(Function::vpls_add), 4u);
    EXPECT_EQ(asked(Function::vpls_ac_entry_add) + asked(Function::vpls_pw_entry_add), 9u);
    switch_over();
    EXPECT_EQ(asked(Function::vpls_ac_entry_add) + asked(Function::vpls_pw_entry_add), 0u);
    standby_connects();
    expect_state("bridge 1 bridge 1 circuit 1 out 1 in 1");
    do_command("ftn del 10.9.0.1/32 via 10.1.1.3");
    expect_state("bridge 1 bridge 1 circuit 1 out 2w in 2w");
    do_command("neigh add 10.1.1.2");
    all(go);
    EXPECT_EQ(tell(a_bridge(8), go), 0);
    expect_state("");
}

TEST_F(Vpls, WhatTheChipRefusesStaysAndIsAskedForAgain) {
    refuse(Function::vpls_add);
    bridge()(come);
    expect_state("bridge 2!");
    switch_over();
    EXPECT_EQ(state(master()), "bridge 1") << "a new master asks";
    standby_connects();
    bridge()(go);
    refuse(Function::vpls_add, 2, -5);
    bridge()(come);
    circuit()(come);
    expect_state("bridge 2! circuit 2");
    refuse(Function::vpls_ac_entry_add, 2); // with its bridge, and told again
    refuse(Function::vpls_pw_entry_add);
    all(come);
    expect_state("bridge 1 circuit 2! out 2!w in 2w");
    tell_all(come);
    expect_state("bridge 1 circuit 1 out 1 in 1");
    refuse(Function::vpls_ac_entry_del);
    refuse(Function::vpls_pw_entry_del, 2);
    circuit()(go);
    way_out()(go);
    ilm.in_label = 4000;
    way_in()(come);
    expect_state("bridge 1 circuit 1! out 1! in 1");
    EXPECT_EQ(chip<kinds::vpls_pw>().begin()->second.wire.in_label, 3000u);
    ilm.in_label = 3000;
    tell_all(come);
    expect_state("bridge 1 circuit 1 out 1 in 1");
    EXPECT_EQ(tell(a_bridge(8), come), 0);
    refuse(Function::vpls_del);
    EXPECT_EQ(tell(a_bridge(8), go), 0);
    EXPECT_EQ(chip<kinds::vpls>().size(), 2u);
    EXPECT_EQ(tell(a_bridge(8), go), 0);
    all(go);
    expect_state("");
}

TEST_F(Vpls, BadRequestsAreToldInTheLogAndChangeNothing) {
    all(come);
    auto no_label = a_way_out(), no_peer = a_way_out(), long_peer = a_way_out();
    no_label.out_label = 1 << 20;
    std::memset(no_peer.vc_peer, 0, sizeof no_peer.vc_peer);
    long_peer.vc_peer[15] = 1;
    auto no_in_label = a_way_in(), other_way = a_way_in();
    no_in_label.in_label = ~0u;
    other_way.vpls_id = 8;
    auto nameless = a_circuit(), other_circuit = a_circuit();
    nameless.ifname[0] = '\0';
    std::strcpy(other_circuit.ifname, "vlanif100");
    auto other_out = a_way_out();
    other_out.vpls_id = 8;
    const struct {
        const char *told;
        std::function<int()> request;
    } rows[] = {
        {"vpls_id = 0 is err!", [&] { return tell(a_bridge(0), come); }},
        {"vpls_id = 65536 is err!", [&] { return tell(a_bridge(65536), come); }},
        {"vpls_id = 8, can not find", [&] { return tell(a_bridge(8), go); }},
        {"vpls_id = 7 has circuits", [&] { return tell(vsi, go); }},
        {"can not find the interface", [&] { return tell(nameless, come); }},
        {"can not find same entry", [&] { return tell(other_circuit, go); }},
        {"out_label 1048576 vc_peer 10.9.0.1 is err!", [&] { return tell(no_label, come); }},
        {"vc_peer 0.0.0.0 is err!", [&] { return tell(no_peer, come); }},
        {"is err!", [&] { return tell(long_peer, come); }},
        {"in_label -1 vc_peer", [&] { return tell(no_in_label, come); }},
        {"vpls_id = 8, can not find", [&] { return tell(other_out, go); }},
        {"vpls_id = 8, can not find", [&] { return tell(other_way, go); }},
    };
    for (const auto &[told, request] : rows) {
        SCOPED_TRACE(told);
        clear_journal();
        EXPECT_EQ(request(), 0) << "it was posted";
        EXPECT_EQ(logged(master(), told), 1u);
        EXPECT_EQ(chip_calls(master()).size(), 0u);
        expect_state("bridge 1 circuit 1 out 1 in 1");
    }
    EXPECT_EQ(tell(vsi, 3), -1);
    EXPECT_EQ(dpm_api_set_vpls_vsi_proc(nullptr, come), -1);
    all(go);
}
