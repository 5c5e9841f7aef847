// What an Os keeps, shared by the sources of this folder.
//
// Handles that are given to the library are pointers to objects that live as long as the card,
// deleted or not: a handle used after its end is an error that is counted, never a crash.  Times
// below are nanoseconds.
#pragma once

#include "chassis/os/os.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <csetjmp>
#include <deque>
#include <pthread.h>
#include <thread>
#include <time.h>

namespace chassis::os {

inline constexpr std::int64_t nsec_per_tick = nsec_per_sec / ticks_per_second;

// The kernel's clock, whatever the current card's clock says; every wait of the chassis is measured
// with it.
std::int64_t raw_nsec(clockid_t clock = CLOCK_MONOTONIC);
timespec to_timespec(std::int64_t nsec);

// A mutex and a condition variable that waits on the kernel's monotonic clock.
class Monitor {
public:
    Monitor();
    ~Monitor();
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    void lock() { pthread_mutex_lock(&mutex_); }
    void unlock() { pthread_mutex_unlock(&mutex_); }
    void signal() { pthread_cond_signal(&condition_); }
    void broadcast() { pthread_cond_broadcast(&condition_); }
    void wait() { pthread_cond_wait(&condition_, &mutex_); }
    // False once the deadline has passed; a negative one never does.
    bool wait_until(std::int64_t deadline_nsec);

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_;
};

// The deadline of a timeout in ticks; -1 for one without limit.
std::int64_t deadline_after_ticks(int ticks);

// One kind of operation that can be told to fail.  The common case costs one relaxed load.
class FaultSwitch {
public:
    void arm(unsigned nth, unsigned count);
    bool trips() { return armed_.load(std::memory_order_relaxed) && trips_armed(); }

private:
    bool trips_armed();
    std::atomic<bool> armed_{false};
    std::mutex mutex_;
    unsigned skip_ = 0, left_ = 0;
};

// Heap blocks of a card, linked so that they can be given back with it, and counted by place.
class Heap {
public:
    struct Block;
    ~Heap();

    void *take(std::size_t size_bytes, const char *file, int line);
    static bool give_back(void *memory, const char *file, int line); // false: not a live block
    static std::size_t size_of(const void *memory);

    std::size_t blocks() const;
    std::size_t bytes() const;
    std::map<Place, PlaceUse> by_place() const;

private:
    struct Use { // of one place; the key is file (high) and line (low), 0 while free
        std::atomic<std::uint64_t> key{0};
        std::atomic<std::uint32_t> blocks{0}, bytes{0};
    };
    struct Shard {
        std::atomic_flag busy = ATOMIC_FLAG_INIT;
        Block *first = nullptr;
    };
    Use &use_of(const char *file, int line);
    Shard &shard_of(const Block *block);
    void link(Block *block);
    void unlink(Block *block);

    std::array<Use, 2048> uses_;
    std::array<Shard, 16> shards_;
};

enum class HandleKind : std::uint32_t {
    mutex = 0x4d555458,
    binary = 0x42494e53,
    queue = 0x51554555
};

struct Handle {
    explicit Handle(HandleKind kind, unsigned number) : kind(kind), number(number) {}
    HandleKind kind;
    unsigned number; // of creation, from 1
    std::atomic<bool> deleted{false};
};

struct Semaphore : Handle {
    Semaphore(HandleKind kind, unsigned number, bool full);
    ~Semaphore();
    pthread_mutex_t mutex; // of a mutex semaphore
    Monitor monitor;       // of a binary one, with:
    bool full;
    unsigned releases = 0;
};

struct Queue : Handle {
    Queue(unsigned number, std::uint32_t capacity, std::uint32_t message_bytes);
    std::byte *slot(std::uint32_t position) const {
        return ring.get() + std::size_t(position) * slot_bytes;
    }

    const std::uint32_t capacity, message_bytes, slot_bytes; // a slot is a length and a message
    std::unique_ptr<std::byte[]> ring;
    Monitor monitor; // guards what follows
    std::uint32_t head = 0, count = 0;
    unsigned receivers = 0, senders = 0; // waiting
    std::uint32_t received = 0;          // messages so far; it wraps
    unsigned wakes = 0;                  // receivers waiting before a change of it answer empty
};

struct Os::State {
    explicit State(Mode mode) : mode(mode) {}

    const Mode mode;
    Heap heap;
    std::atomic<std::uint64_t> bad_frees{0};
    std::array<FaultSwitch, 4> faults;

    std::atomic<std::int64_t> clock_nsec{0}; // pumped: the time; threaded: added to the kernel's
    std::atomic<std::uint64_t> clock_reads{0}, delays{0};
    std::atomic<bool> skip_delays{false};

    mutable std::mutex handles_mutex; // guards the three below
    std::deque<std::unique_ptr<Semaphore>> semaphores;
    std::deque<std::unique_ptr<Queue>> queues;
    std::vector<unsigned> deleted_semaphores;
    std::atomic<std::uint64_t> handle_errors{0};
    std::atomic<std::uint32_t> queue_limit{0};
    std::atomic<std::uint32_t> queued{0};

    struct Step {
        std::uint32_t behind; // so many messages
        std::function<void()> take;
    };
    std::mutex step_mutex; // guards the one below
    std::deque<Step> steps;
    std::atomic<bool> has_step{false};

    mutable std::mutex tasks_mutex; // guards the two below
    std::vector<Task> tasks;
    std::vector<pthread_t> threads;
    std::atomic<bool> stopping{false};

    mutable std::mutex log_mutex; // guards what follows but the level
    std::atomic<int> log_level{0};
    std::function<void(const LogLine &)> sink;
    std::vector<std::string> modules; // by id, from 1
    std::map<std::uint32_t, std::string> versions;

    bool fails(Fault kind) { return faults[std::size_t(kind)].trips(); }
    void wake_receivers();
    void take_step(Queue &queue);
    int handle_error() { return handle_errors.fetch_add(1, std::memory_order_relaxed), -1; }
};

// Leaves the calling task for good when it is one of the chassis' (a receive of a card that ends).
void leave_task();

// The current card's state.
Os::State &state();

} // namespace chassis::os
