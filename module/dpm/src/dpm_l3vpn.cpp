// FTN and ILM tables: the label entries, and those of them that wait to be programmed.
//
// An entry is new (0), in the chip (1) or waiting on its pend list (2).  It is created by the adds
// below, or from a mirrored image on the standby card, and freed by the deletes, which unlink it
// from the pend list first.  The tunnel next hop is part of an FTN's key: one prefix over two label
// paths is two entries.  Beside each tunnel FTN, card-locally, stands its place in the index by
// FEC.
#include "dpm_l3vpn.h"

#include "dpm_destination.h"
#include "dpm_if.h"
#include "dpm_list.h"
#include "dpm_memory.h"
#include "dpm_mirror.h"
#include "dpm_trace.h"
#include "dpm_vpn.h"

namespace {

// What the two tables have in common, told once for each.
struct ftn_record {
    dpm_ftn entry; // first: the table sees this alone
    dpm_avl_node by_fec;
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
    static list_head &pend_list() { return g_dpm_vpn.pend_ftn_list; }
    static int del(dpm_ftn *entry) { return dpm_mpls_ftn_del(entry); }
    static void index(ftn_record &record) {
        if (record.entry.vrf_id == 0)
            (void)by_fec().add(record);
    }
    static void unindex(ftn_record &record) {
        if (record.entry.vrf_id == 0)
            by_fec().remove(record);
    }
    static bool is_same_pending(const dpm_ftn &a, const dpm_ftn &b) {
        return a.prefixlen == b.prefixlen && a.vrf_id == b.vrf_id &&
               dpm_fec_addr_cmp(a.fec_prefix, b.fec_prefix) == 0 &&
               dpm_fec_addr_cmp(a.tunnel_nhop, b.tunnel_nhop) == 0;
    }
};

struct ilm_record {
    dpm_ilm entry;
};

struct ilm_kind {
    using entry = dpm_ilm;
    using record = ilm_record;
    static dpm::ilm_table table() { return dpm::ilms(); }
    static list_head &pend_list() { return g_dpm_vpn.pend_ilm_list; }
    static int del(dpm_ilm *entry) { return dpm_mpls_ilm_del(entry); }
    static void index(ilm_record &) {}
    static void unindex(ilm_record &) {}
    static bool is_same_pending(const dpm_ilm &a, const dpm_ilm &b) {
        return a.in_label == b.in_label;
    }
};

template <class Kind> typename Kind::record &record_of(typename Kind::entry &entry) {
    return reinterpret_cast<typename Kind::record &>(entry);
}

// A copy of the record in the table; null without memory.  The entry that is present with its key
// is the answer then, unless it is to be replaced.
template <class Kind>
typename Kind::entry *insert(const typename Kind::entry &image, bool replaces = false) {
    dpm::block<typename Kind::record> record;
    if (!record)
        return nullptr;
    record->entry = image;
    INIT_LIST_HEAD(dpm::pend_link(record->entry));
    if (typename Kind::entry *present = replaces ? Kind::table().find(image) : nullptr)
        (void)Kind::del(present);
    if (typename Kind::entry *present = Kind::table().add(record->entry))
        return present;
    Kind::index(*record);
    return &record.release()->entry;
}

template <class Kind> typename Kind::entry *find_pending(const typename Kind::entry &key) {
    list_head &head = Kind::pend_list();
    for (list_head *link = head.next; link != &head; link = link->next) {
        auto &entry = dpm::pend_entry<typename Kind::entry>(link);
        if (Kind::is_same_pending(entry, key))
            return &entry;
    }
    return nullptr;
}

template <class Kind> void unpend(typename Kind::entry &entry) {
    if (find_pending<Kind>(entry) != nullptr)
        list_del_init(dpm::pend_link(entry));
}

template <class Kind> void unlink_and_free(typename Kind::entry &entry) {
    Kind::unindex(record_of<Kind>(entry));
    Kind::table().remove(entry);
    dpm::free_zeroed(&record_of<Kind>(entry));
}

template <class Kind> int pend_add(typename Kind::entry *entry, const dpm::call_site &caller) {
    if (entry == nullptr)
        return -1;
    list_head *link = dpm::pend_link(*entry);
    list_del_init(link);
    list_add(link, &Kind::pend_list());
    DPM_LOG_FROM(caller, "%s:%d list_empty=%d\n\r", list_empty(&Kind::pend_list()));
    return 0;
}

template <class Kind> int pend_del(typename Kind::entry *entry) {
    if (entry == nullptr || list_empty(&Kind::pend_list()))
        return -1;
    list_del_init(dpm::pend_link(*entry));
    return 0;
}

// A mirrored address as it is kept: four bytes of an IPv4 address, the rest zero.
void trim_address(std::uint8_t *address, std::uint8_t family) {
    if (family == DPM_FAMILY_IPV4)
        std::memset(address + 4, 0, 12);
}

void trim(dpm_ftn &image) {
    trim_address(image.fec_prefix, image.ip_type);
    trim_address(image.tunnel_nhop, image.tunnel_ip_type);
    trim_address(image.vpn_nhop, image.vpn_nhop_af);
}

// The entry that a mirrored image stands for, if it is present.
void drop_mirrored(dpm_ftn image) {
    trim(image);
    if (dpm_ftn *present = dpm::ftns().find(image))
        (void)dpm_mpls_ftn_del(present);
}

template <class Entry> void clear_links(Entry &image) {
    image.node = {};
    image.pend = {};
}

// Nothing puts label entries into the chip yet: their encoding comes with their requests.
template <class Entry> struct label_mirror {
    using entry = Entry;
    static constexpr std::uint32_t batch_entries = 100;
    static constexpr const char *empty_first_text = nullptr;
    static bool reprogram(const Entry &, std::uint32_t) { return true; }
};

struct ftn_mirror : label_mirror<dpm_ftn> {
    static constexpr auto add_code = DPM_MSG_SYNC_FTN_ADD, del_code = DPM_MSG_SYNC_FTN_DEL;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, ftn driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, ftn table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.ftn_tree};
    static std::span<dpm_avl_tree *const> trees() { return list; }
};

struct ilm_mirror : label_mirror<dpm_ilm> {
    static constexpr auto add_code = DPM_MSG_SYNC_ILM_ADD, del_code = DPM_MSG_SYNC_ILM_DEL;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, ilm driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, ilm table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.ilm_tree};
    static std::span<dpm_avl_tree *const> trees() { return list; }
};

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

// A label entry holds from its insertion on, and nobody stands above it.
constexpr dpm::destination_owner label_owner = {
    .holds = has_tunnel_ftn, .give_way = nullptr, .take_back = nullptr};

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(ftn_mirror,
                   dpm_mpls_ftn_add_sync_send, dpm_mpls_ftn_add_sync_receive,
                   dpm_mpls_ftn_del_sync_send, dpm_mpls_ftn_del_sync_receive,
                   dpm_mpls_ftn_sync_all_send, dpm_mpls_ftn_sync_all_receive)
DPM_MIRRORED_TABLE(ilm_mirror,
                   dpm_mpls_ilm_add_sync_send, dpm_mpls_ilm_add_sync_receive,
                   dpm_mpls_ilm_del_sync_send, dpm_mpls_ilm_del_sync_receive,
                   dpm_mpls_ilm_sync_all_send, dpm_mpls_ilm_sync_all_receive)
// clang-format on

namespace dpm {

ftn_table ftns() {
    return ftn_table(g_dpm_vpn.ftn_tree);
}
ilm_table ilms() {
    return ilm_table(g_dpm_vpn.ilm_tree);
}

void label_tables_create() {
    ftns().create();
    ilms().create();
    by_fec().create();
    destination_register(destination_rank::label, label_owner);
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
    dpm_ftn *entry = insert<ftn_kind>(record);
    if (entry != nullptr)
        DPM_PLAIN("dpm_mpls_ftn_add::avl_count=%d\r\n", dpm::ftns().count());
    return entry;
}

// The outgoing interface travels to the peer by name: indexes are card-local.
dpm_ilm *dpm_mpls_ilm_add(dpm_ilm record) {
    std::memset(record.out_ifname, 0, sizeof record.out_ifname);
    (void)dpm_if_get_ifnamebyindex(record.out_ifindex, record.out_ifname);
    record.owner = 0;
    dpm_ilm *entry = insert<ilm_kind>(record);
    if (entry != nullptr)
        DPM_PLAIN("dpm_mpls_ilm_add::avl_count=%d\r\n", dpm::ilms().count());
    return entry;
}

int dpm_mpls_ftn_del(dpm_ftn *entry) {
    if (entry == nullptr)
        return -1;
    DPM_PLAIN("dpm_mpls_ftn_del::avl_count=%d ftn = %p list_empty=%d\r\n", dpm::ftns().count(),
              static_cast<void *>(entry), list_empty(&g_dpm_vpn.pend_ftn_list));
    unpend<ftn_kind>(*entry);
    DPM_PLAIN("dpm_mpls_ftn_del::avl_count=%d list_empty=%d\r\n", dpm::ftns().count(),
              list_empty(&g_dpm_vpn.pend_ftn_list));
    unlink_and_free<ftn_kind>(*entry);
    DPM_PLAIN("dpm_mpls_ftn_del::avl_count=%d list_empty=%d\r\n", dpm::ftns().count(),
              list_empty(&g_dpm_vpn.pend_ftn_list));
    return 0;
}

int dpm_mpls_ilm_del(dpm_ilm *entry) {
    if (entry == nullptr)
        return -1;
    unpend<ilm_kind>(*entry);
    DPM_PLAIN("dpm_mpls_ilm_del::avl_count=%d\r\n", dpm::ilms().count());
    unlink_and_free<ilm_kind>(*entry);
    DPM_PLAIN("dpm_mpls_ilm_del::avl_count=%d\r\n", dpm::ilms().count());
    return 0;
}

int dpm_mpls_pend_ftn_add(dpm_ftn *entry) {
    return pend_add<ftn_kind>(entry, DPM_CALL_SITE);
}

int dpm_mpls_pend_ilm_add(dpm_ilm *entry) {
    return pend_add<ilm_kind>(entry, DPM_CALL_SITE);
}

int dpm_mpls_pend_ftn_del(dpm_ftn *entry) {
    return pend_del<ftn_kind>(entry);
}

int dpm_mpls_pend_ilm_del(dpm_ilm *entry) {
    return pend_del<ilm_kind>(entry);
}

dpm_ftn *dpm_mpls_pend_ftn_lookup(dpm_ftn key) {
    return find_pending<ftn_kind>(key);
}

dpm_ilm *dpm_mpls_pend_ilm_lookup(dpm_ilm key) {
    return find_pending<ilm_kind>(key);
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
    trim(image);
    dpm_ftn *entry = insert<ftn_kind>(image, true);
    if (entry == nullptr)
        return nullptr;
    if (entry->flags == DPM_LABEL_WAITING && find_pending<ftn_kind>(*entry) == nullptr)
        list_add(dpm::pend_link(*entry), &g_dpm_vpn.pend_ftn_list);
    DPM_PLAIN("dpm_mpls_ftn_add_for_salve::avl_count=%d\r\n", dpm::ftns().count());
    return entry;
}

dpm_ilm *dpm_mpls_ilm_add_for_slave(dpm_ilm image) {
    clear_links(image);
    trim_address(image.fec_prefix, image.ip_type);
    trim_address(image.tunnel_nhop, image.ip_type); // deliberate: the FEC's family speaks for both
    dpm_ilm *entry = insert<ilm_kind>(image, true);
    if (entry == nullptr)
        return nullptr;
    if (entry->is_egress == 0 && entry->flags == DPM_LABEL_WAITING &&
        find_pending<ilm_kind>(*entry) == nullptr)
        list_add(dpm::pend_link(*entry), &g_dpm_vpn.pend_ilm_list);
    DPM_PLAIN("dpm_mpls_ilm_add::avl_count=%d\r\n", dpm::ilms().count());
    return entry;
}

int dpm_mpls_ftn_add_sync_process(const dpm_ftn *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    return dpm_mpls_ftn_add_for_salve(*entry) != nullptr ? 0 : -1;
}

int dpm_mpls_ftn_del_sync_process(const dpm_ftn *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    drop_mirrored(*entry);
    return 0;
}

int dpm_mpls_ilm_add_sync_process(const dpm_ilm *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    dpm_ilm image = *entry;
    image.out_ifname[sizeof image.out_ifname - 1] = '\0';
    image.out_ifindex =
        image.out_ifname[0] != '\0' ? dpm_if_get_ifindexbyname(image.out_ifname) : 0;
    return dpm_mpls_ilm_add_for_slave(image) != nullptr ? 0 : -1;
}

int dpm_mpls_ilm_del_sync_process(const dpm_ilm *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    if (dpm_ilm *present = dpm::ilms().find(*entry))
        (void)dpm_mpls_ilm_del(present);
    return 0;
}
