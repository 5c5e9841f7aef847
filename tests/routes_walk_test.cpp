// A random walk over routes, their hosts, groups and label entries, with refusals of the chip,
// groups that run out, standby cards that come and go and masters that die.
//
// The walk goes in stretches.  In a plain one a model says which routes there are, and at its end
// the chip must forward random addresses exactly as a naive reading of the tables says.  In a short
// one most groups are taken, so routes miss members; in a faulty one anything may be refused, and
// the laws are checked after every route and host has been taken away again.
//
//   DPM_WALK_STEPS   how far to walk (60000)      DPM_WALK_SEED   another walk (1)

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_l3vpn.h"
#include "dpm_route.h"
#include "support/shelf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <map>
#include <random>
#include <set>

namespace {

using chassis::chip::Request;
using rig::Ftn;
using rig::Gateway;
using rig::Ilm;
using rig::Neighbour;
using rig::Route;

enum class Stretch { plain, few_groups, faulty };

struct Place { // where a neighbour may appear
    std::string ip;
    unsigned vlan, vrf;
    bool operator<(const Place &other) const {
        return std::tie(ip, vlan) < std::tie(other.ip, other.vlan);
    }
    std::string ifname() const { return "vlanif" + std::to_string(vlan); }
    bool is_ipv6() const { return ip.find(':') != ip.npos; }
};

std::vector<Place> all_places() {
    std::vector<Place> places;
    for (unsigned i = 2; i < 9; ++i) {
        const std::string last = std::to_string(i);
        places.push_back({"10.1.1." + last, 100, 0});
        places.push_back({"2001:db8:1::" + last, 100, 0});
        places.push_back({"10.1.2." + last, 200, 0});
        if (i > 5)
            continue;
        places.push_back({"10.1.3." + last, 300, 5});
        places.push_back({"2001:db8:3::" + last, 300, 5});
        places.push_back({"fe80::" + last, 100, 0});
        places.push_back({"fe80::" + last, 200, 0});
    }
    return places;
}

bool covers(const dpm_prefix &prefix, const dpm_prefix &address) {
    for (unsigned bit = 0; bit < prefix.prefix_len; ++bit)
        if ((prefix.address[bit / 8] ^ address.address[bit / 8]) >> (7 - bit % 8) & 1)
            return false;
    return prefix.family == address.family;
}

class RoutesWalk : public rig::Shelf {
protected:
    void SetUp() override {
        if (const char *const text = std::getenv("DPM_WALK_STEPS"))
            steps = unsigned(std::stoul(text));
        if (const char *const text = std::getenv("DPM_WALK_SEED"))
            seed = unsigned(std::stoul(text));
        random.seed(seed);
        keep_log(false);
        for (const unsigned vlan : {100u, 200u, 300u})
            add_interface("vlanif" + std::to_string(vlan), vlan);
        set_vrf("vlanif300", 5);
    }

    unsigned below(unsigned limit) { return unsigned(random() % limit); }
    bool one_in(unsigned chances) { return below(chances) == 0; }
    template <class Set> auto any_of(const Set &set) {
        return *std::next(set.begin(), below(unsigned(set.size())));
    }
    void note(const std::string &command) {
        if (commands.size() == 40)
            commands.pop_front();
        commands.push_back(command);
    }

    // --- what there may be ---

    // A prefix of a VRF's own space: a label entry of VRF 0 never meets one of another's.
    std::string any_prefix(bool ipv6, unsigned vrf, bool with_default = true) {
        const auto number = [](unsigned value) { return std::to_string(value); };
        static constexpr unsigned lengths[2][6] = {{15, 16, 23, 24, 30, 32},
                                                   {47, 48, 63, 64, 126, 128}};
        if (with_default && one_in(12))
            return ipv6 ? "::/0" : "0.0.0.0/0";
        const unsigned length = lengths[ipv6][below(6)], high = vrf + 20 + below(3);
        const std::string address = any_address(ipv6, high);
        return address + "/" + number(length);
    }
    std::string any_address(bool ipv6, unsigned high) {
        const std::string at = std::to_string(high), middle = std::to_string(below(3)),
                          last = one_in(2) ? "0" : std::to_string(below(6));
        return ipv6 ? "2001:db8:" + at + ":" + middle + "::" + last
                    : "10." + at + "." + middle + "." + last;
    }
    Route any_route() {
        Route route;
        route.vrf = one_in(6) ? 5 : 0;
        route.type = below(14);
        const bool ipv6 = one_in(3);
        route.prefix = any_prefix(ipv6, route.vrf);
        // To a host's address, where the chip lets it go: else it would stand beside the host.
        if (stretch != Stretch::faulty && one_in(15)) {
            const Place place = any_of(places);
            if (place.is_ipv6() == ipv6 && !place.ip.starts_with("fe80"))
                route.prefix = place.ip, route.vrf = place.vrf;
        }
        std::set<Place> via;
        for (unsigned count = one_in(3) ? 1 + below(7) : 1 + below(2); via.size() < count;) {
            const Place place = any_of(places);
            const auto is_there = [&](const Place &other) { return other.ip == place.ip; };
            if (place.is_ipv6() == ipv6 && (ipv6 || std::none_of(via.begin(), via.end(), is_there)))
                via.insert(place);
        }
        route.via.clear();
        for (const Place &place : via)
            route.via.push_back({place.ip, place.ifname()});
        if (one_in(20))
            route.via.push_back({"", "vlanif100"});
        std::shuffle(route.via.begin(), route.via.end(), random);
        if (route.prefix.find('/') == route.prefix.npos) // its own interface is asked for the host
            route.via.insert(route.via.begin(),
                             {"", route.vrf ? "vlanif300" : vlanif_of(route.prefix)});
        if (route.via.size() > DPM_ROUTE_GATEWAYS)
            route.via.pop_back();
        if (one_in(40))
            route.np_num = 0;
        return route;
    }
    std::string vlanif_of(const std::string &ip) {
        const auto place = std::find_if(places.begin(), places.end(),
                                        [&](const Place &other) { return other.ip == ip; });
        return place->ifname();
    }

    // --- faults ---

    // One refusal or failure, beginning with the request's `first` entry.
    void arm(unsigned first, std::initializer_list<unsigned> allocations) {
        if (stretch != Stretch::faulty || !one_in(3))
            return;
        static constexpr Request kinds[] = {Request::add_ip_entry, Request::del_ip_entry,
                                            Request::add_ecmp_nexthop, Request::update_ecmp_nexthop,
                                            Request::del_ip_nexthop};
        const unsigned kind = below(7);
        if (kind < 5)
            refuse(kinds[kind], 1 + below(3), -1, (kind == 0 ? first : 0) + below(2));
        else
            fail(chassis::os::Fault::allocation, any_of(allocations));
        note("# kind " + std::to_string(kind) + " fails");
    }
    void disarm() {
        for (unsigned kind = 0; kind < unsigned(Request::count); ++kind)
            refuse(Request(kind), 0);
        fail(chassis::os::Fault::allocation, 0);
    }

    // --- deeds ---

    void learn() {
        const Place place = any_of(places);
        const Neighbour own{.ip = place.ip,
                            .mac = "02:00:00:00:01:0" + std::to_string(below(8)),
                            .vlan = place.vlan,
                            .port = 1 + below(3)};
        arm(1, {1, 3, 4, 5}); // a second block that fails leaves an object, on purpose
        note("neigh add " + own.ip + " lladdr " + own.mac + " dev " + place.ifname() + " port " +
             std::to_string(own.port));
        learn_host(own);
        disarm();
        present[place] = own;
        routes_there.erase({place.vrf, rig::text_of(rig::prefix_of(place.ip))});
    }
    void forget() {
        if (present.empty())
            return;
        const auto [place, own] = any_of(present);
        arm(0, {1});
        note("neigh del " + own.ip + " dev " + place.ifname());
        forget_host(own);
        disarm();
        present.erase(place);
    }
    bool is_host(const Route &route) {
        return route.prefix.find('/') == route.prefix.npos &&
               std::any_of(present.begin(), present.end(), [&](const auto &host) {
                   return host.first.ip == route.prefix && host.first.vrf == route.vrf;
               });
    }
    static bool is_same(const Route &a, const Route &b) {
        return a.np_num.value_or(a.via.size()) == b.np_num.value_or(b.via.size()) &&
               (a.np_num == 0u ||
                std::equal(a.via.begin(), a.via.end(), b.via.begin(), b.via.end(),
                           [](const auto &x, const auto &y) { return x.ip == y.ip; }));
    }
    static std::string text_of(const Route &route) {
        std::string text = route.prefix + " vrf " + std::to_string(route.vrf) + " type " +
                           std::to_string(route.type) + (route.np_num ? " np_num 0" : "");
        for (const Gateway &gateway : route.via)
            text += " via " + gateway.ip + " dev " + gateway.ifname;
        return text;
    }
    void install(const Route &route) {
        arm(0, {1, 2, 3, 4, 5});
        note("route add " + text_of(route));
        add_route(route);
        disarm();
        if (is_host(route))
            return;
        const auto [there, is_new] = routes_there.try_emplace(
            {route.vrf, rig::text_of(rig::prefix_of(route.prefix))}, Installed{route, 0});
        if (!is_new && !is_same(there->second.route, route))
            there->second.route = route;
        there->second.expires = 0;
    }
    void install_new() { install(any_route()); }
    void install_again() {
        if (!routes_there.empty())
            install(any_of(routes_there).second.route);
    }
    void withdraw() {
        Route route = any_route();
        if (!routes_there.empty() && !one_in(10))
            route = any_of(routes_there).second.route;
        arm(0, {1});
        note("route del " + text_of(route));
        del_route(route);
        disarm();
        routes_there.erase({route.vrf, rig::text_of(rig::prefix_of(route.prefix))});
    }
    void label() {
        const bool ipv6 = one_in(3);
        Ftn ftn{.prefix = any_prefix(ipv6, 0, false), .nhop = one_in(2) ? "10.1.1.2" : "10.1.1.3"};
        std::vector<std::string> taken;
        for (const auto &[key, installed] : routes_there)
            if (key.first == 0 && !key.second.ends_with("/0"))
                taken.push_back(key.second);
        if (!taken.empty() && !one_in(4))
            ftn.prefix = any_of(taken);
        if (one_in(5))
            ftn.vrf = 5;
        const Ilm ilm{.label = 100 + below(20), .flags = 1 + below(2)};
        arm(0, {1});
        note("# a label for " + ftn.prefix);
        add_ftn(ftn);
        labels.push_back(ftn);
        if (one_in(3))
            add_ilm(ilm), incoming.insert(ilm.label);
        disarm();
    }
    void unlabel() {
        if (labels.empty())
            return;
        const auto ftn = labels.begin() + below(unsigned(labels.size()));
        note("# no label for " + ftn->prefix);
        arm(0, {1});
        del_ftn(*ftn);
        labels.erase(ftn);
        if (!incoming.empty() && one_in(2)) {
            const unsigned ilm = any_of(incoming);
            del_ilm({.label = ilm});
            incoming.erase(ilm);
        }
        disarm();
    }
    void time_passes() {
        const unsigned seconds = below(300);
        note("clock advance " + std::to_string(seconds) + "s");
        advance(seconds);
        now += seconds;
        std::erase_if(routes_there, [this](const auto &there) {
            return there.second.expires && there.second.expires <= now;
        });
    }
    void line_card() {
        dpm_bridge_slot_up(3);
        settle();
    }
    void standby() {
        if (!has_standby())
            standby_connects();
        else if (one_in(2))
            standby_lost();
        note("# the standby came or went");
    }
    void master_dies() {
        if (!has_standby() || dpm_get_slave_up() != 1)
            return;
        if (stretch == Stretch::faulty) // what was refused is known to the master alone
            return;
        note("# the master dies");
        const auto before = standby_deletes();
        switch_over();
        EXPECT_EQ(standby_deletes(), before) << "nothing leaves the chip";
        for (auto &[key, installed] : routes_there)
            if (dpm_route_dynamic_type_check(installed.route.type))
                installed.expires = now + 600;
        if (!one_in(3))
            standby_connects();
    }
    std::uint64_t standby_deletes() {
        chassis::Card &card = has_standby() ? Shelf::standby() : master();
        return card.chip.requests(Request::del_ip_entry);
    }

    // --- stretches ---

    void begin() {
        stretch = Stretch(below(3));
        note("# stretch " + std::to_string(int(stretch)));
        if (stretch == Stretch::faulty)
            withdraw_routes_to_places();
        if (stretch != Stretch::few_groups)
            return;
        while (groups(master()).size() < 1020) {
            held.push_back(0);
            ASSERT_EQ(dpm_ecmp_add(DPM_FAMILY_IPV4, &held.back(), 2), 0);
        }
        settle();
    }
    void withdraw_routes_to_places() {
        for (const Place &place : places)
            if (const auto there = routes_there.find({place.vrf, place.ip});
                there != routes_there.end()) {
                del_route(there->second.route);
                routes_there.erase(there);
            }
    }
    void end() {
        if (stretch == Stretch::faulty) {
            clear();
        } else {
            allow().group_leaks = unsigned(held.size());
            allow().routes_adrift = stretch == Stretch::few_groups;
            compare_routes();
            check_laws();
        }
        if (stretch == Stretch::few_groups)
            clear();
        compare_routes();
        check_laws();
        compare_forwarding();
    }
    // Everything is taken away, and what was adrift is sound again.
    void clear() {
        for (const Ftn &ftn : std::exchange(labels, {}))
            del_ftn(ftn);
        for (const dpm_route_entry &route : routes(master())) {
            dpm_route_msg msg{};
            msg.vrf = route.vrf;
            msg.destination = route.destination;
            EXPECT_EQ(dpm_api_route_pro(&msg, DPM_OPER_DEL), 0);
            settle();
        }
        for (std::int32_t &index : held)
            EXPECT_EQ(dpm_ecmp_del_all(DPM_FAMILY_IPV4, &index), 0);
        held.clear();
        for (const dpm_host_entry &host : hosts(master())) {
            EXPECT_EQ(dpm_api_host_msg_send(&host, DPM_OPER_DEL), 0);
            settle();
        }
        EXPECT_TRUE(hosts(master()).empty());
        EXPECT_TRUE(groups(master()).empty());
        present.clear();
        routes_there.clear();
        allow().group_leaks = 0;
        allow().routes_adrift = false;
    }
    void compare_routes() {
        std::set<std::pair<unsigned, std::string>> wanted, found;
        for (const auto &[key, installed] : routes_there)
            wanted.insert(key);
        for (const dpm_route_entry &route : routes(master()))
            found.emplace(route.vrf, rig::text_of(route.destination));
        EXPECT_EQ(found, wanted);
        most_routes = std::max(most_routes, found.size());
        for (unsigned i = 0; i < 10; ++i) {
            const unsigned vrf = one_in(4) ? 5 : 0;
            const dpm_prefix ip = rig::prefix_of(any_address(one_in(2), vrf + 20 + below(4)));
            EXPECT_EQ(dpm_route_find_best_route(vrf, &ip), naive_best(vrf, ip)) << rig::text_of(ip);
        }
    }
    const dpm_route_entry *naive_best(unsigned vrf, const dpm_prefix &ip) {
        const dpm_route_entry *best = nullptr;
        for (const dpm_route_entry *route = dpm_api_get_route_entry_first(ip.family); route;
             route = dpm_api_get_route_entry_next(route))
            if (route->vrf == vrf && covers(route->destination, ip) && route->sdk_index > 2 &&
                !is_labelled(*route) &&
                (!best || route->destination.prefix_len > best->destination.prefix_len))
                best = route;
        return best;
    }
    bool is_labelled(const dpm_route_entry &route) {
        const auto all = ftns(master());
        return std::any_of(all.begin(), all.end(), [&](const dpm_ftn &ftn) {
            return ftn.vrf_id == 0 && ftn.prefixlen == route.destination.prefix_len &&
                   std::memcmp(ftn.fec_prefix, route.destination.address, 16) == 0;
        });
    }

    // Next hops that the tables give for an address, and the longest prefix among them; a prefix
    // may stand there several times, with other host bits.
    struct Naive {
        int length = -1;
        std::vector<std::multiset<std::uint32_t>> nexthops;
        void offer(int prefix_len, const std::multiset<std::uint32_t> &members) {
            if (members.empty() || prefix_len < length)
                return;
            if (prefix_len > length)
                nexthops.clear();
            length = prefix_len;
            nexthops.push_back(members);
        }
    };
    std::multiset<std::uint32_t> resolved(const dpm_route_entry &route,
                                          const std::vector<dpm_host_entry> &all) {
        std::multiset<std::uint32_t> members;
        for (unsigned i = 0; i < route.np_num; ++i) {
            if (route.np[i].family == DPM_FAMILY_NONE)
                members.insert(2);
            for (const dpm_host_entry &host : all)
                if (host.vrf == route.vrf && std::memcmp(&host.ip, &route.np[i], 20) == 0 &&
                    (host.ip.family == DPM_FAMILY_IPV4 || host.ifindex == route.np_ifindex[i]))
                    members.insert(host.sdk_index);
        }
        return members;
    }
    Naive naive_lookup(unsigned vrf, const dpm_prefix &ip,
                       const std::vector<dpm_host_entry> &all_hosts,
                       const std::vector<dpm_route_entry> &all_routes) {
        Naive naive;
        for (const dpm_host_entry &host : all_hosts)
            if (host.vrf == vrf && covers(host.ip, ip))
                naive.offer(host.ip.prefix_len, {host.sdk_index});
        for (const dpm_route_entry &route : all_routes)
            if (route.vrf == vrf && covers(route.destination, ip) && !is_labelled(route))
                naive.offer(route.destination.prefix_len, resolved(route, all_hosts));
        return naive;
    }
    void compare_forwarding() {
        const auto all_hosts = hosts(master());
        const auto all_routes = routes(master());
        for (unsigned i = 0; i < 24; ++i) {
            const unsigned vrf = one_in(4) ? 5 : 0;
            Place place = any_of(places);
            const bool to_host = one_in(4) && !place.ip.starts_with("fe80");
            const dpm_prefix ip =
                rig::prefix_of(to_host ? place.ip : any_address(one_in(2), vrf + 20 + below(4)));
            const Naive naive = naive_lookup(vrf, ip, all_hosts, all_routes);
            const auto answer = master().chip.lookup(std::int32_t(vrf), ip.family, ip.address);
            ASSERT_EQ(answer ? int(answer->entry.prefix_len) : -1, naive.length)
                << rig::text_of(ip) << " in vrf " << vrf;
            if (!answer)
                continue;
            ++forwarded;
            const std::multiset<std::uint32_t> members(answer->members.begin(),
                                                       answer->members.end());
            EXPECT_NE(std::find(naive.nexthops.begin(), naive.nexthops.end(), members),
                      naive.nexthops.end())
                << rig::text_of(ip) << " in vrf " << vrf;
        }
    }

    void step() {
        using Deed = void (RoutesWalk::*)();
        static constexpr std::pair<unsigned, Deed> deeds[] = {
            {260, &RoutesWalk::learn},       {160, &RoutesWalk::forget},
            {260, &RoutesWalk::install_new}, {60, &RoutesWalk::install_again},
            {110, &RoutesWalk::withdraw},    {50, &RoutesWalk::label},
            {45, &RoutesWalk::unlabel},      {20, &RoutesWalk::time_passes},
            {10, &RoutesWalk::line_card},    {10, &RoutesWalk::standby},
            {15, &RoutesWalk::master_dies},
        };
        unsigned place = below(1000);
        for (const auto &[weight, deed] : deeds) {
            if (place < weight)
                return (this->*deed)();
            place -= weight;
        }
    }

    struct Installed {
        Route route;
        unsigned expires; // 0: never
    };
    const std::vector<Place> places = all_places();
    Stretch stretch = Stretch::plain;
    std::map<Place, Neighbour> present;
    std::map<std::pair<unsigned, std::string>, Installed> routes_there; // by VRF and prefix
    std::vector<Ftn> labels;
    std::set<unsigned> incoming;
    std::vector<std::int32_t> held; // groups of nobody
    unsigned steps = 60'000, seed = 1, now = 0;
    std::size_t most_routes = 0, forwarded = 0;
    std::mt19937 random;
    std::deque<std::string> commands;
};

} // namespace

TEST_F(RoutesWalk, ForwardsAsTheTablesSayWhateverHappens) {
    RecordProperty("seed", int(seed));
    constexpr unsigned stretch_steps = 120;
    for (unsigned at = 0; at < steps && !HasFailure(); ++at) {
        if (at % stretch_steps == 0)
            begin();
        step();
        if (at % stretch_steps == stretch_steps - 1)
            end();
        if (HasFailure())
            std::cout << "DPM_WALK_SEED=" << seed << ", step " << at << "; the last commands:\n";
    }
    if (HasFailure())
        for (const std::string &command : commands)
            std::cout << "  " << command << "\n";
    else
        clear();
    EXPECT_GT(most_routes, 25u) << "the walk went nowhere";
    EXPECT_GT(forwarded, steps / 100);
}
