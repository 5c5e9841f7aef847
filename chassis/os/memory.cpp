// Memory of a card: the C library's heap with a header in front of each block.
//
// The header links the block to its card, so that a card that ends gives everything back (the
// library itself never does), and names the place that took it.  A block goes back to the card that
// it came from, whichever is current. The magic stands last in the header, next to the memory: it
// survives the heap's own words in a freed block, so a block that is freed twice is still told
// apart from a foreign pointer.

#include "chassis/chassis.h"
#include "chassis/os/state.h"
#include "platform/bep.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sched.h>

namespace chassis::os {

namespace {
constexpr std::uint32_t live_magic = 0x4c495645;
constexpr std::uint32_t freed_magic = 0x46524545;
constexpr std::size_t max_block_bytes = 1u << 30;
} // namespace

struct Heap::Block {
    Block *previous, *next;
    Heap *owner;
    Use *use;
    std::uint32_t size_bytes;
    std::uint32_t reserved[2];
    std::uint32_t magic;

    void *memory() { return this + 1; }
    static Block *of(void *memory) { return static_cast<Block *>(memory) - 1; }
};
static_assert(sizeof(void *) != 4 || sizeof(Heap::Block) == 32);
static_assert(sizeof(Heap::Block) % alignof(std::max_align_t) == 0);

namespace {

// Also reads what is not a live block, which is the point of asking.
__attribute__((no_sanitize("address"))) std::uint32_t magic_of(const Heap::Block *block) {
    return *const_cast<const volatile std::uint32_t *>(&block->magic);
}

class ShardLock {
public:
    explicit ShardLock(std::atomic_flag &busy) : busy_(busy) {
        while (busy_.test_and_set(std::memory_order_acquire))
            sched_yield();
    }
    ~ShardLock() { busy_.clear(std::memory_order_release); }
    ShardLock(const ShardLock &) = delete;
    ShardLock &operator=(const ShardLock &) = delete;

private:
    std::atomic_flag &busy_;
};

} // namespace

Heap::~Heap() {
    for (Shard &shard : shards_)
        while (Block *block = shard.first) {
            unlink(block);
            block->magic = freed_magic;
            std::free(block);
        }
}

Heap::Use &Heap::use_of(const char *file, int line) {
    const std::uint64_t key =
        std::uint64_t(reinterpret_cast<std::uintptr_t>(file)) << 32 | std::uint32_t(line);
    std::size_t at = (key ^ key >> 29) * 0x9E3779B97F4A7C15u >> 53;
    for (std::size_t tries = 0; tries < uses_.size(); ++tries, at = (at + 1) % uses_.size()) {
        std::uint64_t found = uses_[at].key.load(std::memory_order_acquire);
        if (found == 0 && uses_[at].key.compare_exchange_strong(found, key))
            return uses_[at];
        if (found == key)
            return uses_[at];
    }
    return uses_[0]; // more places than there is room for: the count stays right in total
}

Heap::Shard &Heap::shard_of(const Block *block) {
    return shards_[reinterpret_cast<std::uintptr_t>(block) / 64 % shards_.size()];
}

void Heap::link(Block *block) {
    Shard &shard = shard_of(block);
    ShardLock lock(shard.busy);
    block->previous = nullptr;
    block->next = shard.first;
    if (block->next)
        block->next->previous = block;
    shard.first = block;
}

void Heap::unlink(Block *block) {
    Shard &shard = shard_of(block);
    ShardLock lock(shard.busy);
    (block->previous ? block->previous->next : shard.first) = block->next;
    if (block->next)
        block->next->previous = block->previous;
}

void *Heap::take(std::size_t size_bytes, const char *file, int line) {
    if (size_bytes > max_block_bytes)
        return nullptr;
    auto *block = static_cast<Block *>(std::malloc(sizeof(Block) + size_bytes));
    if (!block)
        return nullptr;
    block->owner = this;
    block->use = &use_of(file, line);
    block->size_bytes = std::uint32_t(size_bytes);
    block->magic = live_magic;
    block->use->blocks.fetch_add(1, std::memory_order_relaxed);
    block->use->bytes.fetch_add(block->size_bytes, std::memory_order_relaxed);
    link(block);
    return block->memory();
}

bool Heap::give_back(void *memory, const char *file, int line) {
    Block *block = Block::of(memory);
    if (const std::uint32_t magic = magic_of(block); magic != live_magic) {
        std::fprintf(stderr, "chassis: %s %p given back at %s:%d\n",
                     magic == freed_magic ? "freed block" : "foreign pointer", memory,
                     file ? file : "?", line);
        return false;
    }
    block->use->blocks.fetch_sub(1, std::memory_order_relaxed);
    block->use->bytes.fetch_sub(block->size_bytes, std::memory_order_relaxed);
    block->owner->unlink(block);
    block->magic = freed_magic;
    std::free(block);
    return true;
}

std::size_t Heap::size_of(const void *memory) {
    return Block::of(const_cast<void *>(memory))->size_bytes;
}

std::size_t Heap::blocks() const {
    std::size_t sum = 0;
    for (const Use &use : uses_)
        sum += use.blocks.load(std::memory_order_relaxed);
    return sum;
}

std::size_t Heap::bytes() const {
    std::size_t sum = 0;
    for (const Use &use : uses_)
        sum += use.bytes.load(std::memory_order_relaxed);
    return sum;
}

std::map<Place, PlaceUse> Heap::by_place() const {
    std::map<Place, PlaceUse> places;
    for (const Use &use : uses_) {
        const std::uint64_t key = use.key;
        const std::size_t blocks = use.blocks;
        if (!blocks)
            continue;
        const auto *file = reinterpret_cast<const char *>(std::uintptr_t(key >> 32));
        PlaceUse &place = places[{file ? file : "", int(std::uint32_t(key))}];
        place.blocks += blocks;
        place.bytes += use.bytes;
    }
    return places;
}

std::size_t Os::live_blocks() const {
    return state_->heap.blocks();
}
std::size_t Os::live_bytes() const {
    return state_->heap.bytes();
}
std::map<Place, PlaceUse> Os::live_by_place() const {
    return state_->heap.by_place();
}
std::uint64_t Os::bad_frees() const {
    return state_->bad_frees;
}

} // namespace chassis::os

using namespace chassis;

extern "C" {

void *bep_mallocEx(size_t size_bytes, const char *file, int line) {
    os::Os::State &state = os::state();
    return state.fails(os::Fault::allocation) ? nullptr : state.heap.take(size_bytes, file, line);
}

void *bep_callocEx(size_t count, size_t size_bytes, const char *file, int line) {
    size_t total = 0;
    if (__builtin_mul_overflow(count, size_bytes, &total))
        return nullptr;
    void *memory = bep_mallocEx(total, file, line);
    if (memory)
        std::memset(memory, 0, total);
    return memory;
}

void *bep_reallocEx(void *block, size_t size_bytes, const char *file, int line) {
    void *memory = bep_mallocEx(size_bytes, file, line);
    if (!block || !memory)
        return memory;
    std::memcpy(memory, block, std::min(size_bytes, os::Heap::size_of(block)));
    bep_freeEx(block, file, line);
    return memory;
}

void bep_freeEx(void *block, const char *file, int line) {
    if (block && !os::Heap::give_back(block, file, line) && current())
        ++os::state().bad_frees;
}

} // extern "C"
