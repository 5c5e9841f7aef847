// The tree against a reference container, with order, balance and links checked at every node.

#include "dpm_avltree.h"
#include "dpm_check.h"
#include "support/soundness.h"

#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace {

struct Entry {
    unsigned key;
    char rest[40];
    dpm_avl_node node; // the tables of the library have it in front
};

int order(const Entry &a, const Entry &b) {
    return a.key < b.key ? -1 : a.key > b.key;
}

class AvlTree : public ::testing::Test {
protected:
    using Table = dpm::avl_table<Entry, order, offsetof(Entry, node)>;
    static constexpr unsigned pool_size = 300;

    AvlTree() : pool(pool_size) {
        table.create();
        for (Entry &entry : pool)
            idle.push_back(&entry);
    }

    Entry *before(unsigned key) const { // of the model; null: none
        const auto at = model.lower_bound(key);
        return at == model.begin() ? nullptr : std::prev(at)->second;
    }
    Entry *from(unsigned key) const {
        const auto at = model.lower_bound(key);
        return at == model.end() ? nullptr : at->second;
    }

    // All ways to find; the place of a failed one in `where`.
    Entry *look(unsigned key, dpm_avl_where &where) {
        const Entry wanted{key, {}, {}};
        dpm_avl_where typed_where = 1;
        void *const found = dpm_avl_find(&tree, &wanted, &where);
        EXPECT_EQ(found, model.contains(key) ? model[key] : nullptr);
        EXPECT_EQ(table.find(wanted), found);
        EXPECT_EQ(table.find(wanted, typed_where), found);
        EXPECT_EQ(table.find_from(wanted), from(key));
        if (!found) {
            EXPECT_EQ(typed_where, where);
            EXPECT_EQ(dpm_avl_nearest(&tree, where, DPM_AVL_AFTER), from(key));
            EXPECT_EQ(dpm_avl_nearest(&tree, where, DPM_AVL_BEFORE), before(key));
        }
        return static_cast<Entry *>(found);
    }
    void comes(unsigned key, dpm_avl_where where) {
        Entry &entry = *(model[key] = idle.back());
        idle.pop_back();
        entry = {key, {}, {}};
        Entry *const ahead = before(key), *const after = from(key + 1);
        const unsigned way = unsigned(random() % 4);
        if (way == 0)
            EXPECT_FALSE(dpm_avl_add(&tree, &entry));
        else if (way == 1 || !(ahead || after))
            dpm_avl_insert(&tree, &entry, where);
        else if (!ahead || (after && way == 2))
            dpm_avl_insert_here(&tree, &entry, after, DPM_AVL_BEFORE);
        else
            dpm_avl_insert_here(&tree, &entry, ahead, DPM_AVL_AFTER);
    }
    void goes(Entry &entry) {
        dpm_avl_remove(&tree, &entry);
        model.erase(entry.key);
        idle.push_back(&entry);
    }
    // Another key, which is not there.
    void moves(Entry &entry, unsigned key) {
        const Entry *const ahead = before(entry.key), *const after = from(entry.key + 1);
        const bool stays = (!ahead || ahead->key < key) && (!after || key < after->key);
        const auto one_way = key < entry.key ? dpm_avl_update_lt : dpm_avl_update_gt;
        model.erase(std::exchange(entry.key, key));
        model[key] = &entry;
        EXPECT_EQ((random() % 2 ? dpm_avl_update : one_way)(&tree, &entry), !stays);
    }

    void expect_same_as_model() const {
        EXPECT_EQ(dpm_avl_numnodes(&tree), model.size());
        EXPECT_EQ(dpm_avl_is_empty(&tree), model.empty());
        auto next = model.begin();
        for (const Entry &entry : table.erasable())
            EXPECT_EQ(&entry, (next++)->second);
        EXPECT_TRUE(next == model.end());
        EXPECT_EQ(dpm_avl_first(&tree), from(0));
        void *at = table.last();
        for (auto last = model.rbegin(); last != model.rend(); ++last) {
            EXPECT_EQ(at, last->second);
            at = dpm_avl_prev(&tree, at);
        }
        EXPECT_EQ(at, nullptr);
    }

    std::vector<Entry> pool;
    std::vector<Entry *> idle;
    dpm_avl_tree tree{};
    Table table{tree};
    std::map<unsigned, Entry *> model;
    std::mt19937 random{2021};
};

} // namespace

// Every way in, out and to another key at random: the share of entries that are present swings, so
// that the tree grows and shrinks as a whole.
TEST_F(AvlTree, IsSoundAndInOrderBehindEveryChange) {
    const std::uint32_t failed_before = g_dpm_failed_checks;
    for (unsigned step = 0; step < 15'000; ++step) {
        const bool grows = step / 1500 % 2 == 0, is_rare = step % 3 == 0;
        const unsigned key = unsigned(random() % (2 * pool_size)), other = (key + step) % 600;
        dpm_avl_where where = 1;
        if (Entry *const present = look(key, where)) {
            Entry twin = *present;
            EXPECT_EQ(dpm_avl_add(&tree, &twin), present);
            if (step % 4 == 0 && !model.contains(other))
                moves(*present, other);
            else if (!grows || is_rare)
                goes(*present);
        } else if (!idle.empty() && (grows || is_rare)) {
            comes(key, where);
        }
        if (step % 50 == 0)
            expect_same_as_model();
        ASSERT_EQ(rig::tree_problem(tree), "") << "after step " << step;
        ASSERT_FALSE(HasFailure()) << "after step " << step;
    }
    EXPECT_EQ(g_dpm_failed_checks, failed_before);
}

TEST_F(AvlTree, DestroyNodesGivesEveryEntryOnceAndChildrenBeforeParents) {
    for (unsigned number = 0; number < 200; ++number) {
        dpm_avl_where where;
        EXPECT_EQ(look(number * 7 % 200, where), nullptr);
        comes(number * 7 % 200, where);
    }
    std::map<const void *, const dpm_avl_node *> parents;
    for (const auto &[key, entry] : model)
        parents[entry] = entry->node.parent;
    void *cookie = nullptr;
    std::set<const dpm_avl_node *> given;
    while (void *const entry = dpm_avl_destroy_nodes(&tree, &cookie)) {
        ASSERT_TRUE(parents.contains(entry));
        EXPECT_FALSE(given.contains(parents[entry]));
        EXPECT_TRUE(given.insert(&static_cast<Entry *>(entry)->node).second);
        *static_cast<Entry *>(entry) = {}; // as freed
        EXPECT_EQ(dpm_avl_numnodes(&tree), parents.size() - given.size());
    }
    EXPECT_EQ(given.size(), parents.size());
    dpm_avl_destroy(&tree);
    EXPECT_EQ(dpm_avl_destroy_nodes(&tree, &cookie), nullptr);
    EXPECT_EQ(tree.root, nullptr);
}

namespace {

// Faults of the caller print a line and carry on; these tests count the lines.
class AvlChecks : public ::testing::Test {
protected:
    static int raw_order(const void *a, const void *b) {
        const auto left = int(static_cast<const Entry *>(a)->key);
        const auto right = int(static_cast<const Entry *>(b)->key);
        return (left - right) * factor;
    }
    void SetUp() override { factor = 1; }
    void TearDown() override { g_dpm_failed_checks = before; }

    // How many faults a deed tells; the first names the source and a line of it.
    static unsigned lines_of(const std::function<void()> &deed) {
        const std::uint32_t counted = g_dpm_failed_checks;
        testing::internal::CaptureStdout();
        deed();
        const std::string text = testing::internal::GetCapturedStdout();
        const bool is_told =
            text.starts_with("Assertion failed: file \"module/dpm/src/dpm_avltree\", line ");
        EXPECT_EQ(is_told, g_dpm_failed_checks != counted) << text;
        return g_dpm_failed_checks - counted;
    }

    static inline int factor = 1;
    const std::uint32_t before = g_dpm_failed_checks;
    Entry entries[3] = {{10, {}, {}}, {20, {}, {}}, {30, {}, {}}};
    dpm_avl_tree tree{};
};

} // namespace

TEST_F(AvlChecks, ACompareResultOutOfRangeIsToldAndTheSearchGoesOnByItsSign) {
    dpm_avl_create(&tree, raw_order, sizeof(Entry), offsetof(Entry, node));
    factor = 7;
    const auto add = [this](unsigned at) { EXPECT_FALSE(dpm_avl_add(&tree, &entries[at])); };
    EXPECT_EQ(lines_of([&] { add(0), add(1), add(2); }), 3u);
    const auto find = [this] { return dpm_avl_find(&tree, &entries[0], nullptr); };
    EXPECT_EQ(lines_of([&] { EXPECT_EQ(find(), &entries[0]); }), 1u);
    factor = 0; // whatever is asked for is equal to the root
    EXPECT_EQ(lines_of([&] { EXPECT_EQ(find(), &entries[1]); }), 0u);
}

TEST_F(AvlChecks, NullArgumentsPrintALineEachAndReturn) {
    Entry &entry = entries[0];
    void *cookie = nullptr;
    EXPECT_EQ(lines_of([&] {
                  dpm_avl_create(nullptr, raw_order, sizeof entry, 0);
                  dpm_avl_create(&tree, nullptr, sizeof entry, 0); // no compare from here on
                  dpm_avl_insert(nullptr, &entry, 0);
                  dpm_avl_insert_here(nullptr, &entry, &entry, 0);
                  dpm_avl_insert_here(&tree, &entry, nullptr, 0);
                  dpm_avl_remove(nullptr, &entry);
                  dpm_avl_destroy(nullptr);
              }),
              7u);
    EXPECT_EQ(lines_of([&] {
                  for (void *answer :
                       {dpm_avl_find(nullptr, &entry, nullptr),
                        dpm_avl_find(&tree, &entry, nullptr), dpm_avl_add(nullptr, &entry),
                        dpm_avl_add(&tree, &entry), dpm_avl_first(nullptr), dpm_avl_last(nullptr),
                        dpm_avl_next(nullptr, &entry), dpm_avl_prev(nullptr, &entry),
                        dpm_avl_nearest(nullptr, 0, 0), dpm_avl_destroy_nodes(nullptr, &cookie)})
                      EXPECT_EQ(answer, nullptr);
                  for (const int answer :
                       {dpm_avl_update(nullptr, &entry), dpm_avl_update_lt(nullptr, &entry),
                        dpm_avl_update_gt(nullptr, &entry), int(dpm_avl_numnodes(nullptr))})
                      EXPECT_EQ(answer, 0);
                  EXPECT_EQ(dpm_avl_is_empty(nullptr), 1);
              }),
              15u);
}

TEST_F(AvlChecks, MisuseIsToldAndDoesNotStopTheProcess) {
    const auto create = [this](unsigned size, unsigned offset) {
        return lines_of([&] { dpm_avl_create(&tree, raw_order, size, offset); });
    };
    EXPECT_EQ(create(0, 0), 2u) << "size, offset";
    EXPECT_EQ(create(sizeof(Entry) - 1, offsetof(Entry, node)), 1u);
    EXPECT_EQ(create(sizeof(Entry), offsetof(Entry, node)), 0u);
    EXPECT_EQ(lines_of([this] { dpm_avl_add(&tree, &entries[1]); }), 0u);
    EXPECT_EQ(lines_of([this] { EXPECT_FALSE(dpm_avl_nearest(&tree, 0, DPM_AVL_AFTER)); }), 1u)
        << "a cookie of an empty tree";
    EXPECT_EQ(lines_of([this] { dpm_avl_destroy(&tree); }), 2u) << "entries and a root";
    EXPECT_EQ(lines_of([this] { dpm_avl_insert(&tree, &entries[0], 0); }), 1u) << "taken place";
}
