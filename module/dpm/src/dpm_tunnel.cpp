// GRE tunnels as the routing suite sets them.
//
// A tunnel is made with its name and set piece by piece, in any order.  It comes up when it has
// source and destination and a route leads there (dpm_tunnel_follow), and goes down in front of every
// change that its chip objects cannot follow (dpm_tunnel_program).  What its own address is in the
// chip does not depend on that.  A request that changed a tunnel mirrors it; one that is refused
// changes nothing.
#include "dpm_tunnel_record.h"

#include "dpm_address.h"
#include "dpm_bridge.h"
#include "dpm_driver.h"
#include "dpm_if.h"
#include "dpm_route.h"
#include "dpm_trace.h"

#include <utility>

namespace {

// Carries out a request by `change(tunnel, body, caller)`, which answers it.  0 on a standby card, -1
// without a body or a tunnel of that id; told in the log, as all else, under the caller's name.
template <class Body>
int change_tunnel(const Body *body, const dpm::call_site &caller,
                  int (*change)(dpm_tunnel_entry &, const Body &, const dpm::call_site &)) {
    int result;
    if (!dpm::may_change(body, result, caller))
        return result;
    if (dpm_tunnel_entry *tunnel = dpm_tunnel_find_by_tunnelid(body->tunnel_id))
        return change(*tunnel, *body, caller);
    DPM_LOG_FROM(caller, "%s %d:tunnel %d is not exist!\r\n", body->tunnel_id);
    return -1;
}

// --- the tunnel's own address: what is sent to it goes to the CPU ---

bool has_address(const dpm_tunnel_entry &tunnel) {
    return tunnel.ip.family != DPM_FAMILY_NONE;
}

int add_address(std::uint32_t vrf, const dpm_prefix &ip) {
    return dpm_driver_route_add(vrf, ip.family, ip.address, ip.prefix_len, DPM_ROUTE_NO_ADDRESS,
                                DPM_SLOT_ALL_BITS);
}

int delete_address(std::uint32_t vrf, const dpm_prefix &ip) {
    return dpm_driver_route_del(vrf, ip.family, ip.address, ip.prefix_len, DPM_ROUTE_NO_ADDRESS,
                                DPM_SLOT_ALL_BITS);
}

bool is_same(const dpm_prefix &a, const dpm_prefix &b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The address as it is kept: nothing stands behind an IPv4 one.
dpm_prefix trimmed(const dpm_prefix &ip) {
    dpm_prefix kept = dpm::host_prefix(ip.family, ip.address);
    kept.prefix_len = ip.prefix_len;
    return kept;
}

// The chip has one entry for an address of a VRF.
bool is_anothers(std::uint32_t vrf, const dpm_prefix &ip, const dpm_tunnel_entry &own,
                 const dpm::call_site &caller) {
    for (const dpm_tunnel_entry &tunnel : dpm::tunnels()) {
        if (&tunnel == &own || tunnel.ip_vrfid != vrf || !is_same(tunnel.ip, ip))
            continue;
        DPM_LOG_FROM(caller, "%s %d::exist tunnel_ip !\r\n");
        return true;
    }
    return false;
}

// Moves the address to another VRF, or leaves it: -1.
int move_address(const dpm_tunnel_entry &tunnel, std::uint32_t vrf, const dpm::call_site &caller) {
    if (!has_address(tunnel))
        return 0;
    if (is_anothers(vrf, tunnel.ip, tunnel, caller))
        return -1;
    if (add_address(vrf, tunnel.ip) != 0) {
        DPM_PLAIN("%s::driver add ip failed!\r\n", caller.function);
        return -1;
    }
    if (delete_address(tunnel.ip_vrfid, tunnel.ip) == 0)
        return 0;
    DPM_LOG_FROM(caller, "%s %d::driver del ip failed!\r\n");
    (void)delete_address(vrf, tunnel.ip);
    return -1;
}

// --- source and destination ---

bool is_tunnel_vrf(const dpm_tunnel_entry &tunnel, std::uint32_t vrf,
                   const dpm::call_site &caller) {
    if (tunnel.tunnel_vrf == vrf)
        return true;
    DPM_LOG_FROM(
        caller,
        "%s %d::tunnel_vrf not match! tunnel_entry->tunnel_vrf %d tunnel_index->tunnel_vrf %d\r\n",
        tunnel.tunnel_vrf, vrf);
    return false;
}

// One of the two ends.  What holds for either is done once, with these as the difference.
struct end_kind {
    dpm_prefix dpm_tunnel_entry::*end;
    int (*leave)(dpm_tunnel_entry *tunnel);
    int (*join)(dpm_tunnel_entry *tunnel);
    const char *add_text, *same_text, *update_text, *other_text;
};

constexpr end_kind source = {
    .end = &dpm_tunnel_entry::source,
    .leave = dpm_tunnel_driver_del,
    .join = dpm_tunnel_driver_add,
    .add_text = "%s %d:: add tunnel_id %d tunnel_vrf %d source %x\r\n",
    .same_text = "%s %d:: source is same!\r\n",
    .update_text = "%s %d:: update tunnel_id %d tunnel_vrf %d old_source %x new_source %x\r\n",
    .other_text = "%s %d::source is not %x!\r\n",
};
constexpr end_kind destination = {
    .end = &dpm_tunnel_entry::destination,
    .leave = dpm_tunnel_destination_nexthop_del,
    .join = dpm_tunnel_destination_nexthop_add,
    .add_text = "%s %d:: add tunnel_id %d tunnel_vrf %d destination %x\r\n",
    .same_text = "%s %d::destination is same!\r\n",
    .update_text =
        "%s %d:: update tunnel_id %d tunnel_vrf %d old_destination %x new_destination %x\r\n",
    .other_text = "%s %d::destination is not %x!\r\n",
};

template <const end_kind &kind>
int end_add(dpm_tunnel_entry &tunnel, const dpm_tunnel_ip_msg &body, const dpm::call_site &caller) {
    if (!is_tunnel_vrf(tunnel, body.vrf, caller))
        return -1;
    const dpm_prefix wanted = dpm::host_prefix(DPM_FAMILY_IPV4, body.ip.address);
    dpm_prefix &end = tunnel.*kind.end;
    if (is_same(end, wanted)) {
        DPM_LOG_FROM(caller, kind.same_text);
        return 0;
    }
    if (end.family == DPM_FAMILY_NONE)
        DPM_LOG_FROM(caller, kind.add_text, tunnel.tunnel_id, tunnel.tunnel_vrf,
                     dpm::address_word(wanted.address));
    else
        DPM_LOG_FROM(caller, kind.update_text, tunnel.tunnel_id, tunnel.tunnel_vrf,
                     dpm::address_word(end.address), dpm::address_word(wanted.address));
    const dpm::tunnel_work work(tunnel);
    (void)kind.leave(&tunnel);
    dpm::set_ends(tunnel, [&] { end = wanted; });
    (void)kind.join(&tunnel);
    return 0;
}

template <const end_kind &kind>
int end_del(dpm_tunnel_entry &tunnel, const dpm_tunnel_ip_msg &body, const dpm::call_site &caller) {
    if (!is_tunnel_vrf(tunnel, body.vrf, caller))
        return -1;
    dpm_prefix &end = tunnel.*kind.end;
    if (!is_same(end, dpm::host_prefix(DPM_FAMILY_IPV4, body.ip.address))) {
        DPM_LOG_FROM(caller, kind.other_text, dpm::address_word(body.ip.address));
        return -1;
    }
    const dpm::tunnel_work work(tunnel);
    (void)kind.leave(&tunnel);
    dpm::set_ends(tunnel, [&] { end = {}; });
    return 0;
}

// --- what requests change ---

// The tunnel goes down and forgets where it led.
template <class Set> int reset(dpm_tunnel_entry &tunnel, Set set) {
    const dpm::tunnel_work work(tunnel);
    (void)dpm_tunnel_destination_nexthop_del(&tunnel);
    dpm::set_ends(tunnel, [&] {
        tunnel.source = tunnel.destination = {};
        set();
    });
    return 0;
}

int delete_tunnel(dpm_tunnel_entry &tunnel, const dpm_tunnel_msg &, const dpm::call_site &caller) {
    DPM_LOG_FROM(caller, "%s %d::tunnelid %d name %s\r\n", tunnel.tunnel_id, tunnel.name);
    if (has_address(tunnel) && delete_address(tunnel.ip_vrfid, tunnel.ip) != 0) {
        DPM_LOG_FROM(caller, "%s %d::driver del ip failed!\r\n");
        return -1;
    }
    const bool was_up = dpm::is_up(tunnel);
    const dpm::tunnel_ends ends = dpm::ends_of(tunnel);
    (void)dpm_tunnel_destination_nexthop_del(&tunnel);
    (void)dpm_tunnel_entry_del_sync_send(&tunnel);
    dpm::unlink_tunnel(record_of(tunnel));
    dpm::free_zeroed(&record_of(tunnel));
    if (was_up)
        dpm::ends_are_free(ends, nullptr);
    return 0;
}

int set_ip_vrf(dpm_tunnel_entry &tunnel, const dpm_tunnel_value_msg &body,
               const dpm::call_site &caller) {
    const std::uint32_t old_vrf = tunnel.ip_vrfid;
    if (old_vrf == body.value)
        return 0;
    if (move_address(tunnel, body.value, caller) != 0)
        return -1;
    const dpm::tunnel_work work(tunnel);
    const bool was_up = dpm::is_up(tunnel);
    if (was_up)
        (void)dpm_route_tunnel_notify(&tunnel, DPM_OPER_DEL);
    dpm::set_ends(tunnel, [&] { tunnel.ip_vrfid = body.value; });
    (void)dpm_tunnel_driver_update_ipvrf(old_vrf, &tunnel);
    if (dpm::is_up(tunnel))
        (void)dpm_route_tunnel_notify(&tunnel, DPM_OPER_ADD);
    else if (!was_up)
        (void)dpm_tunnel_driver_add(&tunnel); // one that waited for its ends may have them here
    return 0;
}

int add_ip(dpm_tunnel_entry &tunnel, const dpm_tunnel_ip_msg &body, const dpm::call_site &caller) {
    if (!dpm::is_known_family(body.ip.family)) {
        DPM_LOG_FROM(caller, "%s %d::iptype %d is err!\r\n", body.ip.family);
        return -1;
    }
    if (body.ip.prefix_len > dpm::host_bits(body.ip.family)) {
        DPM_LOG_FROM(caller, "%s %d::masklen = %d is err!\r\n", body.ip.prefix_len);
        return -1;
    }
    if (body.vrf != tunnel.ip_vrfid) {
        DPM_LOG_FROM(caller, "%s %d::ip_vrfid not match! tunnel ip_vrfid %d ip_vrfid %d\r\n",
                     tunnel.ip_vrfid, body.vrf);
        return -1;
    }
    if (has_address(tunnel)) {
        DPM_LOG_FROM(caller, "%s %d::exist tunnel_ip !\r\n");
        return -1;
    }
    const dpm_prefix ip = trimmed(body.ip);
    if (is_anothers(body.vrf, ip, tunnel, caller))
        return -1;
    if (add_address(body.vrf, ip) != 0) {
        DPM_PLAIN("%s::driver add ip failed!\r\n", caller.function);
        return -1;
    }
    const dpm::tunnel_work work(tunnel);
    tunnel.ip = ip;
    return 0;
}

int del_ip(dpm_tunnel_entry &tunnel, const dpm_tunnel_ip_msg &body, const dpm::call_site &caller) {
    if (!has_address(tunnel) || body.vrf != tunnel.ip_vrfid || body.ip.family != tunnel.ip.family ||
        !is_same(trimmed(body.ip), tunnel.ip)) {
        DPM_LOG_FROM(caller, "%s %d::tunnel_ip not match!\r\n");
        return -1;
    }
    if (delete_address(tunnel.ip_vrfid, tunnel.ip) != 0) {
        DPM_LOG_FROM(caller, "%s %d::driver del ip failed!\r\n");
        return -1;
    }
    const dpm::tunnel_work work(tunnel);
    tunnel.ip = {};
    return 0;
}

// deliberate: another mode, and the same again, ends what the old one was set to
int set_mode(dpm_tunnel_entry &tunnel, const dpm_tunnel_value_msg &body, const dpm::call_site &) {
    return reset(tunnel, [&] {
        tunnel.tunnel_vrf = tunnel.checksum = tunnel.key_enable = tunnel.key = 0;
        tunnel.mode = body.value;
    });
}

int set_tunnel_vrf(dpm_tunnel_entry &tunnel, const dpm_tunnel_value_msg &body,
                   const dpm::call_site &) {
    return reset(tunnel, [&] { tunnel.tunnel_vrf = body.value; });
}

int set_checksum(dpm_tunnel_entry &tunnel, const dpm_tunnel_value_msg &body,
                 const dpm::call_site &) {
    if (tunnel.checksum == body.value)
        return 0;
    const dpm::tunnel_work work(tunnel);
    const std::uint32_t old = std::exchange(tunnel.checksum, body.value);
    (void)dpm_tunnel_driver_update(tunnel.key_enable, tunnel.key, old, &tunnel);
    return 0;
}

int set_key(dpm_tunnel_entry &tunnel, const dpm_tunnel_key_msg &body, const dpm::call_site &) {
    const std::uint32_t old_enable = tunnel.key_enable, old_key = tunnel.key;
    if (old_enable == body.key_enable && old_key == body.key)
        return 0;
    const dpm::tunnel_work work(tunnel);
    dpm::set_ends(tunnel, [&] {
        tunnel.key_enable = body.key_enable;
        tunnel.key = body.key;
    });
    if (dpm::is_up(tunnel))
        (void)dpm_tunnel_driver_update(old_enable, old_key, tunnel.checksum, &tunnel);
    else
        (void)dpm_tunnel_driver_add(&tunnel); // one that waited for its ends may have them now
    return 0;
}

} // namespace

int dpm_tunnel_create_msg(const dpm_tunnel_msg *body) {
    int result;
    if (!dpm::may_change(body, result, DPM_CALL_SITE))
        return result;
    const dpm::bounded_name name(body->name);
    if (dpm_tunnel_find_by_tunnelid(body->tunnel_id) != nullptr) {
        DPM_TRACE("%s %d::exist tunnelid %d name %s\r\n", body->tunnel_id, name.c_str());
        return 0;
    }
    DPM_TRACE("%s %d::tunnelid %d name %s\r\n", body->tunnel_id, name.c_str());
    dpm::block<tunnel_record> record;
    if (!record)
        return -1;
    dpm_tunnel_entry &tunnel = record->entry;
    tunnel.tunnel_id = body->tunnel_id;
    std::memcpy(tunnel.name, name.c_str(), sizeof tunnel.name);
    dpm::link_tunnel(*record.release());
    (void)dpm_tunnel_entry_add_sync_send(&tunnel);
    return 0;
}

// A request about a tunnel that is there: the owner of its message, what it gets, and what it does.
#define DPM_TUNNEL_REQUEST(owner, body, change)                                                    \
    int owner(const body *request) {                                                               \
        return change_tunnel(request, DPM_CALL_SITE, change);                                      \
    }
// clang-format off
DPM_TUNNEL_REQUEST(dpm_tunnel_delete_msg,           dpm_tunnel_msg,       delete_tunnel)
DPM_TUNNEL_REQUEST(dpm_tunnel_ipvrf_update_msg,     dpm_tunnel_value_msg, set_ip_vrf)
DPM_TUNNEL_REQUEST(dpm_tunnel_ip_add_msg,           dpm_tunnel_ip_msg,    add_ip)
DPM_TUNNEL_REQUEST(dpm_tunnel_ip_del_msg,           dpm_tunnel_ip_msg,    del_ip)
DPM_TUNNEL_REQUEST(dpm_tunnel_mode_update_msg,      dpm_tunnel_value_msg, set_mode)
DPM_TUNNEL_REQUEST(dpm_tunnel_tunnelvrf_update_msg, dpm_tunnel_value_msg, set_tunnel_vrf)
DPM_TUNNEL_REQUEST(dpm_tunnel_source_add_msg,       dpm_tunnel_ip_msg,    end_add<source>)
DPM_TUNNEL_REQUEST(dpm_tunnel_source_del_msg,       dpm_tunnel_ip_msg,    end_del<source>)
DPM_TUNNEL_REQUEST(dpm_tunnel_destination_add_msg,  dpm_tunnel_ip_msg,    end_add<destination>)
DPM_TUNNEL_REQUEST(dpm_tunnel_destination_del_msg,  dpm_tunnel_ip_msg,    end_del<destination>)
DPM_TUNNEL_REQUEST(dpm_tunnel_checksum_update_msg,  dpm_tunnel_value_msg, set_checksum)
DPM_TUNNEL_REQUEST(dpm_tunnel_key_update_msg,       dpm_tunnel_key_msg,   set_key)
// clang-format on
#undef DPM_TUNNEL_REQUEST
