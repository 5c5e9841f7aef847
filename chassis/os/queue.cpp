// Message queues: a ring in memory, one mutex, and a wake-up only for those who wait.
//
// In pumped mode nothing waits: a receive from an empty queue and a send to a full one answer at
// once.

#include "chassis/os/state.h"
#include "platform/bep.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace chassis::os {

Queue::Queue(unsigned number, std::uint32_t capacity, std::uint32_t message_bytes)
    : Handle(HandleKind::queue, number), capacity(capacity), message_bytes(message_bytes),
      slot_bytes((message_bytes + sizeof(std::uint32_t) + 3) & ~3u),
      ring(new std::byte[std::size_t(capacity) * slot_bytes]) {}

namespace {

Queue *usable(bep_msgq handle) {
    auto *const queue = static_cast<Queue *>(handle);
    return queue && queue->kind == HandleKind::queue && !queue->deleted ? queue : nullptr;
}

std::uint32_t room(const Queue &queue, const Os::State &state) {
    const std::uint32_t limit = state.queue_limit.load(std::memory_order_relaxed);
    return limit ? std::min(limit, queue.capacity) : queue.capacity;
}

bool wait_for_room(Queue &queue, Os::State &state, int timeout_ticks) {
    if (timeout_ticks == 0 || state.mode == Mode::pumped)
        return false;
    const std::int64_t deadline = deadline_after_ticks(timeout_ticks);
    ++queue.senders;
    while (queue.count >= room(queue, state) && !queue.deleted &&
           queue.monitor.wait_until(deadline))
        ;
    --queue.senders;
    return queue.count < room(queue, state) && !queue.deleted;
}

bool wait_for_message(Queue &queue, Os::State &state, int timeout_ticks) {
    if (timeout_ticks == 0 || state.mode == Mode::pumped)
        return false;
    const std::int64_t deadline = deadline_after_ticks(timeout_ticks);
    const unsigned wakes = queue.wakes;
    ++queue.receivers;
    while (!queue.count && queue.wakes == wakes && !queue.deleted && !state.stopping &&
           queue.monitor.wait_until(deadline))
        ;
    --queue.receivers;
    return queue.count;
}

void put(Queue &queue, const void *message, std::uint32_t length_bytes) {
    std::uint32_t at = queue.head + queue.count;
    if (at >= queue.capacity)
        at -= queue.capacity;
    std::byte *const slot = queue.slot(at);
    std::memcpy(slot, &length_bytes, sizeof length_bytes);
    std::memcpy(slot + sizeof length_bytes, message, length_bytes);
    ++queue.count;
}

int get(Queue &queue, void *buffer, std::uint32_t size_bytes) {
    const std::byte *const slot = queue.slot(queue.head);
    std::uint32_t length_bytes = 0;
    std::memcpy(&length_bytes, slot, sizeof length_bytes);
    length_bytes = std::min(length_bytes, size_bytes);
    std::memcpy(buffer, slot + sizeof length_bytes, length_bytes);
    if (++queue.head == queue.capacity)
        queue.head = 0;
    --queue.count;
    ++queue.received;
    return int(length_bytes);
}

} // namespace

std::size_t Os::queued() const {
    return state_->queued.load(std::memory_order_relaxed);
}
void Os::limit_queue(std::size_t messages) {
    state_->queue_limit = std::uint32_t(messages);
}

bool Os::has_room(std::size_t messages) const {
    std::lock_guard lock(state_->handles_mutex);
    return std::ranges::all_of(state_->queues, [&](const auto &queue) {
        std::lock_guard counting(queue->monitor);
        return queue->deleted || queue->count == 0 ||
               queue->count + messages <= room(*queue, *state_);
    });
}

std::uint32_t Os::posted() const {
    std::lock_guard lock(state_->handles_mutex);
    std::uint32_t posted = 0;
    for (const auto &queue : state_->queues) {
        std::lock_guard counting(queue->monitor);
        posted += queue->received + queue->count;
    }
    return posted;
}

// A task that comes back for the next message has carried out the last one.
bool Os::has_finished(std::uint32_t count) const {
    if (tasks().empty())
        return true;
    std::lock_guard lock(state_->handles_mutex);
    std::uint32_t received = 0;
    bool waits = false;
    for (const auto &queue : state_->queues) {
        std::lock_guard counting(queue->monitor);
        received += queue->received;
        waits |= queue->receivers > 0;
    }
    const auto ahead = std::int32_t(received - count);
    return ahead > 0 || (ahead == 0 && waits);
}

void Os::behind_queue(std::function<void()> step) {
    const std::uint32_t behind = posted();
    {
        const std::lock_guard lock(state_->step_mutex);
        state_->steps.push_back({behind, std::move(step)});
        state_->has_step = true;
    }
    state_->wake_receivers();
}

// By a receiver that comes back for the next message: it has carried out the last one.
void Os::State::take_step(Queue &queue) {
    std::function<void()> due;
    {
        const std::lock_guard lock(step_mutex);
        const std::lock_guard counting(queue.monitor);
        if (steps.empty() || std::int32_t(queue.received - steps.front().behind) < 0)
            return;
        due = std::move(steps.front().take);
        steps.pop_front();
        has_step = !steps.empty();
    }
    due();
}

void Os::State::wake_receivers() {
    std::lock_guard lock(handles_mutex);
    for (auto &queue : queues) {
        std::lock_guard waiting(queue->monitor);
        ++queue->wakes;
        queue->monitor.broadcast();
    }
}

} // namespace chassis::os

using namespace chassis::os;

extern "C" {

bep_msgq bep_msgQCreateEx(uint32_t max_messages, uint32_t max_message_bytes, uint32_t, const char *,
                          int) {
    Os::State &state = chassis::os::state();
    if (state.fails(Fault::queue) || !max_messages)
        return nullptr;
    std::lock_guard lock(state.handles_mutex);
    const auto number = unsigned(state.queues.size() + 1);
    return state.queues
        .emplace_back(std::make_unique<Queue>(number, max_messages, max_message_bytes))
        .get();
}

int bep_msgQSendEx(bep_msgq handle, const void *message, uint32_t length_bytes, int timeout_ticks,
                   int, const char *, int) {
    Os::State &state = chassis::os::state();
    Queue *const queue = usable(handle);
    if (!queue || length_bytes > queue->message_bytes)
        return state.handle_error();
    if (state.fails(Fault::send))
        return -1;
    std::lock_guard lock(queue->monitor);
    if (queue->count >= room(*queue, state) && !wait_for_room(*queue, state, timeout_ticks))
        return -1;
    put(*queue, message, length_bytes);
    state.queued.fetch_add(1, std::memory_order_relaxed);
    if (queue->receivers)
        queue->monitor.broadcast(); // senders may wait on the same condition
    return 0;
}

int bep_msgQReceiveEx(bep_msgq handle, void *buffer, uint32_t size_bytes, int timeout_ticks,
                      const char *, int) {
    Os::State &state = chassis::os::state();
    Queue *const queue = usable(handle);
    if (!queue)
        return state.handle_error();
    if (state.has_step)
        state.take_step(*queue);
    int received = -1;
    {
        std::lock_guard lock(queue->monitor);
        if (queue->count || wait_for_message(*queue, state, timeout_ticks)) {
            received = get(*queue, buffer, size_bytes);
            state.queued.fetch_sub(1, std::memory_order_relaxed);
            if (queue->senders)
                queue->monitor.broadcast();
        }
    }
    if (received < 0 && state.stopping)
        leave_task();
    return received;
}

int bep_msgQDeleteEx(bep_msgq handle, const char *, int) {
    Os::State &state = chassis::os::state();
    Queue *const queue = usable(handle);
    if (!queue || queue->deleted.exchange(true))
        return state.handle_error();
    std::lock_guard lock(queue->monitor);
    queue->received += queue->count;
    state.queued.fetch_sub(queue->count, std::memory_order_relaxed);
    queue->count = 0;
    queue->monitor.broadcast();
    return 0;
}

} // extern "C"
