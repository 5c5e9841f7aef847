// Ports of tunnels: on each the chip looks for GRE packets while a GRE next hop leads there.
//
// An entry counts those next hops.  It comes with the first, for which GRE is switched on in the
// chip, and goes with the last.  A port on which the chip goes on looking keeps its entry, without a
// next hop, and is switched off again every 30 seconds.  Every change of the count is mirrored; a
// card that becomes master counts anew.
#include "dpm_tunnel_record.h"

#include "dpm_address.h"
#include "dpm_driver.h"
#include "dpm_mirror.h"
#include "dpm_retry.h"
#include "dpm_trace.h"

#include <utility>

namespace {

constexpr std::uint32_t ingress = 0;
constexpr std::uint32_t gre_on = 1, gre_off = 0; // key types of a port

struct port_record {
    dpm_tunnel_port_entry entry; // first: the table sees this alone
    std::uint32_t sync;          // that brought it
    bool is_left;                // it has no next hop, but the chip would not switch GRE off
};

port_record &record_of(dpm_tunnel_port_entry &port) {
    return reinterpret_cast<port_record &>(port);
}

int set_gre(const dpm_tunnel_port_entry &port, std::uint32_t key_type, std::uint32_t slot_bits) {
    return dpm_driver_port_scl_key_type_set(port.port_type, port.port, port.subport, ingress,
                                            key_type, slot_bits);
}

dpm_tunnel_port_entry port_key(std::uint32_t port_type, std::uint32_t port, std::uint32_t subport) {
    dpm_tunnel_port_entry key = {};
    key.port_type = port_type;
    key.port = port;
    key.subport = subport;
    return key;
}

// A copy in the table, in the place of what is there; null without memory.
dpm_tunnel_port_entry *insert(const dpm_tunnel_port_entry &image) {
    dpm::block<port_record> record;
    if (!record)
        return nullptr;
    record->entry = image;
    (void)dpm::tunnel_ports().add(record->entry);
    return &record.release()->entry;
}

void remove(dpm_tunnel_port_entry &port) {
    dpm::tunnel_ports().remove(port);
    dpm::free_zeroed(&record_of(port));
}

// 0 or -1: the chip goes on.
int switch_off(dpm_tunnel_port_entry &port, const dpm::call_site &caller);

void switch_off_left() {
    for (dpm_tunnel_port_entry &port : dpm::tunnel_ports().erasable())
        if (record_of(port).is_left)
            (void)switch_off(port, {"dpm_tunnel_port_del", __LINE__});
}

int switch_off(dpm_tunnel_port_entry &port, const dpm::call_site &caller) {
    if (set_gre(port, gre_off, DPM_SLOT_ALL_BITS) != 0) {
        DPM_LOG_FROM(caller, "%s %d::driver disable gre failed!\r\n");
        record_of(port).is_left = true;
        dpm::retry_later(g_dpm_index.left_port_timer, switch_off_left);
        return -1;
    }
    (void)dpm_tunnel_port_entry_del_sync_send(&port);
    remove(port);
    return 0;
}

struct tunnel_port_mirror : dpm::mirror_defaults<dpm_tunnel_port_entry> {
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_TUNNEL_PORT,
                          del_code = DPM_MSG_SYNC_DEL_TUNNEL_PORT;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, tunnel_port driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, tunnel_port table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.tunnel_port_tree};
    static void create() { dpm::tunnel_ports().create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool reprogram(const entry &port, std::uint32_t slot_bits) {
        if (port.cnt != 0)
            (void)set_gre(port, gre_on, slot_bits);
        return true;
    }
    static entry *find(const entry &image) { return dpm::tunnel_ports().find(image); }
    static entry *put(const entry &image, entry *present) {
        if (present == nullptr)
            return insert(image);
        present->cnt = image.cnt;
        record_of(*present).is_left = false; // known to the master alone
        return present;
    }
    static void drop(entry &present) { remove(present); }
    static std::uint32_t &sync_of(entry &present) { return record_of(present).sync; }
};

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(tunnel_port_mirror, mirrored_tunnel_ports,
                   dpm_tunnel_port_entry_add_sync_send, dpm_tunnel_port_entry_add_sync_receive,
                   dpm_tunnel_port_entry_add_sync_process,
                   dpm_tunnel_port_entry_del_sync_send, dpm_tunnel_port_entry_del_sync_receive,
                   dpm_tunnel_port_entry_del_sync_process,
                   dpm_tunnel_port_entry_sync_all_send, dpm_tunnel_port_entry_sync_all_receive)
// clang-format on

namespace dpm {

void tunnel_ports_uncount() {
    for (dpm_tunnel_port_entry &port : tunnel_ports()) {
        port.cnt = 0;
        record_of(port).is_left = false;
    }
}

// The master may have switched a port off whose next hop was about to go.
void tunnel_port_count(std::uint32_t port_type, std::uint32_t port) {
    const dpm_tunnel_port_entry key = port_key(port_type, port, 0);
    dpm_tunnel_port_entry *entry = tunnel_ports().find(key);
    if (entry == nullptr && (entry = insert(key)) != nullptr)
        (void)set_gre(*entry, gre_on, DPM_SLOT_ALL_BITS);
    if (entry != nullptr)
        entry->cnt++;
}

void tunnel_ports_drop_uncounted() {
    for (dpm_tunnel_port_entry &port : tunnel_ports().erasable())
        if (port.cnt == 0)
            remove(port);
}

} // namespace dpm

int dpm_tunnel_port_add(std::uint32_t port_type, std::uint32_t port, std::uint32_t subport) {
    const dpm_tunnel_port_entry key = port_key(port_type, port, subport);
    dpm_tunnel_port_entry *entry = dpm::tunnel_ports().find(key);
    const bool is_new = entry == nullptr;
    if (is_new && (entry = insert(key)) == nullptr)
        return -1;
    if (entry->cnt == 0 && set_gre(*entry, gre_on, DPM_SLOT_ALL_BITS) != 0) {
        DPM_TRACE("%s %d::driver enable gre failed!\r\n");
        if (is_new) // it stays, with nothing to count
            (void)dpm_tunnel_port_entry_add_sync_send(entry);
        return -1;
    }
    if (!std::exchange(record_of(*entry).is_left, false)) // else the count is that of this one
        entry->cnt++;
    (void)dpm_tunnel_port_entry_add_sync_send(entry);
    return 0;
}

int dpm_tunnel_port_del(std::uint32_t port_type, std::uint32_t port, std::uint32_t subport) {
    dpm_tunnel_port_entry *entry = dpm::tunnel_ports().find(port_key(port_type, port, subport));
    if (entry == nullptr) {
        DPM_TRACE("%s %d::not find port_entry, port_type %d port %d sub_port %d\r\n", port_type,
                  port, subport);
        return -1;
    }
    if (entry->cnt == 1)
        return switch_off(*entry, DPM_CALL_SITE);
    if (entry->cnt == 0) {
        DPM_TRACE("%s %d::Not enable gre!port_type %d port %d sub_port %d cnt %d\r\n", port_type,
                  port, subport, entry->cnt);
        return -1;
    }
    entry->cnt--;
    (void)dpm_tunnel_port_entry_add_sync_send(entry);
    return 0;
}
