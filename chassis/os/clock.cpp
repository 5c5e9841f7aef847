// The clock of a card, and waiting.
//
// clock_gettime of the whole process is defined here, so that the library's monotonic clock is the
// current card's: in pumped mode a number that moves when told, in threaded mode the kernel's with
// an offset.  Waits never use it: they ask the kernel's clock itself, or a moved clock would make
// them wait for ever.

#include "chassis/chassis.h"
#include "chassis/os/state.h"
#include "platform/bep.h"

#include <cerrno>
#include <dlfcn.h>

namespace chassis::os {

namespace {

// The C library's own, which does not enter the kernel.
int real_clock_gettime(clockid_t clock, timespec *now) {
    static const auto real =
        reinterpret_cast<int (*)(clockid_t, timespec *)>(dlsym(RTLD_NEXT, "clock_gettime"));
    return real(clock, now);
}

} // namespace

std::int64_t raw_nsec(clockid_t clock) {
    timespec now{};
    (void)real_clock_gettime(clock, &now);
    return now.tv_sec * nsec_per_sec + now.tv_nsec;
}

timespec to_timespec(std::int64_t nsec) {
    return {.tv_sec = time_t(nsec / nsec_per_sec), .tv_nsec = long(nsec % nsec_per_sec)};
}

Monitor::Monitor() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
}

Monitor::~Monitor() {
    pthread_cond_destroy(&condition_);
    pthread_mutex_destroy(&mutex_);
}

bool Monitor::wait_until(std::int64_t deadline_nsec) {
    if (deadline_nsec < 0)
        return wait(), true;
    const timespec deadline = to_timespec(deadline_nsec);
    return pthread_cond_timedwait(&condition_, &mutex_, &deadline) != ETIMEDOUT;
}

std::int64_t deadline_after_ticks(int ticks) {
    return ticks < 0 ? -1 : raw_nsec() + ticks * nsec_per_tick;
}

std::int64_t Os::now_nsec() const {
    const std::int64_t own = state_->clock_nsec.load(std::memory_order_relaxed);
    return mode_ == Mode::pumped ? own : raw_nsec() + own;
}

bool Os::advance(std::int64_t nsec) {
    if (nsec > latest_clock_sec * nsec_per_sec - now_nsec())
        return false;
    state_->clock_nsec += nsec;
    state_->wake_receivers();
    return true;
}

std::uint64_t Os::clock_reads() const {
    return state_->clock_reads;
}
std::uint64_t Os::delays() const {
    return state_->delays;
}
void Os::skip_delays(bool on) {
    state_->skip_delays = on;
}

} // namespace chassis::os

using namespace chassis;

namespace {

// With so many waiting a sender rests all the same: a queue that fills up loses messages.
constexpr std::uint32_t crowd_messages = 8192;

} // namespace

extern "C" {

__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec *now) noexcept {
    Card *const card = clock == CLOCK_MONOTONIC ? current() : nullptr;
    if (!card)
        return os::real_clock_gettime(clock, now);
    card->os.state().clock_reads.fetch_add(1, std::memory_order_relaxed);
    *now = os::to_timespec(card->os.now_nsec());
    return 0;
}

int bep_taskDelayEx(int ticks) {
    os::Os::State &state = os::state();
    state.delays.fetch_add(1, std::memory_order_relaxed);
    if (state.mode == os::Mode::pumped || ticks <= 0)
        return 0;
    if (state.skip_delays && state.queued.load(std::memory_order_relaxed) < crowd_messages)
        return 0;
    timespec left = os::to_timespec(ticks * os::nsec_per_tick);
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
        ;
    return 0;
}

int bep_sysClkRateGetEx() {
    return os::ticks_per_second;
}

} // extern "C"
