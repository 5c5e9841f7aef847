// A random walk over routes, their hosts, groups and label entries, with refusals of the chip,
// groups that run out, standby cards that come and go and masters that die.
//
// The walk goes in stretches.  In a plain one a model says which routes there are, and at its end
// the chip must forward random addresses exactly as a naive reading of the tables says.  In a short
// one most groups are taken, so routes miss members; in a faulty one anything may be refused, and
// the laws are checked after every route and host has been taken away again.

#include "dpm_ecmp.h"
#include "dpm_route.h"
#include "support/walk.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

namespace {

using rig::Ftn;
using rig::Ilm;
using rig::joined;
using rig::Neighbour;
using rig::Route;

enum class Stretch { plain, few_groups, faulty };

using Members = std::multiset<std::uint32_t>; // next hops

struct Entry { // a host, or a route that no label entry stands for
    unsigned vrf;
    dpm_prefix prefix;
    Members members;
    bool is_usable_route;

    bool covers(unsigned in_vrf, const dpm_prefix &ip) const {
        for (unsigned bit = 0; bit < prefix.prefix_len; ++bit)
            if ((prefix.address[bit / 8] ^ ip.address[bit / 8]) >> (7 - bit % 8) & 1)
                return false;
        return prefix.family == ip.family && vrf == in_vrf;
    }
};

class RoutesWalk : public rig::ShelfWalk {
public:
    RoutesWalk() {
        deeds = {{260, [this] { learn(); }},          {160, [this] { forget(); }},
                 {260, [this] { install_new(); }},    {60, [this] { install_again(); }},
                 {110, [this] { withdraw(); }},       {50, [this] { label(); }},
                 {45, [this] { unlabel(); }},         {20, [this] { wait(); }},
                 {10, [this] { line_card_comes(); }}, {10, [this] { standby_changes(); }},
                 {15, [this] { master_falls(); }},    {8, [this] { end_stretch(); }}};
        for (const unsigned vlan : {100u, 200u, 300u})
            interface_comes(vlan);
        interface_moves(300, 5);
    }

    std::size_t most_routes = 0, asked = 0, forwarded = 0;

private:
    using Key = std::pair<unsigned, std::string>; // VRF and prefix
    struct Installed {
        Route route;
        unsigned expires; // 0: never
    };

    // --- what there may be ---

    std::string any_address(bool ipv6, unsigned spread = 3) {
        const std::string middle = joined(20 + below(spread), ipv6 ? ":" : ".", below(3));
        const unsigned last = one_in(2) ? 0 : below(6);
        return ipv6 ? joined("2001:db8:", middle, "::", last) : joined("10.", middle, ".", last);
    }
    std::string any_prefix(bool ipv6) {
        static constexpr unsigned lengths[2][6] = {{15, 16, 23, 24, 30, 32},
                                                   {47, 48, 63, 64, 126, 128}};
        return joined(any_address(ipv6), "/", lengths[ipv6][below(6)]);
    }
    Neighbour any_neighbour() {
        static constexpr std::pair<const char *, unsigned> nets[] = {
            {"10.1.1.", 100}, {"2001:db8:1::", 100}, {"10.1.2.", 200}, // with more neighbours
            {"10.1.3.", 300}, {"2001:db8:3::", 300}, {"fe80::", 100},  {"fe80::", 200}};
        const unsigned kind = below(37), net = kind < 21 ? kind / 7 : 3 + (kind - 21) / 4;
        Neighbour own{.ip = joined(nets[net].first, 2 + below(net < 3 ? 7 : 4))};
        own.vlan = nets[net].second;
        own.mac = joined("02:00:00:00:01:0", below(8));
        own.port = 1 + below(3);
        return own;
    }
    static unsigned vrf_of(const Neighbour &own) { return own.vlan == 300 ? 5 : 0; }
    Route any_route() {
        const bool ipv6 = one_in(3);
        const unsigned vrf = one_in(6) ? 5 : 0;
        Route route{.prefix = any_prefix(ipv6), .via = {}, .vrf = vrf, .type = below(14)};
        if (one_in(12))
            route.prefix = ipv6 ? "::/0" : "0.0.0.0/0";
        std::set<std::string> via;
        for (unsigned count = one_in(3) ? 1 + below(7) : 1 + below(2); via.size() < count;) {
            const Neighbour own = any_neighbour();
            if (is_ipv6(own) == ipv6 && via.insert(joined(own.ip, own.vlan)).second)
                route.via.push_back({own.ip, vlanif(own.vlan)});
        }
        if (one_in(20))
            route.via.insert(route.via.begin() + below(unsigned(via.size()) + 1),
                             {"", "vlanif100"});
        // To a host's address.  Its own interface is asked for the host.
        const Neighbour to = any_neighbour();
        if (one_in(15) && is_ipv6(to) == ipv6 && !is_linklocal(to)) {
            route.prefix = to.ip, route.vrf = vrf_of(to);
            route.via.insert(route.via.begin(), {"", vlanif(to.vlan)});
        }
        if (route.via.size() > DPM_ROUTE_GATEWAYS)
            route.via.pop_back();
        if (one_in(40))
            route.np_num = 0;
        return route;
    }
    static Key key_of(const Route &route) {
        return {route.vrf, rig::text_of(rig::prefix_of(route.prefix))};
    }
    static std::string gateways_of(const Route &route, bool with_dev) {
        std::string text;
        for (const rig::Gateway &gateway : route.via)
            text += joined(gateway.ip.empty() ? "" : " via ", gateway.ip,
                           with_dev ? " dev " + gateway.ifname : ",");
        return route.np_num ? "" : text;
    }

    // --- deeds ---

    // One refusal or failure, beginning with the request's `first` entry.
    void arm_any(unsigned first, std::initializer_list<unsigned> allocations) {
        static constexpr const char *requests[] = {"route", "route-del", "group", "group-member",
                                                   "nexthop-del"};
        if (stretch != Stretch::faulty || !one_in(3))
            return;
        if (const unsigned kind = below(7); kind < 5)
            arm(requests[kind], 1 + below(3), -1, (kind == 0 ? first : 0) + below(2));
        else
            arm("alloc", any_of(allocations));
    }
    void learn() {
        const Neighbour own = any_neighbour();
        arm_any(1, {1, 3, 4, 5}); // a second block that fails leaves an object, on purpose
        tell(true, own);
        present[{own.ip, own.vlan}] = own;
        routes_there.erase({vrf_of(own), own.ip});
    }
    void forget() {
        const Neighbour near = any_neighbour();
        arm_any(0, {1});
        if (present.empty())
            return;
        const Neighbour own = next_to(present, {near.ip, near.vlan})->second;
        tell(false, own);
        present.erase({own.ip, own.vlan});
    }
    void install(const Route &route) {
        arm_any(0, {1, 2, 3, 4, 5});
        note("route add ", route.prefix, " vrf ", route.vrf, " type ", route.type,
             gateways_of(route, true));
        add_route(route);
        const Key key = key_of(route);
        if (std::any_of(present.begin(), present.end(), [&](const auto &host) {
                return key == Key(vrf_of(host.second), host.second.ip);
            }))
            return; // a host wins
        Installed &there = routes_there.try_emplace(key, Installed{route, 0}).first->second;
        if (gateways_of(there.route, false) != gateways_of(route, false))
            there.route = route;
        there.expires = 0;
    }
    void install_new() { install(any_route()); }
    void install_again() { install(route_there()); }
    void withdraw() {
        arm_any(0, {1});
        withdraw(one_in(10) ? any_route() : route_there());
    }
    Route route_there() { // or that might be, when there is none
        const Route route = any_route();
        return routes_there.empty() ? route : next_to(routes_there, key_of(route))->second.route;
    }
    void withdraw(const Route &route) {
        note("route del ", route.prefix, " vrf ", route.vrf);
        del_route(route);
        routes_there.erase(key_of(route));
    }
    void label() {
        const Ilm ilm{.label = 100 + below(20), .flags = 1 + below(2)};
        Ftn ftn{.prefix = any_prefix(one_in(3)), .nhop = one_in(2) ? "10.1.1.2" : "10.1.1.3"};
        const Route route = route_there();
        if (!one_in(5) && route.vrf == 0 && !route.prefix.ends_with("/0"))
            ftn.prefix = route.prefix;
        if (one_in(5))
            ftn.vrf = 5;
        arm_any(0, {1});
        note("# a label for ", ftn.prefix, " via ", ftn.nhop, " vrf ", ftn.vrf);
        add_ftn(ftn);
        labels.emplace(ftn.prefix, ftn);
        if (one_in(3)) {
            note("# incoming label ", ilm.label, ilm.flags == DPM_LABEL_WAITING ? " waits" : "");
            add_ilm(ilm);
            incoming.insert(ilm.label);
        }
    }
    void unlabel() {
        const std::string prefix = route_there().prefix;
        const unsigned label = 100 + below(20);
        arm_any(0, {1});
        if (labels.empty())
            return;
        const auto place = next_to(labels, prefix);
        const Ftn ftn = place->second;
        labels.erase(place);
        note("# no label for ", ftn.prefix, " via ", ftn.nhop, " vrf ", ftn.vrf);
        del_ftn(ftn);
        if (!incoming.empty() && one_in(2)) {
            const Ilm ilm{.label = *next_to(incoming, label)};
            note("# no incoming label ", ilm.label);
            del_ilm(ilm);
            incoming.erase(ilm.label);
        }
    }
    void wait() {
        const unsigned seconds = below(300);
        time_passes(seconds);
        now += seconds;
        std::erase_if(routes_there, [this](const auto &there) {
            return there.second.expires && there.second.expires <= now;
        });
    }
    void standby_changes() {
        if (!has_standby())
            standby_comes();
        else if (one_in(2))
            standby_goes();
    }
    void master_falls() {
        // What was refused is known to the master alone.
        if (stretch == Stretch::faulty || !master_dies())
            return;
        for (auto &[key, installed] : routes_there)
            if (dpm_route_dynamic_type_check(installed.route.type))
                installed.expires = now + DPM_ROUTE_DELETE_SEC;
    }

    // --- stretches ---

    void end_stretch() {
        note("# a check");
        if (stretch == Stretch::few_groups) {
            allow().group_leaks = unsigned(held.size());
            allow().routes_adrift = true;
            compare(false);
        }
        if (stretch != Stretch::plain)
            clear();
        compare(true);
        begin(Stretch(below(3)));
    }
    void begin(Stretch next) {
        static constexpr const char *names[] = {"plain", "of few groups", "faulty"};
        note("# the next stretch is ", names[unsigned(next)]);
        stretch = next;
        if (stretch == Stretch::few_groups)
            for (std::size_t taken = groups(master()).size(); taken < 1020; ++taken) {
                held.push_back(0);
                ASSERT_EQ(dpm_ecmp_add(DPM_FAMILY_IPV4, &held.back(), 2), 0);
            }
        settle();
    }
    // Everything is taken away, and what was adrift is sound again.
    void clear() {
        for (const auto &[prefix, ftn] : std::exchange(labels, {}))
            del_ftn(ftn);
        for (const dpm_route_entry &route : routes(master())) {
            const std::string prefix = rig::text_of(route.destination);
            EXPECT_EQ(del_route({.prefix = prefix, .via = {}, .vrf = route.vrf}), 0);
        }
        for (std::int32_t &index : std::exchange(held, {}))
            EXPECT_EQ(dpm_ecmp_del_all(DPM_FAMILY_IPV4, &index), 0);
        for (const dpm_host_entry &host : hosts(master()))
            EXPECT_EQ(dpm_api_host_msg_send(&host, DPM_OPER_DEL), 0);
        settle();
        EXPECT_TRUE(hosts(master()).empty());
        EXPECT_TRUE(groups(master()).empty());
        present.clear();
        routes_there.clear();
        allow().group_leaks = 0;
        allow().routes_adrift = false;
    }

    // --- comparisons ---

    // The routes with the model, and what becomes of some addresses with the tables.
    void compare(bool forwards) {
        std::set<Key> wanted, found;
        for (const auto &[key, installed] : routes_there)
            wanted.insert(key);
        for (const dpm_route_entry &route : routes(master()))
            found.emplace(route.vrf, rig::text_of(route.destination));
        EXPECT_EQ(found, wanted);
        most_routes = std::max(most_routes, found.size());
        check_laws();
        const std::vector<Entry> tables = entries();
        for (unsigned i = 0; i < 24; ++i) {
            const Neighbour own = any_neighbour();
            const bool to_host = one_in(4) && !is_linklocal(own);
            const unsigned vrf = one_in(4) ? 5 : 0;
            const std::string ip = to_host ? own.ip : any_address(one_in(2), 4);
            SCOPED_TRACE(joined(ip, " vrf ", vrf));
            compare_lookups(tables, vrf, rig::prefix_of(ip), forwards);
        }
    }
    std::vector<Entry> entries() {
        std::vector<Entry> all;
        for (const dpm_host_entry &host : hosts(master()))
            all.push_back({host.vrf, host.ip, {host.sdk_index}, false});
        const auto labels = ftns(master());
        for (const dpm_route_entry &route : routes(master()))
            if (std::none_of(labels.begin(), labels.end(), [&](const dpm_ftn &ftn) {
                    return ftn.vrf_id == route.vrf && route.vrf == 0 &&
                           ftn.prefixlen == route.destination.prefix_len &&
                           std::memcmp(ftn.fec_prefix, route.destination.address, 16) == 0;
                }))
                all.push_back({route.vrf, route.destination, resolved(route), route.sdk_index > 2});
        return all;
    }
    Members resolved(const dpm_route_entry &route) {
        Members members;
        const auto all_hosts = hosts(master());
        for (unsigned i = 0; i < route.np_num; ++i) {
            if (route.np[i].family == DPM_FAMILY_NONE)
                members.insert(2);
            for (const dpm_host_entry &host : all_hosts)
                if (host.vrf == route.vrf && std::memcmp(&host.ip, &route.np[i], 20) == 0 &&
                    (host.ip.family == DPM_FAMILY_IPV4 || host.ifindex == route.np_ifindex[i]))
                    members.insert(host.sdk_index);
        }
        return members;
    }
    // The longest prefix that leads somewhere counts; it may stand there several times, with other
    // host bits.
    void compare_lookups(const std::vector<Entry> &tables, unsigned vrf, const dpm_prefix &ip,
                         bool forwards) {
        std::string usable = "none";
        std::map<int, std::set<Members>> reached{{-1, {}}}; // by length
        int longest = -1;
        for (const Entry &entry : tables) {
            const int length = entry.prefix.prefix_len;
            if (!entry.covers(vrf, ip))
                continue;
            if (entry.is_usable_route && length > longest)
                longest = length, usable = rig::text_of(entry.prefix);
            if (!entry.members.empty())
                reached[length].insert(entry.members);
        }
        const dpm_route_entry *const best = dpm_route_find_best_route(vrf, &ip);
        EXPECT_EQ(best ? rig::text_of(best->destination) : "none", usable);
        if (!forwards)
            return;
        const auto answer = master().chip.lookup(std::int32_t(vrf), ip.family, ip.address);
        ++asked, forwarded += answer.has_value();
        const auto &[length, nexthops] = *reached.rbegin();
        EXPECT_EQ(answer ? int(answer->entry.prefix_len) : -1, length);
        EXPECT_TRUE(!answer || nexthops.contains({answer->members.begin(), answer->members.end()}));
    }

    Stretch stretch = Stretch::plain;
    std::map<std::pair<std::string, unsigned>, Neighbour> present; // by address and VLAN
    std::map<Key, Installed> routes_there;
    std::multimap<std::string, Ftn> labels; // by prefix
    std::set<unsigned> incoming;
    std::vector<std::int32_t> held; // groups of nobody
    unsigned now = 0;
};

} // namespace

TEST(RoutesWalk, ForwardsAsTheTablesSayWhateverHappens) {
    if (const auto walk = rig::take_walk<RoutesWalk>(60'000)) {
        EXPECT_GT(walk->most_routes, 25u) << "the walk went nowhere";
        EXPECT_GT(walk->forwarded, walk->asked / 20);
    }
}
