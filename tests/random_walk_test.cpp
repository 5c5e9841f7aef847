// A random walk over everything that can happen to two cards: neighbours of both families, links,
// interfaces, time, refusals of the chip, memory and queues that give out, standby cards that come
// and go, and masters that die.
//
// A model beside the cards knows what each request must lead to, faults included: which hosts there
// are, how many references each next hop has, and what the library leaves behind on purpose.  The
// tables are compared with it and the laws are checked every few steps.

#include "dpm_host.h"
#include "platform/dal.h"
#include "support/walk.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace {

using rig::joined;
using rig::Neighbour;

// What is told to fail once, during one request.
constexpr const char *faults[] = {"alloc", "send", "route", "route-del", "nexthop", "nexthop-del"};
constexpr unsigned first_of_chip = 2;

class Model {
public:
    struct Host {
        Neighbour own;
        bool is_whole; // false: its delete stopped half way
    };
    using Key = std::tuple<unsigned, std::string, unsigned>; // VRF, address, VLAN of an IPv6 host
    using NextHop = std::tuple<std::string, unsigned, unsigned, unsigned>; // MAC, VLANs, port
    std::map<Key, Host> hosts;
    std::map<unsigned, unsigned> vrf_of; // by VLAN, of the interfaces that there are
    std::multiset<NextHop> leaks;        // references without a host, deliberate in the library
    unsigned orphans = 0; // objects of the chip without an entry, which the walk takes away itself

    void arm(const std::string &fault, unsigned nth) { fault_ = fault, nth_ = nth; }
    bool is_refused() { return strikes("alloc") || strikes("send"); }

    Key key_of(const Neighbour &own) const {
        const auto vrf = vrf_of.find(own.vlan);
        return {vrf == vrf_of.end() ? 0 : vrf->second, own.ip, is_ipv6(own) ? own.vlan : 0};
    }
    bool learn(const Neighbour &own) { // whether it is known now
        if (!vrf_of.contains(own.vlan))
            return false;
        if (const auto present = hosts.find(key_of(own)); present != hosts.end()) {
            const Host &host = present->second;
            const bool is_same =
                nexthop_of(host.own) == nexthop_of(own) && !host.own.trunk == !own.trunk;
            if (is_same && host.is_whole)
                return true;
            if (!forget(own))
                return false;
        }
        const bool is_new = !fault_.empty() && references(own) == 0;
        if (is_new && strikes("nexthop"))
            return false;
        if (is_new && strikes("alloc"))
            ++orphans; // deliberate in the library
        else if (!is_linklocal(own) && strikes("route"))
            leaks.insert(nexthop_of(own));
        else if (!strikes("alloc"))
            return hosts[key_of(own)] = {own, true}, true;
        return false;
    }
    bool forget(const Neighbour &own) { // false: it stopped half way
        const auto present = hosts.find(key_of(own));
        if (present == hosts.end()) // without an interface it is VRF 0 that is searched
            return true;
        Host &host = present->second;
        if (host.is_whole && !is_linklocal(own) && strikes("route-del"))
            return false;
        host.is_whole = is_linklocal(own);
        if (fault_ == "nexthop-del" && references(host.own) == 1)
            return false;
        hosts.erase(present);
        return true;
    }
    std::set<NextHop> nexthops() const {
        std::set<NextHop> all(leaks.begin(), leaks.end());
        for (const auto &[key, host] : hosts)
            all.insert(nexthop_of(host.own));
        return all;
    }
    std::multiset<std::string> host_texts() const {
        std::multiset<std::string> texts;
        for (const auto &[key, host] : hosts) {
            const Neighbour &own = host.own;
            const std::string at =
                own.trunk ? joined("trunk ", own.trunk) : joined("port ", own.port);
            texts.insert(joined(own.ip, " ", own.mac, " vlanif", own.vlan, " vlan ", own.vlan, " ",
                                at, " cvlan ", own.cvlan, " vrf ", std::get<0>(key)));
        }
        return texts;
    }

private:
    bool strikes(const std::string &kind) {
        if (fault_ != kind || (kind == "alloc" && --nth_ > 0))
            return false;
        fault_ = "";
        return true;
    }
    static NextHop nexthop_of(const Neighbour &own) {
        return {own.mac, own.vlan, own.cvlan, own.trunk ? own.trunk : own.port};
    }
    std::size_t references(const Neighbour &own) {
        const auto is_of = [&](const auto &host) {
            return nexthop_of(host.second.own) == nexthop_of(own);
        };
        return leaks.count(nexthop_of(own)) +
               std::size_t(std::count_if(hosts.begin(), hosts.end(), is_of));
    }

    std::string fault_;
    unsigned nth_ = 0;
};

class RandomWalk : public rig::ShelfWalk {
public:
    RandomWalk() {
        deeds = {{400, [this] { neighbour(); }},      {30, [this] { wait(); }},
                 {150, [this] { forget_a_host(); }},  {30, [this] { burst(); }},
                 {100, [this] { links(); }},          {40, [this] { wait_for_an_address(); }},
                 {60, [this] { interface(); }},       {60, [this] { address(); }},
                 {30, [this] { sub_vlan(); }},        {10, [this] { settings(); }},
                 {10, [this] { line_card_comes(); }}, {12, [this] { standby_changes(); }},
                 {6, [this] { master_falls(); }},     {15, [this] { check(); }}};
        interface_comes(200, DPM_IF_SUPERVLAN);
    }

    std::size_t most_hosts = 0;

private:
    Neighbour any_neighbour() {
        const unsigned number = below(30), kind = below(5), vlan = below(4);
        Neighbour own;
        own.ip = joined(kind == 0 ? "fe80::" : kind < 3 ? "10.1.1." : "2001:db8::", number + 2);
        own.mac = joined("02:00:00:00:01:0", below(6));
        own.vlan = 100 + (kind < 3 ? vlan : number % 4); // a global IPv6 address is of one link
        own.cvlan = one_in(8) ? 7 : 0;
        own.port = 1 + below(4);
        own.trunk = one_in(4) ? 1 + below(3) : 0;
        return own;
    }

    void learn_or_forget(bool learns, Neighbour own, const std::string &fault = "") {
        const unsigned number = fault == "alloc" ? 1 + below(3) : fault == "send" ? 4 : 1;
        model.arm(fault, number);
        if (!fault.empty())
            arm(fault, number, one_in(2) ? -1 : 5);
        const bool refused = model.is_refused();
        EXPECT_EQ(tell(learns, own), refused ? -1 : 0);
        const bool done = !refused && (learns ? model.learn(own) : model.forget(own));
        const dpm_prefix ip = rig::prefix_of(own.ip);
        if (learns && done) {
            EXPECT_EQ(dpm_host_unreachable_find(model.vrf_of[own.vlan], &ip), nullptr)
                << own.ip << " is known and waited for";
        }
    }
    void disarm() override {
        model.arm("", 0);
        ShelfWalk::disarm();
    }
    void neighbour() {
        learn_or_forget(!one_in(3), any_neighbour(), one_in(4) ? any_of(faults) : "");
    }
    void forget_a_host() {
        const Neighbour own = any_neighbour();
        const std::string fault = one_in(4) ? faults[first_of_chip + below(4)] : "";
        if (!model.hosts.empty())
            learn_or_forget(false, next_to(model.hosts, model.key_of(own))->second.own, fault);
    }
    // More requests than the queue takes.
    void burst() {
        const unsigned room = 1 + below(4);
        note("# the queue takes ", room, ":");
        master().os.limit_queue(room);
        hold(true);
        for (unsigned i = 0; i < 6; ++i) {
            const Neighbour own = any_neighbour();
            EXPECT_EQ(tell(true, own), i < room ? 0 : -1);
            if (i < room)
                model.learn(own);
        }
        hold(false);
        settle();
        master().os.limit_queue(0);
    }

    void links() {
        const unsigned number = 1 + below(4);
        const bool trunk = one_in(3), up = one_in(2);
        if (one_in(5))
            arm("alloc", 1 + below(3));
        note(trunk ? "trunk " : "port ", up ? "up " : "down ", number);
        if (trunk)
            up ? trunk_up(number) : trunk_down(number);
        else
            up ? port_up(number) : port_down(number);
    }
    void wait() { time_passes(below(120)); }
    void wait_for_an_address() {
        const std::string text = any_neighbour().ip;
        const dpm_prefix ip = rig::prefix_of(text);
        if (one_in(5))
            arm("alloc");
        note("# ", text, " is waited for");
        (void)dpm_host_get_index_by_ip(0, 900, &ip);
    }

    // An interface comes, goes or changes its VRF while no neighbour is on it, as in a suite.
    void interface() {
        const unsigned vlan = 100 + below(4), vrf = below(3);
        const auto all = model.hosts;
        const auto is_on_it = [&](const auto &host) { return host.second.own.vlan == vlan; };
        if (std::count_if(all.begin(), all.end(), is_on_it) > 3 && !one_in(4))
            return;
        for (const auto &host : all)
            if (is_on_it(host))
                learn_or_forget(false, host.second.own);
        if (!model.vrf_of.contains(vlan)) {
            interface_comes(vlan);
            model.vrf_of[vlan] = 0;
        } else if (one_in(2)) {
            interface_moves(vlan, vrf);
            model.vrf_of[vlan] = vrf;
        } else {
            note("if del ", vlanif(vlan));
            del_interface(vlanif(vlan));
            model.vrf_of.erase(vlan);
        }
    }
    void address() {
        const std::string name = vlanif(one_in(4) ? 200 : 100 + below(4));
        const std::string prefix = joined(one_in(3) ? "2001:db8:1::" : "172.16.0.", 1 + below(4),
                                          one_in(2) ? "/32" : "/24");
        const bool adds = !one_in(3);
        note("addr ", adds ? "add " : "del ", prefix, " dev ", name);
        (void)(adds ? add_address(name, prefix) : del_address(name, prefix));
    }
    void sub_vlan() {
        const unsigned vlan = 201 + below(5);
        if (one_in(6)) { // deliberate in the library: the block goes with a message of no type
            note("# an operation that does not exist on sub-VLAN ", vlan);
            EXPECT_EQ(dpm_api_super_sub_proc(200, vlan, 3), 0);
            settle();
            ++allow().blocks;
            return;
        }
        const bool adds = !one_in(3);
        note("sub ", adds ? "add" : "del", " 200 ", vlan);
        adds ? add_sub_vlan(200, vlan) : del_sub_vlan(200, vlan);
    }
    // Settings are made on both cards, and again on a card that comes later.
    void settings() {
        const unsigned vrf = 1 + below(4);
        vrf_enable[vrf] = below(2);
        ecmp_hash = below(4);
        note("vrf ", vrf_enable[vrf] ? "enable " : "disable ", vrf);
        note("hash ", ecmp_hash);
        for (rig::Card *card : cards())
            configure(*card);
    }
    void configure(rig::Card &card) override {
        const auto scope = as(card);
        for (const auto &[vrf, enable] : vrf_enable)
            EXPECT_EQ(card.suite.enable_vrf(vrf, enable), 0);
        EXPECT_EQ(dpm_api_set_ecmp_hash(ecmp_hash), 0);
    }

    void standby_changes() {
        using chassis::os::Fault;
        const unsigned kind = below(8);
        if (!has_standby() || one_in(4))
            return standby_comes();
        if (kind == 0) {
            note("# the standby stops taking what is mirrored");
            standby().os.fail(one_in(2) ? Fault::send : Fault::allocation, 1, 4);
        } else if (kind == 1) {
            note("card standby-lost"); // it is found unfit for use
            master().peer.set_standby_usable(false);
            time_passes(70);
        }
        if (kind < 2)
            learn_or_forget(true, any_neighbour());
        if (kind < 5)
            standby_goes();
        master().peer.set_standby_usable(true);
    }
    void master_falls() {
        mend();
        if (master_dies())
            allow().blocks = 0; // what a card held by mistake goes with it
    }

    // A host whose delete stopped half way has no entry in the chip until it is told of again.
    void mend() {
        for (const auto &[key, host] : std::map(model.hosts))
            if (!host.is_whole)
                learn_or_forget(one_in(2), host.own);
    }
    // Objects that a failed allocation left in the chip: as many as the model knows of.
    void sweep_orphans() {
        std::map orphans = master().chip.nexthops;
        for (const dpm_nexthop_entry &entry : nexthops(master()))
            orphans.erase(entry.sdk_index);
        EXPECT_EQ(orphans.size(), std::exchange(model.orphans, 0));
        for (const auto &[index, object] : orphans)
            EXPECT_EQ(dal_driver_del_ip_nexthop(index, 0), 0);
    }
    void check() {
        note("# a check");
        most_hosts = std::max(most_hosts, model.hosts.size());
        mend();
        sweep_orphans();
        std::multiset<std::string> texts;
        for (const dpm_host_entry &host : hosts(master()))
            texts.insert(joined(rig::text_of(host), " cvlan ", host.cvlan, " vrf ", host.vrf));
        EXPECT_EQ(texts, model.host_texts());
        EXPECT_EQ(nexthops(master()).size(), model.nexthops().size());
        allow().nexthop_leaks = unsigned(model.leaks.size());
        check_laws();
    }

    std::map<unsigned, unsigned> vrf_enable; // as the suite asked for it
    unsigned ecmp_hash = 6;
    Model model;
};

} // namespace

TEST(RandomWalk, KeepsTheTablesAsTheModelSaysAndTheLawsWhateverHappens) {
    const auto walk = rig::take_walk<RandomWalk>(200'000);
    EXPECT_TRUE(!walk || walk->most_hosts > 30 || std::getenv("DPM_WALK_STEPS"))
        << "the walk went nowhere";
}
