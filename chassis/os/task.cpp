// Tasks, module registration, faults, and the life of an Os.
//
// The library's worker never returns while its queue is there, and the queue is never deleted.  A
// card that ends nevertheless ends its tasks: a receive on such a task jumps back to the task's
// start, where no lock is held and nothing is left to release.

#include "chassis/chassis.h"
#include "chassis/os/state.h"
#include "platform/rqzt.h"

#include <algorithm>

namespace chassis::os {

namespace {

constexpr std::int64_t first_pumped_nsec = 1000 * nsec_per_sec; // 0 would read as "not armed"
constexpr std::size_t max_tasks = 256;                          // of a card; those that ended count
constexpr std::size_t min_stack_bytes = 1 << 20; // sanitizers need more than asked for

thread_local std::jmp_buf *task_start = nullptr;

void *run_task(void *entry) {
    std::jmp_buf start;
    if (setjmp(start) == 0) {
        task_start = &start;
        reinterpret_cast<rqzt_task_entry>(entry)();
    }
    return nullptr;
}

int start_thread(Os::State &state, rqzt_task_entry entry, int stack_bytes) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::max<std::size_t>(stack_bytes, min_stack_bytes));
    pthread_t thread{};
    const int result =
        pthread_create(&thread, &attributes, run_task, reinterpret_cast<void *>(entry));
    pthread_attr_destroy(&attributes);
    if (result == 0)
        state.threads.push_back(thread);
    return result;
}

} // namespace

void leave_task() {
    if (task_start)
        std::longjmp(*task_start, 1);
}

Os::State &state() {
    return card().os.state();
}

void FaultSwitch::arm(unsigned nth, unsigned count) {
    std::lock_guard lock(mutex_);
    skip_ = nth ? nth - 1 : 0;
    left_ = nth ? count : 0;
    armed_ = left_ > 0;
}

bool FaultSwitch::trips_armed() {
    std::lock_guard lock(mutex_);
    if (left_ == 0)
        return false;
    if (skip_ > 0)
        return --skip_, false;
    armed_ = --left_ > 0;
    return true;
}

Os::Os(Mode mode) : mode_(mode), state_(std::make_unique<State>(mode)) {
    if (mode == Mode::pumped)
        state_->clock_nsec = first_pumped_nsec;
}

Os::~Os() {
    stop();
}

void Os::stop() {
    state_->stopping = true;
    state_->wake_receivers();
    release_waiters();
    std::vector<pthread_t> threads;
    {
        std::lock_guard lock(state_->tasks_mutex);
        threads.swap(state_->threads);
    }
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
}

void Os::fail(Fault kind, unsigned nth, unsigned count) {
    state_->faults[std::size_t(kind)].arm(nth, count);
}

std::vector<Task> Os::tasks() const {
    std::lock_guard lock(state_->tasks_mutex);
    return state_->tasks;
}

std::string Os::module_version(std::uint32_t module_id) const {
    std::lock_guard lock(state_->log_mutex);
    const auto found = state_->versions.find(module_id);
    return found == state_->versions.end() ? std::string() : found->second;
}

} // namespace chassis::os

using namespace chassis::os;

extern "C" {

int rqzt_task_spawn(const char *name, int priority, int options, int stack_bytes,
                    rqzt_task_entry entry, int arg1, int arg2, int arg3, int arg4, int arg5,
                    int arg6, int arg7, int arg8, int arg9, int arg10) {
    Os::State &state = chassis::os::state();
    std::lock_guard lock(state.tasks_mutex);
    if (state.tasks.size() == max_tasks)
        return -1;
    state.tasks.push_back({name,
                           priority,
                           options,
                           stack_bytes,
                           entry,
                           {arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8, arg9, arg10}});
    if (state.mode == Mode::threaded && start_thread(state, entry, stack_bytes) != 0)
        return -1;
    return int(state.tasks.size());
}

uint32_t modInitRegister(const char *name, void *, void *, void *) {
    Os::State &state = chassis::os::state();
    std::lock_guard lock(state.log_mutex);
    state.modules.emplace_back(name);
    return uint32_t(state.modules.size());
}

int setModVersion(uint32_t module_id, int, const char *version) {
    Os::State &state = chassis::os::state();
    std::lock_guard lock(state.log_mutex);
    state.versions[module_id] = version;
    return 0;
}

} // extern "C"
