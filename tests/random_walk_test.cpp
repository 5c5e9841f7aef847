// A random walk over everything that can happen to two cards: neighbours of both families, links,
// interfaces, time, refusals of the chip, memory and queues that give out, standby cards that come
// and go, and masters that die.
//
// A model beside the cards knows what each request must lead to, faults included: which hosts there
// are, how many references each next hop has, and what the library leaves behind on purpose.  The
// tables are compared with it and the laws are checked every few steps.  When one is broken, the
// seed and the last commands are printed, in the words that dpmctl reads.
//
//   DPM_WALK_STEPS   how far to walk (200000)      DPM_WALK_SEED   another walk (1)

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_host.h"
#include "platform/dal.h"
#include "support/shelf.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <map>
#include <random>
#include <tuple>

namespace {

using chassis::chip::Request;
using rig::Neighbour;

// What is told to fail once, during one request.
enum class Fault { none, memory, post, route, route_del, nexthop, nexthop_del };

bool is_ipv6(const std::string &ip) {
    return ip.find(':') != ip.npos;
}
bool is_linklocal(const std::string &ip) {
    return ip.starts_with("fe80:");
}

class Model {
public:
    void arm(Fault fault, unsigned nth_allocation) { fault_ = fault, nth_ = nth_allocation; }
    bool is_refused() { return strikes(Fault::memory) || strikes(Fault::post); }

    void learn(const Neighbour &own) {
        if (!vrf_of.contains(own.vlan))
            return;
        const auto present = hosts.find(key_of(own));
        if (present != hosts.end()) {
            if (is_same(present->second.own, own) && present->second.is_whole)
                return;
            if (!remove(present))
                return;
        }
        if (!take_nexthop(own))
            return;
        if (!is_linklocal(own.ip) && strikes(Fault::route))
            ++leaked_references; // deliberate in the library
        else if (strikes(Fault::memory))
            drop_nexthop(own);
        else
            hosts[key_of(own)] = {own, true};
    }
    void forget(const Neighbour &own) {
        const auto present = hosts.find(key_of(own));
        if (present != hosts.end()) // without an interface it is VRF 0 that is searched
            remove(present);
    }

    std::vector<std::string> host_texts() const {
        std::vector<std::string> texts;
        for (const auto &[key, host] : hosts) {
            const std::string vlan = std::to_string(host.own.vlan);
            const bool trunk = host.own.trunk;
            texts.push_back(host.own.ip + " " + host.own.mac + " vlanif" + vlan + " vlan " + vlan +
                            (trunk ? " trunk " : " port ") +
                            std::to_string(trunk ? host.own.trunk : host.own.port) + " cvlan " +
                            std::to_string(host.own.cvlan) + " vrf " +
                            std::to_string(std::get<0>(key)));
        }
        std::sort(texts.begin(), texts.end());
        return texts;
    }

    struct Host {
        Neighbour own;
        bool is_whole; // false: its delete stopped half way
    };
    using Key = std::tuple<unsigned, std::string, unsigned>; // VRF, address, VLAN of an IPv6 host
    using NextHop = std::tuple<std::string, unsigned, unsigned, unsigned>; // MAC, VLANs, port
    std::map<Key, Host> hosts;
    std::map<NextHop, unsigned> references;
    std::map<unsigned, unsigned> vrf_of; // by VLAN, of the interfaces that there are
    unsigned leaked_references = 0;
    unsigned orphans = 0; // objects of the chip without an entry, which the walk takes away itself

private:
    using Place = std::map<Key, Host>::iterator;

    bool strikes(Fault kind) {
        if (fault_ != kind || (kind == Fault::memory && --nth_ > 0))
            return false;
        fault_ = Fault::none;
        return true;
    }
    Key key_of(const Neighbour &own) {
        const auto vrf = vrf_of.find(own.vlan);
        return {vrf == vrf_of.end() ? 0 : vrf->second, own.ip, is_ipv6(own.ip) ? own.vlan : 0};
    }
    static NextHop nexthop_of(const Neighbour &own) {
        return {own.mac, own.vlan, own.cvlan, own.trunk ? own.trunk : own.port};
    }
    static bool is_same(const Neighbour &a, const Neighbour &b) {
        return nexthop_of(a) == nexthop_of(b) && !a.trunk == !b.trunk;
    }
    bool take_nexthop(const Neighbour &own) {
        if (references.contains(nexthop_of(own)))
            return ++references[nexthop_of(own)], true;
        if (strikes(Fault::nexthop))
            return false;
        if (strikes(Fault::memory))
            return ++orphans, false; // deliberate in the library
        return references[nexthop_of(own)] = 1, true;
    }
    void drop_nexthop(const Neighbour &own) {
        if (--references[nexthop_of(own)] == 0)
            references.erase(nexthop_of(own));
    }
    bool remove(Place host) {
        if (host->second.is_whole && !is_linklocal(host->second.own.ip) &&
            strikes(Fault::route_del))
            return false;
        host->second.is_whole = is_linklocal(host->second.own.ip);
        if (references[nexthop_of(host->second.own)] == 1 && strikes(Fault::nexthop_del))
            return false;
        drop_nexthop(host->second.own);
        hosts.erase(host);
        return true;
    }

    Fault fault_ = Fault::none;
    unsigned nth_ = 0;
};

class RandomWalk : public rig::Shelf {
protected:
    void SetUp() override {
        if (const char *const text = std::getenv("DPM_WALK_STEPS"))
            steps = unsigned(std::stoul(text));
        if (const char *const text = std::getenv("DPM_WALK_SEED"))
            seed = unsigned(std::stoul(text));
        random.seed(seed);
        keep_log(false);
        add_interface("vlanif200", 200, DPM_IF_SUPERVLAN);
    }

    unsigned below(unsigned limit) { return unsigned(random() % limit); }
    bool one_in(unsigned chances) { return below(chances) == 0; }
    void note(const std::string &command) {
        if (commands.size() == 30)
            commands.pop_front();
        commands.push_back(command);
    }

    Neighbour any_neighbour() {
        Neighbour own;
        const unsigned number = below(30), kind = below(5);
        const std::string last = std::to_string(number + 2);
        own.vlan = 100 + below(4);
        if (kind == 0)
            own.ip = "fe80::" + last;
        else if (kind < 3)
            own.ip = "10.1.1." + last;
        else { // a global IPv6 address belongs to one link
            own.ip = "2001:db8::" + last;
            own.vlan = 100 + number % 4;
        }
        own.mac = "02:00:00:00:01:0" + std::to_string(below(6));
        own.cvlan = one_in(8) ? 7 : 0;
        own.port = 1 + below(4);
        own.trunk = one_in(4) ? 1 + below(3) : 0;
        return own;
    }
    static std::string text_of(const char *verb, const Neighbour &own) {
        const std::string vlan = std::to_string(own.vlan);
        return std::string("neigh ") + verb + " " + own.ip + " lladdr " + own.mac + " dev vlanif" +
               vlan + (own.trunk ? " trunk " + std::to_string(own.trunk) : "") + " port " +
               std::to_string(own.port) + " vlan " + vlan +
               (own.cvlan ? " cvlan " + std::to_string(own.cvlan) : "");
    }

    // Arms a fault on the master and in the model, and notes it.
    void arm(Fault fault, unsigned nth) {
        model.arm(fault, nth);
        switch (fault) {
        case Fault::none:
            break;
        case Fault::memory:
            note("fault alloc " + std::to_string(nth));
            fail(chassis::os::Fault::allocation, nth);
            break;
        case Fault::post:
            note("fault send 1 times 4");
            fail(chassis::os::Fault::send, 1, 4);
            break;
        default:
            note(std::string("chip refuse ") + chip_requests.at(fault).first + " 1");
            refuse(chip_requests.at(fault).second, 1, one_in(2) ? -1 : 5);
        }
    }
    void disarm() {
        model.arm(Fault::none, 0);
        fail(chassis::os::Fault::allocation, 0);
        fail(chassis::os::Fault::send, 0);
        for (const auto &[fault, request] : chip_requests)
            refuse(request.second, 0);
    }

    void learn_or_forget(const Neighbour &own, bool learns, Fault fault, unsigned nth) {
        arm(fault, nth);
        note(text_of(learns ? "add" : "del", own));
        const bool refused = model.is_refused();
        EXPECT_EQ(learns ? learn_host(own) : forget_host(own), refused ? -1 : 0);
        if (!refused)
            learns ? model.learn(own) : model.forget(own);
        disarm();
    }
    void neighbour() {
        const bool faulty = one_in(4);
        learn_or_forget(any_neighbour(), !one_in(3), faulty ? Fault(1 + below(6)) : Fault::none,
                        1 + below(3));
    }
    void forget_one_that_is_there() {
        if (model.hosts.empty())
            return;
        const auto host = std::next(model.hosts.begin(), below(unsigned(model.hosts.size())));
        learn_or_forget(Neighbour(host->second.own), false,
                        one_in(4) ? Fault(3 + below(4)) : Fault::none, 0);
    }
    // More requests than the queue takes.
    void burst() {
        const unsigned room = 1 + below(4);
        master().os.limit_queue(room);
        hold(true);
        for (unsigned i = 0; i < 6; ++i) {
            const Neighbour own = any_neighbour();
            EXPECT_EQ(learn_host(own), i < room ? 0 : -1);
            if (i < room) {
                note(text_of("add", own));
                model.learn(own);
            }
        }
        hold(false);
        settle();
        master().os.limit_queue(0);
    }

    void links() {
        const unsigned number = 1 + below(4);
        const bool trunk = one_in(3), up = one_in(2);
        if (one_in(5))
            fail(chassis::os::Fault::allocation, 1 + below(3));
        note((trunk ? "trunk " : "port ") + std::string(up ? "up " : "down ") +
             std::to_string(number));
        if (trunk)
            up ? trunk_up(number) : trunk_down(number);
        else
            up ? port_up(number) : port_down(number);
        disarm();
    }
    void wait_for_an_address() {
        const Neighbour own = any_neighbour();
        const dpm_prefix ip = rig::prefix_of(own.ip);
        if (one_in(5))
            fail(chassis::os::Fault::allocation, 1);
        (void)dpm_host_get_index_by_ip(0, 900, &ip);
        disarm();
    }
    void time_passes() {
        const unsigned seconds = below(120);
        note("clock advance " + std::to_string(seconds) + "s");
        advance(seconds);
    }

    // An interface comes, goes or changes its VRF while no neighbour is on it, as in a suite.
    void interface() {
        const unsigned vlan = 100 + below(4);
        const std::string name = "vlanif" + std::to_string(vlan);
        std::vector<Neighbour> on_it;
        for (const auto &[key, host] : model.hosts)
            if (host.own.vlan == vlan)
                on_it.push_back(host.own);
        const bool present = model.vrf_of.contains(vlan);
        if (present && on_it.size() > 3 && !one_in(4))
            return;
        for (const Neighbour &own : on_it)
            learn_or_forget(own, false, Fault::none, 0);
        if (!present) {
            note("if add " + name + " vlan " + std::to_string(vlan));
            add_interface(name, vlan);
            model.vrf_of[vlan] = 0;
        } else if (one_in(2)) {
            const unsigned vrf = below(3);
            note("if vrf " + name + " " + std::to_string(vrf));
            set_vrf(name, vrf);
            model.vrf_of[vlan] = vrf;
        } else {
            note("if del " + name);
            del_interface(name);
            model.vrf_of.erase(vlan);
        }
    }
    void address() {
        const std::string name = "vlanif" + std::to_string(one_in(4) ? 200 : 100 + below(4));
        const std::string prefix = (one_in(3) ? "2001:db8:1::" : "172.16.0.") +
                                   std::to_string(1 + below(4)) + (one_in(2) ? "/32" : "/24");
        const bool add = !one_in(3);
        note(std::string("addr ") + (add ? "add " : "del ") + prefix + " dev " + name);
        (void)(add ? add_address(name, prefix) : del_address(name, prefix));
    }
    void sub_vlan() {
        const unsigned vlan = 201 + below(5);
        if (one_in(6)) { // deliberate in the library: the block goes with a message of no type
            EXPECT_EQ(dpm_api_super_sub_proc(200, vlan, 3), 0);
            settle();
            ++allow().blocks;
        } else {
            one_in(3) ? del_sub_vlan(200, vlan) : add_sub_vlan(200, vlan);
        }
    }
    // Settings are made on both cards, and again on a card that comes later.
    void settings() {
        vrf_enable[1 + below(4)] = below(2);
        ecmp_hash = below(4);
        for (rig::Card *card : cards())
            settle_settings(*card);
    }
    void settle_settings(rig::Card &card) {
        const auto scope = as(card);
        for (const auto &[vrf, enable] : vrf_enable)
            EXPECT_EQ(dpm_api_set_vrf_enable(vrf, enable), 0);
        EXPECT_EQ(dpm_api_set_ecmp_hash(ecmp_hash), 0);
    }
    void line_card() {
        note("card slot-up 3");
        EXPECT_EQ(dpm_bridge_slot_up(3), 0);
        settle();
    }

    void standby() {
        if (!has_standby() || one_in(4)) {
            connect_standby();
        } else if (one_in(3)) {
            lose_standby();
        } else if (one_in(3)) { // it stops taking what is mirrored, and is then replaced
            Shelf::standby().os.fail(
                one_in(2) ? chassis::os::Fault::send : chassis::os::Fault::allocation, 1, 4);
            learn_or_forget(any_neighbour(), true, Fault::none, 0);
            lose_standby();
        } else if (one_in(3)) { // it is found unfit for use
            note("card standby-lost");
            master().peer.set_standby_usable(false);
            advance(70);
            learn_or_forget(any_neighbour(), true, Fault::none, 0);
            lose_standby();
            master().peer.set_standby_usable(true);
        }
    }
    void connect_standby() {
        note("# the standby connects");
        if (!has_standby()) {
            standby_starts();
            settle_settings(Shelf::standby());
        }
        standby_connects();
    }
    void lose_standby() {
        note("# the standby is lost");
        standby_lost();
    }
    void master_dies() {
        if (!has_standby() || dpm_get_slave_up() != 1)
            return;
        mend();
        note("# the master dies");
        switch_over();
        allow().blocks = 0; // what a card held by mistake goes with it
        if (!one_in(3))
            connect_standby();
    }

    // A host whose delete stopped half way has no entry in the chip until it is told of again.
    void mend() {
        std::vector<Neighbour> halves;
        for (const auto &[key, host] : model.hosts)
            if (!host.is_whole)
                halves.push_back(host.own);
        for (const Neighbour &own : halves)
            learn_or_forget(own, one_in(2), Fault::none, 0);
    }
    // Objects that a failed allocation left in the chip: as many as the model knows of.
    void sweep_orphans() {
        std::vector<std::uint32_t> known, orphans;
        for (const dpm_nexthop_entry &entry : nexthops(master()))
            known.push_back(entry.sdk_index);
        for (const auto &[index, object] : master().chip.nexthops)
            if (std::find(known.begin(), known.end(), index) == known.end())
                orphans.push_back(index);
        EXPECT_EQ(orphans.size(), std::exchange(model.orphans, 0));
        for (const std::uint32_t index : orphans)
            EXPECT_EQ(dal_driver_del_ip_nexthop(index, 0), 0);
    }
    void compare() {
        mend();
        sweep_orphans();
        std::vector<std::string> texts;
        for (const dpm_host_entry &host : hosts(master()))
            texts.push_back(rig::text_of(host) + " cvlan " + std::to_string(host.cvlan) + " vrf " +
                            std::to_string(host.vrf));
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(texts, model.host_texts());
        EXPECT_EQ(nexthops(master()).size(), model.references.size());
        allow().nexthop_leaks = model.leaked_references;
        check_laws();
    }

    void step() {
        using Deed = void (RandomWalk::*)();
        static constexpr std::pair<unsigned, Deed> deeds[] = {
            {400, &RandomWalk::neighbour},  {150, &RandomWalk::forget_one_that_is_there},
            {30, &RandomWalk::burst},       {100, &RandomWalk::links},
            {30, &RandomWalk::time_passes}, {40, &RandomWalk::wait_for_an_address},
            {60, &RandomWalk::interface},   {60, &RandomWalk::address},
            {30, &RandomWalk::sub_vlan},    {10, &RandomWalk::settings},
            {10, &RandomWalk::line_card},   {12, &RandomWalk::standby},
            {6, &RandomWalk::master_dies},
        };
        unsigned place = below(938);
        for (const auto &[weight, deed] : deeds) {
            if (place < weight)
                return (this->*deed)();
            place -= weight;
        }
    }

    const std::map<Fault, std::pair<const char *, Request>> chip_requests = {
        {Fault::route, {"route", Request::add_ip_entry}},
        {Fault::route_del, {"route-del", Request::del_ip_entry}},
        {Fault::nexthop, {"nexthop", Request::add_ip_nexthop}},
        {Fault::nexthop_del, {"nexthop-del", Request::del_ip_nexthop}},
    };
    std::map<unsigned, unsigned> vrf_enable; // as the suite asked for it
    unsigned ecmp_hash = 6;
    unsigned steps = 200'000, seed = 1;
    std::mt19937 random;
    Model model;
    std::deque<std::string> commands;
};

} // namespace

TEST_F(RandomWalk, KeepsTheTablesAsTheModelSaysAndTheLawsWhateverHappens) {
    RecordProperty("seed", int(seed));
    std::size_t most_hosts = 0;
    for (unsigned at = 0; at < steps && !HasFailure(); ++at) {
        step();
        most_hosts = std::max(most_hosts, model.hosts.size());
        if (at % 64 == 63)
            compare();
        if (HasFailure())
            std::cout << "DPM_WALK_SEED=" << seed << ", step " << at << "; the last commands:\n";
    }
    if (HasFailure())
        for (const std::string &command : commands)
            std::cout << "  " << command << "\n";
    else
        compare();
    EXPECT_GT(most_hosts, 30u) << "the walk went nowhere";
}
