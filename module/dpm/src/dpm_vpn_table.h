// What the tables of the VPN context have in common: label entries today, pseudowires and their
// attachment circuits by the same steps.
//
// An entry is made from an image of its record, and may wait on a pend list (dpm_pend.h) until it
// is programmed.
#pragma once

#include "dpm_memory.h"
#include "dpm_pend.h"

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

} // namespace dpm
