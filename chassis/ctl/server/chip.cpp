// The chip: what it holds, what it would do with a packet, what it refuses.

#include "chassis/chip/trace.h"
#include "chassis/ctl/server/command.h"

namespace ctl::server {

namespace {

using chassis::chip::Answer;
using chassis::chip::Chip;
namespace kinds = chassis::chip::kinds;

constexpr unsigned usual_ttl = 64;

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

// A source of its own counts before every source.
const chassis::chip::McastGroup *find_group(const Chip &chip, chassis::chip::McastGroup key) {
    const auto &groups = chip.held<kinds::mcast_group>();
    auto found = groups.find(key);
    if (found == groups.end()) {
        key.source = {};
        key.source_len = 0;
        found = groups.find(key);
    }
    return found == groups.end() ? nullptr : &found->first;
}

std::string ports_text(const Chip &chip, const chassis::chip::McastGroup &group) {
    std::string text;
    const auto &members = chip.held<kinds::mcast_member>();
    for (auto at = members.lower_bound({group, 0, 0}); at != members.end() && at->first.of == group;
         at++)
        text += "    port " + std::to_string(at->first.port) + " vlan " +
                std::to_string(at->first.vlan) + "\n";
    return text.empty() ? "    no port\n" : text;
}

// The ports that get what a sender sends to a group.
Reply lookup_group(Command &command, const Prefix &group) {
    const auto sender = parse_address(command.line.value("from"));
    if (sender && sender->family != group.family)
        return refused("group and sender are of two families");
    const std::uint32_t vrf = std::uint32_t(command.line.number("vrf"));
    const Chip &chip = command.card.chip;
    const auto lock = chip.lock();
    const std::string question = std::string(command.line.value("IP")) + ": ";
    const chassis::chip::McastGroup wanted{vrf, group.family, group.address,
                                           sender ? sender->address : chassis::AddressBytes(),
                                           sender ? host_length(group.family) : 0};
    if (const auto *const found = find_group(chip, wanted))
        return done(question + kinds::mcast_group::key_text(*found) + " gid " +
                    std::to_string(chip.held<kinds::mcast_group>().at(*found)) + "\n" +
                    ports_text(chip, *found));
    const bool is_trapped = chip.held<kinds::mcast_unknown>().contains(group.family);
    return done(question + "no group, " + (is_trapped ? "to the CPU" : "dropped") + "\n");
}

} // namespace

Reply chip_lookup(Command &command) {
    const Prefix ip = address_argument(command);
    if (is_multicast(ip))
        return lookup_group(command, ip);
    if (command.line.has("from"))
        return refused("only of a group does the sender count");
    const std::int32_t vrf = std::int32_t(command.line.number("vrf"));
    const Chip &chip = command.card.chip;
    const auto found = chip.lookup(vrf, ip.family, ip.address.data());
    const auto lock = chip.lock();
    const std::string question = std::string(command.line.value("IP")) + ": ";
    if (found)
        return done(question + answer_text(chip, *found));
    const auto &defaults = chip.held<kinds::cpu_default>();
    const auto standard = defaults.find({ip.family, std::uint32_t(vrf)});
    const bool cpu = standard != defaults.end() && standard->second;
    return done(question + "no entry, " + (cpu ? "by default to the CPU" : "dropped") + "\n");
}

namespace {

void push_labels(const Parsed &line, chassis::chip::Header header, chassis::chip::Packet &packet) {
    const auto labels = parse_labels(line.value("label"));
    if (labels)
        packet.labels.push_back({header, labels->inner});
    if (labels && labels->are_two)
        packet.labels.push_back({header, labels->outer});
}

Reply traced(Command &command, const chassis::chip::Packet &packet) {
    const auto lock = command.card.chip.lock();
    std::string text;
    for (const std::string &step : chassis::chip::trace(command.card.chip, packet))
        text += step + "\n";
    return done(text);
}

} // namespace

Reply chip_trace(Command &command) {
    const Parsed &line = command.line;
    const auto ip = parse_address(line.value("IP"));
    if (!ip && !line.has("label"))
        return refused("a packet has an address or a label");
    const std::int32_t vrf = std::int32_t(line.number("vrf"));
    const chassis::chip::Header header{unsigned(line.number("ttl", usual_ttl)),
                                       unsigned(line.number("exp"))};
    chassis::chip::Packet packet{vrf, std::nullopt, header, {}};
    if (ip)
        packet.destination = tables::chip_key(std::uint32_t(vrf), record_of(*ip));
    if (line.has("port"))
        packet.port = std::uint32_t(line.number("port"));
    if (const auto from = parse_address(line.value("from")))
        packet.source = tables::chip_key(std::uint32_t(vrf), record_of(*from));
    push_labels(line, header, packet);
    return traced(command, packet);
}

Reply chip_trace_frame(Command &command) {
    const Parsed &line = command.line;
    if (line.has("port") == line.has("label"))
        return refused("a frame comes in on a port or behind a label");
    chassis::chip::Packet packet{0, std::nullopt, {usual_ttl, 0}, {}};
    packet.frame = {*parse_mac(line.value("from")), *parse_mac(line.value("to")),
                    std::uint32_t(line.number("vlan")), std::uint32_t(line.number("inner"))};
    if (line.has("port"))
        packet.port = std::uint32_t(line.number("port"));
    push_labels(line, packet.ip, packet);
    return traced(command, packet);
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
    for (const auto &[address, logic_port] : chip.learning.all())
        table.row(
            {"learnt",
             kinds::vpls::key_text(address.vpls_id) + " " + chassis::mac_text(address.mac.data()),
             "logic-port " + std::to_string(logic_port)});
    return done(command.line.has("--json") ? table.json() : table.text());
}

Reply chip_mistakes(Command &command) {
    std::string text;
    for (const std::string &line : command.card.chip.mistake_lines())
        text += line + "\n";
    return done(text);
}

Reply chip_refuse(Command &command) {
    const auto kind = chassis::chip::function_named(command.line.value("REQUEST"));
    if (!kind)
        return refused("the chip knows no such request");
    const Parsed &line = command.line;
    command.card.chip.refuse(*kind, unsigned(line.number("COUNT")), int(line.number("code", -1)),
                             unsigned(line.number("skip")));
    return done();
}

} // namespace ctl::server
