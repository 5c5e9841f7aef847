// Semaphores: recursive mutexes and binary semaphores.
//
// A mutex semaphore is a recursive mutex of the threads library.  In pumped mode there is one
// thread, which therefore never waits for one; an empty binary semaphore answers at once there.

#include "chassis/os/state.h"
#include "platform/bep.h"

#include <mutex>
#include <utility>

namespace chassis::os {

Semaphore::Semaphore(HandleKind kind, unsigned number, bool full)
    : Handle(kind, number), full(full) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

Semaphore::~Semaphore() {
    pthread_mutex_destroy(&mutex);
}

namespace {

bep_sem create(HandleKind kind, bool full) {
    Os::State &state = os::state();
    if (state.fails(Fault::semaphore))
        return nullptr;
    std::lock_guard lock(state.handles_mutex);
    const auto number = unsigned(state.semaphores.size() + 1);
    return state.semaphores.emplace_back(std::make_unique<Semaphore>(kind, number, full)).get();
}

bool is_semaphore(const Semaphore *sem) {
    return sem && (sem->kind == HandleKind::mutex || sem->kind == HandleKind::binary);
}

// The semaphore behind a handle while it may be used, else null.
Semaphore *usable(bep_sem handle) {
    auto *const sem = static_cast<Semaphore *>(handle);
    return is_semaphore(sem) && !sem->deleted ? sem : nullptr;
}

int take_mutex(Semaphore &sem, int timeout_ticks) {
    if (timeout_ticks < 0)
        return pthread_mutex_lock(&sem.mutex) ? -1 : 0;
    if (timeout_ticks == 0)
        return pthread_mutex_trylock(&sem.mutex) ? -1 : 0;
    const timespec deadline = to_timespec(deadline_after_ticks(timeout_ticks));
    return pthread_mutex_clocklock(&sem.mutex, CLOCK_MONOTONIC, &deadline) ? -1 : 0;
}

int take_binary(Semaphore &sem, int timeout_ticks, Mode mode) {
    std::lock_guard lock(sem.monitor);
    if (!sem.full && mode == Mode::threaded && timeout_ticks != 0) {
        const std::int64_t deadline = deadline_after_ticks(timeout_ticks);
        const unsigned releases = sem.releases;
        while (!sem.full && sem.releases == releases && sem.monitor.wait_until(deadline))
            ;
    }
    return std::exchange(sem.full, false) ? 0 : -1;
}

} // namespace

void Os::release_waiters() {
    std::lock_guard lock(state_->handles_mutex);
    for (auto &sem : state_->semaphores) {
        std::lock_guard waiting(sem->monitor);
        ++sem->releases;
        sem->monitor.broadcast();
    }
}

const std::vector<unsigned> &Os::deleted_semaphores() const {
    return state_->deleted_semaphores;
}
std::uint64_t Os::handle_errors() const {
    return state_->handle_errors;
}

} // namespace chassis::os

using namespace chassis::os;

extern "C" {

bep_sem bep_semMCreateEx(uint32_t, const char *, int) {
    return create(HandleKind::mutex, true);
}

bep_sem bep_semBCreateEx(uint32_t, int initial_state, const char *, int) {
    return create(HandleKind::binary, initial_state != BEP_SEM_EMPTY);
}

int bep_semTakeEx(bep_sem handle, int timeout_ticks, const char *, int) {
    Os::State &state = chassis::os::state();
    Semaphore *const sem = usable(handle);
    if (!sem)
        return state.handle_error();
    return sem->kind == HandleKind::mutex ? take_mutex(*sem, timeout_ticks)
                                          : take_binary(*sem, timeout_ticks, state.mode);
}

int bep_semGiveEx(bep_sem handle, const char *, int) {
    Semaphore *const sem = usable(handle);
    if (!sem)
        return chassis::os::state().handle_error();
    if (sem->kind == HandleKind::mutex)
        return pthread_mutex_unlock(&sem->mutex) ? chassis::os::state().handle_error() : 0;
    std::lock_guard lock(sem->monitor);
    sem->full = true;
    sem->monitor.signal();
    return 0;
}

int bep_semDeleteEx(bep_sem handle, const char *, int) {
    Os::State &state = chassis::os::state();
    auto *const sem = static_cast<Semaphore *>(handle);
    if (!is_semaphore(sem))
        return state.handle_error();
    std::lock_guard lock(state.handles_mutex);
    state.deleted_semaphores.push_back(sem->number);
    return sem->deleted.exchange(true) ? state.handle_error() : 0;
}

} // extern "C"
