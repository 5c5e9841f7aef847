// FTN and ILM tables: the label entries, and those of them that wait to be programmed.
//
// An entry is new (0), in the chip (1) or waiting on its pend list (2).  It is created by the adds
// below, or from a mirrored image on the standby card, and freed by the deletes, which unlink it
// from the pend list first.  The tunnel next hop is part of an FTN's key: one prefix over two label
// paths is two entries.  Each entry keeps its places in the indexes beside it (dpm_l3vpn_record.h).
#include "dpm_l3vpn_record.h"

#include "dpm_if.h"
#include "dpm_trace.h"

#include <ctime>

namespace {

using dpm::ftn_kind;
using dpm::ilm_kind;

// An entry that is there already comes to stand as the newest.
template <class Entry> int pend_add(Entry *entry, const dpm::call_site &caller) {
    if (entry == nullptr)
        return -1;
    dpm::unpend(*entry);
    dpm::pend(*entry);
    DPM_LOG_FROM(caller, "%s:%d list_empty=%d\n\r", dpm::kind_of<Entry>::pending().empty());
    return 0;
}

template <class Entry> int pend_del(Entry *entry) {
    if (entry == nullptr || dpm::kind_of<Entry>::pending().empty())
        return -1;
    dpm::unpend(*entry);
    return 0;
}

template <class Entry> std::int32_t waits_since(const Entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    auto &present = const_cast<Entry &>(*entry); // which the walkers hand out as const
    return dpm::is_pending(present) ? record_of(present).since_sec : -1;
}

// Keys are unique in the table, so the entry with the key is the only one that can wait with it.
template <class Entry> Entry *find_pending(const Entry &key) {
    Entry *entry = dpm::kind_of<Entry>::table().find(key);
    return entry != nullptr && dpm::is_pending(*entry) ? entry : nullptr;
}

// What an FTN alone remembers while a request replaces it.
void keep_own(dpm_ftn &image, const dpm_ftn &entry) {
    image.fec_route_deleted = entry.fec_route_deleted;
    image.stale = entry.stale;
}
void keep_own(dpm_ilm &, const dpm_ilm &) {}

// A mirrored address as it is kept: four bytes of an IPv4 address, the rest zero.
void trim_address(std::uint8_t *address, std::uint8_t family) {
    if (family == DPM_FAMILY_IPV4)
        std::memset(address + 4, 0, 12);
}

template <class Entry> void clear_links(Entry &image) {
    image.node = {};
    image.pend = {};
}

dpm_ftn *tunnel_from(ftn_record *record, std::uint32_t family, const std::uint8_t *end) {
    for (; record != nullptr && record->entry.vrf_id == 0 &&
           dpm_fec_addr_cmp(record->entry.fec_prefix, end) == 0;
         record = ftn_kind::by_end().next(*record))
        if (record->entry.ip_type == family)
            return &record->entry;
    return nullptr;
}

} // namespace

namespace dpm {

ftn_table ftns() {
    return ftn_table(g_dpm_vpn.ftn_tree);
}
ilm_table ilms() {
    return ilm_table(g_dpm_vpn.ilm_tree);
}

pend_list<dpm_ftn> pend_ftns() {
    return pend_list<dpm_ftn>(g_dpm_vpn.pend_ftn_list);
}
pend_list<dpm_ilm> pend_ilms() {
    return pend_list<dpm_ilm>(g_dpm_vpn.pend_ilm_list);
}

void ftn_tables_create() {
    ftns().create();
    ftn_kind::by_end().create();
    ftn_kind::by_nexthop().create();
    ftn_kind::waiting().create();
}

void ilm_tables_create() {
    ilms().create();
    ilm_kind::by_nexthop().create();
    ilm_kind::waiting().create();
}

template <class Entry> void pend(Entry &entry) {
    auto &record = record_of(entry);
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    record.waits_since = ++g_dpm_index.label_waits;
    record.since_sec = static_cast<std::int32_t>(now.tv_sec);
    (void)kind_of<Entry>::waiting().add(record);
    kind_of<Entry>::pending().add(entry);
}

template <class Entry> void unpend(Entry &entry) {
    if (!is_pending(entry))
        return;
    kind_of<Entry>::waiting().remove(record_of(entry));
    kind_of<Entry>::pending().remove(entry);
}

// A waiting entry keeps its place on the pend list.
template <class Entry> void label_replace(Entry &entry, Entry image) {
    auto &record = record_of(entry);
    const bool waits = is_pending(entry);
    image.node = entry.node;
    image.pend = entry.pend;
    image.flags = entry.flags;
    image.sdk_result = entry.sdk_result;
    image.nhid = entry.nhid;
    image.tunnel_id = entry.tunnel_id;
    keep_own(image, entry);
    kind_of<Entry>::unindex(record);
    if (waits)
        kind_of<Entry>::waiting().remove(record);
    entry = image;
    kind_of<Entry>::index(record);
    if (waits)
        (void)kind_of<Entry>::waiting().add(record);
}

#define DPM_FOR_LABELS(Entry)                                                                      \
    template void pend(Entry &);                                                                   \
    template void unpend(Entry &);                                                                 \
    template void label_replace(Entry &, Entry);
DPM_FOR_LABELS(dpm_ftn)
DPM_FOR_LABELS(dpm_ilm)
#undef DPM_FOR_LABELS

// The outgoing interface travels to the peer by name: indexes are card-local.
void label_name_interface(dpm_ilm &ilm) {
    std::memset(ilm.out_ifname, 0, sizeof ilm.out_ifname);
    (void)dpm_if_get_ifnamebyindex(ilm.out_ifindex, ilm.out_ifname);
}

std::uint32_t &label_sync_of(dpm_ftn &entry) {
    return record_of(entry).sync;
}
std::uint32_t &label_sync_of(dpm_ilm &entry) {
    return record_of(entry).sync;
}

void trim(dpm_ftn &image) {
    trim_address(image.fec_prefix, image.ip_type);
    trim_address(image.tunnel_nhop, image.tunnel_ip_type);
    trim_address(image.vpn_nhop, image.vpn_nhop_af);
}

dpm_ftn *first_tunnel_to(std::uint32_t family, const std::uint8_t *end) {
    ftn_record key = {};
    std::memcpy(key.entry.fec_prefix, end, sizeof key.entry.fec_prefix);
    return tunnel_from(ftn_kind::by_end().find_from(key), family, end);
}

dpm_ftn *next_tunnel_to(dpm_ftn &tunnel) {
    return tunnel_from(ftn_kind::by_end().next(record_of(tunnel)), tunnel.ip_type,
                       tunnel.fec_prefix);
}

} // namespace dpm

std::int32_t dpm_api_ftn_waits_since(const dpm_ftn *entry) {
    return waits_since(entry);
}
std::int32_t dpm_api_ilm_waits_since(const dpm_ilm *entry) {
    return waits_since(entry);
}

int dpm_fec_addr_cmp(const void *a, const void *b) {
    if (a == nullptr || b == nullptr)
        return a <= b ? -1 : 1;
    return dpm::bytes16_order(a, b);
}

int dpm_mpls_ftn_compare(const dpm_ftn *a, const dpm_ftn *b) {
    if (a == nullptr || b == nullptr) {
        DPM_PLAIN("dpm_mpls_ftn_compare::the input parameter is null!\r\n");
        return -1;
    }
    return dpm::ftn_order(*a, *b);
}

int dpm_mpls_ilm_compare(const dpm_ilm *a, const dpm_ilm *b) {
    if (a == nullptr || b == nullptr) {
        DPM_PLAIN("dpm_mpls_ilm_compare::the input parameter is null!\r\n");
        return -1;
    }
    return dpm::ilm_order(*a, *b);
}

dpm_ftn *dpm_mpls_ftn_lookup(dpm_ftn key) {
    return dpm::ftns().find(key);
}

dpm_ilm *dpm_mpls_ilm_lookup(dpm_ilm key) {
    return dpm::ilms().find(key);
}

dpm_ftn *dpm_mpls_ftn_add(dpm_ftn record) {
    dpm_ftn *entry = dpm::vpn_insert<ftn_kind>(record);
    if (entry != nullptr)
        DPM_PLAIN("dpm_mpls_ftn_add::avl_count=%d\r\n", dpm::ftns().count());
    return entry;
}

dpm_ilm *dpm_mpls_ilm_add(dpm_ilm record) {
    dpm_ilm *entry = dpm::vpn_insert<ilm_kind>(record);
    if (entry != nullptr)
        DPM_PLAIN("dpm_mpls_ilm_add::avl_count=%d\r\n", dpm::ilms().count());
    return entry;
}

int dpm_mpls_ftn_del(dpm_ftn *entry) {
    if (entry == nullptr)
        return -1;
    DPM_PLAIN("dpm_mpls_ftn_del::avl_count=%d ftn = %p list_empty=%d\r\n", dpm::ftns().count(),
              static_cast<void *>(entry), dpm::pend_ftns().empty());
    dpm::unpend(*entry);
    DPM_PLAIN("dpm_mpls_ftn_del::avl_count=%d list_empty=%d\r\n", dpm::ftns().count(),
              dpm::pend_ftns().empty());
    dpm::vpn_remove<ftn_kind>(*entry);
    DPM_PLAIN("dpm_mpls_ftn_del::avl_count=%d list_empty=%d\r\n", dpm::ftns().count(),
              dpm::pend_ftns().empty());
    return 0;
}

int dpm_mpls_ilm_del(dpm_ilm *entry) {
    if (entry == nullptr)
        return -1;
    dpm::unpend(*entry);
    DPM_PLAIN("dpm_mpls_ilm_del::avl_count=%d\r\n", dpm::ilms().count());
    dpm::vpn_remove<ilm_kind>(*entry);
    DPM_PLAIN("dpm_mpls_ilm_del::avl_count=%d\r\n", dpm::ilms().count());
    return 0;
}

int dpm_mpls_pend_ftn_add(dpm_ftn *entry) {
    return pend_add(entry, DPM_CALL_SITE);
}

int dpm_mpls_pend_ilm_add(dpm_ilm *entry) {
    return pend_add(entry, DPM_CALL_SITE);
}

int dpm_mpls_pend_ftn_del(dpm_ftn *entry) {
    return pend_del(entry);
}

int dpm_mpls_pend_ilm_del(dpm_ilm *entry) {
    return pend_del(entry);
}

dpm_ftn *dpm_mpls_pend_ftn_lookup(dpm_ftn key) {
    return find_pending(key);
}

dpm_ilm *dpm_mpls_pend_ilm_lookup(dpm_ilm key) {
    return find_pending(key);
}

dpm_ftn *dpm_mpls_ftn_add_for_salve(dpm_ftn image) {
    clear_links(image);
    image.stale = 0;
    dpm::trim(image);
    dpm_ftn *entry = dpm::vpn_insert<ftn_kind>(image, true);
    if (entry == nullptr)
        return nullptr;
    if (entry->flags == DPM_LABEL_WAITING)
        dpm::pend(*entry);
    DPM_PLAIN("dpm_mpls_ftn_add_for_salve::avl_count=%d\r\n", dpm::ftns().count());
    return entry;
}

dpm_ilm *dpm_mpls_ilm_add_for_slave(dpm_ilm image) {
    clear_links(image);
    trim_address(image.fec_prefix, image.ip_type);
    trim_address(image.tunnel_nhop, image.ip_type); // deliberate: the FEC's family speaks for both
    dpm_ilm *entry = dpm::vpn_insert<ilm_kind>(image, true);
    if (entry == nullptr)
        return nullptr;
    if (entry->is_egress == 0 && entry->flags == DPM_LABEL_WAITING)
        dpm::pend(*entry);
    DPM_PLAIN("dpm_mpls_ilm_add::avl_count=%d\r\n", dpm::ilms().count());
    return entry;
}
