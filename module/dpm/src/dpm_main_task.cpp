// The worker: takes messages in order, hands each to the table's owner, and runs the timers in
// between.
//
// It is the only thread that changes tables, and it does so under the DPM lock, which it gives back
// between a message and the timers: a reader sees the tables between two steps, never in the middle
// of one.
#include "dpm_main.h"

#include "dpm.h"
#include "dpm_host.h"
#include "dpm_ipmc_global.h"
#include "dpm_locks.h"
#include "dpm_msg.h"
#include "dpm_vpls.h"
#include "platform/host.h"
#include "platform/uv.h"

#include <initializer_list>

#include <cstring>
#include <initializer_list>

namespace {

void *block_of(std::uint32_t word) {
    return reinterpret_cast<void *>(word);
}

// What a handler of each shape passes on.
template <class Body> void handle_body(void *data, int (*owner)(const Body *)) {
    if (data == nullptr)
        return;
    (void)owner(static_cast<const Body *>(data));
    bep_freeEx(data, __FILE__, __LINE__);
}

template <class Body> void handle_rules(void *data, int (*owner)(const Body *)) {
    if (data == nullptr)
        return;
    std::uint32_t words[4];
    std::memcpy(words, data, sizeof words);
    (void)owner(static_cast<const Body *>(data));
    for (const std::uint32_t block : {words[1], words[3], reinterpret_cast<std::uint32_t>(data)})
        if (block != 0)
            bep_freeEx(block_of(block), __FILE__, __LINE__);
}

template <class Body>
void handle_trunk(std::uint32_t len, void *data, int (*owner)(const Body *, std::uint32_t)) {
    if (data == nullptr)
        return;
    (void)owner(static_cast<const Body *>(data), len);
    bep_freeEx(data, __FILE__, __LINE__);
}

// A block that is too short for its descriptor is no packet.
template <class Descriptor>
void handle_packet(void *block, std::uint32_t len,
                   int (*owner)(const std::uint8_t *, std::uint32_t, const Descriptor *)) {
    if (block != nullptr && len >= sizeof(Descriptor))
        (void)owner(static_cast<const std::uint8_t *>(block) + sizeof(Descriptor),
                    len - sizeof(Descriptor), static_cast<const Descriptor *>(block));
    bep_freeEx(block, __FILE__, __LINE__);
}

template <class Body>
void handle_sized(void *block, std::uint32_t len, int (*owner)(const Body *, std::uint32_t)) {
    (void)owner(static_cast<const Body *>(block), len);
    bep_freeEx(block, __FILE__, __LINE__);
}

// The handlers, one a row.
#define DPM_HANDLER_body(handler, owner)                                                           \
    void handler(void *data) {                                                                     \
        handle_body(data, owner);                                                                  \
    }
#define DPM_HANDLER_rules(handler, owner)                                                          \
    void handler(void *data) {                                                                     \
        handle_rules(data, owner);                                                                 \
    }
#define DPM_HANDLER_trunk(handler, owner)                                                          \
    void handler(std::uint32_t len, void *data) {                                                  \
        handle_trunk(len, data, owner);                                                            \
    }
#define DPM_HANDLER_packet(handler, owner)                                                         \
    void handler(void *block, std::uint32_t len) {                                                 \
        handle_packet(block, len, owner);                                                          \
    }
#define DPM_HANDLER_sized(handler, owner)                                                          \
    void handler(void *block, std::uint32_t len) {                                                 \
        handle_sized(block, len, owner);                                                           \
    }
#define DPM_ROW(code, name, handler, owner, body, shape) DPM_HANDLER_##shape(handler, owner)
#define DPM_CALL(code, name, owner, shape)
DPM_MESSAGES(DPM_ROW, DPM_CALL)
#undef DPM_ROW
#undef DPM_CALL

// The words that each shape takes from a message.
#define DPM_WORDS_body(msg) block_of((msg).data)
#define DPM_WORDS_rules(msg) block_of((msg).data)
#define DPM_WORDS_trunk(msg) (msg).len, block_of((msg).data)
#define DPM_WORDS_slot(msg) (msg).data
#define DPM_WORDS_port(msg) (msg).len, (msg).data
#define DPM_WORDS_owned(msg) block_of((msg).data)
#define DPM_WORDS_packet(msg) block_of((msg).arg), (msg).len
#define DPM_WORDS_sized(msg) block_of((msg).arg), (msg).len
#define DPM_WORDS_signal(msg)

using dispatch = void (*)(const dpm_msg &msg);

struct dispatch_table {
    // Code 1 stands first; null: dropped in silence, its block with it.
    dispatch by_code[DPM_MSG_LAST] = {};
};

constexpr dispatch_table make_dispatch_table() {
    dispatch_table table;
#define DPM_ROW(code, name, handler, owner, body, shape)                                           \
    table.by_code[code - 1] = [](const dpm_msg &msg) {                                             \
        (void)msg, (void)handler(DPM_WORDS_##shape(msg));                                          \
    };
#define DPM_CALL(code, name, owner, shape)                                                         \
    table.by_code[code - 1] = [](const dpm_msg &msg) {                                             \
        (void)msg, (void)owner(DPM_WORDS_##shape(msg));                                            \
    };
    DPM_MESSAGES(DPM_ROW, DPM_CALL)
#undef DPM_ROW
#undef DPM_CALL
    return table;
}

constexpr dispatch_table handlers = make_dispatch_table();

void handle(const dpm_msg &msg) {
    const std::uint32_t place = msg.type - 1; // of type 0: past every place
    if (place >= DPM_MSG_LAST || handlers.by_code[place] == nullptr)
        return;
    handlers.by_code[place](msg);
}

void receive_one() {
    dpm_msg msg;
    const int received =
        bep_msgQReceiveEx(g_dpm_global.queue, &msg, sizeof msg, bep_sysClkRateGetEx(), __FILE__,
                          __LINE__); // a second at most
    if (received != static_cast<int>(sizeof msg))
        return;
    const dpm::dpm_lock lock;
    handle(msg);
}

void run_timers() {
    const dpm::dpm_lock lock;
    for (dpm_timer_list *timers : {g_dpm_global.timer_list, g_ipmc_global.timer_list})
        if (timers != nullptr)
            (void)dpm_timer_list_check(timers);
}

} // namespace

int dpm_task_pass() {
    receive_one();
    run_timers();
    return 0;
}

int dpm_task() {
    while (g_dpm_global.queue != nullptr)
        (void)dpm_task_pass();
    return 0;
}
