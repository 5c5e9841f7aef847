// Frames with any number of VLAN tags, IPv4 with options, IPv6 with one hop-by-hop header, and the
// group records that IGMPv3 and MLDv2 share but for the length of an address.
#include "dpm_ipmc_report.h"

namespace {

constexpr std::uint16_t ethertype_ipv4 = 0x0800;
constexpr std::uint16_t ethertype_ipv6 = 0x86DD;
constexpr std::uint8_t protocol_igmp = 2;
constexpr std::uint8_t protocol_icmpv6 = 58;
constexpr std::uint8_t protocol_hop_by_hop = 0;
constexpr std::uint32_t ipv6_header_bytes = 40;

// The bytes of a frame or message, and the place that a reader has come to.
struct cursor {
    const std::uint8_t *bytes;
    std::uint32_t length;
    std::uint32_t at;

    bool has(std::uint32_t count) const { return at <= length && count <= length - at; }
    bool byte(std::uint32_t offset, std::uint32_t &value) const {
        if (!has(offset + 1))
            return false;
        value = bytes[at + offset];
        return true;
    }
    bool word(std::uint32_t offset, std::uint32_t &value) const {
        if (!has(offset + 2))
            return false;
        value = std::uint32_t{bytes[at + offset]} << 8 | bytes[at + offset + 1];
        return true;
    }
};

constexpr bool is_vlan_tag(std::uint32_t ethertype) {
    return ethertype == 0x8100 || ethertype == 0x88A8 || ethertype == 0x9100;
}

constexpr bool is_mld(std::uint32_t icmpv6_type) {
    return icmpv6_type == 131 || icmpv6_type == 132 || icmpv6_type == 143;
}

// Behind the addresses and every tag, to the IP header.
bool skip_link_header(cursor &frame) {
    frame.at = 12;
    std::uint32_t ethertype;
    while (frame.word(0, ethertype)) {
        frame.at += 2;
        if (ethertype == ethertype_ipv4 || ethertype == ethertype_ipv6)
            return true;
        if (!is_vlan_tag(ethertype))
            return false;
        frame.at += 2;
    }
    return false;
}

bool skip_ipv4_header(cursor &frame, std::uint32_t header_bytes) {
    std::uint32_t protocol;
    if (header_bytes < 20 || !frame.byte(9, protocol) || protocol != protocol_igmp)
        return false;
    frame.at += header_bytes;
    return true;
}

bool skip_ipv6_header(cursor &frame) {
    std::uint32_t protocol, length, type;
    if (!frame.byte(6, protocol))
        return false;
    frame.at += ipv6_header_bytes;
    if (protocol == protocol_hop_by_hop) { // the one extension header that reports come with
        if (!frame.byte(0, protocol) || !frame.byte(1, length))
            return false;
        frame.at += (length + 1) * 8;
    }
    return protocol == protocol_icmpv6 && frame.byte(0, type) && is_mld(type);
}

} // namespace

int dpm_ipmc_packet_parser(const std::uint8_t *bytes, std::uint32_t length_bytes,
                           std::uint32_t *offset, std::uint32_t *family) {
    cursor frame = {bytes, length_bytes, 0};
    std::uint32_t first;
    if (!skip_link_header(frame) || !frame.byte(0, first))
        return -1;
    const std::uint32_t version = first >> 4; // the ethertype does not choose the family
    if (version == 4 && skip_ipv4_header(frame, (first & 15) * 4))
        *family = DPM_FAMILY_IPV4;
    else if (version == 6 && skip_ipv6_header(frame))
        *family = DPM_FAMILY_IPV6;
    else
        return -1;
    *offset = frame.at;
    return 0;
}

namespace dpm {

bool read_address(const std::uint8_t *message, std::uint32_t length_bytes, std::uint32_t at,
                  std::uint32_t family, dpm_prefix &address) {
    if (!cursor{message, length_bytes, at}.has(address_bytes(family)))
        return false;
    address = host_prefix(family, message + at);
    return true;
}

// Both kinds of report tell the number of records at byte 6, and the first follows.
record_reader::record_reader(const std::uint8_t *message, std::uint32_t length_bytes,
                             std::uint32_t family)
    : message_(message), length_bytes_(length_bytes), family_(family), at_(8), left_(0) {
    (void)cursor{message, length_bytes, 6}.word(0, left_); // none in a message that is too short
}

// type, length of auxiliary data, number of sources (16 bits), group, sources.
bool record_reader::next(group_record &record) {
    if (left_ == 0)
        return false;
    left_--;
    const cursor from = {message_, length_bytes_, at_};
    const std::uint32_t bytes = address_bytes(family_), head_bytes = 4 + bytes;
    std::uint32_t type, sources;
    if (!from.byte(0, type) || !from.word(2, sources) || !from.has(head_bytes + sources * bytes))
        return left_ = 0, false;
    if (type < static_cast<std::uint32_t>(record_type::is_include) ||
        type > static_cast<std::uint32_t>(record_type::block))
        return left_ = 0, false;
    record = {};
    record.type = static_cast<record_type>(type);
    record.group = host_prefix(family_, message_ + at_ + 4);
    record.source_count = sources < DPM_IPMC_SOURCES ? sources : DPM_IPMC_SOURCES;
    for (std::uint32_t i = 0; i < record.source_count; i++)
        record.sources[i] = host_prefix(family_, message_ + at_ + head_bytes + i * bytes);
    // deliberate: auxiliary data is not skipped; no version of either protocol has defined any
    at_ += head_bytes + sources * bytes;
    return true;
}

} // namespace dpm
