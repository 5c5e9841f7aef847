// What the tables of the VPN context have in common: label entries, pseudowires and their attachment
// circuits.
//
// An entry is made from an image of its record, and may wait on a pend list (dpm_pend.h) until it
// is programmed.
#pragma once

#include "dpm_memory.h"
#include "dpm_pend.h"
#include "dpm_trace.h"

#include <concepts>

namespace dpm {

// What a table tells about itself.
//   entry    the record; its member `pend` is the node on the pend list, if there is one
//   record   what stands in the block: the entry first, then what is beside it
//   table()  the tree
//   del()    unlinks and frees an entry; 0 or -1
//   index()  puts a record that the table took into the indexes beside it; unindex() takes it out
template <class Kind>
concept vpn_table = requires(typename Kind::entry &entry, typename Kind::record &record) {
    { Kind::table().find(entry) } -> std::same_as<typename Kind::entry *>;
    { Kind::del(&entry) } -> std::same_as<int>;
    { Kind::index(record) } -> std::same_as<void>;
    { Kind::unindex(record) } -> std::same_as<void>;
};

template <vpn_table Kind> typename Kind::record &record_of(typename Kind::entry &entry) {
    return reinterpret_cast<typename Kind::record &>(entry);
}

// A copy of the image in the table; null without memory.  The entry that is present with its key
// is the answer then, unless it is to be replaced.
template <vpn_table Kind>
typename Kind::entry *vpn_insert(const typename Kind::entry &image, bool replaces = false) {
    block<typename Kind::record> record;
    if (!record)
        return nullptr;
    record->entry = image;
    if constexpr (requires { record->entry.pend; })
        INIT_LIST_HEAD(pend_link(record->entry));
    dpm_avl_where where;
    typename Kind::entry *present = Kind::table().find(image, where);
    if (present == nullptr) {
        Kind::table().insert(record->entry, where);
    } else if (replaces) {
        (void)Kind::del(present);
        (void)Kind::table().add(record->entry);
    } else {
        return present;
    }
    Kind::index(*record);
    return &record.release()->entry;
}

template <vpn_table Kind> void vpn_remove(typename Kind::entry &entry) {
    Kind::unindex(record_of<Kind>(entry));
    Kind::table().remove(entry);
    free_zeroed(&record_of<Kind>(entry));
}

template <class Entry> void vpn_unpend(Entry &entry) {
    if constexpr (requires { entry.pend; })
        if (is_pending(entry))
            list_del_init(pend_link(entry));
}

// The following are the operations of a layer-2 table, which tells besides
//   added_text, deleted_text, mirrored_text   logged with the count, the second before and after
//   pending()                                 the list of those that wait, if there is one
// and whose flags are DPM_LABEL_*.

template <vpn_table Kind>
auto vpn_add(const typename Kind::entry &image) -> typename Kind::entry * {
    auto *entry = vpn_insert<Kind>(image);
    if (entry != nullptr)
        DPM_PLAIN(Kind::added_text, Kind::table().count());
    return entry;
}

template <vpn_table Kind> int vpn_del(typename Kind::entry *entry) {
    if (entry == nullptr)
        return -1;
    vpn_unpend(*entry);
    DPM_PLAIN(Kind::deleted_text, Kind::table().count());
    vpn_remove<Kind>(*entry);
    DPM_PLAIN(Kind::deleted_text, Kind::table().count());
    return 0;
}

// One that is there already comes to stand as the newest.
template <vpn_table Kind> int vpn_pend_add(typename Kind::entry *entry) {
    if (entry == nullptr)
        return -1;
    vpn_unpend(*entry);
    Kind::pending().add(*entry);
    DPM_PLAIN("list_empty=%d\n\r", Kind::pending().empty());
    return 0;
}

template <vpn_table Kind> int vpn_pend_del(typename Kind::entry *entry) {
    if (entry == nullptr || Kind::pending().empty())
        return -1;
    vpn_unpend(*entry);
    return 0;
}

// The newest with the key of another one; null when none waits.
template <class Entry>
Entry *vpn_find_pending(pend_list<Entry> list, const Entry &key,
                        int (*compare)(const Entry *, const Entry *)) {
    for (Entry &entry : list)
        if (compare(&entry, &key) == 0)
            return &entry;
    return nullptr;
}

// The entry that was there with the key goes, and with it its place on the pend list.
template <vpn_table Kind>
auto vpn_add_mirrored(const typename Kind::entry &image) -> typename Kind::entry * {
    auto *entry = vpn_insert<Kind>(image, true);
    if (entry == nullptr)
        return nullptr;
    DPM_PLAIN(Kind::mirrored_text, Kind::table().count());
    if constexpr (requires { entry->pend; })
        if (entry->flags == DPM_LABEL_WAITING)
            (void)vpn_pend_add<Kind>(entry);
    return entry;
}

} // namespace dpm
