// The operating system of a card: memory with accounting, queues, semaphores, tasks, the clock and
// the log.
//
// Threaded mode uses real threads and waits; pumped mode runs on the caller's thread, never waits,
// and its clock moves only when told.  clock_gettime(CLOCK_MONOTONIC) of the whole process answers
// the current card's clock.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace chassis::os {

enum class Mode { threaded, pumped };

inline constexpr int ticks_per_second = 1000;
inline constexpr std::int64_t nsec_per_sec = 1'000'000'000;
// A 32-bit clock ends at 2^31 seconds; behind this there are still some years to run.
inline constexpr std::int64_t latest_clock_sec = 2'000'000'000;

// Kinds of operation that can be told to fail.
enum class Fault { allocation, semaphore, queue, send };

struct Place { // where a live block was taken
    std::string file;
    int line;
    auto operator<=>(const Place &) const = default;
};

struct PlaceUse {
    std::size_t blocks;
    std::size_t bytes;
};

struct Task { // as asked for with rqzt_task_spawn
    std::string name;
    int priority;
    int options;
    int stack_bytes;
    int (*entry)();
    std::array<int, 10> arguments;
};

struct LogLine {
    std::uint32_t module_id;
    int level;
    std::string text; // one line: without its end, control characters as blanks
    std::string raw;  // as it was logged, line end and all
};

class Os {
public:
    explicit Os(Mode mode);
    ~Os();

    Mode mode() const { return mode_; }

    // Memory: what is live, in total and by place.
    std::size_t live_blocks() const;
    std::size_t live_bytes() const;
    std::map<Place, PlaceUse> live_by_place() const;

    // Blocks given back twice, or that were never taken; each is printed to stderr as well.
    std::uint64_t bad_frees() const;

    // The Nth operation of a kind from now on fails (1: the next), `count` of them in a row; 0
    // disarms.
    void fail(Fault kind, unsigned nth, unsigned count = 1);

    // Clock: monotonic nanoseconds of this card.  advance() moves it forward; in threaded mode it
    // adds an offset.  It is refused past latest_clock_sec.
    std::int64_t now_nsec() const;
    bool advance(std::int64_t nsec);
    std::uint64_t
    clock_reads() const; // how often clock_gettime(CLOCK_MONOTONIC) was asked on this card

    // Delays asked for by bep_taskDelayEx, one entry a call (pumped mode keeps them; threaded mode
    // sleeps).
    std::uint64_t delays() const;
    // Threaded mode sleeps no more while its queues are short: for measuring without the pacing.
    void skip_delays(bool on);

    // Queues: messages waiting in all of them, and how many a queue takes (0: as created).
    std::size_t queued() const;
    void limit_queue(std::size_t messages);
    // Whether every queue takes so many messages now, or is empty and will never take more.
    bool has_room(std::size_t messages) const;
    // How many messages were sent so far (it wraps), and whether the tasks have carried out the
    // first `count` of them.
    std::uint32_t posted() const;
    bool has_finished(std::uint32_t count) const;
    // Is carried out once by the task that receives, behind the messages that are queued now, and
    // the steps before it, and before any that come later.
    void behind_queue(std::function<void()> step);

    // Log: lines go to the sink, which by default writes "time level module text" to stderr.
    // `level` and above only.
    void log_to(std::function<void(const LogLine &)> sink);
    void log_to_file(const std::string &path);
    void log_level(int level);

    // Semaphore handles deleted, in order: number of creation, from 1 (for tests of failing
    // start-up).
    const std::vector<unsigned> &deleted_semaphores() const;
    // Calls with a handle that is null, deleted or of another kind.
    std::uint64_t handle_errors() const;
    // Every take of a binary semaphore that is waiting now answers -1 (threaded mode).
    void release_waiters();

    // Tasks spawned so far.  Pumped mode keeps the entry and never runs it.
    std::vector<Task> tasks() const;
    // What setModVersion told of a module.
    std::string module_version(std::uint32_t module_id) const;
    // Threaded mode: tasks leave at their next receive and are joined; for the end of a card.
    void stop();

    struct State;
    State &state() { return *state_; }

private:
    Mode mode_;
    std::unique_ptr<State> state_;
};

} // namespace chassis::os
