// Timer lists, sorted by expiry; timers of equal expiry keep the order in which they were armed.
//
// A new expiry is looked for from the tail: most timers of the system are armed with one of a few
// lengths, so the place is near the end, and arming many timers of one length costs the same for
// each.
#include "dpm_timer.h"

#include "dpm_trace.h"

#include <cstdlib>
#include <ctime>

namespace {

using timer_view = dpm::list_view<dpm_timer_node, &dpm_timer_node::link>;

timespec now() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

bool is_later(const dpm_timer_node &node, std::int32_t sec, std::int32_t nsec) {
    return dpm_timer_compare(node.expiry_sec, node.expiry_nsec, sec, nsec) > 0;
}

void insert_sorted(dpm_timer_list &list, dpm_timer_node &node) {
    list_head *place = list.head.prev;
    while (place != &list.head &&
           is_later(timer_view::entry_of(place), node.expiry_sec, node.expiry_nsec))
        place = place->prev;
    list_add(&node.link, place);
}

void arm(dpm_timer_list &list, dpm_timer_node &node, std::uint32_t length_sec) {
    const timespec time = now();
    list_del_init(&node.link);
    node.expiry_sec =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(time.tv_sec) + length_sec);
    node.expiry_nsec = static_cast<std::int32_t>(time.tv_nsec);
    insert_sorted(list, node);
}

} // namespace

dpm_timer_list *dpm_timer_list_create() {
    auto *list = static_cast<dpm_timer_list *>(std::malloc(sizeof(dpm_timer_list)));
    if (list != nullptr)
        INIT_LIST_HEAD(&list->head);
    return list;
}

int dpm_timer_list_delete(dpm_timer_list *list) {
    if (list == nullptr)
        return dpm::null_parameter();
    INIT_LIST_HEAD(&list->head);
    std::free(list);
    return 0;
}

int dpm_timer_node_init(dpm_timer_node *node) {
    if (node == nullptr)
        return dpm::null_parameter();
    *node = {};
    INIT_LIST_HEAD(&node->link);
    return 0;
}

int dpm_timer_start(dpm_timer_list *list, dpm_timer_node *node, std::uint32_t length_sec,
                    dpm_timer_callback callback, std::uintptr_t arg1, std::uintptr_t arg2,
                    std::uintptr_t arg3) {
    if (list == nullptr || node == nullptr)
        return dpm::null_parameter();
    node->callback = callback;
    node->arg1 = arg1;
    node->arg2 = arg2;
    node->arg3 = arg3;
    arm(*list, *node, length_sec);
    return 0;
}

int dpm_timer_restart(dpm_timer_list *list, dpm_timer_node *node, std::uint32_t length_sec) {
    if (list == nullptr || node == nullptr)
        return dpm::null_parameter();
    arm(*list, *node, length_sec);
    return 0;
}

int dpm_timer_stop(dpm_timer_list *list, dpm_timer_node *node) {
    if (list == nullptr || node == nullptr)
        return dpm::null_parameter();
    list_del_init(&node->link);
    return dpm_timer_node_init(node);
}

int dpm_timer_list_check(dpm_timer_list *list) {
    if (list == nullptr)
        return dpm::null_parameter();
    const timer_view timers(list->head);
    if (timers.empty())
        return 0;
    const timespec time = now();
    // The node is off the list before its callback runs, which may arm it again, stop others, or
    // free its record.
    for (dpm_timer_node *node = timers.first(); node != nullptr; node = timers.first()) {
        if (is_later(*node, static_cast<std::int32_t>(time.tv_sec),
                     static_cast<std::int32_t>(time.tv_nsec)))
            break;
        list_del_init(&node->link);
        node->expiry_sec = 0;
        node->expiry_nsec = 0;
        if (node->callback != nullptr)
            (void)node->callback(node->arg1, node->arg2, node->arg3);
    }
    return 0;
}

int dpm_timer_compare(std::int32_t a_sec, std::int32_t a_nsec, std::int32_t b_sec,
                      std::int32_t b_nsec) {
    if (a_sec != b_sec)
        return a_sec > b_sec ? 1 : -1;
    return a_nsec == b_nsec ? 0 : a_nsec > b_nsec ? 1 : -1;
}
