// FTN and ILM tables: the label entries, and those of them that wait to be programmed.
//
// An entry is new (0), in the chip (1) or waiting on its pend list (2).  It is created by the adds
// below, or from a mirrored image on the standby card, and freed by the deletes, which unlink it
// from the pend list first.  The tunnel next hop is part of an FTN's key: one prefix over two label
// paths is two entries.  Beside each tunnel FTN, card-locally, stands its place in the index by
// FEC.
#include "dpm_l3vpn.h"

#include "dpm.h"
#include "dpm_if.h"
#include "dpm_trace.h"
#include "dpm_vpn.h"
#include "dpm_vpn_table.h"

namespace {

// What the two tables have in common, told once for each.
struct ftn_record {
    dpm_ftn entry; // first: the table sees this alone
    dpm_avl_node by_fec;
    std::uint32_t sync; // that brought it
};

int fec_order(const ftn_record &a, const ftn_record &b) {
    if (const int order = dpm_fec_addr_cmp(a.entry.fec_prefix, b.entry.fec_prefix))
        return order;
    return dpm_mpls_ftn_compare(&a.entry, &b.entry);
}

// Tunnel FTNs (VRF 0) by FEC, and by table order within one.
using fec_index = dpm::avl_table<ftn_record, fec_order, offsetof(ftn_record, by_fec)>;
fec_index by_fec() {
    return fec_index(g_dpm_index.ftn_by_fec);
}

struct ftn_kind {
    using entry = dpm_ftn;
    using record = ftn_record;
    static dpm::ftn_table table() { return dpm::ftns(); }
    static int del(dpm_ftn *entry) { return dpm_mpls_ftn_del(entry); }
    static void index(ftn_record &record) {
        if (record.entry.vrf_id == 0)
            (void)by_fec().add(record);
    }
    static void unindex(ftn_record &record) {
        if (record.entry.vrf_id == 0)
            by_fec().remove(record);
    }
};

struct ilm_record {
    dpm_ilm entry;
    std::uint32_t sync;
};

struct ilm_kind {
    using entry = dpm_ilm;
    using record = ilm_record;
    static dpm::ilm_table table() { return dpm::ilms(); }
    static int del(dpm_ilm *entry) { return dpm_mpls_ilm_del(entry); }
    static void index(ilm_record &) {}
    static void unindex(ilm_record &) {}
};

// A mirrored address as it is kept: four bytes of an IPv4 address, the rest zero.
void trim_address(std::uint8_t *address, std::uint8_t family) {
    if (family == DPM_FAMILY_IPV4)
        std::memset(address + 4, 0, 12);
}

template <class Entry> void clear_links(Entry &image) {
    image.node = {};
    image.pend = {};
}

// Whether a tunnel FTN stands for exactly this prefix.  Tunnels are VRF 0's, so the routes of other
// VRFs never meet one.
bool has_tunnel_ftn(std::uint32_t vrf, const dpm_prefix &destination) {
    if (vrf != 0 || dpm::ftns().empty())
        return false;
    ftn_record key = {}; // zero-padded, as label entries keep their addresses
    std::memcpy(key.entry.fec_prefix, destination.address, dpm::address_bytes(destination.family));
    for (ftn_record *record = by_fec().find_from(key); record != nullptr;
         record = by_fec().next(*record)) {
        if (dpm_fec_addr_cmp(record->entry.fec_prefix, key.entry.fec_prefix) != 0)
            return false;
        if (record->entry.ip_type == destination.family &&
            record->entry.prefixlen == destination.prefix_len)
            return true;
    }
    return false;
}

} // namespace

// A label entry holds from its insertion on, and nobody stands above it.
constexpr dpm::destination_owner dpm::label_owner = {
    .holds = has_tunnel_ftn, .give_way = nullptr, .take_back = nullptr};

namespace dpm {

ftn_table ftns() {
    return ftn_table(g_dpm_vpn.ftn_tree);
}
ilm_table ilms() {
    return ilm_table(g_dpm_vpn.ilm_tree);
}

pend_ftn_list pend_ftns() {
    return pend_ftn_list(g_dpm_vpn.pend_ftn_list);
}
pend_ilm_list pend_ilms() {
    return pend_ilm_list(g_dpm_vpn.pend_ilm_list);
}

bool is_same_pending(const dpm_ftn &a, const dpm_ftn &b) {
    return a.prefixlen == b.prefixlen && a.vrf_id == b.vrf_id &&
           dpm_fec_addr_cmp(a.fec_prefix, b.fec_prefix) == 0 &&
           dpm_fec_addr_cmp(a.tunnel_nhop, b.tunnel_nhop) == 0;
}
bool is_same_pending(const dpm_ilm &a, const dpm_ilm &b) {
    return a.in_label == b.in_label;
}

void ftn_tables_create() {
    ftns().create();
    by_fec().create();
}

void ilm_tables_create() {
    ilms().create();
}

std::uint32_t &label_sync_of(dpm_ftn &entry) {
    return record_of<ftn_kind>(entry).sync;
}
std::uint32_t &label_sync_of(dpm_ilm &entry) {
    return record_of<ilm_kind>(entry).sync;
}

void trim(dpm_ftn &image) {
    trim_address(image.fec_prefix, image.ip_type);
    trim_address(image.tunnel_nhop, image.tunnel_ip_type);
    trim_address(image.vpn_nhop, image.vpn_nhop_af);
}

} // namespace dpm

int dpm_fec_addr_cmp(const void *a, const void *b) {
    if (a == nullptr || b == nullptr)
        return a <= b ? -1 : 1;
    return dpm::bytes_order(a, b, 16);
}

int dpm_mpls_ftn_compare(const dpm_ftn *a, const dpm_ftn *b) {
    if (a == nullptr || b == nullptr) {
        DPM_PLAIN("dpm_mpls_ftn_compare::the input parameter is null!\r\n");
        return -1;
    }
    if (a->vrf_id != b->vrf_id)
        return a->vrf_id < b->vrf_id ? -1 : 1;
    if (a->prefixlen != b->prefixlen)
        return a->prefixlen < b->prefixlen ? -1 : 1;
    if (const int order = dpm_fec_addr_cmp(a->tunnel_nhop, b->tunnel_nhop))
        return order;
    return dpm_fec_addr_cmp(a->fec_prefix, b->fec_prefix);
}

int dpm_mpls_ilm_compare(const dpm_ilm *a, const dpm_ilm *b) {
    if (a == nullptr || b == nullptr) {
        DPM_PLAIN("dpm_mpls_ilm_compare::the input parameter is null!\r\n");
        return -1;
    }
    return a->in_label < b->in_label ? -1 : a->in_label > b->in_label;
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

// The outgoing interface travels to the peer by name: indexes are card-local.
dpm_ilm *dpm_mpls_ilm_add(dpm_ilm record) {
    std::memset(record.out_ifname, 0, sizeof record.out_ifname);
    (void)dpm_if_get_ifnamebyindex(record.out_ifindex, record.out_ifname);
    record.owner = 0;
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
    dpm::pend_ftns().forget(*entry);
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
    dpm::pend_ilms().forget(*entry);
    DPM_PLAIN("dpm_mpls_ilm_del::avl_count=%d\r\n", dpm::ilms().count());
    dpm::vpn_remove<ilm_kind>(*entry);
    DPM_PLAIN("dpm_mpls_ilm_del::avl_count=%d\r\n", dpm::ilms().count());
    return 0;
}

int dpm_mpls_pend_ftn_add(dpm_ftn *entry) {
    if (entry == nullptr)
        return -1;
    dpm::pend_ftns().add(*entry);
    DPM_TRACE("%s:%d list_empty=%d\n\r", dpm::pend_ftns().empty());
    return 0;
}

int dpm_mpls_pend_ilm_add(dpm_ilm *entry) {
    if (entry == nullptr)
        return -1;
    dpm::pend_ilms().add(*entry);
    DPM_TRACE("%s:%d list_empty=%d\n\r", dpm::pend_ilms().empty());
    return 0;
}

int dpm_mpls_pend_ftn_del(dpm_ftn *entry) {
    return dpm::pend_ftns().remove(entry);
}

int dpm_mpls_pend_ilm_del(dpm_ilm *entry) {
    return dpm::pend_ilms().remove(entry);
}

dpm_ftn *dpm_mpls_pend_ftn_lookup(dpm_ftn key) {
    return dpm::pend_ftns().find(key);
}

dpm_ilm *dpm_mpls_pend_ilm_lookup(dpm_ilm key) {
    return dpm::pend_ilms().find(key);
}

dpm_ftn *dpm_mpls_ftn_get_by_fec(const std::uint8_t *address) {
    if (address == nullptr) {
        (void)dpm::null_parameter();
        return nullptr;
    }
    ftn_record key = {};
    std::memcpy(key.entry.fec_prefix, address, sizeof key.entry.fec_prefix);
    ftn_record *record = by_fec().find_from(key);
    if (record == nullptr || dpm_fec_addr_cmp(record->entry.fec_prefix, address) != 0)
        return nullptr;
    return &record->entry;
}

dpm_ftn *dpm_mpls_ftn_add_for_salve(dpm_ftn image) {
    clear_links(image);
    image.stale = 0;
    dpm::trim(image);
    dpm_ftn *entry = dpm::vpn_insert<ftn_kind>(image, true);
    if (entry == nullptr)
        return nullptr;
    if (entry->flags == DPM_LABEL_WAITING && dpm::pend_ftns().find(*entry) == nullptr)
        dpm::pend_ftns().add(*entry);
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
    if (entry->is_egress == 0 && entry->flags == DPM_LABEL_WAITING &&
        dpm::pend_ilms().find(*entry) == nullptr)
        dpm::pend_ilms().add(*entry);
    DPM_PLAIN("dpm_mpls_ilm_add::avl_count=%d\r\n", dpm::ilms().count());
    return entry;
}
