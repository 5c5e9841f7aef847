// The routing suite: requests to the library, and the registry that answers the library's
// questions.
//
// The registry is changed before the request is made, as the suite does it, and the request is made
// outside the registry's lock, since the library asks the registry on the same thread.

#include "chassis/suite/suite.h"

#include "chassis/chassis.h"

#include <algorithm>

namespace chassis::suite {

Suite::Suite(std::uint32_t first_ifindex) : next_ifindex_(first_ifindex) {}

int Suite::add_interface(const std::string &name, std::uint32_t type, unsigned vlan) {
    std::uint32_t ifindex = 0;
    {
        std::lock_guard lock(mutex_);
        const auto [entry, is_new] =
            interfaces_.try_emplace(name, Interface{name, next_ifindex_, int(vlan), 0, type});
        next_ifindex_ += is_new;
        ifindex = entry->second.ifindex;
    }
    if (type == DPM_IF_SUPERVLAN)
        return dpm_api_set_super_add(vlan);
    return dpm_api_set_if_proc(name.c_str(), type, ifindex, vlan, DPM_OPER_ADD);
}

int Suite::del_interface(const std::string &name) {
    const std::optional<Interface> entry = find(name);
    if (!entry)
        return -1;
    const int result = entry->type == DPM_IF_SUPERVLAN
                           ? dpm_api_set_super_del(unsigned(entry->vlan))
                           : dpm_api_set_if_proc(name.c_str(), entry->type, entry->ifindex,
                                                 unsigned(entry->vlan), DPM_OPER_DEL);
    std::lock_guard lock(mutex_);
    interfaces_.erase(name);
    return result;
}

namespace {

int request_address(const std::optional<Interface> &entry, std::uint32_t family,
                    const void *address, unsigned prefix_len, std::uint32_t oper) {
    if (!entry)
        return -1;
    return dpm_api_set_if_ip_proc(std::uint16_t(entry->vrf), entry->ifindex, std::uint8_t(family),
                                  address, std::uint16_t(prefix_len), oper);
}

} // namespace

int Suite::add_address(const std::string &name, std::uint32_t family, const void *address,
                       unsigned prefix_len) {
    return request_address(find(name), family, address, prefix_len, DPM_OPER_ADD);
}

int Suite::del_address(const std::string &name, std::uint32_t family, const void *address,
                       unsigned prefix_len) {
    return request_address(find(name), family, address, prefix_len, DPM_OPER_DEL);
}

int Suite::set_vrf(const std::string &name, unsigned vrf) {
    std::uint32_t ifindex = 0;
    {
        std::lock_guard lock(mutex_);
        const auto found = interfaces_.find(name);
        if (found == interfaces_.end())
            return -1;
        found->second.vrf = vrf;
        ifindex = found->second.ifindex;
    }
    return dpm_api_set_if_vrf_proc(ifindex, vrf);
}

int Suite::enable_vrf(unsigned vrf, unsigned enable) {
    const int result = dpm_api_set_vrf_enable(vrf, enable);
    std::lock_guard lock(mutex_);
    if (result == 0)
        vrfs_[vrf] = enable == DPM_ENABLE;
    return result;
}

std::vector<Vrf> Suite::vrfs() const {
    std::lock_guard lock(mutex_);
    std::vector<Vrf> all;
    for (const auto &[id, is_enabled] : vrfs_)
        all.push_back({id, is_enabled});
    return all;
}

std::optional<Interface> Suite::find(const std::string &name) const {
    std::lock_guard lock(mutex_);
    const auto found = interfaces_.find(name);
    return found == interfaces_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<Interface> Suite::find(std::uint32_t ifindex) const {
    std::lock_guard lock(mutex_);
    const auto found =
        std::find_if(interfaces_.begin(), interfaces_.end(),
                     [ifindex](const auto &named) { return named.second.ifindex == ifindex; });
    return found == interfaces_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<Interface> Suite::interfaces() const {
    std::lock_guard lock(mutex_);
    std::vector<Interface> all;
    for (const auto &[name, entry] : interfaces_)
        all.push_back(entry);
    return all;
}

void Suite::run_ospf_on(std::uint32_t ipv4_network_order, unsigned prefix_len) {
    std::lock_guard lock(mutex_);
    ospf_networks_.emplace_back(ipv4_network_order, prefix_len);
}

void Suite::set_membership_interval(int seconds) {
    std::lock_guard lock(mutex_);
    membership_interval_sec_ = seconds;
}

void Suite::set_vlan_port(unsigned vlan, unsigned port) {
    std::lock_guard lock(mutex_);
    vlan_ports_[vlan] = port;
}

unsigned Suite::vlan_port(unsigned vlan) const {
    std::lock_guard lock(mutex_);
    const auto found = vlan_ports_.find(vlan);
    return found == vlan_ports_.end() ? 0 : found->second;
}

std::vector<Suite::HalNotice> Suite::hal_notices() const {
    std::lock_guard lock(mutex_);
    return hal_notices_;
}

void Suite::watch(std::function<void(const std::string &)> watcher) {
    std::lock_guard lock(mutex_);
    watcher_ = std::move(watcher);
}

Suite::ProxyCounts Suite::proxy_counts() const {
    std::lock_guard lock(mutex_);
    return proxy_;
}

std::vector<BfdReport> Suite::bfd_reports() const {
    std::lock_guard lock(mutex_);
    return {bfd_reports_.begin(), bfd_reports_.end()};
}

void Suite::clear_bfd_reports() {
    std::lock_guard lock(mutex_);
    bfd_reports_.clear();
}

} // namespace chassis::suite
