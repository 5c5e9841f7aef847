// The routing suite of a card: its registry of interfaces and VRFs, its settings and callbacks.
//
// add_interface() and the like keep the registry (nsm_*) and make the request to the library, as
// the suite would.
#pragma once

#include "dpm_api.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace chassis::suite {

struct Interface {
    std::string name;
    std::uint32_t ifindex;
    int vlan;
    std::uint32_t vrf;
    std::uint32_t type; // DPM_IF_*
};

struct Vrf {
    std::uint32_t id;
    bool is_enabled;
};

struct BfdReport { // of the chip, which the library passes on
    std::uint32_t local_disc, state, diag, remote_disc;
    std::int64_t at_nsec;
};

class Suite {
public:
    // The first ifindex that this card gives out: cards number their interfaces differently on
    // purpose.
    explicit Suite(std::uint32_t first_ifindex = 100);

    // The library's result; the registry keeps the interface whatever it says.
    int add_interface(const std::string &name, std::uint32_t type, unsigned vlan);
    int del_interface(const std::string &name);
    int add_address(const std::string &name, std::uint32_t family, const void *address,
                    unsigned prefix_len);
    int del_address(const std::string &name, std::uint32_t family, const void *address,
                    unsigned prefix_len);
    int set_vrf(const std::string &name, unsigned vrf);
    int enable_vrf(unsigned vrf, unsigned enable); // 1: enabled, another: disabled

    std::optional<Interface> find(const std::string &name) const;
    std::optional<Interface> find(std::uint32_t ifindex) const;
    std::vector<Interface> interfaces() const;
    std::vector<Vrf> vrfs() const; // that were enabled or disabled; the library enables VRF 0

    // Networks on which OSPF runs (dpm_if_ip_ospf_network_exist answers 1 for the interface
    // address).
    void run_ospf_on(std::uint32_t ipv4_network_order, unsigned prefix_len);

    // First member port of a VLAN (uv_get_fst_vlan_port_cfg); 0: none.
    void set_vlan_port(unsigned vlan, unsigned port);
    unsigned vlan_port(unsigned vlan) const;

    // Group membership interval of every VLAN's interface (mrib*_api_if_gmi_get).
    void set_membership_interval(int seconds);

    // The host process's proxy ARP: packets, ticks and data that came through the library's worker.
    struct ProxyCounts {
        unsigned packets, ticks, syncs, route_deletions;
    };
    ProxyCounts proxy_counts() const;

    // States of BFD sessions that were reported, oldest first (bounded).
    std::vector<BfdReport> bfd_reports() const;
    void clear_bfd_reports();

    struct HalNotice {
        std::string text;
    }; // hal_ns_vlanif_* calls, oldest first
    std::vector<HalNotice> hal_notices() const;
    // Is told of each of these, of BFD and of each of the proxy's, on the requester's thread.
    void watch(std::function<void(const std::string &text)> watcher);

private:
    friend struct Contract;
    mutable std::mutex mutex_;
    std::uint32_t next_ifindex_;
    std::map<std::string, Interface> interfaces_;
    std::map<std::uint32_t, bool> vrfs_{{0, true}}; // whether it is enabled
    std::vector<std::pair<std::uint32_t, unsigned>> ospf_networks_;
    std::map<unsigned, unsigned> vlan_ports_;
    int membership_interval_sec_ = 260;
    std::vector<HalNotice> hal_notices_;
    std::deque<BfdReport> bfd_reports_;
    std::function<void(const std::string &)> watcher_;
    ProxyCounts proxy_{};
    std::mutex vlan_lock_; // uv_lock_outside
};

} // namespace chassis::suite
