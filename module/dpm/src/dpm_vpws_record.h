// What stands beside each entry of the pseudowire tables, card-locally: its places in the indexes,
// and the sync that brought it.  For the sources of these tables alone.
//
// Circuits are found by their pseudowire and by their port; ways out by their peer, the far end of a
// label path, and by the pseudowire of their circuit, which a standby pseudowire shares with the
// primary one.
#pragma once

#include "dpm.h"
#include "dpm_l2vpn.h"
#include "dpm_vpn.h"
#include "dpm_vpws.h"

#include <cstring>

struct vpws_acif_record {
    dpm_vpws_acif entry; // first: the table sees this alone
    dpm_avl_node by_vc;
    dpm_avl_node by_port;
    std::uint32_t sync; // that brought it
};

struct vpws_vc_fib_record {
    dpm_vpws_vc_fib entry;
    dpm_avl_node by_peer;
    dpm_avl_node by_circuit;
    std::uint32_t sync;
};

struct vpws_vc_ilm_record {
    dpm_vpws_vc_ilm entry;
    std::uint32_t sync;
};

namespace dpm {

// The pseudowire that the circuit of a way out names.
inline std::uint32_t circuit_of(const dpm_vpws_vc_fib &fib) {
    return fib.vc_role == DPM_VC_STANDBY ? fib.sibling_vc_id : fib.vc_id;
}

inline int vc_order(const vpws_acif_record &a, const vpws_acif_record &b) {
    return service_order(a.entry.vc_id, b.entry.vc_id, a.entry, b.entry);
}

inline int far_end_order(const vpws_vc_fib_record &a, const vpws_vc_fib_record &b) {
    return peer_order(a.entry.vc_id, b.entry.vc_id, a.entry, b.entry);
}

// Ways out by the pseudowire of their circuit.
inline int user_order(const vpws_vc_fib_record &a, const vpws_vc_fib_record &b) {
    const int order = three_way(circuit_of(a.entry), circuit_of(b.entry));
    return order != 0 ? order : dpm_vpws_vc_fib_compile(&a.entry, &b.entry);
}

using acif_by_vc_index = avl_table<vpws_acif_record, vc_order, offsetof(vpws_acif_record, by_vc)>;
using acif_by_port_index =
    avl_table<vpws_acif_record, port_order<vpws_acif_record>, offsetof(vpws_acif_record, by_port)>;
using fib_by_peer_index =
    avl_table<vpws_vc_fib_record, far_end_order, offsetof(vpws_vc_fib_record, by_peer)>;
using fib_by_circuit_index =
    avl_table<vpws_vc_fib_record, user_order, offsetof(vpws_vc_fib_record, by_circuit)>;

// The three tables (dpm_vpn_table.h), with their indexes.
struct vpws_acif_kind {
    using entry = dpm_vpws_acif;
    using record = vpws_acif_record;
    static constexpr const char *added_text = "dpm_vpws_if_add::avl_count=%d\r\n"; // an older name
    static constexpr const char *deleted_text = "dpm_vpws_acif_del::avl_count=%d\r\n";
    static constexpr const char *mirrored_text = added_text;
    static vpws_acif_table table() { return vpws_acifs(); }
    static auto by_vc() { return acif_by_vc_index(g_dpm_index.vpws_acif_by_vc); }
    static auto by_port() { return acif_by_port_index(g_dpm_index.vpws_acif_by_port); }
    static int del(entry *acif) { return dpm_vpws_acif_del(acif); }
    static int add_send(const entry *changed) { return dpm_vpws_acif_add_sync_send(changed); }
    static void index(record &record) {
        (void)by_vc().add(record);
        (void)by_port().add(record);
    }
    static void unindex(record &record) {
        by_vc().remove(record);
        by_port().remove(record);
    }
};

struct vpws_vc_fib_kind {
    using entry = dpm_vpws_vc_fib;
    using record = vpws_vc_fib_record;
    static constexpr const char *added_text = "dpm_vpws_vc_fib_add::avl_count=%d\r\n";
    static constexpr const char *deleted_text = "dpm_vpws_vc_fib_del::avl_count=%d\r\n";
    static constexpr const char *mirrored_text = "dpm_vpws_vc_fib_add_for_slave::avl_count=%d\r\n";
    static constexpr const char *unsound_text =
        "%s %d::vc_id = %d out_label %d vc_peer %d.%d.%d.%d is err!\r\n";
    static std::uint32_t id_of(const entry &fib) { return fib.vc_id; }
    static std::uint32_t label_of(const entry &fib) { return fib.out_label; }
    static vpws_vc_fib_table table() { return vpws_vc_fibs(); }
    static pend_list<entry> pending() { return pend_vpws_vc_fibs(); }
    static auto by_peer() { return fib_by_peer_index(g_dpm_index.vpws_vc_fib_by_peer); }
    static auto by_circuit() { return fib_by_circuit_index(g_dpm_index.vpws_vc_fib_by_circuit); }
    static int del(entry *fib) { return dpm_vpws_vc_fib_del(fib); }
    static int add_send(const entry *changed) { return dpm_vpws_vc_fib_add_sync_send(changed); }
    static int del_send(const entry *gone) { return dpm_vpws_vc_fib_del_sync_send(gone); }
    static void index(record &record) {
        (void)by_peer().add(record);
        (void)by_circuit().add(record);
    }
    static void unindex(record &record) {
        by_peer().remove(record);
        by_circuit().remove(record);
    }
};

struct vpws_vc_ilm_kind {
    using entry = dpm_vpws_vc_ilm;
    using record = vpws_vc_ilm_record;
    static constexpr const char *added_text = "dpm_vpws_vc_ilm_add::avl_count=%d\r\n";
    static constexpr const char *deleted_text = "dpm_vpws_vc_ilm_del::avl_count=%d\r\n";
    static constexpr const char *mirrored_text = "dpm_vpws_vc_ilm_add_for_slave::avl_count=%d\r\n";
    static constexpr const char *unsound_text =
        "%s %d::vpn_id = %d in_label %d vc_peer %d.%d.%d.%d is err!\r\n";
    static std::uint32_t id_of(const entry &ilm) { return ilm.vpn_id; }
    static std::uint32_t label_of(const entry &ilm) { return ilm.in_label; }
    static vpws_vc_ilm_table table() { return vpws_vc_ilms(); }
    static pend_list<entry> pending() { return pend_vpws_vc_ilms(); }
    static int del(entry *ilm) { return dpm_vpws_vc_ilm_del(ilm); }
    static int add_send(const entry *changed) { return dpm_vpws_vc_ilm_add_sync_send(changed); }
    static int del_send(const entry *gone) { return dpm_vpws_vc_ilm_del_sync_send(gone); }
    static void index(record &) {}
    static void unindex(record &) {}
};

} // namespace dpm
