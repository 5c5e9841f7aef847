// Command lines in few bytes, so that a fuzzer gets past the words soon.
//
// A byte from 128 up stands for the path of a command, and behind a byte 127 for one of those that these do not reach; a
// control byte (but for the line's end) for a word that commands take; everything else stands for itself.
#pragma once

#include "chassis/ctl/grammar.h"

#include <cstdint>
#include <string>

namespace fuzz {

// clang-format off
inline constexpr std::string_view common_words[] = {
    "10.1.1.2", "10.1.1.1/24", "dev", "vlanif100", "lladdr", "02:00:00:00:01:02", "vlan", "100",
    "port", "3", "10.1.1.3", "trunk", "vrf", "1", "--json", "2001:db8::2", "2001:db8::1/64",
    "fe80::2", "02:00:00:00:01:03", "vlanif200", "200", "30s", "nud", "FAILED", "route", "nexthop",
    "allocation", "skip", "super", "60000s", "clear"};
inline constexpr char further_commands = 127;
// clang-format on

inline std::string expand(std::string_view bytes) {
    std::string line;
    std::size_t first = 0;
    for (const char character : bytes) {
        const auto byte = std::uint8_t(character);
        if (character == further_commands) {
            first = 128;
            continue;
        }
        const auto &commands = ctl::commands();
        if (byte >= 128)
            line += std::string(commands[(first + byte - 128) % commands.size()].path) + " ";
        else if (byte < ' ' && byte != '\n')
            line += std::string(common_words[byte % std::size(common_words)]) + " ";
        else
            line += character;
        first = 0;
    }
    return line;
}

} // namespace fuzz
