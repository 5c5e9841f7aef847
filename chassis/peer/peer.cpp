// Card roles, presence, callbacks, and the remote call by name.
//
// A call carries a receiver's name and a copy of a buffer.  Only functions whose names follow the
// receivers' pattern can be reached, through the process's own symbol table; the name comes from
// outside and is checked before the table is asked.

#include "chassis/chassis.h"
#include "chassis/peer/link.h"
#include "chassis/peer/state.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <utility>

namespace chassis::peer {

namespace {

using Receiver = int (*)(const void *buffer, std::uint32_t length_bytes);

struct NamePattern {
    std::string_view head, tail;
};

constexpr NamePattern receiver_patterns[] = {
    {"dpm_", "_sync_receive"},
    {"dpm_", "_sync_all_receive"},
    {"dpm_driver_group_", "_slave"},
    {"dpm_ipmc_api_slave_", ""},
};

bool is_name(std::string_view text) {
    return text.size() <= max_frame_name_bytes && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
           });
}

Receiver find_receiver(std::string_view name) {
    return reinterpret_cast<Receiver>(dlsym(RTLD_DEFAULT, std::string(name).c_str()));
}

std::shared_ptr<Link> take_link(Peer::State &state) {
    std::lock_guard lock(state.mutex);
    return std::exchange(state.link, nullptr);
}

std::shared_ptr<Link> link_of(Peer::State &state) {
    std::lock_guard lock(state.mutex);
    return state.link;
}

} // namespace

bool is_receiver(std::string_view name) {
    if (!is_name(name))
        return false;
    if (name == "dpm_slave_up_pro_over_peercard_callback")
        return true;
    return std::any_of(std::begin(receiver_patterns), std::end(receiver_patterns),
                       [name](const NamePattern &pattern) {
                           return name.size() > pattern.head.size() + pattern.tail.size() &&
                                  name.starts_with(pattern.head) && name.ends_with(pattern.tail);
                       });
}

Peer::Peer(Card &card) : card_(card), state_(std::make_unique<State>()) {}

Peer::~Peer() {
    close();
    cut();
}

Role Peer::role() const {
    return state_->role;
}
void Peer::set_role(Role role) {
    state_->role = role;
}
bool Peer::exists() const {
    return state_->exists;
}
bool Peer::standby_usable() const {
    return state_->exists && state_->standby_usable;
}
void Peer::set_standby_usable(bool usable) {
    state_->standby_usable = usable;
}
unsigned Peer::peer_slot() const {
    return card_.slot() == 9 ? 10 : 9;
}

void Peer::join(Peer &other) {
    state_->other = &other;
    other.state_->other = this;
    state_->exists = other.state_->exists = true;
}

void Peer::cut() {
    if (Peer *const other = std::exchange(state_->other, nullptr)) {
        other->state_->other = nullptr;
        other->state_->exists = false;
        state_->exists = false;
    }
}

void Peer::open(const std::string &path) {
    close();
    const auto link = std::make_shared<Link>(card_, path);
    {
        std::lock_guard lock(state_->mutex);
        state_->link = link;
    }
    link->start();
}

// The connected callback may be waiting for the standby's confirmation, and may only now begin to
// wait: it is released until its thread is gone.
void Peer::close() {
    const std::shared_ptr<Link> link = take_link(*state_);
    if (!link)
        return;
    link->stop();
    state_->exists = false;
    while (state_->connected_running > 0) {
        card_.os.release_waiters();
        std::this_thread::yield();
    }
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(state_->mutex);
        threads.swap(state_->connected_threads);
    }
    for (std::thread &thread : threads)
        thread.join();
}

void Peer::connected() {
    const auto call_all = [this] {
        for (const auto &[client, callback] : state_->connected_callbacks)
            callback();
    };
    if (card_.os.mode() == os::Mode::pumped) {
        CardScope scope(card_);
        call_all();
        return;
    }
    ++state_->connected_running;
    std::lock_guard lock(state_->mutex);
    state_->connected_threads.emplace_back([this, call_all] {
        call_all();
        --state_->connected_running;
    });
}

void Peer::before_master(std::function<void()> hook) {
    state_->before_master = std::move(hook);
}

void Peer::become_master() {
    if (state_->before_master && state_->role != Role::master)
        state_->before_master();
    if (state_->role.exchange(Role::master) == Role::master || !state_->to_master)
        return;
    CardScope scope(card_);
    state_->to_master();
}

int Peer::deliver(std::string_view name, std::span<const std::byte> payload) {
    if (!is_receiver(name) || payload.size() > max_call_bytes)
        return -1;
    const Receiver receiver = find_receiver(name);
    if (!receiver)
        return -1;
    // Copied first: the caller's bytes may stand in the library's state, which the scope exchanges.
    const std::vector<std::byte> copy(payload.begin(), payload.end());
    CardScope scope(card_);
    return receiver(copy.data(), std::uint32_t(copy.size()));
}

void Peer::record(bool on) {
    state_->recording = on;
}
const std::vector<Call> &Peer::calls() const {
    return state_->calls;
}

void Peer::clear_calls() {
    std::lock_guard lock(state_->mutex);
    state_->calls.clear();
}

void Peer::drop_calls(bool on) {
    state_->drop = on;
}

void Peer::watch(Watcher watcher) {
    state_->watcher = std::move(watcher);
}

// Sends one call to the other card: in one process it is made at once.
int Peer::call(std::string_view name, std::span<const std::byte> payload) {
    const bool is_taken = !state_->drop && state_->exists && payload.size() <= max_call_bytes &&
                          name.size() <= max_frame_name_bytes;
    if (state_->watcher)
        state_->watcher(name, payload, is_taken);
    if (!is_taken)
        return -1;
    if (state_->recording) {
        std::lock_guard lock(state_->mutex);
        state_->calls.push_back({std::string(name), {payload.begin(), payload.end()}});
    }
    if (state_->other)
        return static_cast<void>(state_->other->deliver(name, payload)), 0;
    const std::shared_ptr<Link> link = link_of(*state_);
    return link && link->send(name, payload) ? 0 : -1;
}

} // namespace chassis::peer

using namespace chassis;

extern "C" {

int hss_get_device_mac(uint8_t mac[6]) {
    const auto &own = card().options().mac;
    return std::copy(own.begin(), own.end(), mac), 0;
}

int hss_GetSmuState() {
    return card().peer.role() == peer::Role::master ? HSS_STATE_MASTER : HSS_STATE_MASTER + 1;
}

int hss_IsSmuMaster() {
    return card().peer.role() == peer::Role::master;
}
int hss_IsPeerExist() {
    return card().peer.exists();
}
int get_core_card_self_cardnumber() {
    return int(card().slot());
}
int get_bakup_core_card_cardnumber() {
    return int(card().peer.peer_slot());
}
int get_standby_corecard_can_be_use() {
    return card().peer.standby_usable();
}

int hss_backupConnectedRegister(int client, hss_callback connected) {
    return card().peer.state().connected_callbacks[client] = connected, 0;
}

int hssSlaveToMasterRtnReg(hss_callback to_master) {
    return card().peer.state().to_master = to_master, 0;
}

int hss_TellBackToExcuteSpe(const char *name, const void *buffer, uint32_t length_bytes) {
    if (!name || (!buffer && length_bytes))
        return -1;
    return card().peer.call(name, {static_cast<const std::byte *>(buffer), length_bytes});
}

} // extern "C"
