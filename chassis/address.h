// Addresses as bytes in network order, and how people read them.
//
// Headers alone: the chassis, the command language and its client for any ABI share them.
#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace chassis {

// Of either family; IPv4 in the first four, the rest zero.
using AddressBytes = std::array<std::uint8_t, 16>;

constexpr bool is_family(std::uint32_t family) {
    return family == 1 || family == 2; // IPv4, IPv6
}

constexpr unsigned host_length(std::uint32_t family) {
    return family == 1 ? 32 : 128;
}

inline AddressBytes address_bytes(std::uint32_t family, const void *address) {
    AddressBytes bytes{};
    if (is_family(family))
        std::memcpy(bytes.data(), address, host_length(family) / 8);
    return bytes;
}

// The first `length` bits; the others are cleared.
constexpr AddressBytes masked(AddressBytes address, unsigned length) {
    for (unsigned i = 0; i < address.size(); i++) {
        const unsigned kept = length > 8 * i ? std::min(length - 8 * i, 8u) : 0;
        address[i] &= std::uint8_t(0xFF00 >> kept);
    }
    return address;
}

inline std::string address_text(std::uint32_t family, const void *address) {
    char text[INET6_ADDRSTRLEN] = "?";
    if (is_family(family))
        inet_ntop(family == 1 ? AF_INET : AF_INET6, address, text, sizeof text);
    return text;
}

inline std::string mac_text(const std::uint8_t *mac) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return text;
}

} // namespace chassis
