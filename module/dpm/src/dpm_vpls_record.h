// What stands beside each entry of the tables of virtual bridges, card-locally: its places in the
// indexes, and the sync that brought it.  For the sources of these tables alone.
//
// Circuits are found by their bridge and by their port, ways out by their peer, the far end of a
// label path; by their bridge ways out and in are found in the tables.
#pragma once

#include "dpm.h"
#include "dpm_l2vpn.h"
#include "dpm_vpls.h"
#include "dpm_vpn.h"

struct vpls_vsi_record {
    dpm_vpls_vsi entry; // first: the table sees this alone
    std::uint32_t sync; // that brought it
};

struct vpls_acif_record {
    dpm_vpls_acif entry;
    dpm_avl_node by_vsi;
    dpm_avl_node by_port;
    std::uint32_t sync;
};

struct vpls_vc_fib_record {
    dpm_vpls_vc_fib entry;
    dpm_avl_node by_peer;
    std::uint32_t sync;
};

struct vpls_vc_ilm_record {
    dpm_vpls_vc_ilm entry;
    std::uint32_t sync;
};

namespace dpm {

inline int vsi_order(const vpls_acif_record &a, const vpls_acif_record &b) {
    return service_order(a.entry.vpls_id, b.entry.vpls_id, a.entry, b.entry);
}

inline int far_end_order(const vpls_vc_fib_record &a, const vpls_vc_fib_record &b) {
    return peer_order(a.entry.vpls_id, b.entry.vpls_id, a.entry, b.entry);
}

// The four tables (dpm_vpn_table.h, dpm_l2vpn.h), with their indexes.  Each tells besides
//   add_send(), del_send()  mirror an entry
struct vpls_vsi_kind {
    using entry = dpm_vpls_vsi;
    using record = vpls_vsi_record;
    static constexpr const char *added_text = "dpm_vpls_vsi_add::avl_count=%d\r\n";
    static constexpr const char *deleted_text = "dpm_vpls_vsi_del::avl_count=%d\r\n";
    static constexpr const char *mirrored_text = "dpm_vpls_vsi_add_for_slave::avl_count=%d\r\n";
    static constexpr auto add_send = dpm_vpls_vsi_add_sync_send;
    static constexpr auto del_send = dpm_vpls_vsi_del_sync_send;
    static vpls_vsi_table table() { return vpls_vsis(); }
    static int del(entry *vsi) { return vpn_del<vpls_vsi_kind>(vsi); }
    static void index(record &) {}
    static void unindex(record &) {}
};

struct vpls_acif_kind {
    using entry = dpm_vpls_acif;
    using record = vpls_acif_record;
    static constexpr const char *added_text = "dpm_vpls_acif_add::avl_count=%d\r\n";
    static constexpr const char *deleted_text = "dpm_vpls_acif_del::avl_count=%d\r\n";
    static constexpr const char *mirrored_text = "dpm_vpls_acif_add_for_slave::avl_count=%d\r\n";
    static constexpr auto add_send = dpm_vpls_acif_add_sync_send;
    static constexpr auto del_send = dpm_vpls_acif_del_sync_send;
    static vpls_acif_table table() { return vpls_acifs(); }
    static auto by_vsi() {
        return avl_table<record, vsi_order, offsetof(record, by_vsi)>(g_dpm_index.vpls_acif_by_vsi);
    }
    static auto by_port() {
        return avl_table<record, port_order<record>, offsetof(record, by_port)>(
            g_dpm_index.vpls_acif_by_port);
    }
    static int del(entry *acif) { return vpn_del<vpls_acif_kind>(acif); }
    static void index(record &record) {
        (void)by_vsi().add(record);
        (void)by_port().add(record);
    }
    static void unindex(record &record) {
        by_vsi().remove(record);
        by_port().remove(record);
    }
};

struct vpls_vc_fib_kind {
    using entry = dpm_vpls_vc_fib;
    using record = vpls_vc_fib_record;
    static constexpr const char *added_text = "dpm_vpls_vc_fib_add::avl_count=%d\r\n";
    static constexpr const char *deleted_text = "dpm_vpls_vc_fib_del::avl_count=%d\r\n";
    static constexpr const char *mirrored_text = "dpm_vpls_vc_fib_add_for_slave::avl_count=%d\r\n";
    static constexpr const char *unsound_text =
        "%s %d::vpls_id = %d out_label %d vc_peer %d.%d.%d.%d is err!\r\n";
    static constexpr auto add_send = dpm_vpls_vc_fib_add_sync_send;
    static constexpr auto del_send = dpm_vpls_vc_fib_del_sync_send;
    static std::uint32_t id_of(const entry &fib) { return fib.vpls_id; }
    static std::uint32_t label_of(const entry &fib) { return fib.out_label; }
    static vpls_vc_fib_table table() { return vpls_vc_fibs(); }
    static pend_list<entry> pending() { return pend_vpls_vc_fibs(); }
    static auto by_peer() {
        return avl_table<record, far_end_order, offsetof(record, by_peer)>(
            g_dpm_index.vpls_vc_fib_by_peer);
    }
    static int del(entry *fib) { return vpn_del<vpls_vc_fib_kind>(fib); }
    static void index(record &record) { (void)by_peer().add(record); }
    static void unindex(record &record) { by_peer().remove(record); }
};

struct vpls_vc_ilm_kind {
    using entry = dpm_vpls_vc_ilm;
    using record = vpls_vc_ilm_record;
    static constexpr const char *added_text = "dpm_vpls_vc_ilm_add::avl_count=%d\r\n";
    static constexpr const char *deleted_text = "dpm_vpls_vc_ilm_del::avl_count=%d\r\n";
    static constexpr const char *mirrored_text = "dpm_vpls_vc_ilm_add_for_slave::avl_count=%d\r\n";
    static constexpr const char *unsound_text =
        "%s %d::vpls_id = %d in_label %d vc_peer %d.%d.%d.%d is err!\r\n";
    static constexpr auto add_send = dpm_vpls_vc_ilm_add_sync_send;
    static constexpr auto del_send = dpm_vpls_vc_ilm_del_sync_send;
    static std::uint32_t id_of(const entry &ilm) { return ilm.vpls_id; }
    static std::uint32_t label_of(const entry &ilm) { return ilm.in_label; }
    static vpls_vc_ilm_table table() { return vpls_vc_ilms(); }
    static pend_list<entry> pending() { return pend_vpls_vc_ilms(); }
    static int del(entry *ilm) { return vpn_del<vpls_vc_ilm_kind>(ilm); }
    static void index(record &) {}
    static void unindex(record &) {}
};

} // namespace dpm
