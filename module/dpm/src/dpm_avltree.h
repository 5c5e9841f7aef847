// The tree that holds every table: intrusive, height-balanced, never allocating.
//
// An entry carries its header (dpm_avl_node) inside itself, at the offset that its tree was created
// with; the caller owns the entries.  The untyped functions do the work.  avl_table is the typed
// view that tables use: it finds with the compare inlined, and offers the two loops:
//
//   for (dpm_host_entry &host : ipv4_hosts())             // the body must not change the tree
//   for (dpm_host_entry &host : ipv4_hosts().erasable())  // the body may remove the current entry
//
// Trees have no lock: they are changed on the worker under the DPM lock, and read elsewhere under
// that lock.
#pragma once

#include "dpm_api.h"

#include <cstddef>
#include <cstdint>

struct dpm_avl_tree {
    dpm_avl_node *root;
    int (*compare)(const void *a, const void *b); // -1, 0 or 1
    std::uint32_t offset;                         // of the header inside an entry
    std::uint32_t numnodes;
    std::uint32_t size; // of an entry; for checks only
};
static_assert(sizeof(dpm_avl_tree) == 20);
static_assert(sizeof(dpm_avl_node) == 16);

// Where a failed find ended: the parent's header, with the child's side in bit 0; 0 in an empty
// tree.
using dpm_avl_where = std::uintptr_t;

enum { DPM_AVL_BEFORE = 0, DPM_AVL_AFTER = 1 };

void dpm_avl_create(dpm_avl_tree *tree, int (*compare)(const void *, const void *),
                    std::uint32_t size, std::uint32_t offset);

// The entry equal to the key, or null with `where` (unless null) telling the place of a later
// insert.
void *dpm_avl_find(const dpm_avl_tree *tree, const void *key, dpm_avl_where *where);

void dpm_avl_insert(dpm_avl_tree *tree, void *entry, dpm_avl_where where);
void dpm_avl_insert_here(dpm_avl_tree *tree, void *entry, void *here, int direction);

// Null when the entry was inserted; else nothing was, and the result is the equal entry that is
// present.
void *dpm_avl_add(dpm_avl_tree *tree, void *entry);

void dpm_avl_remove(dpm_avl_tree *tree, void *entry);

void *dpm_avl_first(const dpm_avl_tree *tree);
void *dpm_avl_last(const dpm_avl_tree *tree);
void *dpm_avl_next(const dpm_avl_tree *tree, const void *entry);
void *dpm_avl_prev(const dpm_avl_tree *tree, const void *entry);
void *dpm_avl_walk(const dpm_avl_tree *tree, const void *entry, int direction);

// The entry just before or after the place where a find failed; null when there is none.
void *dpm_avl_nearest(const dpm_avl_tree *tree, dpm_avl_where where, int direction);

// Re-sort an entry whose key got smaller, got greater, or changed either way; 1 when it moved.
int dpm_avl_update_lt(dpm_avl_tree *tree, void *entry);
int dpm_avl_update_gt(dpm_avl_tree *tree, void *entry);
int dpm_avl_update(dpm_avl_tree *tree, void *entry);

std::uint32_t dpm_avl_numnodes(const dpm_avl_tree *tree);
int dpm_avl_is_empty(const dpm_avl_tree *tree);

// Takes the tree apart: each call unlinks one entry, children before parents, and answers it for
// the caller to free; null when none is left.  `cookie` starts null and belongs to the sweep.
// Nothing else may be done meanwhile.
void *dpm_avl_destroy_nodes(dpm_avl_tree *tree, void **cookie);
void dpm_avl_destroy(dpm_avl_tree *tree);

namespace dpm {

// Typed view of a tree.  Compare orders two entries; Offset is that of the header inside an entry.
template <class Entry, int (*Compare)(const Entry &, const Entry &), std::size_t Offset = 0>
class avl_table {
public:
    explicit avl_table(dpm_avl_tree &tree) : tree_(&tree) {}

    // The compare as the untyped tree wants it.
    static int compare(const void *a, const void *b) {
        return Compare(*static_cast<const Entry *>(a), *static_cast<const Entry *>(b));
    }
    void create() const { dpm_avl_create(tree_, compare, sizeof(Entry), Offset); }

    Entry *find(const Entry &key) const {
        dpm_avl_node *node = tree_->root;
        while (node != nullptr) {
            const int order = Compare(key, entry_of(node));
            if (order == 0)
                return &entry_of(node);
            node = node->child[order > 0];
        }
        return nullptr;
    }

    // As find, and tells where the key would go.
    Entry *find(const Entry &key, dpm_avl_where &where) const {
        dpm_avl_node *node = tree_->root;
        where = 0;
        while (node != nullptr) {
            const int order = Compare(key, entry_of(node));
            if (order == 0)
                return &entry_of(node);
            where = reinterpret_cast<dpm_avl_where>(node) | (order > 0);
            node = node->child[order > 0];
        }
        return nullptr;
    }

    void insert(Entry &entry, dpm_avl_where where) const { dpm_avl_insert(tree_, &entry, where); }

    // Null when inserted, else the equal entry that is present.
    Entry *add(Entry &entry) const {
        dpm_avl_where where;
        if (Entry *present = find(entry, where))
            return present;
        insert(entry, where);
        return nullptr;
    }

    // The first entry that is not before the key; null when all are.
    Entry *find_from(const Entry &key) const {
        Entry *found = nullptr;
        for (dpm_avl_node *node = tree_->root; node != nullptr;) {
            const bool before = Compare(entry_of(node), key) < 0;
            if (!before)
                found = &entry_of(node);
            node = node->child[before];
        }
        return found;
    }

    void remove(Entry &entry) const { dpm_avl_remove(tree_, &entry); }
    Entry *first() const { return static_cast<Entry *>(dpm_avl_first(tree_)); }
    Entry *last() const { return static_cast<Entry *>(dpm_avl_last(tree_)); }
    Entry *next(const Entry &entry) const {
        return static_cast<Entry *>(dpm_avl_next(tree_, &entry));
    }
    std::uint32_t count() const { return tree_->numnodes; }
    bool empty() const { return tree_->numnodes == 0; }

    template <bool Erasable> class walk {
    public:
        class iterator {
        public:
            iterator(const avl_table &table, Entry *entry) : table_(table), entry_(entry) {
                take_next();
            }
            Entry &operator*() const { return *entry_; }
            bool operator!=(const iterator &other) const { return entry_ != other.entry_; }
            iterator &operator++() {
                entry_ = Erasable ? next_ : table_.next(*entry_);
                take_next();
                return *this;
            }

        private:
            void take_next() {
                next_ = Erasable && entry_ != nullptr ? table_.next(*entry_) : nullptr;
            }
            const avl_table table_;
            Entry *entry_;
            Entry *next_; // taken before the body runs
        };
        explicit walk(const avl_table &table) : table_(table) {}
        iterator begin() const { return iterator(table_, table_.first()); }
        iterator end() const { return iterator(table_, nullptr); }

    private:
        const avl_table table_;
    };

    auto begin() const { return walk<false>(*this).begin(); }
    auto end() const { return walk<false>(*this).end(); }
    walk<true> erasable() const { return walk<true>(*this); }

private:
    static Entry &entry_of(dpm_avl_node *node) {
        return *reinterpret_cast<Entry *>(reinterpret_cast<char *>(node) - Offset);
    }

    dpm_avl_tree *tree_;
};

} // namespace dpm
