// The tree against a reference container, with order, balance and links checked at every node.

#include "dpm_avltree.h"
#include "dpm_check.h"
#include "support/soundness.h"

#include <algorithm>
#include <array>
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
        for (unsigned i = 0; i < pool_size; ++i)
            pool[i].key = 2 * i; // odd keys are never present
    }
    void TearDown() override {
        EXPECT_EQ(rig::tree_problem(tree), "");
        EXPECT_EQ(g_dpm_failed_checks, failed_before);
    }

    void add(unsigned index) {
        EXPECT_FALSE(dpm_avl_add(&tree, &pool[index]));
        keys.insert(pool[index].key);
    }
    void add_beside(unsigned index, unsigned present, int side) {
        dpm_avl_insert_here(&tree, &pool[index], &pool[present], side);
        keys.insert(pool[index].key);
    }
    void remove(unsigned index) {
        dpm_avl_remove(&tree, &pool[index]);
        keys.erase(pool[index].key);
    }
    void add_random(double share) {
        for (unsigned i = 0; i < pool_size; ++i)
            if (std::bernoulli_distribution(share)(random))
                add(i);
    }
    bool has(unsigned index) const { return keys.contains(pool[index].key); }
    unsigned any() { return unsigned(random() % pool_size); }
    Entry key_of(unsigned key) const {
        Entry entry{};
        entry.key = key;
        return entry;
    }
    // The key behind an entry's pointer; -1 for null.
    static int key_at(const void *entry) {
        return entry ? int(static_cast<const Entry *>(entry)->key) : -1;
    }
    std::vector<unsigned> walked(bool forward) const {
        std::vector<unsigned> found;
        for (void *at = forward ? dpm_avl_first(&tree) : dpm_avl_last(&tree); at;
             at = forward ? dpm_avl_next(&tree, at) : dpm_avl_prev(&tree, at))
            found.push_back(unsigned(key_at(at)));
        return found;
    }
    void expect_same_as_reference() const {
        EXPECT_EQ(walked(true), std::vector<unsigned>(keys.begin(), keys.end()));
        EXPECT_EQ(walked(false), std::vector<unsigned>(keys.rbegin(), keys.rend()));
        EXPECT_EQ(dpm_avl_numnodes(&tree), keys.size());
        EXPECT_EQ(dpm_avl_is_empty(&tree), keys.empty());
        auto key = keys.begin();
        for (const Entry &entry : table.erasable())
            EXPECT_EQ(entry.key, *key++);
        EXPECT_TRUE(key == keys.end());
        EXPECT_EQ(key_at(table.last()), keys.empty() ? -1 : int(*keys.rbegin()));
    }

    const std::uint32_t failed_before = g_dpm_failed_checks;
    std::vector<Entry> pool;
    dpm_avl_tree tree{};
    Table table{tree};
    std::set<unsigned> keys;
    std::mt19937 random{2021};
};

} // namespace

// Every way in and out at random: the share of entries that are present swings, so that the tree
// grows and shrinks as a whole.
TEST_F(AvlTree, EveryChangeKeepsItSoundAndInOrder) {
    for (unsigned step = 0; step < 15'000; ++step) {
        const bool grows = step / 1500 % 2 == 0;
        const unsigned index = any();
        const auto after = keys.lower_bound(2 * index);
        if (has(index)) {
            Entry twin = pool[index];
            ASSERT_EQ(dpm_avl_add(&tree, &twin), &pool[index]) << "the present one";
            if (!grows || step % 3 == 0)
                remove(index);
        } else if (grows || step % 3 == 0) {
            const bool behind = after == keys.end() || (after != keys.begin() && random() % 2);
            if (keys.empty() || step % 2)
                add(index);
            else
                add_beside(index, (behind ? *std::prev(after) : *after) / 2,
                           behind ? DPM_AVL_AFTER : DPM_AVL_BEFORE);
        }
        ASSERT_EQ(rig::tree_problem(tree), "") << "after step " << step;
        if (step % 50 == 0)
            expect_same_as_reference();
    }
    while (!keys.empty())
        remove(*keys.begin() / 2);
    EXPECT_EQ(tree.root, nullptr);
    expect_same_as_reference();
}

TEST_F(AvlTree, AFailedFindTellsTheNeighboursAndThePlaceOfALaterInsert) {
    add_random(0.3);
    for (unsigned key = 0; key <= 2 * pool_size; ++key) {
        dpm_avl_where where = 1, typed_where = 1;
        const Entry wanted = key_of(key);
        void *const found = dpm_avl_find(&tree, &wanted, &where);
        ASSERT_EQ(table.find(wanted, typed_where), found);
        ASSERT_EQ(table.find(wanted), found);
        ASSERT_EQ(key_at(found), keys.contains(key) ? int(key) : -1);
        const auto after = keys.lower_bound(key);
        const int next = after == keys.end() ? -1 : int(*after);
        ASSERT_EQ(key_at(table.find_from(wanted)), next);
        if (found)
            continue;
        ASSERT_EQ(typed_where, where);
        ASSERT_EQ(key_at(dpm_avl_nearest(&tree, where, DPM_AVL_AFTER)), next);
        ASSERT_EQ(key_at(dpm_avl_nearest(&tree, where, DPM_AVL_BEFORE)),
                  after == keys.begin() ? -1 : int(*std::prev(after)));
        if (key % 6 == 0 && key / 2 < pool_size) {
            dpm_avl_insert(&tree, &pool[key / 2], where);
            keys.insert(key);
        }
    }
    expect_same_as_reference();
}

TEST_F(AvlTree, AnUpdateMovesAnEntryOnlyWhenItsNewKeyAsksForIt) {
    for (unsigned i = 0; i < pool_size; i += 2)
        add(i);
    for (unsigned step = 0; step < 3000; ++step) {
        Entry &entry = pool[any() & ~1u];
        const unsigned key = unsigned(random() % (2 * pool_size));
        if (keys.contains(key))
            continue;
        const auto place = keys.find(entry.key);
        const auto next = std::next(place);
        const bool stays = (place == keys.begin() || *std::prev(place) < key) &&
                           (next == keys.end() || key < *next);
        const auto one_way = key < entry.key ? dpm_avl_update_lt : dpm_avl_update_gt;
        keys.erase(place);
        keys.insert(key);
        entry.key = key;
        ASSERT_EQ((step % 2 ? dpm_avl_update : one_way)(&tree, &entry), !stays);
        ASSERT_EQ(rig::tree_problem(tree), "");
    }
    EXPECT_EQ(walked(true), std::vector<unsigned>(keys.begin(), keys.end()));
}

TEST_F(AvlTree, DestroyNodesGivesEveryEntryOnceAndChildrenBeforeParents) {
    add_random(0.6);
    std::set<const dpm_avl_node *> given;
    std::map<const dpm_avl_node *, std::array<const dpm_avl_node *, 2>> family;
    for (const unsigned key : keys) {
        const dpm_avl_node &node = pool[key / 2].node;
        family[&node] = {node.child[0], node.child[1]};
    }
    void *cookie = nullptr;
    while (void *const entry = dpm_avl_destroy_nodes(&tree, &cookie)) {
        const dpm_avl_node *const node = &static_cast<Entry *>(entry)->node;
        ASSERT_TRUE(family.contains(node));
        for (const dpm_avl_node *const child : family[node])
            EXPECT_TRUE(!child || given.contains(child));
        EXPECT_TRUE(given.insert(node).second);
        *static_cast<Entry *>(entry) = {}; // as freed
        ASSERT_EQ(dpm_avl_numnodes(&tree), family.size() - given.size());
    }
    EXPECT_EQ(given.size(), family.size());
    keys.clear();
    dpm_avl_destroy(&tree);
    EXPECT_EQ(dpm_avl_destroy_nodes(&tree, &cookie), nullptr);
    expect_same_as_reference();
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

    // How many lines a deed prints; each names the source and a line of it.
    static unsigned lines_of(const std::function<void()> &deed) {
        const std::uint32_t counted = g_dpm_failed_checks;
        testing::internal::CaptureStdout();
        deed();
        const std::string text = testing::internal::GetCapturedStdout();
        const std::string head = "Assertion failed: file \"module/dpm/src/dpm_avltree\", line ";
        unsigned lines = 0;
        for (std::size_t at = text.find(head); at != text.npos; at = text.find(head, at + 1))
            ++lines;
        EXPECT_EQ(g_dpm_failed_checks - counted, lines);
        return lines;
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
    EXPECT_EQ(lines_of([this] {
                  for (Entry &entry : entries)
                      EXPECT_EQ(dpm_avl_add(&tree, &entry), nullptr);
              }),
              3u);
    for (Entry &entry : entries)
        lines_of([&] { EXPECT_EQ(dpm_avl_find(&tree, &entry, nullptr), &entry); });
    factor = 0; // whatever is asked for is equal to the root
    EXPECT_EQ(
        lines_of([this] { EXPECT_EQ(dpm_avl_find(&tree, &entries[0], nullptr), &entries[1]); }),
        0u);
}

TEST_F(AvlChecks, NullArgumentsPrintTheirLineAndReturn) {
    void *cookie = nullptr;
    Entry &entry = entries[0];
    const std::function<void()> deeds[] = {
        [&] { dpm_avl_create(nullptr, raw_order, sizeof entry, 0); },
        [&] { dpm_avl_create(&tree, nullptr, sizeof entry, 0); },
        [&] { EXPECT_FALSE(dpm_avl_find(nullptr, &entry, nullptr)); },
        [&] { EXPECT_FALSE(dpm_avl_find(&tree, &entry, nullptr)); }, // no compare yet
        [&] { EXPECT_FALSE(dpm_avl_add(nullptr, &entry)); },
        [&] { EXPECT_FALSE(dpm_avl_add(&tree, &entry)); },
        [&] { dpm_avl_insert(nullptr, &entry, 0); },
        [&] { dpm_avl_insert_here(nullptr, &entry, &entry, 0); },
        [&] { dpm_avl_insert_here(&tree, &entry, nullptr, 0); },
        [&] { dpm_avl_remove(nullptr, &entry); },
        [&] { EXPECT_FALSE(dpm_avl_nearest(nullptr, 0, 0)); },
        [&] { EXPECT_EQ(dpm_avl_numnodes(nullptr), 0u); },
        [&] { EXPECT_EQ(dpm_avl_is_empty(nullptr), 1); },
        [&] { EXPECT_FALSE(dpm_avl_destroy_nodes(nullptr, &cookie)); },
        [&] { dpm_avl_destroy(nullptr); },
    };
    for (const auto end : {dpm_avl_first, dpm_avl_last})
        EXPECT_EQ(lines_of([&] { EXPECT_FALSE(end(nullptr)); }), 1u);
    for (const auto step : {dpm_avl_next, dpm_avl_prev})
        EXPECT_EQ(lines_of([&] { EXPECT_FALSE(step(nullptr, &entry)); }), 1u);
    for (const auto update : {dpm_avl_update, dpm_avl_update_lt, dpm_avl_update_gt})
        EXPECT_EQ(lines_of([&] { EXPECT_EQ(update(nullptr, &entry), 0); }), 1u);
    for (std::size_t i = 0; i < std::size(deeds); ++i)
        EXPECT_EQ(lines_of(deeds[i]), 1u) << "deed " << i;
}

TEST_F(AvlChecks, MisuseIsToldAndDoesNotStopTheProcess) {
    EXPECT_EQ(lines_of([this] { dpm_avl_create(&tree, raw_order, 0, 0); }), 2u) << "size, offset";
    EXPECT_EQ(lines_of([this] {
                  dpm_avl_create(&tree, raw_order, sizeof(Entry) - 1, offsetof(Entry, node));
              }),
              1u);
    dpm_avl_create(&tree, raw_order, sizeof(Entry), offsetof(Entry, node));
    factor = 1;
    lines_of([this] { dpm_avl_add(&tree, &entries[1]); });
    EXPECT_EQ(lines_of([this] { EXPECT_EQ(dpm_avl_nearest(&tree, 0, DPM_AVL_AFTER), nullptr); }),
              1u)
        << "a cookie of an empty tree";
    EXPECT_EQ(lines_of([this] { dpm_avl_destroy(&tree); }), 2u) << "entries and a root";
    EXPECT_EQ(lines_of([this] { dpm_avl_insert(&tree, &entries[0], 0); }), 1u) << "taken place";
}
