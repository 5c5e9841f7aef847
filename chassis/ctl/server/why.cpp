// why: whether the chip has an address or a prefix and, if not, what is missing.
//
// Each table tells of its records in that place (chassis/tables).  What none has is answered with
// the longest route or label entry that covers it.

#include "chassis/ctl/server/command.h"

#include <algorithm>
#include <cstring>

namespace ctl::server {

namespace {

std::string why_there(const Place &place, const Reading &reading) {
    std::string text;
    const auto tell = [&](const tables::Row &row) {
        for (const Place &each : row.places())
            if (is_same(each, place))
                text += row.why();
    };
    for (const tables::Table &table : tables::all())
        if (table.answers_why)
            table.each(reading, tell);
    return text;
}

// The longest prefix, in the chip or not, by which a route or a label entry leads to an address or
// network.
std::optional<Place> covering(const Place &place, const Reading &reading) {
    std::optional<Place> longest;
    const auto look_at = [&](const auto &table) {
        table.each([&](const auto &record) {
            const Place each = table.places(record, reading).front();
            if (each.vrf == place.vrf && each.prefix->prefix_len < place.prefix->prefix_len &&
                tables::covers(*each.prefix, *place.prefix) &&
                (!longest || each.prefix->prefix_len > longest->prefix->prefix_len))
                longest = each;
        });
    };
    look_at(tables::routes);
    look_at(tables::ftn);
    return longest;
}

// What the tables of a kind of service tell of one, or of one pseudowire of it.
Reply why_service(Command &command, std::string_view kind, std::string_view id) {
    const std::uint32_t service = std::uint32_t(command.line.number(id));
    const auto peer = parse_address(command.line.value("peer"));
    const Reading reading(command.card);
    std::string text;
    const auto concerns = [&](const Place &place) {
        return place.service == service &&
               (!peer || !place.prefix || is_same(place, {0, record_of(*peer)}));
    };
    for (const tables::Table &table : tables::all())
        if (table.name.starts_with(kind))
            table.each(reading, [&](const tables::Row &row) {
                if (std::ranges::any_of(row.places(), concerns))
                    text += row.why();
            });
    return done(text.empty() ? "no table has it\n" : text);
}

bool is_address(const dpm_host_info &info, const Prefix &ip) {
    return info.family == ip.family && ip.length == host_length(ip.family) &&
           std::memcmp(info.address, ip.address.data(), ip.length / 8) == 0;
}

// A group that no source is forwarded of.
std::string why_no_group(const Place &group, const Reading &reading) {
    std::string ports;
    tables::mgroups.each([&](const dpm_ipmc_rx_port &port) {
        for (const Place &each : tables::mgroups.places(port, reading))
            if (is_same(each, group))
                ports += (ports.empty() ? " " : ", ") + std::to_string(port.phy) + " of vlan " +
                         std::to_string(port.outer_vlan);
    });
    return "no source of the group is forwarded; " +
           (ports.empty() ? "no port has reported it" : "reported by port" + ports) + "\n";
}

std::string why_absent(std::uint32_t vrf, const Prefix &ip, const Reading &reading) {
    if (is_multicast(ip))
        return why_no_group({vrf, record_of(ip)}, reading);
    const bool is_host = ip.length == host_length(ip.family);
    const std::string absent = is_host ? "not a neighbour" : "no route";
    for (const dpm_host_info &info : reading.card.stack.cache())
        if (is_address(info, ip))
            return "the IP stack knows it in vrf " + std::to_string(info.vrf) +
                   ", but no table has it in vrf " + std::to_string(vrf) + "\n";
    if (const auto place = covering({vrf, record_of(ip)}, reading))
        return absent + "; what covers it is\n" + why_there(*place, reading);
    const auto in_chip = reading.card.chip.lookup(std::int32_t(vrf), ip.family, ip.address.data());
    if (in_chip)
        return absent + "; the chip has it under " +
               address_text(ip.family, in_chip->entry.bytes.data()) + "/" +
               std::to_string(in_chip->entry.prefix_len) + "\n";
    return absent + (is_host ? ", and nothing waits for it\n" : "\n");
}

} // namespace

Reply why(Command &command) {
    const std::string question(command.line.value("SUBNET"));
    const std::uint32_t vrf = std::uint32_t(command.line.number("vrf"));
    const Reading reading(command.card);
    std::string text;
    if (question == "default") {
        for (const std::uint16_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
            text += why_there({vrf, dpm_prefix{family, 0, {}}}, reading);
        return done(question + ": " + (text.empty() ? "no route\n" : text));
    }
    const auto address = parse_address(question);
    const Prefix ip = address ? *address : *parse_prefix(question); // the language has checked it
    text = why_there({vrf, record_of(ip)}, reading);
    if (text.empty())
        text = why_absent(vrf, ip, reading);
    return done(question + ": " + text);
}

Reply why_vpws(Command &command) {
    return why_service(command, "vpws", "VCID");
}
Reply why_vpls(Command &command) {
    return why_service(command, "vpls", "VPLSID");
}

} // namespace ctl::server
