// Addresses: comparison, masking, text, and the link-local address of a MAC.
#pragma once

#include "dpm_api.h"
#include "dpm_trace.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>

static_assert(sizeof(dpm_prefix) == 20);
static_assert(offsetof(dpm_prefix, address) == 4);

inline constexpr std::uint16_t DPM_IPV4_BITS = 32;
inline constexpr std::uint16_t DPM_IPV6_BITS = 128;

// Network address of an IPv4 address (network order), in host order; -1 for a length above 32.
int dpm_ipv4_net_addr_calc(std::uint32_t address, std::uint32_t prefix_len, std::uint32_t *out);

// Network address of an IPv6 address; -1 for a length above 128.
int dpm_ipv6_net_addr_calc(const std::uint8_t *address, std::uint32_t prefix_len,
                           std::uint8_t *out);

// The link-local address (16 bytes) of a MAC; -1 for null.
int dpm_get_linklocal(std::uint8_t *out, const std::uint8_t *mac);

// The four numbers of an IPv4 address, as arguments of a log line.
#define DPM_IPV4_OF(bytes) (bytes)[0], (bytes)[1], (bytes)[2], (bytes)[3]

namespace dpm {

template <class Value> constexpr int three_way(Value a, Value b) {
    return a < b ? -1 : a > b;
}

inline int bytes_order(const void *a, const void *b, std::size_t length) {
    const int order = std::memcmp(a, b, length);
    return order < 0 ? -1 : order > 0;
}

// Two addresses of 16 bytes, byte by byte: here, since tables are searched by them, and the call of a
// library function would cost more than the compare.
inline int bytes16_order(const void *a, const void *b) {
    std::uint32_t left[4], right[4];
    std::memcpy(left, a, sizeof left);
    std::memcpy(right, b, sizeof right);
    for (int i = 0; i < 4; i++)
        if (left[i] != right[i])
            return ntohl(left[i]) < ntohl(right[i]) ? -1 : 1;
    return 0;
}

// The first four bytes as they stand, for addresses that travel as words in network order.
inline std::uint32_t address_word(const std::uint8_t *address) {
    std::uint32_t word;
    std::memcpy(&word, address, sizeof word);
    return word;
}

constexpr bool is_known_family(std::uint32_t family) {
    return family == DPM_FAMILY_IPV4 || family == DPM_FAMILY_IPV6;
}

// The same, told under the caller's name when it is not.
inline bool is_iptype(std::uint32_t family, const call_site &caller) {
    if (is_known_family(family))
        return true;
    DPM_LOG_FROM(caller, "%s %d::iptype = %d is err!\r\n", family);
    return false;
}

// Bits and bytes of an address of a known family.
constexpr std::uint16_t host_bits(std::uint32_t family) {
    return family == DPM_FAMILY_IPV4 ? DPM_IPV4_BITS : DPM_IPV6_BITS;
}
constexpr std::size_t address_bytes(std::uint32_t family) {
    return host_bits(family) / 8u;
}

// Clears what stands behind a prefix length, in place; nothing for a length past the address.
void clear_host_bits(void *address, std::uint32_t prefix_len, std::size_t length_bytes);

// A host address as a prefix; `address` is as long as the family says.
dpm_prefix host_prefix(std::uint32_t family, const void *address);

// fe80::/16, by its first two bytes.
inline bool is_linklocal(const dpm_prefix &ip) {
    return ip.family == DPM_FAMILY_IPV6 && ip.address[0] == 0xFE && ip.address[1] == 0x80;
}

// fe80::/10: an address together with its interface alone.
inline bool is_scoped(const dpm_prefix &ip) {
    return ip.family == DPM_FAMILY_IPV6 && ip.address[0] == 0xFE && (ip.address[1] & 0xC0) == 0x80;
}

// The text of an address, for log lines; it lives as long as the statement that makes it.
class address_text {
public:
    explicit address_text(const dpm_prefix &ip);
    const char *c_str() const { return text_; }

private:
    char text_[48];
};

} // namespace dpm

// The bytes of an address one by one, for the texts that print them so.
#define DPM_FOUR_BYTES(bytes) (bytes)[0], (bytes)[1], (bytes)[2], (bytes)[3]
#define DPM_IPV4_BYTES(ip) DPM_FOUR_BYTES((ip).address)
#define DPM_IPV6_BYTES(ip)                                                                         \
    DPM_FOUR_BYTES((ip).address), DPM_FOUR_BYTES((ip).address + 4),                                \
        DPM_FOUR_BYTES((ip).address + 8), DPM_FOUR_BYTES((ip).address + 12)

// By length (longer is greater), then by the address in the family of `a`: the IPv4 word as stored,
// the IPv6 bytes. Two prefixes of another family never compare equal.
inline int dpm_prefix_compare(const dpm_prefix &a, const dpm_prefix &b) {
    if (a.prefix_len != b.prefix_len)
        return a.prefix_len > b.prefix_len ? 1 : -1;
    if (a.family == DPM_FAMILY_IPV4)
        return dpm::three_way(dpm::address_word(a.address), dpm::address_word(b.address));
    if (a.family == DPM_FAMILY_IPV6)
        return dpm::bytes16_order(a.address, b.address);
    return -1;
}
