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

struct Place { // where a neighbour may appear
    std::string ip;
    unsigned vlan, vrf;
    auto operator<=>(const Place &) const = default;
    bool is_ipv6() const { return ip.find(':') != ip.npos; }
    bool is_linklocal() const { return ip.starts_with("fe80"); }
};

std::vector<Place> all_places() {
    std::vector<Place> places;
    const auto add = [&](const char *net, unsigned vlan, unsigned vrf, unsigned count) {
        for (unsigned i = 2; i < 2 + count; ++i)
            places.push_back({joined(net, i), vlan, vrf});
    };
    add("10.1.1.", 100, 0, 7), add("2001:db8:1::", 100, 0, 7), add("fe80::", 100, 0, 4);
    add("10.1.2.", 200, 0, 7), add("fe80::", 200, 0, 4);
    add("10.1.3.", 300, 5, 4), add("2001:db8:3::", 300, 5, 4);
    return places;
}

// What the tables say of an address, read naively.
class Tables {
public:
    using Members = std::multiset<std::uint32_t>; // next hops

    Tables(const std::vector<dpm_host_entry> &hosts, const std::vector<dpm_route_entry> &routes,
           const std::vector<dpm_ftn> &ftns) {
        for (const dpm_host_entry &host : hosts)
            entries_.push_back({host.vrf, host.ip, {host.sdk_index}, false});
        for (const dpm_route_entry &route : routes)
            if (std::none_of(ftns.begin(), ftns.end(), [&](const dpm_ftn &ftn) {
                    return ftn.vrf_id == 0 && ftn.prefixlen == route.destination.prefix_len &&
                           std::memcmp(ftn.fec_prefix, route.destination.address, 16) == 0;
                }))
                entries_.push_back(
                    {route.vrf, route.destination, resolved(route, hosts), route.sdk_index > 2});
    }
    std::string best_route(unsigned vrf, const dpm_prefix &ip) const {
        const Entry *best = nullptr;
        for (const Entry &entry : entries_)
            if (entry.is_usable_route && entry.covers(vrf, ip) &&
                (!best || entry.prefix.prefix_len > best->prefix.prefix_len))
                best = &entry;
        return best ? rig::text_of(best->prefix) : "none";
    }
    // The longest prefix that leads somewhere, and the next hops of each entry of that length: a
    // prefix may stand there several times, with other host bits.
    std::pair<int, std::set<Members>> lookup(unsigned vrf, const dpm_prefix &ip) const {
        std::map<int, std::set<Members>> found{{-1, {}}};
        for (const Entry &entry : entries_)
            if (!entry.members.empty() && entry.covers(vrf, ip))
                found[entry.prefix.prefix_len].insert(entry.members);
        return *found.rbegin();
    }

private:
    struct Entry {
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
    static Members resolved(const dpm_route_entry &route,
                            const std::vector<dpm_host_entry> &hosts) {
        Members members;
        for (unsigned i = 0; i < route.np_num; ++i) {
            if (route.np[i].family == DPM_FAMILY_NONE)
                members.insert(2);
            for (const dpm_host_entry &host : hosts)
                if (host.vrf == route.vrf && std::memcmp(&host.ip, &route.np[i], 20) == 0 &&
                    (host.ip.family == DPM_FAMILY_IPV4 || host.ifindex == route.np_ifindex[i]))
                    members.insert(host.sdk_index);
        }
        return members;
    }
    std::vector<Entry> entries_;
};

class RoutesWalk : public rig::ShelfWalk {
public:
    static constexpr unsigned check_every = 120; // a stretch

    RoutesWalk() : ShelfWalk(check_every) {
        deeds = {{260, [this] { learn(); }},
                 {160, [this] { forget(); }},
                 {260, [this] { install(any_route()); }},
                 {60, [this] { install_again(); }},
                 {110, [this] { withdraw(); }},
                 {50, [this] { label(); }},
                 {45, [this] { unlabel(); }},
                 {20, [this] { wait(); }},
                 {10, [this] { line_card_comes(); }},
                 {10, [this] { has_standby() ? standby_goes() : standby_comes(); }},
                 {15, [this] { master_falls(); }}};
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

    // In a VRF's own space: a label entry of VRF 0 never meets a prefix of another's.
    std::string any_address(bool ipv6, unsigned vrf, unsigned spread = 3) {
        const std::string middle = joined(vrf + 20 + below(spread), ipv6 ? ":" : ".", below(3));
        const unsigned last = one_in(2) ? 0 : below(6);
        return ipv6 ? joined("2001:db8:", middle, "::", last) : joined("10.", middle, ".", last);
    }
    std::string any_prefix(bool ipv6, unsigned vrf) {
        static constexpr unsigned lengths[2][6] = {{15, 16, 23, 24, 30, 32},
                                                   {47, 48, 63, 64, 126, 128}};
        return joined(any_address(ipv6, vrf), "/", lengths[ipv6][below(6)]);
    }
    Route any_route() {
        const bool ipv6 = one_in(3);
        const unsigned vrf = one_in(6) ? 5 : 0;
        Route route{.prefix = any_prefix(ipv6, vrf), .via = {}, .vrf = vrf, .type = below(14)};
        if (one_in(12))
            route.prefix = ipv6 ? "::/0" : "0.0.0.0/0";
        std::set<Place> via;
        for (unsigned count = one_in(3) ? 1 + below(7) : 1 + below(2); via.size() < count;) {
            const Place place = any_of(places);
            if (place.is_ipv6() == ipv6 && via.insert(place).second)
                route.via.push_back({place.ip, vlanif(place.vlan)});
        }
        if (one_in(20))
            route.via.insert(route.via.begin() + below(unsigned(via.size())), {"", "vlanif100"});
        // To a host's address, where the chip lets it go: else it would stand beside the host.  Its
        // own interface is asked for the host.
        const Place to = any_of(places);
        if (one_in(15) && stretch != Stretch::faulty && to.is_ipv6() == ipv6 &&
            !to.is_linklocal()) {
            route.prefix = to.ip, route.vrf = to.vrf;
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
        const Place place = any_of(places);
        const Neighbour own{.ip = place.ip,
                            .mac = joined("02:00:00:00:01:0", below(8)),
                            .vlan = place.vlan,
                            .port = 1 + below(3)};
        arm_any(1, {1, 3, 4, 5}); // a second block that fails leaves an object, on purpose
        tell(true, own);
        disarm();
        present[place] = own;
        routes_there.erase({place.vrf, place.ip});
    }
    void forget() {
        if (present.empty())
            return;
        const auto [place, own] = any_of(present);
        arm_any(0, {1});
        tell(false, own);
        disarm();
        present.erase(place);
    }
    void install(const Route &route) {
        arm_any(0, {1, 2, 3, 4, 5});
        note("route add ", route.prefix, " vrf ", route.vrf, " type ", route.type,
             gateways_of(route, true));
        add_route(route);
        disarm();
        const Key key = key_of(route);
        if (std::any_of(present.begin(), present.end(), [&](const auto &host) {
                return key == Key(host.first.vrf, host.first.ip);
            }))
            return; // a host wins
        Installed &there = routes_there.try_emplace(key, Installed{route, 0}).first->second;
        if (gateways_of(there.route, false) != gateways_of(route, false))
            there.route = route;
        there.expires = 0;
    }
    void install_again() {
        if (!routes_there.empty())
            install(any_of(routes_there).second.route);
    }
    void withdraw() {
        const bool any = routes_there.empty() || one_in(10);
        const Route route = any ? any_route() : any_of(routes_there).second.route;
        arm_any(0, {1});
        note("route del ", route.prefix, " vrf ", route.vrf);
        del_route(route);
        disarm();
        routes_there.erase(key_of(route));
    }
    void label() {
        const Ilm ilm{.label = 100 + below(20), .flags = 1 + below(2)};
        Ftn ftn{.prefix = any_prefix(one_in(3), 0), .nhop = one_in(2) ? "10.1.1.2" : "10.1.1.3"};
        std::vector<std::string> taken;
        for (const auto &[key, installed] : routes_there)
            if (key.first == 0 && !key.second.ends_with("/0"))
                taken.push_back(key.second);
        if (!taken.empty() && !one_in(4))
            ftn.prefix = any_of(taken);
        if (one_in(5))
            ftn.vrf = 5;
        arm_any(0, {1});
        note("# a label for ", ftn.prefix, " via ", ftn.nhop, " vrf ", ftn.vrf);
        add_ftn(ftn);
        labels.push_back(ftn);
        if (one_in(3)) {
            note("# incoming label ", ilm.label, ilm.flags == DPM_LABEL_WAITING ? " waits" : "");
            add_ilm(ilm);
            incoming.insert(ilm.label);
        }
        disarm();
    }
    void unlabel() {
        if (labels.empty())
            return;
        const auto ftn = labels.begin() + below(unsigned(labels.size()));
        arm_any(0, {1});
        note("# no label for ", ftn->prefix, " via ", ftn->nhop, " vrf ", ftn->vrf);
        del_ftn(*ftn);
        labels.erase(ftn);
        if (!incoming.empty() && one_in(2)) {
            const Ilm ilm{.label = any_of(incoming)};
            note("# no incoming label ", ilm.label);
            del_ilm(ilm);
            incoming.erase(ilm.label);
        }
        disarm();
    }
    void wait() {
        now += time_passes(300);
        std::erase_if(routes_there, [this](const auto &there) {
            return there.second.expires && there.second.expires <= now;
        });
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

    void check() override {
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
        for (const Place &place : places)
            if (const auto there = routes_there.find({place.vrf, place.ip});
                stretch == Stretch::faulty && there != routes_there.end()) {
                del_route(there->second.route);
                routes_there.erase(there);
            }
        if (stretch == Stretch::few_groups)
            for (std::size_t taken = groups(master()).size(); taken < 1020; ++taken) {
                held.push_back(0);
                ASSERT_EQ(dpm_ecmp_add(DPM_FAMILY_IPV4, &held.back(), 2), 0);
            }
        settle();
    }
    // Everything is taken away, and what was adrift is sound again.
    void clear() {
        for (const Ftn &ftn : std::exchange(labels, {}))
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
        const Tables tables(hosts(master()), routes(master()), ftns(master()));
        for (unsigned i = 0; i < 24; ++i) {
            const Place place = any_of(places);
            const bool to_host = one_in(4) && !place.is_linklocal();
            const unsigned vrf = one_in(4) ? 5 : 0;
            const std::string ip = to_host ? place.ip : any_address(one_in(2), vrf, 4);
            const dpm_prefix address = rig::prefix_of(ip);
            const dpm_route_entry *const best = dpm_route_find_best_route(vrf, &address);
            EXPECT_EQ(best ? rig::text_of(best->destination) : "none",
                      tables.best_route(vrf, address))
                << ip << " vrf " << vrf;
            if (forwards)
                compare_forwarding(tables, vrf, address);
        }
    }
    void compare_forwarding(const Tables &tables, unsigned vrf, const dpm_prefix &ip) {
        const auto [length, nexthops] = tables.lookup(vrf, ip);
        const auto answer = master().chip.lookup(std::int32_t(vrf), ip.family, ip.address);
        ++asked;
        ASSERT_EQ(answer ? int(answer->entry.prefix_len) : -1, length)
            << rig::text_of(ip) << " vrf " << vrf;
        if (!answer)
            return;
        ++forwarded;
        EXPECT_TRUE(nexthops.contains({answer->members.begin(), answer->members.end()}))
            << rig::text_of(ip) << " vrf " << vrf;
    }

    const std::vector<Place> places = all_places();
    Stretch stretch = Stretch::plain;
    std::map<Place, Neighbour> present;
    std::map<Key, Installed> routes_there;
    std::vector<Ftn> labels;
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
