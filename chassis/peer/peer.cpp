// Card roles, presence, callbacks, and the remote call by name.
//
// A call carries a receiver's name and a copy of a buffer.  Only functions whose names follow the
// receivers' pattern can be reached, through the process's own symbol table; the name comes from
// outside and is checked before the table is asked.

#include "chassis/chassis.h"
#include "chassis/peer/link.h"
#include "chassis/peer/state.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <dlfcn.h>
#include <future>
#include <utility>

namespace chassis::peer {

namespace {

using Receiver = int (*)(const void *buffer, std::uint32_t length_bytes);

struct NamePattern {
    std::string_view head, tail;
};

constexpr NamePattern receiver_patterns[] = {
    {"dpm_", "_sync_receive"},   {"dpm_", "_sync_all_receive"}, {"dpm_driver_group_", "_slave"},
    {"dpm_ipmc_api_slave_", ""}, {"dpm_api_set_", "_slave"},
};

constexpr std::int64_t replaced_nsec = 2 * os::nsec_per_sec; // longer than a request is on its way

// By it a standby tells that all the tables have come.
constexpr std::string_view confirmation = "dpm_slave_up_pro_over_peercard_callback";
constexpr std::size_t shortest_record_bytes = 16; // the link of its tree alone
constexpr std::size_t spare_places = 64;          // for what other threads post meanwhile

// What a receiver may post at most.
std::size_t places_for(std::string_view name, std::size_t length_bytes) {
    if (name == confirmation)
        return 0;
    const bool is_table = name.ends_with("_sync_all_receive");
    return spare_places + (is_table ? length_bytes / shortest_record_bytes : 1);
}

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

// Where the worker waits while a card's role changes.
class Gate {
public:
    void pass() { // the worker
        reached_.set_value();
        opened_.get_future().wait();
    }
    void wait() { static_cast<void>(reached_.get_future().wait_for(patience)); } // for it
    void open() { opened_.set_value(); }

private:
    static constexpr std::chrono::seconds patience{5}; // one that hangs holds up no take-over
    std::promise<void> reached_, opened_;
};

std::shared_ptr<Link> link_of(Peer::State &state) {
    std::lock_guard lock(state.mutex);
    return state.link;
}

void note_mac(Peer::State &state, std::span<const std::byte> payload) {
    std::array<std::uint8_t, 6> mac;
    if (state.role == Role::master || payload.size() != mac.size())
        return;
    std::memcpy(mac.data(), payload.data(), mac.size());
    std::lock_guard lock(state.mutex);
    state.masters_mac = mac;
}

} // namespace

bool is_receiver(std::string_view name) {
    if (!is_name(name))
        return false;
    if (name == confirmation)
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

std::array<std::uint8_t, 6> Peer::device_mac() const {
    std::lock_guard lock(state_->mutex);
    return state_->masters_mac.value_or(card_.options().mac);
}

// --- roles -------------------------------------------------------------------------------------

bool Peer::is_replaced() const {
    if (const std::shared_ptr<Link> link = link_of(*state_))
        link->make_sure();
    return os::raw_nsec() < state_->replaced_until_nsec;
}

bool Peer::has_sent_all() const {
    const std::shared_ptr<Link> link = link_of(*state_);
    return !link || link->has_sent_all();
}

std::uint64_t Peer::term() const {
    return state_->term;
}

void Peer::know_term(std::uint64_t term) {
    if (state_->role != Role::master && term > state_->term)
        state_->term = term;
}

Claim Peer::claim() const {
    const Standing standing = role() == Role::master ? Standing::master : Standing::standby;
    return {claim_magic, claim_version, card_.slot(), standing, term()};
}

// Does not wait: whoever changes the role meanwhile changes the claim.  A standby may hear of a term
// meanwhile; the other card's heartbeat tells it as soon as it has said hello.  But a card that
// would become master and has heard of a later take-over does not.
bool Peer::settle(const Claim &own, const Claim &other) {
    const std::unique_lock lock(state_->changing_role, std::try_to_lock);
    const Claim now = claim();
    const bool wins = is_master_of(own, other);
    const std::uint64_t term = settled_term(own, other);
    if (!lock || now.standing != own.standing || is_master_of(now, other) != wins)
        return false;
    if (wins && !now.is_master() && now.term >= term)
        return false; // somebody took over since
    wins ? make_master(term) : make_standby(term);
    return true;
}

void Peer::before_master(std::function<void()> hook) {
    state_->before_master = std::move(hook);
}

void Peer::around_master(std::function<void()> hook) {
    state_->around_master = std::move(hook);
}

void Peer::become_master() {
    if (role() != Role::master && card_.os.mode() == os::Mode::pumped)
        card_.pump();
    const std::lock_guard lock(state_->changing_role);
    if (role() != Role::master)
        make_master(term() + 1);
}

// The term before the role: a claim that is read in between is a standby's, which has heard of it.
// And the role behind what the take-over asks of the worker, which waits for it: whatever is asked
// of the master comes later.
void Peer::make_master(std::uint64_t term) {
    const bool takes_over = role() != Role::master;
    if (takes_over && state_->before_master)
        state_->before_master();
    state_->term = std::max(term, state_->term + std::uint64_t(takes_over));
    if (!takes_over || !state_->to_master) {
        state_->role = Role::master;
        return;
    }
    CardScope scope(card_);
    const auto gate = std::make_shared<Gate>();
    card_.os.behind_queue([gate, around = state_->around_master] {
        gate->pass();
        around();
    });
    if (card_.os.mode() == os::Mode::threaded)
        gate->wait();
    state_->to_master();
    card_.os.behind_queue(state_->around_master);
    state_->role = Role::master;
    gate->open();
}

void Peer::make_standby(std::uint64_t term) {
    if (state_->role.exchange(Role::standby) == Role::master) {
        state_->replaced_until_nsec = os::raw_nsec() + replaced_nsec;
        state_->has_tables = false;
    }
    state_->term = std::max<std::uint64_t>(term, state_->term);
}

// --- two cards in one process ------------------------------------------------------------------

void Peer::join(Peer &other) {
    state_->other = &other;
    other.state_->other = this;
    state_->exists = other.state_->exists = true;
    const Claim own = claim(), others = other.claim();
    if (!own.is_master() && !others.is_master())
        return; // the rig says which
    static_cast<void>(settle(own, others));
    static_cast<void>(other.settle(others, own));
}

void Peer::cut() {
    if (Peer *const other = std::exchange(state_->other, nullptr)) {
        other->state_->other = nullptr;
        other->state_->exists = false;
        state_->exists = false;
    }
}

int Peer::arrive(std::string_view name, std::span<const std::byte> payload) {
    if (deliver_arrived() && has_room_for(name, payload.size()))
        return static_cast<void>(deliver(name, payload)), 0;
    if (state_->arrived_bytes + payload.size() > max_waiting_bytes)
        return -1;
    state_->arrived_bytes += payload.size();
    state_->arrived.push_back({std::string(name), {payload.begin(), payload.end()}});
    return 0;
}

bool Peer::deliver_arrived() {
    while (!state_->arrived.empty()) {
        const Call &first = state_->arrived.front();
        if (!has_room_for(first.name, first.payload.size()))
            return false;
        const Call call = std::move(state_->arrived.front());
        state_->arrived.pop_front();
        state_->arrived_bytes -= call.payload.size();
        static_cast<void>(deliver(call.name, call.payload));
    }
    return true;
}

// --- the connection over a socket --------------------------------------------------------------

void Peer::open(const std::string &path) {
    close();
    const auto link = std::make_shared<Link>(card_, path);
    {
        std::lock_guard lock(state_->mutex);
        state_->link = link;
    }
    link->start();
}

void Peer::close() {
    if (const std::shared_ptr<Link> link = take_link(*state_)) {
        link->stop();
        state_->exists = false;
    }
    end_connected();
    {
        std::lock_guard lock(state_->connecting);
        state_->is_ending = true;
        state_->connecting.signal();
    }
    if (state_->connected_thread.joinable())
        state_->connected_thread.join();
    state_->is_ending = false;
}

// One thread for all connections: the callback for a standby that was lost ends before the next
// begins.
void Peer::connected() {
    if (card_.os.mode() == os::Mode::pumped) {
        CardScope scope(card_);
        return call_connected();
    }
    end_connected();
    std::lock_guard lock(state_->connecting);
    state_->is_connected_wanted = state_->connected_running = true;
    if (!state_->connected_thread.joinable())
        state_->connected_thread = std::thread([this] { keep_connected(); });
    state_->connecting.signal();
}

void Peer::keep_connected() {
    std::unique_lock lock(state_->connecting);
    while (!state_->is_ending) {
        if (!std::exchange(state_->is_connected_wanted, false)) {
            state_->connecting.wait();
            continue;
        }
        lock.unlock();
        call_connected();
        lock.lock();
        state_->connected_running = false;
    }
}

void Peer::call_connected() {
    for (const auto &[client, callback] : state_->connected_callbacks)
        callback();
}

// The callback may be waiting for the standby's confirmation, and may only now begin to wait: it is
// released until it is through.
void Peer::end_connected() {
    {
        std::lock_guard lock(state_->connecting);
        if (std::exchange(state_->is_connected_wanted, false))
            state_->connected_running = false;
    }
    while (state_->connected_running) {
        card_.os.release_waiters();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// --- calls -------------------------------------------------------------------------------------

bool Peer::has_room_for(std::string_view name, std::size_t length_bytes) const {
    return card_.os.has_room(places_for(name, length_bytes));
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
    if (name == "dpm_main_entry_sync_all_receive")
        note_mac(*state_, copy);
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

void Peer::take_calls(std::function<bool()> whether) {
    state_->takes_calls = std::move(whether);
}

void Peer::watch(Watcher watcher) {
    state_->watcher = std::move(watcher);
}

// Sends one call to the other card.
int Peer::call(std::string_view name, std::span<const std::byte> payload) {
    const bool is_taken = state_->exists && payload.size() <= max_call_bytes &&
                          name.size() <= max_frame_name_bytes && state_->takes_calls();
    if (state_->watcher)
        state_->watcher(name, payload, is_taken);
    if (!is_taken)
        return -1;
    if (state_->recording) {
        std::lock_guard lock(state_->mutex);
        state_->calls.push_back({std::string(name), {payload.begin(), payload.end()}});
    }
    if (name == confirmation && role() == Role::standby)
        state_->has_tables = true;
    if (state_->other)
        return state_->other->arrive(name, payload);
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
