// The IP stack: its neighbour cache, and the reports that answer probes.

#include "chassis/stack/state.h"

#include "chassis/chassis.h"

#include <algorithm>

namespace chassis::stack {

namespace {

constexpr std::size_t max_history = 65536; // the newest are kept

template <class Entry> void remember(std::deque<Entry> &history, const Entry &entry) {
    if (history.size() == max_history)
        history.pop_front();
    history.push_back(entry);
}

} // namespace

NeighbourKey key_of(const dpm_host_info &info) {
    NeighbourKey key{info.vrf, info.family, {}, 0};
    const bool ipv4 = info.family == DPM_FAMILY_IPV4;
    std::copy_n(info.address, ipv4 ? 4 : 16, key.address.begin());
    key.ifindex = ipv4 ? 0 : info.ifindex;
    return key;
}

Stack::Stack() : state_(std::make_unique<State>()) {}
Stack::~Stack() {
    stop();
}

void Stack::stop() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
        state_->waiting.notify_all();
    }
    if (state_->thread.joinable())
        state_->thread.join();
}

void Stack::declare_reachable(const dpm_host_info &info) {
    std::lock_guard lock(state_->mutex);
    state_->reachable[key_of(info)] = info;
}

void Stack::declare_silent(const NeighbourKey &key) {
    std::lock_guard lock(state_->mutex);
    state_->reachable.erase(key);
}

// Tells the library outside the lock, since the library may ask the stack something on the same
// thread.
int Stack::report(dpm_host_info info, std::uint8_t oper) {
    info.oper = oper;
    {
        std::lock_guard lock(state_->mutex);
        if (oper == DPM_OPER_ADD)
            state_->cache[key_of(info)] = info;
        else
            state_->cache.erase(key_of(info));
    }
    return state_->callback ? state_->callback(&info) : -1;
}

int Stack::learn(const dpm_host_info &info) {
    return report(info, DPM_OPER_ADD);
}
int Stack::lose(const dpm_host_info &info) {
    return report(info, DPM_OPER_DEL);
}

std::vector<dpm_host_info> Stack::cache() const {
    std::lock_guard lock(state_->mutex);
    std::vector<dpm_host_info> entries;
    for (const auto &[key, info] : state_->cache)
        entries.push_back(info);
    return entries;
}

std::vector<Probe> Stack::probes() const {
    std::lock_guard lock(state_->mutex);
    return {state_->probes.begin(), state_->probes.end()};
}

std::vector<NeighbourKey> Stack::deletions() const {
    std::lock_guard lock(state_->mutex);
    return {state_->deletions.begin(), state_->deletions.end()};
}

void Stack::clear_history() {
    std::lock_guard lock(state_->mutex);
    state_->probes.clear();
    state_->deletions.clear();
}

void Stack::watch(Watcher watcher) {
    std::lock_guard lock(state_->mutex);
    state_->watcher = std::move(watcher);
}

unsigned Stack::deliver() {
    std::vector<dpm_host_info> answers;
    {
        std::lock_guard lock(state_->mutex);
        answers.swap(state_->answers);
    }
    for (const dpm_host_info &info : answers)
        static_cast<void>(learn(info)); // as a stack: what the library makes of a report is its own
    return unsigned(answers.size());
}

std::size_t Stack::open_sockets() const {
    std::lock_guard lock(state_->mutex);
    return state_->sockets.size();
}

void Stack::fail_next(unsigned count, int error) {
    std::lock_guard lock(state_->mutex);
    state_->failures = count;
    state_->failure = error;
}

void Stack::probe(const NeighbourKey &key, std::uint32_t ifindex) {
    std::lock_guard lock(state_->mutex);
    remember(state_->probes, {key, ifindex, card().os.now_nsec()});
    if (state_->watcher)
        state_->watcher("probe", key);
    const auto found = state_->reachable.find(key);
    if (found == state_->reachable.end())
        return;
    state_->answers.push_back(found->second);
    if (card().os.mode() == os::Mode::pumped || state_->stopping)
        return;
    if (!state_->thread.joinable())
        state_->thread = std::thread([this] { run(); });
    state_->waiting.notify_one();
}

bool Stack::forget(const NeighbourKey &key) {
    std::lock_guard lock(state_->mutex);
    remember(state_->deletions, key);
    if (state_->watcher)
        state_->watcher("forget", key);
    return state_->cache.erase(key) > 0;
}

void Stack::run() {
    std::unique_lock lock(state_->mutex);
    while (!state_->stopping) {
        if (state_->answers.empty()) {
            state_->waiting.wait(lock);
            continue;
        }
        lock.unlock();
        deliver();
        lock.lock();
    }
}

} // namespace chassis::stack
