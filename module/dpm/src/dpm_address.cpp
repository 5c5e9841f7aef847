// Addresses: masking, the link-local address of a MAC, text.  Every table has them, none masks or
// prints one by hand.
#include "dpm_address.h"

#include <arpa/inet.h>
#include <cstdio>

namespace {

// At most 16 bytes with the end.
void write_ipv4(const std::uint8_t *address, char *text) {
    for (int i = 0; i < 4; i++) {
        const unsigned number = address[i];
        if (number >= 100)
            *text++ = static_cast<char>('0' + number / 100);
        if (number >= 10)
            *text++ = static_cast<char>('0' + number / 10 % 10);
        *text++ = static_cast<char>('0' + number % 10);
        *text++ = i < 3 ? '.' : '\0';
    }
}

} // namespace

int dpm_ipv4_net_addr_calc(std::uint32_t address, std::uint32_t prefix_len, std::uint32_t *out) {
    if (prefix_len > DPM_IPV4_BITS)
        return -1;
    dpm::clear_host_bits(&address, prefix_len, sizeof address);
    *out = ntohl(address);
    return 0;
}

int dpm_ipv6_net_addr_calc(const std::uint8_t *address, std::uint32_t prefix_len,
                           std::uint8_t *out) {
    if (prefix_len > DPM_IPV6_BITS)
        return -1;
    std::memmove(out, address, dpm::address_bytes(DPM_FAMILY_IPV6));
    dpm::clear_host_bits(out, prefix_len, dpm::address_bytes(DPM_FAMILY_IPV6));
    return 0;
}

int dpm_get_linklocal(std::uint8_t *out, const std::uint8_t *mac) {
    if (out == nullptr || mac == nullptr)
        return -1;
    // An interface identifier made from a MAC has the universal bit inverted.
    const auto first = static_cast<std::uint8_t>(mac[0] ^ 0x02);
    // clang-format off
    const std::uint8_t address[16] = {0xFE,  0x80,   0,      0,    0,    0,      0,      0,
                                      first, mac[1], mac[2], 0xFF, 0xFE, mac[3], mac[4], mac[5]};
    // clang-format on
    std::memcpy(out, address, sizeof address);
    return 0;
}

namespace dpm {

void clear_host_bits(void *address, std::uint32_t prefix_len, std::size_t length_bytes) {
    const std::size_t partial = prefix_len / 8;
    if (partial >= length_bytes)
        return;
    auto *bytes = static_cast<std::uint8_t *>(address);
    bytes[partial] &= static_cast<std::uint8_t>(0xFF00 >> prefix_len % 8);
    std::memset(bytes + partial + 1, 0, length_bytes - partial - 1);
}

dpm_prefix host_prefix(std::uint32_t family, const void *address) {
    dpm_prefix ip = {};
    ip.family = static_cast<std::uint16_t>(family);
    ip.prefix_len = host_bits(family);
    std::memcpy(ip.address, address, address_bytes(family));
    return ip;
}

// Log lines are made whether or not somebody reads them: the common case is formatted by hand.
address_text::address_text(const dpm_prefix &ip) {
    if (ip.family == DPM_FAMILY_IPV4)
        write_ipv4(ip.address, text_);
    else if (ip.family != DPM_FAMILY_IPV6 ||
             inet_ntop(AF_INET6, ip.address, text_, sizeof text_) == nullptr)
        std::snprintf(text_, sizeof text_, "-");
}

} // namespace dpm
