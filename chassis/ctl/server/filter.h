// What the shows share: the rows that were asked for, and how they are printed.
#pragma once

#include "chassis/ctl/server/request.h"

#include <cstring>

namespace ctl::server {

// The rows that were asked for.
class Filter {
public:
    explicit Filter(const Parsed &line) : vrf_(parse_number(line.value("vrf"))) {
        const std::string_view subnet = line.value("SUBNET");
        subnet_ = parse_prefix(subnet);
        if (!subnet_)
            subnet_ = parse_address(subnet);
    }

    bool takes(std::uint32_t vrf, std::uint32_t family, const std::uint8_t *address) const {
        if (!takes_vrf(vrf))
            return false;
        return !subnet_ || (subnet_->family == family && is_inside(address));
    }
    bool takes(std::uint32_t vrf, const dpm_prefix &ip) const {
        return takes(vrf, ip.family, ip.address);
    }
    bool takes_vrf(std::uint32_t vrf) const { return !vrf_ || *vrf_ == vrf; }
    bool takes_address() const { return subnet_.has_value(); }

private:
    bool is_inside(const std::uint8_t *address) const {
        const unsigned bytes = subnet_->length / 8, bits = subnet_->length % 8;
        const std::uint8_t mask = std::uint8_t(0xFF00 >> bits);
        return std::memcmp(address, subnet_->address.data(), bytes) == 0 &&
               (bits == 0 || ((address[bytes] ^ subnet_->address[bytes]) & mask) == 0);
    }

    std::optional<std::uint64_t> vrf_;
    std::optional<Prefix> subnet_;
};

inline Reply print(const Request &request, const Table &table) {
    if (request.line.has("--count"))
        return done(std::to_string(table.rows()) + "\n");
    return done(request.line.has("--json") ? table.json() : table.text());
}

inline std::string prefix_text(const dpm_prefix &prefix) {
    return text_of(prefix) + "/" + std::to_string(prefix.prefix_len);
}

} // namespace ctl::server
