// The height-balanced tree that holds every table.
//
// Each node knows its parent and which child of it it is, so that successor and predecessor need no
// stack and no operation allocates.  A node's balance is height(right) - height(left); an insert or
// a removal retraces from the changed place towards the root, and rotates where a balance would
// reach two.
//
// Checks of the caller's conduct print a line and carry on: a faulty compare must not stop a device
// that forwards.
#include "dpm_avltree.h"

#include "dpm_check.h"

#include <initializer_list>

#define DPM_SOURCE "module/dpm/src/dpm_avltree"

namespace {

using node_ptr = dpm_avl_node *;

constexpr int left = 0;
constexpr int right = 1;

constexpr int child_to_balance[2] = {-1, +1};  // an insertion on that side moves the balance so
constexpr int balance_to_child[3] = {0, 0, 1}; // side for a compare result or a balance, plus one

constexpr int other(int side) {
    return 1 - side;
}

node_ptr node_of(const dpm_avl_tree *tree, const void *entry) {
    return reinterpret_cast<node_ptr>(const_cast<char *>(static_cast<const char *>(entry)) +
                                      tree->offset);
}

void *entry_of(const dpm_avl_tree *tree, const dpm_avl_node *node) {
    if (node == nullptr)
        return nullptr;
    return const_cast<char *>(reinterpret_cast<const char *>(node)) - tree->offset;
}

// As far as possible towards one side.
node_ptr extreme(node_ptr node, int side) {
    while (node != nullptr && node->child[side] != nullptr)
        node = node->child[side];
    return node;
}

// The pointer that holds a node: its parent's child, or the root.
node_ptr &slot_of(dpm_avl_tree *tree, node_ptr parent, int side) {
    return parent != nullptr ? parent->child[side] : tree->root;
}

void hang(dpm_avl_tree *tree, node_ptr node, node_ptr parent, int side) {
    slot_of(tree, parent, side) = node;
    if (node == nullptr)
        return;
    node->parent = parent;
    node->child_index = static_cast<std::uint16_t>(side);
}

void set_balance(node_ptr node, int balance) {
    node->balance = static_cast<std::int16_t>(balance);
}

// The heavy child leans the same way, or not at all: it takes the node's place.  True when the
// height stayed the same.
bool rotate_single(dpm_avl_tree *tree, node_ptr node, int heavy) {
    const int lean = child_to_balance[heavy];
    const node_ptr child = node->child[heavy];
    hang(tree, child, node->parent, node->child_index);
    hang(tree, child->child[other(heavy)], node, heavy);
    hang(tree, node, child, other(heavy));
    const bool same_height = child->balance == 0; // on removals only
    set_balance(node, same_height ? lean : 0);
    set_balance(child, same_height ? -lean : 0);
    return same_height;
}

// The heavy child leans the other way: its inner child takes the node's place.  The height dropped
// by one.
void rotate_double(dpm_avl_tree *tree, node_ptr node, int heavy) {
    const int lean = child_to_balance[heavy];
    const node_ptr child = node->child[heavy];
    const node_ptr grandchild = child->child[other(heavy)];
    hang(tree, grandchild, node->parent, node->child_index);
    hang(tree, grandchild->child[other(heavy)], node, heavy);
    hang(tree, grandchild->child[heavy], child, other(heavy));
    hang(tree, node, grandchild, other(heavy));
    hang(tree, child, grandchild, heavy);
    set_balance(node, grandchild->balance == lean ? -lean : 0);
    set_balance(child, grandchild->balance == -lean ? lean : 0);
    set_balance(grandchild, 0);
}

// Mends a node whose balance would reach two towards `heavy`.  True when the subtree's height
// stayed the same.
bool rotate(dpm_avl_tree *tree, node_ptr node, int heavy) {
    if (node->child[heavy]->balance != -child_to_balance[heavy])
        return rotate_single(tree, node, heavy);
    rotate_double(tree, node, heavy);
    return false;
}

void retrace_insert(dpm_avl_tree *tree, node_ptr node, int side) {
    while (node != nullptr) {
        const int old_balance = node->balance;
        const int new_balance = old_balance + child_to_balance[side];
        if (new_balance == 0) {
            set_balance(node, 0);
            return;
        }
        if (old_balance != 0) {
            rotate(tree, node, side);
            return;
        }
        set_balance(node, new_balance);
        side = node->child_index;
        node = node->parent;
    }
}

void retrace_remove(dpm_avl_tree *tree, node_ptr node, int side) {
    while (node != nullptr) {
        const int old_balance = node->balance;
        const int new_balance = old_balance - child_to_balance[side];
        const node_ptr parent = node->parent;
        const int parent_side = node->child_index;
        if (old_balance == 0) {
            set_balance(node, new_balance);
            return;
        }
        if (new_balance == 0)
            set_balance(node, 0);
        else if (rotate(tree, node, other(side)))
            return;
        node = parent;
        side = parent_side;
    }
}

// Two nodes, one in the other's subtree, change places with links, side and balance.
void exchange(dpm_avl_tree *tree, node_ptr upper, node_ptr lower) {
    const dpm_avl_node was_upper = *upper;
    const dpm_avl_node was_lower = *lower;
    const bool adjacent = was_lower.parent == upper;
    *lower = was_upper;
    *upper = was_lower;
    slot_of(tree, was_upper.parent, was_upper.child_index) = lower;
    if (adjacent)
        upper->parent = lower;
    slot_of(tree, upper->parent, was_lower.child_index) = upper;
    for (const node_ptr node : {lower, upper})
        for (const node_ptr child : node->child)
            if (child != nullptr)
                child->parent = node;
}

// Whether `entry` stands on the wrong side of its neighbour in that direction.
bool is_misplaced(const dpm_avl_tree *tree, const void *entry, int direction) {
    const void *neighbour = dpm_avl_walk(tree, entry, direction);
    if (neighbour == nullptr)
        return false;
    const int order = tree->compare(neighbour, entry);
    return direction == DPM_AVL_BEFORE ? order > 0 : order < 0;
}

int move(dpm_avl_tree *tree, void *entry) {
    dpm_avl_remove(tree, entry);
    (void)dpm_avl_add(tree, entry);
    return 1;
}

// First of a subtree in the order children before parents.
node_ptr first_to_destroy(node_ptr node) {
    for (node_ptr child = node; child != nullptr;
         child = node->child[left] != nullptr ? node->child[left] : node->child[right])
        node = child;
    return node;
}

bool is_usable(const dpm_avl_tree *tree) {
    return DPM_CHECK(tree != nullptr);
}

} // namespace

void dpm_avl_create(dpm_avl_tree *tree, int (*compare)(const void *, const void *),
                    std::uint32_t size, std::uint32_t offset) {
    if (!is_usable(tree))
        return;
    (void)DPM_CHECK(compare != nullptr);
    (void)DPM_CHECK(size > 0);
    (void)DPM_CHECK(size >= offset + sizeof(dpm_avl_node));
    *tree = {nullptr, compare, offset, 0, size};
}

void *dpm_avl_find(const dpm_avl_tree *tree, const void *key, dpm_avl_where *where) {
    if (!is_usable(tree) || !DPM_CHECK(tree->compare != nullptr))
        return nullptr;
    node_ptr parent = nullptr;
    int side = left;
    for (node_ptr node = tree->root; node != nullptr; node = node->child[side]) {
        const int order = tree->compare(key, entry_of(tree, node));
        if (order == 0)
            return entry_of(tree, node);
        const bool in_range = DPM_CHECK(order >= -1 && order <= 1);
        side = in_range ? balance_to_child[order + 1] : order > 0;
        parent = node;
    }
    if (where != nullptr)
        *where = reinterpret_cast<dpm_avl_where>(parent) | static_cast<dpm_avl_where>(side);
    return nullptr;
}

void dpm_avl_insert(dpm_avl_tree *tree, void *entry, dpm_avl_where where) {
    if (!is_usable(tree))
        return;
    const node_ptr node = node_of(tree, entry);
    const auto parent = reinterpret_cast<node_ptr>(where & ~dpm_avl_where{1});
    const int side = static_cast<int>(where & 1);
    tree->numnodes++;
    (void)DPM_CHECK(slot_of(tree, parent, side) == nullptr);
    *node = {};
    hang(tree, node, parent, side);
    retrace_insert(tree, parent, side);
}

void dpm_avl_insert_here(dpm_avl_tree *tree, void *entry, void *here, int direction) {
    if (!is_usable(tree) || !DPM_CHECK(here != nullptr))
        return;
    node_ptr place = node_of(tree, here);
    int side = direction;
    if (place->child[direction] != nullptr) {
        side = other(direction);
        place = extreme(place->child[direction], side);
    }
    dpm_avl_insert(tree, entry,
                   reinterpret_cast<dpm_avl_where>(place) | static_cast<dpm_avl_where>(side));
}

void *dpm_avl_add(dpm_avl_tree *tree, void *entry) {
    if (!is_usable(tree) || !DPM_CHECK(tree->compare != nullptr))
        return nullptr;
    dpm_avl_where where = 0;
    // deliberate: an equal entry is no fault; callers that must know look at the result
    if (void *present = dpm_avl_find(tree, entry, &where))
        return present;
    dpm_avl_insert(tree, entry, where);
    return nullptr;
}

void dpm_avl_remove(dpm_avl_tree *tree, void *entry) {
    if (!is_usable(tree))
        return;
    const node_ptr node = node_of(tree, entry);
    if (node->child[left] != nullptr && node->child[right] != nullptr) {
        const int side = balance_to_child[node->balance + 1];
        exchange(tree, node, extreme(node->child[side], other(side)));
    }
    const node_ptr parent = node->parent;
    const int side = node->child_index;
    hang(tree, node->child[left] != nullptr ? node->child[left] : node->child[right], parent, side);
    tree->numnodes--;
    retrace_remove(tree, parent, side);
}

void *dpm_avl_first(const dpm_avl_tree *tree) {
    return is_usable(tree) ? entry_of(tree, extreme(tree->root, left)) : nullptr;
}

void *dpm_avl_last(const dpm_avl_tree *tree) {
    return is_usable(tree) ? entry_of(tree, extreme(tree->root, right)) : nullptr;
}

void *dpm_avl_walk(const dpm_avl_tree *tree, const void *entry, int direction) {
    if (!is_usable(tree) || entry == nullptr)
        return nullptr;
    node_ptr node = node_of(tree, entry);
    if (node->child[direction] != nullptr)
        return entry_of(tree, extreme(node->child[direction], other(direction)));
    int came_from = node->child_index;
    for (node = node->parent; node != nullptr && came_from == direction; node = node->parent)
        came_from = node->child_index;
    return entry_of(tree, node);
}

void *dpm_avl_next(const dpm_avl_tree *tree, const void *entry) {
    return dpm_avl_walk(tree, entry, DPM_AVL_AFTER);
}

void *dpm_avl_prev(const dpm_avl_tree *tree, const void *entry) {
    return dpm_avl_walk(tree, entry, DPM_AVL_BEFORE);
}

void *dpm_avl_nearest(const dpm_avl_tree *tree, dpm_avl_where where, int direction) {
    if (!is_usable(tree))
        return nullptr;
    const auto node = reinterpret_cast<node_ptr>(where & ~dpm_avl_where{1});
    if (node == nullptr) {
        (void)DPM_CHECK(tree->root == nullptr);
        return nullptr;
    }
    void *entry = entry_of(tree, node);
    return static_cast<int>(where & 1) == direction ? dpm_avl_walk(tree, entry, direction) : entry;
}

int dpm_avl_update_lt(dpm_avl_tree *tree, void *entry) {
    if (!is_usable(tree))
        return 0;
    (void)DPM_CHECK(!is_misplaced(tree, entry, DPM_AVL_AFTER));
    return is_misplaced(tree, entry, DPM_AVL_BEFORE) ? move(tree, entry) : 0;
}

int dpm_avl_update_gt(dpm_avl_tree *tree, void *entry) {
    if (!is_usable(tree))
        return 0;
    (void)DPM_CHECK(!is_misplaced(tree, entry, DPM_AVL_BEFORE));
    return is_misplaced(tree, entry, DPM_AVL_AFTER) ? move(tree, entry) : 0;
}

int dpm_avl_update(dpm_avl_tree *tree, void *entry) {
    if (!is_usable(tree))
        return 0;
    const bool misplaced =
        is_misplaced(tree, entry, DPM_AVL_BEFORE) || is_misplaced(tree, entry, DPM_AVL_AFTER);
    return misplaced ? move(tree, entry) : 0;
}

std::uint32_t dpm_avl_numnodes(const dpm_avl_tree *tree) {
    return is_usable(tree) ? tree->numnodes : 0;
}

int dpm_avl_is_empty(const dpm_avl_tree *tree) {
    return !is_usable(tree) || tree->numnodes == 0;
}

void *dpm_avl_destroy_nodes(dpm_avl_tree *tree, void **cookie) {
    if (!is_usable(tree))
        return nullptr;
    if (tree->root == nullptr) {
        tree->numnodes = 0;
        *cookie = nullptr;
        return nullptr;
    }
    const node_ptr node =
        *cookie != nullptr ? static_cast<node_ptr>(*cookie) : first_to_destroy(tree->root);
    const node_ptr parent = node->parent;
    slot_of(tree, parent, node->child_index) = nullptr;
    tree->numnodes--;
    *cookie = parent != nullptr && parent->child[right] != nullptr
                  ? first_to_destroy(parent->child[right])
                  : parent;
    return entry_of(tree, node);
}

void dpm_avl_destroy(dpm_avl_tree *tree) {
    if (!is_usable(tree))
        return;
    (void)DPM_CHECK(tree->numnodes == 0);
    (void)DPM_CHECK(tree->root == nullptr);
}
