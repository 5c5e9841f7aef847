// Hosts on the two cards: how they travel to the standby, and what a card that becomes master does.
#include "dpm_host_record.h"

#include "dpm.h"
#include "dpm_if.h"
#include "dpm_mirror.h"
#include "dpm_nexthop.h"
#include "dpm_policy_route.h"

namespace {

struct host_mirror : dpm::mirror_defaults<dpm_host_entry> {
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_HOST, del_code = DPM_MSG_SYNC_DEL_HOST;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, host driver sync.\r\n";
    static constexpr const char *empty_first_text = "%s %d::ipv4 host tree is null.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, host table sync.\r\n";
    static void create() {
        dpm::ipv4_hosts().create();
        dpm::ipv6_hosts().create();
        dpm::hold_index_create();
        dpm::unreachable_index_create();
    }
    static std::span<dpm_avl_tree *const> trees() {
        static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.host_ipv4_tree,
                                                       &g_dpm_global.host_ipv6_tree};
        return list;
    }
    static bool reprogram(const dpm_host_entry &host, std::uint32_t slot_bits) {
        if (!dpm::is_known_family(host.ip.family))
            return false;
        if (record_of(host).in_chip)
            (void)dpm::program_host(host, slot_bits);
        return true;
    }
    static bool localise_key(entry &image, const dpm::call_site &caller) {
        if (!dpm::is_iptype(image.ip.family, caller))
            return false;
        image.ip.prefix_len = dpm::host_bits(image.ip.family);
        image.ifname[sizeof image.ifname - 1] = '\0';
        image.ifindex = dpm_if_get_ifindexbyname(image.ifname);
        return true;
    }
    static bool localise(entry &image, const dpm::call_site &) {
        image.node = {};
        std::memset(image.card_local, 0, sizeof image.card_local);
        return true;
    }
    static entry *find(const entry &image) { return dpm_host_find_by_entry(&image); }
    static entry *put(const entry &image, entry *present) {
        dpm::block<host_record> record;
        if (!record)
            return nullptr;
        record->entry = image;
        record->in_chip = !dpm::is_linklocal(image.ip); // the master has programmed it
        record->is_announced = true;
        if (present != nullptr)
            drop(*present);
        dpm::link_host(record->entry);
        (void)dpm_policy_route_host_notify(&record->entry, DPM_HOST_ADDED);
        return &record.release()->entry;
    }
    static void drop(entry &present) {
        dpm::unlink_host(present);
        (void)dpm_policy_route_host_notify(&present, DPM_HOST_DELETED);
        dpm::free_host(present);
    }
    static std::uint32_t &sync_of(entry &present) { return record_of(present).sync; }
};

// After a switch-over: hosts that answer are reported again, the others age out where they are
// reported from.
void ask_again(const dpm_host_entry &host) {
    dpm::drop_neighbour(host.vrf, host.ifindex, host.ip);
    (void)dpm_host_unreachable_add(host.vrf, host.ifindex, &host.ip, DPM_SWITCHOVER_PROBES);
}

// Next hops count their hosts anew.  A next hop goes right before its last host.
template <class Table> void count_nexthops(const Table &table) {
    for (dpm_host_entry &host : table.erasable())
        if (!dpm::nexthop_count(host.sdk_index))
            host_mirror::drop(host);
}

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(host_mirror, mirrored_hosts,
                   dpm_host_entry_add_sync_send, dpm_host_entry_add_sync_receive,
                   dpm_host_entry_add_sync_process,
                   dpm_host_entry_del_sync_send, dpm_host_entry_del_sync_receive,
                   dpm_host_entry_del_sync_process,
                   dpm_host_entry_sync_all_send, dpm_host_entry_sync_all_receive)
// clang-format on

int dpm_host_start_delete_time() {
    dpm::nexthops_uncount();
    count_nexthops(dpm::ipv4_hosts());
    count_nexthops(dpm::ipv6_hosts());
    dpm::nexthops_drop_uncounted();
    if (dpm::ipv4_hosts().empty())
        DPM_TRACE("%s %d:: ipv4 host tree is null!\r\n");
    for (const dpm_host_entry &host : dpm::ipv4_hosts())
        ask_again(host);
    for (const dpm_host_entry &host : dpm::ipv6_hosts())
        ask_again(host);
    return 0;
}
