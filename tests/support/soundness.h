// Whether a tree or a list is what it claims to be, checked at every node.  Each answers what is
// wrong; empty: nothing.
#pragma once

#include "dpm_avltree.h"
#include "dpm_list.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace rig {

// Parent links, sides, balance, order and count of a tree, through the tree's own compare.
class TreeCheck {
public:
    explicit TreeCheck(const dpm_avl_tree &tree) : tree_(tree) {
        visit(tree.root, nullptr, 0);
        if (problem_.empty() && count_ != tree.numnodes)
            problem_ = "holds " + std::to_string(count_) + " entries and says " +
                       std::to_string(tree.numnodes);
    }
    const std::string &problem() const { return problem_; }
    unsigned count() const { return count_; }

private:
    int visit(const dpm_avl_node *node, const dpm_avl_node *parent, unsigned side) {
        if (!node || !problem_.empty())
            return 0;
        if (node->parent != parent)
            return fail("has a wrong parent link");
        if (parent && node->child_index != side)
            return fail("has a wrong side");
        const int left = visit(node->child[0], node, 0);
        take(node);
        const int right = visit(node->child[1], node, 1);
        if (problem_.empty() && (node->balance != right - left || std::abs(right - left) > 1))
            return fail("has a wrong balance of " + std::to_string(node->balance));
        return 1 + std::max(left, right);
    }

    void take(const dpm_avl_node *node) {
        const void *const entry = reinterpret_cast<const char *>(node) - tree_.offset;
        if (previous_ && problem_.empty() && tree_.compare(previous_, entry) >= 0)
            fail("is out of order");
        previous_ = entry;
        ++count_;
    }

    int fail(const std::string &what) {
        if (problem_.empty())
            problem_ = "entry " + std::to_string(count_) + " " + what;
        return 0;
    }

    const dpm_avl_tree &tree_;
    const void *previous_ = nullptr;
    unsigned count_ = 0;
    std::string problem_;
};

inline std::string tree_problem(const dpm_avl_tree &tree) {
    return TreeCheck(tree).problem();
}

// Both directions of a list.  A head of zeroes is a list that was never made.
inline std::string list_problem(const list_head &head, unsigned *count = nullptr) {
    unsigned entries = 0;
    if (head.next)
        for (const list_head *at = &head;; at = at->next) {
            if (!at->next || at->next->prev != at)
                return "link " + std::to_string(entries) + " does not lead back";
            if (at->next == &head)
                break;
            if (++entries > 10'000'000)
                return "does not end";
        }
    if (count)
        *count = entries;
    return "";
}

} // namespace rig
