// Circular doubly linked lists with a sentinel head: the classic primitives, and a typed view with
// two loops.
//
//   for (dpm_if_entry &entry : interfaces())              // the body must not remove entries
//   for (dpm_if_entry &entry : interfaces().erasable())   // the body may remove the current entry
//
// An entry that is on no list is linked to itself.
#pragma once

#include "dpm_api.h"

#include <cstddef>
#include <type_traits>

inline void INIT_LIST_HEAD(list_head *head) {
    head->next = head;
    head->prev = head;
}

// Inserts `entry` right behind `place` (behind the head: as the first).
inline void list_add(list_head *entry, list_head *place) {
    entry->next = place->next;
    entry->prev = place;
    place->next->prev = entry;
    place->next = entry;
}

// Inserts `entry` right before `place` (before the head: as the last).
inline void list_add_tail(list_head *entry, list_head *place) {
    list_add(entry, place->prev);
}

inline void list_del(list_head *entry) {
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
}

inline void list_del_init(list_head *entry) {
    list_del(entry);
    INIT_LIST_HEAD(entry);
}

inline bool list_empty(const list_head *head) {
    return head->next == head;
}

namespace dpm {

// The list behind a head, of entries that are linked through their member `Link`: a pointer to that
// member, or its offset where a record is packed.
template <class Entry, auto Link> class list_view {
public:
    explicit list_view(list_head &head) : head_(&head) {}

    static Entry &entry_of(list_head *link) {
        return *reinterpret_cast<Entry *>(reinterpret_cast<char *>(link) - link_offset());
    }

    Entry *first() const { return at(head_->next); }
    Entry *next(const Entry &entry) const { return at(link_of(entry)->next); }
    bool empty() const { return list_empty(head_); }

    template <bool Erasable> class walk {
    public:
        class iterator {
        public:
            explicit iterator(list_head *link)
                : link_(link), next_(Erasable ? link->next : nullptr) {}
            Entry &operator*() const { return entry_of(link_); }
            bool operator!=(const iterator &other) const { return link_ != other.link_; }
            iterator &operator++() {
                link_ = Erasable ? next_ : link_->next;
                next_ = Erasable ? link_->next : nullptr;
                return *this;
            }

        private:
            list_head *link_;
            list_head *next_; // taken before the body runs
        };
        explicit walk(list_head *head) : head_(head) {}
        iterator begin() const { return iterator(head_->next); }
        iterator end() const { return iterator(head_); }

    private:
        list_head *head_;
    };

    auto begin() const { return walk<false>(head_).begin(); }
    auto end() const { return walk<false>(head_).end(); }
    walk<true> erasable() const { return walk<true>(head_); }

    // Brings the entries into order; equal ones keep theirs.  A merge sort of the stretches that
    // are in order already, so a list that nearly is costs little more than a walk.
    template <class Before> void sort(Before before) const {
        list_head *stretches[32] = {}; // each twice as many merged ones as the one before it
        head_->prev->next = nullptr;
        for (list_head *rest = head_->next == head_ ? nullptr : head_->next; rest != nullptr;) {
            list_head *stretch = cut_stretch(rest, before);
            list_head **place = stretches;
            for (; *place != nullptr; *place++ = nullptr)
                stretch = merge(*place, stretch, before);
            *place = stretch;
        }
        list_head *sorted = nullptr;
        for (list_head *stretch : stretches)
            sorted = merge(stretch, sorted, before);
        INIT_LIST_HEAD(head_);
        while (sorted != nullptr) {
            list_head *const next = sorted->next;
            list_add_tail(sorted, head_);
            sorted = next;
        }
    }

private:
    // Chains end with a null link, and their links back are not kept.
    template <class Before> static list_head *cut_stretch(list_head *&rest, Before before) {
        list_head *const first = rest, *last = first;
        while (last->next != nullptr && !before(entry_of(last->next), entry_of(last)))
            last = last->next;
        rest = last->next;
        last->next = nullptr;
        return first;
    }
    template <class Before> static list_head *merge(list_head *a, list_head *b, Before before) {
        list_head *merged = nullptr, **end = &merged;
        while (a != nullptr && b != nullptr) {
            list_head *&from = before(entry_of(b), entry_of(a)) ? b : a;
            *end = from;
            from = from->next;
            end = &(*end)->next;
        }
        *end = a != nullptr ? a : b;
        return merged;
    }

    static const list_head *link_of(const Entry &entry) {
        return reinterpret_cast<const list_head *>(reinterpret_cast<const char *>(&entry) +
                                                   link_offset());
    }
    static std::ptrdiff_t link_offset() requires std::is_integral_v<decltype(Link)> { return Link; }
    static std::ptrdiff_t link_offset() {
        alignas(Entry) static constexpr char bytes[sizeof(Entry)]{};
        const auto *entry = reinterpret_cast<const Entry *>(bytes);
        return reinterpret_cast<const char *>(&(entry->*Link)) - bytes;
    }
    Entry *at(list_head *link) const { return link == head_ ? nullptr : &entry_of(link); }

    list_head *head_;
};

} // namespace dpm
