// What the shows share: the rows that were asked for, and how they are printed.
#pragma once

#include "chassis/ctl/server/request.h"

namespace ctl::server {

// The rows that were asked for.
class Filter {
public:
    explicit Filter(const Parsed &line) : vrf_(parse_number(line.value("--vrf"))) {
        const std::string_view subnet = line.value("SUBNET");
        subnet_ = parse_prefix(subnet);
        if (!subnet_)
            subnet_ = parse_address(subnet);
    }

    bool takes(std::uint32_t vrf, std::uint32_t family, const std::uint8_t *address) const {
        if (!takes_vrf(vrf))
            return false;
        return !subnet_ || (subnet_->family == family && is_inside(*subnet_, address));
    }
    bool takes(std::uint32_t vrf, const dpm_prefix &ip) const {
        return takes(vrf, ip.family, ip.address);
    }
    // A network is wanted when it lies inside the wanted one.
    bool takes_network(std::uint32_t vrf, const dpm_prefix &network) const {
        return takes(vrf, network) && (!subnet_ || network.prefix_len >= subnet_->length);
    }
    bool takes_vrf(std::uint32_t vrf) const { return !vrf_ || *vrf_ == vrf; }
    bool takes_address() const { return subnet_.has_value(); }

private:
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
