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

// The list behind a head; IsSame tells whether two entries have one key.
template <class Entry, bool (*IsSame)(const Entry &, const Entry &)>
class pend_list : public list_view<Entry, offsetof(Entry, pend)> {
public:
    explicit pend_list(list_head &head)
        : list_view<Entry, offsetof(Entry, pend)>(head), head_(&head) {}

    Entry *find(const Entry &key) const {
        for (Entry &entry : *this)
            if (IsSame(entry, key))
                return &entry;
        return nullptr;
    }

    // In front, from wherever it stood.
    void add(Entry &entry) const {
        list_del_init(pend_link(entry));
        list_add(pend_link(entry), head_);
    }

    // 0, or -1 for null or an empty list.
    int remove(Entry *entry) const {
        if (entry == nullptr || this->empty())
            return -1;
        list_del_init(pend_link(*entry));
        return 0;
    }

    // Takes an entry off, unless no entry with its key waits.
    void forget(Entry &entry) const {
        if (find(entry) != nullptr)
            list_del_init(pend_link(entry));
    }

private:
    list_head *head_;
};

} // namespace dpm
