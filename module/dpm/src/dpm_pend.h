// Lists of entries that wait to be programmed, the newest first: label entries, pseudowires.
//
// The entries belong to their tables and carry the list's node as their member `pend`.  Their
// records are packed as the routing suite lays them out: members are copied, never referred to, and
// the node is reached by its offset.
#pragma once

#include "dpm_list.h"

#include <cstddef>

namespace dpm {

// The node of an entry.
template <class Entry> list_head *pend_link(Entry &entry) {
    return reinterpret_cast<list_head *>(reinterpret_cast<char *>(&entry) + offsetof(Entry, pend));
}

// Whether an entry waits; it is linked to itself while it does not, and to nothing before it stands in
// a table.
template <class Entry> bool is_pending(Entry &entry) {
    const list_head *link = pend_link(entry);
    return link->next != nullptr && !list_empty(link);
}

// The list behind a head.
template <class Entry> class pend_list : public list_view<Entry, offsetof(Entry, pend)> {
public:
    explicit pend_list(list_head &head)
        : list_view<Entry, offsetof(Entry, pend)>(head), head_(&head) {}

    // As the newest.
    void add(Entry &entry) const { list_add(pend_link(entry), head_); }
    void remove(Entry &entry) const { list_del_init(pend_link(entry)); }

private:
    list_head *head_;
};

} // namespace dpm
