// What stands beside each label entry, card-locally: its places in the indexes, and the sync that
// brought it.  For the sources of the label tables alone.
//
// Entries are found by their next hop, those that wait by their next hop from the newest on, and
// FTNs by their far end: the FEC of a tunnel, the VPN next hop of a VPN route.  So an index yields
// the order of a walk of the table, or of the pend list.
#pragma once

#include "dpm.h"
#include "dpm_l3vpn.h"
#include "dpm_vpn.h"
#include "dpm_vpn_table.h"

#include <type_traits>

template <class Entry> struct label_record {
    Entry entry; // first: the tables see this alone
    dpm_avl_node by_nexthop;
    dpm_avl_node waiting;      // linked while it is on the pend list
    std::uint64_t waits_since; // number of its coming to the pend list
    std::int32_t since_sec;    // monotonic clock, at that time
    dpm_avl_node by_end;       // of an FTN
    bool went_with_tunnel;     // an FTN that left the chip with the tunnel that changes just now
    std::uint32_t sync;        // that brought it
};

using ftn_record = label_record<dpm_ftn>;
using ilm_record = label_record<dpm_ilm>;

inline ftn_record &record_of(dpm_ftn &entry) {
    return reinterpret_cast<ftn_record &>(entry);
}
inline ilm_record &record_of(dpm_ilm &entry) {
    return reinterpret_cast<ilm_record &>(entry);
}

namespace dpm {

inline const std::uint8_t *far_end(const dpm_ftn &ftn) { // 16 bytes
    return ftn.vrf_id == 0 ? ftn.fec_prefix : ftn.vpn_nhop;
}

inline int label_order(const dpm_ftn &a, const dpm_ftn &b) {
    return ftn_order(a, b);
}
inline int label_order(const dpm_ilm &a, const dpm_ilm &b) {
    return ilm_order(a, b);
}

template <class Record> int nexthop_order(const Record &a, const Record &b) {
    const int order = bytes16_order(a.entry.tunnel_nhop, b.entry.tunnel_nhop);
    return order != 0 ? order : label_order(a.entry, b.entry);
}

template <class Record> int waiting_order(const Record &a, const Record &b) {
    const int order = bytes16_order(a.entry.tunnel_nhop, b.entry.tunnel_nhop);
    return order != 0 ? order : three_way(b.waits_since, a.waits_since); // the newest first
}

// Tunnels stand before the VPN routes to the same end.
inline int end_order(const ftn_record &a, const ftn_record &b) {
    const int order = bytes16_order(far_end(a.entry), far_end(b.entry));
    return order != 0 ? order : label_order(a.entry, b.entry);
}

template <class Record>
using nexthop_index = avl_table<Record, nexthop_order<Record>, offsetof(Record, by_nexthop)>;
template <class Record>
using waiting_index = avl_table<Record, waiting_order<Record>, offsetof(Record, waiting)>;
using end_index = avl_table<ftn_record, end_order, offsetof(ftn_record, by_end)>;

// The two tables (dpm_vpn_table.h), with their indexes.
struct ftn_kind {
    using entry = dpm_ftn;
    using record = ftn_record;
    static ftn_table table() { return ftns(); }
    static pend_list<entry> pending() { return pend_ftns(); }
    static auto by_nexthop() { return nexthop_index<record>(g_dpm_index.ftn_by_nexthop); }
    static auto waiting() { return waiting_index<record>(g_dpm_index.ftn_waiting); }
    static auto by_end() { return end_index(g_dpm_index.ftn_by_end); }
    static int del(entry *ftn) { return dpm_mpls_ftn_del(ftn); }
    static void index(record &record) {
        (void)by_nexthop().add(record);
        (void)by_end().add(record);
    }
    static void unindex(record &record) {
        by_nexthop().remove(record);
        by_end().remove(record);
    }
};

struct ilm_kind {
    using entry = dpm_ilm;
    using record = ilm_record;
    static ilm_table table() { return ilms(); }
    static pend_list<entry> pending() { return pend_ilms(); }
    static auto by_nexthop() { return nexthop_index<record>(g_dpm_index.ilm_by_nexthop); }
    static auto waiting() { return waiting_index<record>(g_dpm_index.ilm_waiting); }
    static int del(entry *ilm) { return dpm_mpls_ilm_del(ilm); }
    static void index(record &record) { (void)by_nexthop().add(record); }
    static void unindex(record &record) { by_nexthop().remove(record); }
};

template <class Entry>
using kind_of = std::conditional_t<std::is_same_v<Entry, dpm_ftn>, ftn_kind, ilm_kind>;

// The following stand for dpm_ftn and dpm_ilm.

// Put an entry on its pend list as the newest, or take it off if it is on it.
template <class Entry> void pend(Entry &entry);
template <class Entry> void unpend(Entry &entry);

// Gives an entry what a request says, behind the chip: the request's key is the entry's.  What the
// chip and the pend list know of the entry stays.
template <class Entry> void label_replace(Entry &entry, Entry request);

// Names the interface that an ILM's out_ifindex leads to.
void label_name_interface(dpm_ilm &ilm);

// The first tunnel in table order to a far end, and the one after it to the same end; null when
// there is none.  The address is zero-padded.
dpm_ftn *first_tunnel_to(std::uint32_t family, const std::uint8_t *end);
dpm_ftn *next_tunnel_to(dpm_ftn &tunnel);

// Calls `visit(entry)` for the entries over a next hop, in table order.
template <class Kind, class Visit> void each_over(const std::uint8_t *nexthop, Visit visit) {
    typename Kind::record key = {};
    std::memcpy(key.entry.tunnel_nhop, nexthop, sizeof key.entry.tunnel_nhop);
    const auto index = Kind::by_nexthop();
    for (auto *record = index.find_from(key);
         record != nullptr && std::memcmp(record->entry.tunnel_nhop, nexthop, 16) == 0;
         record = index.next(*record))
        visit(record->entry);
}

// Those of them that wait, the newest first; the one that is visited may leave.
template <class Kind, class Visit>
void each_waiting_over(const std::uint8_t *nexthop, Visit visit) {
    typename Kind::record key = {};
    std::memcpy(key.entry.tunnel_nhop, nexthop, sizeof key.entry.tunnel_nhop);
    key.waits_since = UINT64_MAX;
    const auto index = Kind::waiting();
    for (auto *record = index.find_from(key), *next = record;
         record != nullptr && std::memcmp(record->entry.tunnel_nhop, nexthop, 16) == 0;
         record = next) {
        next = index.next(*record);
        visit(record->entry);
    }
}

// Calls `visit(entry)` for the VPN routes that a tunnel's far end carries, in table order.
template <class Visit> void each_carried(const dpm_ftn &tunnel, Visit visit) {
    ftn_record key = {};
    std::memcpy(key.entry.fec_prefix, tunnel.fec_prefix, sizeof key.entry.fec_prefix);
    const auto index = ftn_kind::by_end();
    for (ftn_record *record = index.find_from(key);
         record != nullptr && std::memcmp(far_end(record->entry), tunnel.fec_prefix, 16) == 0;
         record = index.next(*record))
        if (record->entry.vrf_id != 0 && record->entry.vpn_nhop_af == tunnel.ip_type)
            visit(record->entry);
}

} // namespace dpm
