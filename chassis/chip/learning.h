// Where virtual bridges learnt addresses.
//
// This is the data plane's own: no request makes it, no line card is told, and a chip that takes over
// learns anew.  What was learnt on a circuit or pseudowire goes with it.  It does not age.
#pragma once

#include "chassis/chip/values.h"

#include <array>
#include <map>
#include <optional>
#include <set>

namespace chassis::chip {

using MacBytes = std::array<std::uint8_t, 6>;

constexpr bool is_of_group(const MacBytes &mac) { // broadcast among them
    return (mac[0] & 1) != 0;
}

class Learning {
public:
    static constexpr std::size_t max_addresses = 16384;

    struct Address {
        std::uint32_t vpls_id;
        MacBytes mac;
        auto operator<=>(const Address &) const = default;
    };

    // False when there is no room; a known address moves.
    bool learn(const Address &address, Index logic_port) {
        if (is_of_group(address.mac))
            return false;
        const auto known = ports_.find(address);
        if (known == ports_.end() && ports_.size() == max_addresses)
            return false;
        if (known != ports_.end())
            addresses_.erase({known->second, address});
        ports_[address] = logic_port;
        addresses_.emplace(logic_port, address);
        return true;
    }
    std::optional<Index> find(const Address &address) const {
        const auto known = ports_.find(address);
        return known == ports_.end() ? std::nullopt : std::optional(known->second);
    }
    void forget(Index logic_port) {
        const auto first = addresses_.lower_bound({logic_port, Address()});
        auto last = first;
        for (; last != addresses_.end() && last->first == logic_port; last++)
            ports_.erase(last->second);
        addresses_.erase(first, last);
    }
    const std::map<Address, Index> &all() const { return ports_; }

private:
    std::map<Address, Index> ports_;
    std::set<std::pair<Index, Address>> addresses_; // by port
};

} // namespace chassis::chip
