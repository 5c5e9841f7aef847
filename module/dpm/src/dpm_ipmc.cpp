// Forwarding groups: sources with their outgoing VLANs, as the routing suite installs them, and the
// member ports that the reports of hosts (dpm_ipmc_rx.cpp) bring and take.
//
// An installation replaces the outgoing VLANs of a source that is there.  A VLAN that comes finds
// its members among the ports that have reported the group.  What the chip refuses to add is not
// kept; what it refuses to delete goes all the same, but for a source, and a member whose time is
// up.  After a switch-over the members are there and the filters are not: each member has the time
// of one membership interval to be reported again.
#include "dpm_ipmc.h"

#include "dpm_bridge.h"

namespace {

// The VLANs of a request's outgoing interfaces; 0: none.
struct out_vlans {
    std::uint32_t count;
    std::uint32_t vlan[DPM_IPMC_OUT_VLANS];

    explicit out_vlans(const dpm_ipmc_request &request) : count(request.oif_num) {
        for (std::uint32_t i = 0; i < count; i++)
            vlan[i] = dpm_if_get_vlanid(request.oif[i]);
    }
    bool has(std::uint32_t wanted) const {
        for (std::uint32_t i = 0; i < count; i++)
            if (vlan[i] == wanted)
                return true;
        return false;
    }
};

// Without memory no source is made, and none of what the chip refuses: that is no failure of the
// suite's.  No empty group stays behind.
dpm_ipmc_source *create_source(const dpm_ipmc_request &request, int &result) {
    result = -1;
    dpm_ipmc_group *group = dpm::get_ipmc_group(request.vrf, request.group);
    if (group == nullptr)
        return nullptr;
    dpm_ipmc_source *source = dpm_ipmc_group_src_find(group, &request.source);
    if (source != nullptr)
        return source;
    source = dpm::make_source(request.source);
    if (source == nullptr)
        return dpm::free_unused(*group), nullptr;
    source->in_vlan = static_cast<std::uint16_t>(dpm_if_get_vlanid(request.iif));
    if (dpm_driver_group_create(group, source, DPM_CARDS_ALL) == 0)
        return dpm::link(*group, *source), source;
    result = 0;
    dpm::free_source(*group, *source);
    return nullptr;
}

int add_out_vlans(dpm_ipmc_group &group, dpm_ipmc_source &source, const out_vlans &wanted) {
    for (std::uint32_t i = 0; i < wanted.count; i++) {
        const std::uint32_t vlan = wanted.vlan[i];
        if (vlan == 0 || dpm_ipmc_gourp_outvlan_find(&source, vlan) != nullptr)
            continue;
        dpm_ipmc_out_vlan *out = dpm::make_out_vlan(vlan);
        if (out == nullptr)
            return -1;
        (void)dpm_ipmc_group_add_member(&group, &source, out);
    }
    return 0;
}

void drop_out_vlans(dpm_ipmc_group &group, dpm_ipmc_source &source, const out_vlans *wanted) {
    for (dpm_ipmc_out_vlan *out : source.out)
        if (out != nullptr && (wanted == nullptr || !wanted->has(out->out_vlan)))
            (void)dpm_ipmc_group_del_member(&group, &source, out);
}

// A member that cannot be made, or that the chip refuses, is passed over.
void program_member(dpm_ipmc_group &group, dpm_ipmc_source &source, dpm_ipmc_out_vlan &out,
                    std::uint16_t inner_vlan, std::uint32_t phy) {
    dpm_ipmc_member *member = dpm::make_member(group, source, out, inner_vlan, phy);
    if (member == nullptr)
        return;
    if (dpm_driver_group_member_add(&group, &source, member, DPM_CARDS_ALL) == 0)
        dpm::link(*member);
    else
        dpm::free_member(*member);
}

// A source without outgoing VLANs ends, and its group with its last source.
int end_source(dpm_ipmc_group &group, dpm_ipmc_source &source) {
    if (source.out_cnt != 0)
        return 0;
    if (dpm_driver_group_destroy(&group, &source, DPM_CARDS_ALL) != 0)
        return -1;
    dpm::free_source(group, source);
    return 0;
}

// Calls `visit(source, out)` where the packets of a source, or of every source (null), of a group
// leave on a VLAN.
template <class Visit>
void each_out_vlan(std::uint32_t vrf, const dpm_prefix &group, const dpm_prefix *wanted,
                   std::uint32_t vlan, Visit visit) {
    dpm_ipmc_group *const at = dpm::find_ipmc_group(vrf, group);
    if (at == nullptr)
        return;
    for (dpm_ipmc_source &source : dpm::ipmc_sources(at->sources)) {
        if (wanted != nullptr && !dpm::is_same_source(source.source, *wanted))
            continue;
        if (dpm_ipmc_out_vlan *out = dpm_ipmc_gourp_outvlan_find(&source, vlan))
            visit(*at, source, *out);
    }
}

} // namespace

int dpm_ipmc_gourp_add_process(const dpm_ipmc_request *request) {
    int result;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    if (!dpm::is_known_family(request->group.family))
        return -1;
    if (request->oif_num > DPM_IPMC_OUT_VLANS) {
        DPM_TRACE("%s %d::oif_num %d is err!\r\n", request->oif_num);
        return -1;
    }
    dpm_ipmc_source *source = create_source(*request, result);
    if (source == nullptr)
        return result;
    dpm_ipmc_group *group = dpm::find_ipmc_group(request->vrf, request->group);
    const out_vlans wanted(*request);
    if (add_out_vlans(*group, *source, wanted) != 0)
        return -1;
    drop_out_vlans(*group, *source, &wanted);
    return 0;
}

int dpm_ipmc_gourp_del_process(const dpm_ipmc_request *request) {
    int result;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    if (!dpm::is_known_family(request->group.family))
        return -1;
    dpm_ipmc_group *group = dpm::find_ipmc_group(request->vrf, request->group);
    if (group == nullptr)
        return 0;
    dpm_ipmc_source *source = dpm_ipmc_group_src_find(group, &request->source);
    if (source == nullptr)
        return 0;
    drop_out_vlans(*group, *source, nullptr);
    return end_source(*group, *source);
}

int dpm_ipmc_group_add_member(dpm_ipmc_group *group, dpm_ipmc_source *source,
                              dpm_ipmc_out_vlan *out) {
    if (dpm_ipmc_rx_group *reported = dpm::find_ipmc_rx_group(out->out_vlan, group->group))
        for (const dpm_ipmc_rx_port &port : dpm::ipmc_rx_ports(reported->ports))
            if (dpm_ipmc_gourp_phy_find(out, port.phy) == nullptr &&
                dpm::passes_filter(port, source->source))
                program_member(*group, *source, *out, port.inner_vlan, port.phy);
    if (!dpm::keep_out_vlan(*source, *out))
        (void)dpm_ipmc_group_del_member(group, source, out);
    return 0;
}

int dpm_ipmc_group_del_member(dpm_ipmc_group *, dpm_ipmc_source *source, dpm_ipmc_out_vlan *out) {
    // deliberate: the VLAN goes in any case, and so does a member that the chip keeps
    for (dpm_ipmc_member &member : dpm::ipmc_members(out->members).erasable())
        dpm::withdraw_member(member);
    dpm::free_out_vlan(*source, *out);
    return 0;
}

int dpm_ipmc_entry_add_phy_member(std::uint32_t vrf, const dpm_prefix *group,
                                  const dpm_prefix *source, std::uint32_t vlan,
                                  std::uint16_t inner_vlan, std::uint32_t phy) {
    const auto add = [=](dpm_ipmc_group &at, dpm_ipmc_source &from, dpm_ipmc_out_vlan &out) {
        dpm_ipmc_member *present = dpm_ipmc_gourp_phy_find(&out, phy);
        if (present == nullptr)
            program_member(at, from, out, inner_vlan, phy);
        else if (present->timer.expiry_sec != 0) // it stays, now for the filter's time
            (void)dpm_timer_stop(g_ipmc_global.timer_list, &present->timer);
    };
    each_out_vlan(vrf, *group, source, vlan, add);
    return 0;
}

int dpm_ipmc_entry_del_phy_member(std::uint32_t vrf, const dpm_prefix *group,
                                  const dpm_prefix *source, std::uint32_t vlan, std::uint16_t,
                                  std::uint32_t phy) {
    const auto del = [=](dpm_ipmc_group &, dpm_ipmc_source &, dpm_ipmc_out_vlan &out) {
        if (dpm_ipmc_member *present = dpm_ipmc_gourp_phy_find(&out, phy))
            dpm::withdraw_member(*present);
    };
    each_out_vlan(vrf, *group, source, vlan, del);
    return 0;
}

int dpm_ipmc_member_phyport_timeout(std::uintptr_t argument, std::uintptr_t, std::uintptr_t) {
    auto *const member = reinterpret_cast<dpm_ipmc_member *>(argument);
    if (member == nullptr || member->group == nullptr || member->source == nullptr ||
        member->out == nullptr)
        return -1;
    dpm_ipmc_group &group = *member->group;
    dpm_ipmc_source &source = *member->source;
    dpm_ipmc_out_vlan &out = *member->out;
    if (!dpm::is_known_family(group.group.family))
        return -1;
    if (dpm_bridge_self_is_slave()) // which members it has is the master's affair
        return 0;
    // deliberate: unlike all others, this one stays when the chip refuses; nothing asks for it again
    if (dpm_driver_group_member_del(&group, &source, member, DPM_CARDS_ALL) == 0)
        dpm::free_member(*member);
    if (out.member_cnt == 0)
        dpm::free_out_vlan(source, out);
    return end_source(group, source);
}

int dpm_ipmc_slave_to_master_pro() {
    dpm::ipmc_echo_ends(false);
    const auto await_report = [](dpm_ipmc_member &member) {
        const dpm_prefix &group = member.group->group;
        dpm_ipmc_rx_group *reported = dpm::find_ipmc_rx_group(member.out_vlan, group);
        if (reported != nullptr && dpm_ipmc_rx_find_phy(reported, member.phy) != nullptr)
            return;
        (void)dpm_timer_start(g_ipmc_global.timer_list, &member.timer,
                              dpm::membership_interval_sec(group.family, member.out_vlan),
                              dpm_ipmc_member_phyport_timeout,
                              reinterpret_cast<std::uintptr_t>(&member), 0, 0);
    };
    dpm::each_ipmc_source([&](dpm_ipmc_group &, dpm_ipmc_source &source) {
        dpm::each_ipmc_member(source, await_report);
    });
    return 0;
}

namespace dpm {

void withdraw_member(dpm_ipmc_member &member) {
    // What goes here goes on the standby too, whatever the chip answers.
    if (dpm_driver_group_member_del(member.group, member.source, &member, DPM_CARDS_ALL) != 0)
        mirror_member_del(member);
    free_member(member);
}

} // namespace dpm
