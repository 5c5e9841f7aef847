// The walk over all tables: hosts, interfaces, routes and label entries, with refusals of the chip,
// memory, queues and groups that give out, standby cards that come and go, and masters that die.
//
// It goes in stretches.  In a plain one nothing fails, and the model says which entries there are.
// In one of few groups most are taken, so routes miss members.  In one of faults of hosts, and in a
// faulty one with everything, anything may be refused; behind these everything is taken away.

#include "dpm_bridge.h"
#include "dpm_host.h"
#include "dpm_l3vpn.h"
#include "dpm_route.h"
#include "support/walk.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest-spi.h>
#include <set>

namespace {

using chassis::chip::Function;
using rig::joined;
using rig::TableWalk;
using rig::word_behind;
using rig::Words;
using Entries = TableWalk::Entries;
using Stretch = TableWalk::Stretch;

constexpr unsigned first_vlan = 100, vlans = 4;

bool is_ipv6(const std::string &ip) {
    return ip.find(':') != ip.npos;
}
std::string vlanif(unsigned vlan) {
    return joined("vlanif", vlan);
}

// "ilm-leads LABEL": the interface that an incoming label leads out of, by its index.
const rig::Verb ilm_leads{"ilm-leads", [](rig::RowShelf &shelf, const Words &words) {
                              std::uint32_t ifindex = 0, nhop, swap, vrf;
                              dpm_ilm_info_get_by_lbl(std::uint32_t(std::stoul(words[1])), &ifindex,
                                                      &nhop, &swap, &vrf);
                              const auto found = shelf.master().suite.find(ifindex);
                              shelf.answer(found ? found->name : "none");
                          }};

// --- deeds that are known to fail ---

// What the walk leaves out, with the fault that it meets; the rows tell what should come of it.
struct KnownFault {
    std::string deed, fault;
    unsigned family;
    std::vector<rig::Row> rows;
};
const KnownFault deeds_that_fail[] = {
    {"if del under hosts",
     "they stay, and no request reaches them",
     4,
     {{"neigh add {a}"}, {"if del vlanif100"}, {"show hosts --count", "= 0"}}},
    {"if vrf under hosts",
     "they stay in the old VRF's chip tables",
     4,
     {{"neigh add {a}"}, {"if vrf vlanif100 5"}, {"show hosts --count", "= 0"}}},
    {"if del under routes",
     "with another ifindex their gateways are never resolved",
     6,
     {{"route add {net} via {a}"},
      {"if del vlanif100"},
      {"if add vlanif100"},
      {"neigh add {a}"},
      {"forwards {in}", "= {net} -> {a}"}}},
    {"if del under label entries",
     "they keep an ifindex that nobody has",
     4,
     {{"ilm add 7"}, {"if del vlanif100"}, {"if add vlanif100"}, {"ilm-leads 7", "= vlanif100"}}},
};
bool fails(const std::string &deed) {
    return std::ranges::any_of(deeds_that_fail,
                               [&](const KnownFault &known) { return known.deed == deed; });
}

// --- hosts ---

std::string host_key(unsigned vrf, const std::string &ip, const std::string &dev) {
    return joined(ip, " vrf ", vrf, is_ipv6(ip) ? " dev " + dev : "");
}

const rig::Modelled hosts{"hosts", "", [](TableWalk &walk) {
                              Entries all;
                              for (const dpm_host_entry &host : walk.hosts(walk.master())) {
                                  const bool is_trunk = host.port_type == DPM_PORT_LOGICAL;
                                  const std::string ip = rig::text_of(host.ip);
                                  const std::string mac =
                                      rig::text_of(host).substr(ip.size() + 1, 17);
                                  all[host_key(host.vrf, ip, host.ifname)] = joined(
                                      ip, " lladdr ", mac, " dev ", host.ifname, " vlan ",
                                      host.svlan, host.cvlan ? joined(" cvlan ", host.cvlan) : "",
                                      is_trunk ? joined(" trunk ", host.log_port_id)
                                               : joined(" port ", host.phy_port_id));
                              }
                              return all;
                          }};

struct Neighbour {
    std::string ip;
    unsigned vlan;
};
// IPv4 ones move between interfaces; a global IPv6 address is of one link.
Neighbour any_neighbour(TableWalk &walk) {
    const unsigned kind = walk.below(5), vlan = walk.below(vlans), last = 2 + walk.below(7);
    const unsigned told_on = kind < 3 && walk.one_in(8) ? walk.below(vlans) : vlan;
    return {kind < 3   ? joined("10.1.", vlan, ".", last)
            : kind < 4 ? joined("2001:db8:", vlan + 1, "::", last)
                       : joined("fe80::", last),
            first_vlan + told_on};
}
const rig::Drawn host{"host", [](TableWalk &walk) {
                          const Neighbour own = any_neighbour(walk);
                          return joined(own.ip, " lladdr 02:00:00:00:01:0", walk.below(6), " dev ",
                                        vlanif(own.vlan), " vlan ", own.vlan,
                                        walk.one_in(8) ? " cvlan 7" : "",
                                        walk.one_in(4) ? " trunk " : " port ", 1 + walk.below(3));
                      }};
// The command's words of a neighbour that is there, or might be.
const rig::Drawn known_host{"known host", [](TableWalk &walk) {
                                const Neighbour own = any_neighbour(walk);
                                const auto &there = walk.model["hosts"];
                                if (there.empty() || walk.one_in(8))
                                    return joined(own.ip, " dev ", vlanif(own.vlan), " vlan ",
                                                  own.vlan);
                                const std::string text = TableWalk::next_to(there, own.ip)->second;
                                const Words words = rig::words_of(text);
                                return joined(words[0], " dev ", word_behind(words, "dev"),
                                              " vlan ", word_behind(words, "vlan"));
                            }};
const rig::Drawn waited_for{"address", [](TableWalk &walk) { return any_neighbour(walk).ip; }};
const rig::Verb await{"await", [](rig::RowShelf &, const Words &words) {
                          const dpm_prefix ip = rig::prefix_of(words[1]);
                          (void)dpm_host_get_index_by_ip(0, 900, &ip);
                      }};

std::string key_in(TableWalk &walk, const Words &words) {
    const std::string dev = word_behind(words, "dev");
    return host_key(walk.vrf_of[unsigned(std::stoul(dev.substr(6)))], words[2], dev);
}
const rig::Expectation came{
    "neigh add", [](TableWalk &walk, const Words &words, bool is_accepted) {
        const std::string dev = word_behind(words, "dev");
        if (!walk.vrf_of.contains(unsigned(std::stoul(dev.substr(6)))))
            return;
        EXPECT_TRUE(is_accepted || walk.is_faulty());
        std::string text = words[2];
        for (std::size_t i = 3; i < words.size(); ++i)
            text += " " + words[i];
        const std::string key = key_in(walk, words), ip = words[2];
        const unsigned vrf = walk.vrf_of[unsigned(std::stoul(dev.substr(6)))];
        walk.expect("hosts", key, &text);
        walk.expect("routes", joined(ip, " vrf ", vrf), nullptr); // a host wins
        const dpm_prefix prefix = rig::prefix_of(ip);
        if (!walk.is_faulty())
            EXPECT_EQ(dpm_host_unreachable_find(vrf, &prefix), nullptr) << "known and waited for";
        else if (const auto there = walk.model["hosts"].find(key);
                 there != walk.model["hosts"].end())
            walk.half_gone[key] = "neigh add " + there->second;
    }};
const rig::Expectation gone{"neigh del", [](TableWalk &walk, const Words &words, bool is_accepted) {
                                const std::string dev = word_behind(words, "dev");
                                if (!walk.vrf_of.contains(unsigned(std::stoul(dev.substr(6)))))
                                    return;
                                EXPECT_TRUE(is_accepted || walk.is_faulty());
                                const std::string key = key_in(walk, words);
                                walk.expect("hosts", key, nullptr);
                                if (const auto left = walk.model["hosts"].find(key);
                                    left != walk.model["hosts"].end())
                                    walk.half_gone[key] = "neigh add " + left->second;
                            }};

// More requests than the queue takes.
void burst(TableWalk &walk) {
    const unsigned room = 1 + walk.below(4);
    walk.note("# the queue takes ", room, ":");
    std::vector<std::string> accepted;
    walk.master().os.limit_queue(room);
    walk.hold(true);
    for (unsigned i = 0; i < 6; ++i) {
        const std::string command = walk.drawn("neigh add {host}");
        const unsigned vlan = unsigned(std::stoul(command.substr(command.find(" vlan ") + 6)));
        if (!walk.vrf_of.contains(vlan))
            continue;
        const std::size_t queued = walk.master().os.queued();
        walk.note(command);
        EXPECT_EQ(walk.act(command), queued < room);
        if (queued < room)
            accepted.push_back(command);
    }
    walk.hold(false);
    walk.settle();
    walk.master().os.limit_queue(0);
    for (const std::string &command : accepted)
        walk.look_behind(command, true);
}

// --- interfaces, links, the cards ---

const rig::Drawn dev{"dev", [](TableWalk &walk) { return vlanif(first_vlan + walk.below(vlans)); }};
const rig::Drawn prefix{"own prefix", [](TableWalk &walk) {
                            return joined(walk.one_in(3) ? "2001:db8:77::" : "172.16.0.",
                                          1 + walk.below(4), walk.one_in(2) ? "/32" : "/24");
                        }};
const rig::Drawn any_dev{"any dev", [](TableWalk &walk) {
                             return vlanif(walk.one_in(4) ? 200 : first_vlan + walk.below(vlans));
                         }};
const rig::Drawn sub{"sub", [](TableWalk &walk) { return joined(201 + walk.below(5)); }};
const rig::Drawn number{"n", [](TableWalk &walk) { return joined(1 + walk.below(4)); }};
const rig::Drawn seconds{"seconds", [](TableWalk &walk) { return joined(walk.below(200), "s"); }};

const rig::Expectation interface_came{"if add", [](TableWalk &walk, const Words &words, bool) {
                                          const unsigned vlan =
                                              unsigned(std::stoul(words[2].substr(6)));
                                          if (vlan < 200)
                                              walk.vrf_of.try_emplace(vlan, 0);
                                      }};
const rig::Expectation passed{"clock", [](TableWalk &walk, const Words &words, bool) {
                                  walk.now += unsigned(std::stoul(words[2]));
                                  for (const auto &[key, at] : std::map(walk.expiry))
                                      if (at <= walk.now)
                                          walk.expect("routes", key, nullptr),
                                              walk.expiry.erase(key);
                              }};

void take_hosts_away(TableWalk &walk, const std::string &dev) {
    for (const auto &[key, text] : Entries(walk.model["hosts"]))
        if (const Words words = rig::words_of(text); word_behind(words, "dev") == dev)
            walk.perform(
                joined("neigh del ", words[0], " dev ", dev, " vlan ", word_behind(words, "vlan")));
}
bool are_many(TableWalk &walk, const std::string &dev) {
    const auto on_it = std::ranges::count_if(walk.model["hosts"], [&](const auto &host) {
        return host.second.find(dev + " ") != dev.npos;
    });
    return on_it > 3 && !walk.one_in(4);
}
void interface_goes(TableWalk &walk) {
    const std::string dev = walk.drawn("{dev}");
    const unsigned vlan = unsigned(std::stoul(dev.substr(6)));
    if (!walk.vrf_of.contains(vlan) || are_many(walk, dev))
        return;
    if (fails("if del under hosts"))
        take_hosts_away(walk, dev);
    if (fails("if del under routes"))
        for (const dpm_route_entry &route : walk.routes(walk.master()))
            if (std::any_of(route.np_ifname, route.np_ifname + route.np_num,
                            [&](const char *name) { return name == dev; }))
                walk.perform(
                    joined("route del ", rig::text_of(route.destination), " vrf ", route.vrf));
    if (fails("if del under label entries"))
        for (const dpm_ilm &ilm : walk.ilms(walk.master()))
            if (ilm.out_ifname == dev)
                walk.perform(joined("ilm del ", ilm.in_label));
    for (const auto &[key, text] : Entries(walk.model["hosts"]))
        if (text.find(dev + " ") != text.npos)
            walk.expect("hosts", key, nullptr);
    walk.perform("if del " + dev);
    walk.vrf_of.erase(vlan);
}
void interface_moves(TableWalk &walk) {
    const std::string dev = walk.drawn("{dev}");
    const unsigned vlan = unsigned(std::stoul(dev.substr(6))), vrf = walk.one_in(2) ? 5 : 0;
    if (!walk.vrf_of.contains(vlan) || are_many(walk, dev))
        return;
    if (fails("if vrf under hosts"))
        take_hosts_away(walk, dev);
    for (const auto &[key, text] : Entries(walk.model["hosts"]))
        if (text.find(dev + " ") != text.npos && vrf != walk.vrf_of[vlan])
            walk.expect("hosts", key, nullptr);
    walk.perform(joined("if vrf ", dev, " ", vrf));
    walk.vrf_of[vlan] = vrf;
}

void standby_changes(TableWalk &walk) {
    using chassis::os::Fault;
    const unsigned kind = walk.below(8);
    if (!walk.has_standby() || walk.one_in(4)) {
        walk.perform("standby comes");
        return;
    }
    if (kind == 0) {
        walk.note("# the standby stops taking what is mirrored");
        walk.standby().os.fail(walk.one_in(2) ? Fault::send : Fault::allocation, 1, 4);
    } else if (kind == 1) {
        walk.perform("card standby-lost"); // it is found unfit for use
        walk.perform("clock advance 70s");
    }
    if (kind < 2)
        walk.perform(walk.drawn("neigh add {host}"));
    if (kind < 5)
        walk.perform("standby goes");
    walk.master().peer.set_standby_usable(true);
}

// When the standby can take over; what was refused is known to the master alone.
void master_dies(TableWalk &walk) {
    walk.mend();
    if (walk.stretch == Stretch::faulty || !walk.has_standby() || dpm_get_slave_up() != 1)
        return;
    const auto before = walk.standby().chip.requests(Function::del_ip_entry);
    walk.perform("switch-over");
    EXPECT_EQ(walk.master().chip.requests(Function::del_ip_entry), before) << "the chip forgets";
    for (const dpm_route_entry &route : walk.routes(walk.master()))
        if (dpm_route_dynamic_type_check(route.route_type))
            walk.expiry[joined(rig::text_of(route.destination), " vrf ", route.vrf)] =
                walk.now + DPM_ROUTE_DELETE_SEC;
    if (!walk.one_in(3))
        walk.perform("standby comes");
}

// --- routes ---

const rig::Modelled routes{
    "routes", "route del ", [](TableWalk &walk) {
        Entries all;
        for (const dpm_route_entry &route : walk.routes(walk.master())) {
            std::string &text = all[joined(rig::text_of(route.destination), " vrf ", route.vrf)];
            for (unsigned i = 0; i < route.np_num; ++i)
                text += route.np[i].family ? " via " + rig::text_of(route.np[i]) : " dev";
        }
        return all;
    }};

std::string any_address(TableWalk &walk, bool ipv6, unsigned spread = 3) {
    const std::string middle = joined(20 + walk.below(spread), ipv6 ? ":" : ".", walk.below(3));
    const unsigned last = walk.one_in(2) ? 0 : walk.below(6);
    return ipv6 ? joined("2001:db8:", middle, "::", last) : joined("10.", middle, ".", last);
}
std::string any_prefix(TableWalk &walk, bool ipv6) {
    static constexpr unsigned lengths[2][6] = {{15, 16, 23, 24, 30, 32},
                                               {47, 48, 63, 64, 126, 128}};
    return rig::text_of(
        rig::prefix_of(joined(any_address(walk, ipv6), "/", lengths[ipv6][walk.below(6)])));
}
std::string any_route(TableWalk &walk) {
    const bool ipv6 = walk.one_in(3);
    const std::string vrf = walk.one_in(6) ? " vrf 5" : " vrf 0";
    std::string text = walk.one_in(12) ? (ipv6 ? "::/0" : "0.0.0.0/0") : any_prefix(walk, ipv6);
    // To a host's address: the host wins, then and later.
    if (const Neighbour to = any_neighbour(walk); walk.one_in(15) && is_ipv6(to.ip) == ipv6)
        text = to.ip.starts_with("fe80") ? text : to.ip;
    std::set<std::string> via;
    unsigned count = walk.one_in(3) ? 1 + walk.below(7) : 1 + walk.below(2);
    for (unsigned tries = 0; via.size() < count && tries < 50; ++tries) {
        const Neighbour own = any_neighbour(walk);
        const std::string dev = " dev " + vlanif(own.vlan);
        if (is_ipv6(own.ip) == ipv6 && walk.vrf_of.contains(own.vlan) &&
            via.insert(ipv6 ? own.ip + dev : own.ip).second)
            text += " via " + own.ip + dev;
    }
    if (via.empty() || (via.size() < 8 && walk.one_in(20)))
        text += " dev vlanif200";
    return joined(text, vrf, " type ", walk.below(14));
}
// The key of one that is there, or might be.
std::string known_route(TableWalk &walk) {
    const Words any = rig::words_of(any_route(walk));
    const std::string key = any[0] + " vrf " + word_behind(any, "vrf");
    const auto &there = walk.model["routes"];
    return there.empty() || walk.one_in(10) ? key : TableWalk::next_to(there, key)->first;
}
const rig::Drawn route{"route", any_route};
const rig::Drawn route_there{"known route", known_route};
const rig::Drawn its_gateways{"gateways", [](TableWalk &walk) {
                                  const std::string text = any_route(walk);
                                  const std::size_t first = text.find(' ');
                                  return text.substr(first, text.find(" vrf ") - first);
                              }};

const rig::Expectation installed{
    "route add", [](TableWalk &walk, const Words &words, bool is_accepted) {
        EXPECT_TRUE(is_accepted || walk.is_faulty());
        const std::string vrf = word_behind(words, "vrf"), key = words[2] + " vrf " + vrf;
        std::string text;
        for (std::size_t i = 3; i < words.size(); ++i)
            if (words[i] == "via" || (words[i] == "dev" && words[i - 2] != "via"))
                text += words[i] == "via" ? " via " + words[i + 1] : " dev";
        // A host wins; an IPv6 one is looked for on the first gateway's interface.
        if (walk.model["hosts"].contains(is_ipv6(key) ? key + " dev " + word_behind(words, "dev")
                                                      : key))
            return;
        walk.expect("routes", key, &text);
        const dpm_route_entry *const route =
            walk.route(walk.master(), words[2], unsigned(std::stoul(vrf)));
        if (!walk.is_faulty() || !route || route->delete_timer.expiry_sec == 0)
            walk.expiry.erase(key);
    }};
const rig::Expectation withdrawn{"route del", [](TableWalk &walk, const Words &words, bool) {
                                     const std::string key =
                                         words[2] + " vrf " + word_behind(words, "vrf");
                                     walk.expect("routes", key, nullptr);
                                     walk.expiry.erase(key);
                                 }};

bool covers(const dpm_prefix &prefix, const dpm_prefix &ip) {
    for (unsigned bit = 0; bit < prefix.prefix_len; ++bit)
        if ((prefix.address[bit / 8] ^ ip.address[bit / 8]) >> (7 - bit % 8) & 1)
            return false;
    return prefix.family == ip.family;
}

// The longest route that forwards answers, the first of the table among those of one length.
void compare_best_routes(TableWalk &walk) {
    const auto table = walk.routes(walk.master());
    const auto ftns = walk.ftns(walk.master());
    const auto forwards = [&](const dpm_route_entry &route) {
        return route.sdk_index > 2 && std::ranges::none_of(ftns, [&](const dpm_ftn &ftn) {
                   return route.vrf == 0 && ftn.vrf_id == 0 &&
                          ftn.ip_type == route.destination.family &&
                          ftn.prefixlen == route.destination.prefix_len &&
                          std::memcmp(ftn.fec_prefix, route.destination.address, 16) == 0;
               });
    };
    for (unsigned i = 0; i < 24; ++i) {
        const unsigned vrf = walk.one_in(4) ? 5 : 0;
        const std::string text = any_address(walk, walk.one_in(2), 4);
        const dpm_prefix ip = rig::prefix_of(text);
        const dpm_route_entry *wanted = nullptr;
        for (const dpm_route_entry &route : table)
            if (route.vrf == vrf && covers(route.destination, ip) && forwards(route) &&
                (!wanted || route.destination.prefix_len > wanted->destination.prefix_len))
                wanted = &route;
        const dpm_route_entry *const best = dpm_route_find_best_route(vrf, &ip);
        EXPECT_EQ(best ? rig::text_of(best->destination) : "none",
                  wanted ? rig::text_of(wanted->destination) : "none")
            << text << " vrf " << vrf;
    }
}

// --- label entries ---

const rig::Modelled ftns{
    "ftns", "ftn del ", [](TableWalk &walk) {
        Entries all;
        for (const dpm_ftn &ftn : walk.ftns(walk.master())) {
            dpm_prefix fec{ftn.ip_type, ftn.prefixlen, {}}, nhop{ftn.tunnel_ip_type, 32, {}};
            std::memcpy(fec.address, ftn.fec_prefix, 16);
            std::memcpy(nhop.address, ftn.tunnel_nhop, 16);
            all[joined(rig::text_of(fec), " via ", rig::text_of(nhop), " vrf ", ftn.vrf_id)];
        }
        return all;
    }};
const rig::Modelled ilms{"ilms", "ilm del ", [](TableWalk &walk) {
                             Entries all;
                             for (const dpm_ilm &ilm : walk.ilms(walk.master()))
                                 all[joined(ilm.in_label)];
                             return all;
                         }};

const rig::Drawn ftn{"ftn", [](TableWalk &walk) {
                         const Words route = rig::words_of(known_route(walk));
                         const bool stands_for_route =
                             !walk.one_in(5) && route[2] == "0" && !route[0].ends_with("/0");
                         return joined(
                             stands_for_route ? route[0] : any_prefix(walk, walk.one_in(3)),
                             " via 10.1.1.", 2 + walk.below(2), " vrf ", walk.one_in(5) ? 5 : 0);
                     }};
const rig::Drawn known_ftn{"known ftn", [](TableWalk &walk) {
                               const std::string any = walk.drawn("{ftn}");
                               const auto &there = walk.model["ftns"];
                               return there.empty() ? any : TableWalk::next_to(there, any)->first;
                           }};
const rig::Drawn label{"label", [](TableWalk &walk) { return joined(100 + walk.below(20)); }};
const rig::Drawn waits{"waits", [](TableWalk &walk) { return walk.one_in(2) ? "waits" : ""; }};

const rig::Expectation labelled{
    "ftn add", [](TableWalk &walk, const Words &words, bool) {
        const std::string text;
        walk.expect("ftns", joined(words[2], " via ", words[4], " vrf ", words[6]), &text);
    }};
const rig::Expectation unlabelled{
    "ftn del", [](TableWalk &walk, const Words &words, bool) {
        walk.expect("ftns", joined(words[2], " via ", words[4], " vrf ", words[6]), nullptr);
    }};
const rig::Expectation swapped{"ilm add", [](TableWalk &walk, const Words &words, bool) {
                                   const std::string text;
                                   walk.expect("ilms", words[2], &text);
                               }};
const rig::Expectation unswapped{"ilm del", [](TableWalk &walk, const Words &words, bool) {
                                     walk.expect("ilms", words[2], nullptr);
                                 }};

// --- what is done ---

const rig::Deeds deeds{
    {260, "neigh add {host}"},
    {150, "neigh del {known host}"},
    {20, "", burst},
    {20, "await {address}"},
    {20, "port down {n}"},
    {20, "port up {n}"},
    {10, "trunk down {n}"},
    {10, "trunk up {n}"},
    {60, "if add {dev}"},
    {15, "", interface_goes},
    {15, "", interface_moves},
    {30, "addr add {own prefix} dev {any dev}"},
    {15, "addr del {own prefix} dev {any dev}"},
    {20, "sub add 200 {sub}"},
    {10, "sub del 200 {sub}"},
    {5, "vrf enable {n}"},
    {5, "vrf disable {n}"},
    {5, "hash {n}"},
    {220, "route add {route}"},
    {50, "route add {known route}{gateways}"},
    {110, "route del {known route}"},
    {45, "ftn add {ftn} label 1000"},
    {35, "ftn del {known ftn}"},
    {15, "ilm add {label} {waits}"},
    {10, "ilm del {label}"},
    {30, "clock advance {seconds}"},
    {10, "card slot-up 3"},
    {10, "", standby_changes},
    {10, "", master_dies},
    {12, "",
     [](TableWalk &walk) {
         walk.check();
         if (walk.stretch != Stretch::faulty)
             compare_best_routes(walk);
     }},
    {5, "", [](TableWalk &walk) { walk.end_stretch(); }},
};

class OverAllTables : public TableWalk {
public:
    OverAllTables() {
        for (const char *command :
             {"if add vlanif200 super", "if add vlanif100", "if add vlanif101", "if add vlanif102",
              "if add vlanif103", "if vrf vlanif103 5"})
            perform(command);
        vrf_of[103] = 5;
    }
};

} // namespace

TEST(TablesWalk, KeepsTheLawsWhateverHappens) {
    const auto walk = rig::take_walk<OverAllTables>(120'000);
    if (!walk || std::getenv("DPM_WALK_STEPS"))
        return;
    EXPECT_GT(walk->most_hosts, 30u) << "the walk went nowhere";
    EXPECT_GT(walk->most_routes, 25u);
}

// A deed that does not fail any more is taken from the list, and the walk does it.
TEST(TablesWalk, LeavesOutOnlyDeedsThatFail) {
    for (const KnownFault &known : deeds_that_fail) {
        testing::TestPartResultArray failures;
        {
            const testing::ScopedFakeTestPartResultReporter reporter(
                testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD,
                &failures);
            rig::RowShelf shelf(known.family, rig::Role::mirroring, {});
            for (const rig::Row &row : known.rows)
                shelf.take(row, false);
        }
        EXPECT_GT(failures.size(), 0) << known.deed << ": " << known.fault;
    }
}
