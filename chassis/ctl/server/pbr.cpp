// Policy routes: rules and ports in words, through the library's functions that build the chip's
// buffers.

#include "chassis/ctl/server/command.h"

#include <algorithm>

namespace ctl::server {

namespace {

// Fields of this chip's rules; key and mask are addresses.
constexpr std::uint32_t source_field = 1, destination_field = 2;
constexpr std::uint32_t port_set = 1;

struct Buffer {
    std::uint8_t bytes[256] = {}; // two rule records, or 64 ports
    std::uint32_t length = 0;
};

void fill_field(Buffer &rule, std::uint32_t field, std::string_view text) {
    const auto address = parse_address(text);
    const Prefix prefix = address ? *address : *parse_prefix(text);
    const std::uint32_t length = prefix.family == DPM_FAMILY_IPV4 ? 4 : 16;
    chassis::AddressBytes ones;
    ones.fill(0xFF);
    (void)dpm_hw_fill_rule(rule.bytes, &rule.length, field, prefix.address.data(), length,
                           chassis::masked(ones, prefix.length).data(), length, 0);
}

Buffer rule_of(const Parsed &line) {
    Buffer rule;
    if (line.has("from"))
        fill_field(rule, source_field, line.value("from"));
    if (line.has("to"))
        fill_field(rule, destination_field, line.value("to"));
    return rule;
}

Buffer ports_of(const Parsed &line) {
    Buffer ports;
    std::vector<std::uint16_t> numbers;
    for (const std::string_view text : line.values("port"))
        numbers.push_back(std::uint16_t(parse_number(text).value_or(0)));
    if (numbers.empty())
        (void)dpm_hw_fill_port_all(ports.bytes, &ports.length, port_set);
    else
        (void)dpm_hw_fill_port(ports.bytes, &ports.length, numbers.data(),
                               std::int32_t(std::min<std::size_t>(numbers.size(), 64)), port_set);
    return ports;
}

Reply change(Command &command, decltype(dpm_api_policy_route_add) request) {
    const Parsed &line = command.line;
    const Buffer rule = rule_of(line), ports = ports_of(line);
    if (rule.length == 0)
        return refused("a policy route is from or to a network");
    const auto via =
        line.has("via") ? address_argument(command, "via") : Prefix{DPM_FAMILY_IPV4, {}, 32};
    const std::string vrf = line.has("vrf") ? "vrf" + std::string(line.value("vrf")) : "";
    const int result = request(std::uint32_t(line.number("set", 1)), rule.bytes, rule.length,
                               ports.bytes, ports.length, vrf.c_str(), std::uint32_t(vrf.size()),
                               via.family, via.address.data());
    return result == -2 ? refused("no such VRF") : answer(result);
}

} // namespace

Reply pbr_add(Command &command) {
    return change(command, dpm_api_policy_route_add);
}
Reply pbr_del(Command &command) {
    return change(command, dpm_api_policy_route_del);
}

} // namespace ctl::server
