// Timer lists: nodes inside the records that they serve, sorted by expiry.
//
// Nothing runs by itself: the worker checks its lists after every message and at least once a
// second, under the DPM lock, so callbacks run on the worker like any handler and may change the
// tables.  A node is idle (linked to itself) or armed (on one list).  Initialise it before its
// first start; stop it before its record is freed.
#pragma once

#include "dpm_api.h"
#include "dpm_list.h"

#include <cstdint>

// The timer of a length that was armed last, or what stood in front of it when it went.
struct dpm_timer_mark {
    list_head *last; // null: none of these lengths yet
    std::uint32_t length_sec;
};
inline constexpr unsigned DPM_TIMER_MARKS = 8; // more lengths take turns

struct dpm_timer_list {
    list_head head;
    dpm_timer_mark marks[DPM_TIMER_MARKS];
    unsigned oldest_mark;
};
static_assert(sizeof(dpm_timer_node) == 32);
static_assert(offsetof(dpm_timer_node, expiry_sec) == 8);
static_assert(offsetof(dpm_timer_node, callback) == 16);

using dpm_timer_callback = int (*)(std::uintptr_t arg1, std::uintptr_t arg2, std::uintptr_t arg3);

dpm_timer_list *dpm_timer_list_create();         // null when memory has run out
int dpm_timer_list_delete(dpm_timer_list *list); // the nodes still on it are left alone
int dpm_timer_node_init(dpm_timer_node *node);

// Arms or re-arms a node to be due in `length_sec` seconds; the arguments go to the callback as
// they are.
int dpm_timer_start(dpm_timer_list *list, dpm_timer_node *node, std::uint32_t length_sec,
                    dpm_timer_callback callback, std::uintptr_t arg1, std::uintptr_t arg2,
                    std::uintptr_t arg3);
int dpm_timer_restart(dpm_timer_list *list, dpm_timer_node *node, std::uint32_t length_sec);
int dpm_timer_stop(dpm_timer_list *list, dpm_timer_node *node);

// Runs every timer that is due; always 0 for a list.
int dpm_timer_list_check(dpm_timer_list *list);

// 1, 0 or -1, by seconds and then nanoseconds.
int dpm_timer_compare(std::int32_t a_sec, std::int32_t a_nsec, std::int32_t b_sec,
                      std::int32_t b_nsec);
