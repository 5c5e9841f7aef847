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
#include <span>

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
    const Place heads[] = {{"10.1.1.", 100, 0}, {"2001:db8:1::", 100, 0}, {"10.1.2.", 200, 0},
                           {"10.1.3.", 300, 5}, {"2001:db8:3::", 300, 5}, {"fe80::", 100, 0},
                           {"fe80::", 200, 0}};
    std::vector<Place> places;
    for (unsigned i = 2; i < 9; ++i)
        for (const Place &head : std::span(heads).first(i > 5 ? 3 : 7))
            places.push_back({joined(head.ip, i), head.vlan, head.vrf});
    return places;
}

bool covers(const dpm_prefix &prefix, const dpm_prefix &address) {
    for (unsigned bit = 0; bit < prefix.prefix_len; ++bit)
        if ((prefix.address[bit / 8] ^ address.address[bit / 8]) >> (7 - bit % 8) & 1)
            return false;
    return prefix.family == address.family;
}

// The tables as they stand, read naively.
struct Tables {
    using Members = std::multiset<std::uint32_t>;
    std::vector<dpm_host_entry> hosts;
    std::vector<dpm_route_entry> routes;
    std::vector<dpm_ftn> ftns;

    bool is_labelled(const dpm_route_entry &route) const {
        return std::any_of(ftns.begin(), ftns.end(), [&](const dpm_ftn &ftn) {
            return ftn.vrf_id == 0 && ftn.prefixlen == route.destination.prefix_len &&
                   std::memcmp(ftn.fec_prefix, route.destination.address, 16) == 0;
        });
    }
    std::string best_route(unsigned vrf, const dpm_prefix &ip) const {
        const dpm_route_entry *best = nullptr;
        for (const dpm_route_entry &route : routes)
            if (route.vrf == vrf && covers(route.destination, ip) && route.sdk_index > 2 &&
                !is_labelled(route) &&
                (!best || route.destination.prefix_len > best->destination.prefix_len))
                best = &route;
        return best ? rig::text_of(best->destination) : "none";
    }
    Members resolved(const dpm_route_entry &route) const {
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
    // The longest prefix that leads somewhere, and the next hops of each entry of that length: a
    // prefix may stand there several times, with other host bits.
    std::pair<int, std::vector<Members>> lookup(unsigned vrf, const dpm_prefix &ip) const {
        std::map<int, std::vector<Members>> found{{-1, {}}};
        for (const dpm_host_entry &host : hosts)
            if (host.vrf == vrf && covers(host.ip, ip))
                found[host.ip.prefix_len].push_back({host.sdk_index});
        for (const dpm_route_entry &route : routes)
            if (route.vrf == vrf && covers(route.destination, ip) && !is_labelled(route))
                if (const Members members = resolved(route); !members.empty())
                    found[route.destination.prefix_len].push_back(members);
        return *found.rbegin();
    }
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
            add_interface(vlanif(vlan), vlan);
        set_vrf("vlanif300", 5);
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
        // To a host's address, where the chip lets it go: else it would stand beside the host.  Its
        // own interface is asked for the host.
        const Place to = any_of(places);
        if (one_in(15) && stretch != Stretch::faulty && to.is_ipv6() == ipv6 &&
            !to.is_linklocal()) {
            route.prefix = to.ip, route.vrf = to.vrf;
            route.via.push_back({"", vlanif(to.vlan)});
        }
        std::set<Place> via;
        for (unsigned count = one_in(3) ? 1 + below(7) : 1 + below(2); via.size() < count;) {
            const Place place = any_of(places);
            const auto is_there = [&](const Place &other) { return other.ip == place.ip; };
            if (place.is_ipv6() == ipv6 && (ipv6 || std::none_of(via.begin(), via.end(), is_there)))
                via.insert(place);
        }
        const auto first = std::ptrdiff_t(route.via.size());
        for (const Place &place : via)
            route.via.push_back({place.ip, vlanif(place.vlan)});
        if (one_in(20))
            route.via.push_back({"", "vlanif100"});
        std::shuffle(route.via.begin() + first, route.via.end(), random);
        if (route.via.size() > DPM_ROUTE_GATEWAYS)
            route.via.pop_back();
        if (one_in(40))
            route.np_num = 0;
        return route;
    }
    static Key key_of(const Route &route) {
        return {route.vrf, rig::text_of(rig::prefix_of(route.prefix))};
    }

    // One refusal or failure, beginning with the request's `first` entry.
    void arm_any(unsigned first, std::initializer_list<unsigned> allocations) {
        if (stretch != Stretch::faulty || !one_in(3))
            return;
        static constexpr const char *kinds[] = {"route", "route-del", "group", "group-member",
                                                "nexthop-del"};
        const unsigned kind = below(7);
        if (kind < 5)
            arm(kinds[kind], 1 + below(3), -1, (kind == 0 ? first : 0) + below(2));
        else
            arm(chassis::os::Fault::allocation, any_of(allocations));
    }

    // --- deeds ---

    void learn() {
        const Place place = any_of(places);
        const Neighbour own{.ip = place.ip,
                            .mac = joined("02:00:00:00:01:0", below(8)),
                            .vlan = place.vlan,
                            .port = 1 + below(3)};
        arm_any(1, {1, 3, 4, 5}); // a second block that fails leaves an object, on purpose
        note_neighbour("add", own);
        learn_host(own);
        disarm();
        present[place] = own;
        routes_there.erase({place.vrf, place.ip});
    }
    void forget() {
        if (present.empty())
            return;
        const auto [place, own] = any_of(present);
        arm_any(0, {1});
        note_neighbour("del", own);
        forget_host(own);
        disarm();
        present.erase(place);
    }
    bool is_host(const Key &key) {
        return std::any_of(present.begin(), present.end(), [&](const auto &host) {
            return host.first.ip == key.second && host.first.vrf == key.first;
        });
    }
    static bool is_same(const Route &a, const Route &b) {
        return a.np_num.value_or(a.via.size()) == b.np_num.value_or(b.via.size()) &&
               (a.np_num == 0u ||
                std::equal(a.via.begin(), a.via.end(), b.via.begin(), b.via.end(),
                           [](const auto &x, const auto &y) { return x.ip == y.ip; }));
    }
    void note_route(const char *verb, const Route &route) {
        std::string via;
        for (const rig::Gateway &gateway : route.via)
            via += joined(gateway.ip.empty() ? "" : " via ", gateway.ip, " dev ", gateway.ifname);
        note("route ", verb, " ", route.prefix, " vrf ", route.vrf, " type ", route.type,
             route.np_num ? "" : via);
    }
    void install(const Route &route) {
        arm_any(0, {1, 2, 3, 4, 5});
        note_route("add", route);
        add_route(route);
        disarm();
        const Key key = key_of(route);
        if (is_host(key))
            return;
        Installed &there = routes_there.try_emplace(key, Installed{route, 0}).first->second;
        if (!is_same(there.route, route))
            there.route = route;
        there.expires = 0;
    }
    void install_again() {
        if (!routes_there.empty())
            install(any_of(routes_there).second.route);
    }
    void withdraw() {
        Route route = any_route();
        if (!routes_there.empty() && !one_in(10))
            route = any_of(routes_there).second.route;
        arm_any(0, {1});
        note_route("del", route);
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
            note("# incoming label ", ilm.label, " with flags ", ilm.flags);
            add_ilm(ilm), incoming.insert(ilm.label);
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
            const unsigned label = any_of(incoming);
            note("# no incoming label ", label);
            del_ilm({.label = label});
            incoming.erase(label);
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
            compare_routes();
            check_laws();
        }
        if (stretch != Stretch::plain)
            clear();
        compare_routes();
        check_laws();
        compare_forwarding();
        begin(Stretch(below(3)));
    }
    void begin(Stretch next) {
        static constexpr const char *names[] = {"plain", "of few groups", "faulty"};
        note("# from here on it is ", names[unsigned(next)]);
        stretch = next;
        if (stretch == Stretch::faulty)
            for (const Place &place : places)
                if (const auto there = routes_there.find({place.vrf, place.ip});
                    there != routes_there.end()) {
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
            dpm_route_msg msg{};
            msg.vrf = route.vrf;
            msg.destination = route.destination;
            EXPECT_EQ(dpm_api_route_pro(&msg, DPM_OPER_DEL), 0);
        }
        settle();
        for (std::int32_t &index : held)
            EXPECT_EQ(dpm_ecmp_del_all(DPM_FAMILY_IPV4, &index), 0);
        for (const dpm_host_entry &host : hosts(master()))
            EXPECT_EQ(dpm_api_host_msg_send(&host, DPM_OPER_DEL), 0);
        settle();
        EXPECT_TRUE(hosts(master()).empty());
        EXPECT_TRUE(groups(master()).empty());
        held.clear();
        present.clear();
        routes_there.clear();
        allow().group_leaks = 0;
        allow().routes_adrift = false;
    }

    // --- comparisons ---

    Tables tables() { return {hosts(master()), routes(master()), ftns(master())}; }
    void compare_routes() {
        const Tables all = tables();
        std::set<Key> wanted, found;
        for (const auto &[key, installed] : routes_there)
            wanted.insert(key);
        for (const dpm_route_entry &route : all.routes)
            found.emplace(route.vrf, rig::text_of(route.destination));
        EXPECT_EQ(found, wanted);
        most_routes = std::max(most_routes, found.size());
        for (unsigned i = 0; i < 10; ++i) {
            const unsigned vrf = one_in(4) ? 5 : 0;
            const std::string ip = any_address(one_in(2), vrf, 4);
            const dpm_prefix address = rig::prefix_of(ip);
            const dpm_route_entry *const best = dpm_route_find_best_route(vrf, &address);
            EXPECT_EQ(best ? rig::text_of(best->destination) : "none", all.best_route(vrf, address))
                << ip << " in vrf " << vrf;
        }
    }
    void compare_forwarding() {
        const Tables all = tables();
        for (unsigned i = 0; i < 24; ++i) {
            const Place place = any_of(places);
            const bool to_host = one_in(4) && !place.is_linklocal();
            const unsigned vrf = one_in(4) ? 5 : 0;
            const std::string ip = to_host ? place.ip : any_address(one_in(2), vrf, 4);
            const dpm_prefix address = rig::prefix_of(ip);
            const auto [length, nexthops] = all.lookup(vrf, address);
            const auto answer =
                master().chip.lookup(std::int32_t(vrf), address.family, address.address);
            ++asked;
            ASSERT_EQ(answer ? int(answer->entry.prefix_len) : -1, length) << ip << " vrf " << vrf;
            if (!answer)
                continue;
            ++forwarded;
            const Tables::Members members(answer->members.begin(), answer->members.end());
            EXPECT_TRUE(std::find(nexthops.begin(), nexthops.end(), members) != nexthops.end())
                << ip << " vrf " << vrf << ": " << ::testing::PrintToString(members);
        }
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
