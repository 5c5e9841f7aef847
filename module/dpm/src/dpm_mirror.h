// Mirroring: how every table is kept equal on the standby card.
//
// The master sends an entry after each change of it, and the whole table when the peer card comes
// up; the peer's receivers copy what they get and post it, so that it is applied on the peer's own
// worker, in arrival order.  Records travel byte for byte; what is card-local in them is cleared or
// looked up again there.
//
// When the whole tables travel, a sync, what the peer has from before is not to be trusted: entries
// were deleted meanwhile, and chip indexes are another chip object's.  So each entry remembers the
// sync that brought it.  While a sync runs, what an earlier one brought counts as not there, and
// when it ends, that goes.
//
// A table joins with a description (see mirrored_table) and one DPM_MIRRORED_TABLE row in its
// source; its messages join DPM_MESSAGES, its receivers DPM_RECEIVERS, and the table DPM_TABLES.
//
// Senders and process functions run on the worker, receivers on the hot-standby service's thread.
#pragma once

#include "dpm_avltree.h"
#include "dpm_bridge.h"
#include "dpm_msg.h"
#include "dpm_slot.h"
#include "dpm_tables.h"
#include "dpm_trace.h"

#include <concepts>
#include <cstdint>
#include <cstring>
#include <span>

namespace dpm {

// What a table tells about itself.
//   entry             the record
//   add_code          posted by the receivers of adds and whole tables
//   del_code          posted by the receiver of deletes
//   batch_entries     of one whole-table message
//   driver_sync_text  logged before a slot's chip is re-programmed; null: slots are not
//   empty_first_text  logged then for an empty first tree; null: nothing
//   table_sync_text   logged before the table is sent
//   create()          makes the trees and what stands beside them
//   trees()           what is walked, in this order
//   reprogram()       programs a slot with what the chip holds of an entry; false ends the walk: -1
// On the standby card:
//   localise_key()    gives a received image this card's key; false, told in the log: it has none
//   localise()        the same for all else that is card-local in it
//   find()            the entry with the image's key, or null
//   put()             keeps the image, in the place of that entry if there is one; the entry that
//                     it became, or null without memory
//   drop()            takes an entry out of the table and frees it
//   sync_of()         what stands beside an entry: the number of the sync that brought it
//   stays()           where there is one: a delete is of something else than the entry, which is kept
//                     as the image says
template <class Table>
concept mirrored_table = requires(typename Table::entry &image, const typename Table::entry &entry,
                                  typename Table::entry *present, std::uint32_t slot_bits,
                                  const call_site &caller) {
    { Table::add_code } -> std::convertible_to<std::uint32_t>;
    { Table::del_code } -> std::convertible_to<std::uint32_t>;
    { Table::batch_entries } -> std::convertible_to<std::uint32_t>;
    { Table::driver_sync_text } -> std::convertible_to<const char *>;
    { Table::empty_first_text } -> std::convertible_to<const char *>;
    { Table::table_sync_text } -> std::convertible_to<const char *>;
    { Table::create() } -> std::same_as<void>;
    { Table::trees() } -> std::convertible_to<std::span<dpm_avl_tree *const>>;
    { Table::reprogram(entry, slot_bits) } -> std::same_as<bool>;
    { Table::localise_key(image, caller) } -> std::same_as<bool>;
    { Table::localise(image, caller) } -> std::same_as<bool>;
    { Table::find(entry) } -> std::same_as<typename Table::entry *>;
    { Table::put(entry, present) } -> std::same_as<typename Table::entry *>;
    { Table::drop(*present) } -> std::same_as<void>;
    { Table::sync_of(*present) } -> std::same_as<std::uint32_t &>;
};

// What most tables have in common, to derive a description from.
template <class Entry> struct mirror_defaults {
    using entry = Entry;
    static constexpr std::uint32_t batch_entries = 100;
    static constexpr const char *empty_first_text = nullptr;
    static bool localise_key(Entry &, const call_site &) { return true; }
    static bool localise(Entry &, const call_site &) { return true; }
};

// The parts of the family that do not depend on the record; sizes in bytes.
int mirror_send(const void *entry, std::uint32_t size, const char *receiver,
                const call_site &caller);
bool mirror_may_receive(const void *buffer, bool fits, const call_site &caller, int &result);

// Records that did not reach the worker, or that it could not keep.  Any thread.
void sync_lost();
void sync_begin_lost();
std::uint32_t sync_lost_so_far();

// No sync runs and nothing is lost; at start-up.
void sync_init();

// The sync that this card gets; on the worker.  One that never ended is forgotten with the next.
void sync_begin(std::uint32_t lost_before);
std::uint32_t sync_number(); // 0 while none runs
bool sync_is_whole();        // nothing was lost since it began, its begin neither
void sync_end();

template <class Entry>
int mirror_post(std::uint32_t code, const void *record, const call_site &caller) {
    const int result =
        post_copy<Entry>(record, code, {"%s %d::send msg err!\r\n", caller.function, caller.line});
    if (result != 0)
        sync_lost();
    return result;
}

template <class Entry>
int mirror_receive(std::uint32_t code, const void *buffer, std::uint32_t length,
                   const call_site &caller) {
    int result;
    if (!mirror_may_receive(buffer, length == sizeof(Entry), caller, result))
        return result;
    return mirror_post<Entry>(code, buffer, caller);
}

// A trailing partial record is ignored; more than the queue holds cannot have been sent.
template <mirrored_table Table>
int mirror_receive_all(const void *buffer, std::uint32_t length, const call_site &caller) {
    using entry = typename Table::entry;
    if (!dpm_bridge_self_is_slave())
        return 0;
    if (buffer == nullptr || length == 0 || length / sizeof(entry) > DPM_QUEUE_MESSAGES) {
        DPM_LOG_FROM(caller, "%s %d::len = %d ,the input paramter is null!\r\n", length);
        return -1;
    }
    const auto *bytes = static_cast<const unsigned char *>(buffer);
    for (std::uint32_t at = 0; at + sizeof(entry) <= length; at += sizeof(entry))
        if (mirror_post<entry>(Table::add_code, bytes + at, caller) != 0)
            return -1;
    return 0;
}

// Whether an entry is to be trusted: no sync runs, or the one that runs has brought it.
template <mirrored_table Table> bool is_renewed(typename Table::entry &entry) {
    return sync_number() == 0 || Table::sync_of(entry) == sync_number();
}

// The entry with an image's key.  One that the sync which runs has not renewed is dropped first.
template <mirrored_table Table>
typename Table::entry *find_renewed(const typename Table::entry &image) {
    typename Table::entry *present = Table::find(image);
    if (present == nullptr || is_renewed<Table>(*present))
        return present;
    Table::drop(*present);
    return nullptr;
}

// A mirrored add: the image takes the place of the entry with its key.
template <mirrored_table Table>
int mirror_add(const typename Table::entry *received, const call_site &caller) {
    if (received == nullptr)
        return null_parameter(caller.function, caller.line);
    typename Table::entry image = *received;
    if (!Table::localise_key(image, caller) || !Table::localise(image, caller))
        return -1;
    typename Table::entry *kept = Table::put(image, find_renewed<Table>(image));
    if (kept == nullptr)
        return sync_lost(), -1;
    Table::sync_of(*kept) = sync_number();
    return 0;
}

template <mirrored_table Table>
int mirror_del(const typename Table::entry *received, const call_site &caller) {
    if (received == nullptr)
        return null_parameter(caller.function, caller.line);
    typename Table::entry image = *received;
    if constexpr (requires { Table::stays(image); })
        if (Table::stays(image))
            return mirror_add<Table>(received, caller);
    if (!Table::localise_key(image, caller))
        return -1;
    if (typename Table::entry *present = Table::find(image))
        Table::drop(*present);
    return 0;
}

// At the end of a sync: what it did not bring goes, from this card's table alone.  How many.
template <mirrored_table Table> std::uint32_t mirror_drop_old() {
    std::uint32_t dropped = 0;
    for (dpm_avl_tree *tree : Table::trees())
        for (void *at = dpm_avl_first(tree), *next; at != nullptr; at = next) {
            next = dpm_avl_next(tree, at);
            auto &entry = *static_cast<typename Table::entry *>(at);
            if (is_renewed<Table>(entry))
                continue;
            Table::drop(entry);
            dropped++;
        }
    return dropped;
}

// Notices that a peer card which was there has gone.  A peer that was never there does not stop a
// walk.
class peer_watch {
public:
    explicit peer_watch(const call_site &caller)
        : caller_(caller), was_there_(dpm_bridge_peer_is_exist() == 1) {}
    bool lost() const {
        if (!was_there_ || dpm_bridge_peer_is_exist() == 1)
            return false;
        DPM_LOG_FROM(caller_, "%s %d::peer is not exist!\r\n");
        return true;
    }

private:
    const call_site &caller_;
    const bool was_there_;
};

// Calls `visit(entry)` for every entry of a table's trees in order until it answers false.
template <mirrored_table Table, class Visit> void mirror_walk(Visit visit) {
    for (dpm_avl_tree *tree : Table::trees())
        for (void *at = dpm_avl_first(tree); at != nullptr; at = dpm_avl_next(tree, at))
            if (!visit(*static_cast<const typename Table::entry *>(at)))
                return;
}

// Programs the chip of the slot that came up with what the table holds in the chip.  0 or -1.
template <mirrored_table Table> int mirror_reprogram(std::uint32_t slot, const call_site &caller) {
    const std::uint32_t slot_bits = dpm_slot_obj_bit_get(slot);
    DPM_LOG_FROM(caller, Table::driver_sync_text, slot_bits);
    if constexpr (Table::empty_first_text != nullptr)
        if (dpm_avl_is_empty(Table::trees()[0]))
            DPM_LOG_FROM(caller, Table::empty_first_text);
    const peer_watch peer(caller);
    int result = 0;
    mirror_walk<Table>([&](const typename Table::entry &entry) {
        if (!Table::reprogram(entry, slot_bits))
            result = -1;
        return result == 0 && !peer.lost();
    });
    return result;
}

// Whole-table messages in the making: one buffer, sent and started over when it holds a batch.
template <mirrored_table Table> class mirror_batch {
    using entry = typename Table::entry;

public:
    explicit mirror_batch(const char *receiver) : receiver_(receiver) {}
    explicit operator bool() const { return static_cast<bool>(buffer_); }

    void put(const entry &record) {
        std::memcpy(buffer_->bytes + count_ * sizeof(entry), &record, sizeof(entry));
        if (++count_ == Table::batch_entries)
            flush();
    }
    void flush() {
        if (count_ != 0) // lost messages are not repeated: the next whole-table send carries them
            (void)dpm_bridge_sync_send(receiver_, buffer_->bytes, count_ * sizeof(entry));
        count_ = 0;
    }

private:
    struct room {
        unsigned char bytes[Table::batch_entries * sizeof(entry)];
    };
    block<room> buffer_;
    const char *receiver_;
    std::uint32_t count_ = 0;
};

template <mirrored_table Table>
int mirror_send_table(std::uint32_t slot, const char *receiver, const call_site &caller) {
    DPM_LOG_FROM(caller, Table::table_sync_text, slot);
    mirror_batch<Table> batch(receiver);
    if (!batch)
        return -1;
    mirror_walk<Table>([&](const typename Table::entry &entry) {
        batch.put(entry);
        if (dpm_bridge_peer_is_exist() == 1)
            return true;
        DPM_LOG_FROM(caller, "%s %d::peer is not exist!\r\n");
        return false;
    });
    batch.flush();
    return 0;
}

// A slot came up: its chip is re-programmed and, when it is the peer card's slot, the table is sent
// there.
template <mirrored_table Table>
int mirror_send_all(std::uint32_t slot, const char *receiver, const call_site &caller) {
    if (dpm_bridge_self_is_slave()) {
        DPM_LOG_FROM(caller, "%s %d::it is slave.\r\n");
        return 0;
    }
    if constexpr (Table::driver_sync_text != nullptr)
        if (mirror_reprogram<Table>(slot, caller) != 0)
            return -1;
    if (slot != dpm_bridge_peer_slot_get())
        return 0;
    return mirror_send_table<Table>(slot, receiver, caller);
}

} // namespace dpm

// The named functions of a table's mirroring, made from its description.  The peer calls the
// receivers by name.
#define DPM_MIRRORED_ENTRIES(description, add_send, add_receive, add_process, del_send,            \
                             del_receive, del_process, all_receive)                                \
    int add_send(const description::entry *entry) {                                                \
        return dpm::mirror_send(entry, sizeof *entry, #add_receive, DPM_CALL_SITE);                \
    }                                                                                              \
    int del_send(const description::entry *entry) {                                                \
        return dpm::mirror_send(entry, sizeof *entry, #del_receive, DPM_CALL_SITE);                \
    }                                                                                              \
    int add_receive(const void *buffer, std::uint32_t length_bytes) {                              \
        return dpm::mirror_receive<description::entry>(description::add_code, buffer,              \
                                                       length_bytes, DPM_CALL_SITE);               \
    }                                                                                              \
    int del_receive(const void *buffer, std::uint32_t length_bytes) {                              \
        return dpm::mirror_receive<description::entry>(description::del_code, buffer,              \
                                                       length_bytes, DPM_CALL_SITE);               \
    }                                                                                              \
    int all_receive(const void *buffer, std::uint32_t length_bytes) {                              \
        return dpm::mirror_receive_all<description>(buffer, length_bytes, DPM_CALL_SITE);          \
    }                                                                                              \
    int add_process(const description::entry *entry) {                                             \
        return dpm::mirror_add<description>(entry, DPM_CALL_SITE);                                 \
    }                                                                                              \
    int del_process(const description::entry *entry) {                                             \
        return dpm::mirror_del<description>(entry, DPM_CALL_SITE);                                 \
    }

// The same, its whole-table sender, and its entry in the list of tables.
#define DPM_MIRRORED_TABLE(description, table, add_send, add_receive, add_process, del_send,       \
                           del_receive, del_process, all_send, all_receive)                        \
    DPM_MIRRORED_ENTRIES(description, add_send, add_receive, add_process, del_send, del_receive,   \
                         del_process, all_receive)                                                 \
    int all_send(std::uint32_t slot) {                                                             \
        return dpm::mirror_send_all<description>(slot, #all_receive, DPM_CALL_SITE);               \
    }                                                                                              \
    constexpr dpm::mirrored dpm::table = {description::create, all_send,                           \
                                          dpm::mirror_drop_old<description>};
