// Multicast groups for management readers, who walk and print them from threads of their own.
#include "dpm_ipmc.h"

#include "dpm_locks.h"

#include <cstdio>

namespace {

// The texts stand whole, though they are long: they can be searched for.
// clang-format off
constexpr const char *group_text = "\n\r group %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x";
constexpr const char *source_text = "\n\r in_vlan %d out_cnt %d gid %d src %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x";
constexpr const char *rx_source_text = "\n\r src %d %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x";
// clang-format on

void show(dpm_ipmc_out_vlan &out) {
    std::printf("\n\r out_vlan %d", out.out_vlan);
    for (const dpm_ipmc_member &member : dpm::ipmc_members(out.members))
        std::printf("\n\r phy ifindex %x out_vlan %d inner_vlan %d", member.phy, member.out_vlan,
                    member.inner_vlan);
}

void show(dpm_ipmc_group &group) {
    std::printf(group_text, DPM_IPV6_BYTES(group.group));
    for (const dpm_ipmc_source &source : dpm::ipmc_sources(group.sources)) {
        std::printf(source_text, source.in_vlan, source.out_cnt, source.gid,
                    DPM_IPV6_BYTES(source.source));
        for (dpm_ipmc_out_vlan *out : source.out)
            if (out != nullptr)
                show(*out);
    }
}

void show(dpm_ipmc_rx_group &group) {
    std::printf(group_text, DPM_IPV6_BYTES(group.group));
    for (const dpm_ipmc_rx_port &port : dpm::ipmc_rx_ports(group.ports)) {
        std::printf("\n\r phy %x outer_vlan %d inner_vlan %d mode %d src_cnt %d", port.phy,
                    port.outer_vlan, port.inner_vlan, port.mode, port.src_cnt);
        for (int i = 0; i < port.src_cnt; i++)
            std::printf(rx_source_text, i, DPM_IPV6_BYTES(port.sources[i]));
    }
}

} // namespace

const dpm_ipmc_group *dpm_api_get_ipmc_group_first(std::uint32_t family) {
    return dpm::is_iptype(family, DPM_CALL_SITE) ? dpm::ipmc_groups(family).first() : nullptr;
}

const dpm_ipmc_group *dpm_api_get_ipmc_group_next(const dpm_ipmc_group *entry) {
    return entry != nullptr ? dpm::ipmc_groups(entry->group.family).next(*entry) : nullptr;
}

const dpm_ipmc_rx_group *dpm_api_get_ipmc_rx_group_first(std::uint32_t family) {
    return dpm::is_iptype(family, DPM_CALL_SITE) ? dpm::ipmc_rx_groups(family).first() : nullptr;
}

const dpm_ipmc_rx_group *dpm_api_get_ipmc_rx_group_next(const dpm_ipmc_rx_group *entry) {
    return entry != nullptr ? dpm::ipmc_rx_groups(entry->group.family).next(*entry) : nullptr;
}

void dpm_ipmc_group_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r unknown ipv4 gid %d unknown ipv6 gid %d", g_ipmc_global.unknown_ipv4_gid,
                g_ipmc_global.unknown_ipv6_gid);
    for (const std::uint32_t family : dpm::ipmc_families)
        for (dpm_ipmc_group &group : dpm::ipmc_groups(family))
            show(group);
}

void dpm_ipmc_rx_group_show() {
    const dpm::dpm_lock lock;
    for (const std::uint32_t family : dpm::ipmc_families)
        for (dpm_ipmc_rx_group &group : dpm::ipmc_rx_groups(family))
            show(group);
}
