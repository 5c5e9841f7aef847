// The types of arguments, and the words of ip(8) that are skipped.

#include "chassis/chip/functions.h"
#include "chassis/ctl/grammar.h"
#include "platform/norix.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace ctl {

namespace {

template <std::uint64_t first, std::uint64_t last> bool in_range(std::string_view text) {
    const auto number = parse_number(text);
    return number && *number >= first && *number <= last;
}

bool is_name(std::string_view text) {
    return text.size() < 64 && std::all_of(text.begin(), text.end(), [](char character) {
               return character > ' ' && character < 127 && character != '"' && character != '\\';
           });
}

bool is_any(std::string_view) {
    return true;
}

const std::vector<std::string_view> states = {"REACHABLE", "STALE",  "PERMANENT",  "DELAY", "PROBE",
                                              "NOARP",     "FAILED", "INCOMPLETE", "NONE"};

// As ip(8) prints them, or as it reads them.
bool is_state(std::string_view text) {
    return std::ranges::any_of(states, [text](std::string_view state) {
        return std::ranges::equal(
            text, state, [](char a, char b) { return std::toupper((unsigned char)(a)) == b; });
    });
}

bool is_destination(std::string_view text) {
    return text == "default" || parse_prefix(text) || parse_address(text);
}

bool is_source(std::string_view text) {
    return is_any_source(text) || parse_address(text);
}

bool is_group(std::string_view text) {
    const auto address = parse_address(text);
    return address && is_multicast(*address);
}

bool is_peer(std::string_view text) {
    const auto address = parse_address(text);
    return address && address->family == 1;
}

bool is_dev_map(std::string_view text) {
    const std::size_t equals = text.find('=');
    return equals != text.npos && equals > 0 && equals + 1 < text.size();
}

template <auto parse_value> bool reads(std::string_view text) {
    return parse_value(text).has_value();
}

#define CTL_TABLE(ROW, name, record, scope, help) CTL_TABLE_##scope(#name)
#define CTL_TABLE_mirrored(name) chassis::tables::typed_name<name>,
#define CTL_TABLE_local(name)
#define CTL_TABLE_history(name)

#define CTL_PROTOCOL(name, port) #name,

const std::vector<Type> types = {
    {"NAME", "the name of an interface (at most 63 characters)", is_name, {}},
    {"IP", "an IPv4 or IPv6 address", reads<parse_address>, {}},
    {"SENDER", "the address of a sender", reads<parse_address>, {}},
    {"SOURCE", "the address of a source, or any (*)", is_source, {}},
    {"GROUP", "a multicast address", is_group, {}},
    {"PREFIX", "an address with its length, as 10.1.1.1/24", reads<parse_prefix>, {}},
    {"SUBNET", "an address, a prefix or default", is_destination, {}},
    {"DEST", "a prefix, an address or default", is_destination, {}},
    {"LABEL", "a label (0 to 1048575)", in_range<0, max_label>, {}},
    {"LABELS", "a label, or two with the outer one first, as 100/200", reads<parse_labels>, {}},
    {"VCID", "the id of a pseudowire (1 to 4294967295)", in_range<1, 0xFFFFFFFF>, {}},
    {"VPLSID", "the id of a virtual bridge (1 to 65535)", in_range<1, 0xFFFF>, {}},
    {"PEER", "the IPv4 address of a peer", is_peer, {}},
    {"TPID", "an ethertype (1 to 65535)", in_range<1, 0xFFFF>, {}},
    {"ROLE", "a role", nullptr, {"primary", "standby"}},
    {"TTL", "a time to live (1 to 255)", in_range<1, 255>, {}},
    {"EXP", "a class of service (0 to 7)", in_range<0, 7>, {}},
    {"FAMILY", "a family", nullptr, {"inet", "inet6"}},
    {"MAC", "a MAC address, as 02:00:00:00:01:02", reads<parse_mac>, {}},
    {"VLAN", "a VLAN id (1 to 4094)", in_range<1, max_vlan>, {}},
    {"SUPERVLAN", "the VLAN id of a super-VLAN (1 to 4094)", in_range<1, max_vlan>, {}},
    {"VRF", "a VRF id (0 to 255)", in_range<0, max_vrf>, {}},
    {"PORT", "a port (1 to 64)", in_range<1, max_port>, {}},
    {"TRUNK", "a trunk (1 to 16)", in_range<1, max_trunk>, {}},
    {"TUNNEL", "a tunnel, as tunnel7", reads<parse_tunnel>, {}},
    {"SLOT", "a slot (1 to 20)", in_range<1, 20>, {}},
    {"COUNT", "a count", in_range<0, 1'000'000'000>, {}},
    {"NUMBER", "a number", in_range<0, 0xFFFFFFFF>, {}},
    {"DISC", "a discriminator", in_range<0, 0xFFFFFFFF>, {}},
    {"TIMERS", "three timer values, as 50,50,3", reads<parse_timers>, {}},
    {"BFDSTATE", "the state of a session", nullptr, {"admin-down", "down", "init", "up"}},
    {"DURATION", "a time, as 30s, 5m, 2h or 1d", reads<parse_duration>, {}},
    {"NUD", "the state of a neighbour", is_state, states},
    {"REQUEST",
     "a kind of chip request",
     nullptr,
     {std::begin(chassis::chip::function_words), std::end(chassis::chip::function_words)}},
    {"PROTOCOL", "a protocol of the routing suite", nullptr, {NORIX_TASKS(CTL_PROTOCOL)}},
    {"FAULT", "a kind of operation", nullptr, {"alloc", "sem", "queue", "send"}},
    {"STATE", "on, off or clear", nullptr, {"on", "off", "clear"}},
    {"CHANNEL", "what leaves the library", nullptr, {"chip", "mirror", "log", "stack", "platform"}},
    {"TABLE", "a mirrored table", nullptr, {CHASSIS_TABLES(CTL_TABLE, )}},
    {"DEVMAP", "a device and an interface, as eth0=vlanif100", is_dev_map, {}},
    {"SWITCH", "on or off", nullptr, {"on", "off"}},
    {"BYTES", "a frame in hexadecimal digits", reads<parse_bytes>, {}},
    {"DEVICE", "a device of this machine", is_name, {}},
    {"PATH", "the name of a file", is_any, {}},
    {"TOPIC", "a word of a command", is_any, {}},
};

// What `ip route show` and `ip neigh show` print besides.
constexpr std::string_view skipped_pairs[] = {
    "proto",   "scope",    "metric",   "src",       "pref",   "table",    "type",     "realm",
    "realms",  "advmss",   "mtu",      "rtt",       "cwnd",   "hoplimit", "used",     "probes",
    "ref",     "refcnt",   "expires",  "error",     "weight", "nhid",     "cache",    "uid",
    "mark",    "iif",      "rto_min",  "window",    "rttvar", "ssthresh", "initcwnd", "initrwnd",
    "congctl", "features", "quickack", "reordering"};
constexpr std::string_view skipped_alone[] = {
    "router", "proxy", "extern_learn", "offload",    "managed", "extern_valid", "linkdown",
    "onlink", "dead",  "pervasive",    "rt_offload", "trap",    "rt_trap",      "offload_failed"};

} // namespace

bool Type::takes(std::string_view text) const {
    return accepts ? accepts(text) : std::ranges::find(values, text) != values.end();
}

const Type &type_named(std::string_view name) {
    for (const Type &type : types)
        if (type.name == name)
            return type;
    std::fprintf(stderr, "no type of argument is called %.*s\n", int(name.size()), name.data());
    std::abort();
}

std::size_t skipped_words(const std::vector<Word> &words, std::size_t at) {
    const std::string_view word = at < words.size() ? words[at].text : std::string_view();
    std::size_t count = std::ranges::find(skipped_alone, word) != std::end(skipped_alone);
    if (std::ranges::find(skipped_pairs, word) != std::end(skipped_pairs))
        count = at + 1 < words.size() && words[at + 1].text == "lock" ? 3 : 2; // mtu lock 1400
    return std::min(count, words.size() - std::min(at, words.size()));
}

} // namespace ctl
