// BFD sessions that the chip runs for the routing suite.
//
// A session waits until its next hop is a host.  Then its two end points are installed in the chip,
// each under an index of its own, and from then on changed in place (dpm_bfd_update.cpp).  When the
// host goes they leave the chip and give their indexes back; the session waits again, until the
// suite deletes it.  One that the chip refuses keeps its indexes and is tried again when its host
// comes the next time.  Continuity is checked as soon as the peer's discriminator is known.
//
// The standby card holds every session as the master left it, and touches no chip.  One that
// becomes master takes each through its next hop again.
#include "dpm_bfd_record.h"

#include "dpm_bridge.h"
#include "platform/hw.h"
#include "platform/nsm.h"

#include <cstring>

namespace {

constexpr std::uint32_t unit = 0;

// Indexes for both ends; what is taken goes back when one cannot be had.
bool take_indexes(dpm_bfd_sess &session) {
    std::int32_t local = static_cast<std::int32_t>(session.local_mep);
    if (local != 0)
        (void)dpm_bfd_reset_mepindex(DPM_BFD_LOCAL, session.local_mep);
    else if ((local = dpm_bfd_alloc_mepindex(DPM_BFD_LOCAL)) < 0)
        return false;
    std::int32_t remote = static_cast<std::int32_t>(session.remote_mep);
    if (remote != 0)
        (void)dpm_bfd_reset_mepindex(DPM_BFD_REMOTE, session.remote_mep);
    else if ((remote = dpm_bfd_alloc_mepindex(DPM_BFD_REMOTE)) < 0) {
        if (session.local_mep == 0)
            (void)dpm_bfd_free_mepindex(DPM_BFD_LOCAL, static_cast<std::uint32_t>(local));
        return false;
    }
    session.local_mep = static_cast<std::uint32_t>(local);
    session.remote_mep = static_cast<std::uint32_t>(remote);
    return true;
}

void check_continuity(dpm_bfd_sess &session) {
    if (session.told.remote_disc == 0 || session.cc_state != 0 || dpm::is_held(session) ||
        !dpm_bridge_self_is_master())
        return;
    if (dpm_bfd_cc_update(&session, 1) != 0)
        dpm::bfd_debounce_start(session);
}

// Installs a session that has its indexes, if its next hop is there; -1: the chip refused.
int install(dpm_bfd_sess &session) {
    if (!dpm::is_resolved(session) &&
        dpm_bfd_get_mac_by_ip(session.told.ifindex, &session.told.next_hop, &session) == 0)
        session.arp_state = DPM_BFD_RESOLVED;
    if (!dpm::is_resolved(session) || dpm::is_installed(session))
        return 0;
    if (dpm::bfd_chip_add(session) != 0) {
        DPM_TRACE("%s %d::bfd session %u: the chip refused it!\r\n", session.told.local_disc);
        dpm::bfd_forget_next_hop(session);
        return -1;
    }
    session.hw_state = DPM_BFD_INSTALLED;
    check_continuity(session);
    (void)dpm_bfd_entry_add_sync_send(&session);
    return 0;
}

// 0 also when the session waits.
int dpm_bfd_sess_new(dpm_bfd_sess &session) {
    if (!dpm::bfd_is_known_type(session.told)) {
        DPM_TRACE("%s %d::bfd session %u: type %d, sub type %d is err!\r\n",
                  session.told.local_disc, session.told.type, session.told.sub_type);
        return -1;
    }
    if (!take_indexes(session)) {
        DPM_TRACE("%s %d::bfd session %u: no mep index is left!\r\n", session.told.local_disc);
        return -1;
    }
    return install(session);
}

void give_index_back(dpm_bfd_end end, std::uint32_t &index) {
    (void)dpm_bfd_free_mepindex(end, index);
    index = 0;
}

// Takes a session out of the chip; the record stays.  What the chip refuses to let go is no more
// the session's.  The standby is told that it goes; where it waits from then on that says so, since
// this card may die before it tells more.
void dpm_bfd_sess_delete(dpm_bfd_sess &session, bool waits) {
    if (dpm::is_installed(session))
        dpm::bfd_chip_del(session);
    dpm::bfd_debounce_stop(session);
    dpm::bfd_forget_next_hop(session);
    session.hw_state = DPM_BFD_NOT_INSTALLED;
    session.cc_state = 0;
    give_index_back(DPM_BFD_LOCAL, session.local_mep);
    give_index_back(DPM_BFD_REMOTE, session.remote_mep);
    dpm_bfd_sess image = session;
    image.timer = {};
    image.timer.arg1 = waits ? DPM_BFD_WAITS : 0;
    (void)dpm_bfd_entry_del_sync_send(&image);
}

// Its next hop has gone: it waits, in the VRF of its interface, on the standby too.
void withdraw(dpm_bfd_sess &session) {
    dpm_bfd_sess_delete(session, true);
    if (const dpm_if_entry *interface = dpm_if_find_by_ifname(record_of(session).ifname))
        dpm::bfd_move_to_vrf(session, interface->vrf);
    (void)dpm_bfd_entry_add_sync_send(&session);
}

// Its next hop may have come.
void try_again(dpm_bfd_sess &session) {
    const dpm::bfd_watch watch(session);
    (void)dpm_bfd_sess_new(session);
    if (!dpm::is_installed(session)) // an installed one has been mirrored
        watch.mirror_change();
}

dpm_bfd_sess image_of(const dpm_bfd_request &request) {
    dpm_bfd_sess image = {};
    image.told = request.told;
    std::memcpy(image.bytes, request.bytes, sizeof image.bytes);
    image.byte_option = request.byte_option;
    image.cc_hold = request.cc_hold;
    image.arp_state = DPM_BFD_UNRESOLVED;
    image.hw_state = DPM_BFD_NOT_INSTALLED;
    return image;
}

// As the suite numbers interfaces on this card.  One that is not there yet is no VRF's but the
// default one's.
void stand_as_asked(dpm_bfd_sess &session, std::uint32_t ifindex) {
    session.told.ifindex = ifindex;
    if (const dpm_if_entry *interface = dpm_if_find_by_ifindex(ifindex))
        dpm::bfd_stand_on(session, *interface);
}

int add_session(const dpm_bfd_sess &image) {
    dpm_bfd_sess *const session = dpm_avl_bfd_sess_add(&image);
    if (session == nullptr)
        return -1;
    stand_as_asked(*session, image.told.ifindex);
    const int result = dpm_bfd_sess_new(*session);
    if (session->remote_mep == 0) { // it is none
        dpm_avl_bfd_sess_del(session);
        return -1;
    }
    if (!dpm::is_installed(*session))
        (void)dpm_bfd_entry_add_sync_send(session);
    return result;
}

// A master that was standby may know the interface of one that waits less well than the suite.
int change_session(dpm_bfd_sess &session, const dpm_bfd_sess &asked) {
    if (!dpm::is_resolved(session) && session.told.ifindex != asked.told.ifindex) {
        stand_as_asked(session, asked.told.ifindex);
        (void)dpm_bfd_sess_new(session);
    }
    const bool ends = (asked.told.flags & DPM_BFD_FLAG_ADMIN_DOWN) != 0;
    int result = 0;
    if (ends && session.told.state != DPM_BFD_ADMIN_DOWN) {
        (void)dpm_bfd_remoteid_update(&session, 0);
        result = dpm_bfd_state_update(&session, DPM_BFD_ADMIN_DOWN);
    } else if (!ends && session.told.state == DPM_BFD_ADMIN_DOWN) {
        result = dpm_bfd_state_update(&session, asked.told.state);
    }
    if ((asked.told.flags & DPM_BFD_FLAG_PARAMETERS) != 0 &&
        dpm_bfd_sess_update(&session, &asked) != 0)
        result = -1;
    (void)dpm_bfd_entry_add_sync_send(&session);
    return result;
}

// deliberate: an IPv4 next hop may be on any interface of the VRF
void follow(dpm_bfd_sess &session, const dpm_host_entry &host, std::uint32_t event) {
    if (host.ip.family != DPM_FAMILY_IPV4 && session.told.ifindex != host.ifindex)
        return;
    if (event == DPM_HOST_ADDED && !dpm::is_resolved(session))
        try_again(session);
    else if (event == DPM_HOST_DELETED && dpm::is_resolved(session))
        withdraw(session);
}

bool is_on(const dpm_bfd_sess &session, const char *ifname) {
    return std::strcmp(record_of(session).ifname, ifname) == 0;
}
bool has_no_interface(const dpm_bfd_sess &session) {
    return record_of(session).ifname[0] == '\0';
}

// Hosts on the interface have gone; those on others of the VRF that it leaves are there.
void leave(const dpm_if_entry &entry, std::uint32_t vrf) {
    if (vrf == DPM_VRF_NONE)
        return;
    for (dpm_bfd_sess &session : dpm::bfd_sessions())
        if (is_on(session, entry.ifname) && dpm::is_resolved(session))
            withdraw(session);
}

void arrive_at(dpm_bfd_sess &session, const dpm_if_entry &interface) {
    const bool is_master = dpm_bridge_self_is_master();
    if (is_master && dpm::is_resolved(session) && record_of(session).vrf != interface.vrf)
        withdraw(session);
    dpm::bfd_stand_on(session, interface);
    if (is_master && !dpm::is_resolved(session))
        try_again(session);
}

void arrive(const dpm_if_entry &entry) {
    for (dpm_bfd_sess &session : dpm::bfd_sessions())
        if (is_on(session, entry.ifname))
            arrive_at(session, entry);
}

// One that nobody could tell the interface of, when it came.
void look_for_interface(dpm_bfd_sess &session) {
    if (!has_no_interface(session) || session.told.ifindex != DPM_IFINDEX_NONE)
        return;
    if (const dpm_if_entry *interface = dpm::bfd_interface_of(session))
        arrive_at(session, *interface);
}

// One that was asked for before its interface has no name for it.
void renumber(const char *ifname, std::uint32_t ifindex) {
    const dpm_if_entry *const interface = dpm_if_find_by_ifname(ifname);
    for (dpm_bfd_sess &session : dpm::bfd_sessions()) {
        const bool is_its = is_on(session, ifname);
        const bool has_waited = has_no_interface(session) && session.told.ifindex == ifindex;
        if (interface == nullptr && is_its)
            session.told.ifindex = ifindex;
        else if (interface != nullptr && (is_its || has_waited))
            arrive_at(session, *interface);
        else
            look_for_interface(session);
    }
}

void gain() {
    for (dpm_bfd_sess &session : dpm::bfd_sessions())
        look_for_interface(session);
}

// A host tells the VRF and the interface of the sessions over it, which their records do not.
void stand_over(const dpm_host_entry &host) {
    dpm::each_bfd_over(host.ip, nullptr, [&host](dpm_bfd_sess &session) {
        bfd_record &record = record_of(session);
        dpm_bfd_sess over_host = session;
        if (!dpm::is_resolved(session) || !dpm::bfd_take_host(over_host, host) ||
            !dpm::bfd_watch::is_same(over_host, session))
            return;
        record.has_host = true;
        session.told.ifindex = host.ifindex;
        std::memcpy(record.ifname, host.ifname, sizeof record.ifname);
        dpm::bfd_move_to_vrf(session, host.vrf);
    });
}

void stand_over_hosts() {
    for (dpm_bfd_sess &session : dpm::bfd_sessions())
        record_of(session).has_host = false;
    for (const dpm_host_entry &host : dpm::ipv4_hosts())
        stand_over(host);
    for (const dpm_host_entry &host : dpm::ipv6_hosts())
        stand_over(host);
}

// In the peer's packets; 0 when there are none, or the chip does not say.
std::uint32_t heard_by_chip(const dpm_bfd_sess &session) {
    std::uint32_t remote_disc = 0;
    const int result = hw_driver_bfd_get_remote_disc(unit, dpm_bfd_mep_type_get(session.told.type),
                                                     session.told.local_disc, &remote_disc);
    return result == 0 ? remote_disc : 0;
}

// As after a switch-over.  The report that told of the peer may have died with the master.
void take_over(dpm_bfd_sess &session) {
    if (dpm::is_resolved(session) && !record_of(session).has_host)
        withdraw(session);
    if (!dpm::is_resolved(session)) {
        if (const dpm_if_entry *interface = dpm_if_find_by_ifname(record_of(session).ifname))
            dpm::bfd_stand_on(session, *interface);
        try_again(session);
    }
    if (session.debounce != 0)
        return dpm::bfd_debounce_start(session);
    if (dpm::is_installed(session) && session.told.remote_disc == 0)
        (void)dpm_bfd_remoteid_update(&session, heard_by_chip(session));
    check_continuity(session);
}

} // namespace

constexpr dpm::if_follower dpm::bfd_sessions_on_interfaces = {leave, arrive, renumber, gain};

int dpm_bfd_sess_add_msg(const dpm_bfd_request *request) {
    int result;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const dpm_bfd_sess asked = image_of(*request);
    dpm_bfd_sess *const present = dpm_avl_bfd_sess_lookup(asked.told.local_disc);
    return present != nullptr ? change_session(*present, asked) : add_session(asked);
}

int dpm_bfd_sess_del_msg(const dpm_bfd_request *request) {
    int result;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    if (dpm_bfd_sess *session = dpm_avl_bfd_sess_lookup(request->told.local_disc)) {
        dpm_bfd_sess_delete(*session, false);
        dpm_avl_bfd_sess_del(session);
    }
    return 0;
}

// The chip reports a state; it knows the peer's discriminator, too.
int dpm_bfd_sess_notify_msg(const dpm_bfd_notice *notice) {
    int result;
    if (!dpm::may_change(notice, result, DPM_CALL_SITE))
        return result;
    dpm_bfd_sess *const session = dpm_avl_bfd_sess_lookup(notice->local_disc);
    if (session == nullptr)
        return 0;
    const std::uint32_t remote_disc =
        notice->remote_disc != 0 ? notice->remote_disc : heard_by_chip(*session);
    const dpm::bfd_watch watch(*session);
    if (notice->state == DPM_BFD_ADMIN_DOWN || notice->state == DPM_BFD_DOWN)
        (void)dpm_bfd_remoteid_update(session, 0);
    else if (notice->state <= DPM_BFD_UP && remote_disc != 0)
        (void)dpm_bfd_remoteid_update(session, remote_disc);
    watch.mirror_change();
    if (dpm_bridge_self_is_master())
        (void)bfd_dist_notifier(notice->local_disc, notice->state, notice->diag, notice->zero[0],
                                notice->zero[1], notice->zero[2], remote_disc);
    return 0;
}

int dpm_bfd_host_notify(const dpm_host_entry *host, std::uint32_t event) {
    if (host == nullptr)
        return dpm::null_parameter();
    dpm::each_bfd_over(host->ip, &host->vrf,
                       [=](dpm_bfd_sess &session) { follow(session, *host, event); });
    return 0;
}

int dpm_bfd_slave_to_master_pro() {
    stand_over_hosts();
    for (dpm_bfd_sess &session : dpm::bfd_sessions())
        take_over(session);
    return 0;
}
