// A tunnel in the chip: its GRE next hops, the group of them, and the GRE tunnel itself.
//
// There is a GRE next hop for each next hop of the best route, on whose port the chip looks for GRE;
// over a route with several they form a group.  A tunnel is up when it leads somewhere and the chip
// has taken its GRE tunnel.  What the chip refuses leaves the one next hop out; when none is left, or
// the GRE tunnel is refused, all that was taken is given back, and the next event tries again.
#include "dpm_tunnel_record.h"

#include "dpm_address.h"
#include "dpm_driver.h"
#include "dpm_ecmp.h"
#include "dpm_nexthop.h"
#include "dpm_route.h"
#include "dpm_trace.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

constexpr std::uint32_t last_port = 0xFFFF; // the chip takes 16 bits

bool is_in_group(const dpm_tunnel_entry &tunnel) {
    return tunnel.ecmp_enable == DPM_ROUTE_ECMP;
}

std::ptrdiff_t path_count(const dpm_tunnel_entry &tunnel) {
    return DPM_TUNNEL_PATHS - std::count(tunnel.nexthop_index, std::end(tunnel.nexthop_index), 0);
}

tunnel_path path_to(const dpm_nexthop_entry &nexthop) {
    tunnel_path path = {nexthop.port_type, nexthop.port_id, nexthop.svlan, nexthop.cvlan, {}};
    std::memcpy(path.mac, nexthop.mac, sizeof path.mac);
    return path;
}

template <auto Request>
int ask_for_nexthop(const dpm_tunnel_entry &tunnel, const tunnel_path &path, std::uint32_t &id,
                    std::uint32_t slot_bits) {
    return Request(path.port_type, path.port, path.mac, path.svlan, path.cvlan, tunnel.tunnel_vrf,
                   tunnel.source.address, tunnel.destination.address, tunnel.key_enable, tunnel.key,
                   tunnel.checksum, &id, slot_bits);
}

// Updates the GRE next hop at a place; 0, or the driver's answer.
int update_nexthop(const dpm_tunnel_entry &tunnel, std::uint32_t i, std::uint32_t slot_bits) {
    auto id = static_cast<std::uint32_t>(tunnel.nexthop_index[i]);
    return ask_for_nexthop<dpm_driver_update_gre_nexthop>(tunnel, record_of(tunnel).paths[i], id,
                                                          slot_bits);
}

int add_tunnel(const dpm_tunnel_entry &tunnel, std::uint32_t slot_bits) {
    return dpm_driver_add_gre_tunnel(tunnel.ip_vrfid, tunnel.source.address,
                                     tunnel.destination.address, tunnel.key_enable, tunnel.key,
                                     tunnel.checksum, slot_bits);
}

// Takes the GRE next hop at a place: from its group, its port, and the chip.
void drop_path(dpm_tunnel_entry &tunnel, std::uint32_t i, const dpm::call_site &caller) {
    const auto id = static_cast<std::uint32_t>(std::exchange(tunnel.nexthop_index[i], 0));
    const tunnel_path &path = record_of(tunnel).paths[i];
    if (is_in_group(tunnel) && tunnel.sdk_index > 0) {
        dpm::ecmp_group group(DPM_FAMILY_IPV4, tunnel.sdk_index);
        if (group.count(id) != 0)
            (void)group.remove(id);
    }
    if (dpm_tunnel_port_del(path.port_type, path.port, 0) != 0)
        DPM_LOG_FROM(caller, "%s %d::driver disable gre failed!\r\n");
    if (dpm::release_gre_nexthop(id) != 0)
        DPM_LOG_FROM(caller, "%s %d::driver_tunnel_del_nexthop failed!\r\n");
}

// Gives back what leads out of the tunnel: it is down.
void drop_paths(dpm_tunnel_entry &tunnel, const dpm::call_site &caller) {
    for (std::uint32_t i = 0; i < DPM_TUNNEL_PATHS; i++)
        if (tunnel.nexthop_index[i] != 0)
            drop_path(tunnel, i, caller);
    if (is_in_group(tunnel) && tunnel.sdk_index > 0) // members that the chip kept, or never took
        (void)dpm_ecmp_del_all(DPM_FAMILY_IPV4, &tunnel.sdk_index);
    tunnel.sdk_index = 0;
}

// The new GRE next hop becomes what the tunnel leads to, or a member of that.
void join_paths(dpm_tunnel_entry &tunnel, std::uint32_t i, const dpm::call_site &caller) {
    const auto id = static_cast<std::uint32_t>(tunnel.nexthop_index[i]);
    if (!is_in_group(tunnel)) {
        tunnel.sdk_index = tunnel.nexthop_index[i];
        return;
    }
    dpm::ecmp_group group(DPM_FAMILY_IPV4, tunnel.sdk_index);
    (void)group.add(id);
    if (group.count(id) == 0) // refused, or there is no group for it
        drop_path(tunnel, i, caller);
}

void add_path(dpm_tunnel_entry &tunnel, std::uint32_t i, const dpm::call_site &caller) {
    const std::int32_t host_index = tunnel.host_index[i];
    if (host_index <= 0 || (!is_in_group(tunnel) && dpm::is_up(tunnel)))
        return;
    const dpm_nexthop_entry *nexthop =
        dpm_nexthop_find_by_index(static_cast<std::uint32_t>(host_index));
    if (nexthop == nullptr)
        return;
    if (nexthop->port_id > last_port) {
        DPM_LOG_FROM(caller, "%s %d::port %d is err!\r\n", nexthop->port_id);
        return;
    }
    if (dpm_tunnel_port_add(nexthop->port_type, nexthop->port_id, 0) != 0)
        return;
    tunnel_path &path = record_of(tunnel).paths[i];
    path = path_to(*nexthop);
    std::uint32_t id = 0;
    if (ask_for_nexthop<dpm_driver_add_gre_nexthop>(tunnel, path, id, DPM_SLOT_ALL_BITS) != 0) {
        DPM_LOG_FROM(caller, "%s %d::driver_tunnel_add_nexthop failed!\r\n");
        (void)dpm_tunnel_port_del(path.port_type, path.port, 0);
        return;
    }
    tunnel.nexthop_index[i] = static_cast<std::int32_t>(id);
    join_paths(tunnel, i, caller);
}

// Another tunnel that is up has these ends: the chip knows no more of them.
bool must_wait(const dpm_tunnel_entry &tunnel, const dpm::call_site &caller) {
    const dpm::tunnel_ends ends = dpm::ends_of(tunnel);
    for (const dpm_tunnel_entry *other = dpm::first_with(ends); other != nullptr;
         other = dpm::next_with_same(*other)) {
        if (other == &tunnel || !dpm::is_up(*other))
            continue;
        DPM_LOG_FROM(caller, "%s %d::tunnel %d waits for tunnel %d, which has its ends!\r\n",
                     tunnel.tunnel_id, other->tunnel_id);
        return true;
    }
    return false;
}

// The chip's GRE tunnel has other values from now on; false: it has none.
bool renew_tunnel(const dpm_tunnel_entry &old, const dpm_tunnel_entry &tunnel,
                  const dpm::call_site &caller) {
    if (dpm::release_gre_tunnel(old) != 0)
        DPM_LOG_FROM(caller, "%s %d::driver_tunnel_del failed!\r\n");
    if (must_wait(tunnel, caller))
        return false;
    if (dpm::reclaim_gre_tunnel(tunnel) || add_tunnel(tunnel, DPM_SLOT_ALL_BITS) == 0)
        return true;
    DPM_LOG_FROM(caller, "%s %d::driver_tunnel_update failed!\r\n");
    return false;
}

// False: none is left that has the new values.
bool renew_paths(dpm_tunnel_entry &tunnel, const dpm::call_site &caller) {
    for (std::uint32_t i = 0; i < DPM_TUNNEL_PATHS; i++) {
        if (tunnel.nexthop_index[i] == 0 || update_nexthop(tunnel, i, DPM_SLOT_ALL_BITS) == 0)
            continue;
        DPM_LOG_FROM(caller, "%s %d::driver_tunnel_update failed!\r\n");
        if (path_count(tunnel) == 1)
            return false;
        drop_path(tunnel, i, caller);
    }
    return true;
}

// Takes a tunnel down whose GRE tunnel in the chip has these values, or has gone.
void take_down(dpm_tunnel_entry &tunnel, const dpm_tunnel_entry *in_chip,
               const dpm::call_site &caller) {
    (void)dpm_route_tunnel_notify(&tunnel, DPM_OPER_DEL);
    drop_paths(tunnel, caller);
    if (in_chip != nullptr && dpm::release_gre_tunnel(*in_chip) != 0)
        DPM_LOG_FROM(caller, "%s %d::driver_tunnel_del failed!\r\n");
}

// The ports of a tunnel's next hops count them, and its group has them as members.
void recount(dpm_tunnel_entry &tunnel) {
    tunnel_record &record = record_of(tunnel);
    for (std::uint32_t i = 0; i < DPM_TUNNEL_PATHS; i++) {
        if (tunnel.nexthop_index[i] == 0)
            continue;
        const tunnel_path &path = record.paths[i];
        if (path.port_type != 0)
            dpm::tunnel_port_count(path.port_type, path.port);
        else
            record.is_torn = true; // this card was never told of its neighbour
    }
    if (is_in_group(tunnel) &&
        !dpm::ecmp_group(DPM_FAMILY_IPV4, tunnel.sdk_index).recount(tunnel.nexthop_index))
        record.is_torn = true;
}

} // namespace

namespace dpm {

void find_paths(tunnel_record &record, const tunnel_record *former) {
    for (std::uint32_t i = 0; i < DPM_TUNNEL_PATHS; i++) {
        const std::int32_t id = record.entry.nexthop_index[i];
        if (id == 0)
            continue;
        if (const dpm_nexthop_entry *nexthop =
                dpm_nexthop_find_by_index(static_cast<std::uint32_t>(record.entry.host_index[i])))
            record.paths[i] = path_to(*nexthop);
        else if (former != nullptr && former->entry.nexthop_index[i] == id)
            record.paths[i] = former->paths[i];
    }
}

void reprogram_tunnel(const dpm_tunnel_entry &tunnel, std::uint32_t slot_bits) {
    for (std::uint32_t i = 0; i < DPM_TUNNEL_PATHS; i++)
        if (is_up(tunnel) && tunnel.nexthop_index[i] != 0)
            (void)update_nexthop(tunnel, i, slot_bits);
    if (is_up(tunnel))
        (void)add_tunnel(tunnel, slot_bits);
    if (tunnel.ip.family != DPM_FAMILY_NONE)
        (void)dpm_driver_route_add(tunnel.ip_vrfid, tunnel.ip.family, tunnel.ip.address,
                                   tunnel.ip.prefix_len, DPM_ROUTE_NO_ADDRESS, slot_bits);
}

void tunnels_recount() {
    forget_kept_gre(); // another card's chip since
    tunnel_ports_uncount();
    for (dpm_tunnel_entry &tunnel : tunnels()) {
        record_of(tunnel).is_torn = false;
        if (is_up(tunnel))
            recount(tunnel);
    }
    tunnel_ports_drop_uncounted();
}

} // namespace dpm

int dpm_tunnel_driver_add(dpm_tunnel_entry *tunnel) {
    if (tunnel->source.family == DPM_FAMILY_NONE || tunnel->route_flag != 1 ||
        dpm::is_up(*tunnel) || must_wait(*tunnel, DPM_CALL_SITE))
        return 0;
    for (std::uint32_t i = 0; i < DPM_TUNNEL_PATHS; i++)
        add_path(*tunnel, i, DPM_CALL_SITE);
    if (path_count(*tunnel) == 0) {
        drop_paths(*tunnel, DPM_CALL_SITE); // a group that has no member
        return 0;
    }
    if (!dpm::reclaim_gre_tunnel(*tunnel) && add_tunnel(*tunnel, DPM_SLOT_ALL_BITS) != 0) {
        DPM_TRACE("%s %d::driver_tunnel_add failed!\r\n");
        drop_paths(*tunnel, DPM_CALL_SITE);
        return 0;
    }
    (void)dpm_route_tunnel_notify(tunnel, DPM_OPER_ADD);
    return 0;
}

int dpm_tunnel_driver_del(dpm_tunnel_entry *tunnel) {
    if (dpm::is_up(*tunnel))
        take_down(*tunnel, tunnel, DPM_CALL_SITE);
    return 0;
}

int dpm_tunnel_driver_update(std::uint32_t old_key_enable, std::uint32_t old_key,
                             std::uint32_t old_checksum, dpm_tunnel_entry *tunnel) {
    if (!dpm::is_up(*tunnel))
        return 0;
    dpm_tunnel_entry old = *tunnel;
    old.key_enable = old_key_enable;
    old.key = old_key;
    old.checksum = old_checksum;
    if (!renew_paths(*tunnel, DPM_CALL_SITE))
        take_down(*tunnel, &old, DPM_CALL_SITE);
    else if (!renew_tunnel(old, *tunnel, DPM_CALL_SITE))
        take_down(*tunnel, nullptr, DPM_CALL_SITE);
    return 0;
}

// The routes over it have left it before, and are told behind.
int dpm_tunnel_driver_update_ipvrf(std::uint32_t old_vrf, dpm_tunnel_entry *tunnel) {
    if (!dpm::is_up(*tunnel))
        return 0;
    dpm_tunnel_entry old = *tunnel;
    old.ip_vrfid = old_vrf;
    if (!renew_tunnel(old, *tunnel, DPM_CALL_SITE))
        drop_paths(*tunnel, DPM_CALL_SITE);
    return 0;
}
