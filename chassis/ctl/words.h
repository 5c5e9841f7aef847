// The words of a command line and the values that they stand for.
//
// Nothing here depends on the library or the chassis: the client is built for any ABI.  Addresses
// are in network order, everything else in host order.
#pragma once

#include "chassis/address.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

inline constexpr std::size_t max_frame_bytes = 65535;
// Of a command, which may carry a frame in digits; a longer one is refused.
inline constexpr std::size_t max_line_bytes = 2 * max_frame_bytes + 256;
inline constexpr unsigned max_port = 64, max_trunk = 16, max_vlan = 4094, max_vrf = 255,
                          max_label = (1u << 20) - 1;

struct Word {
    std::string_view text;
    std::size_t column; // of its first character, from 1
};

// The words of a line.  A '#' at the start of a word begins a comment.
std::vector<Word> split_words(std::string_view line);

using Mac = std::array<std::uint8_t, 6>;

struct Prefix {
    std::uint32_t family; // 1 IPv4, 2 IPv6
    std::array<std::uint8_t, 16> address;
    unsigned length; // bits
};

using chassis::address_text;
using chassis::host_length;
using chassis::mac_text;

struct Labels { // of one label it is the inner one as well
    std::uint32_t outer, inner;
    bool are_two;
};

using Timers = std::array<std::uint32_t, 3>; // of a BFD session

bool is_inside(const Prefix &network, const std::uint8_t *address); // an address of its family

std::optional<std::uint64_t> parse_number(std::string_view text); // decimal, or 0x and hexadecimal
std::optional<Prefix> parse_address(std::string_view text);       // with the host length
std::optional<Prefix> parse_prefix(std::string_view text);        // with its "/length"
std::optional<Labels> parse_labels(std::string_view text);
bool is_any_source(std::string_view text); // of a group: "*" or "any"
bool is_multicast(const Prefix &address);
// A frame in digits, two a byte.
std::optional<std::vector<std::uint8_t>> parse_bytes(std::string_view text);
std::optional<Timers> parse_timers(std::string_view text); // as 50,50,3
std::optional<std::uint32_t> parse_tunnel(std::string_view text); // "tunnel7"
std::optional<Mac> parse_mac(std::string_view text);
std::optional<std::int64_t> parse_duration(std::string_view text); // "30s" in nanoseconds
// A text from elsewhere as a terminal may have it: control characters but tabs and line ends as
// "\x1b".
std::string printable(std::string_view text);

} // namespace ctl
