// The walk over all tables: hosts, interfaces, routes and label entries, with refusals of the chip,
// memory, queues and groups that give out, standby cards that come and go, and masters that die.
//
// A deed is a command as rows have them (rows.h), with words that are drawn.  What the laws cannot
// see a model knows: which entries there are, as the descriptions of their tables tell it.  A table
// joins with deeds, their words and a row of `modelled`.
//
// The walk goes in stretches.  In a plain one nothing fails.  In one of few groups most are taken,
// so routes miss members.  In one of faults of hosts, and in a faulty one with everything, anything
// may be refused; behind these everything is taken away.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "dpm_bridge.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_route.h"
#include "platform/dal.h"
#include "support/multicast.h"
#include "support/rows.h"
#include "support/walk.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <sstream>

namespace {

namespace tables = chassis::tables;
using rig::Words;
using rig::words_of;
using Entries = std::map<std::string, std::string>; // what is told of an entry, by its key
using Told = std::optional<std::string>;

enum class Stretch { plain, few_groups, faulty_hosts, faulty };
constexpr const char *stretches[] = {"plain", "of few groups", "of faults of hosts", "faulty"};

struct TableWalk : rig::RowShelf, rig::Walk {
    TableWalk();
    Stretch stretch = Stretch::plain;
    std::string fault;                             // that holds until the deed ends
    std::map<std::string_view, Entries> model;     // by table
    Entries vrf_of;                                // of the interfaces that there are
    std::map<std::string, unsigned long> expiring; // routes that nobody has renewed, till when
    std::vector<std::int32_t> held;                // groups of nobody
    unsigned long now = 0;                         // seconds
    std::size_t most_hosts = 0, most_routes = 0;
};

void wait_for_host(rig::RowShelf &, const Words &words) {
    const dpm_prefix ip = rig::prefix_of(words[1]);
    (void)dpm_host_get_index_by_ip(0, 900, &ip);
}
const rig::Verb await{"await", wait_for_host};

// "lead add|del PREFIX vrf N tunnelN": a route over a tunnel, which need not be there.
void lead(rig::RowShelf &shelf, const Words &words) {
    const dpm_prefix to = rig::prefix_of(words[2]);
    std::uint32_t word;
    std::memcpy(&word, to.address, sizeof word);
    (void)dpm_api_route_tunnel_pro(words[1] == "add" ? DPM_OPER_ADD : DPM_OPER_DEL,
                                   unsigned(std::stoul(words[4])), word, to.prefix_len,
                                   unsigned(std::stoul(words[5].substr(6))));
    shelf.settle();
}
const rig::Verb lead_verb{"lead", lead};
bool is_over_tunnel(const std::string &told) {
    return told.find(" dev tunnel") != told.npos;
}

// --- the model ---

// How entries are told: columns stand in braces, the first words are the key.
constexpr struct Modelled {
    std::string_view table, verb;
    unsigned key_words;
    const char *told;
} modelled[] = {
    {"hosts", "neigh", 3,
     "{address} vrf {vrf} dev {interface} vlan {vlan} lladdr {mac} cvlan {cvlan} port {port}"},
    {"routes", "route", 3, "{destination} vrf {vrf} {gateways}"},
    {"ftn", "ftn", 5, "{fec} via {nexthop} vrf {vrf} label {tunnel_label}"},
    {"ilm", "ilm", 1, "{label} vrf {vrf} swap {swap}"},
    {"mpls-if", "mpls", 1, "{interface} space {label_space}"},
    {"bfd", "bfd", 1, "{disc} via {via}"},
};
const Modelled &hosts = modelled[0], &routes = modelled[1], &ftns = modelled[2],
               &mpls_ifs = modelled[4], &sessions = modelled[5];

bool is_ipv6(const std::string &ip) {
    return ip.find(':') != ip.npos;
}
std::string text_of(const Words &words, std::size_t first = 0, std::size_t end = ~0u) {
    std::string text;
    for (std::size_t i = first; i < std::min(end, words.size()); ++i)
        text += (i > first ? " " : "") + words[i];
    return text;
}
void replace(std::string &text, const std::string &part, const std::string &by) {
    if (const std::size_t at = text.find(part); at != text.npos)
        text.replace(at, part.size(), by);
}
std::string key_of(const Modelled &row, const std::string &told) { // IPv6 hosts have a link
    const Words words = words_of(told);
    return text_of(words, 0, row.key_words + (&row == &hosts && is_ipv6(words[0]) ? 2 : 0));
}
// An entry as commands name it: they leave the VRF of a neighbour to its interface.
std::string named(const Modelled &row, const std::string &told) {
    const Words words = words_of(told);
    return &row == &hosts ? words[0] + " " + text_of(words, 3, 7) : key_of(row, told);
}

// A route as the library compares it: an interface counts with a link-local gateway alone.
std::string compared(const std::string &told) {
    const Words words = words_of(told);
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        if (i < 2 || words[i - 1] != "dev" || words[i - 2].starts_with("fe80"))
            text += " " + words[i];
    return text;
}

// All entries, or those that are named after something.
Entries read(TableWalk &walk, const Modelled &row, const std::string &name = "") {
    Entries all;
    const tables::Reading reading(walk.master());
    const tables::Table &table = *tables::find(row.table);
    table.each(reading, [&](const tables::Row &entry) {
        if (entry.key().find(name) == name.npos)
            return;
        const std::vector<tables::Cell> cells = entry.cells();
        std::string told = row.told;
        for (std::size_t at; (at = told.find('{')) != told.npos;) {
            const std::size_t end = told.find('}', at);
            const auto column = std::ranges::find(table.columns, told.substr(at + 1, end - at - 1));
            told.replace(at, end + 1 - at, tables::plain(cells[column - table.columns.begin()]));
        }
        replace(told, " cvlan 0", "");
        replace(told, "port trunk", "trunk");
        const Words words = words_of(told); // of a route: "PREFIX vrf N IP NAME STATE, ..."
        if (&row == &routes)
            told = text_of(words, 0, 3);
        for (std::size_t i = 3; &row == &routes && i + 2 < words.size(); i += 3)
            told += (words[i] == "-" ? "" : " via " + words[i]) + " dev " + words[i + 1];
        if (&row == &ftns && words[4] != "0") // a VPN route has its tunnel's label
            told = key_of(row, told);
        all[key_of(row, told)] = told;
    });
    return all;
}
Entries entries_on(TableWalk &walk, const Modelled &row, const std::string &dev) {
    Entries all = read(walk, row);
    std::erase_if(all, [&](const auto &entry) {
        return (entry.second + " ").find(" dev " + dev + " ") == dev.npos;
    });
    return all;
}
// One of those that there are: the choice stays the same when most of the others are not.
const Entries::value_type *next_to(const Entries &there, const std::string &key) {
    const auto found = there.lower_bound(key);
    return there.empty() ? nullptr : &*(found == there.end() ? there.begin() : found);
}

// Whether a fault holds, or may have left what meets the deeds behind it.
bool is_faulty(const TableWalk &walk) {
    return !walk.fault.empty() || walk.stretch == Stretch::faulty;
}
// The entry must be there now, or be gone.  Behind a fault it is as it is.
void expect(TableWalk &walk, const Modelled &row, const std::string &key, Told told) {
    Entries &entries = walk.model[row.table];
    if (is_faulty(walk)) {
        const Entries found = read(walk, row, words_of(key)[0]);
        const auto at = found.find(key);
        told = at == found.end() ? Told() : at->second;
    }
    told ? void(entries[key] = *told) : void(entries.erase(key));
}

// What is expected behind a command.
void look_behind_host(TableWalk &walk, const Words &words, const std::string &vrf) {
    const std::string told = words[2] + " vrf " + vrf + " " + text_of(words, 3);
    const std::string key = key_of(hosts, told);
    if (words[1] == "add" && is_ipv6(words[2]) && !words[2].starts_with("fe80")) // it has moved
        for (const auto &[other, host] : Entries(walk.model["hosts"]))
            if (other != key && other.starts_with(words[2] + " vrf " + vrf + " "))
                expect(walk, hosts, other, {});
    expect(walk, hosts, key, words[1] == "add" ? Told(told) : Told());
    if (words[1] == "del")
        return;
    const dpm_prefix ip = rig::prefix_of(words[2]);
    expect(walk, routes, tables::prefix_text(ip) + " vrf " + vrf, {}); // a host wins
    const auto dev = walk.master().suite.find(rig::word_behind(words, "dev"));
    EXPECT_TRUE(is_faulty(walk) || !dev ||
                !dpm_host_unreachable_find(unsigned(std::stoul(vrf)), dev->ifindex, &ip))
        << "known and waited for";
}
void look_behind_route(TableWalk &walk, const Words &words, const std::string &told) {
    // A host wins; an IPv6 one is looked for on the first gateway's interface.
    const std::string host = words[2].substr(0, words[2].find('/')) + " vrf " + words[4] + " dev " +
                             rig::word_behind(words, "dev");
    if (words[1] == "add" && walk.model["hosts"].contains(key_of(hosts, host)))
        return;
    const std::string key = key_of(routes, told);
    const auto present = walk.model["routes"].find(key);
    if (present != walk.model["routes"].end() && is_over_tunnel(present->second))
        return expect(walk, routes, key, present->second); // the tunnels' alone
    if (words[1] == "del")
        expect(walk, routes, key, {});
    else if (present == walk.model["routes"].end() || compared(present->second) != compared(told))
        expect(walk, routes, key, told);
    const auto *const route = walk.route(walk.master(), words[2], unsigned(std::stoul(words[4])));
    if (!is_faulty(walk) || !route || route->delete_timer.expiry_sec == 0)
        walk.expiring.erase(key);
}
// A route over a tunnel is there when the tunnel was in its VRF; else what was there stays.
void look_behind_lead(TableWalk &walk, const Words &words) {
    const std::string key = key_of(routes, text_of(words, 2));
    const Entries found = read(walk, routes, words[2]);
    const auto at = found.find(key);
    const bool is_there = at != found.end() && is_over_tunnel(at->second);
    const auto before = walk.model["routes"].find(key);
    const bool was_there = before != walk.model["routes"].end();
    if (is_faulty(walk) ||
        (words[1] == "add" ? is_there : was_there && is_over_tunnel(before->second)))
        expect(walk, routes, key, words[1] == "add" && is_there ? Told(at->second) : Told());
    if (!is_faulty(walk) && is_there)
        walk.expiring.erase(key);
}
// The last request counts; of an interface and of a BFD session the first.  A VPN route is told with its remote last: it
// comes only where a tunnel leads there.
void look_behind_label(TableWalk &walk, const Modelled &row, const Words &words) {
    const std::string told = text_of(words, 2, 2 + words_of(row.told).size());
    const std::string key = key_of(row, told);
    const bool is_vpn = &row == &ftns && words[6] != "0";
    if (words[1] == "del")
        return expect(walk, row, key, {});
    if (words[1] != "add")
        return;
    if (((&row == &mpls_ifs || &row == &sessions) && walk.model[row.table].contains(key)) ||
        (is_vpn && std::ranges::none_of(walk.model[row.table], [&](const auto &tunnel) {
             return tunnel.first.ends_with(" vrf 0") &&
                    tunnel.first.starts_with(words.back() + "/");
         })))
        return;
    expect(walk, row, key, is_vpn ? key : told);
}
void look_behind(TableWalk &walk, const std::string &command, bool is_accepted) {
    const Words words = words_of(command);
    std::string told = text_of(words, 2);
    told.resize(std::min(told.find(" type "), told.size()));
    const bool is_host = words[0] == "neigh" && walk.vrf_of.contains(words[4]);
    EXPECT_TRUE(is_accepted || is_faulty(walk) || !(is_host || words[0] == "route"));
    if (is_host)
        look_behind_host(walk, words, walk.vrf_of[words[4]]);
    else if (words[0] == "route")
        look_behind_route(walk, words, told);
    else if (words[0] == "lead")
        look_behind_lead(walk, words);
    else if (command.starts_with("if add vlanif1"))
        walk.vrf_of.try_emplace(words[2], "0");
    walk.now += words[0] == "clock" ? std::stoul(words[2]) : 0;
    if (words[0] == "clock" && is_faulty(walk)) // hosts that the chip kept leave their interfaces
        for (const auto &[key, host] : Entries(walk.model["hosts"]))
            expect(walk, hosts, key, host);
    for (const auto &[key, at] : std::map(walk.expiring))
        if (at <= walk.now)
            expect(walk, routes, key, {}), walk.expiring.erase(key);
    for (const Modelled &row : modelled)
        if (words[0] == row.verb && &row != &hosts && &row != &routes && is_accepted)
            look_behind_label(walk, row, words);
}
void perform(TableWalk &walk, const std::string &command) {
    walk.note(command);
    const bool is_accepted = walk.act(command);
    look_behind(walk, command, is_accepted);
}

// --- words ---

std::string drawn(TableWalk &walk, std::string text);

// Some move between interfaces.
std::string any_neighbour(TableWalk &walk) { // "IP dev NAME vlan N"
    const unsigned vlan = walk.below(4), kind = walk.below(5);
    const std::string net = kind < 3   ? "10.1." + std::to_string(vlan) + "."
                            : kind < 4 ? "2001:db8:" + std::to_string(vlan + 1) + "::"
                                       : "fe80::";
    const std::string on = std::to_string(100 + (walk.one_in(8) ? walk.below(4) : vlan));
    return drawn(walk, net + "{2-8} dev vlanif" + on + " vlan " + on);
}
std::string any_route(TableWalk &walk) { // "PREFIX vrf N via IP dev NAME ... type N"
    const bool ipv6 = walk.one_in(3);
    std::string text = drawn(walk, ipv6 ? "{prefix 6}" : "{prefix 4}");
    // To a host's address: the host wins, then and later.
    if (const std::string to = words_of(any_neighbour(walk))[0];
        walk.one_in(15) && is_ipv6(to) == ipv6 && !to.starts_with("fe80"))
        text = to + (ipv6 ? "/128" : "/32");
    text += drawn(walk, " vrf {0|0|0|0|0|5}");
    unsigned count = 1 + walk.below(walk.one_in(3) ? 7 : 2);
    for (unsigned tries = 0; count > 0 && tries < 50; ++tries) {
        const Words own = words_of(any_neighbour(walk));
        if ((is_ipv6(own[0]) == ipv6 || walk.one_in(9)) && walk.vrf_of.contains(own[2]))
            text += " via " + own[0] + " dev " + own[2], --count;
    }
    if (text.find(" via ") == text.npos || walk.one_in(20))
        text += " dev vlanif200";
    return drawn(walk, text + " type {0-13}");
}
std::string any_gateways(TableWalk &walk) {
    return text_of(words_of(any_route(walk)), 3);
}
// Mostly in a route's place, over a neighbour that there is; a VPN route over a tunnel.
std::string any_ftn(TableWalk &walk) { // "PREFIX via IP vrf N label N dev NAME remote IP"
    const Words route = words_of(drawn(walk, "{known route}"));
    const bool is_in_its_place = !walk.one_in(5) && route[2] == "0";
    const Words over = words_of(drawn(walk, "{known neighbour}"));
    const std::string remote = words_of(drawn(walk, "{tunnel}"))[0];
    return (is_in_its_place ? route[0] : drawn(walk, "{{in 4}/24|{in 4}/32|{in 6}/64}")) + " via " +
           over[0] + drawn(walk, " vrf {0|0|0|0|5} label {1000-1001} dev ") + over[2] + " remote " +
           remote.substr(0, remote.find('/'));
}
// A label path to a peer of pseudowires.
std::string any_path(TableWalk &walk) {
    const Words over = words_of(drawn(walk, "{known neighbour}"));
    return drawn(walk, "{peer}/32 via ") + over[0] + drawn(walk, " vrf 0 label {1000-1001} dev ") +
           over[2] + " remote 10.9.0.1";
}
// A redundancy group that there is.
std::string any_group(TableWalk &walk) {
    Entries groups;
    for (const dpm_vpws_vc_fib &way : walk.all(walk.master(), tables::vpws_out))
        if (way.aps_id != 0)
            groups[std::to_string(way.aps_id)];
    const auto *const group = next_to(groups, drawn(walk, "{16-99}"));
    return group ? group->first : "16";
}
// Mostly over a neighbour that there is, or was.
std::string any_session(TableWalk &walk) {
    const Words over = words_of(drawn(walk, "{{known neighbour}|{known neighbour}|{neighbour}}"));
    return drawn(walk, "{disc} via ") + over[0] + " dev " + over[2] +
           drawn(walk,
                 "{| remote {7-9}}{|| hold}{| new}{|| admin-down}{| state up} timers {1-2},2,3"
                 "{|| type 3 fec 10.9.0.0/16| type 4 sub {3-6} id 7}");
}
std::string any_ilm(TableWalk &walk) {
    const Words over = words_of(drawn(walk, "{known neighbour}"));
    return drawn(walk, "{100-119} vrf {0|0|5} swap {3|{2001-2003}} via ") + over[0] + " dev " +
           over[2] + drawn(walk, "{||| egress}") + " fec " +
           drawn(walk, is_ipv6(over[0]) ? "{in 6}/64" : "{in 4}/24");
}

// What a word stands for: a text, what a function draws, or an entry that there is.
const struct {
    std::string_view word, text;
    std::string (*draw)(TableWalk &) = nullptr;
    const Modelled *known = nullptr;
} words_drawn[] = {
    {"neighbour", "", any_neighbour},
    {"known neighbour", "{neighbour}", nullptr, &hosts},
    {"as seen", "lladdr 02:00:00:00:01:0{0-5}{||||||| cvlan 7} {port|port|port|trunk} {1-3}"},
    {"dev", "vlanif{100-103}"},
    {"any dev", "{{dev}|{dev}|{dev}|vlanif200}"},
    {"own prefix", "{172.16.0.|172.16.0.|2001:db8:77::}{1-4}/{24|32}"},
    {"in 4", "10.{20-22}.{0-2}.{0|{0-5}}"},
    {"in 6", "2001:db8:{20-22}:{1-3}::{|{1-5}}"},
    {"prefix 4", "{0.0.0.0/0|{in 4}/{15|16}|{in 4}/{23|24}|{in 4}/{30|32}|{in 4}/{15|24|32}}"},
    {"prefix 6", "{::/0|{in 6}/{47|48}|{in 6}/{63|64}|{in 6}/{126|128}|{in 6}/{47|64|128}}"},
    {"route", "", any_route},
    {"gateways", "", any_gateways},
    {"known route", "{route}", nullptr, &routes},
    {"ftn", "", any_ftn},
    {"known ftn", "{ftn}", nullptr, &ftns},
    {"tunnel", "{in 4}/32 via 10.1.1.2 vrf 0", nullptr, &ftns},
    {"ilm", "", any_ilm},
    {"disc", "{100-107}"},
    {"session", "", any_session},
    {"gre", "tunnel{1-4}"},
    {"gre end", "{local 10.1.0.{1-2}|remote {in 4}|remote {in 4}|addr 10.99.0.{1-3}/24}"},
    {"gre set", "{key {1-2}|nokey|csum {0-1}|vrf {0|0|5}|underlay {0|0|5}|mode {1-2}}"},
    {"path", "", any_path},
    {"peer", "10.30.0.{1-2}"},
    {"pw", "vc-id {1-3} peer {peer}"},
    {"group of pws", "", any_group},
    {"bridge pw", "vpls {1-2} peer {peer}"},
    {"rule", "from 10.5.{0-1}.0/24 port {1-2} via 10.1.{0-3}.{2-8}"},
    {"from 4", "{| 10.9.9.{1-4}}{| 10.9.9.{1-4}}{| 10.9.9.{1-4}}"},
    {"from 6", "{| 2001:db8:9::{1-4}}{| 2001:db8:9::{1-4}}"},
    {"group", "{224.1.1.{1-2}{from 4}|224.1.1.{1-2}{from 4}|ff05::{1-2}{from 6}}"},
    {"mroute", "{{*|10.9.9.{1-3}} 224.1.1.{1-2}|{*|2001:db8:9::{1-3}} ff05::{1-2}}"},
    {"hears", "{join|leave|is-in|is-ex|to-in|to-ex|to-ex|allow|allow|block}"},
    {"of host", "{route|route-del|nexthop|nexthop-del}"},
    {"refused", " {1-2}{| skip 1}{| code 5}"},
    {"fault of hosts", "{fault alloc {1-5}|fault send 1 times 4|chip refuse {of host}{refused}|"
                       "chip refuse {of host}{refused}}"},
    {"of label", "{ftn|ftn-del|ilm|ilm-del|mpls}"},
    {"of session", "{local|remote}{|-del|-update}"},
    {"of pw", "{vpws{|-del|-update}|pw-switch|vpls{|-ac|-pw}{|-del}}"},
    {"of gre", "{port-key|gre|gre-del|gre-nexthop|gre-nexthop-update|gre-nexthop-del}"},
    {"fault",
     "{{fault of hosts}|{fault of hosts}|chip refuse group{|-member|-del}{refused}|"
     "chip refuse default-route{refused}|chip refuse {of gre}{refused}|"
     "chip refuse {of label}{refused}|chip refuse {of pw}{refused}|chip refuse bfd-{of session}{refused}|chip refuse mcast-{group|member}{|-del}{refused}}"},
};

// What stands in braces: a number, as in 3-9; one of several texts, as in a|b|c; or a word.
std::string one_of(TableWalk &walk, const std::string &choice) {
    if (unsigned first, last; std::sscanf(choice.c_str(), "%u-%u", &first, &last) == 2)
        return std::to_string(first + walk.below(last - first + 1));
    if (const auto bars = std::ranges::count(choice, '|'); bars > 0) {
        std::istringstream texts(choice);
        std::string text;
        for (unsigned i = 0, last = walk.below(unsigned(bars) + 1); i <= last; ++i)
            text.clear(), std::getline(texts, text, '|');
        return text;
    }
    const auto *const row =
        std::ranges::find(words_drawn, choice, [](const auto &each) { return each.word; });
    if (!row->known)
        return row->draw ? row->draw(walk) : std::string(row->text);
    const std::string any = drawn(walk, std::string(row->text));
    const auto *const entry = next_to(walk.model[row->known->table], any);
    return entry && !walk.one_in(8) ? named(*row->known, entry->second)
           : row->known == &hosts   ? any
                                    : key_of(*row->known, any);
}
// From the last brace to the first: what a text leaves out may have been drawn as well.
std::string drawn(TableWalk &walk, std::string text) {
    for (std::size_t open; (open = text.rfind('{')) != text.npos;) {
        const std::size_t length = text.find('}', open) - open;
        text.replace(open, length + 1, one_of(walk, text.substr(open + 1, length - 1)));
    }
    return text;
}

// --- faults ---

// What a fault may leave behind on purpose: a reference of a next hop whose entry was refused, an
// object of the chip for which there was no memory.
void account_for_fault(TableWalk &walk) {
    auto leaks = -unsigned(walk.hosts(walk.master()).size());
    auto orphans = walk.master().chip.held<chassis::chip::kinds::nexthop>();
    for (const dpm_nexthop_entry &entry : walk.nexthops(walk.master()))
        leaks += entry.cnt, orphans.erase(entry.sdk_index);
    EXPECT_LE(leaks - std::exchange(walk.allow().nexthop_leaks, leaks),
              walk.fault.starts_with("chip refuse route ") ? 2u : 0u)
        << "references leak";
    EXPECT_LE(orphans.size(), walk.fault.starts_with("fault alloc") ? 1u : 0u) << "objects leak";
    for (const auto &[index, object] : orphans)
        EXPECT_EQ(dal_driver_del_ip_nexthop(index, 0), 0);
}

void perform_under_fault(TableWalk &walk, const std::string &command) {
    walk.fault = drawn(walk, walk.stretch == Stretch::faulty ? "{fault}" : "{fault of hosts}");
    walk.note(walk.fault);
    (void)walk.act(walk.fault);
    perform(walk, command);
    const std::size_t kind_words = walk.fault.starts_with("fault") ? 2 : 3;
    (void)walk.act(text_of(words_of(walk.fault), 0, kind_words) + " 0");
    account_for_fault(walk);
    walk.fault.clear();
    perform(walk, "clock advance 30s"); // what nobody asks for again is tried again
    // A host whose entry could not be put back has none until it is told of again.
    for (const dpm_host_entry &host : walk.hosts(walk.master()))
        if (!dpm::is_linklocal(host.ip) && !dpm::has_chip_host(host.vrf, host.ip))
            for (const auto &[key, told] : read(walk, hosts, rig::text_of(host.ip) + " "))
                perform(walk, "neigh add " + words_of(told)[0] + " " + text_of(words_of(told), 3));
}

// --- deeds ---

// More requests than the queue takes.
void burst(TableWalk &walk) {
    const unsigned room = 1 + walk.below(4);
    walk.note("# the queue takes " + std::to_string(room) + ":");
    std::vector<std::string> accepted;
    walk.master().os.limit_queue(room);
    walk.hold(true);
    for (unsigned i = 0; i < 6; ++i) {
        const std::string command = drawn(walk, "neigh add {neighbour} {as seen}");
        walk.note(command);
        if (walk.vrf_of.contains(words_of(command)[4]) && walk.act(command))
            accepted.push_back(command);
        EXPECT_LE(accepted.size(), room);
    }
    walk.hold(false);
    walk.settle();
    walk.master().os.limit_queue(0);
    for (const std::string &command : accepted)
        look_behind(walk, command, true);
}

void interface_changes(TableWalk &walk) {
    const std::string deed = drawn(walk, "if {del|vrf}"), dev = drawn(walk, "{dev}");
    const std::string vrf = drawn(walk, "{0|5}");
    const auto found = walk.vrf_of.find(dev);
    if (found == walk.vrf_of.end() || (entries_on(walk, hosts, dev).size() > 3 && !walk.one_in(4)))
        return;
    const bool stay = deed == "if vrf" && vrf == found->second;
    const Entries lost = stay ? Entries() : entries_on(walk, hosts, dev);
    perform(walk, deed + " " + dev + (deed == "if vrf" ? " " + vrf : ""));
    for (const auto &[key, told] : lost)
        expect(walk, hosts, key, {});
    deed == "if del" ? void(walk.vrf_of.erase(found)) : void(found->second = vrf);
}

// Of a port that is no trunk no event tells: its circuits are settled within half a minute.
void port_changes(TableWalk &walk) {
    perform(walk, drawn(walk, "vlan port {100-103} {|1|2|trunk 1}"));
    perform(walk, "clock advance 30s");
}

void standby_changes(TableWalk &walk) {
    using chassis::os::Fault;
    const unsigned kind = walk.below(8);
    if (!walk.has_standby() || walk.one_in(4))
        return perform(walk, "standby comes");
    if (kind == 0) {
        walk.note("# the standby stops taking what is mirrored");
        walk.standby().os.fail(walk.one_in(2) ? Fault::send : Fault::allocation, 1, 4);
    } else if (kind == 1) {
        perform(walk, "card standby-lost"); // it is found unfit for use
        perform(walk, "clock advance 70s");
    }
    if (kind < 2)
        perform(walk, drawn(walk, "neigh add {neighbour} {as seen}"));
    if (kind < 5)
        perform(walk, "standby goes");
    walk.master().peer.set_standby_usable(true);
}

// When the standby can take over; what was refused is known to the master alone.
bool may_die(TableWalk &walk) {
    return walk.stretch != Stretch::faulty && walk.has_standby() && dpm_get_slave_up() == 1;
}
void take_over(TableWalk &walk) {
    perform(walk, "switch-over");
    walk.held.clear(); // no route names them
    for (const dpm_route_entry &route : walk.routes(walk.master()))
        if (dpm_route_dynamic_type_check(route.route_type))
            walk.expiring[tables::prefix_text(route.destination) + " vrf " +
                          std::to_string(route.vrf)] = walk.now + DPM_ROUTE_DELETE_SEC;
    if (!walk.one_in(3))
        perform(walk, "standby comes");
}
void master_dies(TableWalk &walk) {
    using chassis::chip::Function;
    if (!may_die(walk))
        return;
    const auto before = walk.standby().chip.requests(Function::del_ip_entry);
    const auto &next = walk.standby();
    take_over(walk);
    EXPECT_EQ(next.chip.requests(Function::del_ip_entry), before) << "the chip forgets";
}
// The standby and the line cards have seen a part of what the command changes.
void perform_dying(TableWalk &walk, const std::string &command) {
    const unsigned changes = walk.below(12);
    walk.fault = "# the master dies behind " + std::to_string(changes) + " changes:";
    walk.note(walk.fault);
    walk.note(command);
    walk.dies_behind(changes);
    const bool is_accepted = walk.act(command);
    take_over(walk);
    look_behind(walk, command, is_accepted);
    walk.fault.clear();
}

// The longest route that forwards answers, the first of the table among those of one length.
void compare_best_routes(TableWalk &walk) {
    const auto all = walk.routes(walk.master());
    std::set<std::string> fecs; // they hold the place of a route
    for (const auto &[key, told] : read(walk, ftns))
        if (key.ends_with(" vrf 0"))
            fecs.insert(words_of(key)[0]);
    for (unsigned i = 0; i < 24; ++i) {
        const unsigned vrf = walk.one_in(4) ? 5 : 0;
        const std::string text = drawn(walk, "{{in 4}|{in 6}|10.23.0.1}");
        const dpm_prefix ip = rig::prefix_of(text);
        const dpm_route_entry *wanted = nullptr;
        for (const dpm_route_entry &route : all)
            if (route.vrf == vrf && route.sdk_index > 2 && !dpm::is_over_tunnel(route) &&
                tables::covers(route.destination, ip) &&
                (!wanted || route.destination.prefix_len > wanted->destination.prefix_len) &&
                !(vrf == 0 && fecs.contains(tables::prefix_text(route.destination))))
                wanted = &route;
        const dpm_route_entry *const best = dpm_route_find_best_route(vrf, &ip);
        EXPECT_EQ(best ? rig::text_of(best->destination) : "none",
                  wanted ? rig::text_of(wanted->destination) : "none")
            << text << " vrf " << vrf;
    }
}

void check(TableWalk &walk) {
    walk.note("# a check");
    for (const Modelled &row : modelled)
        EXPECT_EQ(read(walk, row), walk.model[row.table]) << row.table;
    walk.most_hosts = std::max(walk.most_hosts, walk.model["hosts"].size());
    walk.most_routes = std::max(walk.most_routes, walk.model["routes"].size());
    walk.check_laws();
    compare_best_routes(walk);
}

void clear_pseudowires(TableWalk &walk) {
    std::vector<std::string> commands;
    const auto peer = [](unsigned id, const std::uint8_t *address) {
        return std::to_string(id) + " peer " + chassis::address_text(1, address);
    };
    for (const dpm_vpws_acif &acif : walk.all(walk.master(), tables::vpws_ac))
        commands.push_back(std::string("vpws unbind ") + acif.ifname);
    for (const dpm_vpws_vc_fib &way : walk.all(walk.master(), tables::vpws_out))
        commands.push_back("vpws out del vc-id " + peer(way.vc_id, way.vc_peer));
    for (const dpm_vpws_vc_ilm &way : walk.all(walk.master(), tables::vpws_in))
        commands.push_back("vpws in del vc-id " + peer(way.vpn_id, way.vc_peer));
    for (const dpm_vpls_acif &acif : walk.all(walk.master(), tables::vpls_ac))
        commands.push_back(std::string("vpls unbind ") + acif.ifname);
    for (const dpm_vpls_vc_fib &way : walk.all(walk.master(), tables::vpls_out))
        commands.push_back("vpls out del vpls " + peer(way.vpls_id, way.vc_peer));
    for (const dpm_vpls_vc_ilm &way : walk.all(walk.master(), tables::vpls_in))
        commands.push_back("vpls in del vpls " + peer(way.vpls_id, way.vc_peer));
    for (const dpm_vpls_vsi &bridge : walk.all(walk.master(), tables::vpls))
        commands.push_back("vpls del " + std::to_string(bridge.vpls_id));
    for (const std::string &command : commands)
        EXPECT_TRUE(walk.act("l2vpn " + command)) << command;
}

// Everything is taken away, and what was adrift is sound again.
void clear(TableWalk &walk) {
    clear_pseudowires(walk);
    for (const char *id : {"1", "2", "3", "4"})
        EXPECT_TRUE(walk.act(std::string("tunnel del tunnel") + id));
    for (const Modelled &row : modelled)
        for (const auto &[key, told] : &row == &hosts ? Entries() : read(walk, row))
            EXPECT_TRUE(walk.act(&row == &routes && is_over_tunnel(told)
                                     ? "lead del " + key + " tunnel1"
                                     : std::string(row.verb) + " del " + key))
                << key;
    for (std::int32_t &index : std::exchange(walk.held, {}))
        EXPECT_EQ(dpm_ecmp_del_all(DPM_FAMILY_IPV4, &index), 0);
    perform(walk, "clock advance 30s"); // hosts that the chip kept leave their interfaces
    for (const dpm_host_entry &host : walk.hosts(walk.master())) // some have no interface
        EXPECT_EQ(dpm_api_host_msg_send(&host, DPM_OPER_DEL), 0);
    walk.settle();
    for (const Modelled &row : modelled)
        EXPECT_EQ(read(walk, row), walk.model[row.table] = {}) << row.table;
    EXPECT_TRUE(walk.groups(walk.master()).empty());
    rig::multicast::clear(walk);
    walk.allow().group_leaks = walk.allow().mcast_adrift = 0;
    walk.allow().routes_adrift = walk.allow().standby_differs = false;
}

void stretch_ends(TableWalk &walk) {
    check(walk);
    if (walk.stretch != Stretch::plain)
        clear(walk);
    walk.check_laws();
    walk.stretch = Stretch(walk.below(4));
    walk.note(std::string("# the next stretch is ") + stretches[unsigned(walk.stretch)]);
    if (walk.stretch == Stretch::faulty_hosts)
        clear(walk);
    // A route that was refused does not follow its hosts, and the standby is not told of it.
    const bool is_faulty = walk.stretch == Stretch::faulty;
    walk.allow().mcast_adrift = walk.stretch >= Stretch::faulty_hosts;
    walk.allow().routes_adrift = walk.allow().standby_differs = is_faulty;
    if (walk.stretch != Stretch::few_groups)
        return;
    for (std::size_t taken = walk.groups(walk.master()).size(); taken < 1020; ++taken) {
        walk.held.push_back(0);
        ASSERT_EQ(dpm_ecmp_add(DPM_FAMILY_IPV4, &walk.held.back(), 2), 0);
    }
    walk.settle();
    walk.allow().group_leaks = unsigned(walk.held.size());
    walk.allow().routes_adrift = true;
}

// Which faults a command may meet.  Routes stay out of the stretch of faults of hosts, which does
// not end with everything taken away.  The suite tells of an interface once, and believes that it
// is there.
enum class Meets { nothing, faults, faults_of_routes };
using enum Meets;
constexpr struct Deed {
    unsigned weight;
    Meets meets;
    const char *command;
    void (*act)(TableWalk &) = nullptr;
} deeds_done[] = {
    {260, faults, "neigh add {neighbour} {as seen}"},
    {150, faults, "neigh del {known neighbour}"},
    {20, faults, "await {neighbour}"},
    {60, faults, "{port|port|trunk} {up|down} {1-4}"},
    {20, nothing, "", burst},
    {60, nothing, "if add {dev}"},
    {30, nothing, "", interface_changes},
    {45, nothing, "addr {add|add|del} {own prefix} dev {any dev}"},
    {30, nothing, "sub {add|add|del} 200 {201-205}"},
    {10, nothing, "vrf {enable|disable} {1-4}"},
    {5, nothing, "hash {1-4}"},
    {220, faults_of_routes, "route add {route}"},
    {50, faults_of_routes, "route add {known route} {gateways}"},
    {110, faults_of_routes, "route del {known route}"},
    {70, faults_of_routes, "ftn add {ftn}"},
    {45, faults_of_routes, "ftn del {known ftn}"},
    {40, faults_of_routes, "ilm add {ilm}"},
    {20, faults_of_routes, "ilm del {100-119}"},
    {60, faults_of_routes, "ftn {add|add|del} {path}"},
    {40, faults_of_routes, "l2vpn vpws {bind {dev} vc-id {1-3}{| svlan {5-6}}|unbind {dev}}"},
    {60, faults_of_routes,
     "l2vpn vpws out {add|add|add|del} {pw} label {2000-2002}{|| sibling {1-3} {peer}{| standby}}"},
    {50, faults_of_routes, "l2vpn vpws in {add|add|add|del} {pw} label {3000-3005}"},
    {15, faults_of_routes, "l2vpn vpls {add|add|add|del} {1-2}"},
    {30, faults_of_routes, "l2vpn vpls {bind {dev} vpls {1-2}{| svlan {5-6}}|unbind {dev}}"},
    {40, faults_of_routes,
     "l2vpn vpls out {add|add|add|del} {bridge pw} label {2000-2002}{| spoke}"},
    {40, faults_of_routes, "l2vpn vpls in {add|add|add|del} {bridge pw} label {3004-3009}"},
    {10, faults_of_routes, "l2vpn switch {group of pws} {primary|standby}"},
    {10, nothing, "", port_changes},
    {60, faults_of_routes, "bfd add {session}"},
    {15, faults_of_routes, "bfd del {disc}"},
    {40, faults_of_routes,
     "bfd update {disc}{| remote {0|0|{7-9}}}{| state {down|up}}{| cc {on|off}}"
     "{| timers {1-2},2,3}"},
    {40, faults_of_routes, "chip bfd {up {disc} remote {7-9}|lost {disc}|lost {disc}}"},
    {40, faults_of_routes, "tunnel add {gre} local 10.1.0.{1-2} remote {in 4}"},
    {40, faults_of_routes, "tunnel {set|set|set|del} {gre} {gre end}"},
    {25, faults_of_routes, "tunnel set {gre} {gre set}"},
    {10, faults_of_routes, "tunnel del {gre}"},
    {45, faults_of_routes, "lead {add|add|del} {prefix 4} vrf {0|0|5} {gre}"},
    {15, nothing, "pbr {add|add|del} {rule}"},
    {20, faults, "mpls {add|add|del} {any dev} space {1-3}"},
    {60, faults, "mroute {add|add|del} {mroute} {dev} {dev}{| {dev}}"},
    {150, faults, "hear {1-4} {100-103} {hears} {group}"},
    {30, nothing, "clock advance {0-199}s"},
    {10, nothing, "card slot-up 3"},
    {10, nothing, "", standby_changes},
    {10, nothing, "", master_dies},
    {12, nothing, "", check},
    {5, nothing, "", stretch_ends},
};

void do_deed(TableWalk &walk, const Deed &deed) {
    if (deed.act)
        return deed.act(walk);
    if (walk.stretch == Stretch::faulty_hosts && deed.meets == faults_of_routes)
        return;
    const bool may_fail = walk.stretch >= Stretch::faulty_hosts && deed.meets != nothing;
    const std::string command = drawn(walk, deed.command);
    if (may_fail && walk.one_in(3))
        return perform_under_fault(walk, command);
    if (deed.meets != nothing && walk.one_in(60) && may_die(walk))
        return perform_dying(walk, command);
    perform(walk, command);
}

TableWalk::TableWalk() : RowShelf(4, rig::Role::mirroring, {.bare = true}) {
    keep_log(false);
    for (const Deed &deed : deeds_done)
        deeds.emplace_back(deed.weight, [this, &deed] { do_deed(*this, deed); });
    for (const char *command :
         {"if add vlanif200 super", "if add vlanif100", "if add vlanif101", "if add vlanif102",
          "if add vlanif103", "if vrf vlanif103 5", "mcast snoop on", "vlan port 100 1",
          "vlan port 101 2", "vlan port 102 2"})
        note(command), (void)run(command);
    vrf_of = {{"vlanif100", "0"}, {"vlanif101", "0"}, {"vlanif102", "0"}, {"vlanif103", "5"}};
}

} // namespace

TEST(TablesWalk, KeepsTheLawsWhateverHappens) {
    const auto walk = rig::take_walk([] { return std::make_unique<TableWalk>(); }, 80'000);
    const auto *const end = static_cast<TableWalk *>(walk.get());
    const bool is_long = end && !std::getenv("DPM_WALK_STEPS");
    EXPECT_TRUE(!is_long || (end->most_hosts > 30 && end->most_routes > 25)) << "it went nowhere";
}
