#include "chassis/tables/text.h"

#include <algorithm>
#include <cstring>

namespace chassis::tables {

std::array<std::uint8_t, 6> mac_of(const std::uint8_t *mac) {
    return std::to_array(reinterpret_cast<const std::uint8_t(&)[6]>(*mac));
}

std::string text_of(const dpm_prefix &prefix) {
    return address_text(prefix.family, prefix.address);
}

std::string prefix_text(const dpm_prefix &prefix) {
    return text_of(prefix) + "/" + std::to_string(prefix.prefix_len);
}

std::string port_text(std::uint32_t port_type, std::uint32_t logical, std::uint32_t physical) {
    return port_type == DPM_PORT_LOGICAL ? "trunk " + std::to_string(logical)
                                         : std::to_string(physical);
}

std::string seconds_text(std::int64_t seconds) {
    return std::to_string(seconds) + " s";
}

std::string yes_or_no(bool is) {
    return is ? "yes" : "no";
}

bool covers(const dpm_prefix &network, const dpm_prefix &prefix) {
    if (network.family != prefix.family || network.prefix_len > prefix.prefix_len)
        return false;
    const auto start = [&](const dpm_prefix &of) {
        return masked(address_bytes(of.family, of.address), network.prefix_len);
    };
    return start(network) == start(prefix);
}

dpm_prefix prefix_of(std::uint32_t family, const std::uint8_t *address, unsigned prefix_len) {
    dpm_prefix prefix{std::uint16_t(family), std::uint16_t(prefix_len), {}};
    std::memcpy(prefix.address, address, sizeof prefix.address);
    return prefix;
}

dpm_prefix host_of(std::uint32_t family, const std::uint8_t *address) {
    return prefix_of(family, address, host_length(family));
}

chip::Address chip_key(std::uint32_t vrf, const dpm_prefix &prefix) {
    chip::Address key{std::int32_t(vrf), prefix.family, {}, prefix.prefix_len};
    std::copy_n(prefix.address, host_length(prefix.family) / 8, key.bytes.begin());
    return key;
}

bool is_link_local(const dpm_prefix &ip) {
    return ip.family == DPM_FAMILY_IPV6 && ip.address[0] == 0xFE && ip.address[1] == 0x80;
}

std::vector<const dpm_if_ip_entry *> addresses_of(const dpm_if_entry &interface) {
    std::vector<const dpm_if_ip_entry *> all;
    for (const list_head *list : {&interface.ipv4_list, &interface.ipv6_list})
        for (const list_head *link = list->next; link != list; link = link->next)
            all.push_back(reinterpret_cast<const dpm_if_ip_entry *>(link));
    return all;
}

std::string interface_name(std::uint32_t ifindex) {
    const auto interface = card().suite.find(ifindex);
    return interface ? interface->name : "";
}

std::string label_waits_for(const std::string &what, std::int32_t since_sec) {
    return since_sec < 0 || what.empty()
               ? what
               : what + " since " +
                     seconds_text(card().os.now_nsec() / os::nsec_per_sec - since_sec);
}

std::int64_t seconds_until(const dpm_timer_node &timer) {
    const std::int64_t due = timer.expiry_sec * os::nsec_per_sec + timer.expiry_nsec;
    return (due - card().os.now_nsec() + os::nsec_per_sec - 1) / os::nsec_per_sec;
}

} // namespace chassis::tables
