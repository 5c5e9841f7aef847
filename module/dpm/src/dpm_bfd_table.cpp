// The table of BFD sessions by local discriminator, their index by next hop, and the indexes of the
// chip's end points.
#include "dpm_bfd_record.h"

#include "dpm_state.h"

#include <cstring>

namespace {

struct mep_pool {
    std::uint8_t is_used[DPM_BFD_MEPS];
};
DPM_STATE mep_pool g_dpm_bfd_meps[2]; // by dpm_bfd_end

// The place of an index that is not below the first.
// deliberate: one past the last is not refused as an index below the first is, but it has no place
std::uint8_t *place_of(dpm_bfd_end end, std::uint32_t index) {
    const std::uint32_t position = index - DPM_BFD_FIRST_MEP;
    return position < DPM_BFD_MEPS ? &g_dpm_bfd_meps[end].is_used[position] : nullptr;
}

int address_order(const dpm_prefix &a, const dpm_prefix &b) {
    if (a.family != b.family)
        return dpm::three_way(a.family, b.family);
    return dpm::bytes_order(a.address, b.address, dpm::address_bytes(a.family));
}

// What a session holds beside its places in the table.
void let_go(dpm_bfd_sess &session) {
    dpm::bfd_debounce_stop(session);
    (void)dpm_bfd_free_mepindex(DPM_BFD_LOCAL, session.local_mep);
    (void)dpm_bfd_free_mepindex(DPM_BFD_REMOTE, session.remote_mep);
}

} // namespace

namespace dpm {

bfd_table bfd_sessions() {
    return bfd_table(g_dpm_global.bfd_tree);
}

bfd_next_hop_index bfd_by_next_hop() {
    return bfd_next_hop_index(g_dpm_index.bfd_by_next_hop);
}

void bfd_tables_create() {
    bfd_sessions().create();
    bfd_by_next_hop().create();
    for (mep_pool &pool : g_dpm_bfd_meps)
        pool = {};
}

// By next hop, and those of one next hop by VRF; of one VRF in the order of the table.
int bfd_next_hop_order(const bfd_record &a, const bfd_record &b) {
    if (const int order = address_order(a.entry.told.next_hop, b.entry.told.next_hop))
        return order;
    if (a.vrf != b.vrf)
        return three_way(a.vrf, b.vrf);
    return dpm_avl_bfd_sess_compile(a.entry, b.entry);
}

bool is_over(const bfd_record &record, const dpm_prefix &next_hop) {
    return address_order(record.entry.told.next_hop, next_hop) == 0;
}

bool bfd_take_host(dpm_bfd_sess &session, const dpm_host_entry &host) {
    egress out;
    if (!egress_of(host, out))
        return false;
    session.port_type = out.port_type;
    session.port_id = out.port_id;
    session.out_port = host.phy_port_id;
    session.vlan = static_cast<std::uint16_t>(host.svlan);
    std::memcpy(session.mac, host.mac, sizeof session.mac);
    return true;
}

void bfd_forget_next_hop(dpm_bfd_sess &session) {
    session.arp_state = DPM_BFD_UNRESOLVED;
    session.port_type = 0;
    session.port_id = 0;
    session.out_port = 0;
    session.vlan = 0;
    std::memset(session.mac, 0, sizeof session.mac);
}

dpm_bfd_sess *bfd_replace(dpm_bfd_sess &session, const dpm_bfd_sess &image) {
    let_go(session);
    bfd_by_next_hop().remove(record_of(session));
    const dpm_avl_node node = session.node;
    session = image;
    session.node = node;
    (void)dpm_timer_node_init(&session.timer);
    (void)bfd_by_next_hop().add(record_of(session));
    return &session;
}

// The chip may hear of it sooner, or need not.
void bfd_debounce_stop(dpm_bfd_sess &session) {
    session.debounce = 0;
    if (session.timer.expiry_sec != 0)
        (void)dpm_timer_stop(g_dpm_global.timer_list, &session.timer);
}

void bfd_move_to_vrf(dpm_bfd_sess &session, std::uint32_t vrf) {
    bfd_record &record = record_of(session);
    if (record.vrf == vrf)
        return;
    bfd_by_next_hop().remove(record);
    record.vrf = vrf;
    (void)bfd_by_next_hop().add(record);
}

void bfd_stand_on(dpm_bfd_sess &session, const dpm_if_entry &interface) {
    session.told.ifindex = interface.if_index;
    std::memcpy(record_of(session).ifname, interface.ifname, sizeof interface.ifname);
    bfd_move_to_vrf(session, interface.vrf);
}

const dpm_if_entry *bfd_interface_of(const dpm_bfd_sess &session) {
    if (is_resolved(session))
        if (const dpm_if_entry *interface = dpm_if_get_by_vlan(session.vlan))
            return interface;
    return dpm_if_find_by_network(&session.told.next_hop);
}

} // namespace dpm

std::int32_t dpm_bfd_alloc_mepindex(dpm_bfd_end end) {
    std::uint8_t *const first = g_dpm_bfd_meps[end].is_used;
    auto *const free = static_cast<std::uint8_t *>(std::memchr(first, 0, DPM_BFD_MEPS));
    if (free == nullptr)
        return -1;
    *free = 1;
    return static_cast<std::int32_t>(free - first) + static_cast<std::int32_t>(DPM_BFD_FIRST_MEP);
}

int dpm_bfd_reset_mepindex(dpm_bfd_end end, std::uint32_t index) {
    std::uint8_t *const place = place_of(end, index);
    if (place == nullptr)
        return -1;
    *place = 1;
    return 0;
}

int dpm_bfd_free_mepindex(dpm_bfd_end end, std::uint32_t index) {
    std::uint8_t *const place = place_of(end, index);
    if (place == nullptr || *place == 0)
        return -1;
    *place = 0;
    return 0;
}

int dpm_avl_bfd_sess_compile(const dpm_bfd_sess &a, const dpm_bfd_sess &b) {
    return dpm::three_way(a.told.local_disc, b.told.local_disc);
}

dpm_bfd_sess *dpm_avl_bfd_sess_add(const dpm_bfd_sess *image) {
    if (dpm_avl_bfd_sess_lookup(image->told.local_disc) != nullptr)
        return nullptr;
    dpm::block<bfd_record> record;
    if (!record)
        return nullptr;
    record->entry = *image;
    record->entry.node = {};
    (void)dpm_timer_node_init(&record->entry.timer);
    (void)dpm::bfd_sessions().add(record->entry);
    (void)dpm::bfd_by_next_hop().add(*record);
    return &record.release()->entry;
}

void dpm_avl_bfd_sess_del(dpm_bfd_sess *session) {
    let_go(*session);
    dpm::bfd_sessions().remove(*session);
    dpm::bfd_by_next_hop().remove(record_of(*session));
    dpm::free_zeroed(&record_of(*session));
}

dpm_bfd_sess *dpm_avl_bfd_sess_lookup(std::uint32_t local_disc) {
    dpm_bfd_sess key; // only what the compare reads is set
    key.told.local_disc = local_disc;
    return dpm::bfd_sessions().find(key);
}

int dpm_bfd_get_mac_by_ip(std::uint32_t ifindex, const dpm_prefix *ip, dpm_bfd_sess *session) {
    const dpm_prefix address = dpm::host_prefix(ip->family, ip->address);
    const dpm_host_entry *const host =
        dpm_host_find_by_ip(record_of(*session).vrf, &address, ifindex);
    return host != nullptr && dpm::bfd_take_host(*session, *host) ? 0 : -1;
}
