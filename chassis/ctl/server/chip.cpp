// The chip: what it holds, what it would do with a packet, what it refuses; and whether it holds
// what the tables say.

#include "chassis/ctl/server/command.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

namespace ctl::server {

namespace {

using chassis::chip::Address;
using chassis::chip::Answer;
using chassis::chip::Chip;
using chassis::chip::NextHop;
namespace kinds = chassis::chip::kinds;

// "next hop 17: port 3 ...": the object of one of these kinds; the caller holds the chip's lock.
template <class... Kinds>
std::string used_text(const Chip &chip, chassis::chip::Use<Kinds...> use) {
    std::string text;
    const auto add = [&]<class Kind>(Kind) {
        const auto found = chip.held<Kind>().find(use.key);
        if (found != chip.held<Kind>().end())
            text = std::string(Kind::name) + " " + Kind::key_text(use.key) + ": " +
                   Kind::value_text(found->second);
    };
    (add(Kinds()), ...);
    return text.empty() ? "index " + std::to_string(use.key) : text;
}

// Where an index leads.
std::string target_text(const Chip &chip, std::uint32_t index) {
    std::string text = "to the CPU";
    kinds::uses_target(index, [&](auto use) { text = used_text(chip, use); });
    return text;
}

std::string answer_text(const Chip &chip, const Answer &found) {
    std::string text =
        kinds::entry::key_text(found.entry) + " -> " + target_text(chip, found.index) + "\n";
    if (found.group)
        for (const std::uint32_t member : found.members)
            text += "    " + target_text(chip, member) + "\n";
    return text;
}

// What the tables say that the chip holds.  A table adds its own in a function beside expect_hosts.
struct Expectation {
    std::map<Address, std::uint32_t> entries;
    std::map<std::uint32_t, NextHop> nexthops;
    std::map<std::uint32_t, std::vector<std::uint32_t>> groups; // members in rising order
    std::set<chassis::chip::DefaultKey> default_routes;
    std::set<Address> to_the_cpu; // routes without a gateway
    std::set<std::uint16_t> interfaces, arp_rules;
    std::set<std::uint32_t> disabled_vrfs; // the chip drops there what matches nothing
};

void expect_hosts(Expectation &expected) {
    tables::hosts.each([&](const dpm_host_entry &host) {
        if (!tables::is_link_local(host.ip))
            expected.entries.emplace(tables::chip_key(host.vrf, host.ip), host.sdk_index);
    });
}

// A route that another entry stands in for is the other's to program.
void expect_routes(Expectation &expected, const Reading &reading) {
    tables::routes.each([&](const dpm_route_entry &route) {
        if (route.sdk_index <= 0)
            return;
        const dpm_prefix &destination = route.destination;
        if (destination.prefix_len == 0)
            expected.default_routes.insert({destination.family, route.vrf});
        if (!tables::stand_in(route, reading).empty())
            return;
        const Address key = tables::chip_key(route.vrf, destination);
        if (route.sdk_index == int(to_cpu))
            expected.to_the_cpu.insert(key);
        else
            expected.entries.emplace(key, std::uint32_t(route.sdk_index));
    });
}

void expect_groups(Expectation &expected) {
    tables::ecmp.each([&](const dpm_ecmp_entry &group) {
        auto &members = expected.groups[std::uint32_t(group.sdk_index)];
        for (const std::uint32_t member : group.host_sdk)
            if (member != 0)
                members.push_back(member);
        std::ranges::sort(members);
    });
}

void expect_nexthops(Expectation &expected) {
    tables::nexthops.each([&](const dpm_nexthop_entry &entry) {
        NextHop nexthop{entry.port_type,
                        entry.port_id,
                        std::uint16_t(entry.svlan),
                        std::uint16_t(entry.cvlan),
                        {}};
        std::copy(std::begin(entry.mac), std::end(entry.mac), nexthop.mac.begin());
        expected.nexthops.emplace(entry.sdk_index, nexthop);
    });
}

void expect_interfaces(Expectation &expected) {
    tables::interfaces.each([&](const dpm_if_entry &entry) {
        if (entry.l3_programmed)
            expected.interfaces.insert(entry.if_id);
        if (entry.arp_programmed)
            expected.arp_rules.insert(entry.if_id);
    });
}

template <class Held, class Expected, class Text>
void compare_maps(const char *what, const Held &held, const Expected &expected, Text text,
                  std::string &differences) {
    for (const auto &[key, value] : expected) {
        const auto found = held.find(key);
        if (found == held.end())
            differences += std::string("the chip lacks ") + what + " " + text(key) + "\n";
        else if (found->second != value)
            differences += std::string("the chip has another ") + what + " " + text(key) + "\n";
    }
    for (const auto &[key, value] : held)
        if (!expected.contains(key))
            differences += std::string("no table has ") + what + " " + text(key) + "\n";
}

template <class Held, class Key>
void compare_sets(const char *what, const Held &held, const std::set<Key> &expected,
                  std::string &differences) {
    for (const Key key : expected)
        if (!held.contains(key))
            differences += std::string("the chip lacks ") + what + " " + std::to_string(key) + "\n";
}

// The caller holds both locks.  Entries to the CPU belong to the platform as well and are left out.
std::string differences_of(const Chip &chip, const Expectation &expected) {
    std::string differences;
    std::map<Address, std::uint32_t> forwarding;
    for (const auto &[key, index] : chip.entries)
        if (index != to_cpu)
            forwarding.emplace(key, index);
    for (const Address &key : expected.to_the_cpu)
        if (const auto found = chip.entries.find(key);
            found == chip.entries.end() || found->second != to_cpu)
            differences += "the chip lacks entry " + kinds::entry::key_text(key) + " to the CPU\n";
    const auto number = [](std::uint32_t index) { return std::to_string(index); };
    auto groups = chip.groups;
    for (auto &[index, members] : groups)
        std::ranges::sort(members);
    compare_maps("entry", forwarding, expected.entries, kinds::entry::key_text, differences);
    compare_maps("next hop", chip.nexthops, expected.nexthops, number, differences);
    compare_maps("group", groups, expected.groups, number, differences);
    for (const auto &[key, is_on] : chip.cpu_default) {
        const std::string where = (key.family == DPM_FAMILY_IPV4 ? " IPv4" : " IPv6") +
                                  std::string(" in vrf ") + std::to_string(key.vrf) + "\n";
        const bool has_route = expected.default_routes.contains(key);
        if (is_on && has_route)
            differences += "the CPU takes the place of the default route for" + where;
        else if (!is_on && !has_route && !expected.disabled_vrfs.contains(key.vrf))
            differences += "neither a default route nor the CPU takes what is left of" + where;
    }
    compare_sets("interface of VLAN", chip.interfaces, expected.interfaces, differences);
    compare_sets("ARP rule of VLAN", chip.arp_rules, expected.arp_rules, differences);
    return differences;
}

} // namespace

Reply chip_lookup(Command &command) {
    const Prefix ip = address_argument(command);
    const std::int32_t vrf = std::int32_t(command.line.number("vrf"));
    const Chip &chip = command.card.chip;
    const auto found = chip.lookup(vrf, ip.family, ip.address.data());
    const auto lock = chip.lock();
    const std::string question = std::string(command.line.value("IP")) + ": ";
    if (found)
        return done(question + answer_text(chip, *found));
    const auto standard = chip.cpu_default.find({ip.family, std::uint32_t(vrf)});
    const bool cpu = standard != chip.cpu_default.end() && standard->second;
    return done(question + "no entry, " + (cpu ? "by default to the CPU" : "dropped") + "\n");
}

// What leads to an object says what that is.
Reply chip_show(Command &command) {
    const Chip &chip = command.card.chip;
    Table table({"object", "key", "leads_to"});
    const auto lock = chip.lock();
    chassis::chip::each_kind([&]<class Kind>(Kind) {
        for (const auto &[key, value] : chip.held<Kind>()) {
            std::string text = Kind::value_text(value);
            if constexpr (std::is_same_v<typename Kind::Value, chassis::chip::Index>)
                Kind::uses(value, [&](auto use) { text = used_text(chip, use); });
            table.row({std::string(Kind::name), Kind::key_text(key), text});
        }
    });
    return done(command.line.has("--json") ? table.json() : table.text());
}

Reply chip_check(Command &command) {
    const Reading reading(command.card);
    const Chip &chip = command.card.chip;
    Expectation expected;
    expect_hosts(expected);
    expect_routes(expected, reading);
    expect_groups(expected);
    expect_nexthops(expected);
    expect_interfaces(expected);
    for (const tables::Vrf &vrf : command.card.suite.vrfs())
        if (!vrf.is_enabled)
            expected.disabled_vrfs.insert(vrf.id);
    std::string differences;
    {
        const auto lock = chip.lock();
        differences = differences_of(chip, expected);
    }
    if (const std::uint64_t mistakes = chip.mistakes())
        differences += std::to_string(mistakes) + " requests that a chip would not understand\n";
    if (!differences.empty())
        return refused(differences);
    return done("chip and tables agree: entries " + std::to_string(expected.entries.size()) +
                ", next hops " + std::to_string(expected.nexthops.size()) + ", groups " +
                std::to_string(expected.groups.size()) + ", interfaces " +
                std::to_string(expected.interfaces.size()) + "\n");
}

Reply chip_journal(Command &command) {
    Chip &chip = command.card.chip;
    const std::string_view state = command.line.value("STATE");
    if (state == "clear")
        chip.clear_journal();
    else if (!state.empty())
        chip.record(state == "on");
    if (!state.empty())
        return done();
    std::string text;
    for (const std::string &line : chip.journal())
        text += line + "\n";
    return done(text);
}

Reply chip_mistakes(Command &command) {
    std::string text;
    for (const std::string &line : command.card.chip.mistake_lines())
        text += line + "\n";
    return done(text);
}

Reply chip_refuse(Command &command) {
    const auto kind = chassis::chip::request_named(command.line.value("REQUEST"));
    if (!kind)
        return refused("the chip knows no such request");
    const Parsed &line = command.line;
    command.card.chip.refuse(*kind, unsigned(line.number("COUNT")), int(line.number("code", -1)),
                             unsigned(line.number("skip")));
    return done();
}

} // namespace ctl::server
