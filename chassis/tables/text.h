// What the descriptions of tables share: walks over the library's tables, and the words for what
// records hold.
#pragma once

#include "chassis/address.h"
#include "chassis/chassis.h"
#include "chassis/tables/tables.h"
#include "dpm_api.h"

#include <string>
#include <type_traits>
#include <vector>

namespace chassis::tables {

namespace kinds = chip::kinds;

using chip::to_cpu;

// A walk by exported walkers: of both families where they take one.
template <auto first, auto next>
inline constexpr auto walk = [](const auto &visit) {
    const auto walk_from = [&visit](auto *entry) {
        for (; entry; entry = next(entry))
            visit(*entry);
    };
    if constexpr (std::is_invocable_v<decltype(first)>)
        walk_from(first());
    else
        for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
            walk_from(first(family));
};

std::string text_of(const dpm_prefix &prefix); // without its length
std::string prefix_text(const dpm_prefix &prefix);
std::string port_text(std::uint32_t port_type, std::uint32_t logical, std::uint32_t physical);
std::string seconds_text(std::int64_t seconds);
std::string yes_or_no(bool is);

// Whether a prefix lies inside a network, or is the network.
bool covers(const dpm_prefix &network, const dpm_prefix &prefix);
dpm_prefix prefix_of(std::uint32_t family, const std::uint8_t *address, unsigned prefix_len);
dpm_prefix host_of(std::uint32_t family, const std::uint8_t *address); // with the host length
std::array<std::uint8_t, 6> mac_of(const std::uint8_t *mac);
chip::Address chip_key(std::uint32_t vrf, const dpm_prefix &prefix);
bool is_link_local(const dpm_prefix &ip); // such hosts have a next hop in the chip, and no entry
std::vector<const dpm_if_ip_entry *> addresses_of(const dpm_if_entry &interface);

// Of the current card.
std::string interface_name(std::uint32_t ifindex);       // empty when the suite knows none
std::int64_t seconds_until(const dpm_timer_node &timer); // that is armed, rounded up

// What is the same for both kinds of label entry; they are packed.
template <class Entry> dpm_prefix fec_of(const Entry &entry) {
    return prefix_of(entry.ip_type, entry.fec_prefix, entry.prefixlen);
}
template <class Entry> std::string tunnel_nexthop(const Entry &entry) {
    return address_text(entry.tunnel_ip_type, entry.tunnel_nhop);
}
template <class Entry> chip::LabelHop hop_of(const Entry &entry) {
    const bool is_trunk = entry.port_type == DPM_PORT_LOGICAL;
    return {std::uint32_t(is_trunk ? DPM_PORT_LOGICAL : DPM_PORT_PHYSICAL), entry.out_port,
            std::uint16_t(entry.svlan), mac_of(entry.mac)};
}
template <class Entry> std::string label_state(const Entry &entry) {
    return entry.flags == DPM_LABEL_PROGRAMMED ? "chip"
           : entry.flags == DPM_LABEL_WAITING  ? "waits"
                                               : "new";
}
// What one lacks that is not in the chip, and whose way is free.  It leads to a neighbour of this VRF.
template <class Entry>
std::string label_missing(const Entry &entry, const Reading &reading, std::uint32_t vrf) {
    const bool waits = entry.flags == DPM_LABEL_WAITING;
    if (waits && !is_neighbour(reading, {vrf, host_of(entry.tunnel_ip_type, entry.tunnel_nhop)}))
        return "its neighbour " + tunnel_nexthop(entry);
    return entry.sdk_result != 0
               ? "the chip, which refused it with " + std::to_string(entry.sdk_result)
               : "the routing suite to tell it again";
}
inline std::string label_why(const std::string &waits_for) {
    return waits_for.empty() ? "in the chip" : "waits for " + waits_for;
}
// "the neighbour 10.1.1.2 since 12 s", by the second since which it waits; -1: it is not known.
std::string label_waits_for(const std::string &what, std::int32_t since_sec);

} // namespace chassis::tables
