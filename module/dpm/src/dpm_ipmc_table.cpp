// The records of multicast: trees, lists and slots, without a word to the chip or the standby.
//
// Whatever refers to a record is freed before it: members before their VLAN, VLANs before their
// source, sources before their group.
#include "dpm_ipmc.h"

#include "platform/mrib.h"

namespace {

constexpr std::uint32_t default_interval_sec = 300;

struct source_record {
    dpm_ipmc_source source; // first: the tables see this alone
    std::uint32_t sync;     // that brought it
};

struct member_record {
    dpm_ipmc_member member; // the same
    std::uint32_t sync;
};

} // namespace

dpm_ipmc_source *dpm_ipmc_group_src_find(dpm_ipmc_group *group, const dpm_prefix *source) {
    for (dpm_ipmc_source &each : dpm::ipmc_sources(group->sources))
        if (dpm::is_same_source(each.source, *source))
            return &each;
    return nullptr;
}

dpm_ipmc_out_vlan *dpm_ipmc_gourp_outvlan_find(dpm_ipmc_source *source, std::uint32_t vlan) {
    for (dpm_ipmc_out_vlan *out : source->out)
        if (out != nullptr && out->out_vlan == vlan)
            return out;
    return nullptr;
}

dpm_ipmc_member *dpm_ipmc_gourp_phy_find(dpm_ipmc_out_vlan *out, std::uint32_t phy) {
    for (dpm_ipmc_member &member : dpm::ipmc_members(out->members))
        if (member.phy == phy)
            return &member;
    return nullptr;
}

dpm_ipmc_rx_port *dpm_ipmc_rx_find_phy(dpm_ipmc_rx_group *group, std::uint32_t phy) {
    for (dpm_ipmc_rx_port &port : dpm::ipmc_rx_ports(group->ports))
        if (port.phy == phy)
            return &port;
    return nullptr;
}

namespace dpm {

ipmc_group_table ipmc_groups(std::uint32_t family) {
    return ipmc_group_table(family == DPM_FAMILY_IPV4 ? g_ipmc_global.ipv4_tree
                                                      : g_ipmc_global.ipv6_tree);
}

ipmc_rx_table ipmc_rx_groups(std::uint32_t family) {
    return ipmc_rx_table(family == DPM_FAMILY_IPV4 ? g_ipmc_global.ipv4_rx_tree
                                                   : g_ipmc_global.ipv6_rx_tree);
}

void create_ipmc_trees() {
    ipmc_group_table(g_ipmc_global.ipv4_tree).create();
    avl_table<dpm_ipmc_group, dpm_ipmc_ipv6_compare>(g_ipmc_global.ipv6_tree).create();
    ipmc_rx_table(g_ipmc_global.ipv4_rx_tree).create();
    avl_table<dpm_ipmc_rx_group, dpm_ipmc_ipv6_rx_compare>(g_ipmc_global.ipv6_rx_tree).create();
}

dpm_ipmc_group *find_ipmc_group(std::uint32_t vrf, const dpm_prefix &group) {
    dpm_ipmc_group key = {};
    key.vrf = vrf;
    key.group = group;
    return ipmc_groups(group.family).find(key);
}

dpm_ipmc_rx_group *find_ipmc_rx_group(std::uint32_t vlan, const dpm_prefix &group) {
    dpm_ipmc_rx_group key = {};
    key.vlan = vlan;
    key.group = group;
    return ipmc_rx_groups(group.family).find(key);
}

bool is_same_source(const dpm_prefix &a, const dpm_prefix &b) {
    return dpm_prefix_compare(a, b) == 0 ||
           (a.family == DPM_FAMILY_NONE && b.family == DPM_FAMILY_NONE);
}

bool is_in_filter(const dpm_ipmc_rx_port &port, const dpm_prefix &source) {
    for (const dpm_prefix &each : port.sources)
        if (each.family != DPM_FAMILY_NONE && is_same_source(each, source))
            return true;
    return false;
}

bool passes_filter(const dpm_ipmc_rx_port &port, const dpm_prefix &source) {
    return port.mode == DPM_IPMC_NO_FILTER ||
           is_in_filter(port, source) == (port.mode == DPM_IPMC_INCLUDE);
}

std::uint32_t membership_interval_sec(std::uint32_t family, std::uint32_t vlan) {
    int interval = default_interval_sec;
    if (family == DPM_FAMILY_IPV4)
        interval = mrib4_igmp_api_if_gmi_get(vlan);
    else if (family == DPM_FAMILY_IPV6)
        interval = mrib6_mld_api_if_gmi_get(vlan);
    return interval > 0 ? static_cast<std::uint32_t>(interval) : 0;
}

dpm_ipmc_group *get_ipmc_group(std::uint32_t vrf, const dpm_prefix &group) {
    if (dpm_ipmc_group *present = find_ipmc_group(vrf, group))
        return present;
    block<dpm_ipmc_group> made;
    if (!made)
        return nullptr;
    made->vrf = vrf;
    made->group = group;
    INIT_LIST_HEAD(&made->sources);
    (void)ipmc_groups(group.family).add(*made);
    return made.release();
}

void free_unused(dpm_ipmc_group &group) {
    if (group.src_cnt != 0)
        return;
    ipmc_groups(group.group.family).remove(group);
    free_zeroed(&group);
}

dpm_ipmc_source *make_source(const dpm_prefix &source) {
    block<source_record> made;
    if (!made)
        return nullptr;
    made->source.source = source;
    return &made.release()->source;
}

void link(dpm_ipmc_group &group, dpm_ipmc_source &source) {
    list_add(&source.link, &group.sources);
    group.src_cnt++;
}

void free_source(dpm_ipmc_group &group, dpm_ipmc_source &source) {
    if (source.link.next != nullptr) {
        list_del(&source.link);
        group.src_cnt--;
    }
    free_zeroed(reinterpret_cast<source_record *>(&source));
    free_unused(group);
}

dpm_ipmc_out_vlan *make_out_vlan(std::uint32_t vlan) {
    block<dpm_ipmc_out_vlan> made;
    if (!made)
        return nullptr;
    made->out_vlan = static_cast<std::uint16_t>(vlan);
    INIT_LIST_HEAD(&made->members);
    return made.release();
}

bool keep_out_vlan(dpm_ipmc_source &source, dpm_ipmc_out_vlan &out) {
    for (dpm_ipmc_out_vlan *&slot : source.out) {
        if (slot != nullptr)
            continue;
        slot = &out;
        source.out_cnt++;
        return true;
    }
    return false;
}

void free_out_vlan(dpm_ipmc_source &source, dpm_ipmc_out_vlan &out) {
    for (dpm_ipmc_out_vlan *&slot : source.out)
        if (slot == &out) {
            slot = nullptr;
            source.out_cnt--;
        }
    free_zeroed(&out);
}

dpm_ipmc_member *make_member(dpm_ipmc_group &group, dpm_ipmc_source &source, dpm_ipmc_out_vlan &out,
                             std::uint16_t inner_vlan, std::uint32_t phy) {
    block<member_record> made;
    if (!made)
        return nullptr;
    dpm_ipmc_member &member = made->member;
    INIT_LIST_HEAD(&member.link);
    (void)dpm_timer_node_init(&member.timer);
    member.group = &group;
    member.source = &source;
    member.out = &out;
    member.out_vlan = out.out_vlan;
    member.inner_vlan = inner_vlan;
    member.phy = phy;
    return &made.release()->member;
}

void link(dpm_ipmc_member &member) {
    list_add(&member.link, &member.out->members);
    member.out->member_cnt++;
}

void free_member(dpm_ipmc_member &member) {
    if (member.timer.expiry_sec != 0)
        (void)dpm_timer_stop(g_ipmc_global.timer_list, &member.timer);
    if (!list_empty(&member.link)) {
        list_del(&member.link);
        member.out->member_cnt--;
    }
    free_zeroed(reinterpret_cast<member_record *>(&member));
}

std::uint32_t &sync_of(dpm_ipmc_source &source) {
    return reinterpret_cast<source_record &>(source).sync;
}

std::uint32_t &sync_of(dpm_ipmc_member &member) {
    return reinterpret_cast<member_record &>(member).sync;
}

} // namespace dpm
