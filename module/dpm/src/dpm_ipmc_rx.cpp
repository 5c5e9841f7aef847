// Reported groups: which ports of a VLAN have listeners of a group, and from which sources they
// want it.
//
// A port comes with its first report and goes when it leaves, when nothing has been reported for a
// membership interval, or with its VLAN's interface.  It has a filter of up to eight sources; a
// ninth is not kept.  Each change of a filter is at once one of the forwarding groups' members
// (dpm_ipmc.cpp), source by source.
//
//   mode        wants                    reports that change it
//   NO_FILTER   every source             TO_IN, TO_EX
//   INCLUDE     the sources listed       IS_IN, ALLOW, BLOCK; TO_EX
//   EXCLUDE     all but those listed     IS_EX, ALLOW, BLOCK, TO_EX; TO_IN
//
// A join of older versions makes a port without filter, and leaves any other as it is.  The master
// alone keeps filters: they are not mirrored.
#include "dpm_ipmc.h"

#include "dpm_bridge.h"

#include <algorithm>
#include <span>

namespace {

using source_list = std::span<const dpm_prefix>;

void restart_timer(dpm_ipmc_rx_port &port) {
    const std::uint32_t interval_sec =
        dpm::membership_interval_sec(port.group->group.family, port.group->vlan);
    (void)dpm_timer_start(g_ipmc_global.timer_list, &port.timer, interval_sec,
                          dpm_ipmc_rx_phyport_timeout, reinterpret_cast<std::uintptr_t>(&port), 0,
                          0);
}

void stop_timer(dpm_ipmc_rx_port &port) {
    if (port.timer.expiry_sec != 0)
        (void)dpm_timer_stop(g_ipmc_global.timer_list, &port.timer);
}

// The members that a port is, or is no more.
class port_members {
public:
    explicit port_members(const dpm_ipmc_rx_port &port)
        : port_(port), group_(*port.group), vrf_(dpm_if_get_vrf_by_vlan(group_.vlan)) {}

    void add(const dpm_prefix *source) const { // null: of every source
        (void)dpm_ipmc_entry_add_phy_member(vrf_, &group_.group, source, group_.vlan,
                                            port_.inner_vlan, port_.phy);
    }
    void del(const dpm_prefix *source) const {
        (void)dpm_ipmc_entry_del_phy_member(vrf_, &group_.group, source, group_.vlan,
                                            port_.inner_vlan, port_.phy);
    }
    // A source that is listed from now on, or no more.
    void listed(const dpm_prefix &source) const {
        if (port_.mode == DPM_IPMC_INCLUDE)
            add(&source);
        else if (port_.mode == DPM_IPMC_EXCLUDE)
            del(&source);
    }
    void unlisted(const dpm_prefix &source) const {
        if (port_.mode == DPM_IPMC_INCLUDE)
            del(&source);
        else if (port_.mode == DPM_IPMC_EXCLUDE)
            add(&source);
    }

private:
    const dpm_ipmc_rx_port &port_;
    const dpm_ipmc_rx_group &group_;
    const std::uint32_t vrf_;
};

// Brings the slots in use to the front.
void dpm_ipmc_src_review(dpm_ipmc_rx_port &port) {
    dpm_prefix kept[DPM_IPMC_SOURCES] = {};
    std::uint16_t count = 0;
    for (const dpm_prefix &source : port.sources)
        if (source.family != DPM_FAMILY_NONE)
            kept[count++] = source;
    std::copy_n(kept, DPM_IPMC_SOURCES, port.sources);
    port.src_cnt = count;
}

bool is_listed(source_list sources, const dpm_prefix &source) {
    return std::ranges::any_of(
        sources, [&](const dpm_prefix &each) { return dpm::is_same_source(each, source); });
}

// Lists each reported source that is not there; the ninth is not kept.
void list_sources(dpm_ipmc_rx_port &port, source_list reported) {
    const port_members members(port);
    for (const dpm_prefix &source : reported) {
        if (port.src_cnt == DPM_IPMC_SOURCES || dpm::is_in_filter(port, source))
            continue;
        port.sources[port.src_cnt++] = source;
        members.listed(source);
    }
}

// Takes each reported source off the list, as often as it stands there.
void unlist_sources(dpm_ipmc_rx_port &port, source_list reported) {
    const port_members members(port);
    for (const dpm_prefix &source : reported) {
        if (!dpm::is_in_filter(port, source))
            continue;
        members.unlisted(source);
        for (dpm_prefix &slot : port.sources)
            if (slot.family != DPM_FAMILY_NONE && dpm::is_same_source(slot, source))
                slot = {};
    }
    dpm_ipmc_src_review(port);
}

// A new list of a port that has none.
void set_sources(dpm_ipmc_rx_port &port, std::uint32_t mode, source_list reported) {
    port.mode = static_cast<std::uint16_t>(mode);
    port.src_cnt = static_cast<std::uint16_t>(reported.size());
    const port_members members(port);
    for (std::size_t i = 0; i < reported.size(); i++) {
        port.sources[i] = reported[i];
        members.listed(reported[i]);
    }
}

void clear_sources(dpm_ipmc_rx_port &port) {
    std::fill_n(port.sources, DPM_IPMC_SOURCES, dpm_prefix{});
    port.src_cnt = 0;
}

// Replaces the list by what is reported.
void dpm_ipmc_restart_phy_timer(dpm_ipmc_rx_port &port, source_list reported) {
    const port_members members(port);
    // deliberate: a full report removes nothing
    if (reported.size() < DPM_IPMC_SOURCES)
        for (dpm_prefix &source : port.sources)
            if (source.family != DPM_FAMILY_NONE && !is_listed(reported, source)) {
                members.unlisted(source);
                source = {};
            }
    dpm_ipmc_src_review(port);
    list_sources(port, reported);
    restart_timer(port);
}

void free_unused(dpm_ipmc_rx_group &group) {
    if (group.port_cnt != 0)
        return;
    dpm::ipmc_rx_groups(group.group.family).remove(group);
    dpm::free_zeroed(&group);
}

void link(dpm_ipmc_rx_port &port) {
    list_add(&port.link, &port.group->ports);
    port.group->port_cnt++;
    g_ipmc_global.rx_port_count++;
}

void unlink(dpm_ipmc_rx_port &port) {
    stop_timer(port);
    list_del(&port.link);
    port.group->port_cnt--;
    g_ipmc_global.rx_port_count--;
}

// The port's members have gone, or are not its own to take.
void free_port(dpm_ipmc_rx_port &port) {
    dpm_ipmc_rx_group &group = *port.group;
    unlink(port);
    dpm::free_zeroed(&port);
    free_unused(group);
}

void remove_port(dpm_ipmc_rx_port &port) {
    port_members(port).del(nullptr);
    free_port(port);
}

// A report of a port about a group, and what is known of the two; null: nothing.
struct report {
    const dpm_prefix &address;
    const uv_rx_descriptor &from;
    dpm_ipmc_rx_group *group = nullptr;
    dpm_ipmc_rx_port *port = nullptr;

    report(const dpm_prefix &group_address, const uv_rx_descriptor &descriptor)
        : address(group_address), from(descriptor) {
        group = dpm::find_ipmc_rx_group(from.vlan, address);
        if (group != nullptr)
            port = dpm_ipmc_rx_find_phy(group, from.port);
    }
};

bool is_full(bool needs_group) {
    std::uint32_t groups = 0;
    for (const std::uint32_t family : dpm::ipmc_families)
        groups += dpm::ipmc_rx_groups(family).count();
    return (needs_group && groups >= DPM_IPMC_RX_GROUPS) ||
           g_ipmc_global.rx_port_count >= DPM_IPMC_RX_PORTS;
}

dpm_ipmc_rx_group *make_group(const report &about) {
    dpm::block<dpm_ipmc_rx_group> made;
    if (!made)
        return nullptr;
    made->vlan = about.from.vlan;
    made->group = about.address;
    INIT_LIST_HEAD(&made->ports);
    (void)dpm::ipmc_rx_groups(about.address.family).add(*made);
    return made.release();
}

// A port of the group, which is made when there is none.  Without memory no empty group stays.
dpm_ipmc_rx_port *make_port(report &about, std::uint32_t mode, const dpm::call_site &caller) {
    if (is_full(about.group == nullptr)) {
        DPM_LOG_FROM(caller, "%s %d::ipmc rx entry is full!!!\r\n");
        return nullptr;
    }
    if (about.group == nullptr)
        about.group = make_group(about);
    if (about.group == nullptr)
        return nullptr;
    dpm::block<dpm_ipmc_rx_port> made;
    if (!made)
        return free_unused(*about.group), nullptr;
    made->group = about.group;
    made->mode = static_cast<std::uint16_t>(mode);
    made->outer_vlan = about.from.vlan;
    made->inner_vlan = about.from.inner_vlan;
    made->phy = about.from.port;
    (void)dpm_timer_node_init(&made->timer);
    restart_timer(*made);
    link(*made);
    return made.release();
}

} // namespace

int dpm_ipmc_join_group(const dpm_prefix *group, const uv_rx_descriptor *from) {
    if (!dpm::is_known_family(group->family))
        return -1;
    report about(*group, *from);
    if (about.port != nullptr)
        return restart_timer(*about.port), 0;
    dpm_ipmc_rx_port *port = make_port(about, DPM_IPMC_NO_FILTER, DPM_CALL_SITE);
    if (port == nullptr)
        return -1;
    port_members(*port).add(nullptr);
    return 0;
}

int dpm_ipmc_leave_group(const dpm_prefix *group, const uv_rx_descriptor *from) {
    if (!dpm::is_known_family(group->family))
        return -1;
    const report about(*group, *from);
    if (about.port == nullptr)
        return -1;
    remove_port(*about.port);
    return 0;
}

int dpm_ipmc_restart_group(const dpm_prefix *group, const dpm_prefix *sources, std::uint32_t count,
                           std::uint32_t mode, const uv_rx_descriptor *from) {
    if (!dpm::is_known_family(group->family))
        return -1;
    const report about(*group, *from);
    if (about.port == nullptr || about.port->mode != mode)
        return -1;
    dpm_ipmc_restart_phy_timer(*about.port, {sources, count});
    return 0;
}

int dpm_ipmc_exchange_to_include(const dpm_prefix *group, const dpm_prefix *sources,
                                 std::uint32_t count, const uv_rx_descriptor *from) {
    if (!dpm::is_known_family(group->family))
        return -1;
    const report about(*group, *from);
    if (about.port == nullptr || about.port->mode == DPM_IPMC_INCLUDE)
        return 0;
    if (count == 0) // which wants nothing
        return remove_port(*about.port), 0;
    clear_sources(*about.port);
    port_members(*about.port).del(nullptr);
    set_sources(*about.port, DPM_IPMC_INCLUDE, {sources, count});
    restart_timer(*about.port);
    return 0;
}

int dpm_ipmc_exchange_to_exclude(const dpm_prefix *group, const dpm_prefix *sources,
                                 std::uint32_t count, const uv_rx_descriptor *from) {
    if (!dpm::is_known_family(group->family))
        return -1;
    report about(*group, *from);
    if (about.port == nullptr) {
        about.port = make_port(about, DPM_IPMC_EXCLUDE, DPM_CALL_SITE);
        if (about.port == nullptr)
            return -1;
    } else if (about.port->mode == DPM_IPMC_EXCLUDE) {
        return dpm_ipmc_restart_phy_timer(*about.port, {sources, count}), 0;
    } else { // the record starts over, as the newest
        const port_members members(*about.port);
        for (std::uint16_t i = 0; i < about.port->src_cnt; i++)
            members.del(&about.port->sources[i]);
        clear_sources(*about.port);
        unlink(*about.port);
        about.port->inner_vlan = from->inner_vlan;
        restart_timer(*about.port);
        link(*about.port);
    }
    port_members(*about.port).add(nullptr);
    set_sources(*about.port, DPM_IPMC_EXCLUDE, {sources, count});
    return 0;
}

int dpm_ipmc_new_src(const dpm_prefix *group, const dpm_prefix *sources, std::uint32_t count,
                     const uv_rx_descriptor *from) {
    if (!dpm::is_known_family(group->family))
        return -1;
    report about(*group, *from);
    const source_list reported(sources, count);
    if (about.port == nullptr) {
        about.port = make_port(about, DPM_IPMC_INCLUDE, DPM_CALL_SITE);
        if (about.port == nullptr)
            return -1;
        return set_sources(*about.port, DPM_IPMC_INCLUDE, reported), 0;
    }
    if (about.port->mode == DPM_IPMC_INCLUDE)
        list_sources(*about.port, reported);
    else if (about.port->mode == DPM_IPMC_EXCLUDE)
        unlist_sources(*about.port, reported);
    restart_timer(*about.port);
    return 0;
}

int dpm_ipmc_block_src(const dpm_prefix *group, const dpm_prefix *sources, std::uint32_t count,
                       const uv_rx_descriptor *from) {
    if (!dpm::is_known_family(group->family))
        return -1;
    const report about(*group, *from);
    if (about.port == nullptr)
        return -1;
    const source_list reported(sources, count);
    if (about.port->mode == DPM_IPMC_EXCLUDE) {
        list_sources(*about.port, reported);
        restart_timer(*about.port);
    } else if (about.port->mode == DPM_IPMC_INCLUDE) {
        unlist_sources(*about.port, reported);
        if (about.port->src_cnt == 0)
            free_port(*about.port);
    }
    return 0;
}

int dpm_ipmc_rx_phyport_timeout(std::uintptr_t argument, std::uintptr_t, std::uintptr_t) {
    auto *const port = reinterpret_cast<dpm_ipmc_rx_port *>(argument);
    if (port->group == nullptr)
        return 0;
    if (!dpm::is_known_family(port->group->group.family))
        return -1;
    if (dpm_bridge_self_is_slave()) // a filter from its time as master; its members are another's
        free_port(*port);
    else
        remove_port(*port);
    return 0;
}

namespace dpm {

// Calls `visit(port)` for every port of a group; the body may end it, and the group with it.
template <class Visit> void each_port(Visit visit) {
    for (const std::uint32_t family : ipmc_families)
        for (dpm_ipmc_rx_group &group : ipmc_rx_groups(family).erasable()) {
            const ipmc_rx_ports ports(group.ports);
            for (dpm_ipmc_rx_port *at = ports.first(), *next; at != nullptr; at = next) {
                next = ports.next(*at);
                visit(*at);
            }
        }
}

void ipmc_filters_end_on(std::uint32_t vlan) {
    each_port([=](dpm_ipmc_rx_port &port) {
        if (port.group->vlan == vlan)
            remove_port(port);
    });
}

void ipmc_filters_forget() {
    each_port(free_port);
}

} // namespace dpm
