// Mirroring: how every table is kept equal on the standby card.
//
// The master sends an entry after each change of it, and the whole table when the peer card comes
// up; the peer's receivers copy what they get and post it, so that it is applied on the peer's own
// worker, in arrival order.  Records travel byte for byte; what is card-local in them is cleared or
// looked up again by the process functions.
//
// A table joins with a description (see mirrored_table), its two process functions and one
// DPM_MIRRORED_TABLE row; its messages join DPM_MESSAGES, its receivers dpm_api.h, and its
// whole-table sender the order of the slave-up process.
//
// Senders run on the worker, receivers on the hot-standby service's thread.
#pragma once

#include "dpm_avltree.h"
#include "dpm_bridge.h"
#include "dpm_msg.h"
#include "dpm_slot.h"
#include "dpm_trace.h"

#include <concepts>
#include <cstdint>
#include <cstring>
#include <span>

namespace dpm {

// What a table tells about itself.
template <class Table>
concept mirrored_table = requires(const typename Table::entry &entry, std::uint32_t slot_bits) {
    {
        Table::add_code
        } -> std::convertible_to<std::uint32_t>; // posted by the receivers of adds and whole tables
    { Table::del_code } -> std::convertible_to<std::uint32_t>;
    { Table::batch_entries } -> std::convertible_to<std::uint32_t>; // of one whole-table message
    {
        Table::trees()
        } -> std::convertible_to<std::span<dpm_avl_tree *const>>; // walked in this order
    {
        Table::driver_sync_text
        } -> std::convertible_to<const char *>; // logged before a slot's chip is re-programmed
    {
        Table::empty_first_text
        } -> std::convertible_to<const char *>; // logged for an empty first tree; null: nothing
    {
        Table::table_sync_text
        } -> std::convertible_to<const char *>; // logged before the table is sent
    // Programs a slot with what the chip holds of this entry; false ends the whole call with -1.
    { Table::reprogram(entry, slot_bits) } -> std::same_as<bool>;
};

// The parts of the family that do not depend on the record; sizes in bytes.
int mirror_send(const void *entry, std::uint32_t size, const char *receiver,
                const call_site &caller);
bool mirror_may_receive(const void *buffer, bool fits, const call_site &caller, int &result);

template <class Entry>
int mirror_receive(std::uint32_t code, const void *buffer, std::uint32_t length,
                   const call_site &caller) {
    int result;
    if (!mirror_may_receive(buffer, length == sizeof(Entry), caller, result))
        return result;
    request<Entry> copy;
    if (!copy)
        return -1;
    std::memcpy(copy.get(), buffer, sizeof(Entry));
    return copy.post(code, {"%s %d::send msg err!\r\n", caller.function, caller.line});
}

// A trailing partial record is ignored; more than a batch cannot have been sent.
template <mirrored_table Table>
int mirror_receive_all(const void *buffer, std::uint32_t length, const call_site &caller) {
    using entry = typename Table::entry;
    if (!dpm_bridge_self_is_slave())
        return 0;
    if (buffer == nullptr || length == 0 || length > Table::batch_entries * sizeof(entry)) {
        DPM_LOG_FROM(caller, "%s %d::len = %d ,the input paramter is null!\r\n", length);
        return -1;
    }
    const auto *bytes = static_cast<const unsigned char *>(buffer);
    for (std::uint32_t at = 0; at + sizeof(entry) <= length; at += sizeof(entry)) {
        request<entry> copy;
        if (!copy)
            return -1;
        std::memcpy(copy.get(), bytes + at, sizeof(entry));
        if (copy.post(Table::add_code,
                      {"%s %d::send msg err!\r\n", caller.function, caller.line}) != 0)
            return -1;
    }
    return 0;
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
    if (mirror_reprogram<Table>(slot, caller) != 0)
        return -1;
    if (slot != dpm_bridge_peer_slot_get())
        return 0;
    return mirror_send_table<Table>(slot, receiver, caller);
}

} // namespace dpm

// The named functions of a table's mirroring, made from its description.  The peer calls the
// receivers by name.
#define DPM_MIRRORED_ENTRY(table, add_send, add_receive, del_send, del_receive)                    \
    int add_send(const table::entry *entry) {                                                      \
        return dpm::mirror_send(entry, sizeof(table::entry), #add_receive, DPM_CALL_SITE);         \
    }                                                                                              \
    int del_send(const table::entry *entry) {                                                      \
        return dpm::mirror_send(entry, sizeof(table::entry), #del_receive, DPM_CALL_SITE);         \
    }                                                                                              \
    int add_receive(const void *buffer, std::uint32_t length_bytes) {                              \
        return dpm::mirror_receive<table::entry>(table::add_code, buffer, length_bytes,            \
                                                 DPM_CALL_SITE);                                   \
    }                                                                                              \
    int del_receive(const void *buffer, std::uint32_t length_bytes) {                              \
        return dpm::mirror_receive<table::entry>(table::del_code, buffer, length_bytes,            \
                                                 DPM_CALL_SITE);                                   \
    }
#define DPM_MIRRORED_TABLE(table, add_send, add_receive, del_send, del_receive, all_send,          \
                           all_receive)                                                            \
    DPM_MIRRORED_ENTRY(table, add_send, add_receive, del_send, del_receive)                        \
    int all_send(std::uint32_t slot) {                                                             \
        return dpm::mirror_send_all<table>(slot, #all_receive, DPM_CALL_SITE);                     \
    }                                                                                              \
    int all_receive(const void *buffer, std::uint32_t length_bytes) {                              \
        return dpm::mirror_receive_all<table>(buffer, length_bytes, DPM_CALL_SITE);                \
    }
