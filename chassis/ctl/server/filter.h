// What the shows share: the rows that were asked for, and how they are printed.
#pragma once

#include "chassis/ctl/server/command.h"

namespace ctl::server {

// The rows that were asked for.
class Filter {
public:
    explicit Filter(const Parsed &line) : vrf_(parse_number(line.value("--vrf"))) {
        const std::string_view subnet = line.value("SUBNET");
        is_default_ = subnet == "default";
        subnet_ = parse_prefix(subnet);
        if (!subnet_)
            subnet_ = parse_address(subnet);
    }

    bool takes(std::uint32_t vrf, std::uint32_t family, const std::uint8_t *address) const {
        if (is_default_ || !takes_vrf(vrf))
            return false;
        return !subnet_ || (subnet_->family == family && is_inside(*subnet_, address));
    }
    bool takes(std::uint32_t vrf, const dpm_prefix &ip) const {
        return takes(vrf, ip.family, ip.address);
    }
    // A network is wanted when it lies inside the wanted one; of "default" the two themselves are.
    bool takes_network(std::uint32_t vrf, const dpm_prefix &network) const {
        if (is_default_)
            return takes_vrf(vrf) && network.prefix_len == 0;
        return takes(vrf, network) && (!subnet_ || network.prefix_len >= subnet_->length);
    }
    bool takes_vrf(std::uint32_t vrf) const { return !vrf_ || *vrf_ == vrf; }
    bool takes_address() const { return is_default_ || subnet_.has_value(); }
    bool takes_all() const { return !vrf_ && !takes_address(); }

private:
    std::optional<std::uint64_t> vrf_;
    std::optional<Prefix> subnet_;
    bool is_default_ = false;
};

inline Reply print(const Command &command, const Table &table) {
    if (command.line.has("--count"))
        return done(std::to_string(table.rows()) + "\n");
    return done(command.line.has("--json") ? table.json() : table.text());
}

inline std::string prefix_text(const dpm_prefix &prefix) {
    return text_of(prefix) + "/" + std::to_string(prefix.prefix_len);
}

} // namespace ctl::server
