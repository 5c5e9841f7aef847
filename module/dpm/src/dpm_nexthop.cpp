// Next hops: one object of the chip for each distinct neighbour, shared by the hosts behind it.
//
// An entry is created with the first host that needs it, counts its hosts, and goes with the last.
// The host table is the only one that takes references.  Every change of the count is mirrored, so
// that the indexes survive a switch-over.  There the count is taken anew: the master may have died
// between mirroring it and the host.  Beside each entry, card-locally, stands its place in the index
// by chip index.
#include "dpm_nexthop.h"

#include "dpm.h"
#include "dpm_address.h"
#include "dpm_driver.h"
#include "dpm_mirror.h"
#include "dpm_trace.h"

namespace {

constexpr std::uint16_t cnt_max = 0xFFFF;

struct nexthop_record {
    dpm_nexthop_entry entry; // first: the table sees this alone
    dpm_avl_node by_index;
    std::uint32_t sync; // that brought it
};

int index_order(const nexthop_record &a, const nexthop_record &b) {
    if (a.entry.sdk_index != b.entry.sdk_index)
        return dpm::three_way(a.entry.sdk_index, b.entry.sdk_index);
    return dpm_nexthop_compare(a.entry, b.entry);
}

using index_table = dpm::avl_table<nexthop_record, index_order, offsetof(nexthop_record, by_index)>;
index_table by_index() {
    return index_table(g_dpm_index.nexthop_by_sdk_index);
}

nexthop_record &record_of(dpm_nexthop_entry &entry) {
    return reinterpret_cast<nexthop_record &>(entry);
}

dpm_nexthop_entry nexthop_key(std::uint32_t port_type, std::uint32_t port_id,
                              const std::uint8_t *mac, std::uint32_t svlan, std::uint32_t cvlan) {
    dpm_nexthop_entry key = {};
    std::memcpy(key.mac, mac, sizeof key.mac);
    key.svlan = svlan;
    key.cvlan = cvlan;
    key.port_type = port_type;
    key.port_id = port_id;
    return key;
}

// Puts a copy of an entry into the table and its index; null when memory has run out.
dpm_nexthop_entry *insert(const dpm_nexthop_entry &entry) {
    dpm::block<nexthop_record> record;
    if (!record)
        return nullptr;
    record->entry = entry;
    (void)dpm::nexthops().add(record->entry);
    (void)by_index().add(*record);
    return &record.release()->entry;
}

void unlink(dpm_nexthop_entry &entry) {
    by_index().remove(record_of(entry));
    dpm::nexthops().remove(entry);
}

void free_nexthop(dpm_nexthop_entry &entry) {
    dpm::free_zeroed(&record_of(entry));
}

struct nexthop_mirror : dpm::mirror_defaults<dpm_nexthop_entry> {
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_NEXTHOP, del_code = DPM_MSG_SYNC_DEL_NEXTHOP;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, nexthop driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, nexthop table sync.\r\n";
    static void create() {
        dpm::nexthops().create();
        by_index().create();
    }
    static std::span<dpm_avl_tree *const> trees() {
        static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.nexthop_tree};
        return list;
    }
    static bool reprogram(const dpm_nexthop_entry &nexthop, std::uint32_t slot_bits) {
        // What the chip answers for one slot is not kept.
        std::uint32_t sdk_index = nexthop.sdk_index;
        (void)dpm_driver_add_nexthop(nexthop.port_type, nexthop.port_id, nexthop.mac, nexthop.svlan,
                                     nexthop.cvlan, &sdk_index, slot_bits);
        return true;
    }
    static entry *find(const entry &image) { return dpm::nexthops().find(image); }
    static entry *put(const entry &image, entry *present) {
        if (present == nullptr)
            return insert(image);
        present->cnt = image.cnt;
        return present;
    }
    static void drop(entry &present) {
        g_dpm_index.nexthop_gone = present.sdk_index;
        unlink(present);
        free_nexthop(present);
    }
    static std::uint32_t &sync_of(entry &present) { return record_of(present).sync; }
};

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(nexthop_mirror, mirrored_nexthops,
                   dpm_nexthop_entry_add_sync_send, dpm_nexthop_entry_add_sync_receive,
                   dpm_nexthop_entry_add_sync_process,
                   dpm_nexthop_entry_del_sync_send, dpm_nexthop_entry_del_sync_receive,
                   dpm_nexthop_entry_del_sync_process,
                   dpm_nexthop_entry_sync_all_send, dpm_nexthop_entry_sync_all_receive)
// clang-format on

namespace dpm {

nexthop_table nexthops() {
    return nexthop_table(g_dpm_global.nexthop_tree);
}

void nexthops_uncount() {
    for (dpm_nexthop_entry &entry : nexthops())
        entry.cnt = 0;
}

bool nexthop_count(std::uint32_t sdk_index) {
    dpm_nexthop_entry *entry = dpm_nexthop_find_by_index(sdk_index);
    if (entry != nullptr)
        entry->cnt++;
    return entry != nullptr || sdk_index != g_dpm_index.nexthop_gone;
}

void nexthops_drop_uncounted() {
    for (dpm_nexthop_entry &entry : nexthops().erasable())
        if (entry.cnt == 0)
            nexthop_mirror::drop(entry);
}

} // namespace dpm

// deliberate: the port type is no part of the key, so a trunk and a port of one number and
// neighbour share an entry
int dpm_nexthop_compare(const dpm_nexthop_entry &a, const dpm_nexthop_entry &b) {
    if (const int order = dpm::bytes_order(a.mac, b.mac, sizeof a.mac))
        return order;
    if (a.svlan != b.svlan)
        return dpm::three_way(a.svlan, b.svlan);
    if (a.cvlan != b.cvlan)
        return dpm::three_way(a.cvlan, b.cvlan);
    return dpm::three_way(a.port_id, b.port_id);
}

int dpm_nexthop_add(std::uint32_t port_type, std::uint32_t port_id, const std::uint8_t *mac,
                    std::uint32_t svlan, std::uint32_t cvlan, std::uint32_t *sdk_index,
                    std::uint32_t slot_bits) {
    if (mac == nullptr || sdk_index == nullptr)
        return dpm::null_parameter();
    dpm_nexthop_entry key = nexthop_key(port_type, port_id, mac, svlan, cvlan);
    dpm_nexthop_entry *entry = dpm::nexthops().find(key);
    if (entry != nullptr) {
        if (entry->cnt == cnt_max)
            return -1;
        entry->cnt++;
    } else {
        const int result = dpm_driver_add_nexthop(port_type, port_id, mac, svlan, cvlan,
                                                  &key.sdk_index, slot_bits);
        if (result != 0)
            return result;
        key.cnt = 1;
        entry = insert(key);
        if (entry == nullptr)
            return -1; // deliberate: the chip's object stays
    }
    *sdk_index = entry->sdk_index;
    (void)dpm_nexthop_entry_add_sync_send(entry);
    return 0;
}

int dpm_nexthop_del(std::uint32_t port_type, std::uint32_t port_id, const std::uint8_t *mac,
                    std::uint32_t svlan, std::uint32_t cvlan, std::uint32_t sdk_index,
                    std::uint32_t slot_bits) {
    if (mac == nullptr)
        return dpm::null_parameter();
    dpm_nexthop_entry *entry =
        dpm::nexthops().find(nexthop_key(port_type, port_id, mac, svlan, cvlan));
    if (entry == nullptr || entry->sdk_index != sdk_index)
        return 0;
    if (entry->cnt != 1) {
        entry->cnt--;
        (void)dpm_nexthop_entry_add_sync_send(entry); // the peer's copy takes the new count
        return 0;
    }
    const int result = dpm_driver_del_nexthop(sdk_index, slot_bits);
    if (result != 0)
        return result;
    unlink(*entry);
    (void)dpm_nexthop_entry_del_sync_send(entry);
    free_nexthop(*entry);
    return 0;
}

dpm_nexthop_entry *dpm_nexthop_find_by_index(std::uint32_t sdk_index) {
    nexthop_record key = {};
    key.entry.sdk_index = sdk_index;
    nexthop_record *record = by_index().find_from(key);
    return record != nullptr && record->entry.sdk_index == sdk_index ? &record->entry : nullptr;
}
