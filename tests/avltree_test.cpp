// The tree against a reference container, with order, balance and links checked at every node.
//
// One body over two layouts: the header in front of the entry, and in the middle of it.

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

struct HeaderFirst {
    dpm_avl_node node;
    unsigned key;
};
struct HeaderInside {
    unsigned key;
    char rest[40];
    dpm_avl_node node;
};

template <class Entry> int order(const Entry &a, const Entry &b) {
    return a.key < b.key ? -1 : a.key > b.key;
}

template <class Entry> class AvlTree : public ::testing::Test {
protected:
    using Table = dpm::avl_table<Entry, order<Entry>, offsetof(Entry, node)>;
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
    }

    const std::uint32_t failed_before = g_dpm_failed_checks;
    std::vector<Entry> pool;
    dpm_avl_tree tree{};
    Table table{tree};
    std::set<unsigned> keys;
    std::mt19937 random{2021};
};

using Layouts = ::testing::Types<HeaderFirst, HeaderInside>;
TYPED_TEST_SUITE(AvlTree, Layouts);

} // namespace

TYPED_TEST(AvlTree, RandomInsertsAndErasesKeepItSoundAtEveryStep) {
    for (unsigned step = 0; step < 12'000; ++step) {
        const unsigned index = this->any();
        // The share of entries present swings, so that the tree grows and shrinks as a whole.
        const bool grow = step / 1500 % 2 == 0;
        const bool present = this->has(index);
        if (present && (!grow || step % 3 == 0))
            this->remove(index);
        else if (!present && (grow || step % 3 == 0))
            this->add(index);
        else if (TypeParam twin = this->pool[index]; present)
            ASSERT_EQ(dpm_avl_add(&this->tree, &twin), &this->pool[index]) << "is told";
        ASSERT_EQ(rig::tree_problem(this->tree), "") << "after step " << step;
        if (step % 50 == 0)
            this->expect_same_as_reference();
    }
    while (!this->keys.empty())
        this->remove(*this->keys.begin() / 2);
    EXPECT_EQ(this->tree.root, nullptr);
    this->expect_same_as_reference();
}

TYPED_TEST(AvlTree, AFailedFindTellsTheNeighboursAndThePlaceOfALaterInsert) {
    this->add_random(0.3);
    for (unsigned key = 0; key <= 2 * this->pool_size; ++key) {
        dpm_avl_where where = 1, typed_where = 1;
        const TypeParam wanted = this->key_of(key);
        void *const found = dpm_avl_find(&this->tree, &wanted, &where);
        ASSERT_EQ(this->table.find(wanted, typed_where), found);
        ASSERT_EQ(this->table.find(wanted), found);
        ASSERT_EQ(this->key_at(found), this->keys.contains(key) ? int(key) : -1);
        const auto after = this->keys.lower_bound(key);
        ASSERT_EQ(this->key_at(this->table.find_from(wanted)),
                  after == this->keys.end() ? -1 : int(*after));
        if (found)
            continue;
        ASSERT_EQ(typed_where, where);
        ASSERT_EQ(this->key_at(dpm_avl_nearest(&this->tree, where, DPM_AVL_AFTER)),
                  after == this->keys.end() ? -1 : int(*after));
        ASSERT_EQ(this->key_at(dpm_avl_nearest(&this->tree, where, DPM_AVL_BEFORE)),
                  after == this->keys.begin() ? -1 : int(*std::prev(after)));
        if (key % 2 == 0 && key / 2 < this->pool_size && key % 3 == 0) {
            dpm_avl_insert(&this->tree, &this->pool[key / 2], where);
            this->keys.insert(key);
        }
    }
    this->expect_same_as_reference();
}

TYPED_TEST(AvlTree, InsertHerePutsAnEntryRightBesideAnother) {
    this->add(this->pool_size / 2);
    for (unsigned i = 0; i < this->pool_size; ++i) {
        const unsigned index = (i * 7919) % this->pool_size; // each once, in a scattered order
        if (this->has(index))
            continue;
        const unsigned key = this->pool[index].key;
        const auto after = this->keys.lower_bound(key);
        const bool behind =
            after == this->keys.end() || (after != this->keys.begin() && this->random() % 2);
        const unsigned beside = (behind ? *std::prev(after) : *after) / 2;
        dpm_avl_insert_here(&this->tree, &this->pool[index], &this->pool[beside],
                            behind ? DPM_AVL_AFTER : DPM_AVL_BEFORE);
        this->keys.insert(key);
        ASSERT_EQ(rig::tree_problem(this->tree), "");
    }
    this->expect_same_as_reference();
}

TYPED_TEST(AvlTree, AnUpdateMovesAnEntryOnlyWhenItsNewKeyAsksForIt) {
    for (unsigned i = 0; i < this->pool_size; i += 2)
        this->add(i);
    for (unsigned step = 0; step < 3000; ++step) {
        TypeParam &entry = this->pool[this->any() & ~1u];
        const unsigned key = unsigned(this->random() % (2 * this->pool_size));
        if (this->keys.contains(key))
            continue;
        const auto place = this->keys.find(entry.key);
        const auto next = std::next(place);
        const bool stays = (place == this->keys.begin() || *std::prev(place) < key) &&
                           (next == this->keys.end() || key < *next);
        const bool smaller = key < entry.key;
        this->keys.erase(place);
        this->keys.insert(key);
        entry.key = key;
        const auto update = step % 2  ? dpm_avl_update
                            : smaller ? dpm_avl_update_lt
                                      : dpm_avl_update_gt;
        ASSERT_EQ(update(&this->tree, &entry), !stays);
        ASSERT_EQ(rig::tree_problem(this->tree), "");
    }
    EXPECT_EQ(this->walked(true), std::vector<unsigned>(this->keys.begin(), this->keys.end()));
}

TYPED_TEST(AvlTree, DestroyNodesGivesEveryEntryOnceAndChildrenBeforeParents) {
    this->add_random(0.6);
    std::set<const dpm_avl_node *> given;
    std::map<const dpm_avl_node *, std::array<const dpm_avl_node *, 2>> family;
    for (const unsigned key : this->keys) {
        const dpm_avl_node &node = this->pool[key / 2].node;
        family[&node] = {node.child[0], node.child[1]};
    }
    void *cookie = nullptr;
    while (void *const entry = dpm_avl_destroy_nodes(&this->tree, &cookie)) {
        const dpm_avl_node *const node = &static_cast<TypeParam *>(entry)->node;
        ASSERT_TRUE(family.contains(node));
        for (const dpm_avl_node *const child : family[node])
            EXPECT_TRUE(!child || given.contains(child));
        EXPECT_TRUE(given.insert(node).second);
        *static_cast<TypeParam *>(entry) = {}; // as freed
        ASSERT_EQ(dpm_avl_numnodes(&this->tree), family.size() - given.size());
    }
    EXPECT_EQ(given.size(), family.size());
    this->keys.clear();
    dpm_avl_destroy(&this->tree);
    EXPECT_EQ(dpm_avl_destroy_nodes(&this->tree, &cookie), nullptr);
    this->expect_same_as_reference();
}

TYPED_TEST(AvlTree, TheTypedViewWalksAndErasesTheCurrentEntry) {
    const auto &table = this->table;
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table.first(), nullptr);
    EXPECT_EQ(table.last(), nullptr);
    for (const TypeParam &entry : table.erasable())
        ADD_FAILURE() << "an entry " << entry.key << " in an empty tree";
    for (unsigned i = 0; i < this->pool_size; i += 3) {
        EXPECT_EQ(table.add(this->pool[i]), nullptr);
        this->keys.insert(this->pool[i].key);
    }
    TypeParam twin = this->pool[3];
    EXPECT_EQ(table.add(twin), &this->pool[3]) << "the present one";
    EXPECT_EQ(table.count(), this->keys.size());
    EXPECT_EQ(table.last()->key, *this->keys.rbegin());
    EXPECT_EQ(table.next(*table.last()), nullptr);
    std::vector<unsigned> seen;
    for (const TypeParam &entry : table)
        seen.push_back(entry.key);
    EXPECT_EQ(seen, std::vector<unsigned>(this->keys.begin(), this->keys.end()));

    seen.clear();
    for (TypeParam &entry : table.erasable()) {
        seen.push_back(entry.key);
        if (entry.key % 4 == 0)
            continue;
        this->keys.erase(entry.key);
        table.remove(entry);
        entry = {}; // as freed
        ASSERT_EQ(rig::tree_problem(this->tree), "");
    }
    EXPECT_EQ(seen.size(), this->pool_size / 3);
    this->expect_same_as_reference();
}

namespace {

// Faults of the caller print a line and carry on; these tests count the lines.
class AvlChecks : public ::testing::Test {
protected:
    static int raw_order(const void *a, const void *b) {
        const auto left = int(static_cast<const HeaderFirst *>(a)->key);
        const auto right = int(static_cast<const HeaderFirst *>(b)->key);
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
    HeaderFirst entries[3] = {{{}, 10}, {{}, 20}, {{}, 30}};
    dpm_avl_tree tree{};
};

} // namespace

TEST_F(AvlChecks, ACompareResultOutOfRangeIsToldAndTheSearchGoesOnByItsSign) {
    dpm_avl_create(&tree, raw_order, sizeof(HeaderFirst), 0);
    factor = 7;
    EXPECT_EQ(lines_of([this] {
                  for (HeaderFirst &entry : entries)
                      EXPECT_EQ(dpm_avl_add(&tree, &entry), nullptr);
              }),
              3u);
    for (HeaderFirst &entry : entries)
        lines_of([&] { EXPECT_EQ(dpm_avl_find(&tree, &entry, nullptr), &entry); });
    factor = 0; // whatever is asked for is equal to the root
    EXPECT_EQ(
        lines_of([this] { EXPECT_EQ(dpm_avl_find(&tree, &entries[0], nullptr), &entries[1]); }),
        0u);
}

TEST_F(AvlChecks, NullArgumentsPrintTheirLineAndReturn) {
    void *cookie = nullptr;
    HeaderFirst &entry = entries[0];
    const std::function<void()> deeds[] = {
        [&] { dpm_avl_create(nullptr, raw_order, sizeof entry, 0); },
        [&] { dpm_avl_create(&tree, nullptr, sizeof entry, 0); },
        [&] { EXPECT_EQ(dpm_avl_find(nullptr, &entry, nullptr), nullptr); },
        [&] { EXPECT_EQ(dpm_avl_find(&tree, &entry, nullptr), nullptr); }, // no compare yet
        [&] { EXPECT_EQ(dpm_avl_add(nullptr, &entry), nullptr); },
        [&] { EXPECT_EQ(dpm_avl_add(&tree, &entry), nullptr); },
        [&] { dpm_avl_insert(nullptr, &entry, 0); },
        [&] { dpm_avl_insert_here(nullptr, &entry, &entry, 0); },
        [&] { dpm_avl_insert_here(&tree, &entry, nullptr, 0); },
        [&] { dpm_avl_remove(nullptr, &entry); },
        [&] { EXPECT_EQ(dpm_avl_first(nullptr), nullptr); },
        [&] { EXPECT_EQ(dpm_avl_last(nullptr), nullptr); },
        [&] { EXPECT_EQ(dpm_avl_next(nullptr, &entry), nullptr); },
        [&] { EXPECT_EQ(dpm_avl_prev(nullptr, &entry), nullptr); },
        [&] { EXPECT_EQ(dpm_avl_nearest(nullptr, 0, 0), nullptr); },
        [&] { EXPECT_EQ(dpm_avl_update(nullptr, &entry), 0); },
        [&] { EXPECT_EQ(dpm_avl_update_lt(nullptr, &entry), 0); },
        [&] { EXPECT_EQ(dpm_avl_update_gt(nullptr, &entry), 0); },
        [&] { EXPECT_EQ(dpm_avl_numnodes(nullptr), 0u); },
        [&] { EXPECT_EQ(dpm_avl_is_empty(nullptr), 1); },
        [&] { EXPECT_EQ(dpm_avl_destroy_nodes(nullptr, &cookie), nullptr); },
        [&] { dpm_avl_destroy(nullptr); },
    };
    for (std::size_t i = 0; i < std::size(deeds); ++i)
        EXPECT_EQ(lines_of(deeds[i]), 1u) << "deed " << i;
}

TEST_F(AvlChecks, MisuseIsToldAndDoesNotStopTheProcess) {
    EXPECT_EQ(lines_of([this] { dpm_avl_create(&tree, raw_order, 0, 0); }), 2u) << "size, offset";
    EXPECT_EQ(lines_of([this] { dpm_avl_create(&tree, raw_order, sizeof(HeaderFirst), 8); }), 1u);
    dpm_avl_create(&tree, raw_order, sizeof(HeaderFirst), 0);
    factor = 1;
    lines_of([this] { dpm_avl_add(&tree, &entries[1]); });
    EXPECT_EQ(lines_of([this] { EXPECT_EQ(dpm_avl_nearest(&tree, 0, DPM_AVL_AFTER), nullptr); }),
              1u)
        << "a cookie of an empty tree";
    EXPECT_EQ(lines_of([this] { dpm_avl_destroy(&tree); }), 2u) << "entries and a root";
    EXPECT_EQ(lines_of([this] { dpm_avl_insert(&tree, &entries[0], 0); }), 1u) << "taken place";
}
